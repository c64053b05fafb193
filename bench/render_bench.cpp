// The Develop preview's render chain on an 1800 × 1200 base (2.16 MP), the
// size of a preview of a 3:2 photo.

#include <benchmark/benchmark.h>

#include <random>

#include "engine/render/tone_pass.h"
#include "engine/render/tone_params.h"

using namespace lumivale;

namespace {

Image previewBase() {
  static const Image base = [] {
    FloatPixels pixels{1800, 1200, 3, {}};
    pixels.values.resize(std::size_t(1800) * 1200 * 3);
    std::mt19937 random(1);
    std::uniform_real_distribution<float> spread(0.0f, 1.2f);
    for (float& v : pixels.values) v = spread(random);
    return Image::fromPixels(pixels).materialize();
  }();
  return base;
}

void toneRow(benchmark::State& state) {
  EditSettings settings;
  settings.contrast = 30;
  TonePass pass{2, std::make_shared<const std::vector<float>>(ToneLUT::cube(ToneParams(settings), LUTDomain::scene))};
  std::vector<float> in(1800 * 3, 0.3f), out(1800 * 3);
  for (int i = 0; i < 1800 * 3; ++i) in[std::size_t(i)] = float(i % 97) / 80;
  for (auto _ : state) {
    tonePassRow(pass, in.data(), nullptr, out.data(), 1800);
    benchmark::DoNotOptimize(out.data());
  }
  state.SetItemsProcessed(state.iterations() * 1800);
}
BENCHMARK(toneRow);

void exposureAndCube(benchmark::State& state) {
  EditSettings settings;
  settings.contrast = 30;
  TonePass pass{2, std::make_shared<const std::vector<float>>(ToneLUT::cube(ToneParams(settings), LUTDomain::scene))};
  const Image base = previewBase();
  for (auto _ : state) benchmark::DoNotOptimize(applyTonePass(base, pass).materialize());
  state.SetItemsProcessed(state.iterations() * 1800 * 1200);
}
BENCHMARK(exposureAndCube)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
