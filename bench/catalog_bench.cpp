// Catalog reads on a library of 100,000 photos made with SQL in the setup.

#include <benchmark/benchmark.h>

#include "bench/bench_library.h"

using namespace lumivale;

namespace {

class BigLibrary : public bench::TempLibrary {
 public:
  static constexpr int photos = 100000;

  BigLibrary() {
    library->db().exec(R"SQL(
      WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 100000)
      INSERT INTO photos(path, folder, name, ext, size, width, height, capture, imported, camera, lens,
                         iso, shutter, aperture, focal, rating, raw)
      SELECT '/photos/' || (i / 500) || '/IMG_' || i || '.jpg', '/photos/' || (i / 500), 'IMG_' || i || '.jpg',
             'jpg', 5000000 + i, 6000, 4000, 1.6e9 + i * 60, 1.7e9, 'Canon EOS R5', 'RF24-70mm F2.8 L IS USM',
             100 * (1 + i % 64), 1.0 / (1 + i % 4000), 2.8, 50, i % 6, i % 7 = 0 FROM n;
    )SQL");
  }
};

BigLibrary& big() {
  static BigLibrary instance;
  return instance;
}

void BM_PhotoById(benchmark::State& state) {
  auto& library = *big().library;
  std::int64_t id = 1;
  for (auto _ : state) {
    auto record = library.photo(id);
    if (!record || record->id != id) state.SkipWithError("photo not found");
    benchmark::DoNotOptimize(record);
    id = (id + 7919) % BigLibrary::photos + 1;
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_PhotoById);

void BM_Count(benchmark::State& state) {
  auto& library = *big().library;
  for (auto _ : state) {
    int n = library.count();
    if (n != BigLibrary::photos) state.SkipWithError("wrong count");
    benchmark::DoNotOptimize(n);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Count)->Unit(benchmark::kMicrosecond);

}  // namespace
