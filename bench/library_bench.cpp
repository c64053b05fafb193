// The grid's queries and the organising writes on libraries of 10,000 and
// 100,000 photos with keywords and collections, made with SQL in the setup.
//
// Runs at two sizes so that growth shows: only the queries that return
// every photo may grow with the library; a rating change or a scoped query
// that returns a fixed number of photos must not.

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "bench/bench_library.h"

using namespace lumivale;

namespace {

class Library : public bench::TempLibrary {
 public:
  // 500 photos per folder, 3 keywords per photo from 200 words, 50
  // collections of 1,000 photos (50,000 items whatever the size, so the
  // collection scope returns the same number of photos at both sizes when
  // the library has at least 50,000 photos).
  explicit Library(int photos) : photos(photos) {
    std::string n = std::to_string(photos);
    library->db().exec(
        "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < " + n +
        ")"
        "INSERT INTO photos(id, path, folder, name, ext, size, width, height, capture, imported, camera, "
        "lens,"
        "                   iso, shutter, aperture, focal, rating, flag, label, raw)"
        "SELECT i, '/photos/' || (i / 500) || '/IMG_' || i || '.jpg', '/photos/' || (i / 500),"
        "       'IMG_' || i || '.jpg', 'jpg', 5000000 + i, 6000, 4000,"
        "       CASE WHEN i % 20 = 0 THEN NULL ELSE 1.6e9 + ((i * 7919) % " +
        n +
        ") * 60 END,"
        "       1.7e9 + i, CASE WHEN i % 3 = 0 THEN 'NIKON Z 6' ELSE 'Canon EOS R5' END,"
        "       'RF24-70mm F2.8 L IS USM', 100 * (1 + i % 64), 1.0 / (1 + i % 4000), 2.8, 50, i % 6,"
        "       CASE i % 5 WHEN 0 THEN 1 WHEN 1 THEN -1 ELSE 0 END, CASE i % 7 WHEN 0 THEN 'red' WHEN 1 THEN "
        "'blue' ELSE '' END,"
        "       i % 4 = 0 FROM n;"
        "INSERT INTO keywords(photo, word)"
        "  SELECT id, 'word' || (id % 200) FROM photos UNION ALL"
        "  SELECT id, 'word' || ((id * 13) % 200 + 200) FROM photos UNION ALL"
        "  SELECT id, CASE id % 10 WHEN 0 THEN 'sky' WHEN 1 THEN 'sea' ELSE 'street' END FROM photos;"
        "WITH RECURSIVE c(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM c WHERE i < 50)"
        "INSERT INTO collections(id, name, created) SELECT i, 'Collection ' || i, 1.7e9 FROM c;"
        "INSERT INTO collection_items(collection, photo)"
        "  SELECT 1 + (id - 1) / 1000, id FROM photos WHERE id <= 50000;"
        "INSERT INTO folders(path, added) SELECT DISTINCT folder, 1.7e9 FROM photos;");
    library->db().exec("PRAGMA wal_checkpoint(TRUNCATE)");
  }

  int photos;
};

// Libraries are made on first use and kept for the whole run.
Library& libraryOf(int photos) { return bench::keptOfSize<Library>(photos); }

// Every photo, newest first: the grid when the library opens.
void BM_DefaultGridQuery(benchmark::State& state) {
  Library& lib = libraryOf(static_cast<int>(state.range(0)));
  LibraryQuery query;
  std::size_t rows = 0;
  for (auto _ : state) {
    auto records = lib.library->photos(query);
    rows = records.size();
    if (rows != static_cast<std::size_t>(lib.photos)) state.SkipWithError("wrong number of records");
    benchmark::DoNotOptimize(records.data());
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * rows));
}
BENCHMARK(BM_DefaultGridQuery)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

void searchBench(benchmark::State& state, const char* text) {
  Library& lib = libraryOf(static_cast<int>(state.range(0)));
  LibraryQuery query;
  query.text = text;
  std::size_t rows = 0;
  for (auto _ : state) {
    auto records = lib.library->photos(query);
    rows = records.size();
    if (rows == 0) state.SkipWithError("the search found nothing");
    benchmark::DoNotOptimize(records.data());
  }
  state.counters["records"] = static_cast<double>(rows);
}

void BM_ThreeTokenSearch(benchmark::State& state) { searchBench(state, "canon sky rating:>=3"); }
BENCHMARK(BM_ThreeTokenSearch)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

void BM_ThreePlainWords(benchmark::State& state) { searchBench(state, "eos sky IMG_1"); }
BENCHMARK(BM_ThreePlainWords)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

// A scope that returns `expected` photos whatever the library's size.
void scopeBench(benchmark::State& state, const LibraryQuery& query, std::size_t expected) {
  Library& lib = libraryOf(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    auto records = lib.library->photos(query);
    if (records.size() != expected) state.SkipWithError("wrong number of records");
    benchmark::DoNotOptimize(records.data());
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(expected));
}

// One folder of 500 photos: through the folder index, so the same time at
// both sizes.
void BM_FolderScope(benchmark::State& state) {
  LibraryQuery query;
  query.folder = "/photos/7";
  scopeBench(state, query, 500);
}
BENCHMARK(BM_FolderScope)->Arg(10000)->Arg(100000)->Unit(benchmark::kMicrosecond);

void BM_CollectionScope(benchmark::State& state) {
  LibraryQuery query;
  query.collection = 3;
  scopeBench(state, query, 1000);
}
BENCHMARK(BM_CollectionScope)->Arg(10000)->Arg(100000)->Unit(benchmark::kMicrosecond);

void BM_SetRatingOfOnePhoto(benchmark::State& state) {
  Library& lib = libraryOf(static_cast<int>(state.range(0)));
  // Every call stores a rating the photo does not have yet: the setup gave
  // photo i the rating i % 6, and each pass over the photos (and each run
  // of this function) moves the offset on by one.
  static int round = 0;
  ++round;
  std::int64_t id = 1;
  for (auto _ : state) {
    lib.library->setRating({id}, static_cast<int>((id + round) % 6));
    if (++id > lib.photos) {
      id = 1;
      ++round;
    }
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_SetRatingOfOnePhoto)->Arg(10000)->Arg(100000)->Unit(benchmark::kMicrosecond);

void BM_AddKeywordToOnePhoto(benchmark::State& state) {
  Library& lib = libraryOf(static_cast<int>(state.range(0)));
  // A word no photo has yet, so every call really inserts a row.
  static int round = 0;
  std::string word = "benchmark" + std::to_string(++round);
  std::int64_t id = 1;
  for (auto _ : state) {
    lib.library->addKeywords({id}, {word});
    if (++id > lib.photos) {
      id = 1;
      word = "benchmark" + std::to_string(++round);
    }
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_AddKeywordToOnePhoto)->Arg(10000)->Arg(100000)->Unit(benchmark::kMicrosecond);

// Organising writes over the whole library at once, as a select-all in the
// grid or `lumivale-cli rate 1-100000 2` makes them: each is one statement.
std::vector<std::int64_t> everyPhoto(const Library& lib) {
  std::vector<std::int64_t> ids;
  for (std::int64_t id = 1; id <= lib.photos; ++id) ids.push_back(id);
  return ids;
}

void BM_RateEveryPhoto(benchmark::State& state) {
  Library& lib = libraryOf(static_cast<int>(state.range(0)));
  const std::vector<std::int64_t> ids = everyPhoto(lib);
  int rating = 0;
  for (auto _ : state) lib.library->setRating(ids, ++rating % 6);
  LibraryQuery rated;
  rated.minRating = rating % 6;
  if (rating % 6 > 0 && lib.library->photos(rated).size() != ids.size())
    state.SkipWithError("ratings not stored");
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(ids.size()));
}
BENCHMARK(BM_RateEveryPhoto)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

void BM_AddAndRemoveKeywordOfEveryPhoto(benchmark::State& state) {
  Library& lib = libraryOf(static_cast<int>(state.range(0)));
  const std::vector<std::int64_t> ids = everyPhoto(lib);
  for (auto _ : state) {
    lib.library->addKeywords(ids, {"everything"});
    if (lib.library->removeKeyword(ids, "everything") != lib.photos)
      state.SkipWithError("keywords not stored");
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(ids.size()));
}
BENCHMARK(BM_AddAndRemoveKeywordOfEveryPhoto)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

// Removal deletes dependent rows by photo; the collection items and
// snapshots tables have no index that starts with the photo, so each removal
// reads them whole. Measured on libraries of their own, taking photos from
// the top.
struct RemovalLibrary : Library {
  using Library::Library;
};

void BM_RemoveOnePhoto(benchmark::State& state) {
  Library& lib = bench::keptOfSize<RemovalLibrary>(static_cast<int>(state.range(0)));
  std::int64_t id = lib.photos;
  for (auto _ : state) {
    lib.library->remove({id});
    if (--id < 1) {
      state.SkipWithError("library emptied");
      break;
    }
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_RemoveOnePhoto)->Arg(10000)->Arg(100000)->Iterations(500)->Unit(benchmark::kMicrosecond);

}  // namespace
