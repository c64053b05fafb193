#include "engine/edit/edit_settings.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <nlohmann/json.hpp>
#include <unordered_map>

#include "tests/edit/sample_settings.h"

using namespace lumivale;
using nlohmann::json;

namespace {

const double nan = std::numeric_limits<double>::quiet_NaN();

std::string encode(const EditSettings& s) {
  auto blob = s.encoded();
  EXPECT_TRUE(blob.has_value());
  return blob.value_or("");
}

// The default record's stored form, derived by hand from the format: keys in
// byte order (upper case before lower case), whole numbers without fraction.
std::string defaultBlob() {
  const std::string curve = R"({"points":[{"x":0,"y":0},{"x":1,"y":1}]})";
  const std::string wheel = R"({"hue":0,"luminance":0,"saturation":0})";
  std::string hsl = "[";
  for (int i = 0; i < 8; ++i) hsl += (i ? "," : "") + wheel;
  hsl += "]";
  return R"({"blackAndWhite":false,"blacks":0,"contrast":0,"crop":{"h":1,"w":1,"x":0,"y":0},)"
         R"("cropAspect":"Original","curveBlue":)" +
         curve + R"(,"curveGreen":)" + curve + R"(,"curveRGB":)" + curve + R"(,"curveRed":)" + curve +
         R"(,"exposure":0,"flipHorizontal":false,"flipVertical":false,"gradeBalance":0,)"
         R"("gradeBlending":50,"gradeHighlights":)" +
         wheel + R"(,"gradeMidtones":)" + wheel + R"(,"gradeShadows":)" + wheel +
         R"(,"grainAmount":0,"grainSize":25,"highlights":0,"hsl":)" + hsl +
         R"(,"lensCorrection":true,"masks":[],"noiseColor":0,"noiseLuminance":0,"rotateQuarterTurns":0,)"
         R"("saturation":0,"shadows":0,"sharpenAmount":0,"sharpenRadius":1,"straighten":0,"temperature":0,)"
         R"("tint":0,"version":1,"vibrance":0,"vignetteAmount":0,"vignetteFeather":50,"vignetteMidpoint":50,)"
         R"("whites":0})";
}

TEST(EditSettingsTest, DefaultRecordHasItsExactStoredForm) {
  EXPECT_EQ(encode(EditSettings{}), defaultBlob());
  EXPECT_EQ(EditSettings::blank(), EditSettings{});
  EXPECT_TRUE(EditSettings{}.isDefault());
  EXPECT_EQ(EditSettings{}.hsl.size(), 8u);
}

TEST(EditSettingsTest, RoundTripIsExactAndBytesAreStable) {
  const EditSettings rich = test::richSettings();
  const std::string blob = encode(rich);
  const EditSettings back = EditSettings::decode(blob);
  EXPECT_EQ(back, rich);
  EXPECT_EQ(back.hash(), rich.hash());
  EXPECT_EQ(encode(back), blob);
  EXPECT_EQ(encode(rich), blob);
  // A copy made field by field by the decoder of a byte vector agrees too.
  EXPECT_EQ(EditSettings::decode(std::vector<std::uint8_t>(blob.begin(), blob.end())), rich);
  EXPECT_EQ(EditSettings::decode(EditSettings{}.encoded()), EditSettings{});
}

// Parsed and written again by an independent library, whose objects keep
// their keys in byte order and which writes no whitespace and the shortest
// numbers: the same bytes, so keys are sorted at every level.
TEST(EditSettingsTest, StoredFormIsCanonicalJson) {
  const std::string blob = encode(test::richSettings());
  EXPECT_EQ(json::parse(blob).dump(), blob);
}

TEST(EditSettingsTest, StoredFormHasTheDocumentedTypes) {
  const EditSettings rich = test::richSettings();
  const json j = json::parse(encode(rich));
  EXPECT_EQ(j.size(), 39u);
  EXPECT_EQ(j["masks"].size(), 5u);
  EXPECT_EQ(j["masks"][0]["kind"], "brush");
  EXPECT_EQ(j["masks"][0]["name"], rich.masks[0].name);
  // Only smart masks carry a bitmap, and an absent one has no key at all.
  EXPECT_FALSE(j["masks"][0].contains("maskPNG"));
  EXPECT_EQ(j["masks"][0].size(), 16u);
  ASSERT_TRUE(j["masks"][3].contains("maskPNG"));
  EXPECT_EQ(j["masks"][3]["maskPNG"].get<std::string>().substr(0, 12),
            "AwoRGB8mLTQ7");  // bytes 3, 10, 17 ...
  EXPECT_EQ(j["masks"][3]["dabs"][0].size(), 6u);
  EXPECT_EQ(j["masks"][3]["adjust"].size(), 8u);
}

TEST(EditSettingsTest, NonFiniteValuesGiveNoBlob) {
  const std::vector<std::function<void(EditSettings&)>> spoil{
      [](EditSettings& s) { s.exposure = nan; },
      [](EditSettings& s) { s.grainSize = std::numeric_limits<double>::infinity(); },
      [](EditSettings& s) { s.curveBlue.points[1].y = -std::numeric_limits<double>::infinity(); },
      [](EditSettings& s) { s.hsl[7].luminance = nan; },
      [](EditSettings& s) { s.crop.w = nan; },
      [](EditSettings& s) { s.masks[2].adjust.sharpness = nan; },
      [](EditSettings& s) { s.masks[0].dabs[1].flow = nan; },
  };
  for (std::size_t i = 0; i < spoil.size(); ++i) {
    EditSettings s = test::richSettings();
    spoil[i](s);
    EXPECT_EQ(s.encoded(), std::nullopt) << i;
  }
}

// One row per field: its key, its group (none for `version`) and a copy of
// that field alone.
struct FieldCase {
  std::string key;
  std::optional<SettingsGroup> group;
  std::function<void(const EditSettings&, EditSettings&)> copy;
};

#define FIELD(name, group)                                                                \
  FieldCase {                                                                             \
#name, group, [](const EditSettings& from, EditSettings& to) { to.name = from.name; } \
  }

std::vector<FieldCase> fieldCases() {
  using G = SettingsGroup;
  return {
      FIELD(version, std::nullopt),
      FIELD(temperature, G::whiteBalance),
      FIELD(tint, G::whiteBalance),
      FIELD(exposure, G::light),
      FIELD(contrast, G::light),
      FIELD(highlights, G::light),
      FIELD(shadows, G::light),
      FIELD(whites, G::light),
      FIELD(blacks, G::light),
      FIELD(vibrance, G::presence),
      FIELD(saturation, G::presence),
      FIELD(blackAndWhite, G::treatment),
      FIELD(curveRGB, G::toneCurve),
      FIELD(curveRed, G::toneCurve),
      FIELD(curveGreen, G::toneCurve),
      FIELD(curveBlue, G::toneCurve),
      FIELD(hsl, G::colorMixer),
      FIELD(gradeShadows, G::colorGrading),
      FIELD(gradeMidtones, G::colorGrading),
      FIELD(gradeHighlights, G::colorGrading),
      FIELD(gradeBlending, G::colorGrading),
      FIELD(gradeBalance, G::colorGrading),
      FIELD(sharpenAmount, G::detail),
      FIELD(sharpenRadius, G::detail),
      FIELD(noiseLuminance, G::detail),
      FIELD(noiseColor, G::detail),
      FIELD(lensCorrection, G::lens),
      FIELD(vignetteAmount, G::effects),
      FIELD(vignetteMidpoint, G::effects),
      FIELD(vignetteFeather, G::effects),
      FIELD(grainAmount, G::effects),
      FIELD(grainSize, G::effects),
      FIELD(rotateQuarterTurns, G::geometry),
      FIELD(flipHorizontal, G::geometry),
      FIELD(flipVertical, G::geometry),
      FIELD(straighten, G::geometry),
      FIELD(crop, G::geometry),
      FIELD(cropAspect, G::geometry),
      FIELD(masks, G::masks),
  };
}

#undef FIELD

TEST(EditSettingsFieldTest, EveryFieldCountsForEqualityHashGroupsAndStorage) {
  const auto cases = fieldCases();
  ASSERT_EQ(cases.size(), 39u);
  const EditSettings rich = test::richSettings();
  const EditSettings& blank = EditSettings::blank();
  for (const FieldCase& c : cases) {
    SCOPED_TRACE(c.key);
    EditSettings one;
    c.copy(rich, one);
    EXPECT_NE(one, blank);
    EXPECT_FALSE(one.isDefault());
    EXPECT_NE(one.hash(), blank.hash());
    EXPECT_EQ(EditSettings::decode(one.encoded()), one);
    const auto expectedGroups = c.group ? std::set<SettingsGroup>{*c.group} : std::set<SettingsGroup>{};
    EXPECT_EQ(one.changedGroups(), expectedGroups);

    // Merging moves the field with its group and with no other group.
    for (SettingsGroup g : allSettingsGroups()) {
      const EditSettings merged = blank.merging(one, {g});
      if (c.group == g && g != SettingsGroup::masks) {
        EXPECT_EQ(merged, one) << rawValue(g);
      } else if (c.group != g) {
        EXPECT_EQ(merged, blank) << rawValue(g);
      }
    }
  }
}

TEST(EditSettingsFieldTest, AMissingNullOrMistypedKeyKeepsOnlyThatFieldAtItsDefault) {
  const EditSettings rich = test::richSettings();
  const json stored = json::parse(encode(rich));
  // Wrong for every field: objects lack every nested key, arrays hold a bad element.
  const std::vector<std::pair<std::string, std::function<void(json&, const std::string&)>>> damage{
      {"missing", [](json& j, const std::string& k) { j.erase(k); }},
      {"null", [](json& j, const std::string& k) { j[k] = nullptr; }},
      {"array",
       [](json& j, const std::string& k) {
         j[k] = json::array({{{"x", 1}}});
       }},
      {"object",
       [](json& j, const std::string& k) {
         j[k] = {{"x", "y"}};
       }},
  };
  for (const FieldCase& c : fieldCases()) {
    for (const auto& [how, apply] : damage) {
      SCOPED_TRACE(c.key + " " + how);
      json j = stored;
      apply(j, c.key);
      EditSettings expected = rich;
      c.copy(EditSettings::blank(), expected);
      EXPECT_EQ(EditSettings::decode(j.dump()), expected);
    }
  }
}

TEST(EditSettingsDecodeTest, TolerantDecodingCases) {
  struct Case {
    const char* json;
    std::function<void(EditSettings&)> expected;  // applied to a default record
  };
  const Case cases[] = {
      {"{}", [](EditSettings&) {}},
      {R"({"exposure":1.5})", [](EditSettings& s) { s.exposure = 1.5; }},
      {R"({"exposure":"bright","contrast":20})", [](EditSettings& s) { s.contrast = 20; }},
      {R"({"exposure":1e999,"tint":-1e-400})", [](EditSettings& s) { s.tint = -0.0; }},
      {R"({"version":7})", [](EditSettings& s) { s.version = 7; }},
      {R"({"version":25.0,"rotateQuarterTurns":-1})",
       [](EditSettings& s) {
         s.version = 25;
         s.rotateQuarterTurns = -1;
       }},
      {R"({"version":25.5,"rotateQuarterTurns":"1"})", [](EditSettings&) {}},
      {R"({"rotateQuarterTurns":99999999999999999999})", [](EditSettings&) {}},
      {R"({"blackAndWhite":1,"lensCorrection":"false","flipVertical":true})",
       [](EditSettings& s) { s.flipVertical = true; }},
      {R"({"cropAspect":5,"temperature":null})", [](EditSettings&) {}},
      {R"({"cropAspect":"4 : 5"})", [](EditSettings& s) { s.cropAspect = "4 : 5"; }},
      {R"({"hsl":[{"hue":1,"saturation":2,"luminance":3},{"hue":0,"saturation":0,"luminance":0},)"
       R"({"hue":4,"saturation":5,"luminance":6}]})",
       [](EditSettings& s) {
         s.hsl[0] = {1, 2, 3};
         s.hsl[2] = {4, 5, 6};
       }},
      {R"({"hsl":[]})", [](EditSettings&) {}},
      {R"({"hsl":[{"hue":1,"saturation":2,"luminance":3},{"hue":1,"saturation":2}]})", [](EditSettings&) {}},
      {R"({"curveRed":{"pts":[]},"curveBlue":{"points":[{"x":0.5,"y":0.6}]}})",
       [](EditSettings& s) {
         s.curveBlue.points = {{0.5, 0.6}};
       }},
      {R"({"curveGreen":{"points":[{"x":0.5,"y":0.6},{"x":0.7}]}})", [](EditSettings&) {}},
      {R"({"curveRGB":{"points":[]}})", [](EditSettings& s) { s.curveRGB.points.clear(); }},
      {R"({"crop":{"x":0.1,"y":0.1,"w":0.5}})", [](EditSettings&) {}},
      {R"({"crop":{"x":0.1,"y":0.2,"w":0.5,"h":7,"extra":[1,{}]}})",
       [](EditSettings& s) {
         s.crop = {0.1, 0.2, 0.5, 7};
       }},
      {R"({"gradeMidtones":{"hue":10,"saturation":"x","luminance":0}})", [](EditSettings&) {}},
      {R"({"unknown":{"deep":[1,2,{"a":null}]},"whites":-3})", [](EditSettings& s) { s.whites = -3; }},
      {R"({"whites":1,"whites":2})", [](EditSettings& s) { s.whites = 2; }},
      {R"({"whites":1,"whites":"x"})", [](EditSettings&) {}},
      {R"({"straighten":720,"sharpenRadius":-5})",
       [](EditSettings& s) {
         s.straighten = 720;  // kept as stored: geometry clamps, decoding does not
         s.sharpenRadius = -5;
       }},
      {" \n{\"tint\" : 4 }\t", [](EditSettings& s) { s.tint = 4; }},
  };
  for (const Case& c : cases) {
    EditSettings expected;
    c.expected(expected);
    EXPECT_EQ(EditSettings::decode(c.json), expected) << c.json;
  }
}

TEST(EditSettingsDecodeTest, HslIsPaddedOrCutToEightBands) {
  for (std::size_t count : {0u, 1u, 3u, 7u, 8u, 9u, 10u, 40u}) {
    EditSettings s;
    s.hsl.clear();
    for (std::size_t i = 0; i < count; ++i) s.hsl.push_back({i + 1.0, 0, 0});
    const EditSettings back = EditSettings::decode(s.encoded());
    ASSERT_EQ(back.hsl.size(), 8u) << count;
    for (std::size_t i = 0; i < 8; ++i) EXPECT_EQ(back.hsl[i].hue, i < count ? i + 1.0 : 0.0) << count;
  }
}

TEST(EditSettingsDecodeTest, DataThatIsNotAnObjectGivesTheDefaultRecord) {
  const std::string notObjects[] = {
      "",
      "null",
      "[]",
      "42",
      "\"{}\"",
      "true",
      "{",
      "{\"exposure\":1",
      "{\"exposure\":1}}",
      "{\"exposure\":1} trailing",
      "{\"exposure\":1,}",
      "{'exposure':1}",
      "\xEF\xBB\xBF{\"exposure\":1}",
      std::string("{\"exposure\":1}\0", 15),
      "{\"exposure\":1,\"deep\":" + std::string(600, '[') + std::string(600, ']') + "}",
  };
  for (const std::string& data : notObjects) {
    EXPECT_TRUE(EditSettings::decode(data).isDefault()) << data.substr(0, 40);
  }
  EXPECT_TRUE(EditSettings::decode(std::nullopt).isDefault());
}

TEST(EditSettingsDecodeTest, MasksAreStrictAndFallBackToNone) {
  const EditSettings rich = test::richSettings();
  const json stored = json::parse(encode(rich));
  const std::vector<std::pair<std::string, std::function<void(json&)>>> spoil{
      {"unknown kind", [](json& m) { m["kind"] = "lasso"; }},
      {"kind not a string", [](json& m) { m["kind"] = 1; }},
      {"missing id", [](json& m) { m.erase("id"); }},
      {"missing dabs", [](json& m) { m.erase("dabs"); }},
      {"adjust lacks a key", [](json& m) { m["adjust"].erase("sharpness"); }},
      {"dab lacks erase", [](json& m) { m["dabs"][0].erase("erase"); }},
      {"dab erase not a bool", [](json& m) { m["dabs"][0]["erase"] = 0; }},
      {"bitmap not base64", [](json& m) { m["maskPNG"] = "not base64!"; }},
      {"bitmap not a string",
       [](json& m) {
         m["maskPNG"] = json::array({1, 2});
       }},
      {"opacity a string", [](json& m) { m["opacity"] = "1"; }},
  };
  for (const auto& [what, apply] : spoil) {
    json j = stored;
    apply(j["masks"][1]);
    const EditSettings back = EditSettings::decode(j.dump());
    EXPECT_TRUE(back.masks.empty()) << what;
    EditSettings expected = rich;
    expected.masks.clear();
    EXPECT_EQ(back, expected) << what;
  }

  // The bitmap is optional: missing or null means absent, and the rest stays.
  EditSettings withoutBitmap = rich;
  withoutBitmap.masks[3].maskPNG.reset();
  json missing = stored;
  missing["masks"][3].erase("maskPNG");
  EXPECT_EQ(EditSettings::decode(missing.dump()), withoutBitmap);
  json null = stored;
  null["masks"][3]["maskPNG"] = nullptr;
  EXPECT_EQ(EditSettings::decode(null.dump()), withoutBitmap);
  // An empty bitmap is present and empty.
  json j = stored;
  j["masks"][3]["maskPNG"] = "";
  EXPECT_EQ(EditSettings::decode(j.dump()).masks[3].maskPNG, std::vector<std::uint8_t>{});
}

TEST(EditSettingsTest, NegativeZeroEqualsAndHashesLikeZeroButNaNNeverEquals) {
  EditSettings a, b;
  a.exposure = -0.0;
  a.curveRGB.points[0].x = -0.0;
  a.masks.push_back(PhotoMask(MaskKind::radial));
  b.masks = a.masks;
  b.masks[0].adjust.exposure = -0.0;
  a.masks[0].adjust.exposure = 0.0;
  EXPECT_EQ(a, b);
  EXPECT_EQ(a.hash(), b.hash());
  EXPECT_EQ(a.encoded(), b.encoded());
  EXPECT_EQ(a.encoded(), EditSettings::decode(a.encoded()).encoded());
  EXPECT_EQ(std::hash<EditSettings>{}(a), std::hash<EditSettings>{}(b));
  std::unordered_map<EditSettings, int> cache{{a, 1}};
  EXPECT_EQ(cache.count(b), 1u);

  EditSettings n;
  n.tint = nan;
  const EditSettings copy = n;
  EXPECT_NE(n, copy);
  EXPECT_FALSE(n.isDefault());
}

TEST(EditSettingsTest, SourceKeyNamesTheSourceSettings) {
  const std::pair<std::function<void(EditSettings&)>, std::string> cases[] = {
      {[](EditSettings&) {}, "0.0|0.0|true"},
      {[](EditSettings& s) {
         s.lensCorrection = false;
         s.noiseLuminance = 20;
       },
       "20.0|0.0|false"},
      {[](EditSettings& s) { s.noiseLuminance = 12.5, s.noiseColor = 25; }, "12.5|25.0|true"},
      {[](EditSettings& s) { s.noiseColor = -0.0; }, "0.0|0.0|true"},
      {[](EditSettings& s) { s.noiseColor = 0.1; }, "0.0|0.1|true"},
      {[](EditSettings& s) { s.noiseColor = -3; }, "0.0|-3.0|true"},
      {[](EditSettings& s) { s.exposure = 2, s.sharpenAmount = 50; }, "0.0|0.0|true"},
  };
  for (const auto& [change, key] : cases) {
    EditSettings s;
    change(s);
    EXPECT_EQ(s.sourceKey(), key);
  }
}

TEST(EditSettingsTest, MergingAllGroupsTakesEverythingButVersionAndMaskIds) {
  const EditSettings rich = test::richSettings();
  const std::set<SettingsGroup> all(allSettingsGroups().begin(), allSettingsGroups().end());
  const EditSettings merged = EditSettings{}.merging(rich, all);
  EXPECT_EQ(merged.version, 1);
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

TEST(EditSettingsBadInputTest, HugeBlobsDecodeWithoutTrouble) {
  // 100 MB: a long string and a long array under unknown keys, between two
  // keys that must survive.
  std::string blob = R"({"exposure":2,"junk":")";
  blob.append(50'000'000, 'a');
  blob += R"(","more":[)";
  for (int i = 0; i < 12'500'000; ++i) blob += i ? ",0.5" : "0.5";
  blob += R"(],"tint":-7})";
  ASSERT_GE(blob.size(), 100'000'000u);
  EditSettings expected;
  expected.exposure = 2;
  expected.tint = -7;
  EXPECT_EQ(EditSettings::decode(blob), expected);

  // One long curve is kept as stored; cut short, the whole blob is unreadable.
  std::string curve = R"({"curveRGB":{"points":[)";
  for (int i = 0; i < 1'000'000; ++i) curve += (i ? "," : "") + std::string(R"({"x":0.5,"y":0.25})");
  curve += "]}}";
  const EditSettings longCurve = EditSettings::decode(curve);
  EXPECT_EQ(longCurve.curveRGB.points.size(), 1'000'000u);
  EXPECT_TRUE(EditSettings::decode(std::string_view(curve).substr(0, curve.size() - 3)).isDefault());
}

TEST(EditSettingsBadInputTest, MalformedTextInStringsIsReplacedNotFatal) {
  const EditSettings s = EditSettings::decode("{\"cropAspect\":\"16 \xff: 9\",\"tint\":1}");
  EXPECT_EQ(s.cropAspect, "16 \xEF\xBF\xBD: 9");
  EXPECT_EQ(s.tint, 1);
  EditSettings bad;
  bad.cropAspect = "\xc3(";
  const auto blob = bad.encoded();
  ASSERT_TRUE(blob.has_value());
  EXPECT_NO_THROW(json::parse(*blob));
  EXPECT_EQ(EditSettings::decode(blob).cropAspect, "\xEF\xBF\xBD(");
}

}  // namespace
