#pragma once
// The header properties of a non-RAW photo file (JPEG, HEIC, TIFF, PNG): what
// its container states about the pixels (size as stored, orientation, colour
// profile, bit depth) and the EXIF, TIFF, GPS and IPTC facts embedded in it.
//
// Every embedded fact is optional: absent means the file does not carry it,
// or carries it in a form we cannot take as that kind of value (a text where a
// number belongs). Pixels are never decoded, and no decoder is opened but
// the HEIF one, for a HEIF file whose EXIF item exiv2 cannot locate.

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace lumivale {

struct ImageProperties {
  // From the container's header.
  int pixelWidth = 0;  ///< as stored, before orientation
  int pixelHeight = 0;
  /// EXIF orientation 1 to 8: the EXIF tag, or for HEIF the image's own
  /// rotation and mirroring (which decoders apply).
  int orientation = 1;
  std::optional<int> depth;  ///< bits per sample as coded in the file
  std::string profileName;  ///< description of the embedded ICC profile, or empty

  // TIFF (IFD0) facts.
  std::optional<std::string> make, model, dateTime, copyright, artist, software;
  // EXIF facts.
  std::optional<std::string> lensModel, dateTimeOriginal;
  std::optional<double> exposureTime, fNumber, focalLength, focalLength35, exposureBias;
  std::optional<long> iso;  ///< the first ISO speed rating
  std::optional<long> flash, whiteBalance, meteringMode;
  // GPS facts: absolute decimal degrees, the hemisphere is in the reference letter.
  std::optional<double> latitude, longitude;
  std::optional<std::string> latitudeRef, longitudeRef;
  // IPTC keywords, as stored (not trimmed).
  std::vector<std::string> keywords;

  bool operator==(const ImageProperties&) const = default;
};

/// Reads the header of an image file. Nothing when the file is missing, not
/// a regular file, none of JPEG, PNG, TIFF or HEIF by its content (whatever
/// its name), or its header is damaged. Never throws; thread-safe.
std::optional<ImageProperties> readImageProperties(const std::filesystem::path& file);

/// The description ('desc' tag) of an ICC profile, from either a version 2
/// text description or a version 4 multi-localised text (English preferred).
/// Empty when the bytes are not a readable profile or carry no description.
std::string iccProfileDescription(const unsigned char* data, std::size_t size);

}  // namespace lumivale
