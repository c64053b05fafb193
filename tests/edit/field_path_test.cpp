#include "engine/edit/field_path.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>

#include "tests/edit/sample_settings.h"
#include "tests/support/errors.h"

using namespace lumivale;
using nlohmann::json;

namespace {

using Edits = std::vector<FieldEdit>;

// Every leaf of a stored form, by its field path ("masks.3.adjust.exposure").
void collectLeaves(const json& node, const std::string& path,
                   std::vector<std::pair<std::string, json>>& out) {
  if (node.is_object()) {
    for (const auto& [key, value] : node.items())
      collectLeaves(value, path.empty() ? key : path + "." + key, out);
  } else if (node.is_array()) {
    for (std::size_t i = 0; i < node.size(); ++i) collectLeaves(node[i], path + "." + std::to_string(i), out);
  } else {
    out.emplace_back(path, node);
  }
}

json::json_pointer pointer(std::string path) {
  std::replace(path.begin(), path.end(), '.', '/');
  return json::json_pointer("/" + path);
}

// Every leaf of the stored form is reached by its path; setting it changes
// that leaf and nothing else, the result survives storage, and each leaf
// moves the hash its own way, even when all are given the same value.
TEST(FieldPathTest, EveryLeafOfTheStoredFormIsEditedByItsPathAlone) {
  const EditSettings rich = test::richSettings();
  const json stored = json::parse(*rich.encoded());
  std::vector<std::pair<std::string, json>> leaves;
  collectLeaves(stored, "", leaves);
  ASSERT_GT(leaves.size(), 300u);
  std::set<std::size_t> hashes{rich.hash()};
  for (const auto& [path, old] : leaves) {
    SCOPED_TRACE(path);
    // Text is given as it stands, the rest as JSON.
    std::pair<std::string, json> value{"0.4375", 0.4375};
    if (old.is_number_integer()) value = {"7", 7};
    if (old.is_boolean()) value = {old ? "false" : "true", !old};
    if (old.is_string()) value = {"Sky / \"glow\"", "Sky / \"glow\""};
    if (path.ends_with("kind")) value = {"people", "people"};
    if (path.ends_with("maskPNG")) value = {"AAEC", "AAEC"};
    const EditSettings edited = applyFieldEdits(rich, {{path, value.first}});
    json expected = stored;
    expected[pointer(path)] = value.second;
    EXPECT_EQ(json::parse(*edited.encoded()), expected);
    EXPECT_EQ(EditSettings::decode(edited.encoded()), edited);
    EXPECT_TRUE(hashes.insert(edited.hash()).second);
    if (old.is_number()) {
      const EditSettings zero = applyFieldEdits(rich, {{path, "0"}}),
                         negative = applyFieldEdits(rich, {{path, "-0"}});
      EXPECT_EQ(zero, negative);
      EXPECT_EQ(zero.hash(), negative.hash());
      EXPECT_EQ(zero.encoded(), negative.encoded());
    }
  }
}

TEST(FieldPathTest, WholeRecordsListsAndTextTakeTheirStoredForm) {
  const EditSettings rich = test::richSettings();
  EditSettings expected = rich;
  expected.curveRGB.points = {{0, 0.1}, {1, 0.9}};
  expected.crop = {0.1, 0.2, 0.5, 1};
  expected.hsl[2] = {1, 2, 3};
  expected.masks[1].adjust = {.exposure = 1};
  expected.masks[2].dabs = {};
  expected.masks[3].maskPNG.reset();
  expected.masks[0].maskPNG = std::vector<std::uint8_t>{0, 1, 2};
  expected.cropAspect = "null";
  expected.masks[4].name = "\"Sky";
  expected.masks[1].kind = MaskKind::radial;
  EXPECT_EQ(
      applyFieldEdits(rich, {{"curveRGB", R"({"points":[{"x":0,"y":0.1},{"y":0.9,"x":1}]})"},
                             {"crop", R"({"x":0.1,"y":0,"w":0.5,"h":1})"},
                             {"crop.y", " 0.2 "},
                             {"hsl.2", R"({"hue":1,"saturation":2,"luminance":3,"extra":[]})"},
                             {"masks.1.adjust", R"({"exposure":1,"contrast":0,"highlights":0,"shadows":0,)"
                                                R"("temperature":0,"tint":0,"saturation":0,"sharpness":0})"},
                             {"masks.2.dabs", "[]"},
                             {"masks.3.maskPNG", "null"},
                             {"masks.0.maskPNG", "\"AAEC\""},
                             {"cropAspect", "null"},
                             {"masks.4.name", "\"Sky"},
                             {"masks.1.kind", "\"radial\""},
                             {"rotateQuarterTurns", "3.0"}}),
      expected);
  // A later edit of the same field wins; edits inside a list see the list
  // as the earlier edits left it.
  EXPECT_EQ(applyFieldEdits(rich, {{"exposure", "1"}, {"exposure", "2"}}).exposure, 2);
  EXPECT_EQ(applyFieldEdits(rich, {{"masks", "[]"}}).masks.size(), 0u);
  EXPECT_EQ(applyFieldEdits(EditSettings{}, {}), EditSettings{});
}

TEST(FieldPathTest, RefusalsNameThePathAndTheValue) {
  EditSettings settings = test::richSettings();
  settings.masks.resize(2);
  const std::pair<Edits, std::string> cases[] = {
      {{{"expo", "1"}}, "unknown field 'expo'"},
      {{{"", "1"}}, "'' is not a field name"},
      {{{"crop..w", "1"}}, "'crop..w' is not a field name"},
      {{{"crop.", "1"}}, "'crop.' is not a field name"},
      {{{"hsl.8.hue", "1"}}, "'hsl.8': index 8 is out of range ('hsl' has 8 items)"},
      {{{"hsl.x.hue", "1"}}, "'hsl.x': not an index ('hsl' has 8 items)"},
      {{{"hsl.1234567890.hue", "1"}}, "'hsl.1234567890': not an index ('hsl' has 8 items)"},
      {{{"masks.2.adjust.exposure", "1"}}, "'masks.2': index 2 is out of range ('masks' has 2 items)"},
      {{{"masks.0.dabs.9.erase", "true"}},
       "'masks.0.dabs.9': index 9 is out of range ('masks.0.dabs' has 3 items)"},
      {{{"curveRGB.points.1.z", "0.3"}}, "unknown field 'curveRGB.points.1.z'"},
      {{{"exposure.x", "1"}}, "'exposure' has no field 'x'"},
      {{{"exposure", "abc"}}, "'abc' is not a value for exposure"},
      {{{"exposure", "1e999"}}, "'1e999' is not a value for exposure"},
      {{{"exposure", "NaN"}}, "'NaN' is not a value for exposure"},
      {{{"exposure", "1 2"}}, "'1 2' is not a value for exposure"},
      {{{"exposure", "\"1\""}}, "\"1\" is not a valid value for exposure"},
      {{{"exposure", "[1]"}}, "[1] is not a valid value for exposure"},
      {{{"tint", "null"}}, "null is not a valid value for tint"},
      {{{"blackAndWhite", "1"}}, "1 is not a valid value for blackAndWhite"},
      {{{"rotateQuarterTurns", "1.5"}}, "1.5 is not a valid value for rotateQuarterTurns"},
      {{{"crop", "{\"x\":0}"}}, "{\"x\":0} is not a valid value for crop"},
      {{{"hsl", "[]"}}, "[] is not a valid value for hsl"},
      {{{"hsl.5", "3"}}, "3 is not a valid value for hsl.5"},
      {{{"masks", "[{\"kind\":\"brush\"}]"}}, "[{\"kind\":\"brush\"}] is not a valid value for masks"},
      {{{"masks.0.kind", "lasso"}}, "\"lasso\" is not a valid value for masks.0.kind"},
      {{{"masks.0.kind", "\"lasso\""}}, "\"lasso\" is not a valid value for masks.0.kind"},
      {{{"masks.1.maskPNG", "!!"}}, "\"!!\" is not a valid value for masks.1.maskPNG"},
      // Text that is not UTF-8 could not be stored as given.
      {{{"cropAspect", "a\xff"}}, "\"a\xEF\xBF\xBD\" is not a valid value for cropAspect"},
      {{{"masks.0.name", "\"a\xff\""}}, "\"\\\"a\xEF\xBF\xBD\\\"\" is not a valid value for masks.0.name"},
      // All or nothing: the first bad edit ends the whole list.
      {{{"exposure", "1"}, {"tint", "x"}, {"expo", "1"}}, "'x' is not a value for tint"},
      {{{"masks", "[]"}, {"masks.0.name", "x"}}, "'masks.0': index 0 is out of range ('masks' has 0 items)"}};
  for (const auto& [edits, message] : cases)
    EXPECT_EQ(test::errorMessage<FieldPathError>([&] { applyFieldEdits(settings, edits); }), message);
}

TEST(FieldPathTest, AssignmentsSplitAtTheirFirstEqualsSign) {
  EXPECT_EQ(parseFieldEdit("crop.w=0.5"), (FieldEdit{"crop.w", "0.5"}));
  EXPECT_EQ(parseFieldEdit("cropAspect=a=b"), (FieldEdit{"cropAspect", "a=b"}));
  EXPECT_EQ(parseFieldEdit("=1"), (FieldEdit{"", "1"}));
  EXPECT_EQ(test::errorMessage<FieldPathError>([] { parseFieldEdit("exposure"); }),
            "'exposure' is not FIELD=VALUE");
}

}  // namespace
