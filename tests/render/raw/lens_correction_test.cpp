// Lens correction: which bodies and lenses lensfun knows, and whether the
// corrected picture puts each pixel where lensfun's own modifier says.

#include "engine/render/raw/lens_correction.h"

#include <gtest/gtest.h>
#include <lensfun/lensfun.h>
#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

#include <cmath>
#include <memory>

using namespace lumivale;

namespace {

RawFacts facts(const std::string& make, const std::string& model, const std::string& lens, double focal = 24,
               double fNumber = 4) {
  RawFacts f;
  f.width = 600;
  f.height = 400;
  f.cameraNames = {{make, model}};
  f.lensNames = {lens};
  f.focal = focal;
  f.fNumber = fNumber;
  return f;
}

const RawFacts fullFrame = facts("Canon", "Canon EOS 5D Mark II", "EF24-105mm f/4L IS USM");

TEST(LensCorrection, FindsBodiesAndLensesLensfunKnows) {
  const auto profile = LensCorrection::profile(fullFrame);
  ASSERT_TRUE(profile);
  EXPECT_EQ(profile->camera, "Canon Canon EOS 5D Mark II");
  EXPECT_EQ(profile->lens, "Canon EF 24-105mm f/4L IS USM");
  EXPECT_TRUE(profile->distortion && profile->tca && profile->vignetting);

  // The fuzzy body search also offers the EOS D30 for "EOS 30D": the exact
  // name wins.
  const auto canon = LensCorrection::profile(facts("Canon", "EOS 30D", "EF-S 18-55mm f/3.5-5.6"));
  ASSERT_TRUE(canon);
  EXPECT_EQ(canon->camera, "Canon Canon EOS 30D");

  // A later name helps when an earlier one is not known.
  RawFacts several = facts("Lumivale", "Test Camera", "Test 35mm F2");
  several.cameraNames.emplace_back("Canon", "Canon EOS 5D Mark II");
  several.lensNames.push_back("Canon EF 24-105mm f/4L IS USM");
  EXPECT_TRUE(LensCorrection::available(several));

  EXPECT_FALSE(LensCorrection::available(facts("Canon", "Canon EOS 5D Mark II", "Test 35mm F2")));
  EXPECT_FALSE(LensCorrection::available(facts("Lumivale", "Test Camera", "EF24-105mm f/4L IS USM")));
  EXPECT_FALSE(LensCorrection::available(RawFacts{}));
}

// lensfun's own answer for the test frame: where output pixel p takes its
// red, green and blue from, and the vignetting gain at a pixel.
class Lensfun {
 public:
  explicit Lensfun(const RawFacts& f) {
#if defined(__SANITIZE_ADDRESS__)
    __lsan::ScopedDisabler lensfunLosesAPathWhenLoading;
#endif
    db_.Load();
    const lfCamera** cameras = db_.FindCamerasExt("Canon", "Canon EOS 5D Mark II");
    const lfLens** lenses = db_.FindLenses(cameras[0], nullptr, "Canon EF 24-105mm f/4L IS USM");
    modifier_ = std::make_unique<lfModifier>(lenses[0], cameras[0]->CropFactor, f.width, f.height);
    modifier_->Initialize(lenses[0], LF_PF_F32, float(f.focal), float(f.fNumber), 1000, 0, lenses[0]->Type,
                          LF_MODIFY_VIGNETTING | LF_MODIFY_TCA | LF_MODIFY_DISTORTION | LF_MODIFY_SCALE,
                          false);
    lf_free(lenses);
    lf_free(cameras);
  }
  std::array<float, 6> sources(float x, float y) const {
    std::array<float, 6> out{};
    modifier_->ApplySubpixelGeometryDistortion(x, y, 1, 1, out.data());
    return out;
  }
  float gain(float x, float y) const {
    float pixel[3] = {1, 1, 1};
    modifier_->ApplyColorModification(pixel, x, y, 1, 1, LF_CR_3(RED, GREEN, BLUE), 3 * sizeof(float));
    return pixel[1];
  }

 private:
  lfDatabase db_;
  std::unique_ptr<lfModifier> modifier_;
};

// A dark frame with a small bright Gaussian dot in one channel at (x, y).
Image dotAt(int width, int height, double x, double y, int channel) {
  FloatPixels p{width, height, 3, std::vector<float>(std::size_t(width) * height * 3, 0.0f)};
  for (int py = 0; py < height; ++py) {
    for (int px = 0; px < width; ++px) {
      const double d2 = (px - x) * (px - x) + (py - y) * (py - y);
      p.values[(std::size_t(py) * width + px) * 3 + channel] = float(std::exp(-d2 / (2 * 1.5 * 1.5)));
    }
  }
  return Image::fromPixels(p);
}

// The brightness-weighted centre of one channel near (x, y).
std::pair<double, double> centroid(const Image& image, double x, double y, int channel) {
  const int left = int(x) - 8, top = int(y) - 8;
  const FloatPixels p = image.readPixels(left, top, 17, 17);
  double sum = 0, sx = 0, sy = 0;
  for (int py = 0; py < p.height; ++py) {
    for (int px = 0; px < p.width; ++px) {
      const double v = p.at(px, py, channel);
      sum += v;
      sx += v * (left + px);
      sy += v * (top + py);
    }
  }
  return {sx / sum, sy / sum};
}

TEST(LensCorrection, MovesPixelsWhereLensfunSays) {
  const Lensfun lensfun(fullFrame);
  // Near a corner (distortion and TCA at their strongest), an edge and the
  // centre; for each channel.
  for (auto [x, y] : {std::pair(40.0, 30.0), std::pair(560.0, 200.0), std::pair(300.0, 200.0)}) {
    const std::array<float, 6> from = lensfun.sources(float(x), float(y));
    for (int c = 0; c < 3; ++c) {
      SCOPED_TRACE("output " + std::to_string(x) + "," + std::to_string(y) + " channel " + std::to_string(c));
      const Image corrected =
          LensCorrection::apply(dotAt(600, 400, from[2 * c], from[2 * c + 1], c), fullFrame);
      ASSERT_EQ(corrected.width(), 600);
      const auto [cx, cy] = centroid(corrected, x, y, c);
      EXPECT_NEAR(cx, x, 0.15);
      EXPECT_NEAR(cy, y, 0.15);
    }
  }
  // The test would prove nothing if the lens did not move the corner.
  const std::array<float, 6> corner = lensfun.sources(40, 30);
  EXPECT_GT(std::hypot(corner[2] - 40, corner[3] - 30), 2.0);
  EXPECT_GT(std::abs(corner[0] - corner[4]), 0.05);  // red and blue apart: TCA
}

TEST(LensCorrection, BrightensTheCornersByLensfunsGain) {
  // No distortion at the centre of a flat frame: the gain is all that
  // changes the colour, and it grows towards the corners.
  const Lensfun lensfun(fullFrame);
  const Image flat = Image::constant(600, 400, {0.2, 0.2, 0.2});
  const Image corrected = LensCorrection::apply(flat, fullFrame);
  const float centre = corrected.readPixels(300, 200, 1, 1).at(0, 0, 1);
  const float corner = corrected.readPixels(5, 5, 1, 1).at(0, 0, 1);
  EXPECT_NEAR(centre, 0.2f * lensfun.gain(300, 200), 0.002);
  EXPECT_GT(corner, centre * 1.05f);
  // Where the corner pixel comes from decides which gain applies.
  const std::array<float, 6> from = lensfun.sources(5, 5);
  EXPECT_NEAR(corner, 0.2f * lensfun.gain(from[2], from[3]), 0.003);
}

TEST(LensCorrection, LeavesTheImageAloneWithoutAProfile) {
  const Image flat = Image::constant(60, 40, {0.2, 0.3, 0.4});
  const Image same = LensCorrection::apply(flat, facts("Lumivale", "Test Camera", "Test 35mm F2"));
  EXPECT_EQ(same.get(), flat.get());
}

}  // namespace
