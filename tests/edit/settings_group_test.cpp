#include "engine/edit/settings_group.h"

#include <gtest/gtest.h>

#include <map>

#include "engine/edit/record_fields.h"
#include "tests/edit/sample_settings.h"

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

// Presets store groups by name, so which fields a group holds must not move.
TEST(SettingsGroupTest, EveryFieldButVersionIsInOneGroup) {
  std::map<SettingsGroup, std::string> members;
  std::string ungrouped, all;
  for (const auto& f : codec::fieldsOf<EditSettings>().fields)
    (f.group ? members[*f.group] : ungrouped) += " " + std::string(f.key);
  for (SettingsGroup g : allSettingsGroups()) all += std::string(rawValue(g)) + ":" + members[g] + "\n";
  EXPECT_EQ(ungrouped, " version");
  EXPECT_EQ(all,
            "whiteBalance: temperature tint\n"
            "light: blacks contrast exposure highlights shadows whites\n"
            "presence: saturation vibrance\n"
            "toneCurve: curveBlue curveGreen curveRGB curveRed\n"
            "colorMixer: hsl\n"
            "colorGrading: gradeBalance gradeBlending gradeHighlights gradeMidtones gradeShadows\n"
            "detail: noiseColor noiseLuminance sharpenAmount sharpenRadius\n"
            "lens: lensCorrection\n"
            "effects: grainAmount grainSize vignetteAmount vignetteFeather vignetteMidpoint\n"
            "treatment: blackAndWhite\n"
            "geometry: crop cropAspect flipHorizontal flipVertical rotateQuarterTurns straighten\n"
            "masks: masks\n");
}

// Merging moves a field with its group and with no other; the group then
// counts as changed.
TEST(SettingsGroupTest, EachFieldMovesWithItsGroupAndMarksItChanged) {
  const EditSettings rich = test::richSettings();
  const EditSettings& blank = EditSettings::blank();
  for (const auto& f : codec::fieldsOf<EditSettings>().fields) {
    SCOPED_TRACE(f.key);
    EditSettings one = blank;
    f.transfer(rich, one);
    EXPECT_NE(one, blank);
    EXPECT_EQ(one.changedGroups(), f.group ? std::set{*f.group} : std::set<SettingsGroup>{});
    for (SettingsGroup g : allSettingsGroups()) {
      EditSettings merged = blank.merging(one, {g});
      EXPECT_EQ(!f.equal(merged, blank), f.group == g) << rawValue(g);
      f.transfer(blank, merged);
      EXPECT_EQ(merged, blank) << rawValue(g);
    }
  }
}

TEST(SettingsGroupTest, MergingAllGroupsTakesEverythingButVersionAndMaskIds) {
  const EditSettings rich = test::richSettings();
  const EditSettings merged = EditSettings{}.merging(
      rich, std::set<SettingsGroup>(allSettingsGroups().begin(), allSettingsGroups().end()));
  ASSERT_EQ(merged.masks.size(), rich.masks.size());
  EditSettings expected = rich;
  expected.version = 1;
  for (std::size_t i = 0; i < merged.masks.size(); ++i) {
    EXPECT_NE(merged.masks[i].id, rich.masks[i].id);
    expected.masks[i].id = merged.masks[i].id;
  }
  EXPECT_EQ(merged, expected);
  EXPECT_EQ(rich.merging(EditSettings{}, {}), rich);
  // An empty mask list clears the masks.
  EXPECT_TRUE(rich.merging(EditSettings{}, {SettingsGroup::masks}).masks.empty());
}

}  // namespace
