// A process killed in the middle of a write over many photos must leave the
// catalog exactly as it was, on disk: each such write is one transaction.
// The write is held inside its transaction by a stall trigger at a photo
// three quarters of the way through, so the kill always lands there.

#include <gtest/gtest.h>

#include "tests/support/library.h"

using namespace lumivale;

namespace {

using test::Ids;

constexpr int photoCount = 20000;
constexpr int stallAt = 15000;

// The catalog every case starts from, made once: photos with keywords,
// collections, histories (some with a redo tail), snapshots and thumbnails.
const std::filesystem::path& templateLibrary() {
  static test::TempDir dir;
  static const std::filesystem::path folder = [] {
    PhotoLibrary library(dir / "lib");
    library.db().exec(R"SQL(
      WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 20000)
      INSERT INTO photos(id, path, folder, name, imported, rating, raw)
        SELECT i, '/p/' || i || '.jpg', '/p', i || '.jpg', i, i % 6, i % 2 FROM n;
      INSERT INTO keywords(photo, word) SELECT id, 'word' || (id % 50) FROM photos;
      INSERT INTO collections(id, name, created) VALUES(1, 'one', 0), (2, 'two', 0);
      INSERT INTO collection_items(collection, photo) SELECT 1 + id % 2, id FROM photos WHERE id % 5 = 0;
      INSERT INTO snapshots(photo, name, date) SELECT id, 'snap', 0 FROM photos WHERE id % 10 = 0;
    )SQL");
    for (int id = 1; id <= photoCount; id += 997) {
      library.saveSettings(id, EditSettings{.exposure = id / 1000.0}, "first");
      library.saveSettings(id, EditSettings{.exposure = 1}, "second");
      library.goToHistory(id, 2);
    }
    for (int id : {1, stallAt, photoCount})
      test::writeFile(library.thumbFolder() / (std::to_string(id) + ".jpg"), "jpeg");
    return dir / "lib";
  }();
  return folder;
}

Ids allPhotos() {
  Ids ids;
  for (int id = 1; id <= photoCount; ++id) ids.push_back(id);
  return ids;
}

struct Interrupted {
  const char* name;
  const char* stallWhen;
  std::function<void(PhotoLibrary&)> write;
};

void PrintTo(const Interrupted& c, std::ostream* out) { *out << c.name; }

class InterruptedWriteTest : public ::testing::TestWithParam<Interrupted> {
 protected:
  test::TempDir dir;
  std::filesystem::path folder = dir / "lib";
};

TEST_P(InterruptedWriteTest, LeavesTheCatalogAsBefore) {
  std::filesystem::copy(templateLibrary(), folder, std::filesystem::copy_options::recursive);
  std::string before;
  {
    PhotoLibrary library(folder);
    library.db().exec(test::stallTrigger(GetParam().stallWhen));
    before = test::dumpCatalog(library);
  }
  ASSERT_GT(std::count(before.begin(), before.end(), '\n'), 2 * photoCount);
  test::killInsideTransaction(folder, GetParam().write);
  PhotoLibrary library(folder);
  EXPECT_TRUE(test::sameRows(before, test::dumpCatalog(library)));
  for (int id : {1, stallAt, photoCount})
    EXPECT_TRUE(std::filesystem::exists(library.thumbFolder() / (std::to_string(id) + ".jpg"))) << id;
}

INSTANTIATE_TEST_SUITE_P(
    Catalog, InterruptedWriteTest,
    ::testing::Values(
        Interrupted{"remove", "BEFORE DELETE ON photos WHEN OLD.id = 15000",
                    [](PhotoLibrary& l) { l.remove(allPhotos()); }},
        Interrupted{"applyPreset", "BEFORE UPDATE ON photos WHEN OLD.id = 15000",
                    [](PhotoLibrary& l) { l.applyPreset(allPhotos(), BuiltInPresets::all().back()); }},
        Interrupted{"rate", "BEFORE UPDATE ON photos WHEN OLD.id = 15000",
                    [](PhotoLibrary& l) { l.setRating(allPhotos(), 5); }},
        Interrupted{"removeKeyword", "BEFORE DELETE ON keywords WHEN OLD.photo = 15007",
                    [](PhotoLibrary& l) { l.removeKeyword(allPhotos(), "word7"); }},
        Interrupted{"addToCollection", "BEFORE INSERT ON collection_items WHEN NEW.photo = 15001",
                    [](PhotoLibrary& l) { l.addToCollection(1, allPhotos()); }}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
