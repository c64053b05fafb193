#pragma once
// The metadata written into an exported file, as plain values, and the
// writer that puts it into a file an encoder has just made.
//
// JPEG, TIFF and PNG get EXIF (IFD0, the EXIF and GPS directories) and an
// IPTC record, written by exiv2. HEIF has no IPTC: it gets EXIF and an XMP
// packet holding the IPTC facts (keywords as dc:subject, the copyright as
// dc:rights). Whatever metadata the encoder left in the file is replaced,
// so the file holds exactly what the record says and nothing of the photo
// it was made from unless the record carries it.

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace lumivale {

/// What an export carries over from the photo's own file.
struct CarriedMetadata {
  /// An EXIF block (a little-endian TIFF structure) with IFD0's descriptive
  /// entries (make, model, date, artist, copyright, description, host,
  /// resolution), the EXIF directory but for the pixel dimensions and the
  /// maker note, and the GPS directory; empty when the file has none.
  std::string exif;
  /// The IPTC record (IIM datasets) with its texts in UTF-8 and marked so;
  /// empty when the file has none.
  std::string iptc;

  bool operator==(const CarriedMetadata&) const = default;
};

/// What an exported file's metadata holds. Its orientation is always 1: the
/// pixels are upright.
struct OutputMetadata {
  CarriedMetadata carried;
  std::string software;  ///< TIFF Software; none when empty
  std::string
      copyright;  ///< TIFF Copyright and IPTC CopyrightNotice, replacing carried ones; none when empty
  std::vector<std::string> keywords;  ///< IPTC Keywords, replacing carried ones; the carried stay when empty

  bool operator==(const OutputMetadata&) const = default;
};

/// Reads what an export carries over from `photo` (any photo exiv2 reads:
/// JPEG, TIFF, PNG, HEIF and camera RAW files). Empty where the file has
/// nothing or cannot be read. Never throws.
CarriedMetadata readCarriedMetadata(const std::filesystem::path& photo);

/// `encoded` (a whole JPEG, TIFF, PNG or HEIF file, recognised by its first
/// bytes) with its metadata replaced by `metadata`. The pixels and the ICC
/// profile stay as the encoder wrote them; TIFF keeps its own structure
/// entries (size, samples, strips, resolution). Throws MediaError "cannot
/// write the metadata: <reason>" for a file of another kind or one exiv2
/// cannot rewrite.
std::string withOutputMetadata(std::string encoded, const OutputMetadata& metadata);

}  // namespace lumivale
