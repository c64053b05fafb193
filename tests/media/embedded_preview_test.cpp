// The camera's preview inside a RAW file: the largest one, upright, never
// larger than asked and never enlarged.

#include "engine/media/embedded_preview.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <limits>

#include "tests/support/sample_photos.h"
#include "tests/support/temp_dir.h"

using namespace lumivale;

namespace {

struct SizeCase {
  int orientation;
  int maxSide;
  int width;  // expected, upright
  int height;
};

class EmbeddedPreviewSize : public ::testing::TestWithParam<SizeCase> {};

TEST_P(EmbeddedPreviewSize, IsUprightAndAtMostTheAskedSide) {
  const SizeCase c = GetParam();
  test::TempDir dir;
  test::SampleDng dng;
  dng.previewWidth = 200;
  dng.previewHeight = 150;
  dng.orientation = c.orientation;
  test::writeDng(dir / "sample.dng", dng);
  const Image preview = EmbeddedPreviews::largest(dir / "sample.dng", c.maxSide);
  ASSERT_FALSE(preview.empty());
  EXPECT_EQ(preview.width(), c.width);
  EXPECT_EQ(preview.height(), c.height);
  EXPECT_EQ(preview.bands(), 3);
}

INSTANTIATE_TEST_SUITE_P(Cases, EmbeddedPreviewSize,
                         ::testing::Values(SizeCase{1, 1000, 200, 150},  // never enlarged
                                           SizeCase{1, 200, 200, 150}, SizeCase{1, 100, 100, 75},
                                           SizeCase{6, 1000, 150, 200}, SizeCase{8, 100, 75, 100},
                                           SizeCase{3, 160, 160, 120}));

TEST(EmbeddedPreview, TurnsThePictureByTheRawsOrientation) {
  // The sample preview grows red to the right and green downwards as
  // stored. Turned a quarter clockwise (orientation 6), the stored left
  // column becomes the top row: red grows downwards, green to the left.
  test::TempDir dir;
  test::SampleDng dng;
  dng.previewWidth = 200;
  dng.previewHeight = 150;
  dng.orientation = 6;
  test::writeDng(dir / "turned.dng", dng);
  const FloatPixels p = EmbeddedPreviews::largest(dir / "turned.dng", 1000).readPixels();
  ASSERT_EQ(p.width, 150);
  EXPECT_LT(p.at(2, 2, 0), 0.05);  // top left: the stored bottom left
  EXPECT_GT(p.at(2, 2, 1), 0.8);
  EXPECT_GT(p.at(147, 197, 0), 0.8);  // bottom right: the stored top right
  EXPECT_LT(p.at(147, 197, 1), 0.05);
}

TEST(EmbeddedPreview, TheCamerasPreviewOfItsRawFile) {
  const auto cr2 = test::sharedPhoto("raw/IMG_5952.CR2");
  if (!cr2) GTEST_SKIP() << "the shared test photos are not there";
  const Image small = EmbeddedPreviews::largest(*cr2, 420);
  EXPECT_EQ(small.width(), 420);
  EXPECT_EQ(small.height(), 280);
  // Any larger side, up to the largest number, gives the preview as stored.
  const Image whole = EmbeddedPreviews::largest(*cr2, std::numeric_limits<int>::max());
  EXPECT_EQ(whole.width(), 1728);
  EXPECT_EQ(whole.height(), 1152);
  // The sky at the top is light and blue, the forest at the bottom dark.
  const FloatPixels sky = whole.readPixels(1000, 40, 1, 1), forest = whole.readPixels(400, 900, 1, 1);
  EXPECT_GT(sky.at(0, 0, 2), sky.at(0, 0, 0));
  EXPECT_GT(sky.at(0, 0, 2), 0.3);
  EXPECT_LT(forest.at(0, 0, 1), 0.05);
}

TEST(EmbeddedPreview, NothingWithoutAPreview) {
  test::TempDir dir;
  test::writeDng(dir / "bare.dng", test::SampleDng{});
  test::writePhoto(dir / "photo.jpg", 64, 48);
  test::writeFile(dir / "empty.cr2", "");
  test::SampleDng withPreview;
  withPreview.previewWidth = 64;
  withPreview.previewHeight = 48;
  test::writeDng(dir / "preview.dng", withPreview);
  EXPECT_TRUE(EmbeddedPreviews::largest(dir / "bare.dng", 420).empty());
  EXPECT_TRUE(EmbeddedPreviews::largest(dir / "photo.jpg", 420).empty());
  EXPECT_TRUE(EmbeddedPreviews::largest(dir / "empty.cr2", 420).empty());
  EXPECT_TRUE(EmbeddedPreviews::largest(dir / "missing.cr2", 420).empty());
  EXPECT_TRUE(EmbeddedPreviews::largest(dir / "preview.dng", 0).empty());
  ASSERT_EQ(mkfifo((dir / "waiting.nef").c_str(), 0600), 0);
  EXPECT_TRUE(EmbeddedPreviews::largest(dir / "waiting.nef", 420).empty());
}

TEST(EmbeddedPreview, ADamagedPreviewGivesNothing) {
  test::TempDir dir;
  test::SampleDng dng;
  dng.previewWidth = 200;
  dng.previewHeight = 150;
  test::writeDng(dir / "sample.dng", dng);
  std::string bytes = test::readFile(dir / "sample.dng");
  // The JPEG's start of image marker, and everything after it, garbled.
  const std::size_t jpeg = bytes.find("\xFF\xD8\xFF");
  ASSERT_NE(jpeg, std::string::npos);
  for (std::size_t i = jpeg; i < jpeg + 600 && i < bytes.size(); ++i) bytes[i] = char(i * 7);
  test::writeFile(dir / "garbled.dng", bytes);
  EXPECT_TRUE(EmbeddedPreviews::largest(dir / "garbled.dng", 420).empty());
}

}  // namespace
