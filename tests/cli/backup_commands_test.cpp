// The backup command, and how every command meets a damaged, busy or
// read-only catalog.

#include <gtest/gtest.h>

#include "engine/catalog/catalog_safety.h"
#include "engine/util/clock.h"
#include "tests/support/cli_run.h"

using namespace lumivale;
namespace fs = std::filesystem;
using test::Args;
using test::CliResult;

namespace {

bool contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

const char* const incomplete = "the catalog could not be read completely: database disk image is malformed";

// A library of 300 photos that this process does not hold open, so that
// a restore may replace its catalog.
class CliSafetyTest : public ::testing::Test {
 protected:
  test::TempDir dir;
  fs::path folder = dir / "lib";
  fs::path database = folder / PhotoLibrary::databaseName;

  void SetUp() override {
    PhotoLibrary library(folder);
    test::fillCatalog(library, 300);
  }
  CliResult run(const Args& args) { return test::runCliOn(folder, args); }
  // Corrupts a page of the photos table in the middle of the file.
  void damagePhotos() {
    std::int64_t page = 0;
    {
      PhotoLibrary library(folder, {.checkWhenDue = false});
      auto leaves =
          library.db().query("SELECT pageno FROM dbstat WHERE name = 'photos' AND pagetype = 'leaf'");
      ASSERT_GT(leaves.size(), 2u);
      page = leaves[leaves.size() / 2].at(0).intValue().value();
      library.db().run("UPDATE meta SET value = '0' WHERE key = 'lastCheck'");
    }
    test::corruptPage(database, static_cast<int>(page));
  }
};

TEST_F(CliSafetyTest, BackupMakesListsAndRestoresWithConfirmation) {
  const nlohmann::json made = run({"--json", "backup", "now"}).json();
  const std::string name = made["name"];
  EXPECT_EQ(std::tuple(made["photos"], made["good"], made["kind"]), std::tuple(300, true, "backup"));
  ASSERT_EQ(run({"rate", "1-5", "5"}).status, 0);

  const CliResult listed = run({"backup", "list"});
  EXPECT_TRUE(contains(listed.out, name) && contains(listed.out, "300 photos") &&
              contains(listed.out, "good"))
      << listed.out;
  test::expectError(run({"backup", "restore", name}), 1, "needs confirmation");
  test::expectError(run({"backup", "restore", "Lumivale-2001-01-01T00-00-00Z"}), 1, "no backup called");
  for (const Args& bad :
       {Args{"backup", "sideways"}, Args{"backup", "now", "x"}, Args{"backup", "list", "--yes"}})
    test::expectError(run(bad), 2);

  const CliResult restored = run({"backup", "restore", name, "--yes"});
  ASSERT_EQ(restored.status, 0) << restored.err;
  EXPECT_TRUE(contains(restored.out, "Restored the catalog from " + name + " (300 photos)")) << restored.out;
  EXPECT_TRUE(contains(restored.out, "kept as")) << restored.out;
  EXPECT_EQ(run({"--json", "show", "2"}).json()["rating"], 2);
  const nlohmann::json after = run({"--json", "backup", "list"}).json();
  ASSERT_EQ(after.size(), 2u);
  EXPECT_EQ(after[0]["kind"], "replaced");
}

TEST_F(CliSafetyTest, ADamagedCatalogStopsEveryWriteAndOneCommandRestoresIt) {
  const std::string name = run({"--json", "backup", "now"}).json()["name"];
  damagePhotos();
  const std::string damaged = test::readFile(database);

  test::expectError(run({"rate", "1", "3"}), 1, "lumivale-cli backup restore " + name);
  test::expectError(run({"keyword", "add", "1", "sky"}), 1, "is damaged");
  test::expectError(run({"list"}), 1, incomplete);
  EXPECT_EQ(test::readFile(database), damaged);

  ASSERT_EQ(run({"backup", "restore", name, "--yes"}).status, 0);
  EXPECT_EQ(run({"rate", "1", "3"}).status, 0);
  EXPECT_EQ(run({"--json", "list"}).json().size(), 300u);
}

TEST_F(CliSafetyTest, ReadsThatDoNotCompleteAreErrorsNotPartialResults) {
  Args search{"list"};
  for (int i = 0; i < 1000; ++i) search.push_back("word" + std::to_string(i));
  test::expectError(run(search), 1, "the catalog could not be read completely");

  damagePhotos();
  test::expectError(run({"list"}), 1, incomplete);
  test::expectError(run({"--json", "list", "--sort", "name"}), 1, incomplete);
  // A photo on the damaged page is not "missing": the read failed.
  std::int64_t lost = 0;
  {
    PhotoLibrary library(folder, {.checkWhenDue = false});
    for (std::int64_t id = 1; id <= 300 && !lost; ++id) {
      library.photo(id);
      if (library.takeReadError()) lost = id;
    }
  }
  ASSERT_GT(lost, 0);
  test::expectError(run({"show", std::to_string(lost)}), 1, incomplete);
  test::expectError(run({"rate", std::to_string(lost), "2"}), 1, "is damaged");
  EXPECT_EQ(run({"show", "1"}).status, 0);
}

TEST_F(CliSafetyTest, ReadingNeedsNoWriteAccessAndNeverWaitsForAWriter) {
  {
    SQLiteDB writer(database.string());
    writer.exec("BEGIN IMMEDIATE");
    writer.run("UPDATE photos SET rating = 5");
    for (const Args& read : {Args{"list"}, Args{"info"}, Args{"show", "1"}}) {
      const CliResult r = run(read);
      EXPECT_EQ(r.status, 0) << read[0] << ": " << r.err;
    }
    writer.exec("ROLLBACK");
  }

  // On a library this user cannot write: reads work, writes and backups
  // are refused with the reason.
  const std::string answer = test::inChild(
      [&] {
        std::string all;
        for (const Args& args : {Args{"--json", "list"}, Args{"rate", "1", "3"}, Args{"backup"}}) {
          const CliResult r = run(args);
          all += std::to_string(r.status) + "\x1f" + r.out + "\x1f" + r.err + "\x1e";
        }
        return all;
      },
      false, folder);
  std::vector<std::vector<std::string>> results;
  std::size_t at = 0;
  for (std::size_t end; (end = answer.find('\x1e', at)) != std::string::npos; at = end + 1) {
    std::vector<std::string> fields;
    std::stringstream parts(answer.substr(at, end - at));
    for (std::string field; std::getline(parts, field, '\x1f');) fields.push_back(field);
    results.push_back(fields);
  }
  ASSERT_EQ(results.size(), 3u) << answer;
  EXPECT_EQ(results[0][0], "0") << results[0][2];
  EXPECT_EQ(nlohmann::json::parse(results[0][1]).size(), 300u);
  EXPECT_EQ(results[1][0], "1");
  EXPECT_TRUE(contains(results[1][2], "is read-only") && contains(results[1][2], "nothing was changed"))
      << results[1][2];
  EXPECT_EQ(results[2][0], "1");
  EXPECT_TRUE(contains(results[2][2], "No backup was made")) << results[2][2];
  EXPECT_EQ(run({"--json", "show", "1"}).json()["rating"], 1);
}

}  // namespace
