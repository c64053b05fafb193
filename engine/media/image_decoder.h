#pragma once
// Photo files (JPEG, PNG, TIFF, HEIF) decoded into the working space.
//
// A file is recognised by its content, never by its name, and only these
// four formats are read. The result is 3-band float linear extended-range
// sRGB (see engine/render/how_it_works.md): converted from the file's ICC
// profile (sRGB when it has none), any alpha flattened onto white, the EXIF
// orientation applied, the top-left pixel first.
//
// A reduced size is decoded at that size: JPEGs are scaled in the DCT by a
// power of two, HEIF files offer their stored thumbnail when it is large
// enough, and what remains is resampled (Lanczos 3) on the samples as stored,
// before the colour conversion. A full-size decode stays lazy: its samples
// are decoded as stored (8 or 16 bits) on first demand, and the conversion
// to floats runs strip by strip as the chain after it asks, so an export
// never holds the photo as floats.
//
// Thread-safe: each call works on its own file handles.

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "engine/media/image.h"
#include "engine/media/image_header.h"

namespace lumivale {

/// The largest pictures decoded; a header beyond them is refused before any
/// pixel memory is allocated.
struct DecodeLimits {
  int maxSide = 65535;
  std::uint64_t maxPixels = std::uint64_t(1) << 29;  ///< about 537 megapixels
};

/// A decoded picture.
struct DecodedImage {
  Image image;  ///< working space, upright
  /// Empty when the file decoded cleanly; otherwise one line for the user,
  /// such as a file cut short of which only the first part could be shown.
  std::string warning;
};

namespace ImageDecoder {

/// What a decoder learns from a file before any pixel is decoded.
struct Header {
  ImageFormat format = ImageFormat::jpeg;
  int width = 0;  ///< pixels as decoded, before orientation
  int height = 0;
  int orientation = 1;  ///< EXIF orientation 1 … 8 (HEIF: 1, its decoder turns the picture itself)

  /// The size once the orientation is applied (swapped for 5 … 8).
  int orientedWidth() const { return orientation >= 5 ? height : width; }
  int orientedHeight() const { return orientation >= 5 ? width : height; }

  bool operator==(const Header&) const = default;
};

/// Reads the header of a photo file. Throws ImageError naming the file:
/// "cannot open "<file>": <reason>" when it is missing or unreadable,
/// "cannot read "<file>": <reason>" when it is not a regular file, empty,
/// not a JPEG, PNG, TIFF or HEIF file by its content, damaged in its
/// header, or larger than `limits`.
Header readHeader(const std::filesystem::path& file, const DecodeLimits& limits = {});

/// Decodes a photo file. `maxSide` empty gives the full size; otherwise the
/// longer side of the result is `maxSide` (at least 1), or the full size
/// when that is not larger: a picture is never enlarged. A reduced decode is
/// finished in memory; a full-size one is decoded when its pixels are asked
/// for. Throws ImageError as `readHeader` does, and "cannot decode
/// "<file>": <reason>" when a reduced decode fails (a full-size decode
/// reports a failure when its pixels are computed). A JPEG cut short is
/// decoded as far as it goes, the rest grey, with a warning.
DecodedImage decode(const std::filesystem::path& file, std::optional<int> maxSide,
                    const DecodeLimits& limits = {});

/// The smaller picture a file stores beside its main one, decoded into the
/// working space like `decode`: a JPEG's EXIF thumbnail (turned by the
/// file's orientation, coloured by its profile) or a HEIF file's thumbnail
/// item. One of another aspect than the main picture (black bands) is cut
/// to the main picture's aspect about its middle; the longer side is then
/// scaled down to `maxSide` (at least 1), never up. Nothing when the file
/// stores none (PNG and TIFF never do here) or it cannot be decoded. Throws
/// ImageError as `readHeader` does.
std::optional<DecodedImage> decodeStoredThumbnail(const std::filesystem::path& file, int maxSide,
                                                  const DecodeLimits& limits = {});

}  // namespace ImageDecoder
}  // namespace lumivale
