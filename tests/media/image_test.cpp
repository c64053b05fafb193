#include "engine/media/image.h"

#include <gtest/gtest.h>

using namespace lumivale;

// The image must not borrow the caller's buffer: it is usually a temporary.
TEST(Image, FromPixelsKeepsItsOwnCopyOfThePixels) {
  FloatPixels pixels{3, 2, 3, std::vector<float>(18, 0.25f)};
  const Image image = Image::fromPixels(pixels);
  std::fill(pixels.values.begin(), pixels.values.end(), 9.0f);
  pixels.values = std::vector<float>(18, 7.0f);  // the old buffer is freed
  const FloatPixels read = image.readPixels();
  EXPECT_EQ(read.values, std::vector<float>(18, 0.25f));
}
