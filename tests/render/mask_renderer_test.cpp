#include "engine/render/mask_renderer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>

using namespace lumivale;
using MaskRenderer::paint;

namespace {

// The painting rules written out as plainly as possible: every pixel of the
// box takes its square root. The renderer must give the same bytes.
MaskBitmap referencePaint(const std::vector<BrushDab>& dabs, int w, int h) {
  MaskBitmap m(w, h);
  const double longSide = std::max(w, h);
  for (const BrushDab& dab : dabs) {
    const double r = std::max(dab.radius * longSide, 0.5);
    const double cx = dab.x * w, cy = dab.y * h;
    const int c0 = std::max(int(std::trunc(cx - r)), 0), c1 = std::min(w - 1, int(std::trunc(cx + r)));
    const int r0 = std::max(int(std::trunc(cy - r)), 0), r1 = std::min(h - 1, int(std::trunc(cy + r)));
    const double f = dab.feather < 0 ? 0 : std::min(dab.feather, 1.0);
    const double inner = r * (1 - f);
    for (int py = r0; py <= r1; ++py)
      for (int px = c0; px <= c1; ++px) {
        const double dx = (px + 0.5) - cx, dy = (py + 0.5) - cy;
        const double d = std::sqrt(dx * dx + dy * dy);
        if (d > r) continue;
        double a = 1;
        if (d > inner) {
          const double t = std::clamp((d - inner) / (r - inner), 0.0, 1.0);
          a = 1 - t * t * (3 - 2 * t);
        }
        a = a * dab.flow;
        std::uint8_t& byte = m.bytes[std::size_t(py) * w + px];
        const double old = byte / 255.0;
        const double now = dab.erase ? (1 - a) * old : old + a * (1 - old);
        byte = std::uint8_t(std::clamp(std::round(now * 255), 0.0, 255.0));
      }
  }
  return m;
}

std::uint8_t at(const MaskBitmap& m, int x, int y) { return m.bytes[std::size_t(y) * m.width + x]; }

int painted(const MaskBitmap& m) {
  return int(std::count_if(m.bytes.begin(), m.bytes.end(), [](auto b) { return b; }));
}

// 128 × 128 with exact binary fractions: a dab at pixel centre (64.5, 64.5)
// with radius 16 pixels.
BrushDab centred(double feather, double flow = 1, bool erase = false) {
  return {64.5 / 128, 64.5 / 128, 16.0 / 128, feather, flow, erase};
}

}  // namespace

TEST(MaskPaintTest, FlowAndEraseComposeInOrder) {
  const auto centre = [](std::vector<BrushDab> dabs) { return at(paint(dabs, 128, 128), 64, 64); };
  EXPECT_EQ(centre({centred(0, 0.5)}), 128);  // 127.5 rounds up
  // The second dab starts from the rounded 128/255: 128 + 0.5 × 127 = 191.5,
  // about three quarters.
  EXPECT_EQ(centre({centred(0, 0.5), centred(0, 0.5)}), 192);
  EXPECT_EQ(centre({centred(0), centred(0, 0.5, true)}), 128);
  EXPECT_EQ(centre({centred(0, 0.5, true), centred(0)}), 255);
  // Erasing empty coverage leaves zeros.
  EXPECT_EQ(painted(paint(std::vector{centred(0.3, 1, true), centred(0, 0.7, true)}, 128, 128)), 0);
}

TEST(MaskPaintTest, ZeroRadiusPaintsHalfAPixelDisc) {
  for (double radius : {0.0, -3.0}) {
    const MaskBitmap m = paint(std::vector<BrushDab>{{10.5 / 40, 5.5 / 20, radius, 0, 1, false}}, 40, 20);
    EXPECT_EQ(painted(m), 1) << radius;
    EXPECT_EQ(at(m, 10, 5), 255);
  }
  // Between four pixel centres, each is 0.707 away: outside the disc.
  EXPECT_EQ(painted(paint(std::vector<BrushDab>{{0.5, 0.5, 0, 0, 1, false}}, 40, 20)), 0);
}

TEST(MaskPaintTest, FeatherSetsWhereTheFallOffStarts) {
  // Pixel (72, 64) is 8 px from the centre (half the radius), (76, 64) 12 px.
  const MaskBitmap hard = paint(std::vector{centred(0)}, 128, 128);
  EXPECT_EQ(at(hard, 64 + 15, 64), 255);
  EXPECT_EQ(at(hard, 64 + 16, 64), 255);  // exactly on the rim
  EXPECT_EQ(at(hard, 64 + 17, 64), 0);
  const MaskBitmap full = paint(std::vector{centred(1)}, 128, 128);
  EXPECT_EQ(at(full, 64, 64), 255);
  EXPECT_EQ(at(full, 72, 64), 128);  // smooth(0.5) = 0.5
  EXPECT_EQ(at(full, 80, 64), 0);
  const MaskBitmap half = paint(std::vector{centred(0.5)}, 128, 128);
  EXPECT_EQ(at(half, 72, 64), 255);
  EXPECT_EQ(at(half, 76, 64), 128);
  // Out-of-range feathers are limited, NaN counts as none.
  EXPECT_EQ(paint(std::vector{centred(7)}, 128, 128), full);
  EXPECT_EQ(paint(std::vector{centred(-2)}, 128, 128), hard);
  EXPECT_EQ(paint(std::vector{centred(std::nan(""))}, 128, 128), hard);
}

TEST(MaskPaintTest, DabsPartlyOrWhollyOutsideTheBitmap) {
  const std::vector<BrushDab> corner{{0, 0, 0.1, 0.4, 1, false}, {1.02, 0.5, 0.05, 0, 0.8, false}};
  const MaskBitmap m = paint(corner, 64, 48);
  EXPECT_EQ(m, referencePaint(corner, 64, 48));
  EXPECT_EQ(at(m, 0, 0), 255);
  EXPECT_GT(at(m, 63, 24), 0);
  const std::vector<BrushDab> away{{2, 0.5, 0.1, 0, 1, false}, {0.5, -1, 0.1, 0, 1, false}};
  EXPECT_EQ(painted(paint(away, 64, 48)), 0);
}

TEST(MaskPaintTest, HostileNumbersNeitherCrashNorPaint) {
  const double inf = std::numeric_limits<double>::infinity(), nan = std::nan("");
  const std::vector<BrushDab> dabs{{nan, 0.5, 0.1, 0, 1, false},   {0.5, inf, 0.1, 0, 1, false},
                                   {0.5, 0.5, inf, 1, 1, false},   {0.5, 0.5, 1e308, 1, 1, false},
                                   {0.5, 0.5, 0.1, 0, nan, false}, {1e300, -1e300, 0.1, 0, 1, false}};
  EXPECT_EQ(painted(paint(dabs, 32, 32)), 0);
  // A huge but finite radius covers everything.
  EXPECT_EQ(painted(paint(std::vector<BrushDab>{{0.5, 0.5, 1e200, 0, 1, false}}, 32, 32)), 32 * 32);
  EXPECT_TRUE(paint(dabs, 0, 10).bytes.empty());
  EXPECT_TRUE(paint(dabs, -5, -5).bytes.empty());
}

TEST(MaskPaintTest, MatchesTheReferenceOverRandomDabLists) {
  std::mt19937 rng(11);
  std::uniform_real_distribution<double> unit(0, 1);
  const std::pair<int, int> sizes[] = {{1024, 683}, {341, 1024}, {1, 1}, {8, 1024}, {97, 13}};
  for (int trial = 0; trial < 40; ++trial) {
    const auto [w, h] = sizes[trial % 5];
    std::vector<BrushDab> dabs(1 + rng() % 60);
    // Flows now and then out of range.
    for (BrushDab& d : dabs) {
      d.x = unit(rng) * 1.2 - 0.1, d.y = unit(rng) * 1.2 - 0.1,
      d.radius = rng() % 8 == 0 ? 0 : unit(rng) * 0.08;
      d.feather = unit(rng) * 1.4 - 0.2, d.flow = rng() % 10 ? unit(rng) : unit(rng) * 4 - 1.5,
      d.erase = rng() % 5 == 0;
    }
    ASSERT_EQ(paint(dabs, w, h), referencePaint(dabs, w, h)) << "trial " << trial;
  }
}

TEST(MaskPaintTest, BrushBitmapSizeKeepsTheAspectWithinLimits) {
  using MaskRenderer::brushBitmapSize;
  const double inf = std::numeric_limits<double>::infinity();
  using C = std::pair<double, MaskRenderer::PixelSize>;
  for (const auto& [aspect, size] :
       {C{3, {1024, 341}}, C{1, {1024, 1024}}, C{1.5, {1024, 682}}, C{2.0 / 3, {682, 1024}},
        C{0.5, {512, 1024}}, C{1000, {1024, 8}}, C{0.001, {8, 1024}}, C{0, {8, 1024}}, C{-2, {8, 1024}},
        C{inf, {1024, 8}}, C{std::nan(""), {1024, 1024}}}) {
    const MaskRenderer::PixelSize got = brushBitmapSize(aspect);
    EXPECT_EQ(got, size) << aspect << " gave " << got.width << " × " << got.height;
  }
}
