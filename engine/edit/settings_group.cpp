#include "engine/edit/settings_group.h"

#include <algorithm>
#include <vector>

#include "engine/edit/record_fields.h"

namespace lumivale {

namespace {

struct GroupInfo {
  std::string_view raw;
  std::string_view title;
};

// Indexed by the enumeration's value. Which fields a group holds is said by
// the settings' field table.
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
  for (const auto& f : codec::fieldsOf<EditSettings>().fields) {
    if (f.group && groups.count(*f.group)) f.transfer(other, result);
  }
  return result;
}

std::set<SettingsGroup> EditSettings::changedGroups() const {
  std::set<SettingsGroup> changed;
  for (const auto& f : codec::fieldsOf<EditSettings>().fields) {
    if (f.group && !f.equal(*this, blank())) changed.insert(*f.group);
  }
  return changed;
}

}  // namespace lumivale
