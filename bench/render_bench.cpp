// The Develop preview's render chain on an 1800 × 1200 base (2.16 MP), the
// size of a preview of a 3:2 photo.

#include <benchmark/benchmark.h>

#include <random>

#include "engine/render/photo_renderer.h"
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

// Renders the preview with `settings` from the materialised base, computed
// into memory as the Develop canvas asks for it.
void renderPreview(benchmark::State& state, const EditSettings& settings) {
  const Image base = previewBase();
  PhotoRenderer renderer;
  renderer.render(base, {6000, 4000}, settings).materialize();  // cubes built once, as while dragging
  for (auto _ : state) benchmark::DoNotOptimize(renderer.render(base, {6000, 4000}, settings).materialize());
  state.SetItemsProcessed(state.iterations() * 1800 * 1200);
}

EditSettings everyStage() {
  EditSettings s{.exposure = 0.4, .contrast = 25, .highlights = -30, .shadows = 20, .vibrance = 15};
  PhotoMask brush(MaskKind::brush);
  for (int i = 0; i < 200; ++i) brush.dabs.push_back({0.2 + i * 0.003, 0.5, 0.05, 0.5, 0.6, false});
  brush.adjust.exposure = 0.6;
  PhotoMask radial(MaskKind::radial);
  radial.cx = 0.5, radial.cy = 0.4, radial.rx = 0.3, radial.ry = 0.2, radial.feather = 0.6;
  radial.adjust = {.contrast = 20, .saturation = 15};
  PhotoMask linear(MaskKind::linear);
  linear.x0 = 0.5, linear.y0 = 0, linear.x1 = 0.5, linear.y1 = 0.4;
  linear.adjust = {.exposure = -0.5, .highlights = -20};
  s.masks = {brush, radial, linear};
  s.straighten = 2.5;
  s.crop = {0.05, 0.05, 0.9, 0.9};
  s.sharpenAmount = 40;
  s.vignetteAmount = -30;
  s.grainAmount = 20;
  return s;
}

BENCHMARK_CAPTURE(renderPreview, exposureOnly, EditSettings{.exposure = 0.7})
    ->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(renderPreview, exposureAndTone, EditSettings{.exposure = 0.7, .contrast = 30, .shadows = 20})
    ->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(renderPreview, everyStage, everyStage())->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
namespace {
EditSettings masksOnly() { EditSettings s = everyStage(); s.straighten = 0; s.crop = {}; s.sharpenAmount = 0; s.vignetteAmount = 0; s.grainAmount = 0; return s; }
EditSettings geometryOnly() { return EditSettings{.straighten = 2.5, .crop = {0.05, 0.05, 0.9, 0.9}}; }
BENCHMARK_CAPTURE(renderPreview, masksOnly, masksOnly())->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(renderPreview, geometryOnly, geometryOnly())->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(renderPreview, sharpen, EditSettings{.sharpenAmount = 40})->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(renderPreview, vignette, EditSettings{.vignetteAmount = -30})->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(renderPreview, grain, EditSettings{.grainAmount = 20})->Unit(benchmark::kMillisecond)->UseRealTime();
}
namespace {
EditSettings oneMask(int which) { EditSettings s = masksOnly(); s.masks = {s.masks[std::size_t(which)]}; s.exposure = 0; s.contrast = 0; s.highlights = 0; s.shadows = 0; s.vibrance = 0; return s; }
BENCHMARK_CAPTURE(renderPreview, brushMask, oneMask(0))->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(renderPreview, radialMask, oneMask(1))->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(renderPreview, linearMask, oneMask(2))->Unit(benchmark::kMillisecond)->UseRealTime();
}

#include "engine/media/bitmap.h"
#include "engine/render/photo_source.h"
#include "tests/support/sample_photos.h"

namespace {

// A 24 MP camera JPEG developed at full size with a tone edit into an 8-bit
// sRGB bitmap, from the file: the decode streams into the chain.
void fullSizeToneToBitmap(benchmark::State& state) {
  const auto photo = test::sharedPhoto("camera/sony-a6000-6000x4000.jpg");
  if (!photo) return state.SkipWithError("the shared camera JPEG is not there");
  const EditSettings settings{.exposure = 0.3, .contrast = 25};
  for (auto _ : state) {
    const PhotoSource source = PhotoSource::open(*photo);
    PhotoRenderer renderer;
    const Image developed = renderer.render(source.image(std::nullopt, settings).image, source.fullSize(), settings);
    benchmark::DoNotOptimize(toBitmap(developed, ColorSpace::sRGB, 8));
  }
  state.SetItemsProcessed(state.iterations() * 6000 * 4000);
}
BENCHMARK(fullSizeToneToBitmap)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
