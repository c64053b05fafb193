// Edit persistence on libraries of 10,000 and 100,000 photos made with SQL
// in the setup: saving settings with and without a history step, reading a
// photo's settings and a history of 200 steps, moving in that history, and
// applying a look to one and to a thousand photos.
//
// Runs at two sizes so that growth shows: none of these operations may take
// longer in the larger library.

#include <benchmark/benchmark.h>

#include <string>

#include "bench/bench_library.h"

using namespace lumivale;

namespace {

// The photo whose history holds 200 steps; kept apart from the photos the
// save benchmarks write to.
constexpr std::int64_t longHistoryPhoto = 7;
constexpr int longHistorySteps = 200;

// Photos 1000 ... 1999 take the benchmark saves, so their histories grow
// slowly and alike at both sizes.
constexpr std::int64_t firstSaved = 1000;
constexpr std::int64_t savedPhotos = 1000;

EditSettings sampleSettings(int i) {
  EditSettings s;
  s.exposure = 0.01 * (i % 200);
  s.contrast = i % 50;
  s.temperature = -(i % 30);
  s.hsl[2].saturation = i % 17;
  s.curveRGB.points = {{0, 0.02}, {0.5, 0.5 + 0.001 * (i % 40)}, {1, 0.98}};
  s.crop = {0.05, 0.05, 0.9, 0.9};
  PhotoMask mask(MaskKind::radial);
  mask.adjust.exposure = 0.5;
  s.masks = {mask};
  return s;
}

class Library : public bench::TempLibrary {
 public:
  explicit Library(int photos) {
    const std::string n = std::to_string(photos);
    // Every third photo already has a saved edit, as a used library would.
    const std::string edit = *sampleSettings(1).encoded();
    library->db().run(
        "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < " + n +
            ")"
            "INSERT INTO photos(id, path, folder, name, ext, imported, raw, edits, edited, editDate) "
            "SELECT i, '/photos/' || (i / 500) || '/IMG_' || i || '.jpg', '/photos/' || (i / 500), "
            "'IMG_' || i || '.jpg', 'jpg', 1.7e9 + i, i % 4 = 0, CASE WHEN i % 3 = 0 THEN ? END, "
            "i % 3 = 0, CASE WHEN i % 3 = 0 THEN 1.7e9 END FROM n",
        {Blob(edit.begin(), edit.end())});
    // Two steps on every tenth photo, so the history table is not empty.
    library->db().exec(
        "INSERT INTO history(photo, seq, name, edits, date) SELECT id, 1, 'Import', edits, 1.7e9 FROM photos "
        "WHERE id % 10 = 0; "
        "INSERT INTO history(photo, seq, name, edits, date) SELECT id, 2, 'Edit', edits, 1.7e9 FROM photos "
        "WHERE id % 10 = 0; "
        "UPDATE photos SET histPos = 2 WHERE id % 10 = 0;");
    for (int i = 1; i < longHistorySteps; ++i) {
      library->saveSettings(longHistoryPhoto, sampleSettings(i), "Step " + std::to_string(i));
    }
    library->db().exec("PRAGMA wal_checkpoint(TRUNCATE)");
  }
};

Library& libraryOf(int photos) { return bench::keptOfSize<Library>(photos); }

// One committed slider gesture: a save with a named step.
void BM_SaveSettingsWithStep(benchmark::State& state) {
  PhotoLibrary& library = *libraryOf(static_cast<int>(state.range(0))).library;
  int i = 0;
  for (auto _ : state) {
    library.saveSettings(firstSaved + i % savedPhotos, sampleSettings(i), "Exposure");
    ++i;
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_SaveSettingsWithStep)->Arg(10'000)->Arg(100'000)->Unit(benchmark::kMillisecond);

void BM_SaveSettingsWithoutStep(benchmark::State& state) {
  PhotoLibrary& library = *libraryOf(static_cast<int>(state.range(0))).library;
  int i = 0;
  for (auto _ : state) {
    library.saveSettings(firstSaved + i % savedPhotos, sampleSettings(i));
    ++i;
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_SaveSettingsWithoutStep)->Arg(10'000)->Arg(100'000)->Unit(benchmark::kMillisecond);

void BM_ReadSettings(benchmark::State& state) {
  PhotoLibrary& library = *libraryOf(static_cast<int>(state.range(0))).library;
  std::int64_t id = 3;
  for (auto _ : state) {
    EditSettings s = library.settings(id);
    benchmark::DoNotOptimize(s);
    id = id % 9000 + 3;
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_ReadSettings)->Arg(10'000)->Arg(100'000)->Unit(benchmark::kMicrosecond);

void BM_History200Steps(benchmark::State& state) {
  PhotoLibrary& library = *libraryOf(static_cast<int>(state.range(0))).library;
  for (auto _ : state) {
    EditHistory h = library.history(longHistoryPhoto);
    if (h.steps.size() != static_cast<std::size_t>(longHistorySteps))
      state.SkipWithError("the history lost steps");
    benchmark::DoNotOptimize(h);
  }
  state.SetItemsProcessed(state.iterations() * longHistorySteps);
}
BENCHMARK(BM_History200Steps)->Arg(10'000)->Arg(100'000)->Unit(benchmark::kMillisecond);

// Undo and redo within the long history; the steps stay, only the position moves.
void BM_GoToHistory(benchmark::State& state) {
  PhotoLibrary& library = *libraryOf(static_cast<int>(state.range(0))).library;
  int seq = longHistorySteps;
  for (auto _ : state) {
    seq = seq == longHistorySteps ? longHistorySteps - 1 : longHistorySteps;
    if (!library.goToHistory(longHistoryPhoto, seq)) state.SkipWithError("a step went missing");
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_GoToHistory)->Arg(10'000)->Arg(100'000)->Unit(benchmark::kMillisecond);

void BM_ApplyLookToOnePhoto(benchmark::State& state) {
  PhotoLibrary& library = *libraryOf(static_cast<int>(state.range(0))).library;
  const auto& looks = BuiltInPresets::all();
  int i = 0;
  for (auto _ : state) {
    library.applyPreset({firstSaved + i % savedPhotos}, looks[static_cast<std::size_t>(i) % looks.size()]);
    ++i;
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_ApplyLookToOnePhoto)->Arg(10'000)->Arg(100'000)->Unit(benchmark::kMillisecond);

// A selection of a thousand photos in one transaction.
void BM_ApplyLookToThousandPhotos(benchmark::State& state) {
  PhotoLibrary& library = *libraryOf(static_cast<int>(state.range(0))).library;
  std::vector<std::int64_t> ids;
  for (std::int64_t id = 3000; id < 4000; ++id) ids.push_back(id);
  const auto& looks = BuiltInPresets::all();
  int i = 0;
  for (auto _ : state) {
    library.applyPreset(ids, looks[static_cast<std::size_t>(i++) % looks.size()]);
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(ids.size()));
}
BENCHMARK(BM_ApplyLookToThousandPhotos)->Arg(10'000)->Arg(100'000)->Unit(benchmark::kMillisecond);

}  // namespace
