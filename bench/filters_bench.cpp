// Every named filter on a 1800 × 1200 float RGB image (2.16 MP, a Develop
// preview), its result computed into memory on libvips' threads. Reports
// pixels per second; each run checks that the result is finite where the
// filter keeps it so. The preview budget for exposure and the colour cube
// together is 16–33 ms.

#include <benchmark/benchmark.h>

#include <cmath>
#include <functional>
#include <numbers>
#include <random>

#include "engine/render/filters/blur.h"
#include "engine/render/filters/color_cube.h"
#include "engine/render/filters/composite.h"
#include "engine/render/filters/gradient.h"
#include "engine/render/filters/noise.h"
#include "engine/render/filters/point.h"
#include "engine/render/filters/random_generator.h"
#include "engine/render/filters/resample.h"

using namespace lumivale;
using namespace lumivale::filters;

namespace {

constexpr int width = 1800, height = 1200;

// A photo-like image in memory: smooth ramps, some texture and noise,
// values a little beyond 0 … 1.
const Image& photo() {
  static const Image image = [] {
    FloatPixels p{width, height, 3, std::vector<float>(std::size_t(width) * height * 3)};
    std::mt19937 rng(3);
    std::normal_distribution<float> noise(0, 0.02f);
    for (int y = 0; y < height; ++y)
      for (int x = 0; x < width; ++x) {
        float* px = &p.values[(std::size_t(y) * width + x) * 3];
        px[0] = 1.1f * x / width - 0.05f + noise(rng);
        px[1] = 0.5f + 0.45f * std::sin(x * 0.01f + y * 0.02f) + noise(rng);
        px[2] = 1.0f - 0.9f * y / height + noise(rng);
      }
    return Image::fromPixels(p);
  }();
  return image;
}

const Image& mask() {
  static const Image image =
      radialGradient(width, height, {width / 2.0, height / 2.0}, width / 2.0, height / 2.0, 0.3, 1, 1.1, 0)
          .materialize();
  return image;
}

const Image& second() {
  static const Image image = gaussianBlur(photo(), 6).materialize();
  return image;
}

// A 33-point cube with some curvature, as the tone cube has.
const std::vector<float>& toneCube() {
  static const std::vector<float> cube = [] {
    const int n = 33;
    std::vector<float> c;
    for (int b = 0; b < n; ++b)
      for (int g = 0; g < n; ++g)
        for (int r = 0; r < n; ++r) {
          const float fr = r / 32.0f, fg = g / 32.0f, fb = b / 32.0f;
          c.insert(c.end(),
                   {std::pow(fr, 0.8f) * 0.95f + 0.05f * fg, std::pow(fg, 1.1f), 0.2f * fr + 0.8f * fb, 1});
        }
    return c;
  }();
  return cube;
}

void run(benchmark::State& state, const std::function<Image()>& filter) {
  Image result;
  for (auto _ : state) {
    result = filter().materialize();
    benchmark::DoNotOptimize(result.get());
  }
  const FloatPixels corner = result.readPixels(result.width() / 2, result.height() / 2, 1, 1);
  for (float v : corner.values)
    if (!std::isfinite(v)) state.SkipWithError("the result is not finite");
  state.SetItemsProcessed(state.iterations() * std::int64_t(result.width()) * result.height());
}

#define FILTER_BENCH(name, expression)      \
  void BM_##name(benchmark::State& state) { \
    photo(), mask(), second();              \
    run(state, [] { return expression; });  \
  }                                         \
  BENCHMARK(BM_##name)->Unit(benchmark::kMillisecond)->UseRealTime()

FILTER_BENCH(Copy, photo());
FILTER_BENCH(ExposureAdjust, exposureAdjust(photo(), 0.7));
FILTER_BENCH(ColorMatrix, colorMatrix(photo(), ColorMatrix::scale(0.25)));
FILTER_BENCH(ColorClamp, colorClamp(photo(), {0, 0, 0, 0}, {1, 1, 1, 1}));
FILTER_BENCH(GammaAdjust, gammaAdjust(photo(), 1 / 2.2));
FILTER_BENCH(ColorCube33, colorCube(photo(), toneCube(), 33));
FILTER_BENCH(ExposureThenCube33, colorCube(exposureAdjust(photo(), 0.7), toneCube(), 33));
FILTER_BENCH(ColorInvert, colorInvert(photo()));
FILTER_BENCH(GaussianBlur0_5, gaussianBlur(photo(), 0.5));
FILTER_BENCH(GaussianBlur2, gaussianBlur(photo(), 2));
FILTER_BENCH(GaussianBlur8, gaussianBlur(photo(), 8));
FILTER_BENCH(UnsharpMask2, unsharpMask(photo(), 2, 0.8));
FILTER_BENCH(BlendWithMask, blendWithMask(photo(), second(), mask()));
FILTER_BENCH(MultiplyCompositing, multiplyCompositing(photo(), second()));
FILTER_BENCH(DissolveTransition, dissolveTransition(photo(), second(), 0.4));
FILTER_BENCH(LuminosityBlend, luminosityBlend(photo(), second()));
FILTER_BENCH(LinearGradient, linearGradient(width, height, {100, 200}, 0, {1500, 900}, 1));
FILTER_BENCH(RadialGradient, radialGradient(width, height, {900, 600}, 900, 600, 0.3, 0, 1.1, 1));
FILTER_BENCH(RandomGenerator, randomGenerator(-32, -32, width, height));
FILTER_BENCH(NoiseReduction, noiseReduction(photo(), 0.05, 0));
FILTER_BENCH(MedianFilter, medianFilter(photo()));
FILTER_BENCH(LanczosHalf, lanczosScale(photo(), 0.5));
FILTER_BENCH(LanczosUp1_5, lanczosScale(photo(), 1.5));
FILTER_BENCH(AffineStraighten, affine(photo(), Affine::rotation(0.05), {0, 0, width, height}));
FILTER_BENCH(Crop, crop(photo(), 100, 100, 1600, 1000));

}  // namespace
