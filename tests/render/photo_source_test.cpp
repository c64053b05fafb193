#include "engine/render/photo_source.h"

#include <gtest/gtest.h>

#include "engine/media/vips_glue.h"
#include "tests/support/color_check.h"
#include "tests/support/errors.h"
#include "tests/support/sample_photos.h"
#include "tests/support/temp_dir.h"

using namespace lumivale;

namespace {

// Grey 0.4 with `tint` × (1, −1, 0.5) added, tint changing every `period`
// columns, plus pixel noise of `grain` on every channel alike.
Image tinted(int width, int height, int period, double tint, double grain) {
  const vips::VImage x = vips::VImage::xyz(width, height)[0];
  const vips::VImage t = ((x / period).floor() % 2 * 2 - 1) * tint;
  const vips::VImage noise = (vips::VImage::gaussnoise(width, height) - 128) * (grain / 30);  // sigma 30
  const vips::VImage rgb = (0.4 + t + noise).bandjoin(0.4 - t + noise).bandjoin(0.4 + 0.5 * t + noise);
  return fromVips(rgb.cast(VIPS_FORMAT_FLOAT).copy_memory());
}

EditSettings noise(double luminance, double colour) {
  EditSettings settings;
  settings.noiseLuminance = luminance;
  settings.noiseColor = colour;
  return settings;
}

TEST(PhotoSource, OpensAndDecodesUprightNeverEnlarged) {
  for (const auto& [name, size] : {std::pair("Landscape_6.jpg", Size{600, 450}),  // stored 450 × 600
                                   std::pair("Portrait_8.jpg", Size{450, 600})}) {
    const PhotoSource source = PhotoSource::open(test::realPhoto(name));
    EXPECT_EQ(source.fullSize(), size) << name;
    EXPECT_FALSE(source.isRaw());
    EXPECT_FALSE(source.lensCorrectionAvailable());
  }
  const PhotoSource source = PhotoSource::open(test::realPhoto("Landscape_6.jpg"));
  for (const auto& [maxSide, width, height] :
       {std::tuple(std::optional<int>(), 600, 450), {100, 100, 75}, {599, 599, 449}, {5000, 600, 450}}) {
    const DecodedImage decoded = source.image(maxSide, EditSettings());
    EXPECT_EQ(std::pair(decoded.image.width(), decoded.image.height()), std::pair(width, height));
    EXPECT_EQ(decoded.warning, "");
  }
  // The noise settings reach the decoded base.
  EXPECT_GT(test::deltaE(source.image(100, noise(60, 0)).image, source.image(100, EditSettings()).image).mean,
            0.05);
}

TEST(PhotoSource, RefusesWhatItCannotOpen) {
  test::TempDir dir;
  test::writeDng(dir / "raw.dng");
  test::writeFile(dir / "note.jpg", "not a photo");
  EXPECT_TRUE(test::throwsWith<ImageError>([&] { PhotoSource::open(dir / "raw.dng"); },
                                           "RAW files cannot be developed yet"));
  EXPECT_TRUE(test::throwsWith<ImageError>([&] { PhotoSource::open(dir / "note.jpg"); }, "note.jpg"));
  EXPECT_TRUE(test::throwsWith<ImageError>([&] { PhotoSource::open(dir / "gone.png"); }, "gone.png"));
}

TEST(NonRawNoise, LeavesTheImageAloneWithBothAmountsAtZero) {
  const Image image = Image::constant(8, 8, {0.2, 0.3, 0.4});
  EXPECT_EQ(PhotoSource::applyNonRawNoise(image, EditSettings(), 8).get(), image.get());
}

// Luminance noise: flat areas smoothed, the edges between them kept.
TEST(NonRawNoise, LuminanceSmoothsFlatAreasAndKeepsEdges) {
  const Image image = tinted(64, 64, 32, 0.2, 0.01);
  const Image after = PhotoSource::applyNonRawNoise(image, noise(100, 0), 64);
  const auto field = [](const Image& i) { return fromVips(vipsImage(i).extract_area(4, 0, 24, 64)); };
  EXPECT_LT(vipsImage(field(after))[1].deviate(), 0.6 * vipsImage(field(image))[1].deviate());
  const vips::VImage v = vipsImage(after);
  EXPECT_GT(v.extract_area(33, 0, 1, 64)[0].min() - v.extract_area(30, 0, 1, 64)[0].max(), 0.3);
}

// Colour noise: hue and saturation smoothed, each pixel's luminosity kept.
TEST(NonRawNoise, ColourSmoothsChromaAndKeepsLuminosity) {
  const Image image = tinted(64, 48, 1, 0.05, 0.02);
  const Image after = PhotoSource::applyNonRawNoise(image, noise(0, 100), 64);
  const auto chroma = [](const Image& i) { return (vipsImage(i)[0] - vipsImage(i)[1]).deviate(); };
  const auto luminosity = [](const Image& i) {
    return vipsImage(i).recomb(vips::VImage::new_matrixv(3, 1, 0.3, 0.59, 0.11));
  };
  EXPECT_LT(chroma(after), 0.3 * chroma(image));
  EXPECT_LT((luminosity(after) - luminosity(image)).abs().max(), 1e-4);
}

// The colour blur follows the preview's share of the full width, so a
// quarter-size preview looks like the full-size result scaled down.
TEST(NonRawNoise, ColourBlurScalesWithThePreview) {
  const Image full = PhotoSource::applyNonRawNoise(tinted(256, 64, 16, 0.1, 0), noise(0, 50), 256);
  const Image fullScaled = fromVips(vipsImage(full).shrink(4, 4).copy_memory());
  const Image preview = tinted(64, 16, 4, 0.1, 0);
  const Image asPreview = PhotoSource::applyNonRawNoise(preview, noise(0, 50), 256);
  const Image asFull = PhotoSource::applyNonRawNoise(preview, noise(0, 50), 64);
  EXPECT_LT(test::deltaE(asPreview, fullScaled).mean, 0.5 * test::deltaE(asFull, fullScaled).mean);
}

}  // namespace
