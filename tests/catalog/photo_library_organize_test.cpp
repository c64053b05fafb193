#include <gtest/gtest.h>

#include "tests/support/library.h"

using namespace lumivale;

namespace {

using test::Ids;
using Words = std::vector<std::string>;
using Counts = std::vector<std::pair<std::string, int>>;

class OrganizeTest : public test::LibraryTest {
 protected:
  int scalar(const std::string& sql, const std::vector<SQLValue>& args = {}) {
    auto rows = library.db().query(sql, args);
    return rows.empty() ? -1 : static_cast<int>(rows[0][0].intValue().value_or(-1));
  }
  bool thumbExists(std::int64_t id, const char* suffix = ".jpg") {
    return std::filesystem::exists(library.thumbFolder() / (std::to_string(id) + suffix));
  }
  Ids photos(int n) {
    Ids ids;
    for (int i = 0; i < n; ++i) ids.push_back(addPhoto("/p/" + std::to_string(i) + ".jpg"));
    return ids;
  }
};

TEST_F(OrganizeTest, RatingIsClampedFlagAndLabelStoredAsGivenOtherPhotosUntouched) {
  const Ids p = photos(3);
  for (auto [given, stored] : {std::pair(7, 5), {-2, 0}, {3, 3}, {1000000, 5}, {-1000000, 0}}) {
    library.setRating({p[0], 999, p[0]}, given);  // unknown and repeated ids are passed over
    EXPECT_EQ(library.photo(p[0])->rating, stored) << given;
  }
  library.setFlag({p[0], p[1]}, -1);
  library.setLabel({p[0], p[1]}, "purple");
  library.setFlag({p[1]}, 1);
  library.setLabel({p[1]}, "");
  library.setRating({}, 4);
  EXPECT_EQ(std::tuple(library.photo(p[0])->flag, library.photo(p[0])->label), std::tuple(-1, "purple"));
  EXPECT_EQ(std::tuple(library.photo(p[1])->flag, library.photo(p[1])->label), std::tuple(1, ""));
  EXPECT_EQ(library.photo(p[2]),
            (PhotoRecord{.id = p[2], .path = "/p/2.jpg", .folder = "/p", .name = "2.jpg"}));
  EXPECT_EQ(library.count(), 3);
}

TEST_F(OrganizeTest, KeywordsAreStoredInOneFormAndRemovalCountsThePhotosThatHadThem) {
  const Ids p = photos(2);
  library.addKeywords({p[0]}, {"  Sky ", "sky", "\tSKY\n", "Blue Hour", "\u00c9t\u00e9", " ", ""});
  library.addKeywords({p[0], p[1], 4242}, {"sky"});
  EXPECT_EQ(library.keywords(p[0]), (Words{"blue hour", "sky", "\u00e9t\u00e9"}));
  EXPECT_EQ(library.allKeywords(), (Counts{{"blue hour", 1}, {"sky", 2}, {"\u00e9t\u00e9", 1}}));
  EXPECT_EQ(scalar("SELECT COUNT(*) FROM keywords WHERE photo = 4242"), 0);  // no orphan rows

  EXPECT_EQ(library.removeKeyword({p[0], p[1]}, "Sky"), 2);
  EXPECT_EQ(library.removeKeyword({p[0]}, " \u00c9T\u00c9 "), 1);
  EXPECT_EQ(library.removeKeyword({p[0], p[1]}, "sky"), 0);
  EXPECT_EQ(library.removeKeyword({p[1]}, "blue hour"), 0);  // another photo's keyword stays
  EXPECT_EQ(library.keywords(p[0]), (Words{"blue hour"}));
  EXPECT_EQ(library.keywords(p[1]), (Words{}));
  EXPECT_EQ(PhotoLibrary::keywordForm("\u00a0Ardea ALBA\n"), "ardea alba");
}

TEST_F(OrganizeTest, CollectionsAreUniqueByNameAndListedWithoutCase) {
  const Ids p = photos(2);
  const std::int64_t trips = library.createCollection("trips"), best = library.createCollection("Best"),
                     empty = library.createCollection("alpha");
  EXPECT_EQ(library.createCollection("trips"), trips);
  EXPECT_NE(library.createCollection("Trips"), trips);  // names are unique with case

  library.addToCollection(trips, {p[0], p[1], 4242});
  library.addToCollection(trips, {p[0]});  // twice is harmless
  library.addToCollection(best, {p[1]});
  auto list = library.collections();
  ASSERT_EQ(list.size(), 4u);
  EXPECT_EQ(std::pair(list[0], list[1]),
            std::pair(Collection{empty, "alpha", 0}, Collection{best, "Best", 1}));
  // "trips" and "Trips" are equal without case; either may come first.
  EXPECT_EQ((std::set<std::string>{list[2].name, list[3].name}), (std::set<std::string>{"trips", "Trips"}));
  EXPECT_EQ(library.collectionsContaining(p[1]), (std::set<std::int64_t>{trips, best}));

  library.removeFromCollection(trips, {p[0], 999});
  EXPECT_EQ(library.collectionsContaining(p[0]), (std::set<std::int64_t>{}));
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
  EXPECT_EQ(library.missingPhotos({9, 2, 4, 1}), (Ids{9, 4}));  // in list order
  EXPECT_EQ(library.missingPhotos({}), (Ids{}));
}

TEST_F(OrganizeTest, RemoveLeavesNoRowsAndNoThumbnailsAndKeepsTheFiles) {
  const Ids p = photos(6);
  library.addKeywords(p, {"sky"});
  for (const char* name : {"one", "two"}) library.addToCollection(library.createCollection(name), p);
  // A membership row whose collection is gone must go too.
  library.db().run("INSERT INTO collection_items(collection, photo) VALUES(4711, ?)", {p[2]});
  for (auto id : p) {
    library.saveSettings(id, EditSettings{.exposure = 1}, "edit");
    library.addSnapshot(id, "snap", {});
    for (const char* suffix : {".jpg", "-e.jpg"})
      test::writeFile(library.thumbFolder() / (std::to_string(id) + suffix), "jpeg");
  }
  test::writeFile(dir / "photo-file.jpg", "pixels");

  library.remove({p[0], p[2], p[5], 4242});
  for (auto [table, kept] :
       {std::pair("keywords", 1), {"collection_items", 2}, {"history", 2}, {"snapshots", 1}}) {
    const std::string count = std::string("SELECT COUNT(*) FROM ") + table + " WHERE photo = ?";
    EXPECT_EQ(std::tuple(scalar(count, {p[0]}), scalar(count, {p[2]}), scalar(count, {p[1]})),
              std::tuple(0, 0, kept))
        << table;
  }
  EXPECT_EQ(library.missingPhotos(p), (Ids{p[0], p[2], p[5]}));
  for (const char* suffix : {".jpg", "-e.jpg"}) {
    EXPECT_FALSE(thumbExists(p[0], suffix)) << suffix;
    EXPECT_TRUE(thumbExists(p[1], suffix)) << suffix;
  }
  for (const auto& c : library.collections()) EXPECT_EQ(c.count, 3) << c.name;
  library.remove({});
  std::filesystem::remove(library.thumbFolder() / (std::to_string(p[1]) + ".jpg"));
  library.remove({p[1], p[3], p[4]});
  EXPECT_EQ(library.count(), 0);
  EXPECT_EQ(test::readFile(dir / "photo-file.jpg"), "pixels");
}

// Each write over a list of photos is all or nothing: a statement that
// fails part-way (here a trigger refusing the fourth photo) leaves every
// photo as it was, thumbnails included.
struct FailingWrite {
  const char* name;
  const char* trigger;  ///< "BEFORE <event> ON <table> WHEN <refer to the fourth photo>"
  std::function<void(PhotoLibrary&, const Ids&)> write;
};

void PrintTo(const FailingWrite& c, std::ostream* out) { *out << c.name; }

class FailingWriteTest : public OrganizeTest, public ::testing::WithParamInterface<FailingWrite> {};

TEST_P(FailingWriteTest, ChangesNothing) {
  const Ids p = photos(6);
  library.addKeywords(p, {"kept"});
  library.addToCollection(library.createCollection("full"), {p[0], p[1], p[2], p[3]});
  library.createCollection("empty");
  for (auto id : p) test::writeFile(library.thumbFolder() / (std::to_string(id) + ".jpg"), "jpeg");
  library.db().exec(std::string("CREATE TRIGGER refuse ") + GetParam().trigger + " = " +
                    std::to_string(p[3]) + " BEGIN SELECT RAISE(ABORT, 'refused'); END");
  const std::string before = test::dumpCatalog(library);
  EXPECT_THROW(GetParam().write(library, p), SQLError);
  EXPECT_EQ(test::dumpCatalog(library), before);
  for (auto id : p) EXPECT_TRUE(thumbExists(id)) << id;
}

INSTANTIATE_TEST_SUITE_P(
    Organize, FailingWriteTest,
    ::testing::Values(
        FailingWrite{"rating", "BEFORE UPDATE ON photos WHEN NEW.id",
                     [](auto& l, auto& p) { l.setRating(p, 4); }},
        FailingWrite{"flag", "BEFORE UPDATE ON photos WHEN NEW.id",
                     [](auto& l, auto& p) { l.setFlag(p, 1); }},
        FailingWrite{"label", "BEFORE UPDATE ON photos WHEN NEW.id",
                     [](auto& l, auto& p) { l.setLabel(p, "red"); }},
        FailingWrite{"addKeywords", "BEFORE INSERT ON keywords WHEN NEW.word = 'boom' AND NEW.photo",
                     [](auto& l, auto& p) {
                       l.addKeywords(p, {"calm", "boom"});
                     }},
        FailingWrite{"removeKeyword", "BEFORE DELETE ON keywords WHEN OLD.photo",
                     [](auto& l, auto& p) { l.removeKeyword(p, "kept"); }},
        FailingWrite{"addToCollection", "BEFORE INSERT ON collection_items WHEN NEW.photo",
                     [](auto& l, auto& p) { l.addToCollection(l.createCollection("empty"), p); }},
        FailingWrite{"removeFromCollection", "BEFORE DELETE ON collection_items WHEN OLD.photo",
                     [](auto& l, auto& p) { l.removeFromCollection(l.createCollection("full"), p); }},
        FailingWrite{"remove", "BEFORE DELETE ON photos WHEN OLD.id", [](auto& l, auto& p) { l.remove(p); }}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
