#pragma once
// Tone curves: control points as the user placed them, and the monotone
// cubic evaluator that the tone look-up tables sample.
//
// Points are stored exactly as placed (unsorted, possibly out of range or
// crowded together) and only cleaned when an evaluator is built. The
// evaluator interpolates with Fritsch–Carlson tangents, so between two
// neighbouring points the output never leaves the range of their outputs.

#include <cstddef>
#include <functional>
#include <vector>

#include "engine/edit/value_hash.h"

namespace lumivale {

/// One control point; both coordinates are meant to lie in 0 … 1.
struct CurvePoint {
  double x = 0;  ///< input level
  double y = 0;  ///< output level
  bool operator==(const CurvePoint&) const = default;
};

class CurveEvaluator;

struct ToneCurve {
  /// Points in stored order. A default curve is the identity, (0, 0) and (1, 1).
  std::vector<CurvePoint> points{{0, 0}, {1, 1}};

  /// The shared identity curve.
  static const ToneCurve& identity();

  /// True when every stored point lies on the diagonal within 1e-9; a curve
  /// without points is an identity too.
  bool isIdentity() const;

  /// The well-formed point list: coordinates clamped to 0 … 1 (NaN as 0),
  /// stably sorted by x, points within 0.0005 of the previous kept one
  /// dropped, anchored at x = 0 with (0, 0) and at x = 1 with (1, 1) where no
  /// point is there. At least two points with strictly increasing x.
  std::vector<CurvePoint> cleaned() const;

  /// An evaluator built from the cleaned points (a plain identity for an
  /// identity curve).
  CurveEvaluator evaluator() const;

  bool operator==(const ToneCurve&) const = default;
};

/// A built curve: maps an input level to an output level. Immutable once
/// built, so one evaluator may be called from many threads at once; a call
/// allocates nothing.
class CurveEvaluator {
 public:
  /// The identity function.
  CurveEvaluator() = default;

  /// Output for input `x`: the end points' outputs outside the curve's range
  /// (no extrapolation), the monotone cubic between points. An identity
  /// evaluator returns `x` itself, unclamped. NaN gives NaN.
  double operator()(double x) const noexcept {
    if (xs.empty()) return x;
    return evaluate(x);
  }

  bool isIdentity() const { return xs.empty(); }

 private:
  friend struct ToneCurve;
  double evaluate(double x) const noexcept;

  std::vector<double> xs, ys, tangents;
};

void hashInto(Hasher& h, const CurvePoint& p);
void hashInto(Hasher& h, const ToneCurve& c);

}  // namespace lumivale

template <>
struct std::hash<lumivale::ToneCurve> {
  std::size_t operator()(const lumivale::ToneCurve& c) const noexcept {
    lumivale::Hasher h;
    hashInto(h, c);
    return h.value();
  }
};
