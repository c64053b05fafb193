#include "engine/edit/settings_group.h"

#include <algorithm>
#include <vector>

#include "engine/edit/edit_settings.h"
#include "engine/edit/uuid.h"

namespace lumivale {

namespace {

struct GroupInfo {
  std::string_view raw;
  std::string_view title;
};

// Indexed by the enumeration's value.
constexpr std::array<GroupInfo, 12> groupInfo{{
    {"whiteBalance", "White Balance"},
    {"light", "Light (Exposure \u2192 Blacks)"},
    {"presence", "Vibrance & Saturation"},
    {"toneCurve", "Tone Curve"},
    {"colorMixer", "Color Mixer (HSL)"},
    {"colorGrading", "Color Grading"},
    {"detail", "Sharpening & Noise Reduction"},
    {"lens", "Lens Corrections"},
    {"effects", "Vignette & Grain"},
    {"treatment", "Black & White"},
    {"geometry", "Crop, Straighten, Rotate & Flip"},
    {"masks", "Masks"},
}};

const GroupInfo& info(SettingsGroup group) { return groupInfo.at(static_cast<std::size_t>(group)); }

// Copies the fields of one group from `from` to `to`.
void copyGroup(SettingsGroup group, const EditSettings& from, EditSettings& to) {
  switch (group) {
    case SettingsGroup::whiteBalance:
      to.temperature = from.temperature;
      to.tint = from.tint;
      break;
    case SettingsGroup::light:
      to.exposure = from.exposure;
      to.contrast = from.contrast;
      to.highlights = from.highlights;
      to.shadows = from.shadows;
      to.whites = from.whites;
      to.blacks = from.blacks;
      break;
    case SettingsGroup::presence:
      to.vibrance = from.vibrance;
      to.saturation = from.saturation;
      break;
    case SettingsGroup::toneCurve:
      to.curveRGB = from.curveRGB;
      to.curveRed = from.curveRed;
      to.curveGreen = from.curveGreen;
      to.curveBlue = from.curveBlue;
      break;
    case SettingsGroup::colorMixer:
      to.hsl = from.hsl;
      break;
    case SettingsGroup::colorGrading:
      to.gradeShadows = from.gradeShadows;
      to.gradeMidtones = from.gradeMidtones;
      to.gradeHighlights = from.gradeHighlights;
      to.gradeBlending = from.gradeBlending;
      to.gradeBalance = from.gradeBalance;
      break;
    case SettingsGroup::detail:
      to.sharpenAmount = from.sharpenAmount;
      to.sharpenRadius = from.sharpenRadius;
      to.noiseLuminance = from.noiseLuminance;
      to.noiseColor = from.noiseColor;
      break;
    case SettingsGroup::lens:
      to.lensCorrection = from.lensCorrection;
      break;
    case SettingsGroup::effects:
      to.vignetteAmount = from.vignetteAmount;
      to.vignetteMidpoint = from.vignetteMidpoint;
      to.vignetteFeather = from.vignetteFeather;
      to.grainAmount = from.grainAmount;
      to.grainSize = from.grainSize;
      break;
    case SettingsGroup::treatment:
      to.blackAndWhite = from.blackAndWhite;
      break;
    case SettingsGroup::geometry:
      to.rotateQuarterTurns = from.rotateQuarterTurns;
      to.flipHorizontal = from.flipHorizontal;
      to.flipVertical = from.flipVertical;
      to.straighten = from.straighten;
      to.crop = from.crop;
      to.cropAspect = from.cropAspect;
      break;
    case SettingsGroup::masks:
      // Masks pasted onto another photo must never share ids with their
      // source: every copy gets a fresh one.
      to.masks = from.masks;
      for (PhotoMask& mask : to.masks) mask.id = newUUID();
      break;
  }
}

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
  for (SettingsGroup group : groups) copyGroup(group, other, result);
  return result;
}

std::set<SettingsGroup> EditSettings::changedGroups() const {
  const EditSettings& defaults = blank();
  std::set<SettingsGroup> changed;
  for (SettingsGroup group : allSettingsGroups()) {
    EditSettings merged = defaults;
    copyGroup(group, *this, merged);
    if (merged != defaults) changed.insert(group);
  }
  return changed;
}

}  // namespace lumivale
