// Smart masks from the 1800-pixel previews of two shared photos: the sky
// search, the salient-object model (loading it, one pass, and the first
// subject of a process, loading included), the person detectors and the
// first people mask of a process. Peak memory of the process is reported as
// a counter. The model benchmarks are skipped without the installed model.

#include <benchmark/benchmark.h>
#include <sys/resource.h>


#include "engine/media/bitmap.h"
#include "engine/media/image_decoder.h"
#include "engine/render/person_finder.h"
#include "engine/render/segmentation_model.h"
#include "engine/render/smart_masks.h"
#include "tests/support/sample_photos.h"

using namespace lumivale;

namespace {

// A photo as the smart masks get it: 8-bit sRGB, 1800 pixels on its long
// side; empty when the shared photo is not there.
Bitmap preview(const char* relativePath) {
  const auto file = test::sharedPhoto(relativePath);
  if (!file) return {};
  return toBitmap(ImageDecoder::decode(*file, 1800).image, ColorSpace::sRGB, 8);
}

const Bitmap& dogs() {
  static const Bitmap b = preview("phone/IMG_20200608_111614.jpg");
  return b;
}

const Bitmap& nightCity() {
  static const Bitmap b = preview("camera/sony-a6000-6000x4000.jpg");
  return b;
}

double peakMB() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss / 1024.0;
}

bool ready(benchmark::State& state, const Bitmap& picture, bool needsModel) {
  if (picture.bytes.empty()) {
    state.SkipWithError("the shared test photos are not there");
    return false;
  }
  if (needsModel && !SegmentationModel::find()) {
    state.SkipWithError("the segmentation model is not installed (scripts/install-model.sh)");
    return false;
  }
  return true;
}

void sky(benchmark::State& state) {
  if (!ready(state, nightCity(), false)) return;
  for (auto _ : state) benchmark::DoNotOptimize(SmartMasks::sky(nightCity()));
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(sky)->Unit(benchmark::kMillisecond);

// The search alone, on a picture already at the working size.
void skyAtWorkingSize(benchmark::State& state) {
  Bitmap picture;
  picture.width = 320, picture.height = 213;
  for (int i = 0; i < 320 * 213; ++i) picture.bytes.insert(picture.bytes.end(), {90, 140, 220});
  for (auto _ : state) benchmark::DoNotOptimize(SmartMasks::sky(picture));
  state.SetItemsProcessed(state.iterations() * 320 * 213);
}
BENCHMARK(skyAtWorkingSize)->Unit(benchmark::kMillisecond);

void modelLoad(benchmark::State& state) {
  if (!ready(state, dogs(), true)) return;
  const auto file = SegmentationModel::find();
  for (auto _ : state) benchmark::DoNotOptimize(SegmentationModel::load(*file));
}
BENCHMARK(modelLoad)->Unit(benchmark::kMillisecond)->Iterations(3);

void modelPass(benchmark::State& state) {
  if (!ready(state, dogs(), true)) return;
  auto model = SegmentationModel::load(*SegmentationModel::find());
  model->run(dogs());  // the first pass sets the network's buffers up
  for (auto _ : state) benchmark::DoNotOptimize(model->run(dogs()));
}
BENCHMARK(modelPass)->Unit(benchmark::kMillisecond)->Iterations(5)->UseRealTime();

// What `mask add ID subject` pays once per process: loading and one pass.
void firstSubject(benchmark::State& state) {
  if (!ready(state, dogs(), true)) return;
  for (auto _ : state) {
    auto model = SegmentationModel::load(*SegmentationModel::find());
    benchmark::DoNotOptimize(model->run(dogs()));
  }
  state.counters["peakMB"] = peakMB();
}
BENCHMARK(firstSubject)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

void findPeopleInPreview(benchmark::State& state) {
  if (!ready(state, dogs(), false)) return;
  for (auto _ : state) benchmark::DoNotOptimize(findPeople(dogs()));
}
BENCHMARK(findPeopleInPreview)->Unit(benchmark::kMillisecond)->Iterations(5)->UseRealTime();

// The first people mask of a process: loading, one pass and the detectors.
void firstPeople(benchmark::State& state) {
  if (!ready(state, dogs(), true)) return;
  for (auto _ : state) {
    auto model = SegmentationModel::load(*SegmentationModel::find());
    benchmark::DoNotOptimize(keepPeople(*model->run(dogs()), findPeople(dogs())));
  }
  state.counters["peakMB"] = peakMB();
}
BENCHMARK(firstPeople)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

}  // namespace
