#include <gtest/gtest.h>

#include "engine/media/image_properties.h"
#include "engine/catalog/photo_meta.h"
#include "tests/support/temp_dir.h"

using namespace lumivale;

// Files whose content is an image format other than ours must not be read
// through vips' general-purpose loaders, whatever their name says.
TEST(ForeignFormatTest, OnlyJpegPngTiffAndHeifContentIsRead) {
  test::TempDir dir;
  const std::pair<const char*, const char*> files[] = {
      {"bitmap.jpg", "P1\n2 2\n0 1\n1 0\n"},  // a PBM image, which vips' ppm loader reads
      {"vector.png", "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"8\" height=\"8\"/>"},
      {"table.tif", "1,2,3\n4,5,6\n"},  // CSV, which vips reads as a one-band image
      {"matrix.heic", "2 2\n1 2\n3 4\n"},  // a vips matrix file
      {"gif.jpeg", "GIF89a\x01\x00\x01\x00\x00\x00\x00;"},
  };
  for (const auto& [name, content] : files) {
    test::writeFile(dir / name, content);
    EXPECT_FALSE(readImageProperties(dir / name)) << name;
    EXPECT_FALSE(PhotoMeta::read(dir / name)) << name;
  }
}
