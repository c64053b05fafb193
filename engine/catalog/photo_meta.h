#pragma once
// Header metadata of one photo file, read for import (`PhotoMeta::read`) and
// for the info panel (`PhotoMeta::details`).
//
// RAW files are described by their own container directory (RawPreview);
// when that cannot be read, or names no camera model, the file is read like
// any other image (ImageProperties). Reads never throw and never write.

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace lumivale {

struct RawInfo;
struct ImageProperties;

/// One row of the info panel.
struct DetailRow {
  std::string label;
  std::string value;
  bool operator==(const DetailRow&) const = default;
};

struct PhotoMeta {
  int width = 0;  ///< pixels as displayed (after orientation)
  int height = 0;
  std::int64_t fileSize = 0;  ///< bytes; 0 when unknown
  std::optional<double> capture;  ///< seconds since 1970-01-01 UTC
  std::string camera;  ///< make and model by `cameraName`
  std::string lens;
  int iso = 0;
  double shutter = 0;  ///< seconds
  double aperture = 0;  ///< f-number
  double focal = 0;  ///< millimetres
  std::vector<std::string> keywords;  ///< trimmed, none empty

  bool operator==(const PhotoMeta&) const = default;

  /// The header metadata of the file, or nothing when its header cannot be
  /// read. Thread-safe.
  static std::optional<PhotoMeta> read(const std::filesystem::path& file);

  /// The info panel's rows, in order, each with a non-empty value; empty when
  /// the file cannot be read. Thread-safe.
  static std::vector<DetailRow> details(const std::filesystem::path& file);
};

/// An EXIF date text "yyyy:MM:dd HH:mm:ss" read in this computer's time zone,
/// as seconds since 1970-01-01 UTC; nothing when the text is not such a date
/// ("0000:00:00 00:00:00", a 31st of April, stray characters).
std::optional<double> exifDate(std::string_view text);

/// The camera name shown for a make and model: the model alone when it
/// already begins with the make's first word (case-insensitive, so "Canon" +
/// "Canon EOS R5" is not doubled), else "make model" (so a make without a
/// model ends in a blank); the model alone when there is no make.
std::string cameraName(std::string_view make, std::string_view model);

/// The meta of a RAW file from its container directory (no file size).
PhotoMeta photoMetaFrom(const RawInfo& info);
/// The meta of an image file from its header properties (no file size).
PhotoMeta photoMetaFrom(const ImageProperties& properties);

/// The info panel rows of a RAW file; `extension` as in its file name.
std::vector<DetailRow> detailRowsFrom(const RawInfo& info, const std::string& extension);
/// The info panel rows of an image file.
std::vector<DetailRow> detailRowsFrom(const ImageProperties& properties);

/// A number in its shortest decimal form without exponent ("8", "0.5",
/// "28.4"); empty for a NaN or an infinity.
std::string plainNumber(double value);

}  // namespace lumivale
