#include <gtest/gtest.h>

#include "engine/export/mask_export.h"
#include "engine/media/bitmap.h"
#include "engine/media/image_encoder.h"
#include "engine/render/mask_renderer.h"
#include "engine/render/segmentation_model.h"
#include "tests/support/cli_run.h"
#include "tests/support/sample_photos.h"

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

TEST_F(MaskCliTest, AddsGradientAndBrushMasksAsOneStepEach) {
  test::writeFile(dir / "dabs.json",
                  R"([{"x":0.25,"y":0.5,"radius":0.1,"feather":0.5,"flow":1,"erase":false}])");
  ok({"mask", "add", "1", "radial", "0.4", "0.6", "0.2", "0.3", "--feather", "0.25", "--name", "Face",
      "--opacity", "0.8", "--adjust", "exposure=0.5", "--adjust", "contrast=-10"});
  ok({"mask", "add", "1", "linear", "0.5", "0", "0.5", "0.5", "--invert"});
  ok({"mask", "add", "1", "brush", "--dabs", (dir / "dabs.json").string()});

  const auto& masks = library.settings(1).masks;
  ASSERT_EQ(masks.size(), 3u);
  PhotoMask radial(MaskKind::radial, "Face");
  radial.id = masks[0].id;
  radial.cx = 0.4, radial.cy = 0.6, radial.rx = 0.2, radial.ry = 0.3, radial.feather = 0.25,
  radial.opacity = 0.8;
  radial.adjust.exposure = 0.5, radial.adjust.contrast = -10;
  EXPECT_EQ(masks[0], radial);
  EXPECT_EQ(masks[1].kind, MaskKind::linear);
  EXPECT_TRUE(masks[1].invert);
  EXPECT_EQ(std::tie(masks[1].x0, masks[1].y0, masks[1].x1, masks[1].y1),
            std::make_tuple(0.5, 0.0, 0.5, 0.5));
  EXPECT_EQ(masks[2].dabs, (std::vector<BrushDab>{{0.25, 0.5, 0.1, 0.5, 1, false}}));
  const auto& steps = library.history(1).steps;
  ASSERT_EQ(steps.size(), 4u);
  for (int i = 1; i < 4; ++i) EXPECT_EQ(steps[i].name, "Add Mask");

  // Coverage: the linear ramp covers a quarter of the photo, inverted three
  // quarters; a smart mask its stored mean; one that does not decode, none.
  PhotoMask damaged(MaskKind::sky);
  damaged.maskPNG = std::vector<std::uint8_t>{'K', 'V', 'M', 'K', 9, 0, 0, 0, 9, 0, 0, 0, 1, 2};
  library.updateSettings(1, std::string("More"), [&](EditSettings& s) {
    s.masks.push_back(smartMaskFromBitmap(MaskBitmap(4, 4, 51), MaskKind::subject));
    s.masks.push_back(damaged);
  });
  const auto list = ok({"--json", "mask", "list", "1"}).json()["masks"];
  EXPECT_NEAR(list[1]["coverage"].get<double>(), 0.75, 0.01);
  EXPECT_NEAR(list[3]["coverage"].get<double>(), 0.2, 1e-9);
  EXPECT_TRUE(list[4]["coverage"].is_null());
  EXPECT_NE(ok({"mask", "list", "1"}).out.find("coverage 20.0%"), std::string::npos);
}

TEST_F(MaskCliTest, BadAddAndRefreshChangeNothing) {
  test::writeFile(dir / "dabs.json", "[]");
  test::writeFile(dir / "odd.json", R"([{"x":0.5}])");
  ok({"mask", "add", "1", "linear", "0", "0", "1", "1"});
  const auto before = library.db().query("SELECT edits, histPos FROM photos");
  const std::string dabs = (dir / "dabs.json").string();
  expectRefused(2, {Args{"mask", "add", "1", "wobble"}, Args{"mask", "add", "1", "linear", "0", "0", "1"},
                    Args{"mask", "add", "1", "radial", "0.5", "0.5", "0", "0.2"},
                    Args{"mask", "add", "1", "radial", "0.5", "0.5", "nan", "0.2"},
                    Args{"mask", "add", "1", "linear", "0", "0", "1", "1x"},
                    Args{"mask", "add", "1", "linear", "0", "0", "1", "1", "--feather", "0.2"},
                    Args{"mask", "add", "1", "radial", "0.5", "0.5", "0.2", "0.2", "--feather", "1.5"},
                    Args{"mask", "add", "1", "brush"}, Args{"mask", "add", "1", "sky", "--dabs", dabs},
                    Args{"mask", "add", "1", "sky", "0.5"}, Args{"mask", "add", "1", "sky", "--opacity", "2"},
                    Args{"mask", "add", "1", "sky", "--name", " "},
                    Args{"mask", "add", "1", "sky", "--adjust", "exposure"},
                    Args{"mask", "add", "1", "sky", "--adjust", "vibrance=3"},
                    Args{"mask", "add", "1", "sky", "--adjust", "exposure=bright"},
                    Args{"mask", "list", "1", "--invert"}, Args{"mask", "refresh", "1"}});
  expectRefused(1, {Args{"mask", "add", "1", "brush", "--dabs", (dir / "missing.json").string()},
                    Args{"mask", "add", "1", "brush", "--dabs", (dir / "odd.json").string()},
                    Args{"mask", "add", "9", "brush", "--dabs", dabs},
                    Args{"mask", "refresh", "1", "0"},  // a linear gradient is not computed
                    Args{"mask", "refresh", "1", "7"}});
  EXPECT_EQ(library.db().query("SELECT edits, histPos FROM photos"), before);
}

// A 300 × 200 PNG photo: a smooth blue sky over dark green ground.
class SmartMaskCliTest : public test::CliLibraryTest {
 protected:
  void SetUp() override {
    // Linear light of sRGB (100, 150, 230) and (30, 80, 30).
    constexpr float sky[] = {0.127f, 0.305f, 0.791f}, ground[] = {0.0123f, 0.080f, 0.0123f};
    FloatPixels pixels{300, 200, 3, {}};
    for (int y = 0; y < 200; ++y)
      for (int x = 0; x < 300; ++x)
        pixels.values.insert(pixels.values.end(), y < 100 ? sky : ground, (y < 100 ? sky : ground) + 3);
    ImageEncoder::write(outputImage(Image::fromPixels(pixels), ColorSpace::sRGB, 8), dir / "sky.png",
                        {ImageFormat::png});
    addPhoto((dir / "sky.png").string(), {{"width", 300}, {"height", 200}});
  }

  MaskBitmap stored(std::size_t index) {
    return *MaskBitmap::decode(*library.settings(1).masks.at(index).maskPNG);
  }

  test::TempDir noModels;
};

TEST_F(SmartMaskCliTest, SkyNeedsNoModelAndIsRefreshedFromTheCurrentSettings) {
  const test::ScopedEnv models("LUMIVALE_MODELS", noModels.path().c_str());
  const auto added = ok({"--json", "mask", "add", "1", "sky", "--adjust", "exposure=-0.5"}).json();
  EXPECT_NEAR(added["mask"]["coverage"].get<double>(), 0.48, 0.03);
  MaskBitmap sky = stored(0);
  ASSERT_EQ(std::make_pair(sky.width, sky.height), std::make_pair(320, 213));
  EXPECT_DOUBLE_EQ(sky.mean(0, 0, 1, 0.45), 1.0);
  EXPECT_DOUBLE_EQ(sky.mean(0, 0.55, 1, 0.45), 0.0);
  EXPECT_EQ(library.settings(1).masks[0].adjust.exposure, -0.5);

  // Four stops darker the blue is too dark to be sky.
  ok({"edit", "1", "exposure=-4"});
  ok({"mask", "refresh", "1", "0"});
  EXPECT_EQ(library.history(1).steps.back().name, "Refresh Mask");
  EXPECT_DOUBLE_EQ(stored(0).mean(0, 0, 1, 1), 0.0);
  EXPECT_EQ(library.settings(1).masks[0].adjust.exposure, -0.5);
}

TEST_F(SmartMaskCliTest, WithoutTheModelOrThePhotoNothingChanges) {
  const test::ScopedEnv models("LUMIVALE_MODELS", noModels.path().c_str());
  addPhoto((dir / "gone.jpg").string(), {{"width", 300}, {"height", 200}});
  const auto before = library.db().query("SELECT edits, histPos FROM photos");
  test::expectError(run({"mask", "add", "1", "subject"}), 1, "Subject detection is not available");
  test::expectError(run({"mask", "add", "1", "people", "--name", "Folks"}), 1,
                    "Subject detection is not available");
  test::expectError(run({"mask", "add", "2", "sky"}), 1, "Could not decode photo 2");
  EXPECT_EQ(library.db().query("SELECT edits, histPos FROM photos"), before);
}

TEST_F(SmartMaskCliTest, SubjectIsFoundInTheWholePhotoWhateverTheCrop) {
  const auto dogs = test::sharedPhoto("phone/IMG_20200608_111614.jpg");
  if (!SegmentationModel::find() || !dogs)
    GTEST_SKIP() << "needs the segmentation model and the shared photos";
  addPhoto(dogs->string(), {{"width", 4000}, {"height", 3000}});
  ok({"edit", "2", "crop.x=0.6", "crop.w=0.4"});  // the dogs are mostly left of the crop
  ok({"mask", "add", "2", "subject"});
  const PhotoMask mask = library.settings(2).masks.at(0);
  const MaskBitmap subject = *MaskBitmap::decode(*mask.maskPNG);
  EXPECT_GE(subject.mean(0.37, 0.27, 0.38, 0.3), 0.75);
  EXPECT_LE(subject.mean(0, 0.8, 1, 0.2), 0.02);
}

}  // namespace
