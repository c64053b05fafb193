#include "engine/edit/edit_settings.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <nlohmann/json.hpp>
#include <unordered_map>

#include "engine/edit/record_fields.h"
#include "tests/edit/sample_settings.h"

using namespace lumivale;
using nlohmann::json;

namespace {

const double nan = std::numeric_limits<double>::quiet_NaN();
const double inf = std::numeric_limits<double>::infinity();

std::string encode(const EditSettings& s) {
  auto blob = s.encoded();
  EXPECT_TRUE(blob.has_value());
  return blob.value_or("");
}

// The default record's stored form, derived by hand from the format: keys in
// byte order (upper case before lower case), whole numbers without fraction.
TEST(EditSettingsTest, DefaultRecordHasItsExactStoredForm) {
  const std::string curve = R"({"points":[{"x":0,"y":0},{"x":1,"y":1}]})";
  const std::string wheel = R"({"hue":0,"luminance":0,"saturation":0})";
  std::string hsl = "[" + wheel;
  for (int i = 1; i < 8; ++i) hsl += "," + wheel;
  EXPECT_EQ(
      encode(EditSettings{}),
      R"({"blackAndWhite":false,"blacks":0,"contrast":0,"crop":{"h":1,"w":1,"x":0,"y":0},)"
      R"("cropAspect":"Original","curveBlue":)" +
          curve + R"(,"curveGreen":)" + curve + R"(,"curveRGB":)" + curve + R"(,"curveRed":)" + curve +
          R"(,"exposure":0,"flipHorizontal":false,"flipVertical":false,"gradeBalance":0,)"
          R"("gradeBlending":50,"gradeHighlights":)" +
          wheel + R"(,"gradeMidtones":)" + wheel + R"(,"gradeShadows":)" + wheel +
          R"(,"grainAmount":0,"grainSize":25,"highlights":0,"hsl":)" + hsl +
          R"(],"lensCorrection":true,"masks":[],"noiseColor":0,"noiseLuminance":0,"rotateQuarterTurns":0,)"
          R"("saturation":0,"shadows":0,"sharpenAmount":0,"sharpenRadius":1,"straighten":0,"temperature":0,)"
          R"("tint":0,"version":1,"vibrance":0,"vignetteAmount":0,"vignetteFeather":50,"vignetteMidpoint":50,)"
          R"("whites":0})");
  EXPECT_EQ(EditSettings::blank(), EditSettings{});
  EXPECT_TRUE(EditSettings{}.isDefault());
}

// Parsed and written again by an independent library, whose objects keep
// their keys in byte order and which writes no whitespace and the shortest
// numbers: the same bytes but for the slashes it leaves bare, so keys are
// sorted at every level.
TEST(EditSettingsTest, RoundTripIsExactAndTheStoredFormCanonical) {
  const EditSettings rich = test::richSettings();
  const std::string blob = encode(rich);
  const EditSettings back = EditSettings::decode(blob);
  EXPECT_EQ(back, rich);
  EXPECT_EQ(back.hash(), rich.hash());
  EXPECT_EQ(encode(back), blob);
  EXPECT_EQ(EditSettings::decode(std::vector<std::uint8_t>(blob.begin(), blob.end())), rich);
  std::string bareSlashes = blob;
  for (std::size_t at = 0; (at = bareSlashes.find("\\/", at)) != std::string::npos;) bareSlashes.erase(at, 1);
  EXPECT_NE(bareSlashes, blob);  // the base64 bitmaps and a mask name hold slashes
  EXPECT_EQ(json::parse(blob).dump(), bareSlashes);

  const json j = json::parse(blob);
  EXPECT_EQ(j["masks"][0]["kind"], "brush");
  EXPECT_EQ(j["masks"][0]["name"], rich.masks[0].name);
  // Only smart masks carry a bitmap, and an absent one has no key at all.
  EXPECT_FALSE(j["masks"][0].contains("maskPNG"));
  EXPECT_EQ(j["masks"][3].value("maskPNG", "").substr(0, 12), "AwoRGB8mLTQ7");  // bytes 3, 10, 17 ...
}

TEST(EditSettingsTest, NonFiniteValuesGiveNoBlob) {
  const std::vector<std::function<void(EditSettings&)>> spoil(
      {[](EditSettings& s) { s.exposure = nan; }, [](EditSettings& s) { s.grainSize = inf; },
       [](EditSettings& s) { s.curveBlue.points[1].y = -inf; },
       [](EditSettings& s) { s.hsl[7].luminance = nan; }, [](EditSettings& s) { s.crop.w = nan; },
       [](EditSettings& s) { s.masks[2].adjust.sharpness = nan; },
       [](EditSettings& s) { s.masks[0].dabs[1].flow = nan; }});
  for (std::size_t i = 0; i < spoil.size(); ++i) {
    EditSettings s = test::richSettings();
    spoil[i](s);
    EXPECT_EQ(s.encoded(), std::nullopt) << i;
  }
}

TEST(EditSettingsDecodeTest, AMissingNullOrMistypedKeyKeepsOnlyThatFieldAtItsDefault) {
  const EditSettings rich = test::richSettings();
  const json stored = json::parse(encode(rich));
  const json missing(json::value_t::discarded);
  // Wrong for every field: objects lack every nested key, arrays hold a bad element.
  for (const json& wrong : {json(), json::array({{{"x", 1}}}), json{{"x", "y"}}, missing}) {
    for (const auto& field : codec::fieldsOf<EditSettings>().fields) {
      const std::string key(field.key);
      SCOPED_TRACE(key + " " + wrong.dump());
      json j = stored;
      j.erase(key);
      if (!wrong.is_discarded()) j[key] = wrong;
      EditSettings expected = rich;
      field.transfer(EditSettings::blank(), expected);
      EXPECT_EQ(EditSettings::decode(j.dump()), expected);
    }
  }
}

TEST(EditSettingsDecodeTest, TolerantDecodingCases) {
  const std::pair<const char*, EditSettings> cases[] = {
      {R"({"exposure":"bright","contrast":20})", {.contrast = 20}},
      {R"({"exposure":1e999,"tint":-1e-400})", {.tint = -0.0}},
      {R"({"version":25.0,"rotateQuarterTurns":-1})", {.version = 25, .rotateQuarterTurns = -1}},
      {R"({"version":25.5,"rotateQuarterTurns":"1"})", {}},
      {R"({"rotateQuarterTurns":99999999999999999999})", {}},
      {R"({"blackAndWhite":1,"lensCorrection":"false","flipVertical":true})", {.flipVertical = true}},
      {R"({"cropAspect":"4 : 5"})", {.cropAspect = "4 : 5"}},
      {R"({"curveRed":{"pts":[]},"curveBlue":{"points":[{"x":0.5,"y":0.6}]}})",
       {.curveBlue = {{{0.5, 0.6}}}}},
      {R"({"curveGreen":{"points":[{"x":0.5,"y":0.6},{"x":0.7}]}})", {}},
      {R"({"curveRGB":{"points":[]}})", {.curveRGB = {.points = {}}}},
      {R"({"crop":{"x":0.1,"y":0.2,"w":0.5,"h":7,"extra":[1,{}]}})", {.crop = {0.1, 0.2, 0.5, 7}}},
      {R"({"gradeMidtones":{"hue":10,"saturation":"x","luminance":0}})", {}},
      {R"({"unknown":{"deep":[1,2,{"a":null}]},"whites":-3})", {.whites = -3}},
      {R"({"whites":1,"whites":2})", {.whites = 2}},
      {R"({"whites":1,"whites":"x"})", {}},
      // Kept as stored: geometry clamps, decoding does not.
      {R"({"straighten":720,"sharpenRadius":-5})", {.sharpenRadius = -5, .straighten = 720}},
      {" \n{\"tint\" : 4 }\t", {.tint = 4}}};
  for (const auto& [data, expected] : cases) EXPECT_EQ(EditSettings::decode(data), expected) << data;
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
  const std::vector<std::string> notObjects(
      {"", "null", "[]", "42", "\"{}\"", "true", "{", "{\"exposure\":1", "{\"exposure\":1}}",
       "{\"exposure\":1} trailing", "{\"exposure\":1,}", "{'exposure':1}", "\xEF\xBB\xBF{\"exposure\":1}",
       std::string("{\"exposure\":1}\0", 15),
       "{\"exposure\":1,\"deep\":" + std::string(600, '[') + std::string(600, ']') + "}"});
  for (const std::string& data : notObjects)
    EXPECT_TRUE(EditSettings::decode(data).isDefault()) << data.substr(0, 40);
  EXPECT_TRUE(EditSettings::decode(std::nullopt).isDefault());
}

TEST(EditSettingsDecodeTest, MasksAreStrictAndFallBackToNone) {
  const EditSettings rich = test::richSettings();
  const json stored = json::parse(encode(rich));
  EditSettings noMasks = rich;
  noMasks.masks.clear();
  const std::vector<std::function<void(json&)>> spoil(
      {[](json& m) { m["kind"] = "lasso"; }, [](json& m) { m["kind"] = 1; }, [](json& m) { m.erase("id"); },
       [](json& m) { m.erase("dabs"); }, [](json& m) { m["adjust"].erase("sharpness"); },
       [](json& m) { m["dabs"][0].erase("erase"); }, [](json& m) { m["dabs"][0]["erase"] = 0; },
       [](json& m) { m["maskPNG"] = "not base64!"; }, [](json& m) { m["maskPNG"] = json::parse("[1,2]"); },
       [](json& m) { m["opacity"] = "1"; }});
  for (std::size_t i = 0; i < spoil.size(); ++i) {
    json j = stored;
    spoil[i](j["masks"][1]);
    EXPECT_EQ(EditSettings::decode(j.dump()), noMasks) << i;
  }

  // The bitmap is optional: missing or null means absent, and the rest
  // stays; an empty one is present and empty.
  EditSettings withoutBitmap = rich;
  withoutBitmap.masks[3].maskPNG.reset();
  for (const json& bitmap : {json(), json(json::value_t::discarded), json("")}) {
    json j = stored;
    j["masks"][3].erase("maskPNG");
    if (!bitmap.is_discarded()) j["masks"][3]["maskPNG"] = bitmap;
    if (bitmap == "") withoutBitmap.masks[3].maskPNG = std::vector<std::uint8_t>{};
    EXPECT_EQ(EditSettings::decode(j.dump()), withoutBitmap) << bitmap;
  }
}

// Each leaf's −0 against +0 is checked by the field path tests; here what
// hashed maps rely on.
TEST(EditSettingsTest, EqualRecordsFindEachOtherInMapsAndNaNEqualsNothing) {
  EditSettings a = test::richSettings(), b = a;
  b.exposure = -0.0, a.exposure = 0.0;
  EXPECT_EQ((std::unordered_map<EditSettings, int>{{a, 1}}.count(b)), 1u);
  const EditSettings n{.tint = nan};
  EXPECT_NE(n, n);
  EXPECT_FALSE(n.isDefault());
}

TEST(EditSettingsTest, SourceKeyNamesTheSourceSettings) {
  const std::pair<EditSettings, std::string> cases[] = {
      {{}, "0.0|0.0|true"},
      {{.noiseLuminance = 20, .lensCorrection = false}, "20.0|0.0|false"},
      {{.noiseLuminance = 12.5, .noiseColor = 25}, "12.5|25.0|true"},
      {{.noiseColor = -0.0}, "0.0|0.0|true"},
      {{.noiseColor = 0.1}, "0.0|0.1|true"},
      {{.noiseColor = -3}, "0.0|-3.0|true"},
      {{.noiseLuminance = 1000000, .noiseColor = 0.0001}, "1000000.0|0.0001|true"},
      {{.noiseLuminance = 100000, .noiseColor = 1e-5}, "100000.0|1e-05|true"},
      {{.noiseLuminance = nan, .noiseColor = -inf}, "nan|-inf|true"},
      {{.exposure = 2, .sharpenAmount = 50}, "0.0|0.0|true"}};
  for (const auto& [s, key] : cases) EXPECT_EQ(s.sourceKey(), key);
}

TEST(EditSettingsBadInputTest, HugeBlobsDecodeWithoutTrouble) {
  // 100 MB: a long string and a long array under unknown keys, between two
  // keys that must survive.
  std::string blob = R"({"exposure":2,"junk":")" + std::string(50'000'000, 'a') + R"(","more":[0.5)";
  for (int i = 1; i < 12'500'000; ++i) blob += ",0.5";
  blob += R"(],"tint":-7})";
  ASSERT_GE(blob.size(), 100'000'000u);
  EXPECT_EQ(EditSettings::decode(blob), (EditSettings{.tint = -7, .exposure = 2}));

  // One long curve is kept as stored; cut short, the whole blob is unreadable.
  std::string curve = R"({"curveRGB":{"points":[{"x":0.5,"y":0.25})";
  for (int i = 1; i < 1'000'000; ++i) curve += R"(,{"x":0.5,"y":0.25})";
  curve += "]}}";
  EXPECT_EQ(EditSettings::decode(curve).curveRGB.points.size(), 1'000'000u);
  EXPECT_TRUE(EditSettings::decode(std::string_view(curve).substr(0, curve.size() - 3)).isDefault());
}

}  // namespace
