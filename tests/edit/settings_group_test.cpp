#include "engine/edit/settings_group.h"

#include <gtest/gtest.h>

using namespace lumivale;

namespace {

// The keys are stored in presets and typed on the command line.
TEST(SettingsGroupTest, KeysInOrderParseBack) {
  std::string keys;
  for (SettingsGroup g : allSettingsGroups()) {
    keys += std::string(rawValue(g)) + " ";
    EXPECT_EQ(settingsGroupFromRawValue(rawValue(g)), g);
  }
  EXPECT_EQ(keys,
            "whiteBalance light presence toneCurve colorMixer colorGrading detail lens effects treatment "
            "geometry masks ");
  EXPECT_EQ(settingsGroupFromRawValue("Light"), std::nullopt);
  EXPECT_EQ(settingsGroupFromRawValue(""), std::nullopt);
}

TEST(SettingsGroupTest, StoredTextIsSortedJoinedWithCommasAndReadTolerantly) {
  using G = SettingsGroup;
  EXPECT_EQ(groupsText({G::light, G::detail, G::colorMixer}), "colorMixer,detail,light");
  EXPECT_EQ(groupsText({}), "");
  // Every group but geometry and masks.
  EXPECT_EQ(groupsText(allButLocal()),
            "colorGrading,colorMixer,detail,effects,lens,light,presence,toneCurve,treatment,whiteBalance");
  using C = std::pair<std::optional<std::string_view>, std::set<G>>;
  for (const auto& [text, groups] :
       {C{"light,,bogus,light", {G::light}}, C{"", {}}, C{std::nullopt, {}}, C{",,,", {}},
        C{"masks,geometry", {G::masks, G::geometry}}, C{"light, detail", {G::light}}, C{"Light,DETAIL", {}},
        C{"whiteBalance,", {G::whiteBalance}}})
    EXPECT_EQ(groupsFromText(text), groups) << text.value_or("(none)");
  // Every set survives its stored text.
  for (unsigned bits = 0; bits < (1u << 12); bits += 37) {
    std::set<G> groups;
    for (std::size_t i = 0; i < 12; ++i)
      if (bits & (1u << i)) groups.insert(allSettingsGroups()[i]);
    EXPECT_EQ(groupsFromText(groupsText(groups)), groups) << bits;
  }
}

}  // namespace
