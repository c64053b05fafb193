#include <gtest/gtest.h>

#include "tests/support/cli_run.h"

using namespace lumivale;
using Json = nlohmann::json;
using test::Args;

namespace {

// Photos 1 to 3 are JPEG files, photo 4 a RAW file, made directly in the
// catalog.
class EditCliTest : public test::CliLibraryTest {
 protected:
  void SetUp() override {
    for (int i = 1; i <= 4; ++i) addPhoto("/p/" + std::to_string(i), {{"raw", i == 4}});
  }
  Args stepNames(std::int64_t id) {
    Args names;
    for (const HistoryStep& s : library.history(id).steps) names.push_back(s.name);
    return names;
  }
  std::string dump() {
    return test::dumpRows(library, {"SELECT id, edits, edited, histPos FROM photos ORDER BY id",
                                    "SELECT photo, seq, name, edits FROM history ORDER BY photo, seq",
                                    "SELECT id, photo, name, edits FROM snapshots ORDER BY id",
                                    "SELECT id, name, edits, groups FROM presets ORDER BY id"});
  }
};

TEST_F(EditCliTest, SettingsPrintsTheStoredTextOrTheInitialSettings) {
  const Json raw = ok({"--json", "settings", "4"}).json();
  EXPECT_EQ(std::pair(raw["sharpenAmount"], raw["noiseColor"]), std::pair(Json(25), Json(25)));
  EXPECT_EQ(ok({"settings", "1"}).out, *EditSettings{}.encoded() + "\n");
  // Text written by someone else is shown exactly as stored.
  const std::string stored = R"({"exposure": 1.50, "unknown": [1]})";
  library.db().run("UPDATE photos SET edits = ? WHERE id = 2", {Blob(stored.begin(), stored.end())});
  EXPECT_EQ(ok({"settings", "2"}).out, stored + "\n");
  EXPECT_EQ(ok({"--json", "settings", "2"}).json(), Json::parse(stored));
  library.db().run("UPDATE photos SET edits = X'7B2278' WHERE id = 4");  // cut short: {"x
  EXPECT_EQ(ok({"--json", "settings", "4"}).json()["sharpenAmount"], 25);
  EXPECT_EQ(run({"settings", "9"}).status, 1);
}

TEST_F(EditCliTest, EditSetsNestedFieldsAsOneStep) {
  test::CliResult r =
      ok({"edit", "1", "exposure=0.5", "hsl.5.saturation=20", "crop.w=0.5", "cropAspect=1 : 1",
          "blackAndWhite=true", R"(curveRGB={"points":[{"x":0,"y":0.1},{"x":1,"y":0.9}]})"});
  EXPECT_NE(r.out.find("step 2"), std::string::npos) << r.out;
  EditSettings expected{.exposure = 0.5, .blackAndWhite = true, .cropAspect = "1 : 1"};
  expected.hsl[5].saturation = 20, expected.crop.w = 0.5, expected.curveRGB.points = {{0, 0.1}, {1, 0.9}};
  EXPECT_EQ(library.settings(1), expected);
  EXPECT_EQ(stepNames(1),
            (Args{"Import", "Edit exposure, hsl.5.saturation, crop.w, cropAspect, blackAndWhite, curveRGB"}));

  // Quoted JSON text and a later assignment inside an earlier one.
  ok({"edit", "1", R"(cropAspect="16 : 9")", R"(masks=[])", "crop={\"x\":0.1,\"y\":0,\"w\":0.5,\"h\":1}",
      "crop.y=0.2", "--step", "Crop"});
  EXPECT_EQ(library.settings(1).crop, (CropRect{0.1, 0.2, 0.5, 1}));
  EXPECT_EQ(library.settings(1).cropAspect, "16 : 9");
  EXPECT_EQ(stepNames(1).back(), "Crop");

  // Without a step the history stays; with no change nothing is recorded.
  r = ok({"--json", "edit", "1", "exposure=-1", "--no-step"});
  EXPECT_EQ(std::pair(r.json()["step"], r.json()["position"]), std::pair(Json(), Json(3)));
  EXPECT_EQ(library.settings(1).exposure, -1);
  EXPECT_EQ(ok({"--json", "edit", "1", "exposure=-1"}).json()["changed"], false);
  EXPECT_EQ(stepNames(1).size(), 3u);

  // Masks are reached by index and keep their ids.
  EditSettings s;
  s.masks = {PhotoMask(MaskKind::radial), PhotoMask(MaskKind::brush)};
  library.saveSettings(2, s, "masks");
  ok({"edit", "2", "masks.1.adjust.exposure=1", "masks.0.name=Sky glow", "masks.0.invert=true"});
  s.masks[1].adjust.exposure = 1, s.masks[0].name = "Sky glow", s.masks[0].invert = true;
  EXPECT_EQ(library.settings(2), s);
}

TEST_F(EditCliTest, BadAssignmentsChangeNothing) {
  library.saveSettings(1, EditSettings{}, "start");
  const std::string before = dump();
  expectRefused(2, {Args{"edit", "1", "expo=1"}, Args{"edit", "1", "exposure"}, Args{"edit", "1", "=1"},
                    Args{"edit", "1", "crop..w=1"}, Args{"edit", "1", "hsl.8.hue=1"},
                    Args{"edit", "1", "hsl.x.hue=1"}, Args{"edit", "1", "hsl.-1.hue=1"},
                    Args{"edit", "1", "masks.0.adjust.exposure=1"}, Args{"edit", "1", "exposure.x=1"},
                    Args{"edit", "1", "exposure=abc"}, Args{"edit", "1", "exposure=\"1\""},
                    Args{"edit", "1", "exposure=1e999"}, Args{"edit", "1", "blackAndWhite=1"},
                    Args{"edit", "1", "rotateQuarterTurns=1.5"}, Args{"edit", "1", "crop={\"x\":0}"},
                    Args{"edit", "1", "hsl=[]"}, Args{"edit", "1", "masks=[{\"kind\":\"brush\"}]"}});
  expectRefused(
      2, {Args{"edit", "1", "exposure=1", "tint=null"},
          Args{"edit", "1", "exposure=1", "--step", "x", "--no-step"}, Args{"edit", "1"},
          Args{"goto", "1", "0"}, Args{"snapshot", "add", "1", " "}, Args{"snapshot", "delete", "x"},
          Args{"snapshot", "take", "1"}, Args{"preset", "save", "p", "1", "--groups", "light,bogus"},
          Args{"preset", "save", "p", "1", "--groups", ","}, Args{"preset", "list", "--groups", "light"},
          Args{"copy-settings", "1", "2", "--groups", "Light"}, Args{"copy-settings", "1", "1"}});
  expectRefused(
      1, {Args{"edit", "9", "exposure=1"}, Args{"undo", "2"}, Args{"redo", "1"}, Args{"goto", "1", "3"},
          Args{"goto", "9", "1"}, Args{"snapshot", "add", "9", "x"}, Args{"snapshot", "apply", "5"},
          Args{"preset", "save", "p", "9"}, Args{"preset", "delete", "3"},
          Args{"preset", "apply", "No Such Look", "1"}, Args{"preset", "apply", "natural boost", "1"},
          Args{"preset", "apply", "Natural Boost", "1,9"}, Args{"copy-settings", "9", "1"},
          Args{"copy-settings", "1", "2,9"}});
  EXPECT_EQ(dump(), before);
}

TEST_F(EditCliTest, UndoRedoAndGotoMoveWithinTheHistory) {
  for (const char* value : {"exposure=1", "exposure=2", "exposure=3"}) ok({"edit", "3", value});
  const Json undone = ok({"--json", "undo", "3"}).json();
  EXPECT_EQ(std::pair(undone["position"], undone["step"]["name"]), std::pair(Json(3), Json("Edit exposure")));
  EXPECT_EQ(library.settings(3).exposure, 2);
  ok({"goto", "3", "1"});
  EXPECT_EQ(library.settings(3).exposure, 0);
  EXPECT_FALSE(library.photo(3)->edited);
  test::expectError(run({"undo", "3"}), 1, "nothing to undo");
  ok({"redo", "3"});
  ok({"goto", "3", "4"});
  EXPECT_EQ(library.settings(3).exposure, 3);
  test::expectError(run({"redo", "3"}), 1, "nothing to redo");

  // The text list marks the current step.
  ok({"goto", "3", "2"});
  std::istringstream lines(ok({"history", "3"}).out);
  Args marked;
  for (std::string line; std::getline(lines, line);)
    if (line.rfind("> ", 0) == 0) marked.push_back(line);
  ASSERT_EQ(marked.size(), 1u);
  EXPECT_NE(marked[0].find("2  Edit exposure"), std::string::npos) << marked[0];
  const Json history = ok({"--json", "history", "3"}).json();
  EXPECT_EQ(history["steps"].size(), 4u);
  EXPECT_EQ(history["steps"][1]["current"], true);
  EXPECT_EQ(ok({"history", "1"}).out, "Photo 1 has no history.\n");
}

TEST_F(EditCliTest, SnapshotsAreTakenAppliedAndDeleted) {
  ok({"edit", "1", "exposure=1.5"});
  const Json made = ok({"--json", "snapshot", "add", "1", "Bright", "version"}).json();
  const std::string snap = std::to_string(made["id"].get<std::int64_t>());
  EXPECT_EQ(made["name"], "Bright version");
  ok({"edit", "1", "exposure=-2"});
  ok({"snapshot", "apply", snap});
  EXPECT_EQ(library.settings(1).exposure, 1.5);
  EXPECT_EQ(stepNames(1).back(), "Snapshot: Bright version");
  const Json list = ok({"--json", "snapshot", "list", "1"}).json();
  ASSERT_EQ(list.size(), 1u);
  EXPECT_EQ(list[0]["photo"], 1);
  ok({"snapshot", "delete", snap});
  EXPECT_TRUE(library.snapshots(1).empty());
}

TEST_F(EditCliTest, PresetsAreSavedWithTheirGroupsAndAppliedLooksListed) {
  ok({"edit", "1", "exposure=1", "temperature=20", "crop.w=0.5"});
  const Json saved =
      ok({"--json", "preset", "save", "Warm Light", "1", "--groups", "whiteBalance, light"}).json();
  const std::string warm = std::to_string(saved["id"].get<std::int64_t>());
  EXPECT_EQ(saved["groups"], Json::parse(R"(["whiteBalance","light"])"));
  ok({"preset", "save", "everything", "1", "--groups", "all"});
  ok({"preset", "save", "default groups", "1"});
  const Json list = ok({"--json", "preset", "list"}).json();
  ASSERT_EQ(list.size(), 3u);
  EXPECT_EQ(list[0]["name"], "default groups");
  EXPECT_EQ(list[0]["groups"].size(), 10u);
  EXPECT_EQ(list[1]["groups"].size(), 12u);

  // By id, by exact name, then a built-in look by name.
  ok({"edit", "2", "vibrance=40"});
  ok({"preset", "apply", warm, "2"});
  EXPECT_EQ(library.settings(2), (EditSettings{.temperature = 20, .exposure = 1}));
  ok({"preset", "apply", "everything", "3"});
  EXPECT_EQ(library.settings(3).crop.w, 0.5);
  EXPECT_EQ(ok({"--json", "preset", "apply", "Silver Gelatin B&W", "2,3"}).json()["kind"], "look");
  EXPECT_TRUE(library.settings(2).blackAndWhite);
  EXPECT_EQ(library.settings(3).crop.w, 0.5);  // looks keep the crop
  EXPECT_EQ(stepNames(3), (Args{"Import", "Preset: everything", "Preset: Silver Gelatin B&W"}));
  ok({"preset", "delete", warm});
  EXPECT_EQ(library.userPresets().size(), 2u);

  const std::string looks = ok({"looks"}).out;
  EXPECT_EQ(std::count(looks.begin(), looks.end(), '\n'), 18);
  EXPECT_EQ(looks.rfind("Natural Boost  ", 0), 0u) << looks;
  const Json all = ok({"--json", "looks"}).json();
  ASSERT_EQ(all.size(), 18u);
  EXPECT_EQ(std::pair(all[13]["name"], all[13]["category"]),
            std::pair(Json("Silver Gelatin B&W"), Json("Black & White")));
  EXPECT_EQ(all[13]["groups"].size(), BuiltInPresets::all().at(13).groups().size());
}

TEST_F(EditCliTest, CopySettingsPastesTheChosenGroups) {
  ok({"edit", "4", "exposure=0.7", "tint=5", "crop.h=0.5"});
  ok({"copy-settings", "4", "1-3"});
  for (std::int64_t id : {1, 2, 3}) {
    const EditSettings got = library.settings(id);
    // The RAW source's detail group comes along; its crop does not.
    EXPECT_EQ(std::tuple(got.exposure, got.tint, got.sharpenAmount, got.crop),
              std::tuple(0.7, 5, 25, CropRect{}));
    EXPECT_EQ(stepNames(id).back(), "Paste Settings");
  }
  EXPECT_EQ(ok({"--json", "copy-settings", "4", "4,1", "--groups", "geometry"}).json()["to"],
            Json::parse("[1]"));
  EXPECT_EQ(library.settings(1).crop.h, 0.5);
  EXPECT_EQ(stepNames(4).size(), 2u);
}

}  // namespace
