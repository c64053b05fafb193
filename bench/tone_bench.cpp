// The tone cube is rebuilt for every distinct tone setting, so a slider drag
// rebuilds it every frame: these are its costs with every stage active and
// with default parameters, plus a single mapping for scale.

#include <benchmark/benchmark.h>

#include <cmath>

#include "engine/render/tone_lut.h"
#include "engine/render/tone_params.h"
#include "tests/support/tone_settings.h"

using namespace lumivale;

namespace {

using test::everyToneStage;

void cubeBench(benchmark::State& state, const ToneParams& params, LUTDomain domain) {
  const int n = ToneLUT::dimension;
  for (auto _ : state) {
    std::vector<float> cube = ToneLUT::cube(params, domain, n);
    benchmark::DoNotOptimize(cube.data());
  }
  // Checks the work was real: a default display cube has grey on its diagonal.
  std::vector<float> cube = ToneLUT::cube(params, domain, n);
  const std::size_t mid = (std::size_t(n / 2) * n + n / 2) * n + n / 2;
  if (!std::isfinite(cube[mid * 4]) || cube[mid * 4 + 3] != 1.0f) state.SkipWithError("bad cube");
  state.SetItemsProcessed(state.iterations() * n * n * n);
}

void BM_CubeEveryStage(benchmark::State& state) {
  cubeBench(state, ToneParams(everyToneStage()), LUTDomain::scene);
}
BENCHMARK(BM_CubeEveryStage)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_CubeEveryStageDisplay(benchmark::State& state) {
  cubeBench(state, ToneParams(everyToneStage()), LUTDomain::display);
}
BENCHMARK(BM_CubeEveryStageDisplay)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_CubeDefault(benchmark::State& state) { cubeBench(state, ToneParams(), LUTDomain::scene); }
BENCHMARK(BM_CubeDefault)->Unit(benchmark::kMillisecond)->UseRealTime();

// A mask's table: white balance, exposure, light and saturation.
void BM_CubeMask(benchmark::State& state) {
  MaskAdjust a;
  a.exposure = 0.4, a.contrast = 15, a.highlights = -20, a.shadows = 10, a.temperature = 8;
  a.saturation = 12;
  cubeBench(state, ToneParams(a), LUTDomain::display);
}
BENCHMARK(BM_CubeMask)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_MapEveryStage(benchmark::State& state) {
  const ToneParams params(everyToneStage());
  double v = 0.1;
  for (auto _ : state) {
    RGB out = ToneLUT::map({v, 0.4, 0.7}, params);
    benchmark::DoNotOptimize(out);
    v = v < 0.9 ? v + 0.01 : 0.1;
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_MapEveryStage);

void BM_ParamsFromSettings(benchmark::State& state) {
  const EditSettings s = everyToneStage();
  for (auto _ : state) {
    ToneParams p(s);
    benchmark::DoNotOptimize(p.gain);
  }
}
BENCHMARK(BM_ParamsFromSettings);

}  // namespace
