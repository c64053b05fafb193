#include "engine/edit/tone_curve.h"

#include <algorithm>
#include <cmath>

namespace lumivale {

namespace {

// Points closer than this in x are treated as one: the earlier one wins.
constexpr double minimumGap = 0.0005;
constexpr double diagonalTolerance = 1e-9;

double unitClamped(double v) {
  if (std::isnan(v)) return 0;
  return std::min(std::max(v, 0.0), 1.0);
}

}  // namespace

const ToneCurve& ToneCurve::identity() {
  static const ToneCurve curve;
  return curve;
}

bool ToneCurve::isIdentity() const {
  return std::all_of(points.begin(), points.end(),
                     [](const CurvePoint& p) { return std::abs(p.x - p.y) < diagonalTolerance; });
}

std::vector<CurvePoint> ToneCurve::cleaned() const {
  std::vector<CurvePoint> sorted;
  sorted.reserve(points.size() + 2);
  for (const CurvePoint& p : points) sorted.push_back({unitClamped(p.x), unitClamped(p.y)});
  std::stable_sort(sorted.begin(), sorted.end(),
                   [](const CurvePoint& a, const CurvePoint& b) { return a.x < b.x; });

  std::vector<CurvePoint> kept;
  kept.reserve(sorted.size() + 2);
  for (const CurvePoint& p : sorted) {
    if (kept.empty() || p.x - kept.back().x > minimumGap) kept.push_back(p);
  }
  if (kept.empty() || kept.front().x > 0) kept.insert(kept.begin(), CurvePoint{0, 0});
  if (kept.back().x < 1) kept.push_back({1, 1});
  return kept;
}

CurveEvaluator ToneCurve::evaluator() const {
  CurveEvaluator e;
  const std::vector<CurvePoint> p = cleaned();
  const std::size_t n = p.size();
  if (n < 2 || isIdentity()) return e;

  std::vector<double> secants(n - 1);
  for (std::size_t i = 0; i + 1 < n; ++i) {
    secants[i] = (p[i + 1].y - p[i].y) / std::max(p[i + 1].x - p[i].x, 1e-9);
  }

  std::vector<double> m(n);
  m[0] = secants[0];
  m[n - 1] = secants[n - 2];
  for (std::size_t i = 1; i + 1 < n; ++i) {
    // A local extremum or a flat side gets a flat tangent.
    m[i] = secants[i - 1] * secants[i] <= 0 ? 0 : (secants[i - 1] + secants[i]) / 2;
  }

  // Fritsch–Carlson limit, left to right, each segment seeing the tangents
  // as the previous one left them: keeps every segment monotone.
  for (std::size_t i = 0; i + 1 < n; ++i) {
    const double d = secants[i];
    if (d == 0) {
      m[i] = 0;
      m[i + 1] = 0;
      continue;
    }
    const double a = m[i] / d;
    const double b = m[i + 1] / d;
    const double s = a * a + b * b;
    if (s > 9) {
      const double tau = 3 / std::sqrt(s);
      m[i] = tau * a * d;
      m[i + 1] = tau * b * d;
    }
  }

  e.xs.resize(n);
  e.ys.resize(n);
  for (std::size_t i = 0; i < n; ++i) {
    e.xs[i] = p[i].x;
    e.ys[i] = p[i].y;
  }
  e.tangents = std::move(m);
  return e;
}

double CurveEvaluator::evaluate(double x) const noexcept {
  const std::size_t n = xs.size();
  if (x <= xs[0]) return ys[0];
  if (x >= xs[n - 1]) return ys[n - 1];
  std::size_t lo = 0, hi = n - 1;
  while (hi - lo > 1) {
    const std::size_t mid = (lo + hi) / 2;
    if (xs[mid] <= x) {
      lo = mid;
    } else {
      hi = mid;
    }
  }
  const double h = xs[hi] - xs[lo];
  const double t = (x - xs[lo]) / h;
  const double t2 = t * t;
  const double t3 = t2 * t;
  return ys[lo] * (2 * t3 - 3 * t2 + 1) + h * (t3 - 2 * t2 + t) * tangents[lo] + ys[hi] * (3 * t2 - 2 * t3) +
         h * (t3 - t2) * tangents[hi];
}

}  // namespace lumivale
