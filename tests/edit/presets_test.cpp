#include "engine/edit/presets.h"

#include <gtest/gtest.h>

#include <set>

using namespace lumivale;

namespace {

const BuiltInPreset& lookNamed(const std::string& name) {
  for (const BuiltInPreset& p : BuiltInPresets::all()) {
    if (p.name == name) return p;
  }
  throw std::runtime_error("no look " + name);
}

TEST(BuiltInPresetsTest, EighteenLooksInPanelOrder) {
  const std::pair<const char*, const char*> expected[] = {
      {"Natural Boost", "Color"},
      {"Grand Mesa Pop", "Color"},
      {"Bookcliff Sunset", "Color"},
      {"Colorado Blue Hour", "Color"},
      {"Palisade Peach", "Portrait"},
      {"Soft Skin Glow", "Portrait"},
      {"Teal Canyon", "Cinematic"},
      {"Monument Matte", "Film"},
      {"Faded Postcard", "Film"},
      {"Night Lights", "Night"},
      {"High Country Clarity", "Landscape"},
      {"High Key", "Light"},
      {"Low Key Drama", "Light"},
      {"Silver Gelatin B&W", "Black & White"},
      {"Soft Gray B&W", "Black & White"},
      {"Selenium Mesa", "Black & White"},
      {"Desert Gold", "Color"},
      {"Clean Product", "Studio"},
  };
  const auto& all = BuiltInPresets::all();
  ASSERT_EQ(all.size(), std::size(expected));
  for (std::size_t i = 0; i < all.size(); ++i) {
    EXPECT_EQ(all[i].name, expected[i].first);
    EXPECT_EQ(all[i].category, expected[i].second);
    EXPECT_FALSE(all[i].note.empty());
  }
  EXPECT_EQ(all.front().note, "A gentle all-round lift: a little contrast, vibrance and shadow detail.");
  EXPECT_EQ(&BuiltInPresets::all(), &all);
}

TEST(BuiltInPresetsTest, LooksAreDistinctAndNeverTouchLocalGroups) {
  const auto& all = BuiltInPresets::all();
  std::set<std::string> names;
  for (std::size_t i = 0; i < all.size(); ++i) {
    const BuiltInPreset& look = all[i];
    SCOPED_TRACE(look.name);
    names.insert(look.name);
    EXPECT_FALSE(look.settings.isDefault());
    EXPECT_EQ(look.settings.version, 1);
    const auto groups = look.groups();
    EXPECT_FALSE(groups.empty());
    EXPECT_FALSE(groups.count(SettingsGroup::geometry));
    EXPECT_FALSE(groups.count(SettingsGroup::masks));
    EXPECT_EQ(EditSettings::decode(look.settings.encoded()), look.settings);
    for (std::size_t j = i + 1; j < all.size(); ++j) EXPECT_NE(look.settings, all[j].settings) << all[j].name;
    // A wheel given a hue is given a saturation too, or the hue would do nothing.
    for (const GradeWheel* w :
         {&look.settings.gradeShadows, &look.settings.gradeMidtones, &look.settings.gradeHighlights}) {
      if (w->hue != 0) {
        EXPECT_GT(w->saturation, 0);
      }
    }
  }
  EXPECT_EQ(names.size(), all.size());
}

TEST(BuiltInPresetsTest, LooksCarryTheirListedValues) {
  const EditSettings& pop = lookNamed("Grand Mesa Pop").settings;
  EXPECT_EQ(pop.hsl[static_cast<std::size_t>(ColorBand::blue)], (HSLBand{-5, 20, -18}));
  EXPECT_EQ(pop.sharpenAmount, 35);
  const EditSettings& matte = lookNamed("Monument Matte").settings;
  EXPECT_EQ(matte.curveRGB.points,
            (std::vector<CurvePoint>{{0, 0.09}, {0.25, 0.26}, {0.75, 0.76}, {1, 0.93}}));
  EXPECT_EQ(matte.gradeShadows.hue, 210);
  const EditSettings& teal = lookNamed("Teal Canyon").settings;
  EXPECT_EQ(teal.gradeShadows.hue, 190);
  EXPECT_EQ(teal.gradeShadows.saturation, 35);
  EXPECT_EQ(teal.gradeShadows.luminance, -4);
  EXPECT_EQ(lookNamed("High Country Clarity").settings.sharpenRadius, 1.2);
  EXPECT_EQ(lookNamed("Soft Skin Glow").settings.exposure, 0.15);
  EXPECT_EQ(lookNamed("Night Lights").settings.sourceKey(), "35.0|40.0|true");
  EXPECT_TRUE(lookNamed("Selenium Mesa").settings.blackAndWhite);
  // The four looks whose notes call for colour-mixer work have it.
  for (const char* name : {"Bookcliff Sunset", "Soft Skin Glow", "Teal Canyon", "Desert Gold"}) {
    EXPECT_TRUE(lookNamed(name).groups().count(SettingsGroup::colorMixer)) << name;
  }
}

TEST(ApplyPresetTest, ALookResetsTheOldLookAndKeepsTheCrop) {
  EditSettings photo;
  photo.exposure = 1.0;
  photo.crop = {0.1, 0.1, 0.5, 0.5};
  photo.rotateQuarterTurns = 1;
  photo.masks.push_back(PhotoMask(MaskKind::brush));
  const BuiltInPreset& boost = lookNamed("Natural Boost");
  const EditSettings result = applyPreset(photo, boost.settings, boost.groups());
  EXPECT_EQ(result.exposure, 0);
  EXPECT_EQ(result.contrast, 12);
  EXPECT_EQ(result.highlights, -10);
  EXPECT_EQ(result.shadows, 15);
  EXPECT_EQ(result.vibrance, 18);
  EXPECT_EQ(result.crop, photo.crop);
  EXPECT_EQ(result.rotateQuarterTurns, 1);
  EXPECT_EQ(result.masks, photo.masks);  // untouched, ids included
}

TEST(ApplyPresetTest, ALaterLookTurnsBlackAndWhiteOffAgain) {
  const BuiltInPreset& silver = lookNamed("Silver Gelatin B&W");
  const BuiltInPreset& boost = lookNamed("Natural Boost");
  const EditSettings mono = applyPreset(EditSettings{}, silver.settings, silver.groups());
  EXPECT_TRUE(mono.blackAndWhite);
  EXPECT_EQ(mono.grainAmount, 12);
  const EditSettings color = applyPreset(mono, boost.settings, boost.groups());
  EXPECT_FALSE(color.blackAndWhite);
  EXPECT_EQ(color.grainAmount, 0);
  EXPECT_EQ(color, boost.settings);
}

TEST(ApplyPresetTest, UserPresetsSetOnlyTheirGroups) {
  EditSettings saved;
  saved.temperature = 25;
  saved.tint = -5;
  saved.exposure = 2;  // saved settings, but not among the carried groups
  saved.crop = {0, 0, 0.5, 0.5};
  saved.rotateQuarterTurns = 2;
  const UserPreset warm{7, "Warm", saved, {SettingsGroup::whiteBalance}};

  EditSettings photo;
  photo.exposure = -1;
  photo.contrast = 40;
  photo.hsl[0] = {1, 2, 3};
  photo.crop = {0.2, 0.2, 0.6, 0.6};
  const EditSettings result = applyPreset(photo, warm.settings, warm.groups);
  EditSettings expected;
  expected.temperature = 25;
  expected.tint = -5;
  expected.crop = photo.crop;
  EXPECT_EQ(result, expected);

  // Carrying geometry applies the crop and rotation as well.
  const EditSettings framed =
      applyPreset(photo, saved, {SettingsGroup::whiteBalance, SettingsGroup::geometry});
  EXPECT_EQ(framed.crop, saved.crop);
  EXPECT_EQ(framed.rotateQuarterTurns, 2);
  EXPECT_EQ(framed.exposure, 0);
}

TEST(ApplyPresetTest, CarriedMasksArriveWithFreshIds) {
  EditSettings saved;
  saved.masks.push_back(PhotoMask(MaskKind::radial));
  const EditSettings result = applyPreset(EditSettings{}, saved, {SettingsGroup::masks});
  ASSERT_EQ(result.masks.size(), 1u);
  EXPECT_NE(result.masks[0].id, saved.masks[0].id);
  EXPECT_EQ(result.masks[0].kind, MaskKind::radial);
  // Keeping the version of the photo, never the preset's.
  saved.version = 9;
  EXPECT_EQ(applyPreset(EditSettings{}, saved, allButLocal()).version, 1);
}

}  // namespace
