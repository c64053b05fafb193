#include <gtest/gtest.h>

#include "engine/render/mask_files.h"
#include "engine/render/mask_renderer.h"
#include "tests/support/cli_run.h"

using namespace lumivale;

namespace {

MaskBitmap pattern(int width, int height) {
  MaskBitmap bitmap(width, height, 0);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x)
      bitmap.bytes[y * width + x] = static_cast<std::uint8_t>((x * 7 + y * 13) % 256);
  }
  return bitmap;
}

// One JPEG photo, 300 × 200 as displayed, made directly in the catalog.
class MaskCliTest : public test::CliLibraryTest {
 protected:
  void SetUp() override { addPhoto("/p/a.jpg", {{"width", 300}, {"height", 200}}); }
};

TEST_F(MaskCliTest, ImportedMaskSurvivesExportAndReimportBitForBit) {
  const MaskBitmap original = pattern(257, 93);
  writeMaskPNG(original, dir / "in.png");

  auto r =
      run({"--json", "mask", "import", "1", (dir / "in.png").string(), "--kind", "sky", "--name", "Sky!"});
  ASSERT_EQ(r.status, 0) << r.err;
  const std::string id = r.json()["mask"]["id"];
  const auto& masks = library.settings(1).masks;
  ASSERT_EQ(masks.size(), 1u);
  EXPECT_EQ(masks[0].kind, MaskKind::sky);
  EXPECT_EQ(masks[0].name, "Sky!");
  EXPECT_EQ(MaskBitmap::decode(*masks[0].maskPNG), original);
  EXPECT_EQ(library.history(1).steps.back().name, "Import Mask");

  // Out through a file, back in as a second mask, out again: the same bytes.
  ASSERT_EQ(run({"mask", "export", "1", id.substr(0, 8), "-o", (dir / "a.png").string()}).status, 0);
  ASSERT_EQ(run({"mask", "import", "1", (dir / "a.png").string()}).status, 0);
  ASSERT_EQ(run({"mask", "export", "1", "1", "-o", (dir / "b.png").string()}).status, 0);
  EXPECT_EQ(maskBitmapFromImageFile(dir / "a.png"), original);
  EXPECT_EQ(test::readFile(dir / "a.png"), test::readFile(dir / "b.png"));
  EXPECT_EQ(library.settings(1).masks[1].kind, MaskKind::subject);

  auto list = run({"--json", "mask", "list", "1"}).json();
  ASSERT_EQ(list["masks"].size(), 2u);
  EXPECT_EQ(list["masks"][0]["bitmap"]["width"], 257);
  EXPECT_EQ(list["masks"][0]["bitmap"]["height"], 93);
}

TEST_F(MaskCliTest, BrushMaskExportsItsPaintingAtTheDisplayAspect) {
  EditSettings settings = library.settings(1);
  PhotoMask brush(MaskKind::brush);
  brush.dabs.push_back(BrushDab{0.5, 0.5, 0.1, 0.5, 1.0, false});
  settings.masks.push_back(brush);
  library.saveSettings(1, settings, std::string("Brush"));

  ASSERT_EQ(run({"mask", "export", "1", "0", "-o", (dir / "brush.png").string()}).status, 0);
  MaskBitmap painted = maskBitmapFromImageFile(dir / "brush.png");
  EXPECT_EQ(painted.width, 1024);
  EXPECT_EQ(painted.height, 682);  // 1024 / 1.5, truncated
  EXPECT_EQ(painted, MaskRenderer::paint(brush.dabs, 1024, 682));
}

TEST_F(MaskCliTest, DeleteRecordsAStepAndUndoBringsTheMaskBack) {
  writeMaskPNG(pattern(10, 10), dir / "m.png");
  ASSERT_EQ(run({"mask", "import", "1", (dir / "m.png").string()}).status, 0);
  ASSERT_EQ(run({"mask", "delete", "1", "0"}).status, 0);
  EXPECT_TRUE(library.settings(1).masks.empty());
  EXPECT_EQ(library.history(1).steps.back().name, "Delete Mask");
  ASSERT_EQ(run({"undo", "1"}).status, 0);
  EXPECT_EQ(library.settings(1).masks.size(), 1u);
}

TEST_F(MaskCliTest, BadInputIsAClearErrorAndChangesNothing) {
  test::writeFile(dir / "text.png", "this is not a picture");
  test::writeFile(dir / "empty.png", "");
  writeMaskPNG(pattern(4, 4), dir / "good.png");
  test::writeFile(dir / "taken.png", "keep");
  const auto before = library.db().query("SELECT edits, histPos FROM photos");

  struct Case {
    std::vector<std::string> args;
    int status;
  };
  const Case cases[] = {
      {{"mask", "import", "1", (dir / "text.png").string()}, 1},
      {{"mask", "import", "1", (dir / "empty.png").string()}, 1},
      {{"mask", "import", "1", (dir / "missing.png").string()}, 1},
      {{"mask", "import", "9", (dir / "good.png").string()}, 1},
      {{"mask", "import", "1", (dir / "good.png").string(), "--kind", "brush"}, 2},
      {{"mask", "export", "1", "0", "-o", (dir / "x.png").string()}, 1},  // no masks yet
      {{"mask", "export", "1", "0"}, 2},
      {{"mask", "delete", "1", "nope"}, 1},
      {{"mask", "frobnicate", "1"}, 2},
      {{"mask"}, 2},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.args.back());
    test::expectError(run(c.args), c.status);
  }
  EXPECT_EQ(library.db().query("SELECT edits, histPos FROM photos"), before);

  // An existing file is only replaced when asked.
  ASSERT_EQ(run({"mask", "import", "1", (dir / "good.png").string()}).status, 0);
  EXPECT_EQ(run({"mask", "export", "1", "0", "-o", (dir / "taken.png").string()}).status, 1);
  EXPECT_EQ(test::readFile(dir / "taken.png"), "keep");
  EXPECT_EQ(run({"mask", "export", "1", "0", "-o", (dir / "taken.png").string(), "--force"}).status, 0);
  EXPECT_EQ(maskBitmapFromImageFile(dir / "taken.png"), pattern(4, 4));
}

}  // namespace
