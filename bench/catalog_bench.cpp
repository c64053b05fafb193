// Catalog reads on a library of 100,000 photos made with SQL in the setup.

#include <benchmark/benchmark.h>

#include "bench/bench_library.h"

using namespace lumivale;

namespace {

class BigLibrary : public bench::TempLibrary {
 public:
  static constexpr int photos = 100000;

  BigLibrary() { bench::insertPhotos(*library, photos); }
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
