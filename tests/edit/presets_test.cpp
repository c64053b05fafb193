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

TEST(BuiltInPresetsTest, LooksDoWhatTheirCategoryAndNoteSay) {
  for (const BuiltInPreset& look : BuiltInPresets::all()) {
    EXPECT_EQ(look.settings.blackAndWhite, look.category == "Black & White") << look.name;
  }
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
  EditSettings expected = boost.settings;
  expected.crop = photo.crop;
  expected.rotateQuarterTurns = 1;
  expected.masks = photo.masks;  // untouched, ids included
  EXPECT_EQ(applyPreset(photo, boost.settings, boost.groups()), expected);
}

TEST(ApplyPresetTest, ALaterLookTurnsBlackAndWhiteOffAgain) {
  const BuiltInPreset& silver = lookNamed("Silver Gelatin B&W");
  const BuiltInPreset& boost = lookNamed("Natural Boost");
  const EditSettings mono = applyPreset(EditSettings{}, silver.settings, silver.groups());
  EXPECT_EQ(mono, silver.settings);
  EXPECT_EQ(applyPreset(mono, boost.settings, boost.groups()), boost.settings);
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
