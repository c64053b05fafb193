#include "engine/edit/presets.h"

#include <gtest/gtest.h>

#include <set>

using namespace lumivale;

namespace {

const BuiltInPreset& lookNamed(const std::string& name) {
  for (const BuiltInPreset& p : BuiltInPresets::all())
    if (p.name == name) return p;
  throw std::runtime_error("no look " + name);
}

TEST(BuiltInPresetsTest, EighteenLooksInPanelOrder) {
  std::string looks;
  for (const BuiltInPreset& look : BuiltInPresets::all()) {
    looks += look.name + " (" + look.category + "), ";
    EXPECT_FALSE(look.note.empty()) << look.name;
  }
  EXPECT_EQ(
      looks,
      "Natural Boost (Color), Grand Mesa Pop (Color), Bookcliff Sunset (Color), Colorado Blue Hour (Color), "
      "Palisade Peach (Portrait), Soft Skin Glow (Portrait), Teal Canyon (Cinematic), Monument Matte (Film), "
      "Faded Postcard (Film), Night Lights (Night), High Country Clarity (Landscape), High Key (Light), "
      "Low Key Drama (Light), Silver Gelatin B&W (Black & White), Soft Gray B&W (Black & White), "
      "Selenium Mesa (Black & White), Desert Gold (Color), Clean Product (Studio), ");
  EXPECT_EQ(BuiltInPresets::all().front().note,
            "A gentle all-round lift: a little contrast, vibrance and shadow detail.");
}

TEST(BuiltInPresetsTest, LooksAreDistinctDoWhatTheySayAndNeverTouchLocalGroups) {
  const auto& all = BuiltInPresets::all();
  std::set<std::string> names;
  for (std::size_t i = 0; i < all.size(); ++i) {
    const BuiltInPreset& look = all[i];
    SCOPED_TRACE(look.name);
    names.insert(look.name);
    EXPECT_FALSE(look.settings.isDefault());
    EXPECT_EQ(look.settings.version, 1);
    const auto groups = look.groups();
    EXPECT_FALSE(groups.empty() || groups.count(SettingsGroup::geometry) ||
                 groups.count(SettingsGroup::masks));
    EXPECT_EQ(EditSettings::decode(look.settings.encoded()), look.settings);
    EXPECT_EQ(look.settings.blackAndWhite, look.category == "Black & White");
    for (std::size_t j = i + 1; j < all.size(); ++j) EXPECT_NE(look.settings, all[j].settings) << all[j].name;
    // A wheel given a hue is given a saturation too, or the hue would do nothing.
    for (const GradeWheel* w :
         {&look.settings.gradeShadows, &look.settings.gradeMidtones, &look.settings.gradeHighlights})
      EXPECT_TRUE(w->hue == 0 || w->saturation > 0);
  }
  EXPECT_EQ(names.size(), all.size());
  // The four looks whose notes call for colour-mixer work have it.
  for (const char* name : {"Bookcliff Sunset", "Soft Skin Glow", "Teal Canyon", "Desert Gold"})
    EXPECT_TRUE(lookNamed(name).groups().count(SettingsGroup::colorMixer)) << name;
}

TEST(ApplyPresetTest, ALookResetsTheOldLookAndKeepsTheCropAndMasks) {
  EditSettings photo{.exposure = 1.0, .rotateQuarterTurns = 1, .crop = {0.1, 0.1, 0.5, 0.5}};
  photo.masks.push_back(PhotoMask(MaskKind::brush));
  const BuiltInPreset& boost = lookNamed("Natural Boost");
  EditSettings expected = boost.settings;
  expected.crop = photo.crop, expected.rotateQuarterTurns = 1;
  expected.masks = photo.masks;  // untouched, ids included
  EXPECT_EQ(applyPreset(photo, boost.settings, boost.groups()), expected);

  // A later look turns black and white off again.
  const BuiltInPreset& silver = lookNamed("Silver Gelatin B&W");
  const EditSettings mono = applyPreset(EditSettings{}, silver.settings, silver.groups());
  EXPECT_EQ(mono, silver.settings);
  EXPECT_EQ(applyPreset(mono, boost.settings, boost.groups()), boost.settings);
}

TEST(ApplyPresetTest, UserPresetsSetOnlyTheirGroups) {
  // Exposure is saved, but not among the carried groups.
  const EditSettings saved{
      .temperature = 25, .tint = -5, .exposure = 2, .rotateQuarterTurns = 2, .crop = {0, 0, 0.5, 0.5}};
  EditSettings photo{.exposure = -1, .contrast = 40, .crop = {0.2, 0.2, 0.6, 0.6}};
  photo.hsl[0] = {1, 2, 3};
  EXPECT_EQ(applyPreset(photo, saved, {SettingsGroup::whiteBalance}),
            (EditSettings{.temperature = 25, .tint = -5, .crop = photo.crop}));
  // Carrying geometry applies the crop and rotation as well.
  const EditSettings framed =
      applyPreset(photo, saved, {SettingsGroup::whiteBalance, SettingsGroup::geometry});
  EXPECT_EQ(std::tuple(framed.crop, framed.rotateQuarterTurns, framed.exposure),
            std::tuple(saved.crop, 2, 0.0));
}

}  // namespace
