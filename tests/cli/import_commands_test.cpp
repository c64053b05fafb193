#include <gtest/gtest.h>

#include "tests/support/cli_run.h"
#include "tests/support/sample_photos.h"

using namespace lumivale;

namespace {

class ImportCommandsTest : public test::CliLibraryTest {
 protected:
  void makePhotos() {
    test::writePhoto(dir / "photos/a.jpg", 24, 16,
                     {.make = "Canon",
                      .model = "Canon EOS R5",
                      .exposure = {{1, 125}},
                      .fNumber = {{8, 1}},
                      .focal = {{35, 1}},
                      .iso = 100,
                      .keywords = {"Harbour"}});
    test::writePhoto(dir / "photos/sub/b.png", 24, 16);
    test::writeFile(dir / "photos/broken.jpg", "not a photo");
  }
};

}  // namespace

TEST_F(ImportCommandsTest, ImportPrintsWhatItDid) {
  makePhotos();
  auto r = run({"import", (dir / "photos").string()});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out.rfind("Imported 2 photos in ", 0), 0u) << r.out;
  EXPECT_NE(r.out.find("s, 1 could not be read\n"), std::string::npos) << r.out;
  EXPECT_EQ(r.err, "");  // no progress bar when stderr is not a terminal

  r = run({"--json", "import", (dir / "photos").string()});
  ASSERT_EQ(r.status, 0) << r.err;
  auto doc = r.json();
  EXPECT_EQ(doc["added"], 0);
  EXPECT_EQ(doc["skipped"], 2);
  EXPECT_EQ(doc["failed"], 1);
  EXPECT_GE(doc["seconds"].get<double>(), 0);

  test::writePhoto(dir / "photos/c.jpg", 8, 8);
  r = run({"import", "--no-recursive", (dir / "photos").string()});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out.rfind("Imported 1 photo in ", 0), 0u) << r.out;
  EXPECT_NE(r.out.find("s (1 already in the library), 1 could not be read\n"), std::string::npos) << r.out;
}

TEST_F(ImportCommandsTest, ImportFailsOnAFolderItCannotRead) {
  test::expectError(run({"import", (dir / "nowhere").string()}), 1, "nowhere");
  EXPECT_EQ(run({"import"}).status, 2);
  EXPECT_EQ(run({"import", "a", "b"}).status, 2);
  EXPECT_EQ(run({"import", "--deep", "a"}).status, 2);
}

TEST_F(ImportCommandsTest, ShowPrintsTheRecord) {
  makePhotos();
  ASSERT_EQ(run({"import", (dir / "photos").string()}).status, 0);
  auto r = run({"--json", "show", "1"});
  ASSERT_EQ(r.status, 0) << r.err;
  auto doc = r.json();
  EXPECT_EQ(doc["name"], "a.jpg");
  EXPECT_EQ(doc["camera"], "Canon EOS R5");
  EXPECT_EQ(doc["shutterText"], "1/125 s");
  EXPECT_EQ(doc["summary"], "ISO 100  \u00b7  1/125 s  \u00b7  f/8.0  \u00b7  35 mm");

  r = run({"show", "1"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.out.find("Camera:       Canon EOS R5\n"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("Summary:      ISO 100  \u00b7  1/125 s"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("Pixels:       24 \u00d7 16\n"), std::string::npos) << r.out;

  r = run({"show", "99"});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "error: there is no photo with id 99\n");
  EXPECT_EQ(run({"show", "x"}).status, 2);
}

TEST_F(ImportCommandsTest, DetailsPrintsTheRowsInOrder) {
  makePhotos();
  ASSERT_EQ(run({"import", (dir / "photos").string()}).status, 0);
  auto r = run({"details", "1"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out.rfind("Camera make: Canon\nCamera model: Canon EOS R5\n", 0), 0u) << r.out;
  EXPECT_NE(r.out.find("\nShutter speed: 1/125 s\nAperture: f/8.0\nISO: 100\nFocal length: 35 mm\n"),
            std::string::npos)
      << r.out;

  r = run({"--json", "details", "1"});
  ASSERT_EQ(r.status, 0) << r.err;
  auto doc = r.json();
  ASSERT_TRUE(doc.is_array());
  ASSERT_GE(doc.size(), 2u);
  EXPECT_EQ(doc[0], (nlohmann::json{{"label", "Camera make"}, {"value", "Canon"}}));
  EXPECT_EQ(doc[1]["label"], "Camera model");

  // A file gone since import has no details, and says so.
  std::filesystem::remove(dir / "photos/a.jpg");
  r = run({"--json", "details", "1"});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.json(), nlohmann::json::array());
  r = run({"details", "1"});
  EXPECT_EQ(r.out, "");
  EXPECT_NE(r.err.find("cannot be read"), std::string::npos);
  EXPECT_EQ(run({"details", "42"}).status, 1);
}
