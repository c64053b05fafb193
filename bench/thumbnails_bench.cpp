// Grid thumbnail speed from a warm file cache: the thumbnails of a whole
// library made into an empty Thumbnails folder on every core, for
//   - 200 copies of the shared 24-megapixel camera JPEG (Sony ILCE-6000,
//     which stores a 160 × 120 EXIF thumbnail: that is what gets used);
//   - the same photo with its EXIF and MPF segments cut out, so each
//     thumbnail is decoded from the picture itself (DCT scaling by 8);
//   - 20 copies of the shared Canon CR2 (its 1728 × 1152 embedded JPEG);
// and one stored thumbnail read back, as the grid does for every cell.
// Copies are hard links. The whole command compares with vipsthumbnail:
//   hyperfine --prepare 'rm -f L/Thumbnails/*' 'lumivale-cli --library L thumbnails'
//     'ls DIR/*.JPG | xargs -P2 -n100 vipsthumbnail -s 420 -o /tmp/t/%s.jpg'

#include <benchmark/benchmark.h>

#include <filesystem>
#include <memory>
#include <string>

#include "engine/catalog/photo_library.h"
#include "engine/catalog/thumbnails.h"
#include "tests/support/sample_photos.h"
#include "tests/support/temp_dir.h"

using namespace lumivale;
namespace fs = std::filesystem;

namespace {

constexpr int jpegCount = 200;
constexpr int rawCount = 20;

// `jpeg` without its APP1 (EXIF, XMP) and APP2 (MPF, ICC) segments: the
// picture alone, with nothing stored beside it.
std::string withoutAppSegments(const std::string& jpeg) {
  std::string out = jpeg.substr(0, 2);
  std::size_t at = 2;
  while (at + 4 <= jpeg.size() && std::uint8_t(jpeg[at]) == 0xFF) {
    const int marker = std::uint8_t(jpeg[at + 1]);
    const std::size_t length = std::uint8_t(jpeg[at + 2]) << 8 | std::uint8_t(jpeg[at + 3]);
    if (marker == 0xDA) break;  // the scan runs to the end
    if (marker != 0xE1 && marker != 0xE2) out += jpeg.substr(at, 2 + length);
    at += 2 + length;
  }
  return out + jpeg.substr(at);
}

void linkCopies(const fs::path& original, const fs::path& folder, const std::string& ext, int count) {
  fs::create_directories(folder);
  for (int i = 0; i < count; ++i) {
    const fs::path copy = folder / ("IMG_" + std::to_string(i) + ext);
    std::error_code error;
    fs::create_hard_link(original, copy, error);
    if (error) fs::copy_file(original, copy);
  }
}

// The photo folders, written once per run and read once into the cache.
class Folders {
 public:
  Folders() {
    if (auto camera = test::sharedPhoto("camera/sony-a6000-6000x4000.jpg")) {
      linkCopies(*camera, dir / "camera", ".JPG", jpegCount);
      test::writeFile(dir / "bare.jpg", withoutAppSegments(test::readFile(*camera)));
      linkCopies(dir / "bare.jpg", dir / "bare", ".JPG", jpegCount);
    }
    if (auto raw = test::sharedPhoto("raw/IMG_5952.CR2")) linkCopies(*raw, dir / "raw", ".CR2", rawCount);
    for (const char* folder : {"camera", "bare", "raw"}) {
      if (!fs::exists(dir / folder)) continue;
      for (const auto& entry : fs::directory_iterator(dir / folder))
        benchmark::DoNotOptimize(test::readFile(entry.path()));
    }
  }
  test::TempDir dir;
};

Folders& folders() {
  static Folders instance;
  return instance;
}

// Times making every thumbnail of a library holding `folder`; the library
// is imported once, and its Thumbnails folder emptied (untimed) before each
// iteration.
void libraryThumbnails(benchmark::State& state, const char* folder, int count) {
  const fs::path photos = folders().dir / folder;
  if (!fs::exists(photos)) return state.SkipWithError("the shared photo is not there");
  test::TempDir libraryDir;
  PhotoLibrary library(libraryDir.path());
  library.importFolder(photos, false);
  const std::vector<PhotoRecord> records = library.photos(LibraryQuery{});
  for (auto _ : state) {
    state.PauseTiming();
    for (const auto& entry : fs::directory_iterator(library.thumbFolder())) fs::remove(entry.path());
    state.ResumeTiming();
    const ThumbnailBatch batch = library.makeThumbnails(records, false);
    if (batch.made != count) state.SkipWithError("not every thumbnail was made");
  }
  state.SetItemsProcessed(state.iterations() * count);
}

void BM_ThumbnailsCameraJpegs(benchmark::State& state) { libraryThumbnails(state, "camera", jpegCount); }
BENCHMARK(BM_ThumbnailsCameraJpegs)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2);

void BM_ThumbnailsDecodedJpegs(benchmark::State& state) { libraryThumbnails(state, "bare", jpegCount); }
BENCHMARK(BM_ThumbnailsDecodedJpegs)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2);

void BM_ThumbnailsRawFiles(benchmark::State& state) { libraryThumbnails(state, "raw", rawCount); }
BENCHMARK(BM_ThumbnailsRawFiles)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2);

// One grid cell: a stored 420-pixel thumbnail read back as pixels.
void BM_ThumbnailLoad(benchmark::State& state) {
  test::TempDir dir;
  test::writePhoto(dir / "photo.jpg", 1200, 800);
  const std::optional<Bitmap> made = Thumbnails::make(dir / "photo.jpg", PhotoLibrary::thumbSide);
  if (!made || !Thumbnails::write(*made, dir / "1.jpg", Thumbnails::storedQuality))
    return state.SkipWithError("no thumbnail to read");
  for (auto _ : state) {
    const std::optional<Bitmap> loaded = Thumbnails::load(dir / "1.jpg");
    if (!loaded || loaded->width != made->width) state.SkipWithError("the thumbnail did not read back");
    benchmark::DoNotOptimize(loaded);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_ThumbnailLoad)->Unit(benchmark::kMicrosecond)->UseRealTime();

}  // namespace
