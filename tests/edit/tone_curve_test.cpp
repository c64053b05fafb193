#include "engine/edit/tone_curve.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>

using namespace lumivale;

namespace {

using Points = std::vector<CurvePoint>;

TEST(ToneCurveTest, CleaningCases) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const std::pair<Points, Points> cases[] = {
      {{}, {{0, 0}, {1, 1}}},
      {{{0.5, 0.7}, {0.5002, 0.1}}, {{0, 0}, {0.5, 0.7}, {1, 1}}},
      {{{0.8, 0.9}, {0.2, 0.1}}, {{0, 0}, {0.2, 0.1}, {0.8, 0.9}, {1, 1}}},
      {{{-0.3, 1.4}}, {{0, 1}, {1, 1}}},
      {{{0, 0.2}, {1, 0.8}}, {{0, 0.2}, {1, 0.8}}},
      {{{nan, 0.5}, {0.5, nan}}, {{0, 0.5}, {0.5, 0}, {1, 1}}},
      // Equal x keep their stored order, so the first stored one wins.
      {{{0.4, 0.9}, {0.4, 0.1}, {0.4, 0.5}}, {{0, 0}, {0.4, 0.9}, {1, 1}}},
      // Within 0.0005 of the last kept point is too close, even after a dropped one.
      {{{0.5, 0.5}, {0.5004, 0.6}, {0.5006, 0.7}, {0.5009, 0.8}},
       {{0, 0}, {0.5, 0.5}, {0.5006, 0.7}, {1, 1}}},
      // A crowded run keeps every point more than 0.0005 past the last kept one.
      {{{0.1, 0.1}, {0.1004, 0.2}, {0.1008, 0.3}}, {{0, 0}, {0.1, 0.1}, {0.1008, 0.3}, {1, 1}}},
      // The gap is the difference of the two x: 0.2005 − 0.2 is a hair above
      // 0.0005 in doubles, so that point stays.
      {{{0.2, 0.3}, {0.2005, 0.9}}, {{0, 0}, {0.2, 0.3}, {0.2005, 0.9}, {1, 1}}},
      {{{2, 2}, {1.5, 0.3}}, {{0, 0}, {1, 1}}},
      {{{1, 0.5}, {0, 0.5}}, {{0, 0.5}, {1, 0.5}}},
      {{{0.9999, 0.2}}, {{0, 0}, {0.9999, 0.2}, {1, 1}}},
  };
  for (const auto& [stored, expected] : cases) {
    const ToneCurve curve{stored};
    EXPECT_EQ(curve.cleaned(), expected) << "first point " << (stored.empty() ? -1 : stored[0].x);
  }
}

TEST(ToneCurveTest, IdentityCurves) {
  using C = std::pair<Points, bool>;
  for (const auto& [points, identity] :
       {C{{}, true}, C{{{0, 0}, {1, 1}}, true}, C{{{0.25, 0.25}, {0.75, 0.75}}, true},
        C{{{-0.3, -0.3}, {2, 2}}, true}, C{{{0.5, 0.5 + 1e-10}}, true}, C{{{0.5, 0.5 + 2e-9}}, false},
        C{{{0, 0.2}, {1, 0.8}}, false}}) {
    const ToneCurve curve{points};
    EXPECT_EQ(curve.isIdentity(), identity);
    const CurveEvaluator e = curve.evaluator();
    EXPECT_EQ(e.isIdentity(), identity);
    // The plain identity: no clamping and no curve shape.
    for (double x : {-0.5, 0.0, 0.3, 1.0, 1.7}) EXPECT_TRUE(!identity || e(x) == x) << x;
  }
  EXPECT_TRUE(ToneCurve::identity().isIdentity());
  EXPECT_EQ(ToneCurve{}, ToneCurve::identity());
  EXPECT_EQ(ToneCurve::identity().points, (Points{{0, 0}, {1, 1}}));
}

TEST(ToneCurveTest, EvaluatorCases) {
  const Points line{{0, 0.2}, {1, 0.8}}, peak{{0, 0}, {0.5, 1}, {1, 0}},
      shaped{{0, 0.09}, {0.25, 0.26}, {0.75, 0.76}, {1, 0.93}};
  using C = std::tuple<Points, double, double>;
  // A straight line: both tangents equal the one secant; no extrapolation
  // beyond the ends. A peak has a flat tangent there: symmetric segments
  // meet at 1. Points are hit exactly.
  for (const auto& [points, x, y] :
       {C{line, 0, 0.2}, C{line, 1, 0.8}, C{line, 0.5, 0.5}, C{line, 0.25, 0.35}, C{line, -3, 0.2},
        C{line, 4, 0.8}, C{{{-0.3, 1.4}}, -1, 1}, C{{{-0.3, 1.4}}, 0, 1}, C{peak, 0.5, 1},
        C{peak, 0.25, 0.625}, C{shaped, 0.25, 0.26}, C{shaped, 0.75, 0.76}})
    EXPECT_NEAR(ToneCurve{points}.evaluator()(x), y, 1e-12) << "x = " << x;
  EXPECT_TRUE(std::isnan(ToneCurve{line}.evaluator()(std::numeric_limits<double>::quiet_NaN())));

  // A step stays in range.
  const CurveEvaluator step = ToneCurve{{{0, 0}, {0.5, 0}, {0.51, 1}, {1, 1}}}.evaluator();
  for (int i = 0; i <= 10000; ++i) ASSERT_TRUE(step(i / 10000.0) >= 0 && step(i / 10000.0) <= 1) << i;
  EXPECT_NEAR(step(0.25), 0, 1e-15);
  EXPECT_NEAR(step(0.75), 1, 1e-15);
}

// Random curves, points out of range and crowded ones too: the cleaned
// points are well formed, and between two of them the output never leaves
// the range of their outputs and moves in one direction only.
TEST(ToneCurveTest, RandomCurvesCleanWellAndNeverOvershootTheirPoints) {
  std::mt19937 random(2024);
  std::uniform_real_distribution<double> unit(-0.5, 1.5);
  for (int trial = 0; trial < 3000; ++trial) {
    ToneCurve curve{{}};
    const int count = static_cast<int>(random() % 12);
    for (int i = 0; i < count; ++i) curve.points.push_back({unit(random), unit(random)});
    if (trial % 5 == 0) curve.points.push_back({0.5, 0.5});  // repeated levels make flat runs
    if (trial % 5 == 0) curve.points.push_back({0.8, 0.5});
    const Points p = curve.cleaned();
    ASSERT_GE(p.size(), 2u);
    EXPECT_TRUE(p.front().x == 0 && p.back().x == 1 && p.front().y >= 0 && p.front().y <= 1);
    for (std::size_t i = 1; i < p.size(); ++i) {
      EXPECT_TRUE(p[i].y >= 0 && p[i].y <= 1 && p[i].x > p[i - 1].x);
      // Stored points keep their distance; the anchors added at 0 and 1 may
      // come closer.
      const bool nextToAnAnchor = i == 1 || i + 1 == p.size();
      EXPECT_TRUE(nextToAnAnchor || p[i].x - p[i - 1].x > 0.0005) << p[i].x - p[i - 1].x;
    }
    const CurveEvaluator e = curve.evaluator();
    if (e.isIdentity()) continue;
    for (std::size_t i = 0; i + 1 < p.size(); ++i) {
      const double low = std::min(p[i].y, p[i + 1].y);
      const double high = std::max(p[i].y, p[i + 1].y);
      const bool rising = p[i + 1].y >= p[i].y;
      double previous = p[i].y;
      for (int k = 0; k <= 32; ++k) {
        const double x = p[i].x + (p[i + 1].x - p[i].x) * k / 32.0;
        const double y = e(x);
        ASSERT_TRUE(y >= low - 1e-12 && y <= high + 1e-12) << "trial " << trial << " segment " << i;
        ASSERT_TRUE(rising ? y >= previous - 1e-12 : y <= previous + 1e-12)
            << "trial " << trial << " segment " << i;
        previous = y;
      }
    }
  }
}

}  // namespace
