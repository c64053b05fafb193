// The sky search on synthetic pictures. Most are drawn at the working size
// (320 × 240) so that no scaling blurs the colours and every byte of the
// result can be reasoned about.

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "engine/render/smart_masks.h"

using namespace lumivale;

namespace {

struct Rgb {
  std::uint8_t r = 0, g = 0, b = 0;
};

constexpr Rgb skyBlue{100, 150, 230};  // blue, Y ≈ 0.57
constexpr Rgb grass{30, 80, 30};       // no candidate, Y ≈ 0.07
constexpr Rgb cloud{200, 200, 205};    // overcast, Y ≈ 0.78
constexpr Rgb sunset{240, 170, 120};   // warm, Y ≈ 0.71, saturation 0.5

Bitmap canvas(int width, int height, Rgb fill) {
  Bitmap b;
  b.width = width;
  b.height = height;
  for (int i = 0; i < width * height; ++i) b.bytes.insert(b.bytes.end(), {fill.r, fill.g, fill.b});
  return b;
}

// Fills columns x0 … x1 − 1 of rows y0 … y1 − 1.
void fill(Bitmap& b, int x0, int y0, int x1, int y1, Rgb c) {
  for (int y = y0; y < y1; ++y)
    for (int x = x0; x < x1; ++x) {
      std::uint8_t* p = &b.bytes[(std::size_t(y) * b.width + x) * 3];
      p[0] = c.r, p[1] = c.g, p[2] = c.b;
    }
}

int at(const MaskBitmap& m, int x, int y) { return m.bytes[std::size_t(y) * m.width + x]; }

// The mean coverage 0 … 1 of pixel columns x0 … x1 − 1, rows y0 … y1 − 1.
double meanOf(const MaskBitmap& m, int x0, int y0, int x1, int y1) {
  return m.mean(double(x0) / m.width, double(y0) / m.height, double(x1 - x0) / m.width,
                double(y1 - y0) / m.height);
}

MaskBitmap skyOf(const Bitmap& picture, const std::optional<MaskBitmap>& subject = std::nullopt) {
  std::optional<MaskBitmap> sky = SmartMasks::sky(picture, subject);
  EXPECT_TRUE(sky.has_value());
  return sky.value_or(MaskBitmap());
}

}  // namespace

TEST(SkySize, FollowsTheAspectWithinThreeHundredTwentyPixels) {
  struct Case {
    int width, height, expectedWidth, expectedHeight;
  };
  for (const Case& c : {Case{3000, 2000, 320, 213}, Case{2000, 3000, 213, 320}, Case{1, 1, 320, 320},
                        Case{10000, 10, 320, 8}, Case{10, 10000, 8, 320}, Case{320, 240, 320, 240}}) {
    const MaskRenderer::PixelSize size = SmartMasks::skySize(c.width, c.height);
    EXPECT_EQ(size.width, c.expectedWidth) << c.width << " x " << c.height;
    EXPECT_EQ(size.height, c.expectedHeight) << c.width << " x " << c.height;
  }
}

TEST(Sky, CoversTheConnectedSmoothBlueButNotABlueObjectCutOffByTheGround) {
  Bitmap picture = canvas(320, 240, skyBlue);
  fill(picture, 0, 100, 320, 240, grass);
  fill(picture, 120, 160, 200, 220, skyBlue);  // a blue car on the grass
  const MaskBitmap sky = skyOf(picture);
  ASSERT_EQ(sky.width, 320);
  ASSERT_EQ(sky.height, 240);
  EXPECT_NEAR(meanOf(sky, 0, 0, 320, 95), 1.0, 1e-9);
  EXPECT_NEAR(meanOf(sky, 0, 103, 320, 240), 0.0, 1e-9);
}

TEST(Sky, StopsWhereLuminanceChangesFasterThanTheSmoothnessLimit) {
  // Below row 60 the blue darkens by 0.07 in luminance per row: each step
  // alone is small enough for the fill, but two steps across a pixel (0.14)
  // count as an edge.
  Bitmap picture = canvas(320, 240, skyBlue);
  for (int y = 60; y < 66; ++y) {
    const std::uint8_t g = std::uint8_t(150 - 25 * (y - 59));  // Y falls by about 0.07 per row
    fill(picture, 0, y, 320, y + 1, {100, g, 230});
  }
  fill(picture, 0, 66, 320, 240, {100, 0, 230});
  // The outer columns are never checked for smoothness, so the fill runs
  // down them to the end of the candidates (row 63): look between them.
  const MaskBitmap sky = skyOf(picture);
  EXPECT_NEAR(meanOf(sky, 0, 0, 320, 56), 1.0, 1e-9);
  EXPECT_NEAR(meanOf(sky, 3, 62, 317, 240), 0.0, 1e-9);
  EXPECT_GT(at(sky, 0, 62), 0);
}

TEST(Sky, WarmSkyEndsAtFortyFivePercentSoftenedByTwoBoxPasses) {
  // Warm colours count in rows 0 … 107 only (0.45 × 240 = 108). The edge
  // after two truncating 3 × 3 means: 255 255 … 226 170 | 85 28 0.
  const MaskBitmap sky = skyOf(canvas(320, 240, sunset));
  const int expected[] = {255, 226, 170, 85, 28, 0};
  for (int i = 0; i < 6; ++i) EXPECT_EQ(at(sky, 160, 105 + i), expected[i]) << "row " << 105 + i;
  EXPECT_EQ(at(sky, 0, 0), 255);  // corners average in-bounds pixels only
}

TEST(Sky, TexturedTopRowsKeepTheSkyBelowThemUnreached) {
  // Stripes two pixels wide, so that every pixel differs from one of its
  // neighbours (single-pixel stripes look smooth to a central difference);
  // leaves in both outer columns, which are never checked for smoothness.
  for (Rgb leaves : {grass, Rgb{230, 240, 250}}) {  // dark, or bright enough to be a candidate
    Bitmap picture = canvas(320, 240, skyBlue);
    for (int x = 0; x < 320; ++x)
      if ((x + 1) % 4 < 2) fill(picture, x, 0, x + 1, 30, leaves);
    EXPECT_NEAR(meanOf(skyOf(picture), 0, 32, 320, 240), 0.0, 1e-9);
  }
}

TEST(Sky, NightAndDarkSkiesAreNotSky) {
  // Black passes the blue test (b ≥ r, b ≥ 0.92 g) but not Y > 0.22.
  for (Rgb dark : {Rgb{0, 0, 0}, Rgb{20, 30, 80}}) {
    Bitmap picture = canvas(320, 240, dark);
    fill(picture, 0, 150, 320, 240, {255, 200, 80});  // city lights
    EXPECT_NEAR(meanOf(skyOf(picture), 0, 0, 320, 240), 0.0, 1e-9);
  }
}

TEST(Sky, LeavesOutSubjectPixelsAboveHalfCoverage) {
  // The subject bitmap is 32 × 24, a tenth of the working size: its block at
  // columns 4 … 7 covers working columns 40 … 79, and so on.
  MaskBitmap subject(32, 24);
  auto block = [&](int x0, std::uint8_t value) {
    for (int y = 8; y < 16; ++y)
      for (int x = x0; x < x0 + 4; ++x) subject.bytes[std::size_t(y) * 32 + x] = value;
  };
  block(4, 255), block(12, 128), block(20, 127);
  const MaskBitmap sky = skyOf(canvas(320, 240, cloud), subject);
  EXPECT_EQ(at(sky, 60, 120), 0);
  EXPECT_EQ(at(sky, 140, 120), 0);  // 128 / 255 is above half
  EXPECT_EQ(at(sky, 220, 120), 255);
  EXPECT_EQ(at(sky, 60, 40), 255);
}

TEST(Sky, ScalesLargePicturesToTheWorkingSize) {
  Bitmap picture = canvas(1800, 1200, skyBlue);
  fill(picture, 0, 600, 1800, 1200, grass);
  const MaskBitmap sky = skyOf(picture);
  ASSERT_EQ(sky.width, 320);
  ASSERT_EQ(sky.height, 213);
  EXPECT_NEAR(meanOf(sky, 0, 0, 320, 100), 1.0, 1e-9);
  EXPECT_NEAR(meanOf(sky, 0, 110, 320, 213), 0.0, 1e-9);
}

TEST(Sky, TakesEveryPictureLayoutAndRefusesMalformedOnes) {
  auto white = [](int width, int height, int channels, int bits) {
    Bitmap b;
    b.width = width, b.height = height, b.channels = channels, b.bits = bits;
    b.bytes.assign(std::size_t(width) * height * channels * bits / 8, 255);
    return b;
  };
  struct Case {
    const char* what;
    Bitmap picture;
    double coverage;  // NaN: no mask
  };
  Bitmap transparent = white(40, 30, 4, 8);
  for (std::size_t i = 3; i < transparent.bytes.size(); i += 4) transparent.bytes[i] = 0;
  Bitmap tooShort = white(40, 30, 3, 8);
  tooShort.bytes.pop_back();
  const double none = std::numeric_limits<double>::quiet_NaN();
  const Case cases[] = {
      {"1 x 1", white(1, 1, 3, 8), 1},
      {"10000 x 10", white(10000, 10, 3, 8), 1},
      {"grey", white(40, 30, 1, 8), 1},
      {"grey and alpha", white(40, 30, 2, 8), 1},
      {"16-bit", white(40, 30, 3, 16), 1},
      {"opaque RGBA", white(40, 30, 4, 8), 1},
      {"transparent RGBA", transparent, 0},
      {"all black", canvas(40, 30, {0, 0, 0}), 0},
      {"empty", Bitmap(), none},
      {"bytes missing", tooShort, none},
      {"5 channels", white(4, 3, 5, 8), none},
      {"12 bits", white(4, 3, 3, 12), none},
  };
  for (const Case& c : cases) {
    const std::optional<MaskBitmap> sky = SmartMasks::sky(c.picture);
    if (std::isnan(c.coverage)) {
      EXPECT_FALSE(sky) << c.what;
    } else {
      ASSERT_TRUE(sky) << c.what;
      EXPECT_NEAR(sky->mean(0, 0, 1, 1), c.coverage, 1e-9) << c.what;
    }
  }
}

TEST(SmartMaskBitmap, ConvertsCoverageMapsToBytes) {
  const float values[] = {-1, 0, 0.5f, 0.999f, 1, 7, std::numeric_limits<float>::quiet_NaN(), 0.25f};
  const std::optional<MaskBitmap> mask = SmartMasks::bitmap({4, 2, values});
  ASSERT_TRUE(mask);
  EXPECT_EQ(mask->width, 4);
  EXPECT_EQ(mask->height, 2);
  EXPECT_EQ(mask->bytes, (std::vector<std::uint8_t>{0, 0, 128, 255, 255, 255, 0, 64}));

  EXPECT_FALSE(SmartMasks::bitmap({3, 2, values}));  // 6 values expected, 8 given
  EXPECT_FALSE(SmartMasks::bitmap({0, 0, {}}));
  EXPECT_FALSE(SmartMasks::bitmap({-4, -2, values}));
}
