#include "engine/render/kernel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <thread>

#include "tests/support/errors.h"

using namespace lumivale;

namespace {

// Every value tells where it came from: x + 1000 y + 10⁶ band (exact in float
// for the sizes used here).
float code(int x, int y, int band) { return float(x + 1000 * y + 1000000 * band); }

Image positions(int width, int height, int bands) {
  return kernel::generate(width, height, bands,
                          [bands](const float* const*, float* out, int n, int x, int y) {
                            for (int i = 0; i < n; ++i)
                              for (int b = 0; b < bands; ++b) out[i * bands + b] = code(x + i, y, b);
                          });
}

// The 3 × 3 sum of each pixel's window, channel by channel, through mapWindow.
Image windowSums(const Image& input, int radius) {
  const int bands = input.bands();
  return kernel::mapWindow(input, radius, bands, [=](const float* const* rows, float* out, int n, int, int) {
    for (int i = 0; i < n; ++i)
      for (int b = 0; b < bands; ++b) {
        float sum = 0;
        for (int k = 0; k <= 2 * radius; ++k)
          for (int dx = 0; dx <= 2 * radius; ++dx) sum += rows[k][(i + dx) * bands + b];
        out[i * bands + b] = sum;
      }
  });
}

// The input moved by (dx, dy) onto a canvas of another size, read at clamped
// positions through mapArea.
Image shifted(const Image& input, int width, int height, int dx, int dy) {
  const int w = input.width(), h = input.height(), bands = input.bands();
  return kernel::mapArea(
      input, width, height, bands,
      [=](const kernel::PixelRect& r) {
        return kernel::PixelRect{r.left - dx, r.top - dy, r.width, r.height};
      },
      [=](const kernel::InputArea& in, float* out, int n, int x, int y) {
        const int sy = std::clamp(y - dy, 0, h - 1);
        for (int i = 0; i < n; ++i) {
          const float* p = in.at(std::clamp(x + i - dx, 0, w - 1), sy);
          std::copy(p, p + bands, out + i * bands);
        }
      });
}

void expectSame(const FloatPixels& a, const FloatPixels& b) {
  ASSERT_EQ(a.width, b.width);
  ASSERT_EQ(a.height, b.height);
  ASSERT_EQ(a.bands, b.bands);
  EXPECT_EQ(a.values, b.values);
}

// Reads `image` in `tile`-sized pieces and puts them together.
FloatPixels readInTiles(const Image& image, int tileW, int tileH) {
  FloatPixels all{image.width(), image.height(), image.bands(), {}};
  all.values.resize(std::size_t(all.width) * all.height * all.bands);
  for (int top = 0; top < all.height; top += tileH)
    for (int left = 0; left < all.width; left += tileW) {
      const FloatPixels t = image.readPixels(left, top, tileW, tileH);
      for (int y = 0; y < t.height; ++y)
        std::copy_n(&t.values[std::size_t(y) * t.width * t.bands], t.width * t.bands,
                    &all.values[(std::size_t(top + y) * all.width + left) * all.bands]);
    }
  return all;
}

}  // namespace

TEST(Kernel, RowsSeeEachInputAtTheSamePixel) {
  const Image a = positions(300, 70, 3), b = positions(300, 70, 1);
  const Image sum = kernel::mapRows({a, b}, 1, [](const float* const* in, float* out, int n, int, int) {
    for (int i = 0; i < n; ++i) out[i] = in[0][i * 3 + 2] - in[1][i];
  });
  const FloatPixels p = sum.readPixels();
  for (int y = 0; y < p.height; y += 7)
    for (int x = 0; x < p.width; x += 13) ASSERT_EQ(p.at(x, y, 0), 2000000) << x << ", " << y;
}

TEST(Kernel, WindowsRepeatTheEdgePixels) {
  // Sizes smaller than the window on purpose: 1 × 1, one row, one column.
  for (auto [w, h, radius] : {std::array{1, 1, 1}, {7, 1, 1}, {1, 5, 2}, {6, 4, 2}, {9, 8, 1}}) {
    const FloatPixels in = positions(w, h, 2).readPixels();
    const FloatPixels out = windowSums(Image::fromPixels(in), radius).readPixels();
    ASSERT_EQ(out.width, w);
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x)
        for (int b = 0; b < 2; ++b) {
          double want = 0;
          for (int dy = -radius; dy <= radius; ++dy)
            for (int dx = -radius; dx <= radius; ++dx)
              want += in.at(std::clamp(x + dx, 0, w - 1), std::clamp(y + dy, 0, h - 1), b);
          ASSERT_NEAR(out.at(x, y, b), want, want * 1e-6)
              << w << "×" << h << " r" << radius << " at " << x << ", " << y;
        }
  }
}

TEST(Kernel, AreasReadClampedPositionsEvenFarOutside) {
  const Image in = positions(5, 3, 3);
  // Most output tiles of this canvas lie wholly beside or below the input.
  const FloatPixels out = shifted(in, 400, 300, 150, 200).readPixels();
  for (int y = 0; y < 300; y += 11)
    for (int x = 0; x < 400; x += 9)
      ASSERT_EQ(out.at(x, y, 1), code(std::clamp(x - 150, 0, 4), std::clamp(y - 200, 0, 2), 1));
}

TEST(Kernel, TilesAgreeWithOneWholeRead) {
  const Image source = positions(613, 389, 3);
  const Image chain = windowSums(shifted(windowSums(source, 2), 600, 400, -5, 7), 1);
  const FloatPixels whole = chain.readPixels();
  for (auto [tw, th] : {std::pair{37, 23}, {613, 1}, {1, 389}, {256, 256}})
    expectSame(readInTiles(chain, tw, th), whole);
  expectSame(chain.materialize().readPixels(), whole);
}

TEST(Kernel, ManyThreadsReadingOneImageAgree) {
  const Image chain = windowSums(shifted(positions(901, 677, 3), 900, 700, 3, -4), 1);
  const FloatPixels whole = chain.readPixels();
  std::vector<FloatPixels> reads(8);
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < reads.size(); ++i)
    threads.emplace_back([&, i] { reads[i] = readInTiles(chain, 64 + 31 * int(i), 48 + 17 * int(i)); });
  for (std::thread& t : threads) t.join();
  for (const FloatPixels& r : reads) expectSame(r, whole);
}

// A result holds its inputs: callers build chains from temporaries.
TEST(Kernel, ResultsOutliveTheHandlesOfTheirInputs) {
  Image rows, window, area;
  {
    const Image source = positions(9, 6, 1);
    rows = kernel::mapRows({Image::constant(9, 6, {2, 2, 2}), source}, 1,
                           [](const float* const* in, float* out, int n, int, int) {
                             for (int i = 0; i < n; ++i) out[i] = in[0][i * 3] + in[1][i];
                           });
    window = windowSums(source, 1);
    area = shifted(source, 9, 6, 0, 0);
  }
  EXPECT_EQ(rows.readPixels().at(3, 4, 0), code(3, 4, 0) + 2);
  EXPECT_EQ(window.readPixels().at(0, 0, 0),
            4 * code(0, 0, 0) + 2 * code(1, 0, 0) + 2 * code(0, 1, 0) + code(1, 1, 0));
  EXPECT_EQ(area.readPixels().at(8, 5, 0), code(8, 5, 0));
}

TEST(Kernel, RefusesWhatItCannotRun) {
  const auto nothing = [](const float* const*, float*, int, int, int) {};
  const Image a = Image::constant(4, 4, {}), b = Image::constant(4, 5, {});
  EXPECT_TRUE(test::throwsWith<ImageError>([&] { kernel::mapRows({}, 3, nothing); }, "1 to 8 inputs"));
  EXPECT_TRUE(test::throwsWith<ImageError>([&] { kernel::mapRows({a, b}, 3, nothing); }, "differ in size"));
  EXPECT_TRUE(test::throwsWith<ImageError>([&] { kernel::generate(0, 4, 3, nothing); }, "size"));
  EXPECT_TRUE(test::throwsWith<ImageError>([&] { kernel::mapWindow(a, -1, 3, nothing); }, "radius"));
  EXPECT_TRUE(test::throwsWith<ImageError>([&] { kernel::mapRows({Image()}, 3, nothing); }, "missing"));
}
