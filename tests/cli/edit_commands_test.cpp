#include <gtest/gtest.h>

#include "tests/support/cli_run.h"

using namespace lumivale;
using Json = nlohmann::json;

namespace {

// Photos 1 to 3 are JPEG files, photo 4 a RAW file, made directly in the
// catalog.
class EditCliTest : public test::CliLibraryTest {
 protected:
  void SetUp() override {
    for (int i = 1; i <= 4; ++i) addPhoto("/p/" + std::to_string(i), {{"raw", i == 4}});
  }

  std::vector<std::string> stepNames(std::int64_t id) {
    std::vector<std::string> names;
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
  test::CliResult r = ok({"--json", "settings", "4"});
  EXPECT_EQ(r.json()["sharpenAmount"], 25);
  EXPECT_EQ(r.json()["noiseColor"], 25);
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
  EditSettings s = library.settings(1);
  EXPECT_EQ(s.exposure, 0.5);
  EXPECT_EQ(s.hsl[5].saturation, 20);
  EXPECT_EQ(s.crop.w, 0.5);
  EXPECT_EQ(s.cropAspect, "1 : 1");
  EXPECT_TRUE(s.blackAndWhite);
  EXPECT_EQ(s.curveRGB.points, (std::vector<CurvePoint>{{0, 0.1}, {1, 0.9}}));
  EXPECT_EQ(stepNames(1),
            (std::vector<std::string>{
                "Import", "Edit exposure, hsl.5.saturation, crop.w, cropAspect, blackAndWhite, curveRGB"}));

  // Quoted JSON text and a later assignment inside an earlier one.
  ok({"edit", "1", R"(cropAspect="16 : 9")", R"(masks=[])", "crop={\"x\":0.1,\"y\":0,\"w\":0.5,\"h\":1}",
      "crop.y=0.2", "--step", "Crop"});
  EXPECT_EQ(library.settings(1).crop, (CropRect{0.1, 0.2, 0.5, 1}));
  EXPECT_EQ(library.settings(1).cropAspect, "16 : 9");
  EXPECT_EQ(stepNames(1).back(), "Crop");

  // Without a step the history stays; with no change nothing is recorded.
  r = ok({"--json", "edit", "1", "exposure=-1", "--no-step"});
  EXPECT_EQ(r.json()["step"], nullptr);
  EXPECT_EQ(r.json()["position"], 3);
  EXPECT_EQ(library.settings(1).exposure, -1);
  EXPECT_EQ(stepNames(1).size(), 3u);
  r = ok({"--json", "edit", "1", "exposure=-1"});
  EXPECT_EQ(r.json()["changed"], false);
  EXPECT_EQ(stepNames(1).size(), 3u);
}

TEST_F(EditCliTest, EditMasksOfAPhotoByIndex) {
  EditSettings s;
  s.masks = {PhotoMask(MaskKind::radial), PhotoMask(MaskKind::brush)};
  library.saveSettings(2, s, "masks");
  ok({"edit", "2", "masks.1.adjust.exposure=1", "masks.0.name=Sky glow", "masks.0.invert=true"});
  EditSettings got = library.settings(2);
  EXPECT_EQ(got.masks[1].adjust.exposure, 1);
  EXPECT_EQ(got.masks[0].name, "Sky glow");
  EXPECT_TRUE(got.masks[0].invert);
  EXPECT_EQ(got.masks[0].id, s.masks[0].id);
}

TEST_F(EditCliTest, BadAssignmentsChangeNothing) {
  library.saveSettings(1, EditSettings{}, "start");
  const std::string before = dump();
  struct Case {
    std::vector<std::string> args;
    int status;
  };
  for (const Case& c : std::vector<Case>{
           {{"edit", "1", "expo=1"}, 2},
           {{"edit", "1", "exposure"}, 2},
           {{"edit", "1", "=1"}, 2},
           {{"edit", "1", "crop..w=1"}, 2},
           {{"edit", "1", "hsl.8.hue=1"}, 2},
           {{"edit", "1", "hsl.x.hue=1"}, 2},
           {{"edit", "1", "hsl.-1.hue=1"}, 2},
           {{"edit", "1", "masks.0.adjust.exposure=1"}, 2},
           {{"edit", "1", "exposure.x=1"}, 2},
           {{"edit", "1", "exposure=abc"}, 2},
           {{"edit", "1", "exposure=\"1\""}, 2},
           {{"edit", "1", "exposure=1e999"}, 2},
           {{"edit", "1", "blackAndWhite=1"}, 2},
           {{"edit", "1", "rotateQuarterTurns=1.5"}, 2},
           {{"edit", "1", "crop={\"x\":0}"}, 2},
           {{"edit", "1", "hsl=[]"}, 2},
           {{"edit", "1", "masks=[{\"kind\":\"brush\"}]"}, 2},
           {{"edit", "1", "exposure=1", "tint=null"}, 2},
           {{"edit", "1", "exposure=1", "--step", "x", "--no-step"}, 2},
           {{"edit", "1"}, 2},
           {{"edit", "9", "exposure=1"}, 1},
           {{"undo", "2"}, 1},
           {{"redo", "1"}, 1},
           {{"goto", "1", "3"}, 1},
           {{"goto", "1", "0"}, 2},
           {{"goto", "9", "1"}, 1},
           {{"snapshot", "add", "9", "x"}, 1},
           {{"snapshot", "add", "1", " "}, 2},
           {{"snapshot", "apply", "5"}, 1},
           {{"snapshot", "delete", "x"}, 2},
           {{"snapshot", "take", "1"}, 2},
           {{"preset", "save", "p", "1", "--groups", "light,bogus"}, 2},
           {{"preset", "save", "p", "1", "--groups", ","}, 2},
           {{"preset", "save", "p", "9"}, 1},
           {{"preset", "delete", "3"}, 1},
           {{"preset", "apply", "No Such Look", "1"}, 1},
           {{"preset", "apply", "natural boost", "1"}, 1},
           {{"preset", "apply", "Natural Boost", "1,9"}, 1},
           {{"preset", "list", "--groups", "light"}, 2},
           {{"copy-settings", "1", "2", "--groups", "Light"}, 2},
           {{"copy-settings", "1", "1"}, 2},
           {{"copy-settings", "9", "1"}, 1},
           {{"copy-settings", "1", "2,9"}, 1},
       }) {
    SCOPED_TRACE(c.args[1] + " " + c.args.back());
    test::expectError(run(c.args), c.status);
  }
  EXPECT_EQ(dump(), before);
}

TEST_F(EditCliTest, UndoRedoAndGotoMoveWithinTheHistory) {
  for (const char* value : {"exposure=1", "exposure=2", "exposure=3"}) ok({"edit", "3", value});
  test::CliResult r = ok({"--json", "undo", "3"});
  EXPECT_EQ(r.json()["position"], 3);
  EXPECT_EQ(r.json()["step"]["name"], "Edit exposure");
  EXPECT_EQ(library.settings(3).exposure, 2);
  ok({"goto", "3", "1"});
  EXPECT_EQ(library.settings(3).exposure, 0);
  EXPECT_FALSE(library.photo(3)->edited);
  r = run({"undo", "3"});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("nothing to undo"), std::string::npos);
  ok({"redo", "3"});
  ok({"goto", "3", "4"});
  EXPECT_EQ(library.settings(3).exposure, 3);
  r = run({"redo", "3"});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("nothing to redo"), std::string::npos);

  // The text list marks the current step.
  ok({"goto", "3", "2"});
  r = ok({"history", "3"});
  std::istringstream lines(r.out);
  std::vector<std::string> marked;
  for (std::string line; std::getline(lines, line);) {
    if (line.rfind("> ", 0) == 0) marked.push_back(line);
  }
  ASSERT_EQ(marked.size(), 1u) << r.out;
  EXPECT_NE(marked[0].find("2  Edit exposure"), std::string::npos) << marked[0];
  r = ok({"--json", "history", "3"});
  EXPECT_EQ(r.json()["steps"].size(), 4u);
  EXPECT_EQ(r.json()["steps"][1]["current"], true);
  EXPECT_EQ(ok({"history", "1"}).out, "Photo 1 has no history.\n");
}

TEST_F(EditCliTest, SnapshotsAreTakenAppliedAndDeleted) {
  ok({"edit", "1", "exposure=1.5"});
  test::CliResult r = ok({"--json", "snapshot", "add", "1", "Bright", "version"});
  const std::int64_t snap = r.json()["id"];
  EXPECT_EQ(r.json()["name"], "Bright version");
  ok({"edit", "1", "exposure=-2"});
  ok({"snapshot", "apply", std::to_string(snap)});
  EXPECT_EQ(library.settings(1).exposure, 1.5);
  EXPECT_EQ(stepNames(1).back(), "Snapshot: Bright version");
  r = ok({"--json", "snapshot", "list", "1"});
  ASSERT_EQ(r.json().size(), 1u);
  EXPECT_EQ(r.json()[0]["photo"], 1);
  ok({"snapshot", "delete", std::to_string(snap)});
  EXPECT_TRUE(library.snapshots(1).empty());
}

TEST_F(EditCliTest, PresetsAreSavedWithTheirGroupsAndApplied) {
  ok({"edit", "1", "exposure=1", "temperature=20", "crop.w=0.5"});
  test::CliResult r = ok({"--json", "preset", "save", "Warm Light", "1", "--groups", "whiteBalance, light"});
  const std::int64_t warm = r.json()["id"];
  EXPECT_EQ(r.json()["groups"], Json::parse(R"(["whiteBalance","light"])"));
  ok({"preset", "save", "everything", "1", "--groups", "all"});
  ok({"preset", "save", "default groups", "1"});
  r = ok({"--json", "preset", "list"});
  ASSERT_EQ(r.json().size(), 3u);
  EXPECT_EQ(r.json()[0]["name"], "default groups");
  EXPECT_EQ(r.json()[0]["groups"].size(), 10u);
  EXPECT_EQ(r.json()[1]["groups"].size(), 12u);

  // By id, by exact name, then a built-in look by name.
  ok({"edit", "2", "vibrance=40"});
  ok({"preset", "apply", std::to_string(warm), "2"});
  EditSettings got = library.settings(2);
  EXPECT_EQ(got.exposure, 1);
  EXPECT_EQ(got.temperature, 20);
  EXPECT_EQ(got.vibrance, 0);
  EXPECT_EQ(got.crop, CropRect{});
  ok({"preset", "apply", "everything", "3"});
  EXPECT_EQ(library.settings(3).crop.w, 0.5);
  r = ok({"--json", "preset", "apply", "Silver Gelatin B&W", "2,3"});
  EXPECT_EQ(r.json()["kind"], "look");
  EXPECT_TRUE(library.settings(2).blackAndWhite);
  EXPECT_EQ(library.settings(3).crop.w, 0.5);  // looks keep the crop
  EXPECT_EQ(stepNames(3),
            (std::vector<std::string>{"Import", "Preset: everything", "Preset: Silver Gelatin B&W"}));

  ok({"preset", "delete", std::to_string(warm)});
  EXPECT_EQ(library.userPresets().size(), 2u);
}

TEST_F(EditCliTest, LooksListsEveryBuiltInLook) {
  test::CliResult r = ok({"looks"});
  EXPECT_EQ(std::count(r.out.begin(), r.out.end(), '\n'), 18);
  EXPECT_EQ(r.out.rfind("Natural Boost  ", 0), 0u) << r.out;
  r = ok({"--json", "looks"});
  ASSERT_EQ(r.json().size(), 18u);
  EXPECT_EQ(r.json()[13]["name"], "Silver Gelatin B&W");
  EXPECT_EQ(r.json()[13]["category"], "Black & White");
  for (const Json& look : r.json()) {
    for (const Json& group : look["groups"]) {
      EXPECT_NE(group, "geometry");
      EXPECT_NE(group, "masks");
    }
  }
}

TEST_F(EditCliTest, CopySettingsPastesTheChosenGroups) {
  ok({"edit", "4", "exposure=0.7", "tint=5", "crop.h=0.5"});
  ok({"copy-settings", "4", "1-3"});
  for (std::int64_t id : {1, 2, 3}) {
    EditSettings got = library.settings(id);
    EXPECT_EQ(got.exposure, 0.7);
    EXPECT_EQ(got.tint, 5);
    EXPECT_EQ(got.sharpenAmount, 25);  // the RAW source's detail group
    EXPECT_EQ(got.crop, CropRect{});
    EXPECT_EQ(stepNames(id).back(), "Paste Settings");
  }
  test::CliResult r = ok({"--json", "copy-settings", "4", "4,1", "--groups", "geometry"});
  EXPECT_EQ(r.json()["to"], Json::parse("[1]"));
  EXPECT_EQ(library.settings(1).crop.h, 0.5);
  EXPECT_EQ(stepNames(4).size(), 2u);
}

}  // namespace
