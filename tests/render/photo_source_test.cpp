#include "engine/render/photo_source.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "engine/media/vips_glue.h"
#include "tests/support/color_check.h"
#include "tests/support/errors.h"
#include "tests/support/sample_photos.h"
#include "tests/support/temp_dir.h"

using namespace lumivale;

namespace {

// A `width` × `height` image of `colour(x, y)`.
template <class Colour>
Image makeImage(int width, int height, Colour colour) {
  FloatPixels pixels{width, height, 3, {}};
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) {
      const std::array<float, 3> c = colour(x, y);
      pixels.values.insert(pixels.values.end(), c.begin(), c.end());
    }
  return Image::fromPixels(pixels);
}

double luminosity(const float* c) { return 0.3 * c[0] + 0.59 * c[1] + 0.11 * c[2]; }

// Spread of a channel function over all pixels.
template <class Measure>
double spread(const FloatPixels& p, Measure measure) {
  double sum = 0, squares = 0;
  const std::size_t n = std::size_t(p.width) * p.height;
  for (std::size_t i = 0; i < n; ++i) {
    const double v = measure(&p.values[3 * i]);
    sum += v, squares += v * v;
  }
  return std::sqrt(std::max(squares / n - (sum / n) * (sum / n), 0.0));
}

TEST(PhotoSource, OpensWithTheUprightSize) {
  const std::pair<const char*, Size> cases[] = {{"Landscape_1.jpg", {600, 450}},
                                                {"Landscape_6.jpg", {600, 450}},  // stored turned, 450 × 600
                                                {"Portrait_8.jpg", {450, 600}}};
  for (const auto& [name, size] : cases) {
    const PhotoSource source = PhotoSource::open(test::realPhoto(name));
    EXPECT_EQ(source.fullSize(), size) << name;
    EXPECT_FALSE(source.isRaw());
    EXPECT_FALSE(source.lensCorrectionAvailable());
    EXPECT_EQ(source.url(), test::realPhoto(name));
  }
}

TEST(PhotoSource, OpensRawFilesThroughTheRawDecoder) {
  test::TempDir dir;
  test::SampleDng dng;
  dng.orientation = 6;
  test::writeDng(dir / "raw.dng", dng);
  const PhotoSource source = PhotoSource::open(dir / "raw.dng");
  EXPECT_TRUE(source.isRaw());
  EXPECT_EQ(source.fullSize(), (Size{48, 64}));
  const DecodedImage decoded = source.image(32, EditSettings{});
  EXPECT_EQ(decoded.image.width(), 24);
  EXPECT_EQ(decoded.image.height(), 32);
  EXPECT_EQ(decoded.warning, "");
}

TEST(PhotoSource, RefusesWhatItCannotOpen) {
  test::TempDir dir;
  test::writeFile(dir / "photo.cr2", test::jpegBytes(64, 48));
  test::writeFile(dir / "note.jpg", "not a photo");
  EXPECT_TRUE(test::throwsWith<ImageError>([&] { PhotoSource::open(dir / "photo.cr2"); }, "photo.cr2"));
  EXPECT_TRUE(test::throwsWith<ImageError>([&] { PhotoSource::open(dir / "note.jpg"); }, "note.jpg"));
  EXPECT_TRUE(test::throwsWith<ImageError>([&] { PhotoSource::open(dir / "gone.png"); }, "gone.png"));
}

TEST(PhotoSource, DecodesUprightAtTheRequestedSizeNeverEnlarged) {
  const PhotoSource source = PhotoSource::open(test::realPhoto("Landscape_6.jpg"));
  const EditSettings plain;
  const std::tuple<std::optional<int>, int, int> cases[] = {
      {std::nullopt, 600, 450}, {100, 100, 75}, {599, 599, 449}, {5000, 600, 450}};
  for (const auto& [maxSide, width, height] : cases) {
    const DecodedImage decoded = source.image(maxSide, plain);
    EXPECT_EQ(decoded.image.width(), width);
    EXPECT_EQ(decoded.image.height(), height);
    EXPECT_EQ(decoded.warning, "");
  }
  EditSettings noisy;
  noisy.noiseLuminance = 60;
  const Image smoothed = source.image(100, noisy).image;
  EXPECT_GT(test::deltaE(smoothed, source.image(100, plain).image).mean, 0.05);
}

TEST(NonRawNoise, LeavesTheImageAloneWithBothAmountsAtZero) {
  const Image image = Image::constant(8, 8, {0.2, 0.3, 0.4});
  EXPECT_EQ(PhotoSource::applyNonRawNoise(image, EditSettings(), 8).get(), image.get());
}

// Luminance noise on two flat fields: smoothed within each field, the edge
// between them kept.
TEST(NonRawNoise, LuminanceSmoothsFlatAreasAndKeepsEdges) {
  std::mt19937 random(3);
  std::normal_distribution<float> noise(0, 0.01f);
  const Image image = makeImage(64, 64, [&](int x, int) {
    const float level = (x < 32 ? 0.1f : 0.6f) + noise(random);
    return std::array<float, 3>{level, level, level};
  });
  EditSettings settings;
  settings.noiseLuminance = 100;
  const FloatPixels before = image.readPixels(),
                    after = PhotoSource::applyNonRawNoise(image, settings, 64).readPixels();
  auto field = [](const FloatPixels& p, int left) {
    FloatPixels part{24, 64, 3, {}};
    for (int y = 0; y < 64; ++y)
      for (int x = left; x < left + 24; ++x)
        for (int c = 0; c < 3; ++c) part.values.push_back(p.at(x, y, c));
    return part;
  };
  const auto green = [](const float* c) { return double(c[1]); };
  EXPECT_LT(spread(field(after, 4), green), 0.6 * spread(field(before, 4), green));
  EXPECT_LT(spread(field(after, 36), green), 0.6 * spread(field(before, 36), green));
  for (int y = 0; y < 64; y += 9) EXPECT_GT(after.at(33, y, 1) - after.at(30, y, 1), 0.4) << y;
}

// Colour noise: hue and saturation smoothed, each pixel's luminosity kept.
TEST(NonRawNoise, ColourSmoothsChromaAndKeepsLuminosity) {
  std::mt19937 random(5);
  std::uniform_real_distribution<float> tint(-0.08f, 0.08f);
  const Image image = makeImage(64, 48, [&](int, int) {
    const float t = tint(random);
    return std::array<float, 3>{0.4f + t, 0.4f - t, 0.4f + 0.5f * t};
  });
  EditSettings settings;
  settings.noiseColor = 100;
  const FloatPixels before = image.readPixels(),
                    after = PhotoSource::applyNonRawNoise(image, settings, 64).readPixels();
  const auto redMinusGreen = [](const float* c) { return double(c[0] - c[1]); };
  EXPECT_LT(spread(after, redMinusGreen), 0.3 * spread(before, redMinusGreen));
  for (std::size_t i = 0; i < before.values.size(); i += 3 * 97)
    EXPECT_NEAR(luminosity(&after.values[i]), luminosity(&before.values[i]), 1e-4);
}

// The colour blur follows the preview's share of the full width, so a
// quarter-size preview looks like the full-size result scaled down.
TEST(NonRawNoise, ColourBlurScalesWithThePreview) {
  const auto stripes = [](int period) {
    return [period](int x, int) {
      const float t = (x / period) % 2 ? 0.1f : -0.1f;
      return std::array<float, 3>{0.4f + t, 0.4f - t, 0.4f};
    };
  };
  EditSettings settings;
  settings.noiseColor = 50;
  const Image full = PhotoSource::applyNonRawNoise(makeImage(256, 64, stripes(16)), settings, 256);
  const Image fullScaled = fromVips(vipsImage(full).shrink(4, 4).copy_memory());
  const Image preview = makeImage(64, 16, stripes(4));
  const Image asPreview = PhotoSource::applyNonRawNoise(preview, settings, 256);
  const Image asFull = PhotoSource::applyNonRawNoise(preview, settings, 64);
  EXPECT_LT(test::deltaE(asPreview, fullScaled).mean, 0.5 * test::deltaE(asFull, fullScaled).mean);
}

}  // namespace
