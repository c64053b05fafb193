#pragma once
// The options of an export: file format and quality, output size, colour
// space, output sharpening, the text watermark, the metadata policy and how
// the written files are named. A plain value with a stable stored form, kept
// in the per-user defaults under `ExportOptions::key`.
//
// Every enumeration below has a stored key (its case name) and a title the
// export sheet lists; `allCases<E>()` gives the cases in that order.

#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "engine/media/color_space.h"
#include "engine/media/image_header.h"

namespace lumivale {

class UserDefaults;

enum class ExportFormat { jpeg, heic, tiff, png };
enum class ExportColorSpace { sRGB, displayP3, adobeRGB };
enum class SizeMode { original, longEdge, shortEdge, width, height, percent };
enum class OutputSharpening { none, screen, matte, glossy };
enum class SharpenLevel { low, standard, high };
/// A three-by-three grid, read row by row from the top left.
enum class WatermarkPosition { topLeft, top, topRight, left, center, right, bottomLeft, bottom, bottomRight };
enum class MetadataPolicy { all, copyrightOnly, none };
enum class NamingMode { original, originalSuffix, custom };

/// Every case of one of the enumerations above, in the order the sheet lists
/// them (declaration order).
template <class E>
std::span<const E> allCases();

/// The stored key, the case name: "jpeg", "displayP3", "bottomRight".
std::string_view key(ExportFormat value);
std::string_view key(ExportColorSpace value);
std::string_view key(SizeMode value);
std::string_view key(OutputSharpening value);
std::string_view key(SharpenLevel value);
std::string_view key(WatermarkPosition value);
std::string_view key(MetadataPolicy value);
std::string_view key(NamingMode value);

/// The title the export sheet shows: "JPEG", "Long edge", "For matte paper".
std::string_view title(ExportFormat value);
std::string_view title(ExportColorSpace value);
std::string_view title(SizeMode value);
std::string_view title(OutputSharpening value);
std::string_view title(SharpenLevel value);
std::string_view title(WatermarkPosition value);
std::string_view title(MetadataPolicy value);
std::string_view title(NamingMode value);

/// The case stored under `key` (compared exactly), or nothing.
template <class E>
std::optional<E> caseFromKey(std::string_view key);

/// The file extension without its dot: "jpg", "heic", "tif", "png".
std::string_view ext(ExportFormat format);
/// The format's uniform type, its MIME type here ("image/jpeg"), which
/// chooses the encoder.
std::string_view uti(ExportFormat format);
/// JPEG and HEIC take a compression quality; TIFF and PNG are lossless.
bool lossy(ExportFormat format);
/// The encoder's format for an export format.
ImageFormat imageFormat(ExportFormat format);

/// The colour space the encoder is given.
ColorSpace space(ExportColorSpace colorSpace);

struct ExportOptions {
  /// The per-user defaults key of the stored options.
  static constexpr std::string_view key = "kuvo.ph.exportOptions";

  ExportFormat format = ExportFormat::jpeg;
  double quality = 0.9;    ///< 0 … 1, for lossy formats
  bool tiff16Bit = false;  ///< TIFF with 16 bits per channel instead of 8
  SizeMode sizeMode = SizeMode::original;
  double sizeValue = 2048;  ///< pixels for edges, width and height; per cent for `percent`
  bool dontEnlarge = true;  ///< never larger than the developed image
  ExportColorSpace colorSpace = ExportColorSpace::sRGB;
  OutputSharpening sharpening = OutputSharpening::none;
  SharpenLevel sharpenLevel = SharpenLevel::standard;
  bool watermarkOn = false;
  std::string watermarkText = "© Your Name";
  double watermarkSize = 4.0;     ///< text size, per cent of the image's shorter side
  double watermarkOpacity = 0.6;  ///< 0 … 1
  WatermarkPosition watermarkPosition = WatermarkPosition::bottomRight;
  bool watermarkDark = false;  ///< dark text instead of light
  MetadataPolicy metadata = MetadataPolicy::all;
  std::string copyright;  ///< written with the metadata; empty writes none
  NamingMode naming = NamingMode::original;
  std::string suffix = "-edit";      ///< for `originalSuffix`
  std::string customName = "Photo";  ///< for `custom`
  std::string folderPath;            ///< last chosen output folder; empty when none yet

  bool operator==(const ExportOptions&) const = default;

  /// The stored form: one JSON object with every field under its name, in
  /// declaration order; enumerations by their keys. Nothing when a number
  /// is not finite (JSON has no form for it).
  std::optional<std::string> encode() const;
  /// Reads the stored form, all or nothing: every field must be there with
  /// a value of its type (an enumeration by a known key); other keys are
  /// ignored. Nothing otherwise.
  static std::optional<ExportOptions> decode(std::string_view json);

  /// The options stored in `defaults` (the user's store when not given),
  /// or the defaults of this record when nothing is stored or what is
  /// stored does not decode. Never throws.
  static ExportOptions load();
  static ExportOptions load(const UserDefaults& defaults);
  /// Stores these options. False, leaving the stored value as it was, when
  /// they cannot be encoded; throws MediaError when the store cannot be
  /// written.
  bool save() const;
  bool save(const UserDefaults& defaults) const;
};

}  // namespace lumivale
