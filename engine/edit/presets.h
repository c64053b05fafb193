#pragma once
// Presets: the built-in looks and the rule by which any preset is applied.
//
// Applying a preset replaces the photo's look but keeps what belongs to the
// photo alone (crop, straighten, rotation, flips, masks) unless the preset
// carries those groups itself.

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "engine/edit/edit_settings.h"
#include "engine/edit/settings_group.h"

namespace lumivale {

/// A look shipped with the program.
struct BuiltInPreset {
  std::string name;       ///< unique display name
  std::string category;   ///< grouping in the presets panel
  std::string note;       ///< one-line help text
  EditSettings settings;  ///< a default record with some fields changed

  /// The groups the look carries when applied: those it changes.
  std::set<SettingsGroup> groups() const { return settings.changedGroups(); }

  bool operator==(const BuiltInPreset&) const = default;
};

/// A preset the user saved; stored in the catalog.
struct UserPreset {
  std::int64_t id = 0;  ///< catalog row id
  std::string name;
  EditSettings settings;
  std::set<SettingsGroup> groups;  ///< the groups it carries

  bool operator==(const UserPreset&) const = default;
};

namespace BuiltInPresets {

/// The eighteen looks in panel order; built once, thread-safe.
const std::vector<BuiltInPreset>& all();

}  // namespace BuiltInPresets

/// The one rule for applying a preset with settings `preset` carrying
/// `groups` to a photo whose settings are `photo`: every group of
/// `allButLocal()` goes back to its default, then the carried groups are
/// taken from the preset. Geometry and masks stay the photo's unless carried.
EditSettings applyPreset(const EditSettings& photo, const EditSettings& preset,
                         const std::set<SettingsGroup>& groups);

}  // namespace lumivale
