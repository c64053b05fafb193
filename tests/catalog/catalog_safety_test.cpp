// The catalog check at opening, read-only opening after an unclean end, and
// refusing databases of other programs. (Reads that SQLite ends early are
// tested through the command line, which reports them.)

#include "engine/catalog/catalog_safety.h"

#include <gtest/gtest.h>

#include "engine/util/clock.h"
#include "tests/support/errors.h"
#include "tests/support/library.h"

using namespace lumivale;
namespace fs = std::filesystem;

namespace {

using Outcome = CatalogCheck::Outcome;

bool contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

class CatalogSafetyTest : public ::testing::Test {
 protected:
  test::TempDir dir;
  fs::path folder = dir / "lib";
  fs::path database = folder / PhotoLibrary::databaseName;

  void makeCatalog(int photos) {
    PhotoLibrary library(folder);
    test::fillCatalog(library, photos);
  }
  void ageLastCheck(double seconds) {
    PhotoLibrary library(folder, {.checkWhenDue = false});
    library.db().run("UPDATE meta SET value = ? WHERE key = 'lastCheck'",
                     {std::to_string(nowSeconds() - seconds)});
  }
};

TEST_F(CatalogSafetyTest, CheckCatchesEveryDamagedPageNamesTheLastGoodBackupAndWritesNothing) {
  makeCatalog(300);
  ageLastCheck(2 * 86400);
  const BackupResult backup = CatalogBackups::create(folder);
  const std::string sound = test::readFile(database);
  const int pages = static_cast<int>(sound.size() / 4096);
  ASSERT_GT(pages, 20);
  for (int page = 1; page <= pages; ++page) {
    SCOPED_TRACE("page " + std::to_string(page));
    fs::remove(database);
    test::writeFile(database, sound);
    test::corruptPage(database, page);
    const std::string damaged = test::readFile(database);
    try {
      PhotoLibrary library(folder);
      ADD_FAILURE() << "the damaged catalog was opened";
    } catch (const CatalogDamaged& e) {
      EXPECT_TRUE(contains(e.what(), backup.backup.path.string())) << e.what();
      ASSERT_TRUE(e.lastGoodBackup());
      EXPECT_EQ(e.lastGoodBackup()->photos, 300);
      EXPECT_TRUE(e.check().failed());
      // One problem a line, fit for a message.
      for (const std::string& problem : e.check().problems)
        EXPECT_TRUE(!problem.empty() && problem.find('\n') == std::string::npos && problem[0] != '*')
            << problem;
    }
    EXPECT_EQ(test::readFile(database), damaged);
  }
  // Without a backup the message says there is none.
  fs::remove(backup.backup.path);
  EXPECT_TRUE(
      test::throwsWith<CatalogDamaged>([&] { PhotoLibrary library(folder); }, "There is no good backup"));
}

TEST_F(CatalogSafetyTest, CheckRunsAfterADayOrAnUncleanEndAndOnlyThen) {
  const auto checkOf = [&](LibraryOptions options = {}) {
    PhotoLibrary library(folder, options);
    return library.safety();
  };
  makeCatalog(20);
  EXPECT_EQ(checkOf().check.outcome, Outcome::notRun);  // a new catalog counts as checked

  ageLastCheck(2 * 86400);
  CatalogSafety safety = checkOf();
  EXPECT_EQ(std::tuple(safety.check.outcome, safety.check.reason),
            std::tuple(Outcome::passed, "no check has passed for a day"));
  EXPECT_NEAR(safety.lastCheck.value_or(0), nowSeconds(), 60);
  EXPECT_EQ(checkOf().check.outcome, Outcome::notRun);  // recorded

  // A log left behind by a program that is still running is no crash.
  {
    PhotoLibrary first(folder);
    first.setRating({1}, 5);
    EXPECT_TRUE(checkOf().closedCleanly);
  }

  test::endWithoutClosing(folder, [](PhotoLibrary& library) { library.setRating({1}, 3); });
  // Reading first keeps the sign for the opening that checks.
  {
    PhotoLibrary reading(folder, {.checkWhenDue = false});
    safety = reading.safety();
    EXPECT_EQ(std::tuple(safety.closedCleanly, safety.readOnly, safety.check.outcome),
              std::tuple(false, true, Outcome::notRun));
    EXPECT_EQ(reading.photo(1)->rating, 3);
    EXPECT_TRUE(test::throwsWith<SQLError>([&] { reading.setRating({1}, 4); }, "not closed cleanly"));
  }
  PhotoLibrary writing(folder);
  safety = writing.safety();
  EXPECT_EQ(std::tuple(safety.closedCleanly, safety.readOnly, safety.check.outcome, safety.check.reason),
            std::tuple(false, false, Outcome::passed, "it was not closed cleanly"));
  writing.setRating({1}, 4);
  EXPECT_EQ(writing.photo(1)->rating, 4);
}

TEST_F(CatalogSafetyTest, DatabasesOfOtherProgramsAreRefusedAndLeftAsTheyWere) {
  const struct {
    const char* name;
    const char* sql;
    const char* says;  // empty: opened as a catalog
  } cases[] = {
      {"another program", "CREATE TABLE notes(x); INSERT INTO notes VALUES(1);",
       "database of another program"},
      {"our table names with rows",
       "CREATE TABLE photos(id INTEGER PRIMARY KEY, path); INSERT INTO photos VALUES(1, 'a');",
       "database of another program"},
      {"another format",
       "CREATE TABLE meta(key TEXT PRIMARY KEY, value TEXT); INSERT INTO meta VALUES('format', 'X 2');",
       "catalog of another format (\"X 2\")"},
      {"an interrupted creation", "CREATE TABLE meta(key TEXT PRIMARY KEY, value TEXT);", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    fs::remove_all(folder);
    fs::create_directories(folder);
    SQLiteDB(database.string()).exec(c.sql);
    const std::string before = test::readFile(database);
    if (*c.says) {
      EXPECT_TRUE(test::throwsWith<SQLError>([&] { PhotoLibrary library(folder); }, c.says));
      EXPECT_EQ(test::readFile(database), before);
      EXPECT_EQ(SQLiteDB(database.string()).query("PRAGMA journal_mode").at(0).at(0), SQLValue("delete"));
    } else {
      PhotoLibrary library(folder);
      EXPECT_EQ(library.meta("format"), PhotoLibrary::formatName);
      EXPECT_EQ(library.count(), 0);
    }
  }
}

}  // namespace
