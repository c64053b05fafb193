#pragma once
// The RAW container reader: what a camera RAW file says about itself without
// decoding its sensor data (make, model, exposure, size, orientation), and the
// list of preview images the camera stored inside it.
//
// LibRaw identifies the file and gives the shooting facts and its main
// thumbnail; exiv2 reads the file's own directory: the maker, model and date
// as written in the file, the picture size the camera records, and the
// further previews LibRaw does not expose. A container LibRaw refuses is
// described by that directory alone. Both read through a PhotoFile (regular
// files only, a bounded read budget), so a damaged file fails in a moment.
// Nothing is unpacked, so this is cheap enough to run for every file of an
// import. Safe to call from several threads at once; every call opens its
// own readers.

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace lumivale {

/// One preview image stored inside a RAW file.
struct EmbeddedPreview {
  /// Which reader can hand out the preview's bytes: LibRaw's `unpack_thumb`
  /// for its main thumbnail, exiv2's PreviewManager (by `exiv2Id`) otherwise.
  enum class Source { libraw, exiv2 };
  /// How the bytes are encoded.
  enum class Format { jpeg, tiff, bitmap, other };

  Source source = Source::libraw;
  Format format = Format::other;
  /// exiv2's preview id; -1 for LibRaw's thumbnail.
  long exiv2Id = -1;
  std::string mimeType;  ///< "image/jpeg", "image/tiff"; empty when unknown
  int width = 0;  ///< pixels as stored (no orientation applied); 0 when unknown
  int height = 0;
  std::int64_t length = 0;  ///< bytes of the encoded preview
  std::int64_t offset = -1;  ///< byte offset in the file; -1 when the reader does not say

  bool operator==(const EmbeddedPreview&) const = default;
  /// Longer side in pixels.
  int longSide() const { return width > height ? width : height; }
};

/// What a RAW file's own directory says.
struct RawInfo {
  /// As written in the file ("NIKON CORPORATION"); LibRaw's name for the
  /// maker only when the file's directory cannot be read.
  std::string make;
  std::string model;  ///< as written in the file ("NIKON Z 6"), likewise
  std::string lens;
  int iso = 0;
  double exposure = 0;  ///< seconds
  double fNumber = 0;
  double focal = 0;  ///< millimetres
  /// "yyyy:MM:dd HH:mm:ss" as the camera's clock showed it, empty when unknown.
  std::string dateOriginal;
  /// Pixels as displayed, after `orientation`: the size the camera records
  /// (a DNG's default crop, the EXIF pixel dimensions), else LibRaw's
  /// visible area.
  int width = 0;
  int height = 0;
  int orientation = 1;  ///< EXIF orientation 1 to 8
  /// Largest first (by pixel count), one entry per picture.
  std::vector<EmbeddedPreview> previews;

  bool operator==(const RawInfo&) const = default;

  /// The first of `previews`, or nothing.
  const EmbeddedPreview* largestPreview() const {
    return previews.empty() ? nullptr : &previews.front();
  }
};

namespace RawPreview {

/// Reads the container directory of a RAW file. Nothing when neither LibRaw
/// nor exiv2 recognises the file as a camera's (missing, not a regular file,
/// not a RAW container, a header that does not end). Never throws.
std::optional<RawInfo> info(const std::filesystem::path& file);

/// LibRaw's `flip` (0, 3, 5, 6 and the mirrored 1, 2, 4, 7) as an EXIF
/// orientation 1 to 8; unknown values give 1.
int orientationFromFlip(int flip);

/// Sorts largest first (a JPEG, then LibRaw's report, first among equals)
/// and drops a preview of the same pixel size as an earlier one: both
/// readers report the camera's main preview, exiv2 at times as a TIFF.
void orderPreviews(std::vector<EmbeddedPreview>& previews);

}  // namespace RawPreview
}  // namespace lumivale
