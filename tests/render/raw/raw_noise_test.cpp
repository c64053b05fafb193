// Noise reduction of developed RAW data: nothing at 0, less noise at 100,
// edges and luminance kept, the noise's spread measured on the image.

#include "engine/render/raw/raw_noise.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

using namespace lumivale;

namespace {

constexpr double wr = 0.2126, wg = 0.7152, wb = 0.0722;

// A flat colour (or, with `edgeAt`, two flat halves split at that column)
// with photon-like noise: independent per channel, spread `noise` on the
// square root of the value.
Image noisy(int width, int height, double noise, int edgeAt = -1, double seedShift = 0) {
  std::mt19937 random(42 + int(seedShift));
  std::normal_distribution<double> normal(0.0, noise);
  FloatPixels p{width, height, 3, {}};
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const double base[3] = {0.10, 0.12, 0.08};
      const double scale = edgeAt >= 0 && x >= edgeAt ? 4.0 : 1.0;
      for (double b : base) {
        const double root = std::sqrt(b * scale) + normal(random);
        p.values.push_back(float(root * std::abs(root)));
      }
    }
  }
  return Image::fromPixels(p);
}

struct Spread {
  double luminance = 0;  // standard deviation of the luminance
  double chroma = 0;     // of red and blue over luminance
  double meanLuminance = 0;
};

Spread spread(const Image& image, int left, int top, int width, int height) {
  const FloatPixels p = image.readPixels(left, top, width, height);
  std::vector<double> l, c;
  for (int y = 0; y < p.height; ++y) {
    for (int x = 0; x < p.width; ++x) {
      const double lum = wr * p.at(x, y, 0) + wg * p.at(x, y, 1) + wb * p.at(x, y, 2);
      l.push_back(lum);
      c.push_back((p.at(x, y, 0) - p.at(x, y, 2)) / std::max(lum, 1e-6));
    }
  }
  auto deviation = [](const std::vector<double>& v, double& mean) {
    mean = 0;
    for (double x : v) mean += x / v.size();
    double s = 0;
    for (double x : v) s += (x - mean) * (x - mean) / v.size();
    return std::sqrt(s);
  };
  Spread s;
  double chromaMean = 0;
  s.luminance = deviation(l, s.meanLuminance);
  s.chroma = deviation(c, chromaMean);
  return s;
}

TEST(RawNoise, BothAmountsAtZeroLeaveTheImageUntouched) {
  const Image image = noisy(64, 48, 0.02);
  const Image same = RawNoise::reduce(image, {0, 0}, 0.02, 1.0);
  EXPECT_EQ(same.get(), image.get());
  // A following step alone still runs, on the untouched pixels.
  const Image doubled = RawNoise::reduce(image, {0, 0}, 0.02, 1.0, [](float* rgb, int width) {
    for (int i = 0; i < 3 * width; ++i) rgb[i] *= 2;
  });
  const FloatPixels a = image.readPixels(), b = doubled.readPixels();
  for (std::size_t i = 0; i < a.values.size(); ++i) ASSERT_EQ(b.values[i], 2 * a.values[i]);
}

TEST(RawNoise, MeasuresTheSpreadOfTheNoise) {
  for (double noise : {0.005, 0.02, 0.05}) {
    EXPECT_NEAR(RawNoise::noiseSigma(noisy(200, 150, noise)), noise * std::sqrt(wr * wr + wg * wg + wb * wb),
                noise * 0.12)
        << noise;
  }
}

TEST(RawNoise, FullAmountsReduceTheNoiseOfAFlatPatch) {
  const Image image = noisy(160, 120, 0.03);
  const double sigma = RawNoise::noiseSigma(image);
  const Spread before = spread(image, 20, 20, 120, 80);

  const Spread luminance = spread(RawNoise::reduce(image, {1, 0}, sigma, 1.0), 20, 20, 120, 80);
  EXPECT_LT(luminance.luminance, before.luminance / 3);
  EXPECT_NEAR(luminance.meanLuminance, before.meanLuminance, before.meanLuminance * 0.02);

  const Spread colour = spread(RawNoise::reduce(image, {0, 1}, sigma, 1.0), 20, 20, 120, 80);
  EXPECT_LT(colour.chroma, before.chroma / 5);
  EXPECT_NEAR(colour.meanLuminance, before.meanLuminance, before.meanLuminance * 0.02);

  // A preview at a quarter of full size blurs colour over a quarter of the
  // pixels, and still reduces the noise.
  const Spread preview = spread(RawNoise::reduce(image, {0, 1}, sigma, 0.25), 20, 20, 120, 80);
  EXPECT_LT(preview.chroma, before.chroma / 2);
  EXPECT_GT(preview.chroma, colour.chroma);
}

TEST(RawNoise, ColourSmoothingKeepsEachPixelsLuminance) {
  const Image image = noisy(80, 60, 0.03);
  const FloatPixels a = image.readPixels(), b = RawNoise::reduce(image, {0, 1}, 0.03, 1.0).readPixels();
  // Luminance of the rooted channels is what stays exactly.
  auto rooted = [](const FloatPixels& p, int x, int y) {
    double l = 0;
    const double w[3] = {wr, wg, wb};
    for (int c = 0; c < 3; ++c) {
      const double v = p.at(x, y, c);
      l += w[c] * (v < 0 ? -std::sqrt(-v) : std::sqrt(v));
    }
    return l;
  };
  for (int y = 0; y < a.height; y += 7) {
    for (int x = 0; x < a.width; x += 5) ASSERT_NEAR(rooted(b, x, y), rooted(a, x, y), 1e-5) << x << "," << y;
  }
}

TEST(RawNoise, LuminanceSmoothingKeepsEdges) {
  // Two flat halves four times apart in brightness, with noise: smoothing
  // must not carry one half into the other.
  const Image image = noisy(120, 80, 0.02, 60);
  const Image smoothed = RawNoise::reduce(image, {1, 0}, RawNoise::noiseSigma(image), 1.0);
  const Spread left = spread(smoothed, 56, 10, 3, 60), right = spread(smoothed, 61, 10, 3, 60);
  EXPECT_GT(right.meanLuminance / left.meanLuminance, 3.6);
}

}  // namespace
