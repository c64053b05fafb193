#pragma once
// Catalogs for the benchmarks: a library in a fresh temporary folder, filled
// by the benchmark's own setup and removed with its folder at the end.

#include <stdlib.h>

#include <filesystem>
#include <map>
#include <memory>

#include "engine/catalog/photo_library.h"

namespace lumivale::bench {

class TempLibrary {
 public:
  TempLibrary() {
    char pattern[] = "/tmp/lumivale-bench-XXXXXX";
    folder = mkdtemp(pattern);
    library = std::make_unique<PhotoLibrary>(folder);
  }
  ~TempLibrary() {
    library.reset();
    std::filesystem::remove_all(folder);
  }
  TempLibrary(const TempLibrary&) = delete;
  TempLibrary& operator=(const TempLibrary&) = delete;

  std::filesystem::path folder;
  std::unique_ptr<PhotoLibrary> library;
};

/// One `T` made from `size`, made on first use and kept for the whole run.
template <class T>
T& keptOfSize(int size) {
  static std::map<int, std::unique_ptr<T>> made;
  auto& slot = made[size];
  if (!slot) slot = std::make_unique<T>(size);
  return *slot;
}

}  // namespace lumivale::bench
