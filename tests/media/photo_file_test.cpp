// Every reader of the media floor opens regular files only.

#include "engine/media/photo_file.h"

#include <gtest/gtest.h>

#include <memory>

#include "engine/media/image_properties.h"
#include "engine/media/png_file.h"
#include "engine/media/raw_preview.h"
#include "tests/support/temp_dir.h"

using namespace lumivale;

// A FIFO where a photo was would block a reader that opens it until some
// other program writes to it; each reader refuses it at once instead.
TEST(PhotoFileTest, EveryReaderRefusesAFifoAtOnce) {
  test::TempDir dir;
  for (const char* name : {"photo.jpg", "photo.cr2", "mask.png"}) test::makeFifo(dir / name);
  const auto root = dir.path();
  auto outcome = std::make_shared<std::string>();
  ASSERT_TRUE(test::finishesWithin(10, [root, outcome] {
    if (readImageProperties(root / "photo.jpg")) *outcome += "image read; ";
    if (RawPreview::info(root / "photo.cr2")) *outcome += "raw read; ";
    try {
      PngFile::readCoverage(root / "mask.png");
      *outcome += "png read";
    } catch (const MediaError& e) {
      *outcome += e.what();
    }
  }));
  EXPECT_EQ(*outcome, "cannot read \"" + (dir / "mask.png").string() + "\": not a regular file");
  EXPECT_THROW(PhotoFile(dir / "photo.jpg"), MediaError);
  EXPECT_THROW(PhotoFile(dir.path()), MediaError);
}
