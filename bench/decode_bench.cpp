// Decoding photo files into the working space: the 24-megapixel camera JPEG
// as the 1800-pixel base a Develop preview starts from (target: 120 ms on
// two cores), and at full size as an export reads it. Each run computes
// every pixel into memory and checks the result has the expected size and
// plausible colours.

#include <benchmark/benchmark.h>

#include <cmath>
#include <filesystem>

#include "engine/media/bitmap.h"
#include "engine/media/image_decoder.h"
#include "tests/support/sample_photos.h"

using namespace lumivale;

namespace {

const std::optional<std::filesystem::path> cameraJpeg = test::sharedPhoto("camera/sony-a6000-6000x4000.jpg");

void decodeBench(benchmark::State& state, std::optional<int> maxSide, int expectedWidth, int expectedHeight) {
  if (!cameraJpeg) return state.SkipWithError("the shared camera JPEG is not there");
  const std::filesystem::path& file = *cameraJpeg;
  Image last;
  for (auto _ : state) {
    last = ImageDecoder::decode(file, maxSide).image.materialize();
    benchmark::DoNotOptimize(last.get());
  }
  if (last.width() != expectedWidth || last.height() != expectedHeight) {
    state.SkipWithError("unexpected size");
    return;
  }
  const FloatPixels centre = last.readPixels(last.width() / 2, last.height() / 2, 1, 1);
  if (!(std::isfinite(centre.values[0]) && centre.values[0] >= 0 && centre.values[0] <= 1))
    state.SkipWithError("implausible pixel");
  state.SetItemsProcessed(state.iterations() * std::int64_t(expectedWidth) * expectedHeight);
}

void BM_DecodeJpeg24MPTo1800(benchmark::State& state) { decodeBench(state, 1800, 1800, 1200); }
BENCHMARK(BM_DecodeJpeg24MPTo1800)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_DecodeJpeg24MPFull(benchmark::State& state) { decodeBench(state, std::nullopt, 6000, 4000); }
BENCHMARK(BM_DecodeJpeg24MPFull)->Unit(benchmark::kMillisecond)->UseRealTime();

// The working space back to 8-bit sRGB, as a preview or a thumbnail needs it.
void BM_BitmapSrgb8From1800(benchmark::State& state) {
  if (!cameraJpeg) return state.SkipWithError("the shared camera JPEG is not there");
  const Image base = ImageDecoder::decode(*cameraJpeg, 1800).image.materialize();
  for (auto _ : state) {
    Bitmap bitmap = toBitmap(base, ColorSpace::sRGB, 8);
    benchmark::DoNotOptimize(bitmap.bytes.data());
  }
  state.SetItemsProcessed(state.iterations() * std::int64_t(base.width()) * base.height());
}
BENCHMARK(BM_BitmapSrgb8From1800)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
