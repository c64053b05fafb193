#include "app/startup.h"

#include <gtest/gtest.h>

#include <sstream>

#include "engine/catalog/catalog_safety.h"
#include "tests/support/library.h"

using namespace lumivale;
using lumivale::app::StartupOptions;

TEST(StartupTest, DiagnosticsSwitchesComeFirstAndAreNotYetAvailable) {
  std::ostringstream out, err;
  for (auto args :
       std::vector<std::vector<std::string>>{{"--selftest"}, {"--benchmark"}, {"--snapshots", "/tmp/x"}}) {
    auto options = app::parseStartup(args, err);
    ASSERT_TRUE(options);
    EXPECT_NE(options->mode, StartupOptions::Mode::normal);
    EXPECT_EQ(app::startUp(*options, out, err), 2);
  }
  EXPECT_EQ(app::parseStartup({"--snapshots", "/tmp/shots"}, err)->snapshotsPath, "/tmp/shots");
  EXPECT_FALSE(app::parseStartup({"--snapshots"}, err));
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
}
