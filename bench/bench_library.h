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

/// Inserts photos 1 to `count` with camera facts, 500 to a folder, one in
/// seven a RAW file.
inline void insertPhotos(PhotoLibrary& library, int count) {
  library.db().run(R"SQL(
    WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < ?)
    INSERT INTO photos(path, folder, name, ext, size, width, height, capture, imported, camera, lens,
                       iso, shutter, aperture, focal, rating, raw)
    SELECT '/photos/' || (i / 500) || '/IMG_' || i || '.jpg', '/photos/' || (i / 500), 'IMG_' || i || '.jpg',
           'jpg', 5000000 + i, 6000, 4000, 1.6e9 + i * 60, 1.7e9, 'Canon EOS R5', 'RF24-70mm F2.8 L IS USM',
           100 * (1 + i % 64), 1.0 / (1 + i % 4000), 2.8, 50, i % 6, i % 7 = 0 FROM n
  )SQL",
                   {count});
}

/// One `T` made from `size`, made on first use and kept for the whole run.
template <class T>
T& keptOfSize(int size) {
  static std::map<int, std::unique_ptr<T>> made;
  auto& slot = made[size];
  if (!slot) slot = std::make_unique<T>(size);
  return *slot;
}

}  // namespace lumivale::bench
