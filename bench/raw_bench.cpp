// RAW files: the Develop preview base (1800 pixels) of the shared 8.2 MP
// Canon file with its decoder options, the full-size base, the sensor
// development alone, and the embedded preview at thumbnail size.
//
// The photo is read from ../shared/testdata; the benchmarks are skipped when
// it is absent.

#include <benchmark/benchmark.h>

#include <filesystem>
#include <stdexcept>

#include "engine/media/embedded_preview.h"
#include "engine/media/raw_decoder.h"
#include "engine/render/raw/raw_source.h"

using namespace lumivale;

namespace {

const std::filesystem::path camera = LUMIVALE_SOURCE_DIR "/../shared/testdata/photos/raw/IMG_5952.CR2";

bool available(benchmark::State& state) {
  if (std::filesystem::exists(camera)) return true;
  state.SkipWithError("the shared test photo is missing");
  return false;
}

void countPixels(benchmark::State& state, const Image& image) {
  if (image.empty()) throw std::runtime_error("nothing decoded");
  state.SetItemsProcessed(state.iterations() * std::int64_t(image.width()) * image.height());
}

// Decoder options: 0 none, 1 a RAW photo's initial settings (lens
// correction, colour noise 25), 2 lens correction and both noise
// reductions at 50.
EditSettings settingsFor(int options) {
  EditSettings s;
  s.sharpenAmount = 25;  // the render pipeline's, not the decoder's
  s.lensCorrection = options > 0;
  s.noiseColor = options == 1 ? 25 : options == 2 ? 50 : 0;
  s.noiseLuminance = options == 2 ? 50 : 0;
  return s;
}

void previewBase(benchmark::State& state) {
  if (!available(state)) return;
  const auto source = RawSource::open(camera);
  const EditSettings settings = settingsFor(int(state.range(0)));
  Image base;
  for (auto _ : state) base = source->image(1800, settings).materialize();
  countPixels(state, base);
}
BENCHMARK(previewBase)->Arg(0)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

void fullBase(benchmark::State& state) {
  if (!available(state)) return;
  const auto source = RawSource::open(camera);
  const EditSettings settings = settingsFor(1);
  Image base;
  for (auto _ : state) base = source->image(std::nullopt, settings).materialize();
  countPixels(state, base);
}
BENCHMARK(fullBase)->Unit(benchmark::kMillisecond)->UseRealTime();

void develop(benchmark::State& state) {
  if (!available(state)) return;
  Image image;
  for (auto _ : state) image = RawDecoder::develop(camera, {.halfSize = state.range(0) == 1});
  countPixels(state, image);
}
BENCHMARK(develop)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();

void embeddedPreview(benchmark::State& state) {
  if (!available(state)) return;
  Image preview;
  for (auto _ : state) preview = EmbeddedPreviews::largest(camera, 420);
  countPixels(state, preview);
}
BENCHMARK(embeddedPreview)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
