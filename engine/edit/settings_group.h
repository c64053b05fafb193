#pragma once
// The twelve groups of develop settings: the unit of every partial transfer
// between records (copy and paste, sync, presets). `version` is in no group
// and is never transferred.

#include <array>
#include <optional>
#include <set>
#include <string>
#include <string_view>

namespace lumivale {

/// Cases in the order every list shows them; the stored key (`rawValue`) is
/// the case name.
enum class SettingsGroup {
  whiteBalance,  ///< temperature, tint
  light,         ///< exposure, contrast, highlights, shadows, whites, blacks
  presence,      ///< vibrance, saturation
  toneCurve,     ///< the four curves
  colorMixer,    ///< hsl
  colorGrading,  ///< the three wheels, blending, balance
  detail,        ///< sharpening and noise reduction
  lens,          ///< lens correction
  effects,       ///< vignette and grain
  treatment,     ///< black and white
  geometry,      ///< quarter turns, flips, straighten, crop, crop aspect
  masks,         ///< local adjustments
};

/// Every group, in order.
const std::array<SettingsGroup, 12>& allSettingsGroups();
/// The stored key, e.g. "whiteBalance".
std::string_view rawValue(SettingsGroup group);
/// The group stored under `raw`, or nothing for an unknown text.
std::optional<SettingsGroup> settingsGroupFromRawValue(std::string_view raw);
/// The user-visible title, e.g. "Light (Exposure → Blacks)".
std::string_view title(SettingsGroup group);

/// Every group but `geometry` and `masks`, which belong to one photo: the
/// default choice for copy, paste, sync and presets. Made once.
const std::set<SettingsGroup>& allButLocal();

/// The stored text of a set of groups: keys in ascending byte order joined
/// by "," ("colorMixer,detail,light"); empty for the empty set.
std::string groupsText(const std::set<SettingsGroup>& groups);
/// Reads a stored text: pieces between commas, empty and unknown pieces
/// skipped, duplicates collapsed. Absent or empty text gives the empty set.
std::set<SettingsGroup> groupsFromText(std::optional<std::string_view> text);

}  // namespace lumivale
