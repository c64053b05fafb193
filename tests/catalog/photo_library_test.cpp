#include "engine/catalog/photo_library.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>

#include "engine/catalog/library_location.h"
#include "tests/support/errors.h"
#include "tests/support/library.h"

using namespace lumivale;
using Words = std::vector<std::string>;

namespace {

Words column(PhotoLibrary& library, const std::string& sql) {
  Words values;
  for (auto& row : library.db().query(sql)) values.push_back(row.at(0).stringValue().value_or("NULL"));
  return values;
}

TEST(PhotoLibraryTest, CreatesTheFolderLayoutAndSchemaAndOpeningAgainChangesNothing) {
  test::TempDir dir;
  const auto folder = dir / "deep" / "KUVO Lumivale Library";
  const std::string schema = "SELECT type, name, sql FROM sqlite_master ORDER BY name";
  std::string before;
  {
    PhotoLibrary library(folder);
    EXPECT_TRUE(std::filesystem::is_directory(folder / "Thumbnails"));
    EXPECT_TRUE(std::filesystem::is_regular_file(folder / "Lumivale Library.sqlite"));
    EXPECT_EQ(library.thumbFolder(), folder / "Thumbnails");
    EXPECT_EQ(library.meta("format"), "KUVO Lumivale library 1");
    EXPECT_EQ(library.count(), 0);
    EXPECT_EQ(column(library, "PRAGMA journal_mode"), Words{"wal"});
    EXPECT_EQ(column(library,
                     "SELECT name FROM sqlite_master WHERE type IN ('table','index') "
                     "AND name NOT LIKE 'sqlite_%' ORDER BY name"),
              (Words{"collection_items", "collections", "folders", "history", "keywords", "keywords_word",
                     "meta", "photos", "photos_capture", "photos_folder", "presets", "snapshots"}));
    EXPECT_EQ(column(library, "SELECT name FROM pragma_table_info('photos')"),
              (Words{"id",      "path",     "folder", "name", "ext",   "size",    "width",    "height",
                     "capture", "imported", "camera", "lens", "iso",   "shutter", "aperture", "focal",
                     "rating",  "flag",     "label",  "raw",  "edits", "edited",  "editDate", "histPos"}));
    library.db().run("INSERT INTO photos(path, rating) VALUES('/p/a.jpg', 3)");
    before = test::dumpRows(library, {schema});
  }
  PhotoLibrary again(folder);
  PhotoLibrary third(folder);  // two open at once, as app and CLI may be
  EXPECT_EQ(test::dumpRows(again, {schema}), before);
  EXPECT_EQ(column(again, "SELECT value FROM meta WHERE key = 'format'").size(), 1u);
  EXPECT_EQ(again.count(), 1);
  EXPECT_EQ(third.photo(1)->rating, 3);
}

TEST(PhotoLibraryTest, RecordMapsEveryColumnAndDefaultsNullsAndOddValues) {
  test::TempDir dir;
  PhotoLibrary library(dir.path());
  library.db().exec(
      "INSERT INTO photos(path, folder, name, ext, size, width, height, capture, imported, camera, lens, "
      "iso, "
      "shutter, aperture, focal, rating, flag, label, raw, edited, editDate) VALUES('/a/IMG_1.CR3', '/a', "
      "'IMG_1.CR3', 'cr3', 123456, 6000, 4000, 1.6e9, 1.7e9, 'Canon EOS R5', 'RF24-70mm', 400, 0.004, 2.8, "
      "50.0, "
      "4, -1, 'red', 1, 1, 1.75e9)");
  EXPECT_EQ(library.photo(1),
            (PhotoRecord{1,     "/a/IMG_1.CR3", "/a",        "IMG_1.CR3", "cr3", 123456, 6000, 4000, 1.6e9,
                         1.7e9, "Canon EOS R5", "RF24-70mm", 400,         0.004, 2.8,    50.0, 4,    -1,
                         "red", true,           true,        1.75e9}));
  library.db().run("INSERT INTO photos(path) VALUES('/b.jpg')");
  // NULL imported reads as the 1970 epoch, the other NULLs as absent or empty.
  EXPECT_EQ(library.photo(2), (PhotoRecord{.id = 2, .path = "/b.jpg"}));
  EXPECT_FALSE(library.photo(99));

  // Short rows and swapped number types.
  PhotoRecord r = PhotoLibrary::record({SQLValue(std::int64_t{5}), SQLValue("/x.png")});
  EXPECT_EQ(std::tuple(r.id, r.path, r.width), std::tuple(5, "/x.png", 0));
  SQLRow row(22);
  row[6] = SQLValue(640.9);             // a REAL in an integer column truncates
  row[13] = SQLValue(std::int64_t{2});  // an INTEGER in a real column converts
  row[1] = SQLValue(Blob{'a'});         // a blob where text belongs reads as empty
  r = PhotoLibrary::record(row);
  EXPECT_EQ(std::tuple(r.width, r.shutter, r.path), std::tuple(640, 2.0, ""));
  // Integers beyond the record's fields saturate instead of wrapping round.
  row[6] = SQLValue(std::int64_t{4294967296}), row[7] = SQLValue(-3e12),
  row[12] = SQLValue(std::int64_t{1} << 40);
  r = PhotoLibrary::record(row);
  EXPECT_EQ(std::tuple(r.width, r.height, r.iso), std::tuple(INT_MAX, INT_MIN, INT_MAX));
}

TEST(PhotoLibraryTest, FolderBelowAFileAndANonDatabaseFileAreRefusedAndKept) {
  test::TempDir dir;
  test::writeFile(dir / "file", "x");
  EXPECT_THROW(PhotoLibrary(dir / "file" / "library"), FileError);
  EXPECT_EQ(test::readFile(dir / "file"), "x");

  const std::string junk(5000, 'j');
  test::writeFile(dir / "Lumivale Library.sqlite", junk);
  // Named as the catalog it is, with what is wrong with it.
  for (bool checked : {true, false}) {
    const std::string message =
        test::errorMessage<SQLError>([&] { PhotoLibrary library(dir.path(), {.checkWhenDue = checked}); });
    EXPECT_NE(message.find("\"" + (dir / "Lumivale Library.sqlite").string() + "\""), std::string::npos);
    EXPECT_NE(message.find("file is not a database"), std::string::npos) << message;
  }
  EXPECT_EQ(test::readFile(dir / "Lumivale Library.sqlite"), junk);
  EXPECT_FALSE(std::filesystem::exists(dir / "Lumivale Library.sqlite-wal"));
}

TEST(PhotoRecordTest, ShutterTextAndSummaryShowOnlyTheKnownParts) {
  using C = std::pair<double, const char*>;
  for (auto [seconds, text] :
       {C{0, ""}, C{-1, ""}, C{std::nan(""), ""}, C{0.004, "1/250 s"}, C{0.5, "1/2 s"}, C{1.0, "1.0 s"},
        C{2.0, "2.0 s"}, C{0.0125, "1/80 s"}, C{1.0 / 3, "1/3 s"}, C{0.4, "1/3 s"}, C{30, "30.0 s"}})
    EXPECT_EQ((PhotoRecord{.shutter = seconds}.shutterText()), text) << seconds;

  EXPECT_EQ(PhotoRecord{}.summary(), "");
  EXPECT_EQ((PhotoRecord{.aperture = 2.8}.summary()), "f/2.8");
  EXPECT_EQ((PhotoRecord{.iso = 100, .shutter = 1.0 / 125, .aperture = 8, .focalLength = 35}.summary()),
            "ISO 100  \u00b7  1/125 s  \u00b7  f/8.0  \u00b7  35 mm");
  // Focal lengths to the nearest millimetre, halves up (not to even).
  for (auto [focal, text] : {std::pair(23.5, "24 mm"), {4.5, "5 mm"}, {3.5, "4 mm"}, {4.49, "4 mm"}}) {
    EXPECT_EQ((PhotoRecord{.focalLength = focal}.summary()), text) << focal;
    EXPECT_EQ(formatMillimetres(focal), text) << focal;
  }
}

TEST(LibraryLocationTest, CommandLineBeatsEnvironmentBeatsDefault) {
  setenv("LUMIVALE_LIBRARY", "/tmp/from-env/", 1);
  EXPECT_EQ(resolveLibraryFolder(std::string("/tmp/from-arg/")), "/tmp/from-arg");
  EXPECT_EQ(resolveLibraryFolder(std::nullopt), "/tmp/from-env");
  unsetenv("LUMIVALE_LIBRARY");
  const auto fallback = resolveLibraryFolder(std::nullopt);
  EXPECT_EQ(fallback.filename(), "KUVO Lumivale Library");
  EXPECT_EQ(fallback.parent_path(), picturesFolder());
  EXPECT_TRUE(resolveLibraryFolder(std::string("relative")).is_absolute());
}

}  // namespace
