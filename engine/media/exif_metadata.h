#pragma once
// The TIFF, EXIF, GPS and IPTC facts embedded in a photo file, as exiv2
// reads them, handed out as plain values. exiv2 gets the file's bytes only
// through its PhotoFile (regular files only, every read on the budget).

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "engine/media/image_properties.h"
#include "engine/media/output_metadata.h"
#include "engine/media/photo_file.h"
#include "engine/media/raw_preview.h"

namespace lumivale::ExifMetadata {

/// Reads the embedded facts of a PNG, TIFF or HEIF file into `properties`
/// (every field but the header's). Returns the ICC profile exiv2 found in
/// the file, empty when none. A file exiv2 cannot read leaves the facts
/// unknown; `hasExif` is false when no EXIF came. Throws ReadBudgetExceeded.
struct FileFacts {
  bool hasExif = false;
  std::string iccProfile;
};
FileFacts readImageFile(PhotoFile& file, ImageProperties& properties);

/// Reads the facts of an EXIF block (a TIFF structure, as a JPEG's APP1
/// segment or a HEIF decoder holds it) and of Photoshop resource blocks (a
/// JPEG's APP13 segments, holding the IPTC record) into `properties`.
/// Damaged blocks leave their facts unknown. Returns whether EXIF was read.
bool readImageBlocks(std::string_view exif, std::string_view photoshop, ImageProperties& properties);

/// The JPEG thumbnail an EXIF block (a TIFF structure) keeps in its second
/// directory, as its bytes; empty when it holds none, one of another kind,
/// or the block is damaged.
std::string thumbnailJpeg(std::string_view exif);

/// A RAW container's own directory as exiv2 reads it.
struct RawDirectory {
  std::string make;  ///< as written, from the first directory that has it
  std::string model;
  std::string lens;
  /// The lens the maker's notes name, as exiv2 knows their codes; empty
  /// when unknown.
  std::string makerLens;
  std::string dateOriginal;  ///< the EXIF date text as stored
  int iso = 0;
  double exposure = 0;  ///< seconds
  double fNumber = 0;
  double focal = 0;     ///< millimetres
  int orientation = 0;  ///< EXIF orientation 1 to 8; 0 when not recorded
  double subjectDistance = 0;  ///< metres (at most 1000, for infinity); 0 when not recorded
  /// The picture size the file records, as stored (before orientation): a
  /// DNG's default crop, else the EXIF pixel dimensions; 0 when not recorded.
  int recordedWidth = 0;
  int recordedHeight = 0;
  std::vector<EmbeddedPreview> previews;  ///< unordered

  bool operator==(const RawDirectory&) const = default;
};

/// Reads a RAW container's directory. Nothing when exiv2 does not know the
/// file as a RAW container (a JPEG named .cr2 is none) or finds no EXIF in
/// it. Throws ReadBudgetExceeded.
std::optional<RawDirectory> readRawDirectory(PhotoFile& file);

/// What an export carries over from the file (see CarriedMetadata): empty
/// parts where exiv2 finds nothing or cannot read the file. Throws
/// ReadBudgetExceeded.
CarriedMetadata readCarried(PhotoFile& file);

}  // namespace lumivale::ExifMetadata
