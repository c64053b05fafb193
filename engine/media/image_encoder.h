#pragma once
// Output pictures written as new files: JPEG, PNG, TIFF and HEIF (HEVC
// coded, through libheif and x265), each with the picture's ICC profile
// embedded and nothing else of its metadata.
//
// The picture streams from its chain into the encoder strip by strip (a
// HEIF file is made in memory, as its coder needs the whole picture; TIFF
// strips are deflated in parallel and gathered there too), and
// the encoder writes through `writeFileSafely`: a temporary file beside the
// target, renamed into place when complete, never over an existing file
// unless asked to. Thread-safe.

#include <filesystem>
#include <string>

#include "engine/media/image.h"
#include "engine/media/image_decoder.h"

namespace lumivale {

struct EncodeOptions {
  ImageFormat format = ImageFormat::jpeg;
  double quality = 0.9;  ///< JPEG and HEIF compression quality, 0 … 1
  bool replaceExisting = false;
  bool operator==(const EncodeOptions&) const = default;
};

namespace ImageEncoder {

/// Writes `picture` (an output picture as `outputImage` makes it: 1 or 3
/// bands of 8- or 16-bit samples, usually with an ICC profile) to a new
/// `file`. JPEG and HEIF keep 8 bits (16-bit samples are rounded to 8); PNG
/// and TIFF keep 16. TIFF is deflate-compressed with horizontal
/// differencing, in strips. Throws ImageError for a
/// picture of another form or a format that cannot be written here (see
/// `canWrite`), and FileExistsError or MediaError "cannot write "<file>":
/// <reason>" as `writeFileSafely` does, also when computing the picture
/// fails.
void write(const Image& picture, const std::filesystem::path& file, const EncodeOptions& options);

/// The bytes `write` would write, in memory, for a caller that adds to them
/// (metadata) before they become a file. Throws ImageError.
std::string encode(const Image& picture, const EncodeOptions& options);

/// Whether this computer can write `format`: JPEG, PNG and TIFF always; HEIF
/// when libheif has an HEVC encoder.
bool canWrite(ImageFormat format);

}  // namespace ImageEncoder
}  // namespace lumivale
