#include <gtest/gtest.h>

#include <algorithm>

#include "tests/support/library.h"

using namespace lumivale;

namespace {

using test::Ids;
using Words = std::vector<std::string>;

// Every row of every table that refers to photos: equal dumps mean an
// unchanged catalog.
std::string dumpTables(PhotoLibrary& library) {
  return test::dumpRows(
      library,
      {"SELECT * FROM photos ORDER BY id", "SELECT * FROM keywords ORDER BY photo, word",
       "SELECT * FROM collections ORDER BY id", "SELECT * FROM collection_items ORDER BY collection, photo",
       "SELECT photo, seq, name, edits, date FROM history ORDER BY photo, seq",
       "SELECT * FROM snapshots ORDER BY id"});
}

class OrganizeTest : public test::LibraryTest {
 protected:
  int scalar(const std::string& sql, const std::vector<SQLValue>& args = {}) {
    auto rows = library.db().query(sql, args);
    return rows.empty() ? -1 : static_cast<int>(rows[0][0].intValue().value_or(-1));
  }
  bool thumbExists(std::int64_t id, const char* suffix = ".jpg") {
    return std::filesystem::exists(library.thumbFolder() / (std::to_string(id) + suffix));
  }
};

TEST_F(OrganizeTest, RatingIsClampedFlagAndLabelStoredAsGivenOtherPhotosUntouched) {
  const std::int64_t a = addPhoto("/p/a.jpg"), b = addPhoto("/p/b.jpg");
  for (auto [given, stored] :
       {std::pair(7, 5), {-2, 0}, {3, 3}, {5, 5}, {0, 0}, {1000000, 5}, {-1000000, 0}}) {
    library.setRating({a, 999}, given);
    EXPECT_EQ(library.photo(a)->rating, stored) << given;
  }
  EXPECT_EQ(library.photo(b)->rating, 0);
  EXPECT_EQ(library.count(), 2);  // an unknown id adds nothing
  library.setFlag({a, b}, -1);
  library.setLabel({a, b}, "purple");
  library.setFlag({b}, 1);
  library.setLabel({b}, "");
  EXPECT_EQ(std::pair(library.photo(a)->flag, library.photo(a)->label), std::pair(-1, std::string("purple")));
  EXPECT_EQ(std::pair(library.photo(b)->flag, library.photo(b)->label), std::pair(1, std::string()));
}

TEST_F(OrganizeTest, KeywordsAreTrimmedLowercasedAndUnique) {
  const std::int64_t a = addPhoto("/p/a.jpg"), b = addPhoto("/p/b.jpg");
  library.addKeywords({a}, {"  Sky ", "sky", "\tSKY\n", "Blue Hour", "\u00c9t\u00e9", " ", ""});
  library.addKeywords({a, b}, {"sky"});
  EXPECT_EQ(library.keywords(a), (Words{"blue hour", "sky", "\u00e9t\u00e9"}));
  EXPECT_EQ(library.keywords(b), (Words{"sky"}));
  EXPECT_EQ(library.allKeywords(),
            (std::vector<std::pair<std::string, int>>{{"blue hour", 1}, {"sky", 2}, {"\u00e9t\u00e9", 1}}));

  library.removeKeyword({a, b}, "Sky");
  library.removeKeyword({a}, " \u00c9T\u00c9 ");
  EXPECT_EQ(library.keywords(a), (Words{"blue hour"}));
  EXPECT_EQ(library.keywords(b), (Words{}));
  EXPECT_EQ(library.keywords(12345), (Words{}));

  // Adding is all or nothing.
  library.db().exec("CREATE TRIGGER refuse BEFORE INSERT ON keywords WHEN NEW.photo = " + std::to_string(b) +
                    " AND NEW.word = 'boom' BEGIN SELECT RAISE(ABORT, 'refused'); END");
  EXPECT_THROW(library.addKeywords({a, b}, {"calm", "boom"}), SQLError);
  EXPECT_EQ(library.allKeywords(), (std::vector<std::pair<std::string, int>>{{"blue hour", 1}}));
}

TEST_F(OrganizeTest, CollectionsAreUniqueByNameAndListedWithoutCase) {
  const std::int64_t a = addPhoto("/p/a.jpg"), b = addPhoto("/p/b.jpg");
  const std::int64_t trips = library.createCollection("trips"), best = library.createCollection("Best"),
                     empty = library.createCollection("alpha");
  EXPECT_EQ(library.createCollection("trips"), trips);
  EXPECT_NE(library.createCollection("Trips"), trips);  // names are unique with case
  EXPECT_EQ(scalar("SELECT COUNT(*) FROM collections"), 4);

  library.addToCollection(trips, {a, b});
  library.addToCollection(trips, {a});  // twice is harmless
  library.addToCollection(best, {b});
  auto list = library.collections();
  ASSERT_EQ(list.size(), 4u);
  EXPECT_EQ(list[0], (Collection{empty, "alpha", 0}));
  EXPECT_EQ(list[1], (Collection{best, "Best", 1}));
  // "trips" and "Trips" are equal without case; either may come first.
  EXPECT_EQ((std::set<std::string>{list[2].name, list[3].name}), (std::set<std::string>{"trips", "Trips"}));
  EXPECT_EQ(library.collectionsContaining(b), (std::set<std::int64_t>{trips, best}));
  EXPECT_EQ(library.collectionsContaining(a), (std::set<std::int64_t>{trips}));

  library.removeFromCollection(trips, {a, 999});
  EXPECT_EQ(library.collectionsContaining(a), (std::set<std::int64_t>{}));

  EXPECT_THROW(library.renameCollection(best, "trips"), SQLError);
  library.renameCollection(best, "Favourites");
  library.deleteCollection(trips);
  list = library.collections();
  ASSERT_EQ(list.size(), 3u);
  EXPECT_EQ(list[1], (Collection{best, "Favourites", 1}));
  EXPECT_EQ(scalar("SELECT COUNT(*) FROM collection_items WHERE collection = ?", {trips}), 0);
  EXPECT_EQ(library.count(), 2);  // the photos stay
}

TEST_F(OrganizeTest, FoldersCountsAndMissingPhotos) {
  library.db().run("INSERT INTO folders(path, added) VALUES('/pics/b', 0), ('/Pics/A', 0), ('/pics/c', 0)");
  for (const char* path : {"/pics/b/1.jpg", "/pics/b/2.jpg", "/pics/b/x/3.jpg"}) addPhoto(path);
  EXPECT_EQ(library.folders(), (Words{"/Pics/A", "/pics/b", "/pics/c"}));
  EXPECT_EQ(library.folderCounts(), (std::map<std::string, int>{{"/pics/b", 2}, {"/pics/b/x", 1}}));
  EXPECT_EQ(library.missingPhotos({9, 2, 4}), (Ids{9, 4}));  // in list order
  EXPECT_EQ(library.missingPhotos({1}), (Ids{}));
}

TEST_F(OrganizeTest, RemoveLeavesNoRowsAndNoThumbnails) {
  const std::int64_t a = addPhoto("/p/a.jpg"), b = addPhoto("/p/b.jpg");
  library.addKeywords({a, b}, {"sky"});
  const std::int64_t c = library.createCollection("c");
  library.addToCollection(c, {a, b});
  for (auto id : {a, b}) {
    library.db().run("INSERT INTO history(photo, seq, name, date) VALUES(?, 1, 'Import', 0)", {id});
    library.db().run("INSERT INTO snapshots(photo, name, date) VALUES(?, 'snap', 0)", {id});
    test::writeFile(library.thumbFolder() / (std::to_string(id) + ".jpg"), "jpeg");
    test::writeFile(library.thumbFolder() / (std::to_string(id) + "-e.jpg"), "jpeg");
  }
  test::writeFile(dir / "photo-file.jpg", "pixels");

  library.remove({a, 4242});
  for (const char* table : {"keywords", "collection_items", "history", "snapshots"}) {
    EXPECT_EQ(scalar(std::string("SELECT COUNT(*) FROM ") + table + " WHERE photo = ?", {a}), 0) << table;
    EXPECT_EQ(scalar(std::string("SELECT COUNT(*) FROM ") + table + " WHERE photo = ?", {b}), 1) << table;
  }
  EXPECT_FALSE(library.photo(a));
  EXPECT_TRUE(library.photo(b));
  for (const char* suffix : {".jpg", "-e.jpg"}) {
    EXPECT_FALSE(thumbExists(a, suffix)) << suffix;
    EXPECT_TRUE(thumbExists(b, suffix)) << suffix;
  }
  EXPECT_EQ(library.collections().at(0).count, 1);

  // Unknown ids, an empty list and photos without thumbnails all succeed.
  std::string before = dumpTables(library);
  library.remove({777});
  library.remove({});
  EXPECT_EQ(dumpTables(library), before);
  std::filesystem::remove(library.thumbFolder() / (std::to_string(b) + ".jpg"));
  library.remove({b});
  EXPECT_EQ(library.count(), 0);
  EXPECT_EQ(test::readFile(dir / "photo-file.jpg"), "pixels");
}

TEST_F(OrganizeTest, RemoveClearsMembershipInEveryCollectionAndAFailedOneKeepsEverything) {
  Ids photos;
  for (int i = 0; i < 6; ++i) {
    photos.push_back(addPhoto("/p/" + std::to_string(i) + ".jpg"));
    test::writeFile(library.thumbFolder() / (std::to_string(photos.back()) + ".jpg"), "jpeg");
  }
  for (const char* name : {"one", "two", "three"})
    library.addToCollection(library.createCollection(name), photos);
  // A membership row whose collection is gone must go too.
  library.db().run("INSERT INTO collection_items(collection, photo) VALUES(4711, ?)", {photos[2]});
  library.remove({photos[0], photos[2], photos[5]});
  EXPECT_EQ(library.db().query("SELECT DISTINCT photo FROM collection_items ORDER BY photo"),
            (std::vector<SQLRow>{{photos[1]}, {photos[3]}, {photos[4]}}));
  for (const auto& c : library.collections()) EXPECT_EQ(c.count, 3) << c.name;

  const Ids left{photos[1], photos[3], photos[4]};
  library.addKeywords(left, {"kept"});
  library.db().exec("CREATE TRIGGER refuse BEFORE DELETE ON photos WHEN OLD.id = " + std::to_string(left[2]) +
                    " BEGIN SELECT RAISE(ABORT, 'refused'); END");
  const std::string before = dumpTables(library);
  EXPECT_THROW(library.remove(left), SQLError);
  EXPECT_EQ(dumpTables(library), before);
  for (auto id : left) EXPECT_TRUE(thumbExists(id)) << id;
}

// A process killed in the middle of a large removal must leave the catalog
// exactly as it was: the transaction is all or nothing on disk too.
TEST(RemoveInterruptedTest, KilledMidTransactionLeavesTheCatalogAsBefore) {
  constexpr int photos = 20000;
  test::TempDir dir;
  std::string before;
  {
    PhotoLibrary library(dir.path());
    library.db().exec(R"SQL(
      WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 20000)
      INSERT INTO photos(id, path, folder, name, imported, rating) SELECT i, '/p/' || i || '.jpg', '/p', i || '.jpg', i, i % 6 FROM n;
      INSERT INTO keywords(photo, word) SELECT id, 'word' || (id % 50) FROM photos;
      INSERT INTO collections(id, name, created) VALUES(1, 'one', 0), (2, 'two', 0);
      INSERT INTO collection_items(collection, photo) SELECT 1 + id % 2, id FROM photos WHERE id % 5 = 0;
      INSERT INTO history(photo, seq, name, date) SELECT id, 1, 'Import', 0 FROM photos;
      INSERT INTO snapshots(photo, name, date) SELECT id, 'snap', 0 FROM photos WHERE id % 10 = 0;
    )SQL");
    for (int id : {1, photos / 2, photos})
      test::writeFile(library.thumbFolder() / (std::to_string(id) + ".jpg"), "jpeg");
    before = dumpTables(library);
  }
  ASSERT_GT(std::count(before.begin(), before.end(), '\n'), photos);

  test::killInsideTransaction(dir.path(), [](PhotoLibrary& library) {
    Ids ids;
    for (int id = 1; id <= photos; ++id) ids.push_back(id);
    library.remove(ids);
  });
  PhotoLibrary library(dir.path());
  EXPECT_EQ(library.count(), photos);
  EXPECT_EQ(dumpTables(library), before);
  for (int id : {1, photos / 2, photos})
    EXPECT_TRUE(std::filesystem::exists(library.thumbFolder() / (std::to_string(id) + ".jpg"))) << id;
}

}  // namespace
