#pragma once
// Output pictures written as new files: JPEG, PNG and TIFF, each with the
// picture's ICC profile embedded and nothing else of its metadata.
//
// The picture streams from its chain into the encoder strip by strip, and
// the encoder writes through `writeFileSafely`: a temporary file beside the
// target, renamed into place when complete, never over an existing file
// unless asked to. Thread-safe.

#include <filesystem>

#include "engine/media/image.h"
#include "engine/media/image_decoder.h"

namespace lumivale {

struct EncodeOptions {
  ImageFormat format = ImageFormat::jpeg;
  double quality = 0.9;  ///< JPEG compression quality, 0 … 1
  bool replaceExisting = false;
  bool operator==(const EncodeOptions&) const = default;
};

namespace ImageEncoder {

/// Writes `picture` (an output picture as `outputImage` makes it: 1 or 3
/// bands of 8- or 16-bit samples, usually with an ICC profile) to a new
/// `file`. JPEG keeps 8 bits (16-bit samples are rounded to 8); PNG and TIFF
/// keep 16. TIFF is written uncompressed. Throws ImageError for a
/// picture of another form or a format that cannot be written, and
/// FileExistsError or MediaError "cannot write "<file>": <reason>" as
/// `writeFileSafely` does, also when computing the picture fails.
void write(const Image& picture, const std::filesystem::path& file, const EncodeOptions& options);

}  // namespace ImageEncoder
}  // namespace lumivale
