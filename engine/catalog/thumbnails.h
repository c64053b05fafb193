#pragma once
// Grid thumbnails: small upright pictures of photo files for the Library
// grid, the filmstrip and the first moments of Develop, kept as JPEG files
// in the library's "Thumbnails" folder (see `PhotoLibrary::thumbnailURL`).
//
// A thumbnail is made as cheaply as will look right: a RAW file's embedded
// camera preview when it is large enough, else the small picture an image
// file stores beside its main one (a JPEG's EXIF thumbnail, a HEIF
// thumbnail item), else the file decoded at the size asked (JPEG DCT
// scaling, a HEIF thumbnail that is large enough, a RAW at half size).
// Thumbnails are 8-bit sRGB pictures, turned upright.
//
// Stateless: every call may run on any thread, several at once. A file is
// written under a temporary name and renamed into place, so a reader never
// sees half a JPEG; two writers of one thumbnail leave the last one's.

#include <filesystem>
#include <optional>

#include "engine/media/bitmap.h"

namespace lumivale::Thumbnails {

/// Compression quality of the stored grid thumbnails, 0 … 1.
inline constexpr double storedQuality = 0.82;

/// A picture of the photo file at `file` whose longer side is at most
/// `maxSide` pixels, upright, as 3-band 8-bit sRGB; nothing when the file is
/// missing, cannot be decoded, or `maxSide` is below 1.
///   1. A RAW file (by its extension) offers its largest embedded preview,
///      taken when its longer side L reaches `maxSide` (for `maxSide` up to
///      320) or 320 (for larger requests: good enough to show while the
///      full decode runs).
///   2. Otherwise the picture stored in the file beside the main one (for a
///      RAW, that same preview) is taken unless it is too small: its longer
///      side below `maxSide` when `maxSide` < 160, below 160 otherwise.
///   3. Otherwise the whole file is decoded at the size asked.
/// Never throws.
std::optional<Bitmap> make(const std::filesystem::path& file, int maxSide);

/// Writes `image` as one JPEG at `to` with compression quality `quality`
/// (0 … 1, clamped), replacing what is there through a rename. Returns
/// whether it was written; never throws.
bool write(const Bitmap& image, const std::filesystem::path& to, double quality);

/// `write`, its failure ignored: the next request makes the thumbnail again.
inline void save(const Bitmap& image, const std::filesystem::path& to, double quality) {
  write(image, to, quality);
}

/// The first picture of the file at `file` as 3-band 8-bit sRGB; nothing
/// when it does not exist, cannot be decoded, or decodes only in part (a
/// file cut short is a damaged thumbnail, to be made again). Never throws.
std::optional<Bitmap> load(const std::filesystem::path& file);

}  // namespace lumivale::Thumbnails
