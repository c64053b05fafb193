// The catalog's safety work on a library of 100,000 photos with history:
// the catalog check, a backup, and the longest wait of a rating loop while a
// backup runs beside it (the backup copies on a connection of its own, in
// paced steps; the ratings go through the library's connection).
//
// The library: 100,000 photos with 3 keywords each, a quarter of them
// edited with 4 history steps and 2 snapshots, in all about 200 MB (made
// with SQL in the setup, once for the whole run).

#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>

#include "bench/bench_library.h"
#include "engine/catalog/catalog_safety.h"

using namespace lumivale;

namespace {

using Clock = std::chrono::steady_clock;

class HistoryLibrary : public bench::TempLibrary {
 public:
  static constexpr int photos = 100000;

  HistoryLibrary() {
    SQLiteDB& db = library->db();
    bench::insertPhotos(*library, photos);
    db.exec(R"SQL(
      INSERT INTO keywords(photo, word)
        SELECT id, 'word' || (id % 300) FROM photos UNION ALL
        SELECT id, 'place' || (id % 40) FROM photos UNION ALL
        SELECT id, 'year' || (id % 12) FROM photos;
    )SQL");
    EditSettings edit;
    edit.exposure = 0.7;
    edit.contrast = 12;
    edit.vibrance = 20;
    const std::string text = edit.encoded().value_or("{}");
    const Blob blob(text.begin(), text.end());
    db.run("UPDATE photos SET edits = ?, edited = 1, histPos = 4, editDate = 1.7e9 WHERE id % 4 = 0", {blob});
    db.run(
        "WITH RECURSIVE s(k) AS (SELECT 1 UNION ALL SELECT k + 1 FROM s WHERE k < 4) "
        "INSERT INTO history(photo, seq, name, edits, date) "
        "SELECT id, k, 'Edit exposure', ?, 1.7e9 + k FROM photos, s WHERE id % 4 = 0",
        {blob});
    db.run(
        "INSERT INTO snapshots(photo, name, edits, date) "
        "SELECT id, 'Before', ?, 1.7e9 FROM photos WHERE id % 8 = 0 UNION ALL "
        "SELECT id, 'After', ?, 1.7e9 FROM photos WHERE id % 8 = 0",
        {blob, blob});
    db.exec("PRAGMA wal_checkpoint(TRUNCATE)");
  }
};

HistoryLibrary& big() {
  static HistoryLibrary instance;
  return instance;
}

void BM_CatalogCheck(benchmark::State& state) {
  PhotoLibrary& library = *big().library;
  for (auto _ : state) {
    const CatalogCheck check = library.checkNow();
    if (!check.passed()) state.SkipWithError("the check failed");
  }
  std::error_code error;
  state.counters["MB"] = static_cast<double>(std::filesystem::file_size(library.databasePath(), error)) / 1e6;
  state.SetItemsProcessed(state.iterations() * HistoryLibrary::photos);
}
BENCHMARK(BM_CatalogCheck)->Unit(benchmark::kMillisecond)->UseRealTime();

// A whole backup: copy, check of the copy, sync, rename and rotation.
void BM_Backup(benchmark::State& state) {
  const auto folder = big().folder;
  for (auto _ : state) {
    const BackupResult made = CatalogBackups::create(folder);
    if (made.backup.photos != HistoryLibrary::photos) state.SkipWithError("the backup lost photos");
  }
  state.SetItemsProcessed(state.iterations() * HistoryLibrary::photos);
}
BENCHMARK(BM_Backup)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

// Ratings one after another on the library's connection (each its own
// transaction, synced) while a backup runs with the pacing of the
// arguments (pages per step, pause in microseconds; 0 pages: no backup, the
// loop alone). Reports the longest rating and the backup's time.
void BM_RatingStallDuringBackup(benchmark::State& state) {
  PhotoLibrary& library = *big().library;
  const auto folder = big().folder;
  const CopyPacing pacing{static_cast<int>(state.range(0)), std::chrono::microseconds(state.range(1))};
  double longest = 0, backupSeconds = 0;
  std::int64_t ratings = 0;
  for (auto _ : state) {
    std::atomic<bool> finished{false};
    std::thread backup([&] {
      const auto start = Clock::now();
      if (pacing.pagesPerStep > 0) {
        CatalogBackups::Options options;
        options.pacing = pacing;
        CatalogBackups::create(folder, options);
      } else {
        std::this_thread::sleep_for(std::chrono::seconds(1));
      }
      backupSeconds = std::chrono::duration<double>(Clock::now() - start).count();
      finished = true;
    });
    std::int64_t id = 1;
    while (!finished) {
      const auto start = Clock::now();
      library.setRating({id}, static_cast<int>(id % 6));
      longest = std::max(longest, std::chrono::duration<double, std::milli>(Clock::now() - start).count());
      id = (id + 7919) % HistoryLibrary::photos + 1;
      ++ratings;
    }
    backup.join();
  }
  state.counters["longestRatingMs"] = longest;
  state.counters["backupSeconds"] = backupSeconds;
  state.counters["ratings"] = static_cast<double>(ratings);
}
BENCHMARK(BM_RatingStallDuringBackup)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(1)
    ->Args({0, 0})
    ->Args({4096, 0})
    ->Args({1024, 1000})
    ->Args({256, 1000})
    ->Args({1000000, 0});

}  // namespace
