// The edit model's hot paths: storing and reading settings (every history
// step, snapshot and undo goes through them) and curve evaluation (the tone
// tables call it for every sample).

#include <benchmark/benchmark.h>

#include "engine/edit/edit_settings.h"
#include "engine/edit/field_path.h"

using namespace lumivale;

namespace {

// A heavy but realistic record: four shaped curves, five masks of which two
// carry a 16 KB bitmap and the brush masks a hundred dabs each.
EditSettings heavySettings() {
  EditSettings s;
  s.exposure = 0.35, s.contrast = 22, s.highlights = -41, s.shadows = 17, s.vibrance = 30;
  s.curveRGB.points = {{0, 0.05}, {0.25, 0.22}, {0.5, 0.55}, {0.75, 0.8}, {1, 0.97}};
  s.curveRed.points = {{0, 0}, {0.3, 0.27}, {0.7, 0.74}, {1, 1}};
  s.curveGreen.points = {{0, 0.02}, {0.5, 0.52}, {1, 0.98}};
  s.curveBlue.points = {{0, 0.1}, {0.3, 0.2}, {0.7, 0.75}, {1, 0.9}};
  for (std::size_t i = 0; i < s.hsl.size(); ++i) s.hsl[i] = {1.5 * i, -2.0 * i, 0.25 * i};
  s.gradeShadows = {220, 20, -5};
  s.crop = {0.1, 0.05, 0.8, 0.85};
  s.straighten = 2.5;
  const MaskKind kinds[] = {MaskKind::brush, MaskKind::linear, MaskKind::radial, MaskKind::subject,
                            MaskKind::brush};
  for (int k = 0; k < 5; ++k) {
    PhotoMask m(kinds[k]);
    m.adjust = {0.3, 10, -20, 15, 5, -3, 12, 8};
    if (kinds[k] == MaskKind::brush) {
      for (int i = 0; i < 100; ++i)
        m.dabs.push_back({0.003 * i, 0.5 + 0.001 * i, 0.05, 0.5, 0.8, i % 7 == 0});
    }
    if (k == 3) {
      m.maskPNG = std::vector<std::uint8_t>(16384);
      for (std::size_t i = 0; i < m.maskPNG->size(); ++i)
        m.maskPNG->at(i) = static_cast<std::uint8_t>(i * 31);
    }
    s.masks.push_back(std::move(m));
  }
  return s;
}

void BM_EncodeSettings(benchmark::State& state) {
  const EditSettings s = heavySettings();
  std::size_t bytes = 0;
  for (auto _ : state) {
    auto blob = s.encoded();
    if (!blob) state.SkipWithError("encoding failed");
    bytes += blob->size();
    benchmark::DoNotOptimize(blob);
  }
  state.SetItemsProcessed(state.iterations());
  state.SetBytesProcessed(static_cast<std::int64_t>(bytes));
}
BENCHMARK(BM_EncodeSettings);

void BM_DecodeSettings(benchmark::State& state) {
  const EditSettings s = heavySettings();
  const std::string blob = *s.encoded();
  for (auto _ : state) {
    EditSettings decoded = EditSettings::decode(blob);
    if (decoded.masks.size() != 5) state.SkipWithError("decoding lost the masks");
    benchmark::DoNotOptimize(decoded);
  }
  state.SetItemsProcessed(state.iterations());
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * blob.size()));
}
BENCHMARK(BM_DecodeSettings);

// The default record: what most photos store.
void BM_DecodeDefaultSettings(benchmark::State& state) {
  const std::string blob = *EditSettings{}.encoded();
  for (auto _ : state) {
    EditSettings decoded = EditSettings::decode(blob);
    if (!decoded.isDefault()) state.SkipWithError("default record changed");
    benchmark::DoNotOptimize(decoded);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_DecodeDefaultSettings);

void BM_HashSettings(benchmark::State& state) {
  const EditSettings s = heavySettings();
  for (auto _ : state) benchmark::DoNotOptimize(s.hash());
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_HashSettings);

// One field edit of the heavy record, as the command line's `edit` makes it:
// a top-level number, a value deep inside a mask, a point of a curve.
void BM_ApplyFieldEdit(benchmark::State& state) {
  const EditSettings s = heavySettings();
  const FieldEdit edits[] = {
      {"exposure", "0.5"}, {"masks.3.adjust.exposure", "1"}, {"curveRGB.points.1.y", "0.3"}};
  const FieldEdit& edit = edits[state.range(0)];
  for (auto _ : state) {
    EditSettings edited = applyFieldEdits(s, {edit});
    if (edited == s) state.SkipWithError("the edit changed nothing");
    benchmark::DoNotOptimize(edited);
  }
  state.SetLabel(edit.path);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_ApplyFieldEdit)->DenseRange(0, 2);

// One evaluation per iteration, over inputs that visit every segment. Each
// output is checked, so the calls cannot be optimised away.
void BM_CurveEvaluate(benchmark::State& state) {
  ToneCurve curve;
  curve.points.clear();
  const int points = static_cast<int>(state.range(0));
  for (int i = 0; i < points; ++i) {
    const double x = static_cast<double>(i) / (points - 1);
    curve.points.push_back({x, 0.1 + 0.8 * x * x * (3 - 2 * x)});
  }
  const CurveEvaluator e = curve.evaluator();
  double x = 0;
  bool outOfRange = false;
  for (auto _ : state) {
    const double y = e(x);
    // Every output lies between the curve's end outputs, 0.1 and 0.9.
    outOfRange |= !(y >= 0.1 - 1e-12 && y <= 0.9 + 1e-12);
    benchmark::DoNotOptimize(y);
    x += 0.0078125;
    if (x > 1) x -= 1;
  }
  if (outOfRange) state.SkipWithError("curve evaluation went wrong");
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_CurveEvaluate)->Arg(2)->Arg(5)->Arg(16);

void BM_CurveEvaluatorBuild(benchmark::State& state) {
  const ToneCurve curve{{{0, 0.05}, {0.25, 0.22}, {0.5, 0.55}, {0.75, 0.8}, {1, 0.97}}};
  for (auto _ : state) {
    CurveEvaluator e = curve.evaluator();
    benchmark::DoNotOptimize(e);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_CurveEvaluatorBuild);

}  // namespace
