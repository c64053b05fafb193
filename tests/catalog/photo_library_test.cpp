#include "engine/catalog/photo_library.h"

#include <gtest/gtest.h>

#include <cmath>

#include "engine/catalog/library_location.h"
#include "tests/support/errors.h"
#include "tests/support/temp_dir.h"

using namespace lumivale;

namespace {

std::string schemaOf(PhotoLibrary& library) {
  std::string text;
  for (auto& row : library.db().query("SELECT type, name, sql FROM sqlite_master ORDER BY name")) {
    for (auto& v : row) text += v.stringValue().value_or("NULL") + "\n";
  }
  return text;
}

TEST(PhotoLibraryTest, CreatesTheFolderLayoutAndSchema) {
  test::TempDir dir;
  auto folder = dir / "deep" / "KUVO Lumivale Library";
  PhotoLibrary library(folder);
  EXPECT_TRUE(std::filesystem::is_directory(folder / "Thumbnails"));
  EXPECT_TRUE(std::filesystem::is_regular_file(folder / "Lumivale Library.sqlite"));
  EXPECT_EQ(library.thumbFolder(), folder / "Thumbnails");
  EXPECT_EQ(library.meta("format"), "KUVO Lumivale library 1");
  EXPECT_EQ(library.count(), 0);
  auto mode = library.db().query("PRAGMA journal_mode").at(0).at(0).stringValue();
  EXPECT_EQ(mode, "wal");

  std::vector<std::string> tables;
  for (auto& row : library.db().query("SELECT name FROM sqlite_master WHERE type IN ('table','index') "
                                      "AND name NOT LIKE 'sqlite_%' ORDER BY name")) {
    tables.push_back(*row[0].stringValue());
  }
  EXPECT_EQ(tables, (std::vector<std::string>{"collection_items", "collections", "folders", "history",
                                              "keywords", "keywords_word", "meta", "photos", "photos_capture",
                                              "photos_folder", "presets", "snapshots"}));
  std::vector<std::string> columns;
  for (auto& row : library.db().query("PRAGMA table_info(photos)")) columns.push_back(*row[1].stringValue());
  EXPECT_EQ(columns,
            (std::vector<std::string>{"id",    "path",    "folder",   "name",     "ext",      "size",
                                      "width", "height",  "capture",  "imported", "camera",   "lens",
                                      "iso",   "shutter", "aperture", "focal",    "rating",   "flag",
                                      "label", "raw",     "edits",    "edited",   "editDate", "histPos"}));
}

TEST(PhotoLibraryTest, OpeningAgainChangesNothing) {
  test::TempDir dir;
  std::string before;
  {
    PhotoLibrary library(dir.path());
    library.db().run("INSERT INTO photos(path, rating) VALUES('/p/a.jpg', 3)");
    before = schemaOf(library);
  }
  PhotoLibrary again(dir.path());
  PhotoLibrary third(dir.path());  // two open at once, as app and CLI may be
  EXPECT_EQ(schemaOf(again), before);
  auto formats = again.db().query("SELECT value FROM meta WHERE key = 'format'");
  ASSERT_EQ(formats.size(), 1u);
  EXPECT_EQ(again.count(), 1);
  EXPECT_EQ(third.photo(1)->rating, 3);
}

TEST(PhotoLibraryTest, RecordMapsEveryColumnAndDefaultsNulls) {
  test::TempDir dir;
  PhotoLibrary library(dir.path());
  library.db().run(
      "INSERT INTO photos(path, folder, name, ext, size, width, height, capture, imported, camera, lens, "
      "iso, shutter, aperture, focal, rating, flag, label, raw, edited, editDate) "
      "VALUES(?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?)",
      {"/a/IMG_1.CR3",
       "/a",
       "IMG_1.CR3",
       "cr3",
       std::int64_t{123456},
       6000,
       4000,
       1.6e9,
       1.7e9,
       "Canon EOS R5",
       "RF24-70mm",
       400,
       0.004,
       2.8,
       50.0,
       4,
       -1,
       "red",
       1,
       1,
       1.75e9});
  EXPECT_EQ(library.photo(1), (PhotoRecord{.id = 1,
                                           .path = "/a/IMG_1.CR3",
                                           .folder = "/a",
                                           .name = "IMG_1.CR3",
                                           .ext = "cr3",
                                           .fileSize = 123456,
                                           .width = 6000,
                                           .height = 4000,
                                           .captureDate = 1.6e9,
                                           .importDate = 1.7e9,
                                           .camera = "Canon EOS R5",
                                           .lens = "RF24-70mm",
                                           .iso = 400,
                                           .shutter = 0.004,
                                           .aperture = 2.8,
                                           .focalLength = 50.0,
                                           .rating = 4,
                                           .flag = -1,
                                           .label = "red",
                                           .isRaw = true,
                                           .edited = true,
                                           .editDate = 1.75e9}));

  library.db().run("INSERT INTO photos(path) VALUES('/b.jpg')");
  // NULL imported reads as the 1970 epoch, the other NULLs as absent or empty.
  EXPECT_EQ(library.photo(2), (PhotoRecord{.id = 2, .path = "/b.jpg"}));
  EXPECT_FALSE(library.photo(99));
}

TEST(PhotoLibraryTest, RecordToleratesShortRowsAndSwappedNumberTypes) {
  PhotoRecord r = PhotoLibrary::record({SQLValue(std::int64_t{5}), SQLValue("/x.png")});
  EXPECT_EQ(r.id, 5);
  EXPECT_EQ(r.path, "/x.png");
  EXPECT_EQ(r.width, 0);
  SQLRow row(22);
  row[6] = SQLValue(640.9);             // a REAL in an integer column truncates
  row[13] = SQLValue(std::int64_t{2});  // an INTEGER in a real column converts
  row[1] = SQLValue(Blob{'a'});         // a blob where text belongs reads as empty
  r = PhotoLibrary::record(row);
  EXPECT_EQ(r.width, 640);
  EXPECT_EQ(r.shutter, 2.0);
  EXPECT_EQ(r.path, "");
}

TEST(PhotoLibraryTest, FolderBelowAFileCannotBeOpened) {
  test::TempDir dir;
  test::writeFile(dir / "file", "x");
  EXPECT_THROW(PhotoLibrary(dir / "file" / "library"), FileError);
  EXPECT_EQ(test::readFile(dir / "file"), "x");
}

TEST(PhotoLibraryTest, NonDatabaseFileIsRefusedAndKept) {
  test::TempDir dir;
  const std::string junk(5000, 'j');
  test::writeFile(dir / "Lumivale Library.sqlite", junk);
  EXPECT_EQ(test::errorMessage<SQLError>([&] { PhotoLibrary library(dir.path()); }),
            "file is not a database");
  EXPECT_EQ(test::readFile(dir / "Lumivale Library.sqlite"), junk);
  EXPECT_FALSE(std::filesystem::exists(dir / "Lumivale Library.sqlite-wal"));
}

struct ShutterCase {
  double seconds;
  const char* text;
};

class ShutterTextTest : public ::testing::TestWithParam<ShutterCase> {};

TEST_P(ShutterTextTest, Formats) {
  PhotoRecord r;
  r.shutter = GetParam().seconds;
  EXPECT_EQ(r.shutterText(), GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(Values, ShutterTextTest,
                         ::testing::Values(ShutterCase{0, ""}, ShutterCase{-1, ""},
                                           ShutterCase{std::nan(""), ""}, ShutterCase{0.004, "1/250 s"},
                                           ShutterCase{0.5, "1/2 s"}, ShutterCase{1.0, "1.0 s"},
                                           ShutterCase{2.0, "2.0 s"}, ShutterCase{0.0125, "1/80 s"},
                                           ShutterCase{1.0 / 3, "1/3 s"}, ShutterCase{0.4, "1/3 s"},
                                           ShutterCase{30, "30.0 s"}));

TEST(PhotoRecordTest, SummaryJoinsOnlyTheKnownParts) {
  PhotoRecord r;
  EXPECT_EQ(r.summary(), "");
  r.aperture = 2.8;
  EXPECT_EQ(r.summary(), "f/2.8");
  r.iso = 100;
  r.shutter = 1.0 / 125;
  r.aperture = 8;
  r.focalLength = 35;
  EXPECT_EQ(r.summary(), "ISO 100  \u00b7  1/125 s  \u00b7  f/8.0  \u00b7  35 mm");
  r = PhotoRecord{};
  r.focalLength = 23.5;
  EXPECT_EQ(r.summary(), "24 mm");
}

TEST(LibraryLocationTest, CommandLineBeatsEnvironmentBeatsDefault) {
  setenv("LUMIVALE_LIBRARY", "/tmp/from-env/", 1);
  EXPECT_EQ(resolveLibraryFolder(std::string("/tmp/from-arg/")), "/tmp/from-arg");
  EXPECT_EQ(resolveLibraryFolder(std::nullopt), "/tmp/from-env");
  unsetenv("LUMIVALE_LIBRARY");
  auto fallback = resolveLibraryFolder(std::nullopt);
  EXPECT_EQ(fallback.filename(), "KUVO Lumivale Library");
  EXPECT_EQ(fallback.parent_path(), picturesFolder());
  EXPECT_TRUE(resolveLibraryFolder(std::string("relative")).is_absolute());
}

}  // namespace
