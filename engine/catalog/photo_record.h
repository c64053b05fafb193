#pragma once
// One photo of the catalog as read from the `photos` table.

#include <cstdint>
#include <optional>
#include <string>

namespace lumivale {

/// Catalog times are seconds since 1970-01-01 UTC.
struct PhotoRecord {
  std::int64_t id = 0;
  std::string path;
  std::string folder;
  std::string name;
  std::string ext;
  std::int64_t fileSize = 0;
  int width = 0;
  int height = 0;
  std::optional<double> captureDate;  ///< absent when the file gave none
  double importDate = 0;
  std::string camera;
  std::string lens;
  int iso = 0;
  double shutter = 0;      ///< exposure time in seconds
  double aperture = 0;     ///< f-number
  double focalLength = 0;  ///< millimetres
  int rating = 0;          ///< stars 0 to 5
  int flag = 0;            ///< 1 pick, 0 none, -1 reject
  std::string label;       ///< colour label key or empty
  bool isRaw = false;
  bool edited = false;
  std::optional<double> editDate;

  bool operator==(const PhotoRecord&) const = default;

  /// The exposure time as shown: "1/250 s", "2.0 s", or empty when unknown.
  std::string shutterText() const;

  /// "ISO 100  ·  1/125 s  ·  f/8.0  ·  35 mm", with only the parts known.
  std::string summary() const;
};

/// Formats an exposure time in seconds as the catalog shows it; empty for 0 or less.
std::string formatShutter(double seconds);

/// A focal length to the nearest millimetre, halves away from zero: "35 mm".
std::string formatMillimetres(double focalLength);

/// `value` with `decimals` digits after a point, "+" before a positive value
/// when `withSign`. Always a point, whatever the process locale (a GUI
/// toolkit may have chosen one that writes commas); empty for NaN or ±∞.
std::string formatFixed(double value, int decimals, bool withSign = false);

}  // namespace lumivale
