#include <gtest/gtest.h>

#include "engine/export/mask_export.h"
#include "engine/render/mask_renderer.h"
#include "tests/support/cli_run.h"

using namespace lumivale;
using test::Args;

namespace {

MaskBitmap pattern(int width, int height) {
  MaskBitmap bitmap(width, height, 0);
  for (int i = 0; i < width * height; ++i)
    bitmap.bytes[i] = static_cast<std::uint8_t>((i % width * 7 + i / width * 13) % 256);
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

  const std::string id =
      ok({"--json", "mask", "import", "1", (dir / "in.png").string(), "--kind", "sky", "--name", "Sky!"})
          .json()["mask"]["id"];
  const auto& masks = library.settings(1).masks;
  ASSERT_EQ(masks.size(), 1u);
  EXPECT_EQ(masks[0].kind, MaskKind::sky);
  EXPECT_EQ(masks[0].name, "Sky!");
  EXPECT_EQ(MaskBitmap::decode(*masks[0].maskPNG), original);
  EXPECT_EQ(library.history(1).steps.back().name, "Import Mask");

  // Out through a file, back in as a second mask, out again: the same bytes.
  ok({"mask", "export", "1", id.substr(0, 8), "-o", (dir / "a.png").string()});
  ok({"mask", "import", "1", (dir / "a.png").string()});
  ok({"mask", "export", "1", "1", "-o", (dir / "b.png").string()});
  EXPECT_EQ(maskBitmapFromImageFile(dir / "a.png"), original);
  EXPECT_EQ(test::readFile(dir / "a.png"), test::readFile(dir / "b.png"));
  EXPECT_EQ(library.settings(1).masks[1].kind, MaskKind::subject);

  const auto list = ok({"--json", "mask", "list", "1"}).json();
  ASSERT_EQ(list["masks"].size(), 2u);
  EXPECT_EQ(list["masks"][0]["bitmap"]["width"], 257);
  EXPECT_EQ(list["masks"][0]["bitmap"]["height"], 93);

  // Deleting records a step; undo brings the mask back.
  ok({"mask", "delete", "1", "0"});
  EXPECT_EQ(library.settings(1).masks.size(), 1u);
  EXPECT_EQ(library.history(1).steps.back().name, "Delete Mask");
  ok({"undo", "1"});
  EXPECT_EQ(library.settings(1).masks.size(), 2u);
}

TEST_F(MaskCliTest, BrushMaskExportsItsPaintingAtTheDisplayAspect) {
  PhotoMask brush(MaskKind::brush);
  brush.dabs.push_back(BrushDab{0.5, 0.5, 0.1, 0.5, 1.0, false});
  library.saveSettings(1, EditSettings{.masks = {brush}}, std::string("Brush"));
  ok({"mask", "export", "1", "0", "-o", (dir / "brush.png").string()});
  // 1024 × 682: 1024 / 1.5, truncated.
  EXPECT_EQ(maskBitmapFromImageFile(dir / "brush.png"), MaskRenderer::paint(brush.dabs, 1024, 682));
}

TEST_F(MaskCliTest, ListShowsABitmapOnlyWhenItDecodes) {
  PhotoMask good = smartMaskFromBitmap(pattern(5, 3), MaskKind::subject);
  PhotoMask damaged(MaskKind::sky);  // a sound header over a payload that is not 9 × 9 bytes
  damaged.maskPNG = std::vector<std::uint8_t>{'K', 'V', 'M', 'K', 9, 0, 0, 0, 9, 0, 0, 0, 1, 2};
  library.saveSettings(1, EditSettings{.masks = {good, damaged}}, std::string("Masks"));

  const auto list = ok({"--json", "mask", "list", "1"}).json();
  EXPECT_EQ(list["masks"][0]["bitmap"]["width"], 5);
  EXPECT_TRUE(list["masks"][1]["bitmap"].is_null());
  const std::string text = ok({"mask", "list", "1"}).out;
  EXPECT_NE(text.find("bitmap 5 \u00d7 3"), std::string::npos) << text;
  EXPECT_EQ(text.find("9 \u00d7 9"), std::string::npos) << text;
  EXPECT_NE(text.find("no bitmap"), std::string::npos) << text;
}

TEST_F(MaskCliTest, BadInputIsAClearErrorAndChangesNothing) {
  test::writeFile(dir / "text.png", "this is not a picture");
  test::writeFile(dir / "empty.png", "");
  writeMaskPNG(pattern(4, 4), dir / "good.png");
  test::writeFile(dir / "taken.png", "keep");
  const auto before = library.db().query("SELECT edits, histPos FROM photos");

  const auto path = [&](const char* name) { return (dir / name).string(); };
  expectRefused(
      1, {Args{"mask", "import", "1", path("text.png")}, Args{"mask", "import", "1", path("empty.png")},
          Args{"mask", "import", "1", path("missing.png")}, Args{"mask", "import", "9", path("good.png")},
          Args{"mask", "export", "1", "0", "-o", path("x.png")},  // no masks yet
          Args{"mask", "delete", "1", "nope"}});
  expectRefused(2, {Args{"mask", "import", "1", path("good.png"), "--kind", "brush"},
                    Args{"mask", "export", "1", "0"}, Args{"mask", "frobnicate", "1"}, Args{"mask"}});
  EXPECT_EQ(library.db().query("SELECT edits, histPos FROM photos"), before);

  // An existing file is only replaced when asked.
  ok({"mask", "import", "1", path("good.png")});
  test::expectError(run({"mask", "export", "1", "0", "-o", path("taken.png")}), 1, "already exists");
  EXPECT_EQ(test::readFile(dir / "taken.png"), "keep");
  ok({"mask", "export", "1", "0", "-o", path("taken.png"), "--force"});
  EXPECT_EQ(maskBitmapFromImageFile(dir / "taken.png"), pattern(4, 4));
}

}  // namespace
