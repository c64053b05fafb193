// Import speed from a warm file cache: whole imports of generated JPEG and
// DNG folders and of 2,000 copies of a real 24-megapixel camera JPEG (files
// per second, headers read on every core), one header on one thread, and the
// insert step alone for 100,000 photos.
//
// The camera JPEG is the shared test photo (Sony ILCE-6000, maker notes and
// all); its copies are hard links, so 13 GB of files take 6.6 MB of cache.
// The whole command compares with exiv2 reading eight tags of such a folder:
//   hyperfine --prepare 'rm -rf L' 'lumivale-cli --library L import DIR'
//     'exiv2 -g Exif.Image.Make -g Exif.Image.Model ... DIR/*.JPG'

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

#include "engine/catalog/folder_listing.h"
#include "engine/catalog/photo_library.h"
#include "tests/support/sample_photos.h"
#include "tests/support/temp_dir.h"

using namespace lumivale;
namespace fs = std::filesystem;

namespace {

constexpr int jpegCount = 2000;
constexpr int cameraJpegCount = 2000;
constexpr int dngCount = 200;
constexpr int insertRows = 100000;

// The photo folders, written once per run and left in the page cache.
class Folders {
 public:
  Folders() {
    // A 6-megapixel camera-like JPEG: EXIF with every field import reads,
    // IPTC keywords, a real compressed body. Copies differ in their capture
    // time, as a camera's files do.
    fs::path base = dir / "base.jpg";
    test::writePhoto(base, 3000, 2000,
                     {.make = "Canon", .model = "Canon EOS R5", .lens = "RF24-70mm F2.8 L IS USM",
                      .dateTimeOriginal = "2023:06:01 12:00:00", .exposure = {{1, 250}}, .fNumber = {{28, 10}},
                      .focal = {{50, 1}}, .iso = 400, .orientation = 1, .keywords = {"harbour", "boats"}});
    std::string bytes = test::readFile(base);
    std::size_t date = bytes.find("2023:06:01 12:00:00");
    for (int i = 0; i < jpegCount; ++i) {
      char stamp[32];
      std::snprintf(stamp, sizeof stamp, "2023:06:01 %02d:%02d:%02d", (i / 3600) % 24, (i / 60) % 60, i % 60);
      if (date != std::string::npos) bytes.replace(date, 19, stamp);
      test::writeFile(jpegs() / ("IMG_" + std::to_string(i) + ".jpg"), bytes);
    }
    jpegBytes = bytes.size();

    // The real camera JPEG, linked (or copied where links fail) many times.
    if (auto camera = test::sharedPhoto("camera/sony-a6000-6000x4000.jpg")) {
      fs::create_directories(cameraJpegs());
      for (int i = 0; i < cameraJpegCount; ++i) {
        const fs::path copy = cameraJpegs() / ("DSC" + std::to_string(i) + ".JPG");
        std::error_code error;
        fs::create_hard_link(*camera, copy, error);
        if (error) fs::copy_file(*camera, copy);
      }
      cameraJpegBytes = fs::file_size(*camera);
    }

    test::SampleDng dng;
    dng.width = 600;
    dng.height = 400;
    dng.previewWidth = 320;
    dng.previewHeight = 214;
    for (int i = 0; i < dngCount; ++i) test::writeDng(dngs() / ("IMG_" + std::to_string(i) + ".dng"), dng);
    // Read everything once so the benchmark starts from a warm cache.
    for (const fs::path& folder : {jpegs(), dngs(), cameraJpegs()}) {
      if (!fs::exists(folder)) continue;
      for (const auto& entry : fs::directory_iterator(folder)) benchmark::DoNotOptimize(test::readFile(entry.path()));
    }
  }

  fs::path jpegs() const { return dir / "jpeg"; }
  fs::path dngs() const { return dir / "dng"; }
  fs::path cameraJpegs() const { return dir / "camera"; }

  test::TempDir dir;
  std::size_t jpegBytes = 0;
  std::size_t cameraJpegBytes = 0;  ///< 0 when the shared photo is not there
};

Folders& folders() {
  static Folders instance;
  return instance;
}

// Times `work` on a new, empty library each iteration; making the library,
// checking the result with `check` and removing it again are not timed.
template <class Work, class Check>
void onFreshLibraries(benchmark::State& state, Work work, Check check, const char* failure) {
  for (auto _ : state) {
    state.PauseTiming();
    auto libraryDir = std::make_unique<test::TempDir>();
    auto library = std::make_unique<PhotoLibrary>(libraryDir->path());
    state.ResumeTiming();
    ImportResult result = work(*library);
    state.PauseTiming();
    if (!check(*library, result)) state.SkipWithError(failure);
    library.reset();
    libraryDir.reset();
    state.ResumeTiming();
  }
}

void importBenchmark(benchmark::State& state, const fs::path& folder, int expected) {
  onFreshLibraries(
      state, [&](PhotoLibrary& library) { return library.importFolder(folder, true); },
      [&](PhotoLibrary&, const ImportResult& result) { return result.added == expected; },
      "not every file was imported");
  state.SetItemsProcessed(state.iterations() * expected);
  state.counters["files/s"] = benchmark::Counter(double(state.iterations() * expected), benchmark::Counter::kIsRate);
}

void BM_ImportJpegFolder(benchmark::State& state) {
  Folders& f = folders();
  state.counters["fileKB"] = double(f.jpegBytes) / 1000;
  importBenchmark(state, f.jpegs(), jpegCount);
}
BENCHMARK(BM_ImportJpegFolder)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(3);

void BM_ImportCameraJpegFolder(benchmark::State& state) {
  Folders& f = folders();
  if (f.cameraJpegBytes == 0) return state.SkipWithError("the shared camera JPEG is not there");
  state.counters["fileKB"] = double(f.cameraJpegBytes) / 1000;
  importBenchmark(state, f.cameraJpegs(), cameraJpegCount);
}
BENCHMARK(BM_ImportCameraJpegFolder)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(3);

void BM_ImportDngFolder(benchmark::State& state) {
  importBenchmark(state, folders().dngs(), dngCount);
}
BENCHMARK(BM_ImportDngFolder)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2);

// One header read on this thread, for comparison with the parallel import.
void BM_ReadJpegHeader(benchmark::State& state) {
  fs::path file = folders().jpegs() / "IMG_7.jpg";
  for (auto _ : state) {
    auto meta = PhotoMeta::read(file);
    if (!meta || meta->camera != "Canon EOS R5") state.SkipWithError("header not read");
    benchmark::DoNotOptimize(meta);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_ReadJpegHeader)->Unit(benchmark::kMicrosecond);

void BM_ReadCameraJpegHeader(benchmark::State& state) {
  Folders& f = folders();
  if (f.cameraJpegBytes == 0) return state.SkipWithError("the shared camera JPEG is not there");
  fs::path file = f.cameraJpegs() / "DSC7.JPG";
  for (auto _ : state) {
    auto meta = PhotoMeta::read(file);
    if (!meta || meta->camera != "SONY ILCE-6000" || meta->width != 6000) state.SkipWithError("header not read");
    benchmark::DoNotOptimize(meta);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_ReadCameraJpegHeader)->Unit(benchmark::kMicrosecond);

void BM_InsertHundredThousandPhotos(benchmark::State& state) {
  std::vector<fs::path> paths;
  std::vector<std::optional<PhotoMeta>> metas;
  const PhotoMeta meta{.width = 6000, .height = 4000, .fileSize = 5000000, .capture = 1.69e9,
                       .camera = "Canon EOS R5", .lens = "RF24-70mm F2.8 L IS USM", .iso = 400, .shutter = 0.004,
                       .aperture = 2.8, .focal = 50};
  for (int i = 0; i < insertRows; ++i) {
    paths.push_back("/photos/" + std::to_string(i / 500) + "/IMG_" + std::to_string(i) + ".jpg");
    metas.push_back(meta);
  }
  onFreshLibraries(
      state, [&](PhotoLibrary& library) { return library.insertPhotos(paths, metas); },
      [](PhotoLibrary& library, const ImportResult& result) {
        return result.added == insertRows && library.count() == insertRows;
      },
      "rows missing");
  state.SetItemsProcessed(state.iterations() * insertRows);
}
BENCHMARK(BM_InsertHundredThousandPhotos)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

}  // namespace
