#include <gtest/gtest.h>

#include "engine/media/image_decoder.h"
#include "engine/media/photo_file.h"
#include "tests/support/cli_run.h"
#include "tests/support/sample_photos.h"
#include "tests/support/temp_dir.h"

using namespace lumivale;
using test::Args;

namespace {

struct RenderCommandTest : test::CliLibraryTest {
  test::TempDir dir;
  std::string photo = (dir / "photo.jpg").string();
  void SetUp() override { test::writePhoto(photo, 300, 200); }
  std::string path(const char* name) { return (dir / name).string(); }
};

}  // namespace

TEST_F(RenderCommandTest, WritesTheDevelopedPictureAtTheAskedSizeAndSpace) {
  ok({"import", dir.path().string()});  // the photo only, as photo 1
  ok({"render", photo, "--size", "150", "-o", path("a.png")});
  ok({"render", photo, "--full", "--edit", "exposure=1", "--color-space", "adobeRGB", "--16bit", "-o",
      path("b.tif")});
  for (auto [name, width] : {std::pair("a.png", 150), std::pair("b.tif", 300)}) {
    const auto header = ImageDecoder::readHeader(path(name));
    EXPECT_EQ(header.width, width) << name;
  }
  // A catalog photo develops with its stored settings.
  ok({"edit", "1", "crop.w=0.5"});
  const test::CliResult r = ok({"--json", "render", "1", "-o", path("c.jpg")});
  EXPECT_EQ(r.json()["width"], 150);

  // Histogram and sample read the same render.
  EXPECT_EQ(ok({"--json", "histogram", photo}).json()["l"].size(), 64u);
  const auto mean = ok({"--json", "sample", photo, "0.5", "0.5", "--radius", "0"}).json();
  EXPECT_GE(mean["r"].get<double>(), 0);
}

TEST_F(RenderCommandTest, BadInputIsOneClearErrorAndWritesNothing) {
  test::writeFile(dir / "notes.json", "contrast up");
  test::writeFile(dir / "lying.jpg", "not a picture at all");
  test::writeFile(dir / "taken.png", "keep me");
  const std::string cut = test::jpegBytes(64, 48);
  test::writeFile(dir / "empty.jpg", "");
  expectRefused(1, {{"render", path("missing.jpg"), "-o", path("x.png")},
                    {"render", path("lying.jpg"), "-o", path("x.png")},
                    {"render", path("empty.jpg"), "-o", path("x.png")},
                    {"render", photo, "--settings", path("notes.json"), "-o", path("x.png")},
                    {"render", photo, "--mask-overlay", "3", "-o", path("x.png")},
                    {"render", photo, "-o", path("no/such/x.png")},
                    {"render", photo, "-o", path("taken.png")},
                    {"render", "99", "-o", path("x.png")}});
  expectRefused(2, {{"render", photo, "-o", path("x.gif")},
                    {"render", photo, "--16bit", "-o", path("x.jpg")},
                    {"render", photo, "--size", "0", "-o", path("x.png")},
                    {"render", photo, "--edit", "nosuch=1", "-o", path("x.png")},
                    {"render", photo, "--color-space", "rec2020", "-o", path("x.png")},
                    {"sample", photo, "1.5", "0"}});
  EXPECT_EQ(test::readFile(dir / "taken.png"), "keep me");
  EXPECT_FALSE(std::filesystem::exists(dir / "x.png"));
}
