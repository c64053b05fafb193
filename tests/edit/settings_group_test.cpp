#include "engine/edit/settings_group.h"

#include <gtest/gtest.h>

using namespace lumivale;

namespace {

TEST(SettingsGroupTest, KeysAndTitlesInOrder) {
  const std::pair<const char*, const char*> expected[] = {
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
  };
  ASSERT_EQ(allSettingsGroups().size(), std::size(expected));
  for (std::size_t i = 0; i < std::size(expected); ++i) {
    const SettingsGroup g = allSettingsGroups()[i];
    EXPECT_EQ(rawValue(g), expected[i].first);
    EXPECT_EQ(title(g), expected[i].second);
    EXPECT_EQ(settingsGroupFromRawValue(expected[i].first), g);
  }
  EXPECT_EQ(settingsGroupFromRawValue("Light"), std::nullopt);
  EXPECT_EQ(settingsGroupFromRawValue(""), std::nullopt);
}

TEST(SettingsGroupTest, AllButLocalLeavesOutGeometryAndMasks) {
  const auto& groups = allButLocal();
  EXPECT_EQ(groups.size(), 10u);
  EXPECT_FALSE(groups.count(SettingsGroup::geometry));
  EXPECT_FALSE(groups.count(SettingsGroup::masks));
  EXPECT_EQ(&allButLocal(), &groups);
}

TEST(SettingsGroupTest, StoredTextIsSortedAndJoinedWithCommas) {
  using G = SettingsGroup;
  EXPECT_EQ(groupsText({G::light, G::detail, G::colorMixer}), "colorMixer,detail,light");
  EXPECT_EQ(groupsText({}), "");
  EXPECT_EQ(groupsText({G::masks}), "masks");
  EXPECT_EQ(groupsText(allButLocal()),
            "colorGrading,colorMixer,detail,effects,lens,light,presence,toneCurve,treatment,whiteBalance");
}

TEST(SettingsGroupTest, ReadingTextSkipsWhatItDoesNotKnow) {
  using G = SettingsGroup;
  const std::pair<std::optional<std::string_view>, std::set<G>> cases[] = {
      {"light,,bogus,light", {G::light}},
      {"", {}},
      {std::nullopt, {}},
      {",,,", {}},
      {"masks,geometry", {G::masks, G::geometry}},
      {"light, detail", {G::light}},
      {"Light,DETAIL", {}},
      {"whiteBalance,", {G::whiteBalance}},
  };
  for (const auto& [text, groups] : cases) EXPECT_EQ(groupsFromText(text), groups) << text.value_or("(none)");

  // Every set survives its stored text.
  for (unsigned bits = 0; bits < (1u << 12); bits += 37) {
    std::set<G> groups;
    for (std::size_t i = 0; i < 12; ++i) {
      if (bits & (1u << i)) groups.insert(allSettingsGroups()[i]);
    }
    EXPECT_EQ(groupsFromText(groupsText(groups)), groups) << bits;
  }
}

}  // namespace
