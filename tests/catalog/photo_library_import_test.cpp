// Folder import into a fresh library: what is listed, what is stored, what
// is skipped and what a failure leaves behind.

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <set>

#include "engine/catalog/folder_listing.h"
#include "engine/catalog/photo_library.h"
#include "engine/catalog/photo_meta.h"
#include "engine/util/clock.h"
#include "tests/support/errors.h"
#include "tests/support/sample_photos.h"
#include "tests/support/temp_dir.h"

using namespace lumivale;
namespace fs = std::filesystem;

namespace {

class ImportTest : public ::testing::Test {
 protected:
  ImportTest() : library(dir / "library") {}

  fs::path photos() const { return dir / "photos"; }

  // A small JPEG copied from one made once per test, which is much faster
  // than encoding every file.
  void jpeg(const fs::path& file) {
    if (plainJpeg.empty()) {
      test::writePhoto(dir / "plain.jpg", 16, 12);
      plainJpeg = test::readFile(dir / "plain.jpg");
    }
    test::writeFile(file, plainJpeg);
  }

  std::vector<std::string> cataloguedPaths() {
    std::vector<std::string> paths;
    for (auto& row : library.db().query("SELECT path FROM photos ORDER BY id"))
      paths.push_back(*row[0].stringValue());
    return paths;
  }

  int folderRows() { return static_cast<int>(library.db().query("SELECT path FROM folders").size()); }

  test::TempDir dir;
  PhotoLibrary library;
  std::string plainJpeg;
};

}  // namespace

TEST_F(ImportTest, ListsPhotosInTheFileBrowsersOrder) {
  const fs::path root = photos();
  for (const char* name : {"IMG_10.jpg", "IMG_2.JPG", "img_1.jpeg", "b/IMG_3.jpg", "a/IMG_9.jpg",
                           "A/IMG_1.jpg", "notes.txt", "IMG_4.jpg.bak", "noext"}) {
    jpeg(root / name);
  }
  auto files = listPhotoFiles(root, true);
  std::vector<std::string> names;
  for (const auto& f : files) names.push_back(f.lexically_relative(root).string());
  EXPECT_EQ(names, (std::vector<std::string>{"A/IMG_1.jpg", "a/IMG_9.jpg", "b/IMG_3.jpg", "img_1.jpeg",
                                             "IMG_2.JPG", "IMG_10.jpg"}));
  for (const auto& f : files) EXPECT_TRUE(f.is_absolute()) << f;
}

TEST_F(ImportTest, LeavesOutHiddenEntriesPackagesAndLibraries) {
  const fs::path root = photos();
  jpeg(root / "keep.jpg");
  jpeg(root / "deep/er/keep.png");
  jpeg(root / ".hidden.jpg");
  jpeg(root / ".cache/inside.jpg");
  jpeg(root / "deep/.git/inside.jpg");
  jpeg(root / "Viewer.app/Contents/Resources/icon.png");
  jpeg(root / "Old.PhotosLibrary/Masters/a.jpg");  // package suffixes in any case
  jpeg(root / "Catalog.lrdata/previews/a.jpg");
  jpeg(root / "Film.fcpbundle/a.jpg");
  jpeg(root / "holiday.app.photos/kept.jpg");  // only a suffix makes a package
  jpeg(root / "KUVO Lumivale Library/Thumbnails/1.jpg");
  // A library kept under another name is recognised by being this library.
  PhotoLibrary nested(root / "my catalog");
  jpeg(root / "my catalog/Thumbnails/7.jpg");

  auto files = listPhotoFiles(root, true, root / "my catalog");
  std::set<std::string> names;
  for (const auto& f : files) names.insert(f.lexically_relative(root).string());
  EXPECT_EQ(names, (std::set<std::string>{"keep.jpg", "deep/er/keep.png", "holiday.app.photos/kept.jpg"}));

  auto shallow = listPhotoFiles(root, false);
  ASSERT_EQ(shallow.size(), 1u);
  EXPECT_EQ(shallow[0].filename(), "keep.jpg");
}

TEST_F(ImportTest, FollowsLinksToFilesButNotToFolders) {
  const fs::path root = photos();
  jpeg(root / "real/a.jpg");
  fs::create_symlink(root / "real/a.jpg", root / "link.jpg");
  fs::create_symlink(root / "missing.jpg", root / "broken.jpg");
  fs::create_symlink(root, root / "real/loop");  // a cycle if it were followed
  fs::create_symlink(root / "real", root / "alias");
  auto files = listPhotoFiles(root, true);
  std::vector<std::string> names;
  for (const auto& f : files) names.push_back(f.lexically_relative(root).string());
  EXPECT_EQ(names, (std::vector<std::string>{"link.jpg", "real/a.jpg"}));
}

TEST_F(ImportTest, RefusesAFolderThatCannotBeListed) {
  jpeg(dir / "file.jpg");
  EXPECT_THROW(library.importFolder(dir / "does not exist", true), FileError);
  EXPECT_THROW(library.importFolder(dir / "file.jpg", true), FileError);
  EXPECT_THROW(library.importFolder(dir / "file.jpg", false), FileError);
  EXPECT_EQ(folderRows(), 0);
  EXPECT_EQ(library.count(), 0);
}

TEST_F(ImportTest, StoresEveryFactOfTheNewPhotos) {
  const fs::path root = photos();
  const fs::path jpegPath = root / "Trip 'Nord' \"2023\"/Ölberg 1.JPG";
  test::writePhoto(jpegPath, 30, 20,
                   {.make = "NIKON CORPORATION",
                    .model = "NIKON Z 6",
                    .lens = "NIKKOR Z 50mm f/1.8 S",
                    .dateTimeOriginal = "2023:06:01 12:34:56",
                    .exposure = {{1, 125}},
                    .fNumber = {{18, 10}},
                    .focal = {{50, 1}},
                    .iso = 400,
                    .orientation = 6,
                    .keywords = {" Sky ", "Sea", "", "Sky"}});
  test::writeDng(root / "raw/IMG_0002.dng", {.make = "Canon", .model = "Canon EOS R5"});

  const double before = nowSeconds();
  ImportResult result = library.importFolder(root, true);
  EXPECT_EQ(result, (ImportResult{2, 0, 0, result.seconds}));
  EXPECT_GE(result.seconds, 0);

  auto rows = library.db().query(PhotoLibrary::recordColumns + " ORDER BY id");
  ASSERT_EQ(rows.size(), 2u);
  PhotoRecord dngRecord = PhotoLibrary::record(rows[0]);
  PhotoRecord jpegRecord = PhotoLibrary::record(rows[1]);
  EXPECT_GE(jpegRecord.importDate, before);
  EXPECT_LE(jpegRecord.importDate, nowSeconds());
  // Turned by orientation 6: 20 × 30.
  EXPECT_EQ(jpegRecord, (PhotoRecord{.id = jpegRecord.id,
                                     .path = jpegPath.string(),
                                     .folder = jpegPath.parent_path().string(),
                                     .name = "Ölberg 1.JPG",
                                     .ext = "jpg",
                                     .fileSize = static_cast<std::int64_t>(fs::file_size(jpegPath)),
                                     .width = 20,
                                     .height = 30,
                                     .captureDate = exifDate("2023:06:01 12:34:56"),
                                     .importDate = jpegRecord.importDate,
                                     .camera = "NIKON Z 6",
                                     .lens = "NIKKOR Z 50mm f/1.8 S",
                                     .iso = 400,
                                     .shutter = 0.008,
                                     .aperture = 1.8,
                                     .focalLength = 50}));
  EXPECT_EQ(jpegRecord.shutterText(), "1/125 s");

  EXPECT_EQ(dngRecord.ext, "dng");
  EXPECT_TRUE(dngRecord.isRaw);
  EXPECT_EQ(dngRecord.camera, "Canon EOS R5");
  EXPECT_EQ(dngRecord.iso, 400);

  // New photos have no settings yet; keywords are stored trimmed, once each.
  auto edits = library.db().query("SELECT COUNT(*) FROM photos WHERE edits IS NULL AND histPos = 0");
  EXPECT_EQ(edits[0][0].intValue(), 2);
  std::vector<std::string> words;
  for (auto& row :
       library.db().query("SELECT word FROM keywords WHERE photo = ? ORDER BY word", {jpegRecord.id})) {
    words.push_back(*row[0].stringValue());
  }
  EXPECT_EQ(words, (std::vector<std::string>{"Sea", "Sky"}));
}

TEST_F(ImportTest, ASecondImportAddsNothing) {
  const fs::path root = photos();
  jpeg(root / "a.jpg");
  jpeg(root / "sub/b.jpg");
  ImportResult first = library.importFolder(root, true);
  EXPECT_EQ(first.added, 2);
  // The same folder written differently is the same folder.
  ImportResult second = library.importFolder(root / "sub" / ".." / "", true);
  EXPECT_EQ(second.added, 0);
  EXPECT_EQ(second.skipped, 2);
  EXPECT_EQ(second.failed, 0);
  EXPECT_EQ(library.count(), 2);
  auto folders = library.db().query("SELECT path FROM folders");
  ASSERT_EQ(folders.size(), 1u);
  EXPECT_EQ(folders[0][0].stringValue(), root.string());

  // A new file next to the old ones is the only one read.
  jpeg(root / "c.jpg");
  ImportResult third = library.importFolder(root, false);
  EXPECT_EQ(third.added, 1);
  EXPECT_EQ(third.skipped, 1);  // sub/b.jpg is not listed without recursion
  EXPECT_EQ(folderRows(), 1);
}

TEST_F(ImportTest, RecordsTheFolderEvenWhenNothingIsNew) {
  fs::create_directories(photos() / "empty");
  ImportResult result = library.importFolder(photos() / "empty/", false);
  EXPECT_EQ(result, (ImportResult{0, 0, 0, result.seconds}));
  auto folders = library.db().query("SELECT path, added FROM folders");
  ASSERT_EQ(folders.size(), 1u);
  EXPECT_EQ(folders[0][0].stringValue(), (photos() / "empty").string());
  EXPECT_GT(folders[0][1].doubleValue().value_or(0), 1.6e9);
}

TEST_F(ImportTest, ReportsProgressAfterEveryFiftyFiles) {
  std::vector<fs::path> files;
  for (int i = 0; i < 120; ++i) {
    files.push_back(photos() / ("p" + std::to_string(i) + ".jpg"));
    jpeg(files.back());
  }
  // Already catalogued files are not counted in the total.
  library.importFiles({files[0], files[1]});
  std::vector<std::pair<int, int>> calls;
  ImportResult result = library.importFiles(files, [&](int done, int total) {
    calls.push_back({done, total});
  });
  EXPECT_EQ(result.added, 118);
  EXPECT_EQ(result.skipped, 2);
  EXPECT_EQ(calls, (std::vector<std::pair<int, int>>{{50, 118}, {100, 118}}));

  calls.clear();
  library.importFiles(files, [&](int done, int total) { calls.push_back({done, total}); });
  EXPECT_TRUE(calls.empty());
}

TEST_F(ImportTest, KeepsEachHeaderWithItsOwnFile) {
  // Headers are read in parallel; each must land in its own row.
  std::vector<fs::path> files;
  for (int i = 0; i < 40; ++i) {
    files.push_back(photos() / ("iso" + std::to_string(i) + ".jpg"));
    test::writePhoto(files.back(), 8, 8, {.iso = 100 + i});
  }
  EXPECT_EQ(library.importFiles(files).added, 40);
  for (int i = 0; i < 40; ++i) {
    auto rows = library.db().query("SELECT iso FROM photos WHERE path = ?", {files[i].string()});
    ASSERT_EQ(rows.size(), 1u);
    EXPECT_EQ(rows[0][0].intValue(), 100 + i);
  }
}

TEST_F(ImportTest, CountsUnreadableFilesAsFailedAndGoesOn) {
  const fs::path root = photos();
  jpeg(root / "good.jpg");
  test::writeFile(root / "empty.jpg", "");
  test::writeFile(root / "text.jpg", "Dear diary,\n");
  test::writeFile(root / "cut.jpg", plainJpeg.substr(0, 40));
  test::writePhoto(root / "whole.tif", 16, 16);
  test::writeFile(root / "cut.tif", test::readFile(root / "whole.tif").substr(0, 100));
  fs::remove(root / "whole.tif");
  test::writeFile(root / "not really.nef", "\x00\x01\x02 junk");
  test::writeFile(root / "jpeg inside.cr2", plainJpeg);                // read as the JPEG it is
  fs::create_symlink(root / "nowhere.jpg", root / "broken link.jpg");  // not a file at all

  ImportResult result = library.importFolder(root, true);
  EXPECT_EQ(result.added, 2);
  EXPECT_EQ(result.failed, 5);
  EXPECT_EQ(result.skipped, 0);
  auto paths = cataloguedPaths();
  EXPECT_EQ(paths,
            (std::vector<std::string>{(root / "good.jpg").string(), (root / "jpeg inside.cr2").string()}));
  auto cr2 = library.db().query("SELECT raw, width FROM photos WHERE name = 'jpeg inside.cr2'");
  EXPECT_EQ(cr2.at(0)[0].intValue(), 1);  // the extension decides
  EXPECT_EQ(cr2.at(0)[1].intValue(), 16);

  // Failed files are tried again by the next import.
  ImportResult again = library.importFolder(root, true);
  EXPECT_EQ(again.skipped, 2);
  EXPECT_EQ(again.failed, 5);
}

TEST_F(ImportTest, CountsAFileGoneSinceTheListingAsFailed) {
  jpeg(photos() / "a.jpg");
  jpeg(photos() / "b.jpg");
  auto files = listPhotoFiles(photos(), false);
  fs::remove(photos() / "b.jpg");
  ImportResult result = library.importFiles(files);
  EXPECT_EQ(result.added, 1);
  EXPECT_EQ(result.failed, 1);
}

TEST_F(ImportTest, CountsAFileItCannotOpenAsFailed) {
  if (geteuid() == 0) GTEST_SKIP() << "root reads files without read permission";
  jpeg(photos() / "locked.jpg");
  jpeg(photos() / "locked dir/inside.jpg");
  fs::permissions(photos() / "locked.jpg", fs::perms::none);
  fs::permissions(photos() / "locked dir", fs::perms::none);
  ImportResult result = library.importFolder(photos(), true);
  EXPECT_EQ(result.failed, 1);  // the folder that cannot be listed is passed over
  EXPECT_EQ(result.added, 0);
  fs::permissions(photos(), fs::perms::none);
  EXPECT_THROW(library.importFolder(photos(), true), FileError);
}

TEST_F(ImportTest, CataloguesAPathGivenTwiceOnce) {
  jpeg(photos() / "a.jpg");
  ImportResult result = library.importFiles({photos() / "a.jpg", photos() / "." / "a.jpg"});
  EXPECT_EQ(result.added, 1);
  EXPECT_EQ(result.skipped, 1);
  EXPECT_EQ(library.count(), 1);
}

TEST_F(ImportTest, AnSqlErrorUndoesTheWholeImport) {
  const fs::path root = photos();
  test::writePhoto(root / "a.jpg", 8, 8, {.keywords = {"kept?"}});
  jpeg(root / "b.jpg");
  jpeg(root / "c.jpg");
  library.db().exec(
      "CREATE TRIGGER refuse BEFORE INSERT ON photos WHEN NEW.name = 'c.jpg' "
      "BEGIN SELECT RAISE(ABORT, 'no room for c'); END;");
  const std::string error = test::errorMessage<SQLError>([&] { library.importFolder(root, true); });
  EXPECT_NE(error.find("no room for c"), std::string::npos) << error;
  EXPECT_EQ(library.count(), 0);
  EXPECT_TRUE(library.db().query("SELECT * FROM keywords").empty());
  EXPECT_EQ(folderRows(), 0);

  library.db().exec("DROP TRIGGER refuse");
  EXPECT_EQ(library.importFolder(root, true).added, 3);
}

TEST(FolderPathTest, StandardizesWithoutResolvingLinks) {
  EXPECT_EQ(standardizedPath("/a/b/"), fs::path("/a/b"));
  EXPECT_EQ(standardizedPath("/a/./b/../c"), fs::path("/a/c"));
  EXPECT_EQ(standardizedPath("/"), fs::path("/"));
  EXPECT_EQ(standardizedPath("rel/x"), fs::current_path() / "rel/x");
  EXPECT_TRUE(isPackageName("Viewer.app"));
  EXPECT_TRUE(isPackageName("x.IMovieLibrary"));
  EXPECT_FALSE(isPackageName(".app"));
  EXPECT_FALSE(isPackageName("app"));
  EXPECT_FALSE(isPackageName("Pictures.lrcat"));
}
