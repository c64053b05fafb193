// The export steps that need no renderer, at camera sizes: the watermark on
// the 24-megapixel camera picture (a short line, and a 10,000-character one
// of which only the picture's width is drawn), the picture encoded as JPEG
// and HEIC in memory, the metadata written into a 24 MP camera JPEG and a
// 24 MP 16-bit TIFF, a camera HEIC's items rebuilt, and the carried
// metadata read from a camera JPEG and a RAW file. Then whole exports of the
// camera JPEG (full size, long edge 2048 sharpened for screens, a 16-bit
// TIFF), and a batch of photos exported one at a time and two at a time.

#include <benchmark/benchmark.h>

#include "engine/export/export_pipeline.h"
#include "engine/export/exporter.h"
#include "engine/media/bitmap.h"
#include "engine/media/heif_metadata.h"
#include "engine/media/image_decoder.h"
#include "engine/media/image_encoder.h"
#include "tests/support/sample_photos.h"
#include "tests/support/temp_dir.h"

using namespace lumivale;

namespace {

// The 24 MP camera JPEG as an 8-bit sRGB output picture, in memory.
Image cameraPicture() {
  static const Image image = [] {
    const auto camera = test::sharedPhoto("camera/sony-a6000-6000x4000.jpg");
    if (!camera) return Image();
    return outputImage(ImageDecoder::decode(*camera, std::nullopt).image, ColorSpace::sRGB, 8).materialize();
  }();
  return image;
}

void watermark(benchmark::State& state, const std::string& text) {
  const Image image = cameraPicture();
  if (image.empty()) return state.SkipWithError("the shared test photos are not there");
  ExportOptions options{.watermarkOn = true, .watermarkText = text};
  for (auto _ : state) {
    const auto drawn = Exporter::watermark(image, options);
    // The part the text changed, computed; the rest is the picture itself.
    benchmark::DoNotOptimize(drawn->readPixels(0, 3400, 6000, 600));
  }
  state.SetItemsProcessed(state.iterations());
}

void BM_WatermarkShortLine(benchmark::State& state) { watermark(state, "© Your Name"); }
BENCHMARK(BM_WatermarkShortLine)->Unit(benchmark::kMillisecond);

void BM_WatermarkTenThousandCharacters(benchmark::State& state) {
  std::string text;
  while (text.size() < 10000) text += "Lumivale ";
  watermark(state, text.substr(0, 10000));
}
BENCHMARK(BM_WatermarkTenThousandCharacters)->Unit(benchmark::kMillisecond);

// The encoders on the camera picture: the HEVC coder is what an export to
// HEIC waits for.
void encode(benchmark::State& state, ImageFormat format) {
  const Image image = cameraPicture();
  if (image.empty()) return state.SkipWithError("the shared test photos are not there");
  for (auto _ : state) benchmark::DoNotOptimize(ImageEncoder::encode(image, {.format = format}));
  state.SetItemsProcessed(state.iterations() * std::int64_t(image.width()) * image.height());
}
void BM_EncodeCameraPictureAsJpeg(benchmark::State& state) { encode(state, ImageFormat::jpeg); }
BENCHMARK(BM_EncodeCameraPictureAsJpeg)->Unit(benchmark::kMillisecond);
void BM_EncodeCameraPictureAsTiff(benchmark::State& state) { encode(state, ImageFormat::tiff); }
BENCHMARK(BM_EncodeCameraPictureAsTiff)->Unit(benchmark::kMillisecond);
void BM_EncodeCameraPictureAsHeic(benchmark::State& state) { encode(state, ImageFormat::heif); }
BENCHMARK(BM_EncodeCameraPictureAsHeic)->Unit(benchmark::kMillisecond)->Iterations(2);

void writeMetadata(benchmark::State& state, const std::string& encoded, const std::filesystem::path& source) {
  const OutputMetadata metadata{
      readCarriedMetadata(source), std::string(Exporter::softwareName), "© Someone", {"harbour", "boats"}};
  for (auto _ : state) benchmark::DoNotOptimize(withOutputMetadata(encoded, metadata));
  state.SetBytesProcessed(state.iterations() * std::int64_t(encoded.size()));
}

void BM_MetadataIntoCameraJpeg(benchmark::State& state) {
  const auto camera = test::sharedPhoto("camera/sony-a6000-6000x4000.jpg");
  if (!camera) return state.SkipWithError("the shared test photos are not there");
  writeMetadata(state, test::readFile(*camera), *camera);
}
BENCHMARK(BM_MetadataIntoCameraJpeg)->Unit(benchmark::kMillisecond);

void BM_MetadataInto16BitTiff(benchmark::State& state) {
  const auto camera = test::sharedPhoto("camera/sony-a6000-6000x4000.jpg");
  if (!camera) return state.SkipWithError("the shared test photos are not there");
  writeMetadata(state, test::encodedPicture("tif", 6000, 4000, 16), *camera);
}
BENCHMARK(BM_MetadataInto16BitTiff)->Unit(benchmark::kMillisecond);

void BM_HeifItemsRebuilt(benchmark::State& state) {
  const auto phone = test::sharedPhoto("heic/IMG_3578.heic");
  if (!phone) return state.SkipWithError("the shared test photos are not there");
  const std::string file = test::readFile(*phone);
  for (auto _ : state)
    benchmark::DoNotOptimize(replaceHeifMetadata(file, "II*\0\x08\0\0\0\0\0", "<x:xmpmeta/>"));
  state.SetBytesProcessed(state.iterations() * std::int64_t(file.size()));
}
BENCHMARK(BM_HeifItemsRebuilt)->Unit(benchmark::kMillisecond);

void carried(benchmark::State& state, const char* photo) {
  const auto file = test::sharedPhoto(photo);
  if (!file) return state.SkipWithError("the shared test photos are not there");
  for (auto _ : state) benchmark::DoNotOptimize(readCarriedMetadata(*file));
  state.SetItemsProcessed(state.iterations());
}
void BM_CarriedFromCameraJpeg(benchmark::State& state) { carried(state, "camera/sony-a6000-6000x4000.jpg"); }
BENCHMARK(BM_CarriedFromCameraJpeg)->Unit(benchmark::kMicrosecond);
void BM_CarriedFromRaw(benchmark::State& state) { carried(state, "raw/IMG_5952.CR2"); }
BENCHMARK(BM_CarriedFromRaw)->Unit(benchmark::kMicrosecond);

// The camera JPEG with an exposure and contrast edit, as the whole export
// of one photo: decode, render, encode, metadata, a new file.
void exportCamera(benchmark::State& state, const ExportOptions& options) {
  const auto camera = test::sharedPhoto("camera/sony-a6000-6000x4000.jpg");
  if (!camera) return state.SkipWithError("the shared test photos are not there");
  ExportJob job{.record = {.path = camera->string(), .name = "sony.jpg"}, .keywords = {"harbour"}};
  job.settings.exposure = 0.5;
  job.settings.contrast = 20;
  PhotoRenderer renderer;
  test::TempDir out;
  std::int64_t pixels = 0;
  for (auto _ : state) {
    const auto file = Exporter::exportPhoto(job, options, renderer, out.path());
    state.PauseTiming();
    pixels += std::int64_t(ImageDecoder::readHeader(file).width) * ImageDecoder::readHeader(file).height;
    std::filesystem::remove(file);
    state.ResumeTiming();
  }
  state.SetItemsProcessed(pixels);
}

void BM_ExportCameraJpegFullSize(benchmark::State& state) { exportCamera(state, {.quality = 0.9}); }
BENCHMARK(BM_ExportCameraJpegFullSize)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_ExportCameraJpegLongEdge2048ForScreen(benchmark::State& state) {
  exportCamera(state,
               {.sizeMode = SizeMode::longEdge, .sizeValue = 2048, .sharpening = OutputSharpening::screen});
}
BENCHMARK(BM_ExportCameraJpegLongEdge2048ForScreen)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_ExportCameraTiff16Bit(benchmark::State& state) {
  exportCamera(state, {.format = ExportFormat::tiff, .tiff16Bit = true});
}
BENCHMARK(BM_ExportCameraTiff16Bit)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

// Twelve 3-megapixel photos with an edit each, exported one after another
// (`exportPhoto` in a loop) or as a batch with two photos in flight.
class BatchFixture : public benchmark::Fixture {
 public:
  void SetUp(const benchmark::State&) override {
    if (!jobs.empty()) return;
    for (int i = 0; i < 12; ++i) {
      const auto file = photos.path() / ("IMG_" + std::to_string(i) + ".jpg");
      test::writePhoto(file, 2100, 1400);
      ExportJob job{.record = {.path = file.string(), .name = file.filename().string()}, .sequence = i + 1};
      job.settings.exposure = 0.3;
      job.settings.contrast = 10;
      jobs.push_back(job);
    }
  }
  static test::TempDir photos;
  static std::vector<ExportJob> jobs;
};
test::TempDir BatchFixture::photos;
std::vector<ExportJob> BatchFixture::jobs;

BENCHMARK_DEFINE_F(BatchFixture, BM_ExportTwelvePhotosOneAtATime)(benchmark::State& state) {
  PhotoRenderer renderer;
  for (auto _ : state) {
    test::TempDir out;
    for (const ExportJob& job : jobs) Exporter::exportPhoto(job, {}, renderer, out.path());
  }
  state.SetItemsProcessed(state.iterations() * std::int64_t(jobs.size()));
}
BENCHMARK_REGISTER_F(BatchFixture, BM_ExportTwelvePhotosOneAtATime)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

BENCHMARK_DEFINE_F(BatchFixture, BM_ExportTwelvePhotosAsABatch)(benchmark::State& state) {
  PhotoRenderer renderer;
  for (auto _ : state) {
    test::TempDir out;
    const auto results = Exporter::exportBatch(jobs, {}, renderer, out.path());
    if (!results.back().written()) state.SkipWithError("the batch failed");
  }
  state.SetItemsProcessed(state.iterations() * std::int64_t(jobs.size()));
}
BENCHMARK_REGISTER_F(BatchFixture, BM_ExportTwelvePhotosAsABatch)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace
