// Folder import into a fresh library: what is listed, what is stored, what
// is skipped and what a failure leaves behind.

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "engine/catalog/folder_listing.h"
#include "engine/catalog/photo_library.h"
#include "engine/catalog/photo_meta.h"
#include "engine/util/clock.h"
#include "tests/support/errors.h"
#include "tests/support/library.h"
#include "tests/support/sample_photos.h"

using namespace lumivale;
namespace fs = std::filesystem;
using Names = std::vector<std::string>;

namespace {

class ImportTest : public ::testing::Test {
 protected:
  ImportTest() : library(dir / "library") {}

  // A small JPEG copied from one made once per test, which is much faster
  // than encoding every file.
  void jpeg(const fs::path& file) {
    if (plainJpeg.empty()) {
      test::writePhoto(dir / "plain.jpg", 16, 12);
      plainJpeg = test::readFile(dir / "plain.jpg");
    }
    test::writeFile(file, plainJpeg);
  }
  Names column(const std::string& sql, const std::vector<SQLValue>& params = {}) {
    Names values;
    for (auto& row : library.db().query(sql, params)) values.push_back(row[0].stringValue().value_or("?"));
    return values;
  }
  Names listed(bool recursive, const fs::path& ownLibrary = {}) {
    Names names;
    for (const auto& f : listPhotoFiles(root, recursive, ownLibrary)) {
      EXPECT_TRUE(f.is_absolute()) << f;
      names.push_back(f.lexically_relative(root).string());
    }
    return names;
  }

  test::TempDir dir;
  PhotoLibrary library;
  std::string plainJpeg;
  const fs::path root = dir / "photos";
};

}  // namespace

TEST_F(ImportTest, ListsPhotosInTheFileBrowsersOrderFollowingLinksToFilesOnly) {
  for (const char* name : {"IMG_10.jpg", "IMG_2.JPG", "img_1.jpeg", "b/IMG_3.jpg", "a/IMG_9.jpg",
                           "A/IMG_1.jpg", "notes.txt", "IMG_4.jpg.bak", "noext"})
    jpeg(root / name);
  fs::create_symlink(root / "a/IMG_9.jpg", root / "link.jpg");
  fs::create_symlink(root / "missing.jpg", root / "broken.jpg");
  fs::create_symlink(root, root / "b/loop");  // a cycle if it were followed
  fs::create_symlink(root / "b", root / "alias");
  EXPECT_EQ(listed(true), (Names{"A/IMG_1.jpg", "a/IMG_9.jpg", "b/IMG_3.jpg", "img_1.jpeg", "IMG_2.JPG",
                                 "IMG_10.jpg", "link.jpg"}));
}

TEST_F(ImportTest, LeavesOutHiddenEntriesPackagesAndLibraries) {
  for (const char* name : {"keep.jpg", "deep/er/keep.png", ".hidden.jpg", ".cache/inside.jpg",
                           "deep/.git/inside.jpg", "Viewer.app/Contents/Resources/icon.png",
                           "Old.PhotosLibrary/Masters/a.jpg",  // package suffixes in any case
                           "Catalog.lrdata/previews/a.jpg", "Film.fcpbundle/a.jpg",
                           "holiday.app.photos/kept.jpg",  // only a suffix makes a package
                           "KUVO Lumivale Library/Thumbnails/1.jpg"})
    jpeg(root / name);
  // A library kept under another name is recognised by being this library.
  PhotoLibrary nested(root / "my catalog");
  jpeg(root / "my catalog/Thumbnails/7.jpg");
  EXPECT_EQ(listed(true, root / "my catalog"),
            (Names{"deep/er/keep.png", "holiday.app.photos/kept.jpg", "keep.jpg"}));
  EXPECT_EQ(listed(false), Names{"keep.jpg"});

  EXPECT_EQ(standardizedPath("/a/b/"), fs::path("/a/b"));
  EXPECT_EQ(standardizedPath("/a/./b/../c"), fs::path("/a/c"));
  EXPECT_EQ(standardizedPath("/"), fs::path("/"));
  EXPECT_EQ(standardizedPath("rel/x"), fs::current_path() / "rel/x");
  for (const char* name : {"Viewer.app", "x.IMovieLibrary"}) EXPECT_TRUE(isPackageName(name)) << name;
  for (const char* name : {".app", "app", "Pictures.lrcat"}) EXPECT_FALSE(isPackageName(name)) << name;
}

TEST_F(ImportTest, StoresEveryFactOfTheNewPhotos) {
  const fs::path jpegPath = root / "Trip 'Nord' \"2023\"/Ölberg 1.JPG";
  test::SampleTags tags{.make = "NIKON CORPORATION", .model = "NIKON Z 6", .lens = "NIKKOR Z 50mm f/1.8 S"};
  tags.dateTimeOriginal = "2023:06:01 12:34:56", tags.exposure = {{1, 125}}, tags.fNumber = {{18, 10}};
  tags.focal = {{50, 1}}, tags.iso = 400, tags.orientation = 6;
  tags.keywords = {" Sky ", "Sea", "", "Sky", "CT", "Ardea alba", "sky"};
  test::writePhoto(jpegPath, 30, 20, tags);
  test::writeDng(root / "raw/IMG_0002.dng", {.make = "Canon", .model = "Canon EOS R5"});

  const double before = nowSeconds();
  const ImportResult result = library.importFolder(root, true);
  EXPECT_EQ(result, (ImportResult{2, 0, 0, result.seconds}));
  EXPECT_GE(result.seconds, 0);

  auto rows = library.db().query(PhotoLibrary::recordColumns + " ORDER BY id");
  ASSERT_EQ(rows.size(), 2u);
  const PhotoRecord dng = PhotoLibrary::record(rows[0]), jpg = PhotoLibrary::record(rows[1]);
  EXPECT_GE(jpg.importDate, before);
  EXPECT_LE(jpg.importDate, nowSeconds());
  PhotoRecord expected{.id = jpg.id, .path = jpegPath.string(), .folder = jpegPath.parent_path().string()};
  expected.name = "Ölberg 1.JPG", expected.ext = "jpg",
  expected.fileSize = std::int64_t(fs::file_size(jpegPath));
  expected.width = 20, expected.height = 30;  // turned by orientation 6
  expected.captureDate = exifDate("2023:06:01 12:34:56"), expected.importDate = jpg.importDate;
  expected.camera = "NIKON Z 6", expected.lens = "NIKKOR Z 50mm f/1.8 S", expected.iso = 400;
  expected.shutter = 0.008, expected.aperture = 1.8, expected.focalLength = 50;
  EXPECT_EQ(jpg, expected);
  EXPECT_EQ(jpg.shutterText(), "1/125 s");
  EXPECT_EQ(std::tuple(dng.ext, dng.isRaw, dng.camera, dng.iso),
            std::tuple("dng", true, "Canon EOS R5", 400));

  // New photos have no settings yet; keywords are stored as typed ones
  // are, trimmed and in lower case, once each, so they can be removed by name.
  EXPECT_EQ(column("SELECT COUNT(*) || '' FROM photos WHERE edits IS NULL AND histPos = 0"), Names{"2"});
  EXPECT_EQ(library.keywords(jpg.id), (Names{"ardea alba", "ct", "sea", "sky"}));
  EXPECT_EQ(library.removeKeyword({jpg.id}, "CT"), 1);
}

TEST_F(ImportTest, ASecondImportAddsNothingAndRecordsTheFolderOnce) {
  jpeg(root / "a.jpg");
  jpeg(root / "sub/b.jpg");
  EXPECT_EQ(library.importFolder(root, true).added, 2);
  // The same folder written differently is the same folder.
  const ImportResult second = library.importFolder(root / "sub" / ".." / "", true);
  EXPECT_EQ(second, (ImportResult{0, 2, 0, second.seconds}));
  EXPECT_EQ(library.count(), 2);
  EXPECT_EQ(column("SELECT path FROM folders"), Names{root.string()});

  // A new file next to the old ones is the only one read.
  jpeg(root / "c.jpg");
  const ImportResult third = library.importFolder(root, false);
  EXPECT_EQ(third, (ImportResult{1, 1, 0, third.seconds}));  // sub/b.jpg is not listed without recursion
  EXPECT_EQ(column("SELECT path FROM folders").size(), 1u);

  // The folder is recorded even when nothing in it is new.
  fs::create_directories(dir / "empty");
  const ImportResult empty = library.importFolder(dir / "empty/", false);
  EXPECT_EQ(empty, (ImportResult{0, 0, 0, empty.seconds}));
  EXPECT_EQ(column("SELECT path FROM folders WHERE added > 1.6e9 ORDER BY path"),
            (Names{(dir / "empty").string(), root.string()}));
}

TEST_F(ImportTest, ReportsProgressAfterEveryFiftyFilesAndKeepsEachHeaderWithItsFile) {
  std::vector<fs::path> files;
  for (int i = 0; i < 120; ++i) jpeg(files.emplace_back(root / ("p" + std::to_string(i) + ".jpg")));
  // Already catalogued files are not counted in the total.
  library.importFiles({files[0], files[1]});
  std::vector<std::pair<int, int>> calls;
  const auto progress = [&](int done, int total) { calls.push_back({done, total}); };
  const ImportResult result = library.importFiles(files, progress);
  EXPECT_EQ(std::pair(result.added, result.skipped), std::pair(118, 2));
  EXPECT_EQ(calls, (std::vector<std::pair<int, int>>{{50, 118}, {100, 118}}));
  calls.clear();
  library.importFiles(files, progress);
  EXPECT_TRUE(calls.empty());

  // Headers are read in parallel; each must land in its own row.
  files.clear();
  for (int i = 0; i < 40; ++i)
    test::writePhoto(files.emplace_back(root / ("iso" + std::to_string(i) + ".jpg")), 8, 8, {.iso = 100 + i});
  EXPECT_EQ(library.importFiles(files).added, 40);
  for (int i = 0; i < 40; ++i)
    EXPECT_EQ(column("SELECT iso || '' FROM photos WHERE path = ?", {files[i].string()}),
              Names{std::to_string(100 + i)});
}

TEST_F(ImportTest, CountsUnreadableFilesAsFailedAndGoesOn) {
  jpeg(root / "good.jpg");
  test::writeFile(root / "empty.jpg", "");
  test::writeFile(root / "text.jpg", "Dear diary,\n");
  test::writeFile(root / "cut.jpg", plainJpeg.substr(0, 40));
  test::writePhoto(dir / "whole.tif", 16, 16);
  test::writeFile(root / "cut.tif", test::readFile(dir / "whole.tif").substr(0, 100));
  test::writeFile(root / "not really.nef", "\x00\x01\x02 junk");
  test::writeFile(root / "jpeg inside.cr2", plainJpeg);                // read as the JPEG it is
  fs::create_symlink(root / "nowhere.jpg", root / "broken link.jpg");  // not a file at all

  const ImportResult result = library.importFolder(root, true);
  EXPECT_EQ(result, (ImportResult{2, 0, 5, result.seconds}));
  EXPECT_EQ(column("SELECT path FROM photos ORDER BY id"),
            (Names{(root / "good.jpg").string(), (root / "jpeg inside.cr2").string()}));
  // The extension decides what is RAW.
  EXPECT_EQ(column("SELECT raw || ' ' || width FROM photos WHERE name = 'jpeg inside.cr2'"), Names{"1 16"});
  // Failed files are tried again by the next import.
  const ImportResult again = library.importFolder(root, true);
  EXPECT_EQ(again, (ImportResult{0, 2, 5, again.seconds}));

  // A file gone since the listing fails; a path given twice is catalogued once.
  jpeg(dir / "more/a.jpg");
  jpeg(dir / "more/b.jpg");
  const auto files = listPhotoFiles(dir / "more", false);
  fs::remove(dir / "more/b.jpg");
  const ImportResult gone = library.importFiles({files[0], files[1], dir / "more" / "." / "a.jpg"});
  EXPECT_EQ(gone, (ImportResult{1, 1, 1, gone.seconds}));
}

TEST_F(ImportTest, CountsAFileItCannotOpenAsFailed) {
  if (geteuid() == 0) GTEST_SKIP() << "root reads files without read permission";
  jpeg(root / "locked.jpg");
  jpeg(root / "locked dir/inside.jpg");
  fs::permissions(root / "locked.jpg", fs::perms::none);
  fs::permissions(root / "locked dir", fs::perms::none);
  const ImportResult result = library.importFolder(root, true);
  EXPECT_EQ(result.failed, 1);  // the folder that cannot be listed is passed over
  EXPECT_EQ(result.added, 0);
  fs::permissions(root, fs::perms::none);
  EXPECT_THROW(library.importFolder(root, true), FileError);
}

TEST_F(ImportTest, RefusesAFolderThatCannotBeListedAndAnSqlErrorUndoesEverything) {
  jpeg(dir / "file.jpg");
  EXPECT_THROW(library.importFolder(dir / "does not exist", true), FileError);
  EXPECT_THROW(library.importFolder(dir / "file.jpg", true), FileError);
  EXPECT_THROW(library.importFolder(dir / "file.jpg", false), FileError);

  test::writePhoto(root / "a.jpg", 8, 8, {.keywords = {"kept?"}});
  jpeg(root / "b.jpg");
  jpeg(root / "c.jpg");
  // A photo row or the folder's own row that cannot be written: the import
  // fails whole, and no photo lands without its folder.
  const std::string before = test::dumpCatalog(library);
  for (const char* refusal :
       {"BEFORE INSERT ON photos WHEN NEW.name = 'c.jpg'", "BEFORE INSERT ON folders"}) {
    SCOPED_TRACE(refusal);
    library.db().exec(std::string("CREATE TRIGGER refuse ") + refusal +
                      " BEGIN SELECT RAISE(ABORT, 'no room'); END");
    EXPECT_TRUE(test::throwsWith<SQLError>([&] { library.importFolder(root, true); }, "no room"));
    EXPECT_EQ(test::dumpCatalog(library), before);
    library.db().exec("DROP TRIGGER refuse");
  }
  EXPECT_EQ(library.importFolder(root, true).added, 3);
  EXPECT_EQ(column("SELECT path FROM folders"), Names{root.string()});
}

// Two imports of one folder at once: both list and read the same new files,
// and whichever inserts second finds the rows there. It must neither count
// them as added nor give the other import's photos its keywords.
TEST_F(ImportTest, AnImportThatFindsItsRowsAlreadyInsertedCountsThemAsSkipped) {
  const std::vector<fs::path> files{root / "a.jpg", root / "b.jpg"};
  PhotoMeta meta{.width = 8, .height = 8};
  meta.keywords = {"first"};
  std::vector<std::optional<PhotoMeta>> metas{meta, std::nullopt};
  EXPECT_EQ(library.insertPhotos(files, metas), (ImportResult{1, 0, 1, 0}));
  meta.keywords = {"second"};
  metas = {meta, meta};
  EXPECT_EQ(library.insertPhotos(files, metas, {}, root), (ImportResult{1, 1, 0, 0}));
  EXPECT_EQ(column("SELECT word || ' ' || photo FROM keywords ORDER BY photo"),
            (Names{"first 1", "second 2"}));
  EXPECT_EQ(column("SELECT path FROM folders"), Names{root.string()});
}
