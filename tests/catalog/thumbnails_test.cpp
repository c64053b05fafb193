// Grid thumbnails: which picture of a file a thumbnail is made from, how the
// files in the Thumbnails folder are found, trusted and made again.

#include "engine/catalog/thumbnails.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <thread>
#include <vector>

#include "engine/catalog/photo_library.h"
#include "tests/support/library.h"
#include "tests/support/sample_photos.h"

using namespace lumivale;
namespace fs = std::filesystem;

namespace {

using Size = std::pair<int, int>;

Size sizeOf(const std::optional<Bitmap>& bitmap) {
  return bitmap ? Size{bitmap->width, bitmap->height} : Size{0, 0};
}

// A photo file and the size of the thumbnail asked of it. The size the
// result has tells which picture it came from: the stored one keeps its own
// size, a decode of the whole file fills `maxSide`.
struct MakeCase {
  const char* name;
  const char* file;  // the extension chooses a JPEG or a DNG
  Size picture;      // the main picture (a DNG's sensor data)
  Size stored;       // its EXIF thumbnail or embedded preview; none when 0
  int orientation = 1;
  int maxSide = PhotoLibrary::thumbSide;
  Size expected{};
};

class MakeTest : public ::testing::TestWithParam<MakeCase> {
 protected:
  test::TempDir dir;
};

TEST_P(MakeTest, TakesThePictureTheRulesChoose) {
  const MakeCase& c = GetParam();
  const fs::path file = dir / c.file;
  if (file.extension() == ".dng") {
    test::writeDng(file, {.width = c.picture.first,
                          .height = c.picture.second,
                          .orientation = c.orientation,
                          .previewWidth = c.stored.first,
                          .previewHeight = c.stored.second});
  } else {
    test::SampleTags tags{.orientation = c.orientation};
    if (c.stored.first > 0) tags.thumbnail = c.stored;
    test::writePhoto(file, c.picture.first, c.picture.second, tags);
  }
  const std::optional<Bitmap> thumbnail = Thumbnails::make(file, c.maxSide);
  ASSERT_TRUE(thumbnail);
  EXPECT_EQ(sizeOf(thumbnail), c.expected);
  EXPECT_EQ(std::pair(thumbnail->channels, thumbnail->bits), std::pair(3, 8));
  EXPECT_EQ(thumbnail->bytes.size(), std::size_t(thumbnail->width) * thumbnail->height * 3);
}

INSTANTIATE_TEST_SUITE_P(
    Sources, MakeTest,
    ::testing::Values(
        MakeCase{"StoredThumbnailPreferred", "a.jpg", {1200, 900}, {200, 150}, 1, 420, {200, 150}},
        MakeCase{"StoredThumbnailOf160IsEnough", "a.jpg", {1200, 900}, {160, 120}, 1, 420, {160, 120}},
        MakeCase{"StoredThumbnailBelow160Decodes", "a.jpg", {1200, 900}, {150, 112}, 1, 420, {420, 315}},
        MakeCase{"BandedStoredThumbnailCutToAspect", "a.jpg", {1500, 1000}, {160, 120}, 1, 420, {160, 107}},
        MakeCase{"StoredThumbnailTurnedUpright", "a.jpg", {1200, 900}, {200, 150}, 6, 420, {150, 200}},
        MakeCase{"DecodeTurnedUpright", "a.jpg", {1200, 900}, {}, 8, 420, {315, 420}},
        MakeCase{"NeverEnlarged", "a.jpg", {300, 200}, {}, 1, 420, {300, 200}},
        MakeCase{"RawPreviewOf320ForLargeRequest", "r.dng", {1000, 750}, {320, 240}, 1, 420, {320, 240}},
        MakeCase{"RawPreviewOf160KeptAsStored", "r.dng", {1000, 750}, {160, 120}, 1, 420, {160, 120}},
        MakeCase{"RawPreviewBelow160Decodes", "r.dng", {1000, 750}, {150, 112}, 1, 420, {420, 315}},
        MakeCase{"RawPreviewOfExactlyMaxSide", "r.dng", {1000, 700}, {100, 75}, 1, 100, {100, 75}},
        MakeCase{"RawPreviewBelowSmallMaxSide", "r.dng", {1000, 700}, {90, 68}, 1, 100, {100, 70}},
        MakeCase{"RawPreviewTurnedUpright", "r.dng", {1000, 750}, {320, 240}, 6, 420, {240, 320}},
        MakeCase{"RawWithoutPreviewDecodes", "r.dng", {1000, 750}, {}, 1, 420, {420, 315}}),
    [](const auto& info) { return std::string(info.param.name); });

// Orientation turns pixels, not only sizes: a picture stored turned with
// its tag saying so looks like the one stored upright.
TEST(Thumbnails, OrientedFileLooksLikeTheUprightOne) {
  const auto upright = Thumbnails::make(test::realPhoto("Landscape_1.jpg"), 420);
  const auto turned = Thumbnails::make(test::realPhoto("Landscape_6.jpg"), 420);
  ASSERT_TRUE(upright && turned);
  ASSERT_EQ(sizeOf(upright), sizeOf(turned));
  double difference = 0;
  for (std::size_t i = 0; i < upright->bytes.size(); ++i)
    difference += std::abs(int(upright->bytes[i]) - int(turned->bytes[i]));
  EXPECT_LT(difference / double(upright->bytes.size()), 8.0);
}

TEST(Thumbnails, HeifThumbnailItemPreferred) {
  const auto heic = test::sharedPhoto("heic/IMG_3578.heic");
  if (!heic) GTEST_SKIP() << "no shared test data";
  EXPECT_EQ(sizeOf(Thumbnails::make(*heic, 420)), Size(320, 240));
}

TEST(Thumbnails, UnreadableFilesGiveNothing) {
  test::TempDir dir;
  test::writeFile(dir / "noise.jpg", std::string(5000, '\x5a'));
  test::writeFile(dir / "noise.cr2", std::string(5000, '\x5a'));
  test::writePhoto(dir / "fine.jpg", 64, 48);
  fs::create_directory(dir / "folder.jpg");
  for (const char* name : {"missing.jpg", "noise.jpg", "noise.cr2", "folder.jpg"}) {
    EXPECT_FALSE(Thumbnails::make(dir / name, 420)) << name;
    EXPECT_FALSE(Thumbnails::load(dir / name)) << name;
  }
  EXPECT_FALSE(Thumbnails::make(dir / "fine.jpg", 0));
  const auto fine = Thumbnails::make(dir / "fine.jpg", 420);
  ASSERT_TRUE(fine);
  EXPECT_FALSE(Thumbnails::write(*fine, dir / "no folder" / "1.jpg", 0.82));
  EXPECT_FALSE(fs::exists(dir / "no folder"));
}

class LibraryThumbnailTest : public test::LibraryTest {
 protected:
  // A photo without a stored thumbnail: its thumbnail is 420 × 315.
  PhotoRecord photo(const std::string& name) {
    const fs::path file = dir / name;
    test::writePhoto(file, 800, 600);
    return *library.photo(addPhoto(file.string()));
  }
  bool stored(const PhotoRecord& record, bool edited = false) {
    return Thumbnails::load(library.thumbnailURL(record.id, edited)).has_value();
  }
};

TEST_F(LibraryThumbnailTest, MadeOnceThenReadFromItsFile) {
  const PhotoRecord record = photo("a.jpg");
  EXPECT_EQ(sizeOf(library.thumbnail(record)), Size(420, 315));
  EXPECT_TRUE(Thumbnails::load(folder / "Thumbnails" / (std::to_string(record.id) + ".jpg")));
  EXPECT_EQ(library.thumbnailURL(record.id, true),
            folder / "Thumbnails" / (std::to_string(record.id) + "-e.jpg"));
  fs::remove(record.path);
  EXPECT_EQ(sizeOf(library.thumbnail(record)), Size(420, 315));
}

TEST_F(LibraryThumbnailTest, DamagedThumbnailIsMadeAgain) {
  const PhotoRecord record = photo("a.jpg");
  const std::string whole = test::jpegBytes(420, 315);
  test::writeFile(library.thumbnailURL(record.id, false), whole.substr(0, whole.size() / 2));
  EXPECT_FALSE(stored(record));
  EXPECT_EQ(sizeOf(library.thumbnail(record)), Size(420, 315));
  EXPECT_TRUE(stored(record));
}

TEST_F(LibraryThumbnailTest, EditedThumbnailShownUntilItFails) {
  PhotoRecord record = photo("a.jpg");
  record.edited = true;
  const fs::path edited = library.thumbnailURL(record.id, true);
  test::writeFile(edited, test::jpegBytes(50, 40));
  EXPECT_EQ(sizeOf(library.thumbnail(record)), Size(50, 40));
  test::writeFile(edited, "not a picture");
  EXPECT_EQ(sizeOf(library.thumbnail(record)), Size(420, 315));
  fs::remove(edited);
  EXPECT_EQ(sizeOf(library.thumbnail(record)), Size(420, 315));
}

TEST_F(LibraryThumbnailTest, MissingPhotoWritesNothing) {
  const PhotoRecord record = *library.photo(addPhoto((dir / "gone.jpg").string()));
  EXPECT_FALSE(library.thumbnail(record));
  EXPECT_TRUE(fs::is_empty(library.thumbFolder()));
}

// Writers of one thumbnail race; each renames a whole file into place, so
// every reader finds a complete one.
TEST_F(LibraryThumbnailTest, ConcurrentRequestsLeaveAWholeFile) {
  const PhotoRecord record = photo("a.jpg");
  std::vector<std::thread> threads;
  std::atomic<int> made = 0;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 5; ++i) {
        fs::remove(library.thumbnailURL(record.id, false));
        if (library.thumbnail(record)) ++made;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(made, 20);
  EXPECT_TRUE(stored(record));
  for (const auto& entry : fs::directory_iterator(library.thumbFolder()))
    EXPECT_EQ(entry.path().filename(), fs::path(std::to_string(record.id) + ".jpg"));
}

}  // namespace
