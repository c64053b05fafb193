#include <gtest/gtest.h>

#include <sstream>

#include "engine/render/tone_lut.h"
#include "tests/support/cli_run.h"

using namespace lumivale;
using test::Args;

namespace {

// A .cube file as another tool would read it.
struct ParsedCube {
  std::string title;
  int size = 0;
  std::vector<double> domainMin, domainMax;
  std::string comments;
  std::vector<double> values;  // R, G, B per entry, in file order
};

// Strict about what other tools rely on: keywords before the data, three
// numbers a line, six decimals at least, and the stated number of entries.
ParsedCube parseCube(const std::string& text) {
  ParsedCube cube;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream in(line);
    std::string key;
    in >> key;
    std::vector<double>* domain = key == "DOMAIN_MIN"   ? &cube.domainMin
                                  : key == "DOMAIN_MAX" ? &cube.domainMax
                                                        : nullptr;
    if (line.empty()) continue;
    if (line[0] == '#') {
      EXPECT_TRUE(cube.values.empty()) << "comment among the data: " << line;
      cube.comments += line + "\n";
    } else if (key == "TITLE") {
      const auto open = line.find('"'), close = line.rfind('"');
      EXPECT_NE(open, close) << line;
      cube.title = line.substr(open + 1, close - open - 1);
    } else if (key == "LUT_3D_SIZE") {
      in >> cube.size;
    } else if (domain) {
      for (double v; in >> v;) domain->push_back(v);
    } else {
      std::istringstream row(line);
      int count = 0;
      for (std::string field; row >> field; ++count) {
        const auto dot = field.find('.');
        EXPECT_TRUE(dot != std::string::npos && field.size() - dot - 1 >= 6) << line;
        cube.values.push_back(std::stod(field));
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
  for (std::size_t e = 0; e < cube.size() / 4; ++e)
    for (int c = 0; c < 3; ++c)
      ASSERT_NEAR(parsed.values[e * 3 + c], cube[e * 4 + c], 5.1e-7) << "entry " << e << " channel " << c;
}

EditSettings lookSettings() {
  EditSettings s{.temperature = 25, .tint = -10, .exposure = 1.5};  // exposure is not part of the cube
  s.contrast = 30, s.shadows = 20, s.highlights = -40, s.vibrance = 35, s.hsl[0] = {15, -20, 10};
  s.curveRGB.points = {{0, 0.04}, {0.5, 0.55}, {1, 0.96}};
  s.gradeShadows = {210, 25, 0}, s.gradeHighlights = {45, 20, 5};
  return s;
}

class LutCommandTest : public test::CliLibraryTest {
 protected:
  std::string file(const std::string& name, const std::string& content) {
    test::writeFile(dir / name, content);
    return (dir / name).string();
  }
  // A catalogued photo with the given stored edit (none when absent).
  std::string addPhoto(const std::string& name, bool raw, const std::optional<std::string>& edits) {
    return std::to_string(test::insertPhoto(
        library, (dir / name).string(),
        {{"raw", raw}, {"edits", edits ? SQLValue(Blob(edits->begin(), edits->end())) : SQLValue()}}));
  }
};

}  // namespace

TEST_F(LutCommandTest, SettingsFileOrPhotoGivesTheCubeOfItsSettings) {
  const EditSettings s = lookSettings();
  const ParsedCube parsed = parseCube(ok({"lut", "--settings", file("look.json", *s.encoded())}).out);
  EXPECT_EQ(parsed.size, 33);
  EXPECT_EQ(parsed.domainMin, (std::vector<double>{0, 0, 0}));
  EXPECT_EQ(parsed.domainMax, (std::vector<double>{1, 1, 1}));
  EXPECT_NE(parsed.title.find("look.json"), std::string::npos) << parsed.title;
  EXPECT_NE(parsed.title.find("gamma 2.2"), std::string::npos) << parsed.title;
  expectSameCube(parsed, ToneLUT::cube(ToneParams(s), LUTDomain::display, 33));

  // A photo's stored edit, in the scene domain, to a file.
  const std::string cube = (dir / "a.cube").string();
  const test::CliResult r =
      ok({"lut", addPhoto("a.jpg", false, s.encoded()), "--domain", "scene", "--size", "9", "-o", cube});
  EXPECT_NE(r.out.find("9x9x9, scene domain"), std::string::npos) << r.out;
  const ParsedCube scene = parseCube(test::readFile(cube));
  EXPECT_EQ(scene.size, 9);
  EXPECT_EQ(scene.domainMax, (std::vector<double>{1, 1, 1}));
  EXPECT_NE(scene.comments.find("divided by 4"), std::string::npos) << scene.comments;
  expectSameCube(scene, ToneLUT::cube(ToneParams(s), LUTDomain::scene, 9));

  // Unedited and damaged photos give the neutral cube; a settings file is
  // read key by key.
  const std::vector<float> neutral = ToneLUT::cube(ToneParams(), LUTDomain::display, 5);
  for (const std::string& id : {addPhoto("raw.nef", true, std::nullopt), addPhoto("plain.png", false, ""),
                                addPhoto("broken.jpg", false, "{not json")})
    expectSameCube(parseCube(ok({"lut", id, "--size", "5"}).out), neutral);
  const std::string partial = file("partial.json", R"({"contrast":"high","saturation":50,"hsl":7})");
  expectSameCube(parseCube(ok({"lut", "--size", "7", "--settings", partial}).out),
                 ToneLUT::cube(ToneParams(EditSettings{.saturation = 50}), LUTDomain::display, 7));
}

TEST_F(LutCommandTest, NeverReplacesAFileUnlessForced) {
  const std::string cube = file("look.cube", "precious"),
                    settings = file("look.json", *lookSettings().encoded());
  test::expectError(run({"lut", "--settings", settings, "-o", cube}), 1, "already exists");
  EXPECT_EQ(test::readFile(cube), "precious");

  const auto doc = ok({"--json", "lut", "--settings", settings, "-o", cube, "--force", "--size", "3"}).json();
  EXPECT_EQ(
      doc,
      (nlohmann::json{
          {"size", 3}, {"domain", "display"}, {"entries", 27}, {"file", cube}, {"source", "look.json"}}));
  expectSameCube(parseCube(test::readFile(cube)),
                 ToneLUT::cube(ToneParams(lookSettings()), LUTDomain::display, 3));
  // Nothing but the two files is left behind.
  int files = 0;
  for (auto& entry : std::filesystem::directory_iterator(dir.path())) files += entry.is_regular_file();
  EXPECT_EQ(files, 2);
}

TEST_F(LutCommandTest, RejectsWhatItCannotDo) {
  const std::string settings = file("look.json", "{}"), missing = (dir / "missing.json").string();
  using C = std::tuple<Args, int, const char*>;
  for (const auto& [args, status, message] :
       {C{{"lut"}, 2, "needs a photo id"}, C{{"lut", "1", "--settings", settings}, 2, "not both"},
        C{{"lut", "1", "2"}, 2, "one photo id"}, C{{"lut", "x"}, 2, "not a valid photo id"},
        C{{"lut", "--settings", settings, "--size", "1"}, 2, "2 to 129"},
        C{{"lut", "--settings", settings, "--size", "130"}, 2, "2 to 129"},
        C{{"lut", "--settings", settings, "--size", "big"}, 2, "cube size"},
        C{{"lut", "--settings", settings, "--domain", "linear"}, 2, "display or scene"},
        C{{"--json", "lut", "--settings", settings}, 2, "needs -o"},
        C{{"lut", "--settings", settings, "--bogus"}, 2, "unknown option"},
        C{{"lut", "99"}, 1, "no photo with id 99"}, C{{"lut", "--settings", missing}, 1, "cannot read"},
        C{{"lut", "--settings", dir.path().string()}, 1, "cannot read"},
        C{{"lut", "--settings", file("notes.json", "contrast up a bit")},
          1,
          "does not hold develop settings"},
        C{{"lut", "--settings", file("array.json", "[1, 2]")}, 1, "does not hold develop settings"},
        C{{"lut", "--settings", file("empty.json", "")}, 1, "does not hold develop settings"},
        C{{"lut", "--settings", settings, "-o", (dir / "no/such/folder/x.cube").string()},
          1,
          "cannot write"},
        C{{"lut", "--settings", settings, "-o", dir.path().string()}, 1, "is a folder"}}) {
    SCOPED_TRACE(args.back());
    test::expectError(run(args), status, message);
  }
}
