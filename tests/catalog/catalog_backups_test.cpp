// Backups: made only when they check clean, rotated, restored with the
// current catalog set aside; a full disk, a kill, a damaged backup and an
// open library change nothing.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "engine/catalog/catalog_safety.h"
#include "tests/support/errors.h"
#include "tests/support/library.h"

using namespace lumivale;
namespace fs = std::filesystem;

namespace {

class BackupTest : public ::testing::Test {
 protected:
  test::TempDir dir;
  fs::path folder = dir / "lib";
  fs::path backups = CatalogBackups::folder(folder);

  void SetUp() override {
    PhotoLibrary library(folder);
    test::fillCatalog(library, 400);
  }
  std::string dump() {
    PhotoLibrary library(folder, {.checkWhenDue = false});
    return test::dumpCatalog(library);
  }
  // Names in the Backups folder, hidden ones too.
  std::vector<std::string> files() {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(backups))
      names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
  }
};

TEST_F(BackupTest, RestoreRoundTripBringsBackEveryRowAndSetsTheCurrentCatalogAside) {
  std::string before, settings;
  {
    PhotoLibrary library(folder);
    before = test::dumpCatalog(library);
    settings = library.storedSettings(11).value();
  }
  const BackupResult made = CatalogBackups::create(folder);
  EXPECT_EQ(made.backup.photos, 400);
  EXPECT_TRUE(made.backup.good());
  EXPECT_EQ(files(), std::vector<std::string>{made.backup.name});
  {
    PhotoLibrary library(folder);
    library.setRating({1, 2, 3}, 5);
    library.saveSettings(11, EditSettings{.exposure = 2}, "Later");
    library.remove({400});
  }

  const RestoreResult restored =
      CatalogBackups::restore(folder, made.backup.name.substr(0, made.backup.name.size() - 7));
  EXPECT_EQ(restored.restored.name, made.backup.name);
  {
    PhotoLibrary library(folder);
    EXPECT_TRUE(test::sameRows(before, test::dumpCatalog(library)));
    EXPECT_EQ(library.storedSettings(11), settings);
    EXPECT_EQ(library.count(), 400);
    EXPECT_EQ(library.db().query("PRAGMA journal_mode").at(0).at(0), SQLValue("wal"));
  }
  // The replaced catalog is kept whole, listed, and can itself be restored.
  ASSERT_TRUE(restored.setAside);
  const auto listed = CatalogBackups::list(folder, true);
  ASSERT_EQ(listed.size(), 2u);
  EXPECT_EQ(listed[0].name, restored.setAside->name);
  EXPECT_EQ(std::tuple(listed[0].kind, listed[0].photos, listed[0].good()),
            std::tuple(BackupInfo::Kind::replaced, 399, true));
  CatalogBackups::restore(folder, restored.setAside->name);
  PhotoLibrary library(folder);
  EXPECT_EQ(std::tuple(library.count(), library.photo(1)->rating), std::tuple(399, 5));
}

TEST_F(BackupTest, RestoreRefusesADamagedOrMissingBackupAndAnOpenLibrary) {
  const BackupResult made = CatalogBackups::create(folder);
  const std::string before = dump();
  const auto refused = [&](const std::string& name, const std::string& says) {
    EXPECT_TRUE(test::throwsWith<BackupError>([&] { CatalogBackups::restore(folder, name); }, says)) << says;
    EXPECT_TRUE(test::sameRows(before, dump()));
  };
  refused("Lumivale-2001-01-01T00-00-00Z", "there is no backup called");
  {
    PhotoLibrary open(folder);
    refused(made.backup.name, "open in another program");
  }
  // A connection of another program, which takes no folder lock.
  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  const pid_t child = fork();
  if (child == 0) {
    SQLiteDB other((folder / PhotoLibrary::databaseName).string());
    other.query("SELECT COUNT(*) FROM photos");
    if (write(ready[1], "r", 1) != 1) _exit(1);
    pause();
    _exit(0);
  }
  char byte;
  ASSERT_EQ(read(ready[0], &byte, 1), 1);
  refused(made.backup.name, "open in another program");
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);

  const fs::path copy = backups / "Lumivale-2001-01-01T00-00-00Z.sqlite";
  fs::copy_file(made.backup.path, copy);
  test::corruptPage(copy, 3);
  const auto listed = CatalogBackups::list(folder, true);
  ASSERT_EQ(listed.size(), 2u);
  EXPECT_EQ(std::tuple(listed[1].name, listed[1].good()), std::tuple(copy.filename().string(), false));
  refused(copy.filename().string(), "is never restored");
  EXPECT_EQ(CatalogBackups::lastGood(folder)->name, made.backup.name);
}

TEST_F(BackupTest, FullDiskOrAKillMidwayLeavesNoBackupAndTheCatalogAsItWas) {
  const std::string before = dump();
  const std::string answer = test::inChild([&] {
    signal(SIGXFSZ, SIG_IGN);
    const rlimit small{64 * 1024, 64 * 1024};
    setrlimit(RLIMIT_FSIZE, &small);
    return test::errorMessage<BackupError>([&] { CatalogBackups::create(folder); });
  });
  EXPECT_EQ(answer.rfind("No backup was made: ", 0), 0u) << answer;
  EXPECT_EQ(files(), std::vector<std::string>{});

  const pid_t child = fork();
  if (child == 0) {
    CatalogBackups::Options slow;
    slow.pacing = {1, std::chrono::milliseconds(5)};
    CatalogBackups::create(folder, slow);
    _exit(0);
  }
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (files().empty() && std::chrono::steady_clock::now() < deadline)
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  kill(child, SIGKILL);
  int status = 0;
  waitpid(child, &status, 0);
  ASSERT_TRUE(WIFSIGNALED(status)) << "the backup finished before the kill";
  ASSERT_EQ(files().size(), 1u);
  EXPECT_EQ(files()[0][0], '.');  // only the hidden copy, never a backup's name
  EXPECT_TRUE(CatalogBackups::list(folder, true).empty());
  EXPECT_TRUE(test::sameRows(before, dump()));

  // The next backup clears what the killed one left.
  const BackupResult made = CatalogBackups::create(folder);
  EXPECT_EQ(files(), std::vector<std::string>{made.backup.name});
}

TEST_F(BackupTest, DailyBackupIsMadeOnceADay) {
  {
    DailyBackup first(folder);
    EXPECT_TRUE(first.wait().made) << first.wait().note;
  }
  DailyBackup second(folder);
  EXPECT_EQ(std::tuple(second.wait().made, second.wait().note),
            std::tuple(false, "today's backup was made already"));
  EXPECT_EQ(CatalogBackups::list(folder, false).size(), 1u);
}

TEST(BackupRotationTest, KeepsTheNewestOfTheLastSevenDaysAndFourWeeks) {
  setenv("TZ", "UTC", 1);
  tzset();
  // One backup at 10:00 every day of 2025 up to Sunday 16 March, two more
  // earlier on its last two days, and an old set-aside catalog.
  const auto at = [](int month, int day, int hour) {
    std::tm t{};
    t.tm_year = 125, t.tm_mon = month - 1, t.tm_mday = day, t.tm_hour = hour;
    return static_cast<double>(timegm(&t));
  };
  std::vector<BackupInfo> all;
  const auto add = [&](int month, int day, int hour, BackupInfo::Kind kind = BackupInfo::Kind::backup) {
    BackupInfo b;
    b.name = std::to_string(month) + "-" + std::to_string(day) + "@" + std::to_string(hour);
    b.kind = kind;
    b.created = at(month, day, hour);
    all.push_back(b);
  };
  for (int month = 1; month <= 3; ++month) {
    for (int day = 1; day <= (month == 2 ? 28 : 31) && !(month == 3 && day > 16); ++day) add(month, day, 10);
  }
  add(3, 16, 9), add(3, 15, 9), add(1, 2, 12, BackupInfo::Kind::replaced);

  std::vector<std::string> kept;
  const auto expired = CatalogBackups::expired(all);
  for (const BackupInfo& b : all) {
    if (b.kind == BackupInfo::Kind::backup &&
        std::find(expired.begin(), expired.end(), b.name) == expired.end())
      kept.push_back(b.name);
  }
  std::sort(kept.begin(), kept.end());
  // The last seven days, and the newest of the three weeks before them
  // (Sundays 9, 2 March and 23 February).
  EXPECT_EQ(kept, (std::vector<std::string>{"2-23@10", "3-10@10", "3-11@10", "3-12@10", "3-13@10", "3-14@10",
                                            "3-15@10", "3-16@10", "3-2@10", "3-9@10"}));
  unsetenv("TZ");
  tzset();
}

}  // namespace
