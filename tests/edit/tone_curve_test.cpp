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
      {{{2, 2}, {1.5, 0.3}}, {{0, 0}, {1, 1}}},
      {{{1, 0.5}, {0, 0.5}}, {{0, 0.5}, {1, 0.5}}},
      {{{0.9999, 0.2}}, {{0, 0}, {0.9999, 0.2}, {1, 1}}},
  };
  for (const auto& [stored, expected] : cases) {
    const ToneCurve curve{stored};
    EXPECT_EQ(curve.cleaned(), expected) << "first point " << (stored.empty() ? -1 : stored[0].x);
  }
}

TEST(ToneCurveTest, CleanedPointsAreAlwaysWellFormed) {
  std::mt19937 random(7);
  std::uniform_real_distribution<double> coordinate(-0.5, 1.5);
  for (int trial = 0; trial < 2000; ++trial) {
    ToneCurve curve{{}};
    const int count = static_cast<int>(random() % 12);
    for (int i = 0; i < count; ++i) curve.points.push_back({coordinate(random), coordinate(random)});
    const Points p = curve.cleaned();
    ASSERT_GE(p.size(), 2u);
    EXPECT_EQ(p.front().x, 0);
    EXPECT_EQ(p.back().x, 1);
    for (std::size_t i = 0; i < p.size(); ++i) {
      EXPECT_TRUE(p[i].y >= 0 && p[i].y <= 1);
      if (i == 0) continue;
      EXPECT_GT(p[i].x, p[i - 1].x);
      // Stored points keep their distance; the anchors added at 0 and 1 may
      // come closer.
      const bool nextToAnAnchor = i == 1 || i + 1 == p.size();
      if (!nextToAnAnchor) {
        EXPECT_GT(p[i].x - p[i - 1].x, 0.0005);
      }
    }
  }
}

TEST(ToneCurveTest, IdentityCurves) {
  const std::pair<Points, bool> cases[] = {
      {{}, true},
      {{{0, 0}, {1, 1}}, true},
      {{{0.25, 0.25}, {0.75, 0.75}}, true},
      {{{-0.3, -0.3}, {2, 2}}, true},
      {{{0.5, 0.5 + 1e-10}}, true},
      {{{0.5, 0.5 + 2e-9}}, false},
      {{{0, 0.2}, {1, 0.8}}, false},
  };
  for (const auto& [points, identity] : cases) {
    const ToneCurve curve{points};
    EXPECT_EQ(curve.isIdentity(), identity);
    const CurveEvaluator e = curve.evaluator();
    EXPECT_EQ(e.isIdentity(), identity);
    if (identity) {
      // The plain identity: no clamping and no curve shape.
      for (double x : {-0.5, 0.0, 0.3, 1.0, 1.7}) EXPECT_EQ(e(x), x);
    }
  }
  EXPECT_TRUE(ToneCurve::identity().isIdentity());
  EXPECT_EQ(ToneCurve{}, ToneCurve::identity());
  EXPECT_EQ(ToneCurve::identity().points, (Points{{0, 0}, {1, 1}}));
}

TEST(ToneCurveTest, EvaluatorCases) {
  struct Case {
    Points points;
    double x;
    double y;
  };
  const Case cases[] = {
      // A straight line: both tangents equal the one secant.
      {{{0, 0.2}, {1, 0.8}}, 0, 0.2},
      {{{0, 0.2}, {1, 0.8}}, 1, 0.8},
      {{{0, 0.2}, {1, 0.8}}, 0.5, 0.5},
      {{{0, 0.2}, {1, 0.8}}, 0.25, 0.35},
      // No extrapolation beyond the ends.
      {{{0, 0.2}, {1, 0.8}}, -3, 0.2},
      {{{0, 0.2}, {1, 0.8}}, 4, 0.8},
      {{{-0.3, 1.4}}, -1, 1},
      {{{-0.3, 1.4}}, 0, 1},
      // A peak has a flat tangent there: symmetric segments meet at 1.
      {{{0, 0}, {0.5, 1}, {1, 0}}, 0.5, 1},
      {{{0, 0}, {0.5, 1}, {1, 0}}, 0.25, 0.625},
      // Points are hit exactly.
      {{{0, 0.09}, {0.25, 0.26}, {0.75, 0.76}, {1, 0.93}}, 0.25, 0.26},
      {{{0, 0.09}, {0.25, 0.26}, {0.75, 0.76}, {1, 0.93}}, 0.75, 0.76},
  };
  for (const Case& c : cases) {
    const ToneCurve curve{c.points};
    EXPECT_NEAR(curve.evaluator()(c.x), c.y, 1e-12) << "x = " << c.x;
  }
}

TEST(ToneCurveTest, StepCurveStaysInRange) {
  const CurveEvaluator e = ToneCurve{{{0, 0}, {0.5, 0}, {0.51, 1}, {1, 1}}}.evaluator();
  for (int i = 0; i <= 10000; ++i) {
    const double y = e(i / 10000.0);
    ASSERT_GE(y, 0.0) << i;
    ASSERT_LE(y, 1.0) << i;
  }
  EXPECT_NEAR(e(0.25), 0, 1e-15);
  EXPECT_NEAR(e(0.75), 1, 1e-15);
}

// Between two neighbouring cleaned points the output never leaves the range
// of their outputs, and it moves in one direction only.
TEST(ToneCurveTest, RandomCurvesNeverOvershootTheirPoints) {
  std::mt19937 random(2024);
  std::uniform_real_distribution<double> unit(-0.1, 1.1);
  for (int trial = 0; trial < 3000; ++trial) {
    ToneCurve curve{{}};
    const int count = 1 + static_cast<int>(random() % 9);
    for (int i = 0; i < count; ++i) curve.points.push_back({unit(random), unit(random)});
    if (trial % 5 == 0) curve.points.push_back({0.5, 0.5});  // repeated levels make flat runs
    if (trial % 5 == 0) curve.points.push_back({0.8, 0.5});
    const Points p = curve.cleaned();
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
        ASSERT_GE(y, low - 1e-12) << "trial " << trial << " segment " << i;
        ASSERT_LE(y, high + 1e-12) << "trial " << trial << " segment " << i;
        if (rising) {
          ASSERT_GE(y, previous - 1e-12);
        } else {
          ASSERT_LE(y, previous + 1e-12);
        }
        previous = y;
      }
    }
  }
}

TEST(ToneCurveTest, NaNInputGivesNaNNotACrash) {
  const CurveEvaluator e = ToneCurve{{{0, 0.1}, {1, 0.9}}}.evaluator();
  EXPECT_TRUE(std::isnan(e(std::numeric_limits<double>::quiet_NaN())));
}

}  // namespace
