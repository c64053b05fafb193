#include "engine/render/tone_pass.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

#include "engine/render/tone_params.h"

using namespace lumivale;

namespace {

// applyCube's steps in double precision, straight from their definitions:
// scale, clamp, 1/2.2, trilinear lookup, 2.2.
std::array<double, 3> reference(const TonePass& pass, const float* rgb) {
  const int n = pass.dimension;
  const auto& cube = *pass.cube;
  double p[3];
  int i[3];
  double f[3];
  for (int c = 0; c < 3; ++c) {
    double v = double(rgb[c]) * pass.gain * (pass.domain == LUTDomain::scene ? 0.25 : 1.0);
    v = std::isnan(v) ? 0 : std::clamp(v, 0.0, 1.0);
    p[c] = std::pow(v, 1 / 2.2) * (n - 1);
    i[c] = std::min(int(std::floor(p[c])), n - 2);
    f[c] = p[c] - i[c];
  }
  std::array<double, 3> out{};
  for (int c = 0; c < 3; ++c) {
    double sum = 0;
    for (int corner = 0; corner < 8; ++corner) {
      const int dr = corner & 1, dg = (corner >> 1) & 1, db = corner >> 2;
      const double w = (dr ? f[0] : 1 - f[0]) * (dg ? f[1] : 1 - f[1]) * (db ? f[2] : 1 - f[2]);
      sum += w * cube[std::size_t(4 * ((i[0] + dr) + n * ((i[1] + dg) + n * (i[2] + db))) + c)];
    }
    out[c] = std::pow(std::clamp(sum, 0.0, 1.0), 2.2);
  }
  return out;
}

}  // namespace

TEST(TonePassTest, MatchesTheStepsOfApplyCubeWithinATenThousandth) {
  EditSettings settings;
  settings.contrast = 45;
  settings.shadows = 60;
  settings.blacks = -30;
  settings.temperature = 25;
  settings.hsl[2].saturation = 40;
  std::mt19937 random(7);
  std::uniform_real_distribution<float> spread(-0.5f, 5.0f);
  // Hostile values along with ordinary ones: tiny, negative, far above 1, NaN.
  std::vector<float> row = {0, 1e-30f, 1e-12f, 1e-6f, -1, 4, 100, std::numeric_limits<float>::quiet_NaN(),
                            0.18f, 0.5f, 1};
  while (row.size() < 3 * 301) row.push_back(spread(random));  // not a multiple of any vector width
  const int width = int(row.size() / 3);
  for (LUTDomain domain : {LUTDomain::scene, LUTDomain::display}) {
    for (float gain : {1.0f, 2.0f, 0.3f}) {
      for (bool masked : {false, true}) {
        TonePass pass{gain, std::make_shared<const std::vector<float>>(ToneLUT::cube(ToneParams(settings), domain)),
                      ToneLUT::dimension, domain};
        std::vector<float> mask(static_cast<std::size_t>(width), 0.0f);
        for (int x = 0; x < width; ++x) mask[std::size_t(x)] = float(x % 5) / 4;
        std::vector<float> out(row.size());
        tonePassRow(pass, row.data(), masked ? mask.data() : nullptr, out.data(), width);
        double worst = 0;
        for (int x = 0; x < width; ++x) {
          const auto want = reference(pass, &row[std::size_t(3 * x)]);
          for (int c = 0; c < 3; ++c) {
            const double source = row[std::size_t(3 * x + c)];
            const double expected = masked ? source + mask[std::size_t(x)] * (want[std::size_t(c)] - source)
                                            : want[std::size_t(c)];
            if (std::isnan(source) && masked) continue;  // NaN blended stays NaN either way
            worst = std::max(worst, std::abs(out[std::size_t(3 * x + c)] - expected));
          }
        }
        EXPECT_LT(worst, 1e-4) << "domain " << int(domain) << " gain " << gain << " masked " << masked;
      }
    }
  }
}

TEST(TonePassTest, GainAloneMultipliesAndTheLazyImageAgreesWithTheRow) {
  FloatPixels pixels{37, 5, 3, {}};
  for (int i = 0; i < 37 * 5 * 3; ++i) pixels.values.push_back(float(i % 17) / 8 - 0.5f);
  const Image image = Image::fromPixels(pixels);
  const FloatPixels doubled = applyTonePass(image, {2.0f}).readPixels();
  for (std::size_t i = 0; i < pixels.values.size(); ++i) ASSERT_EQ(doubled.values[i], pixels.values[i] * 2) << i;
  TonePass pass{1.5f, std::make_shared<const std::vector<float>>(ToneLUT::cube(ToneParams(), LUTDomain::scene)),
                ToneLUT::dimension, LUTDomain::scene};
  const FloatPixels whole = applyTonePass(image, pass).readPixels();
  std::vector<float> row(37 * 3);
  tonePassRow(pass, pixels.values.data() + 2 * 37 * 3, nullptr, row.data(), 37);
  for (int i = 0; i < 37 * 3; ++i) EXPECT_EQ(whole.values[std::size_t(2 * 37 * 3 + i)], row[std::size_t(i)]);
  EXPECT_THROW(applyTonePass(image, {1, std::make_shared<const std::vector<float>>(8), 33}), ImageError);
}
