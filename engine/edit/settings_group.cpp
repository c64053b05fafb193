#include "engine/edit/settings_group.h"

#include <algorithm>
#include <vector>

#include "engine/edit/edit_settings.h"
#include "engine/edit/uuid.h"

namespace lumivale {

namespace {

using E = EditSettings;

// Copies `fields` from one record to another.
template <auto... fields>
void copyFields(const EditSettings& from, EditSettings& to) {
  ((to.*fields = from.*fields), ...);
}

// Masks pasted onto another photo must never share ids with their source:
// every copy gets a fresh one.
void copyMasks(const EditSettings& from, EditSettings& to) {
  to.masks = from.masks;
  for (PhotoMask& mask : to.masks) mask.id = newUUID();
}

struct GroupInfo {
  std::string_view raw;
  std::string_view title;
  void (*copy)(const EditSettings& from, EditSettings& to);  ///< the group's fields
};

// Indexed by the enumeration's value. Merging and the changed groups both
// go through `copy`, so a field is in exactly the groups listed here.
constexpr std::array<GroupInfo, 12> groupInfo{{
    {"whiteBalance", "White Balance", copyFields<&E::temperature, &E::tint>},
    {"light", "Light (Exposure \u2192 Blacks)",
     copyFields<&E::exposure, &E::contrast, &E::highlights, &E::shadows, &E::whites, &E::blacks>},
    {"presence", "Vibrance & Saturation", copyFields<&E::vibrance, &E::saturation>},
    {"toneCurve", "Tone Curve", copyFields<&E::curveRGB, &E::curveRed, &E::curveGreen, &E::curveBlue>},
    {"colorMixer", "Color Mixer (HSL)", copyFields<&E::hsl>},
    {"colorGrading", "Color Grading",
     copyFields<&E::gradeShadows, &E::gradeMidtones, &E::gradeHighlights, &E::gradeBlending,
                &E::gradeBalance>},
    {"detail", "Sharpening & Noise Reduction",
     copyFields<&E::sharpenAmount, &E::sharpenRadius, &E::noiseLuminance, &E::noiseColor>},
    {"lens", "Lens Corrections", copyFields<&E::lensCorrection>},
    {"effects", "Vignette & Grain",
     copyFields<&E::vignetteAmount, &E::vignetteMidpoint, &E::vignetteFeather, &E::grainAmount,
                &E::grainSize>},
    {"treatment", "Black & White", copyFields<&E::blackAndWhite>},
    {"geometry", "Crop, Straighten, Rotate & Flip",
     copyFields<&E::rotateQuarterTurns, &E::flipHorizontal, &E::flipVertical, &E::straighten, &E::crop,
                &E::cropAspect>},
    {"masks", "Masks", copyMasks},
}};

const GroupInfo& info(SettingsGroup group) { return groupInfo.at(static_cast<std::size_t>(group)); }

}  // namespace

const std::array<SettingsGroup, 12>& allSettingsGroups() {
  static constexpr std::array<SettingsGroup, 12> all{
      SettingsGroup::whiteBalance, SettingsGroup::light,      SettingsGroup::presence,
      SettingsGroup::toneCurve,    SettingsGroup::colorMixer, SettingsGroup::colorGrading,
      SettingsGroup::detail,       SettingsGroup::lens,       SettingsGroup::effects,
      SettingsGroup::treatment,    SettingsGroup::geometry,   SettingsGroup::masks};
  return all;
}

std::string_view rawValue(SettingsGroup group) { return info(group).raw; }

std::string_view title(SettingsGroup group) { return info(group).title; }

std::optional<SettingsGroup> settingsGroupFromRawValue(std::string_view raw) {
  for (SettingsGroup group : allSettingsGroups()) {
    if (rawValue(group) == raw) return group;
  }
  return std::nullopt;
}

const std::set<SettingsGroup>& allButLocal() {
  static const std::set<SettingsGroup> groups = [] {
    std::set<SettingsGroup> all(allSettingsGroups().begin(), allSettingsGroups().end());
    all.erase(SettingsGroup::geometry);
    all.erase(SettingsGroup::masks);
    return all;
  }();
  return groups;
}

std::string groupsText(const std::set<SettingsGroup>& groups) {
  std::vector<std::string_view> keys;
  for (SettingsGroup group : groups) keys.push_back(rawValue(group));
  std::sort(keys.begin(), keys.end());
  std::string text;
  for (std::string_view key : keys) {
    if (!text.empty()) text += ',';
    text += key;
  }
  return text;
}

std::set<SettingsGroup> groupsFromText(std::optional<std::string_view> text) {
  std::set<SettingsGroup> groups;
  if (!text) return groups;
  std::string_view rest = *text;
  while (!rest.empty()) {
    const std::size_t comma = rest.find(',');
    const std::string_view piece = rest.substr(0, comma);
    if (auto group = settingsGroupFromRawValue(piece)) groups.insert(*group);
    if (comma == std::string_view::npos) break;
    rest.remove_prefix(comma + 1);
  }
  return groups;
}

EditSettings EditSettings::merging(const EditSettings& other, const std::set<SettingsGroup>& groups) const {
  EditSettings result = *this;
  for (SettingsGroup group : groups) info(group).copy(other, result);
  return result;
}

std::set<SettingsGroup> EditSettings::changedGroups() const {
  const EditSettings& defaults = blank();
  std::set<SettingsGroup> changed;
  for (SettingsGroup group : allSettingsGroups()) {
    EditSettings merged = defaults;
    info(group).copy(*this, merged);
    if (merged != defaults) changed.insert(group);
  }
  return changed;
}

}  // namespace lumivale
