// What the goldens cannot show: results over many tiles, properties of the
// noise, how sharpening grows with its radius, the one coordinate
// conversion, and refusals.

#include <gtest/gtest.h>
#include <vips/vips.h>

#include <cmath>
#include <functional>
#include <numeric>

#include "engine/render/filters/blur.h"
#include "engine/render/filters/color_cube.h"
#include "engine/render/filters/composite.h"
#include "engine/render/filters/gradient.h"
#include "engine/render/filters/noise.h"
#include "engine/render/filters/point.h"
#include "engine/render/filters/random_generator.h"
#include "engine/render/filters/resample.h"
#include "tests/support/errors.h"

using namespace lumivale;
using namespace lumivale::filters;

namespace {

// Several tiles wide and high, values a little beyond 0 … 1.
Image photoLike(int width = 700, int height = 450) {
  FloatPixels p{width, height, 3, {}};
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x)
      p.values.insert(p.values.end(),
                      {float(1.1 * x / width - 0.05), float(0.5 + 0.5 * std::sin(x * 0.3 + y * 0.17)),
                       float((x * 7 + y * 13) % 23) / 20.0f});
  return Image::fromPixels(p);
}

// The whole image computed in one piece: every kernel runs once over the
// whole rectangle, with no tile edges anywhere in the chain.
FloatPixels readInOnePiece(const Image& image) {
  VipsRegion* region = vips_region_new(image.get());
  VipsRect all{0, 0, image.width(), image.height()};
  EXPECT_EQ(vips_region_prepare(region, &all), 0);
  FloatPixels p{image.width(), image.height(), image.bands(), {}};
  for (int y = 0; y < all.height; ++y) {
    const auto* row = reinterpret_cast<const float*>(VIPS_REGION_ADDR(region, 0, y));
    p.values.insert(p.values.end(), row, row + std::size_t(all.width) * p.bands);
  }
  g_object_unref(region);
  return p;
}

double largestDifference(const FloatPixels& a, const FloatPixels& b) {
  double worst = 0;
  for (std::size_t i = 0; i < a.values.size(); ++i)
    worst = std::max(worst, double(std::abs(a.values[i] - b.values[i])));
  return worst;
}

struct TiledCase {
  const char* name;
  std::function<Image(const Image&)> filter;
};

const TiledCase tiledCases[] = {
    {"blur 0.3", [](const Image& i) { return gaussianBlur(i, 0.3); }},
    {"blur 9", [](const Image& i) { return gaussianBlur(i, 9); }},
    {"blur 40", [](const Image& i) { return gaussianBlur(i, 40); }},
    {"unsharp", [](const Image& i) { return unsharpMask(i, 2.5, 0.7); }},
    {"median", [](const Image& i) { return medianFilter(i); }},
    {"noise reduction", [](const Image& i) { return noiseReduction(i, 0.05, 0.2); }},
    {"lanczos down", [](const Image& i) { return lanczosScale(i, 0.37, 1.3); }},
    {"lanczos up", [](const Image& i) { return lanczosScale(i, 1.6, 0.9); }},
    {"affine",
     [](const Image& i) {
       return affine(i, Affine::rotation(0.3), {-100, 50, 800, 600});
     }},
    {"cube", [](const Image& i) { return colorCube(i, std::vector<float>(4 * 4 * 4 * 4, 0.5f), 4); }},
    {"chain", [](const Image& i) { return lanczosScale(medianFilter(gaussianBlur(i, 3)), 0.8); }},
};

}  // namespace

TEST(Filters, TilesAgreeWithOnePieceComputation) {
  // Computed, not in memory: a kernel that reads beyond the pixels it asked
  // for then reads garbage instead of the neighbouring rows of the buffer.
  const Image photo = exposureAdjust(photoLike(), 0.5);
  for (const TiledCase& c : tiledCases) {
    const Image result = c.filter(photo);
    const FloatPixels tiled = result.readPixels(), whole = readInOnePiece(result);
    ASSERT_EQ(tiled.values.size(), whole.values.size()) << c.name;
    // Vector and scalar tails of a row round differently.
    EXPECT_LT(largestDifference(tiled, whole), 1e-5) << c.name;
  }
}

TEST(Filters, BlursKeepFlatImagesFlatUpToTheirEdges) {
  const Image flat = Image::constant(640, 300, {0.3, 0.6, 1.4}).materialize();
  for (const Image& out :
       {gaussianBlur(flat, 25), gaussianBlur(flat, 40), lanczosScale(flat, 0.13),
        lanczosScale(flat, 3.1, 0.5), affine(flat, Affine::rotation(1), {-50, -50, 900, 700}),
        unsharpMask(flat, 20, 2)}) {
    const FloatPixels p = out.readPixels();
    for (int i = 0; i < p.width * p.height; ++i)
      ASSERT_NEAR(p.values[std::size_t(i) * 3 + 2], 1.4f, 1e-5)
          << "pixel " << i % p.width << ", " << i / p.width;
  }
}

TEST(RandomGenerator, OverlappingWindowsAgree) {
  const FloatPixels a = randomGenerator(10, 20, 300, 200).readPixels();
  const FloatPixels b = randomGenerator(-50, 0, 400, 300).readPixels();
  for (int y = 0; y < 200; y += 3)
    for (int x = 0; x < 300; x += 5)
      for (int c = 0; c < 3; ++c) ASSERT_EQ(a.at(x, y, c), b.at(x + 60, y + 20, c));
}

TEST(RandomGenerator, ChannelsAreIndependentUniformValues) {
  constexpr int side = 512;
  const FloatPixels p = randomGenerator(-256, 1000, side, side).readPixels();
  const auto mean = [&](auto value) {
    double sum = 0;
    for (int y = 0; y < side - 1; ++y)
      for (int x = 0; x < side - 1; ++x) sum += value(x, y);
    return sum / ((side - 1) * (side - 1));
  };
  for (int c = 0; c < 3; ++c) {
    const auto v = [&](int x, int y) { return double(p.at(x, y, c)) - 0.5; };
    EXPECT_NEAR(mean(v), 0, 0.005) << c;
    EXPECT_NEAR(mean([&](int x, int y) { return v(x, y) * v(x, y); }), 1.0 / 12, 0.002) << c;
    // Correlations with the right and lower neighbours and the next channel,
    // as fractions of the variance.
    const auto correlation = [&](auto other) {
      return mean([&](int x, int y) { return v(x, y) * other(x, y); }) * 12;
    };
    EXPECT_NEAR(correlation([&](int x, int y) { return v(x + 1, y); }), 0, 0.01) << c;
    EXPECT_NEAR(correlation([&](int x, int y) { return v(x, y + 1); }), 0, 0.01) << c;
    EXPECT_NEAR(correlation([&](int x, int y) { return double(p.at(x, y, (c + 1) % 3)) - 0.5; }), 0, 0.01)
        << c;
  }
  EXPECT_GE(*std::min_element(p.values.begin(), p.values.end()), 0.0f);
  EXPECT_LT(*std::max_element(p.values.begin(), p.values.end()), 1.0f);
}

// The discrete Gaussian keeps its width at small radii, so sharpening grows
// smoothly from the smallest radius the renderer uses (0.3) to the largest.
TEST(UnsharpMask, OvershootGrowsWithTheRadiusFromTheSmallestOn) {
  FloatPixels step{64, 1, 1, std::vector<float>(64, 0.2f)};
  std::fill(step.values.begin() + 32, step.values.end(), 0.8f);
  double previous = 0;
  for (double radius : {0.3, 0.5, 1.0, 2.0, 5.0, 20.0}) {
    const FloatPixels p = unsharpMask(Image::fromPixels(step), radius, 1).readPixels();
    const double overshoot = *std::max_element(p.values.begin(), p.values.end()) - 0.8;
    EXPECT_GT(overshoot, previous + 0.01) << "radius " << radius;
    previous = overshoot;
  }
}

TEST(ColorMatrix, ScaleMultipliesColourOnly) {
  const Image photo = photoLike(40, 30);
  const FloatPixels scaled = colorMatrix(photo, ColorMatrix::scale(0.25)).readPixels();
  const FloatPixels exposed = exposureAdjust(photo, -2).readPixels();
  EXPECT_EQ(scaled.values, exposed.values);
}

// A transform of bottom-left pixel space, taken to top-left space, moves
// every point to the mirror image of where the original moves its mirror.
TEST(TopLeftTransform, MirrorsTheBottomLeftTransform) {
  const double inH = 300, outH = 420;
  Affine turn;  // a quarter turn clockwise (y up), moved back into view
  turn.a = 0, turn.b = -1, turn.c = 1, turn.d = 0, turn.ty = 420;
  for (const Affine& bl : {Affine::rotation(0.2), turn, Affine{2, 0.5, -0.25, 1.5, 30, -7}})
    for (Point p : {Point{0, 0}, Point{17.5, 299}, Point{640, 12.25}}) {
      const Point mirrored = bl.apply({p.x, inH - p.y});
      const Point got = topLeftTransform(bl, inH, outH).apply(p);
      EXPECT_NEAR(got.x, mirrored.x, 1e-9);
      EXPECT_NEAR(got.y, outH - mirrored.y, 1e-9);
    }
}

TEST(Filters, RefuseWhatTheyCannotDo) {
  const Image rgb = Image::constant(8, 6, {0.5, 0.5, 0.5}), other = Image::constant(8, 7, {0.5, 0.5, 0.5});
  const Image grey = Image::constant(8, 6, {0.5}, 1), twoBands = Image::constant(8, 6, {0.5}, 2);
  const std::pair<std::function<void()>, const char*> refusals[] = {
      {[&] { colorCube(rgb, std::vector<float>(100), 33); }, "cannot hold 100 values"},
      {[&] { colorCube(rgb, std::vector<float>(4), 1); }, "dimension 1"},
      {[&] { colorMatrix(twoBands, {}); }, "not 2 bands"},
      {[&] { blendWithMask(rgb, other, grey); }, "one size"},
      {[&] { blendWithMask(rgb, rgb, Image::constant(8, 7, {1}, 1)); }, "one size"},
      {[&] { luminosityBlend(rgb, other); }, "one size"},
      {[&] { multiplyCompositing(Image(), rgb); }, "missing"},
      {[&] { gaussianBlur(Image(), 2); }, "missing"},
      {[&] { lanczosScale(rgb, 0); }, "above 0"},
      {[&] { lanczosScale(rgb, NAN); }, "above 0"},
      {[&] { lanczosScale(rgb, 1e9); }, "no usable size"},
      {[&] {
         affine(rgb, {1, 2, 2, 4, 0, 0}, {0, 0, 8, 6});
       },
       "cannot be inverted"},
      {[&] {
         affine(rgb, {}, {0, 0, INFINITY, 6});
       },
       "no usable size"},
      {[&] { randomGenerator(0, 0, 0, 5); }, "size"},
  };
  for (const auto& [call, message] : refusals) EXPECT_TRUE(test::throwsWith<ImageError>(call, message));
}
