#include "engine/edit/geometry.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numbers>
#include <random>

#include "engine/edit/edit_settings.h"

using namespace lumivale;

namespace {

constexpr double pi = std::numbers::pi;

void expectNear(Point a, Point b, double tolerance = 1e-12) {
  EXPECT_NEAR(a.x, b.x, tolerance);
  EXPECT_NEAR(a.y, b.y, tolerance);
}

void expectNear(const Rect& a, const Rect& b, double tolerance = 1e-9) {
  EXPECT_NEAR(a.x, b.x, tolerance);
  EXPECT_NEAR(a.y, b.y, tolerance);
  EXPECT_NEAR(a.width, b.width, tolerance);
  EXPECT_NEAR(a.height, b.height, tolerance);
}

void expectNear(const CropRect& a, const CropRect& b) {
  expectNear(Rect{a.x, a.y, a.w, a.h}, Rect{b.x, b.y, b.w, b.h}, 1e-12);
}

// True when every corner of `r`, turned back about the frame's centre,
// lies in the frame within half a pixel: computed here independently with
// an Affine, not with the code under test.
bool insideRotatedImage(const Rect& r, Size frame, double angle) {
  const Affine back = Affine::translation(-frame.width / 2, -frame.height / 2)
                          .appending(Affine::rotation(-angle))
                          .appending(Affine::translation(frame.width / 2, frame.height / 2));
  for (Point corner : {Point{r.minX(), r.minY()}, Point{r.maxX(), r.minY()}, Point{r.minX(), r.maxY()},
                       Point{r.maxX(), r.maxY()}}) {
    const Point p = back.apply(corner);
    if (p.x < -0.5 - 1e-9 || p.x > frame.width + 0.5 + 1e-9 || p.y < -0.5 - 1e-9 ||
        p.y > frame.height + 0.5 + 1e-9) {
      return false;
    }
  }
  return true;
}

TEST(AffineTest, AppendingAppliesTheSecondTransformAfterTheFirst) {
  const Affine first{2, 0.5, -1, 3, 4, -2};
  const Affine second{0.25, -1, 2, 1.5, -3, 7};
  const Affine both = first.appending(second);
  for (Point p : {Point{0, 0}, Point{1, 0}, Point{0, 1}, Point{-3.5, 2.25}}) {
    expectNear(both.apply(p), second.apply(first.apply(p)));
  }
  expectNear(Affine::rotation(pi / 2).apply({1, 0}), {0, 1});  // counter-clockwise with y up
  EXPECT_EQ(Affine{}.appending(first), first);
}

TEST(CropRectTest, FullAndClamped) {
  EXPECT_TRUE(CropRect{}.isFull());
  EXPECT_TRUE((CropRect{1e-10, -1e-10, 1 + 1e-10, 1}.isFull()));
  EXPECT_FALSE((CropRect{0, 0, 0.999, 1}.isFull()));
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const std::pair<CropRect, CropRect> cases[] = {
      {{0, 0, 1, 1}, {0, 0, 1, 1}},
      {{0.5, 0.5, 0.001, 0.2}, {0.5, 0.5, 0.02, 0.2}},
      {{0.9, 0.95, 0.5, 0.5}, {0.5, 0.5, 0.5, 0.5}},
      {{-0.2, nan, 3, nan}, {0, 0, 1, 0.02}},
      {{nan, 0.3, -1, 0.7}, {0, 0.3, 0.02, 0.7}},
      {{2, -5, 0.25, 0.25}, {0.75, 0, 0.25, 0.25}},
  };
  for (const auto& [in, out] : cases) {
    expectNear(in.clamped(), out);
  }
}

TEST(CropAspectTest, RatiosFollowTheFrame) {
  const Size landscape{6000, 4000}, portrait{4000, 6000}, square{3000, 3000};
  struct Case {
    std::string name;
    Size frame;
    std::optional<double> ratio;
  };
  const Case cases[] = {
      {"Free", landscape, std::nullopt},
      {"Original", {3000, 2000}, 1.5},
      {"Original", portrait, 4000.0 / 6000},
      {"Original", {300, 0}, 300},
      {"1 : 1", portrait, 1},
      {"16 : 9", portrait, 0.5625},
      {"16 : 9", landscape, 16.0 / 9},
      {"2 : 3", landscape, 1.5},
      {"3 : 2 (wide)", landscape, 1.5},
      {"2 : 3", portrait, 2.0 / 3},
      {"3 : 2 (wide)", portrait, 2.0 / 3},
      {"4 : 5", square, 1.25},
      {"16 : 10", portrait, 0.625},
      {"7", landscape, std::nullopt},
      {"5 : 0", landscape, std::nullopt},
      {"", landscape, std::nullopt},
      {"abc", landscape, std::nullopt},
      {"x3y4z", portrait, 0.75},
      {"0 : 4", portrait, 0},
  };
  for (const Case& c : cases) {
    const auto r = CropAspect::ratio(c.name, c.frame);
    ASSERT_EQ(r.has_value(), c.ratio.has_value()) << c.name;
    if (r) {
      EXPECT_NEAR(*r, *c.ratio, 1e-12) << c.name;
    }
  }
  EXPECT_EQ(CropAspect::names().size(), 10u);
  EXPECT_EQ(CropAspect::names().front(), "Free");
  EXPECT_EQ(CropAspect::names().back(), "3 : 2 (wide)");
  // Every menu entry but "Free" has a ratio.
  for (const std::string& name : CropAspect::names()) {
    EXPECT_EQ(CropAspect::ratio(name, landscape).has_value(), name != "Free") << name;
  }
}

TEST(CropAspectTest, CenteredCrops) {
  const std::tuple<std::string, Size, CropRect> cases[] = {
      {"1 : 1", {6000, 4000}, {1.0 / 6, 0, 2.0 / 3, 1}},
      {"1 : 1", {4000, 6000}, {0, 1.0 / 6, 1, 2.0 / 3}},
      {"16 : 9", {6000, 4000}, {0, (1 - 1.5 / (16.0 / 9)) / 2, 1, 1.5 / (16.0 / 9)}},
      {"Free", {6000, 4000}, {0, 0, 1, 1}},
      {"Original", {6000, 4000}, {0, 0, 1, 1}},
  };
  for (const auto& [name, frame, expected] : cases) {
    SCOPED_TRACE(name);
    expectNear(CropAspect::centered(name, frame), expected);
  }
}

TEST(PhotoGeometryTest, DefaultSettingsKeepTheWholeSource) {
  const PhotoGeometry g(EditSettings{}, {6000, 4000});
  EXPECT_EQ(g.frame, (Size{6000, 4000}));
  EXPECT_EQ(g.angle, 0);
  EXPECT_EQ(g.crop, (Rect{0, 0, 6000, 4000}));
  EXPECT_EQ(g.outputSize(), (Size{6000, 4000}));
  EXPECT_EQ(g.cropRectCI(), (Rect{0, 0, 6000, 4000}));
  EXPECT_EQ(g.orientTransform(), Affine{});
}

TEST(PhotoGeometryTest, QuarterTurnsReduceModuloFour) {
  const std::pair<std::int64_t, int> cases[] = {{0, 0}, {1, 1},  {2, 2},  {3, 3},  {4, 0},
                                                {5, 1}, {-1, 3}, {-2, 2}, {-5, 3}, {1'000'000'001, 1}};
  for (const auto& [turns, reduced] : cases) {
    EditSettings s;
    s.rotateQuarterTurns = turns;
    const PhotoGeometry g(s, {6000, 4000});
    EXPECT_EQ(g.quarterTurns, reduced) << turns;
    EXPECT_EQ(g.frame, (reduced % 2 ? Size{4000, 6000} : Size{6000, 4000})) << turns;
  }
}

TEST(PhotoGeometryTest, StraightenIsClampedToFortyFiveDegrees) {
  const std::pair<double, double> cases[] = {
      {0, 0},
      {10, 10 * pi / 180},
      {-10, -10 * pi / 180},
      {45, pi / 4},
      {60, pi / 4},
      {-60, -pi / 4},
      {std::numeric_limits<double>::quiet_NaN(), pi / 4},
      {1e300, pi / 4},
      {-std::numeric_limits<double>::infinity(), -pi / 4},
  };
  for (const auto& [degrees, radians] : cases) {
    EditSettings s;
    s.straighten = degrees;
    EXPECT_NEAR(PhotoGeometry(s, {100, 100}).angle, radians, 1e-15) << degrees;
  }
  EditSettings s;
  s.straighten = 45;
  EXPECT_EQ(PhotoGeometry(s, {100, 100}).angle, pi / 4);
}

TEST(PhotoGeometryTest, TinyStoredCropsAreWidenedBeforeFitting) {
  EditSettings s;
  s.crop = {0.5, 0.5, 0.001, 0.001};
  const PhotoGeometry g(s, {6000, 4000});
  expectNear(g.crop, {3000, 2000, 0.02 * 6000, 0.02 * 4000});
  EXPECT_EQ(g.outputSize(), (Size{120, 80}));
}

TEST(PhotoGeometryTest, IgnoringTheCropShowsTheWholeFrame) {
  EditSettings s;
  s.crop = {0.2, 0.2, 0.3, 0.3};
  s.rotateQuarterTurns = 1;
  s.straighten = 12;
  const PhotoGeometry g(s, {6000, 4000}, true);
  EXPECT_EQ(g.crop, (Rect{0, 0, 4000, 6000}));
}

TEST(PhotoGeometryTest, FitWithoutAngleClampsToTheFrame) {
  const std::pair<Rect, Rect> cases[] = {
      {{-10, -10, 7000, 5000}, {0, 0, 6000, 4000}},
      {{100, 200, 300, 400}, {100, 200, 300, 400}},
      {{5990, 3999.5, 500, 500}, {5990, 3999, 10, 1}},
      {{7000, 5000, 10, 10}, {5999, 3999, 1, 1}},
      {{10, 10, 0.2, 0}, {10, 10, 1, 1}},
  };
  for (const auto& [in, out] : cases) expectNear(PhotoGeometry::fit(in, {6000, 4000}, 0), out);
  // Below 1e-9 radians counts as no angle.
  expectNear(PhotoGeometry::fit({-10, -10, 7000, 5000}, {6000, 4000}, 5e-10), {0, 0, 6000, 4000});
}

TEST(PhotoGeometryTest, FitShrinksAboutTheCentreUntilInsideTheRotatedImage) {
  const Size frame{6000, 4000};
  const Rect full{0, 0, 6000, 4000};
  const Rect fitted = PhotoGeometry::fit(full, frame, 5 * pi / 180);
  EXPECT_LT(fitted.width, full.width);
  EXPECT_NEAR(fitted.midX(), 3000, 1e-6);
  EXPECT_NEAR(fitted.midY(), 2000, 1e-6);
  EXPECT_NEAR(fitted.width / fitted.height, 1.5, 1e-9);
  EXPECT_TRUE(insideRotatedImage(fitted, frame, 5 * pi / 180));
  // The scale is the largest that fits, to the bisection's precision.
  const double scale = fitted.width / full.width;
  const Rect larger{3000 - 3000 * (scale + 1e-6), 2000 - 2000 * (scale + 1e-6), 6000 * (scale + 1e-6),
                    4000 * (scale + 1e-6)};
  EXPECT_FALSE(insideRotatedImage(larger, frame, 5 * pi / 180));

  // A rectangle that already fits is returned as it is.
  const Rect small{2500, 1500, 1000, 1000};
  EXPECT_EQ(PhotoGeometry::fit(small, frame, 0.2), small);
}

TEST(PhotoGeometryTest, FittedCropsLieInsideTheRotatedImage) {
  std::mt19937 random(99);
  std::uniform_real_distribution<double> unit(0, 1);
  std::uniform_real_distribution<double> degrees(-45, 45);
  for (int trial = 0; trial < 2000; ++trial) {
    EditSettings s;
    s.straighten = degrees(random);
    s.rotateQuarterTurns = static_cast<std::int64_t>(random() % 4);
    s.crop = {unit(random) * 0.5, unit(random) * 0.5, 0.05 + unit(random), 0.05 + unit(random)};
    const Size source{200 + 6000 * unit(random), 200 + 6000 * unit(random)};
    const PhotoGeometry g(s, source);
    const CropRect stored = s.crop.clamped();
    const Rect asked{stored.x * g.frame.width, stored.y * g.frame.height, stored.w * g.frame.width,
                     stored.h * g.frame.height};
    // Only shrunk about the same centre, never moved, never below 2 %.
    EXPECT_NEAR(g.crop.midX(), asked.midX(), 1e-6);
    EXPECT_NEAR(g.crop.midY(), asked.midY(), 1e-6);
    EXPECT_LE(g.crop.width, asked.width + 1e-9);
    EXPECT_GE(g.crop.width, asked.width * 0.02 - 1e-9);
    if (g.crop.width > asked.width * 0.02 + 1e-6) {
      EXPECT_TRUE(insideRotatedImage(g.crop, g.frame, g.angle)) << "trial " << trial;
    }
  }
}

TEST(PhotoGeometryTest, OutputSizeRoundsHalfAwayFromZero) {
  PhotoGeometry g;
  g.crop = {0, 0, 100.5, 99.49};
  EXPECT_EQ(g.outputSize(), (Size{101, 99}));
  g.crop = {0, 0, 0.4, 0.5};
  EXPECT_EQ(g.outputSize(), (Size{1, 1}));
  g.crop = {0, 0, 2.5, 3.5};
  EXPECT_EQ(g.outputSize(), (Size{3, 4}));
}

TEST(PhotoGeometryTest, CropRectCIHasABottomLeftOrigin) {
  EditSettings s;
  s.crop = {0.1, 0.2, 0.5, 0.25};
  const PhotoGeometry g(s, {1000, 800});
  expectNear(g.crop, {100, 160, 500, 200});
  expectNear(g.cropRectCI(), {100, 800 - 360, 500, 200});
}

struct Orientation {
  int turns;
  bool flipH;
  bool flipV;
};

std::vector<Orientation> allOrientations() {
  std::vector<Orientation> all;
  for (int turns = 0; turns < 4; ++turns) {
    for (bool h : {false, true}) {
      for (bool v : {false, true}) all.push_back({turns, h, v});
    }
  }
  return all;
}

PhotoGeometry geometryFor(const Orientation& o, double straighten = 0, CropRect crop = {}) {
  EditSettings s;
  s.rotateQuarterTurns = o.turns;
  s.flipHorizontal = o.flipH;
  s.flipVertical = o.flipV;
  s.straighten = straighten;
  s.crop = crop;
  return PhotoGeometry(s, {600, 400});
}

TEST(PhotoGeometryTest, PointMappingsRoundTripForEveryOrientation) {
  const Point points[] = {{0, 0}, {1, 0}, {0, 1}, {1, 1}, {0.25, 0.75}, {0.6, 0.1}};
  for (const Orientation& o : allOrientations()) {
    SCOPED_TRACE(::testing::Message() << o.turns << " turns, flips " << o.flipH << o.flipV);
    const PhotoGeometry g = geometryFor(o, 7.5, {0.1, 0.2, 0.6, 0.5});
    for (Point p : points) {
      expectNear(g.frameToSource(g.sourceToFrame(p)), p);
      expectNear(g.sourceToFrame(g.frameToSource(p)), p);
      expectNear(g.viewToSource(g.sourceToView(p)), p, 1e-9);
      expectNear(g.sourceToView(g.viewToSource(p)), p, 1e-9);
    }
  }
}

TEST(PhotoGeometryTest, QuarterTurnsAreClockwiseAndFlipsComeFirst) {
  // The source's top-left corner, after one clockwise turn, is the top-right.
  expectNear(geometryFor({1, false, false}).sourceToFrame({0, 0}), {1, 0});
  expectNear(geometryFor({1, false, false}).sourceToFrame({1, 0}), {1, 1});
  expectNear(geometryFor({2, false, false}).sourceToFrame({0.25, 0.1}), {0.75, 0.9});
  // Mirrored left-right first, then turned: the top-right corner goes to the top-right.
  expectNear(geometryFor({1, true, false}).sourceToFrame({1, 0}), {1, 0});
  expectNear(geometryFor({3, false, true}).sourceToFrame({0, 0}), {1, 1});
}

// The pixel transform for the image pipeline (bottom-left origin) and the
// normalised point mapping (top-left origin) must describe the same motion.
TEST(PhotoGeometryTest, OrientTransformAgreesWithThePointMapping) {
  for (const Orientation& o : allOrientations()) {
    SCOPED_TRACE(::testing::Message() << o.turns << " turns, flips " << o.flipH << o.flipV);
    const PhotoGeometry g = geometryFor(o);
    const Affine t = g.orientTransform();
    for (Point p : {Point{0, 0}, Point{1, 0}, Point{0.3, 0.8}, Point{0.9, 0.45}}) {
      const Point pixel{p.x * g.source.width, (1 - p.y) * g.source.height};
      const Point moved = t.apply(pixel);
      const Point normalised{moved.x / g.frame.width, 1 - moved.y / g.frame.height};
      expectNear(normalised, g.sourceToFrame(p), 1e-12);
    }
  }
}

TEST(PhotoGeometryTest, StraightenTransformAgreesWithTheViewMapping) {
  EditSettings s;
  s.straighten = 9;
  const PhotoGeometry g(s, {600, 400}, true);
  const Affine t = g.straightenTransform();
  for (Point p : {Point{0.5, 0.5}, Point{0.1, 0.2}, Point{0.9, 0.7}}) {
    // sourceToView with the whole frame as crop gives the rotated frame point.
    const Point view = g.sourceToView(p);
    const Point pixel{p.x * 600, (1 - p.y) * 400};
    const Point rotated = t.apply(pixel);
    expectNear({rotated.x / 600, 1 - rotated.y / 400}, view, 1e-12);
  }
  expectNear(t.apply({300, 200}), {300, 200});
}

}  // namespace
