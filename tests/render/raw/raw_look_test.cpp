// The default look of RAW files: the curve's anchors, the exposure found
// from the camera's own rendering, hue kept, colours kept in range.

#include "engine/render/raw/raw_look.h"

#include <gtest/gtest.h>

#include <cmath>

#include "engine/media/orientation.h"

using namespace lumivale;

namespace {

class RawLookCurve : public ::testing::TestWithParam<double> {};

TEST_P(RawLookCurve, KeepsMidGreyAndTurnsTheClippingPointWhite) {
  RawLook look;
  look.exposureEV = GetParam();
  const double gain = std::exp2(look.exposureEV);
  EXPECT_NEAR(look.map(0.18 / gain), 0.18, 1e-9);
  EXPECT_NEAR(look.map(1.0), 1.0, 1e-9);
  EXPECT_EQ(look.map(0.0), 0.0);
  EXPECT_EQ(look.map(-0.01), 0.0);
  double previous = 0;
  for (double x = 1e-4; x < 4; x *= 1.1) {
    const double y = look.map(x);
    ASSERT_GT(y, previous) << x;
    previous = y;
  }
  // Steeper than linear in the shadows (contrast), flatter near white.
  EXPECT_LT(look.map(0.02 / gain) / (0.02), look.map(0.18 / gain) / 0.18);
  EXPECT_GT(look.map(1.0) - look.map(0.9), 0);
  EXPECT_LT((look.map(1.0) - look.map(0.9)) / 0.1, look.map(0.18 / gain) / (0.18 / gain) / gain);
}

INSTANTIATE_TEST_SUITE_P(Exposures, RawLookCurve, ::testing::Values(0.0, 0.5, 1.0, 1.6, 3.0));

TEST(RawLook, ExposureFromTheFilesFacts) {
  RawFacts facts;
  EXPECT_DOUBLE_EQ(RawLook::fromFacts(facts).exposureEV, RawLook::typicalExposureEV());
  // A mid grey 3.5 stops below the clipping point is 0.18 after the gain.
  EXPECT_NEAR(std::exp2(RawLook::typicalExposureEV()) * std::exp2(-3.5), 0.18, 1e-12);
  facts.baselineExposure = 0.6;
  EXPECT_DOUBLE_EQ(RawLook::fromFacts(facts).exposureEV, RawLook::typicalExposureEV() + 0.6);
}

// A scene of many brightnesses and colours: a luminance ramp over x, a hue
// change over y.
Image scene(int width, int height) {
  FloatPixels p{width, height, 3, {}};
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const double level = 0.002 * std::pow(150.0, double(x) / (width - 1));
      const double t = double(y) / (height - 1);
      p.values.insert(p.values.end(),
                      {float(level * (0.6 + 0.8 * t)), float(level), float(level * (1.4 - 0.8 * t))});
    }
  }
  return Image::fromPixels(p);
}

TEST(RawLook, FindsTheExposureTheCameraRenderedWith) {
  RawLook camera;
  camera.exposureEV = 1.4;
  const Image frame = scene(240, 160);
  const Image rendered = camera.apply(frame);
  const std::optional<double> found = RawLook{}.matchedExposure(frame, rendered);
  ASSERT_TRUE(found);
  EXPECT_NEAR(*found, 1.4, 0.03);

  // The preview is smaller than the decoded frame, and it was not
  // rendered by our curve: a darker and a brighter rendering.
  const Image small = RawLook{.exposureEV = 0.7}.apply(scene(120, 80));
  EXPECT_NEAR(*RawLook{}.matchedExposure(frame, small), 0.7, 0.05);
  EXPECT_NEAR(*RawLook{}.matchedExposure(frame, RawLook{.exposureEV = 2.2}.apply(frame)), 2.2, 0.05);
}

TEST(RawLook, NoExposureFromAPreviewThatIsNotTheFrame) {
  const Image frame = scene(240, 160);
  // Another shape: another picture (or a letterboxed one).
  EXPECT_FALSE(RawLook{}.matchedExposure(frame, RawLook{}.apply(scene(240, 120))));
  // The same shape but another picture: the scene mirrored.
  EXPECT_FALSE(RawLook{}.matchedExposure(frame, orientUpright(RawLook{}.apply(frame), 2)));
  // Black: nothing in the mid tones to compare.
  EXPECT_FALSE(RawLook{}.matchedExposure(frame, Image::constant(240, 160, {0, 0, 0})));
  EXPECT_FALSE(RawLook{}.matchedExposure(frame, Image()));
}

TEST(RawLook, KeepsHueAndFitsBrightColoursIntoTheDisplayRange) {
  const RawLook look{.exposureEV = 1.0};
  FloatPixels p{3,
                1,
                3,
                {0.02f, 0.04f, 0.01f,           // a dark green
                 0.9f, 0.1f, 0.05f,             // a bright red beyond the display's range after the curve
                 -0.001f, -0.0005f, 0.0001f}};  // noise below black
  const FloatPixels out = look.apply(Image::fromPixels(p)).readPixels();
  // The dark green keeps its channel ratios.
  EXPECT_NEAR(out.at(0, 0, 0) / out.at(0, 0, 1), 0.5, 1e-4);
  EXPECT_NEAR(out.at(0, 0, 2) / out.at(0, 0, 1), 0.25, 1e-4);
  EXPECT_NEAR(0.2126 * out.at(0, 0, 0) + 0.7152 * out.at(0, 0, 1) + 0.0722 * out.at(0, 0, 2),
              look.map(0.2126 * 0.02 + 0.7152 * 0.04 + 0.0722 * 0.01), 1e-5);
  // The red is drawn towards grey until it fits, at its luminance.
  const double y = look.map(0.2126 * 0.9 + 0.7152 * 0.1 + 0.0722 * 0.05);
  EXPECT_NEAR(std::max({out.at(1, 0, 0), out.at(1, 0, 1), out.at(1, 0, 2)}), 1.0, 1e-5);
  EXPECT_NEAR(0.2126 * out.at(1, 0, 0) + 0.7152 * out.at(1, 0, 1) + 0.0722 * out.at(1, 0, 2), y, 1e-5);
  EXPECT_GT(out.at(1, 0, 0), out.at(1, 0, 1));
  // Below black is black.
  for (int c = 0; c < 3; ++c) EXPECT_EQ(out.at(2, 0, c), 0.0f);
}

}  // namespace
