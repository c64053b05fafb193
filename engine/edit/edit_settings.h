#pragma once
// The develop settings of one photo: a plain value record of 39 fields.
//
// Every edit produces a new record; the catalog stores it (current edit,
// history steps, snapshots, user presets) as one JSON blob, and the renderer
// turns it into an image. The default record means "no edit".
//
// Fields are declared in a fixed order that is also the order of equality
// and hashing. Slider values are kept as the user sees them (mostly
// −100 … 100, exposure in stops); the record never clamps or validates.
//
// The stored form is one JSON object with every field written, keys sorted
// byte-wise at every level and no whitespace, so equal records give equal
// bytes. Reading is tolerant key by key: a missing, null or mistyped key
// keeps its default, so a damaged blob loses only what is damaged.

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "engine/edit/geometry.h"
#include "engine/edit/photo_mask.h"
#include "engine/edit/settings_group.h"
#include "engine/edit/tone_curve.h"
#include "engine/edit/value_hash.h"

namespace lumivale {

/// The eight hue bands of the colour mixer, in the order of `EditSettings::hsl`.
enum class ColorBand { red, orange, yellow, green, aqua, blue, purple, magenta };

/// Every band, in order; `hsl[i]` belongs to `allColorBands()[i]`.
const std::array<ColorBand, 8>& allColorBands();

/// One colour-mixer band; all zero is neutral.
struct HSLBand {
  double hue = 0;
  double saturation = 0;
  double luminance = 0;
  bool operator==(const HSLBand&) const = default;
};

/// One colour-grading wheel: hue in degrees, saturation and luminance as
/// sliders; all zero is neutral.
struct GradeWheel {
  double hue = 0;
  double saturation = 0;
  double luminance = 0;
  bool operator==(const GradeWheel&) const = default;
};

struct EditSettings {
  std::int64_t version = 1;  ///< format version, kept as stored, never migrated
  // White balance: relative shifts, −100 … 100, not Kelvin.
  double temperature = 0;
  double tint = 0;
  // Light: exposure in stops (−5 … 5), the rest −100 … 100.
  double exposure = 0;
  double contrast = 0;
  double highlights = 0;
  double shadows = 0;
  double whites = 0;
  double blacks = 0;
  // Presence, −100 … 100.
  double vibrance = 0;
  double saturation = 0;
  bool blackAndWhite = false;
  ToneCurve curveRGB;  ///< master curve
  ToneCurve curveRed;
  ToneCurve curveGreen;
  ToneCurve curveBlue;
  /// One band per `ColorBand`; exactly 8 after decoding.
  std::vector<HSLBand> hsl = std::vector<HSLBand>(8);
  GradeWheel gradeShadows;
  GradeWheel gradeMidtones;
  GradeWheel gradeHighlights;
  double gradeBlending = 50;  ///< blend between the wheels' tonal ranges
  double gradeBalance = 0;    ///< shadow/highlight balance of the grading
  double sharpenAmount = 0;
  double sharpenRadius = 1.0;
  double noiseLuminance = 0;
  double noiseColor = 0;
  bool lensCorrection = true;  ///< automatic lens correction, on by default
  double vignetteAmount = 0;   ///< post-crop vignette
  double vignetteMidpoint = 50;
  double vignetteFeather = 50;
  double grainAmount = 0;
  double grainSize = 25;
  std::int64_t rotateQuarterTurns = 0;  ///< 90° clockwise turns; any integer, used modulo 4
  bool flipHorizontal = false;
  bool flipVertical = false;
  double straighten = 0;                ///< degrees; geometry clamps it to −45 … 45
  CropRect crop;                        ///< normalised to the oriented frame; default: the full frame
  std::string cropAspect = "Original";  ///< title of the chosen crop aspect
  std::vector<PhotoMask> masks;         ///< local adjustments, applied in order

  /// The shared default record, made once on first use; thread-safe.
  static const EditSettings& blank();

  /// True exactly when the record equals the default one (`version` included).
  bool isDefault() const;

  /// Identifies the settings that change the decoded source image:
  /// "noiseLuminance|noiseColor|lensCorrection", numbers in shortest
  /// round-trip form with at least one fractional digit, e.g. "0.0|0.0|true",
  /// "12.5|0.0|false". Zero is written "0.0" whatever its sign.
  std::string sourceKey() const;

  /// The stored JSON form; nothing when a double is NaN or infinite (there is
  /// no JSON form for it), in which case there is nothing to store.
  std::optional<std::string> encoded() const;

  /// Reads a stored form. Never fails: absent data, data that is not a JSON
  /// object, or malformed JSON anywhere gives the default record; a key that
  /// is missing, null or of the wrong type keeps its default. Nested records
  /// are strict (a curve point without "y" drops its whole curve), one bad
  /// element drops its whole array, `hsl` is padded or cut to 8 bands.
  static EditSettings decode(std::optional<std::string_view> data);
  static EditSettings decode(const std::vector<std::uint8_t>& data);

  /// This record with the fields of `groups` taken from `other`. Masks taken
  /// over get fresh ids, so they never share an id with their source;
  /// `version` always stays this record's.
  EditSettings merging(const EditSettings& other, const std::set<SettingsGroup>& groups) const;

  /// The groups in which any field differs from the default; `masks` counts
  /// as changed as soon as there is one mask.
  std::set<SettingsGroup> changedGroups() const;

  /// A hash that agrees with `==` (−0 hashes like +0).
  std::size_t hash() const;

  bool operator==(const EditSettings&) const = default;
};

void hashInto(Hasher& h, const HSLBand& b);
void hashInto(Hasher& h, const GradeWheel& w);
void hashInto(Hasher& h, const EditSettings& s);

}  // namespace lumivale

template <>
struct std::hash<lumivale::EditSettings> {
  std::size_t operator()(const lumivale::EditSettings& s) const noexcept { return s.hash(); }
};
