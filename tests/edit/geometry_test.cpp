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
constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double inf = std::numeric_limits<double>::infinity();

void expectNear(Point a, Point b, double tolerance = 1e-12) {
  EXPECT_TRUE(std::abs(a.x - b.x) <= tolerance && std::abs(a.y - b.y) <= tolerance)
      << "(" << a.x << ", " << a.y << ") is not (" << b.x << ", " << b.y << ")";
}
void expectNear(const Rect& a, const Rect& b, double tolerance = 1e-9) {
  expectNear(Point{a.x, a.y}, {b.x, b.y}, tolerance);
  expectNear(Point{a.width, a.height}, {b.width, b.height}, tolerance);
}
void expectNear(const CropRect& a, const CropRect& b) {
  expectNear(Rect{a.x, a.y, a.w, a.h}, {b.x, b.y, b.w, b.h}, 1e-12);
}

// True when every corner of `r`, turned back about the frame's centre,
// lies in the frame within half a pixel: computed here independently with
// an Affine, not with the code under test.
bool insideRotatedImage(const Rect& r, Size frame, double angle) {
  const Affine back = Affine::translation(-frame.width / 2, -frame.height / 2)
                          .appending(Affine::rotation(-angle))
                          .appending(Affine::translation(frame.width / 2, frame.height / 2));
  for (Point corner :
       {Point{r.minX(), r.minY()}, {r.maxX(), r.minY()}, {r.minX(), r.maxY()}, {r.maxX(), r.maxY()}}) {
    const Point p = back.apply(corner);
    const double slack = 0.5 + 1e-9;
    if (p.x < -slack || p.x > frame.width + slack || p.y < -slack || p.y > frame.height + slack) return false;
  }
  return true;
}

PhotoGeometry geometryFor(int turns, bool flipH, bool flipV, double straighten = 0, CropRect crop = {}) {
  return PhotoGeometry(EditSettings{.rotateQuarterTurns = turns,
                                    .flipHorizontal = flipH,
                                    .flipVertical = flipV,
                                    .straighten = straighten,
                                    .crop = crop},
                       {600, 400});
}

TEST(AffineTest, AppendingAppliesTheSecondTransformAfterTheFirst) {
  const Affine first{2, 0.5, -1, 3, 4, -2}, second{0.25, -1, 2, 1.5, -3, 7};
  for (Point p : {Point{0, 0}, {1, 0}, {0, 1}, {-3.5, 2.25}})
    expectNear(first.appending(second).apply(p), second.apply(first.apply(p)));
  expectNear(Affine::rotation(pi / 2).apply({1, 0}), {0, 1});  // counter-clockwise with y up
  EXPECT_EQ(Affine{}.appending(first), first);
}

TEST(CropRectTest, FullAndClamped) {
  EXPECT_TRUE(CropRect{}.isFull());
  EXPECT_TRUE((CropRect{1e-10, -1e-10, 1 + 1e-10, 1}.isFull()));
  EXPECT_FALSE((CropRect{0, 0, 0.999, 1}.isFull()));
  const std::pair<CropRect, CropRect> cases[] = {{{0, 0, 1, 1}, {0, 0, 1, 1}},
                                                 {{0.5, 0.5, 0.001, 0.2}, {0.5, 0.5, 0.02, 0.2}},
                                                 {{0.9, 0.95, 0.5, 0.5}, {0.5, 0.5, 0.5, 0.5}},
                                                 {{-0.2, nan, 3, nan}, {0, 0, 1, 0.02}},
                                                 {{nan, 0.3, -1, 0.7}, {0, 0.3, 0.02, 0.7}},
                                                 {{2, -5, 0.25, 0.25}, {0.75, 0, 0.25, 0.25}}};
  for (const auto& [in, out] : cases) expectNear(in.clamped(), out);
}

TEST(CropAspectTest, RatiosFollowTheFrameAndCentredCropsUseThem) {
  const Size landscape{6000, 4000}, portrait{4000, 6000}, square{3000, 3000};
  using A = std::tuple<const char*, Size, std::optional<double>>;
  const auto none = std::nullopt;
  for (const auto& [name, frame, ratio] :
       {A{"Free", landscape, none}, A{"Original", {3000, 2000}, 1.5}, A{"Original", portrait, 4000.0 / 6000},
        A{"Original", {300, 0}, 300}, A{"1 : 1", portrait, 1}, A{"16 : 9", portrait, 0.5625},
        A{"16 : 9", landscape, 16.0 / 9}, A{"2 : 3", landscape, 1.5}, A{"3 : 2 (wide)", landscape, 1.5},
        A{"2 : 3", portrait, 2.0 / 3}, A{"3 : 2 (wide)", portrait, 2.0 / 3}, A{"4 : 5", square, 1.25},
        A{"16 : 10", portrait, 0.625}, A{"7", landscape, none}, A{"5 : 0", landscape, none},
        A{"", landscape, none}, A{"abc", landscape, none}, A{"x3y4z", portrait, 0.75},
        A{"0 : 4", portrait, 0}}) {
    const auto r = CropAspect::ratio(name, frame);
    EXPECT_TRUE(r.has_value() == ratio.has_value() && (!r || std::abs(*r - *ratio) <= 1e-12)) << name;
  }
  // Ten menu entries from "Free" to "3 : 2 (wide)"; all but "Free" have a ratio.
  EXPECT_EQ(CropAspect::names().size(), 10u);
  EXPECT_EQ(CropAspect::names().front(), "Free");
  EXPECT_EQ(CropAspect::names().back(), "3 : 2 (wide)");
  for (const std::string& name : CropAspect::names())
    EXPECT_EQ(CropAspect::ratio(name, landscape).has_value(), name != "Free") << name;

  const double wide = 1.5 / (16.0 / 9);
  for (const auto& [name, frame, crop] : {std::tuple("1 : 1", landscape, CropRect{1.0 / 6, 0, 2.0 / 3, 1}),
                                          {"1 : 1", portrait, {0, 1.0 / 6, 1, 2.0 / 3}},
                                          {"16 : 9", landscape, {0, (1 - wide) / 2, 1, wide}},
                                          {"Free", landscape, {}},
                                          {"Original", landscape, {}}}) {
    SCOPED_TRACE(name);
    expectNear(CropAspect::centered(name, frame), crop);
  }
}

TEST(PhotoGeometryTest, SettingsBecomeFrameAngleAndCrop) {
  const PhotoGeometry plain(EditSettings{}, {6000, 4000});
  EXPECT_EQ(plain.frame, (Size{6000, 4000}));
  EXPECT_EQ(plain.angle, 0);
  EXPECT_EQ(plain.crop, (Rect{0, 0, 6000, 4000}));
  EXPECT_EQ(plain.outputSize(), (Size{6000, 4000}));
  EXPECT_EQ(plain.orientTransform(), Affine{});

  const std::pair<std::int64_t, int> turnCases[] = {{0, 0}, {1, 1},  {2, 2},  {3, 3},  {4, 0},
                                                    {5, 1}, {-1, 3}, {-2, 2}, {-5, 3}, {1'000'000'001, 1}};
  for (auto [turns, reduced] : turnCases) {
    const PhotoGeometry g(EditSettings{.rotateQuarterTurns = turns}, {6000, 4000});
    EXPECT_EQ(g.quarterTurns, reduced) << turns;
    EXPECT_EQ(g.frame, (reduced % 2 ? Size{4000, 6000} : Size{6000, 4000})) << turns;
  }
  // Straightening is clamped to 45 degrees, NaN counting as the most.
  const std::pair<double, double> straightenCases[] = {
      {0, 0},         {10, 10 * pi / 180}, {-10, -10 * pi / 180}, {60, pi / 4},
      {-60, -pi / 4}, {nan, pi / 4},       {1e300, pi / 4},       {-inf, -pi / 4}};
  for (auto [degrees, radians] : straightenCases)
    EXPECT_NEAR(PhotoGeometry(EditSettings{.straighten = degrees}, {100, 100}).angle, radians, 1e-15)
        << degrees;
  EXPECT_EQ(PhotoGeometry(EditSettings{.straighten = 45}, {100, 100}).angle, pi / 4);

  // Tiny stored crops are widened before fitting; ignoring the crop shows the
  // whole frame; the crop for the image pipeline has a bottom-left origin.
  const PhotoGeometry tiny(EditSettings{.crop = {0.5, 0.5, 0.001, 0.001}}, {6000, 4000});
  expectNear(tiny.crop, {3000, 2000, 0.02 * 6000, 0.02 * 4000});
  EXPECT_EQ(tiny.outputSize(), (Size{120, 80}));
  const EditSettings cropped{.rotateQuarterTurns = 1, .straighten = 12, .crop = {0.2, 0.2, 0.3, 0.3}};
  EXPECT_EQ(PhotoGeometry(cropped, {6000, 4000}, true).crop, (Rect{0, 0, 4000, 6000}));
  const PhotoGeometry ci(EditSettings{.crop = {0.1, 0.2, 0.5, 0.25}}, {1000, 800});
  expectNear(ci.crop, {100, 160, 500, 200});
  expectNear(ci.cropRectCI(), {100, 800 - 360, 500, 200});
}

TEST(PhotoGeometryTest, OutputSizeRoundsHalfAwayFromZero) {
  PhotoGeometry g;
  for (auto [w, h, size] :
       {std::tuple(100.5, 99.49, Size{101, 99}), {0.4, 0.5, {1, 1}}, {2.5, 3.5, {3, 4}}}) {
    g.crop = {0, 0, w, h};
    EXPECT_EQ(g.outputSize(), size) << w << " × " << h;
  }
}

TEST(PhotoGeometryTest, FitWithoutAngleClampsToTheFrame) {
  const std::pair<Rect, Rect> cases[] = {{{-10, -10, 7000, 5000}, {0, 0, 6000, 4000}},
                                         {{100, 200, 300, 400}, {100, 200, 300, 400}},
                                         {{5990, 3999.5, 500, 500}, {5990, 3999, 10, 1}},
                                         {{7000, 5000, 10, 10}, {5999, 3999, 1, 1}},
                                         {{10, 10, 0.2, 0}, {10, 10, 1, 1}}};
  for (const auto& [in, out] : cases) expectNear(PhotoGeometry::fit(in, {6000, 4000}, 0), out);
  // Below 1e-9 radians counts as no angle.
  expectNear(PhotoGeometry::fit({-10, -10, 7000, 5000}, {6000, 4000}, 5e-10), {0, 0, 6000, 4000});
}

TEST(PhotoGeometryTest, FitShrinksAboutTheCentreUntilInsideTheRotatedImage) {
  const Size frame{6000, 4000};
  const Rect fitted = PhotoGeometry::fit({0, 0, 6000, 4000}, frame, 5 * pi / 180);
  EXPECT_LT(fitted.width, 6000);
  expectNear(Point{fitted.midX(), fitted.midY()}, {3000, 2000}, 1e-6);
  EXPECT_NEAR(fitted.width / fitted.height, 1.5, 1e-9);
  EXPECT_TRUE(insideRotatedImage(fitted, frame, 5 * pi / 180));
  // The scale is the largest that fits, to the bisection's precision.
  const double larger = fitted.width / 6000 + 1e-6;
  EXPECT_FALSE(insideRotatedImage({3000 - 3000 * larger, 2000 - 2000 * larger, 6000 * larger, 4000 * larger},
                                  frame, 5 * pi / 180));
  // A rectangle that already fits is returned as it is.
  EXPECT_EQ(PhotoGeometry::fit({2500, 1500, 1000, 1000}, frame, 0.2), (Rect{2500, 1500, 1000, 1000}));

  std::mt19937 random(99);
  std::uniform_real_distribution<double> unit(0, 1), degrees(-45, 45);
  for (int trial = 0; trial < 2000; ++trial) {
    EditSettings s;
    s.straighten = degrees(random);
    s.rotateQuarterTurns = static_cast<std::int64_t>(random() % 4);
    s.crop = {unit(random) * 0.5, unit(random) * 0.5, 0.05 + unit(random), 0.05 + unit(random)};
    const Size source{200 + 6000 * unit(random), 200 + 6000 * unit(random)};
    const PhotoGeometry g(s, source);
    const CropRect c = s.crop.clamped();
    const Rect asked{c.x * g.frame.width, c.y * g.frame.height, c.w * g.frame.width, c.h * g.frame.height};
    // Only shrunk about the same centre, never moved, never below 2 %.
    expectNear(Point{g.crop.midX(), g.crop.midY()}, {asked.midX(), asked.midY()}, 1e-6);
    EXPECT_LE(g.crop.width, asked.width + 1e-9);
    EXPECT_GE(g.crop.width, asked.width * 0.02 - 1e-9);
    if (g.crop.width > asked.width * 0.02 + 1e-6) {
      EXPECT_TRUE(insideRotatedImage(g.crop, g.frame, g.angle)) << "trial " << trial;
    }
  }
}

// The point mappings round-trip, and the pixel transform for the image
// pipeline (bottom-left origin) describes the same motion as the normalised
// point mapping (top-left origin), for every orientation.
TEST(PhotoGeometryTest, MappingsRoundTripAndAgreeForEveryOrientation) {
  for (int turns = 0; turns < 4; ++turns) {
    for (bool flipH : {false, true}) {
      for (bool flipV : {false, true}) {
        SCOPED_TRACE(::testing::Message() << turns << " turns, flips " << flipH << flipV);
        const PhotoGeometry g = geometryFor(turns, flipH, flipV, 7.5, {0.1, 0.2, 0.6, 0.5});
        for (Point p : {Point{0, 0}, {1, 0}, {0, 1}, {1, 1}, {0.25, 0.75}, {0.6, 0.1}}) {
          expectNear(g.frameToSource(g.sourceToFrame(p)), p);
          expectNear(g.sourceToFrame(g.frameToSource(p)), p);
          expectNear(g.viewToSource(g.sourceToView(p)), p, 1e-9);
          expectNear(g.sourceToView(g.viewToSource(p)), p, 1e-9);
        }
        const PhotoGeometry upright = geometryFor(turns, flipH, flipV);
        for (Point p : {Point{0, 0}, {1, 0}, {0.3, 0.8}, {0.9, 0.45}}) {
          const Point moved = upright.orientTransform().apply({p.x * 600, (1 - p.y) * 400});
          expectNear({moved.x / upright.frame.width, 1 - moved.y / upright.frame.height},
                     upright.sourceToFrame(p));
        }
      }
    }
  }
}

TEST(PhotoGeometryTest, QuarterTurnsAreClockwiseAndFlipsComeFirst) {
  // The source's top-left corner, after one clockwise turn, is the top-right.
  expectNear(geometryFor(1, false, false).sourceToFrame({0, 0}), {1, 0});
  expectNear(geometryFor(1, false, false).sourceToFrame({1, 0}), {1, 1});
  expectNear(geometryFor(2, false, false).sourceToFrame({0.25, 0.1}), {0.75, 0.9});
  // Mirrored left-right first, then turned: the top-right corner goes to the top-right.
  expectNear(geometryFor(1, true, false).sourceToFrame({1, 0}), {1, 0});
  expectNear(geometryFor(3, false, true).sourceToFrame({0, 0}), {1, 1});

  // The straighten transform agrees with the view mapping over the whole frame.
  const PhotoGeometry g(EditSettings{.straighten = 9}, {600, 400}, true);
  const Affine t = g.straightenTransform();
  for (Point p : {Point{0.5, 0.5}, {0.1, 0.2}, {0.9, 0.7}}) {
    const Point rotated = t.apply({p.x * 600, (1 - p.y) * 400});
    expectNear({rotated.x / 600, 1 - rotated.y / 400}, g.sourceToView(p), 1e-12);
  }
  expectNear(t.apply({300, 200}), {300, 200});
}

}  // namespace
