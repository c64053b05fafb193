// Turning pictures upright for each of the eight EXIF orientations.

#include "engine/media/orientation.h"

#include <gtest/gtest.h>

#include <functional>

using namespace lumivale;

namespace {

struct OrientationCase {
  int orientation;
  // The stored pixel (x, y) that shows at upright position (X, Y), for a
  // stored picture `w` × `h`.
  std::function<std::pair<int, int>(int X, int Y, int w, int h)> stored;
};

class OrientUpright : public ::testing::TestWithParam<OrientationCase> {};

TEST_P(OrientUpright, ShowsEachStoredPixelWhereTheOrientationSays) {
  const OrientationCase c = GetParam();
  const int w = 4, h = 3;
  FloatPixels p{w, h, 3, {}};
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) p.values.insert(p.values.end(), {float(x), float(y), 0.0f});
  }
  const FloatPixels out = orientUpright(Image::fromPixels(p), c.orientation).readPixels();
  const bool turned = c.orientation >= 5 && c.orientation <= 8;
  ASSERT_EQ(out.width, turned ? h : w);
  ASSERT_EQ(out.height, turned ? w : h);
  for (int Y = 0; Y < out.height; ++Y) {
    for (int X = 0; X < out.width; ++X) {
      const auto [x, y] = c.stored(X, Y, w, h);
      EXPECT_EQ(out.at(X, Y, 0), float(x)) << X << "," << Y;
      EXPECT_EQ(out.at(X, Y, 1), float(y)) << X << "," << Y;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(
    Exif, OrientUpright,
    ::testing::Values(
        OrientationCase{1, [](int X, int Y, int, int) { return std::pair(X, Y); }},
        OrientationCase{2, [](int X, int Y, int w, int) { return std::pair(w - 1 - X, Y); }},
        OrientationCase{3, [](int X, int Y, int w, int h) { return std::pair(w - 1 - X, h - 1 - Y); }},
        OrientationCase{4, [](int X, int Y, int, int h) { return std::pair(X, h - 1 - Y); }},
        OrientationCase{5, [](int X, int Y, int, int) { return std::pair(Y, X); }},
        OrientationCase{6, [](int X, int Y, int, int h) { return std::pair(Y, h - 1 - X); }},
        OrientationCase{7, [](int X, int Y, int w, int h) { return std::pair(w - 1 - Y, h - 1 - X); }},
        OrientationCase{8, [](int X, int Y, int w, int) { return std::pair(w - 1 - Y, X); }},
        OrientationCase{0, [](int X, int Y, int, int) { return std::pair(X, Y); }},
        OrientationCase{9, [](int X, int Y, int, int) { return std::pair(X, Y); }}));

}  // namespace
