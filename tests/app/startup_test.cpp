#include "app/startup.h"

#include <gtest/gtest.h>

#include <sstream>

#include "engine/catalog/catalog_safety.h"
#include "tests/support/library.h"

using namespace lumivale;
using lumivale::app::StartupOptions;

TEST(StartupTest, DiagnosticsSwitchesRankSelftestBenchmarkSnapshots) {
  using Mode = StartupOptions::Mode;
  std::ostringstream err;
  const std::pair<std::vector<std::string>, Mode> table[] = {
      {{"--snapshots", "/tmp/x", "--benchmark", "--selftest"}, Mode::selftest},
      {{"--snapshots", "/tmp/x", "--benchmark"}, Mode::benchmark},
      {{"--help", "--snapshots", "/tmp/x"}, Mode::snapshots},
      {{"--library", "/tmp/lib", "--help"}, Mode::help},
      {{"-platform", "offscreen"}, Mode::normal},
  };
  for (const auto& [args, mode] : table) {
    auto options = app::parseStartup(args, err);
    ASSERT_TRUE(options);
    EXPECT_EQ(options->mode, mode) << args.front();
  }
  EXPECT_EQ(app::parseStartup({"--snapshots", "/tmp/shots"}, err)->snapshotsPath, "/tmp/shots");
  EXPECT_TRUE(app::parseStartup({"--benchmark", "--json"}, err)->json);
  EXPECT_EQ(err.str(), "");
  for (auto args : std::vector<std::vector<std::string>>{{"--snapshots"}, {"--snapshots", ""}}) {
    std::ostringstream why;
    EXPECT_FALSE(app::parseStartup(args, why));
    EXPECT_EQ(why.str(), "lumivale: --snapshots needs a folder to write into\n");
  }
}

TEST(StartupTest, SnapshotsIntoAFileFailBeforeAnyLibraryOpens) {
  test::TempDir dir;
  test::writeFile(dir / "file", "x");
  test::ScopedEnv library("LUMIVALE_LIBRARY", (dir / "lib").c_str());
  std::ostringstream out, err;
  auto options = app::parseStartup({"--snapshots", (dir / "file").string()}, err);
  EXPECT_EQ(app::startUp(*options, out, err), 1);
  EXPECT_NE(err.str().find("it is not a folder"), std::string::npos) << err.str();
  EXPECT_FALSE(std::filesystem::exists(dir / "lib"));
}

TEST(StartupTest, OpensTheLibraryOrExplainsWhyNot) {
  test::TempDir dir;
  std::ostringstream out, err;
  auto options = app::parseStartup({"--library", (dir / "lib").string()}, err);
  EXPECT_EQ(app::startUp(*options, out, err), 0);
  EXPECT_NE(out.str().find((dir / "lib").string()), std::string::npos);
  EXPECT_NE(out.str().find("Photos:  0"), std::string::npos);

  test::writeFile(dir / "file", "x");
  std::ostringstream out2, err2;
  options = app::parseStartup({"--library", (dir / "file" / "lib").string()}, err2);
  EXPECT_EQ(app::startUp(*options, out2, err2), 1);
  std::string text = err2.str();
  EXPECT_EQ(
      text.rfind("KUVO Lumivale could not open its library\n" + (dir / "file" / "lib").string() + "\n", 0),
      0u)
      << text;
}

TEST(StartupTest, MakesTheDaysBackupAndStopsAtADamagedCatalogNamingTheBackup) {
  test::TempDir dir;
  const auto folder = dir / "lib";
  std::ostringstream out, err;
  auto options = app::parseStartup({"--library", folder.string()}, err);
  ASSERT_EQ(app::startUp(*options, out, err), 0);
  const auto backups = CatalogBackups::list(folder, true);
  ASSERT_EQ(backups.size(), 1u);
  EXPECT_NE(out.str().find("Backup:  made " + backups[0].name), std::string::npos) << out.str();
  EXPECT_TRUE(backups[0].good());

  const auto database = folder / PhotoLibrary::databaseName;
  SQLiteDB(database.string()).run("UPDATE meta SET value = '0' WHERE key = 'lastCheck'");
  test::corruptPage(database, 2);
  std::ostringstream out2, err2;
  EXPECT_EQ(app::startUp(*options, out2, err2), 1);
  EXPECT_EQ(err2.str().rfind("KUVO Lumivale could not open its library\n", 0), 0u) << err2.str();
  EXPECT_NE(err2.str().find("is damaged"), std::string::npos) << err2.str();
  EXPECT_NE(err2.str().find(backups[0].path.string()), std::string::npos) << err2.str();

  // Restoring sets the damaged catalog aside and opens the backup.
  try {
    app::openLibrary(folder);
    ADD_FAILURE() << "the damaged catalog opened";
  } catch (const CatalogDamaged& damage) {
    EXPECT_EQ(app::restoreLastBackup(folder, damage).library->count(), 0);
  }
  const auto kept = CatalogBackups::list(folder, false);
  ASSERT_EQ(kept.size(), 2u);
  EXPECT_NE(kept[0].kind, kept[1].kind) << "the backup and the catalog set aside";
}
