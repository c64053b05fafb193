#include <gtest/gtest.h>

#include <sstream>

#include "engine/render/tone_lut.h"
#include "tests/support/cli_run.h"

using namespace lumivale;

namespace {

// A .cube file as another tool would read it.
struct ParsedCube {
  std::string title;
  int size = 0;
  std::vector<double> domainMin, domainMax;
  std::vector<std::string> comments;
  std::vector<double> values;  // R, G, B per entry, in file order
};

std::vector<double> numbers(std::istringstream& line) {
  std::vector<double> out;
  double v;
  while (line >> v) out.push_back(v);
  return out;
}

// Strict about what other tools rely on: keywords before the data, three
// numbers a line, six decimals at least, and the stated number of entries.
ParsedCube parseCube(const std::string& text) {
  ParsedCube cube;
  std::istringstream lines(text);
  std::string line;
  bool data = false;
  while (std::getline(lines, line)) {
    if (line.empty()) continue;
    if (line[0] == '#') {
      EXPECT_FALSE(data) << "comment among the data: " << line;
      cube.comments.push_back(line);
      continue;
    }
    std::istringstream in(line);
    std::string key;
    in >> key;
    if (key == "TITLE") {
      auto open = line.find('"'), close = line.rfind('"');
      EXPECT_NE(open, close) << line;
      cube.title = line.substr(open + 1, close - open - 1);
    } else if (key == "LUT_3D_SIZE") {
      in >> cube.size;
    } else if (key == "DOMAIN_MIN") {
      cube.domainMin = numbers(in);
    } else if (key == "DOMAIN_MAX") {
      cube.domainMax = numbers(in);
    } else {
      data = true;
      std::istringstream row(line);
      std::string field;
      int count = 0;
      while (row >> field) {
        auto dot = field.find('.');
        EXPECT_TRUE(dot != std::string::npos && field.size() - dot - 1 >= 6) << line;
        cube.values.push_back(std::stod(field));
        ++count;
      }
      EXPECT_EQ(count, 3) << line;
    }
  }
  EXPECT_EQ(cube.values.size(), std::size_t(cube.size) * cube.size * cube.size * 3);
  return cube;
}

// The parsed values against the engine's cube, entry by entry.
void expectSameCube(const ParsedCube& parsed, const std::vector<float>& cube) {
  ASSERT_EQ(parsed.values.size() / 3, cube.size() / 4);
  for (std::size_t e = 0; e < cube.size() / 4; ++e) {
    for (int c = 0; c < 3; ++c) {
      ASSERT_NEAR(parsed.values[e * 3 + c], cube[e * 4 + c], 5.1e-7) << "entry " << e << " channel " << c;
    }
  }
}

EditSettings lookSettings() {
  EditSettings s;
  s.temperature = 25, s.tint = -10, s.contrast = 30, s.shadows = 20, s.highlights = -40;
  s.curveRGB.points = {{0, 0.04}, {0.5, 0.55}, {1, 0.96}};
  s.hsl[0] = {15, -20, 10};
  s.vibrance = 35;
  s.gradeShadows = {210, 25, 0};
  s.gradeHighlights = {45, 20, 5};
  s.exposure = 1.5;  // not part of the cube
  return s;
}

class LutCommandTest : public test::CliLibraryTest {
 protected:
  std::string writeSettings(const std::string& name, const std::string& json) {
    auto path = dir / name;
    test::writeFile(path, json);
    return path.string();
  }

  // A catalogued photo with the given stored edit (none when absent).
  std::int64_t addPhoto(const std::string& name, bool raw, const std::optional<std::string>& edits) {
    return test::insertPhoto(
        library, (dir / name).string(),
        {{"raw", raw}, {"edits", edits ? SQLValue(Blob(edits->begin(), edits->end())) : SQLValue()}});
  }
};

}  // namespace

TEST_F(LutCommandTest, SettingsFileGoesToStandardOutputAsACube) {
  const EditSettings s = lookSettings();
  auto r = run({"lut", "--settings", writeSettings("look.json", *s.encoded())});
  ASSERT_EQ(r.status, 0) << r.err;
  ParsedCube parsed = parseCube(r.out);
  EXPECT_EQ(parsed.size, 33);
  EXPECT_EQ(parsed.domainMin, (std::vector<double>{0, 0, 0}));
  EXPECT_EQ(parsed.domainMax, (std::vector<double>{1, 1, 1}));
  EXPECT_NE(parsed.title.find("look.json"), std::string::npos) << parsed.title;
  EXPECT_NE(parsed.title.find("gamma 2.2"), std::string::npos) << parsed.title;
  expectSameCube(parsed, ToneLUT::cube(ToneParams(s), LUTDomain::display, 33));
}

TEST_F(LutCommandTest, PhotoCubeUsesTheStoredEdit) {
  const EditSettings s = lookSettings();
  const std::int64_t id = addPhoto("a.jpg", false, s.encoded());
  const std::string file = (dir / "a.cube").string();
  auto r = run({"lut", std::to_string(id), "--domain", "scene", "--size", "9", "-o", file});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.out.find("9x9x9, scene domain"), std::string::npos) << r.out;
  ParsedCube parsed = parseCube(test::readFile(file));
  EXPECT_EQ(parsed.size, 9);
  EXPECT_EQ(parsed.domainMax, (std::vector<double>{1, 1, 1}));
  bool saysScaled = false;
  for (const std::string& c : parsed.comments)
    saysScaled = saysScaled || c.find("divided by 4") != std::string::npos;
  EXPECT_TRUE(saysScaled);
  expectSameCube(parsed, ToneLUT::cube(ToneParams(s), LUTDomain::scene, 9));
}

TEST_F(LutCommandTest, UneditedAndDamagedPhotosGiveTheNeutralCube) {
  const std::vector<float> neutral = ToneLUT::cube(ToneParams(), LUTDomain::display, 5);
  for (auto [name, raw, edits] :
       {std::tuple<std::string, bool, std::optional<std::string>>{"raw.nef", true, std::nullopt},
        {"plain.png", false, std::string()},
        {"broken.jpg", false, std::string("{not json")}}) {
    const std::int64_t id = addPhoto(name, raw, edits);
    auto r = run({"lut", std::to_string(id), "--size", "5"});
    ASSERT_EQ(r.status, 0) << name << ": " << r.err;
    expectSameCube(parseCube(r.out), neutral);
  }
}

TEST_F(LutCommandTest, SettingsFileIsReadKeyByKey) {
  EditSettings s;
  s.saturation = 50;
  auto r = run({"lut", "--size", "7", "--settings",
                writeSettings("partial.json", R"({"contrast":"high","saturation":50,"hsl":7})")});
  ASSERT_EQ(r.status, 0) << r.err;
  expectSameCube(parseCube(r.out), ToneLUT::cube(ToneParams(s), LUTDomain::display, 7));
}

TEST_F(LutCommandTest, NeverReplacesAFileUnlessForced) {
  const std::string file = (dir / "look.cube").string();
  test::writeFile(file, "precious");
  const std::string settings = writeSettings("look.json", *lookSettings().encoded());
  auto r = run({"lut", "--settings", settings, "-o", file});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("already exists"), std::string::npos) << r.err;
  EXPECT_EQ(test::readFile(file), "precious");

  r = run({"--json", "lut", "--settings", settings, "-o", file, "--force", "--size", "3"});
  ASSERT_EQ(r.status, 0) << r.err;
  auto doc = r.json();
  EXPECT_EQ(doc["size"], 3);
  EXPECT_EQ(doc["domain"], "display");
  EXPECT_EQ(doc["entries"], 27);
  EXPECT_EQ(doc["file"], file);
  expectSameCube(parseCube(test::readFile(file)),
                 ToneLUT::cube(ToneParams(lookSettings()), LUTDomain::display, 3));

  // Nothing but the two files is left behind.
  int files = 0;
  for (auto& entry : std::filesystem::directory_iterator(dir.path())) files += entry.is_regular_file();
  EXPECT_EQ(files, 2);
}

TEST_F(LutCommandTest, RejectsWhatItCannotDo) {
  const std::string settings = writeSettings("look.json", "{}");
  const std::string notJson = writeSettings("notes.json", "contrast up a bit");
  const std::string array = writeSettings("array.json", "[1, 2]");
  const std::string empty = writeSettings("empty.json", "");
  struct Case {
    std::vector<std::string> args;
    int status;
    std::string message;
  };
  const Case cases[] = {
      {{"lut"}, 2, "needs a photo id"},
      {{"lut", "1", "--settings", settings}, 2, "not both"},
      {{"lut", "1", "2"}, 2, "one photo id"},
      {{"lut", "x"}, 2, "not a valid photo id"},
      {{"lut", "--settings", settings, "--size", "1"}, 2, "2 to 129"},
      {{"lut", "--settings", settings, "--size", "130"}, 2, "2 to 129"},
      {{"lut", "--settings", settings, "--size", "big"}, 2, "cube size"},
      {{"lut", "--settings", settings, "--domain", "linear"}, 2, "display or scene"},
      {{"--json", "lut", "--settings", settings}, 2, "needs -o"},
      {{"lut", "--settings", settings, "--bogus"}, 2, "unknown option"},
      {{"lut", "99"}, 1, "no photo with id 99"},
      {{"lut", "--settings", (dir / "missing.json").string()}, 1, "cannot read"},
      {{"lut", "--settings", dir.path().string()}, 1, "cannot read"},
      {{"lut", "--settings", notJson}, 1, "does not hold develop settings"},
      {{"lut", "--settings", array}, 1, "does not hold develop settings"},
      {{"lut", "--settings", empty}, 1, "does not hold develop settings"},
      {{"lut", "--settings", settings, "-o", (dir / "no/such/folder/x.cube").string()}, 1, "cannot create"},
      {{"lut", "--settings", settings, "-o", dir.path().string()}, 1, "is a folder"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.args.back());
    test::expectError(run(c.args), c.status, c.message);
  }
}
