#include <gtest/gtest.h>

#include "tests/support/cli_run.h"
#include "tests/support/sample_photos.h"

using namespace lumivale;
using Json = nlohmann::json;

namespace {

class ImportCommandsTest : public test::CliLibraryTest {
 protected:
  void SetUp() override {
    test::SampleTags tags{
        .make = "Canon", .model = "Canon EOS R5", .exposure = {{1, 125}}, .fNumber = {{8, 1}}};
    tags.focal = {{35, 1}}, tags.iso = 100, tags.keywords = {"Harbour", " CT "};
    tags.artist = "Ann\x1b]0;owned\x07";
    test::writePhoto(photos / "a.jpg", 24, 16, tags);
    test::writePhoto(photos / "sub/b.png", 24, 16);
    test::writeFile(photos / "broken.jpg", "not a photo");
  }
  const std::filesystem::path photos = dir / "photos";
};

}  // namespace

TEST_F(ImportCommandsTest, ImportPrintsWhatItDid) {
  test::CliResult r = ok({"import", photos.string()});
  EXPECT_EQ(r.out.rfind("Imported 2 photos in ", 0), 0u) << r.out;
  EXPECT_NE(r.out.find("s, 1 could not be read\n"), std::string::npos) << r.out;
  EXPECT_EQ(r.err, "");  // no progress bar when stderr is not a terminal

  const Json doc = ok({"--json", "import", photos.string()}).json();
  EXPECT_EQ(std::tuple(doc["added"], doc["skipped"], doc["failed"]), std::tuple(Json(0), Json(2), Json(1)));
  EXPECT_GE(doc["seconds"].get<double>(), 0);

  test::writePhoto(photos / "c.jpg", 8, 8);
  r = ok({"import", "--no-recursive", photos.string()});
  EXPECT_EQ(r.out.rfind("Imported 1 photo in ", 0), 0u) << r.out;
  EXPECT_NE(r.out.find("s (1 already in the library), 1 could not be read\n"), std::string::npos) << r.out;

  test::expectError(run({"import", (dir / "nowhere").string()}), 1, "nowhere");
  expectRefused(2,
                {test::Args{"import"}, test::Args{"import", "a", "b"}, test::Args{"import", "--deep", "a"}});
}

TEST_F(ImportCommandsTest, ShowAndDetailsPrintTheRecordAndTheRowsInOrder) {
  ok({"import", photos.string()});
  const Json doc = ok({"--json", "show", "1"}).json();
  EXPECT_EQ(std::tuple(doc["name"], doc["camera"], doc["shutterText"], doc["summary"]),
            std::tuple(Json("a.jpg"), Json("Canon EOS R5"), Json("1/125 s"),
                       Json("ISO 100  \u00b7  1/125 s  \u00b7  f/8.0  \u00b7  35 mm")));
  const std::string out = ok({"show", "1"}).out;
  for (const char* line : {"Camera:       Canon EOS R5\n", "Summary:      ISO 100  \u00b7  1/125 s",
                           "Pixels:       24 \u00d7 16\n", "Focal length: 35 mm\n"})
    EXPECT_NE(out.find(line), std::string::npos) << out;
  // The focal length line and the summary round alike, halves up.
  for (auto [focal, shown] : {std::pair(4.5, "5 mm"), {3.5, "4 mm"}}) {
    library.db().run("UPDATE photos SET focal = ? WHERE id = 1", {focal});
    const std::string text = ok({"show", "1"}).out;
    EXPECT_NE(text.find("Focal length: " + std::string(shown) + "\n"), std::string::npos) << text;
    EXPECT_NE(text.find("f/8.0  \u00b7  " + std::string(shown) + "\n"), std::string::npos) << text;
  }
  test::expectError(run({"show", "99"}), 1);
  EXPECT_EQ(run({"show", "99"}).err, "error: no photo with id 99\n");
  test::expectError(run({"show", "x"}), 2);

  const std::string details = ok({"details", "1"}).out;
  EXPECT_EQ(details.rfind("Camera make: Canon\nCamera model: Canon EOS R5\n", 0), 0u) << details;
  EXPECT_NE(details.find("\nShutter speed: 1/125 s\nAperture: f/8.0\nISO: 100\nFocal length: 35 mm\n"),
            std::string::npos)
      << details;
  EXPECT_NE(details.find("\nArtist: Ann\\e]0;owned\\x07\n"), std::string::npos) << details;
  // Keywords read from the file are stored as typed ones are.
  EXPECT_EQ(ok({"keyword", "remove", "1", "ct"}).out, "Removed ct from 1 photo\n");
  const Json rows = ok({"--json", "details", "1"}).json();
  ASSERT_TRUE(rows.is_array() && rows.size() >= 2) << rows;
  EXPECT_EQ(rows[0], (Json{{"label", "Camera make"}, {"value", "Canon"}}));
  EXPECT_EQ(rows[1]["label"], "Camera model");

  // A file gone since import has no details, and says so.
  std::filesystem::remove(photos / "a.jpg");
  EXPECT_EQ(ok({"--json", "details", "1"}).json(), Json::array());
  const test::CliResult r = run({"details", "1"});
  EXPECT_EQ(r.out, "");
  EXPECT_NE(r.err.find("cannot be read"), std::string::npos);
  EXPECT_EQ(run({"details", "42"}).status, 1);
}
