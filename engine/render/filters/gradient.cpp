#include "engine/render/filters/gradient.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "engine/render/filters/gradient.cpp"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include "engine/render/simd_loops-inl.h"

HWY_BEFORE_NAMESPACE();
namespace lumivale::filters::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;
using namespace lumivale::simd::HWY_NAMESPACE;

// value0 + clamp(t, 0, 1) (value1 − value0) with t = slope × (x + i + ½) +
// offset for the pixels i of the row.
void LinearRow(float slope, float offset, float value0, float value1, int x, float* out, std::size_t pixels) {
  const hn::ScalableTag<float> d;
  using V = hn::Vec<decltype(d)>;
  const V a = hn::Set(d, slope), b = hn::Set(d, offset), v0 = hn::Set(d, value0);
  const V span = hn::Set(d, value1 - value0), zero = hn::Zero(d), one = hn::Set(d, 1.0f);
  V px = hn::Iota(d, float(x) + 0.5f);
  const V step = hn::Set(d, float(hn::Lanes(d)));
  forEachGroup<0>(d, {}, {}, out, 1, pixels, [&](const std::array<const float*, 0>&, float* o) {
    const V t = hn::Min(hn::Max(hn::MulAdd(a, px, b), zero), one);
    hn::StoreU(hn::MulAdd(t, span, v0), d, o);
    px = hn::Add(px, step);
  });
}

// The elliptical ramp: d = √((sx (x + i + ½ − cx))² + dy²), then value0 up to
// r0, value1 from r1 on (a step at r0 when r1 ≤ r0).
void RadialRow(float sx, float cx, float dy, float r0, float r1, float value0, float value1, int x,
               float* out, std::size_t pixels) {
  const hn::ScalableTag<float> d;
  using V = hn::Vec<decltype(d)>;
  const V scale = hn::Set(d, sx), centre = hn::Set(d, cx), dy2 = hn::Set(d, dy * dy);
  const V inner = hn::Set(d, r0), v0 = hn::Set(d, value0), v1 = hn::Set(d, value1);
  const V zero = hn::Zero(d), one = hn::Set(d, 1.0f);
  const bool step = !(r1 > r0);
  const V invWidth = hn::Set(d, step ? 0.0f : 1 / (r1 - r0)), span = hn::Set(d, value1 - value0);
  V px = hn::Iota(d, float(x) + 0.5f);
  const V advance = hn::Set(d, float(hn::Lanes(d)));
  forEachGroup<0>(d, {}, {}, out, 1, pixels, [&](const std::array<const float*, 0>&, float* o) {
    const V dx = hn::Mul(scale, hn::Sub(px, centre));
    const V dist = hn::Sqrt(hn::MulAdd(dx, dx, dy2));
    V v;
    if (step) {
      v = hn::IfThenElse(hn::Le(dist, inner), v0, v1);
    } else {
      const V t = hn::Min(hn::Max(hn::Mul(hn::Sub(dist, inner), invWidth), zero), one);
      v = hn::MulAdd(t, span, v0);
    }
    hn::StoreU(v, d, o);
    px = hn::Add(px, advance);
  });
}

}  // namespace lumivale::filters::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE

#include <algorithm>

#include "engine/render/kernel.h"

namespace lumivale::filters {

HWY_EXPORT(LinearRow);
HWY_EXPORT(RadialRow);

Image linearGradient(int width, int height, Point p0, double value0, Point p1, double value1) {
  const double dx = p1.x - p0.x, dy = p1.y - p0.y, length2 = dx * dx + dy * dy;
  const float v0 = float(value0), v1 = float(value1);
  return kernel::generate(width, height, 1, [=](const float* const*, float* out, int n, int x, int y) {
    // t = ((p − p0) · (p1 − p0)) / |p1 − p0|², split into a slope along the
    // row and the row's own offset; no length puts every pixel beyond p1.
    const double slope = length2 > 0 ? dx / length2 : 0;
    const double offset = length2 > 0 ? ((y + 0.5 - p0.y) * dy - p0.x * dx) / length2 : 1;
    HWY_DYNAMIC_DISPATCH(LinearRow)(float(slope), float(offset), v0, v1, x, out, std::size_t(n));
  });
}

Image radialGradient(int width, int height, Point centre, double radiusX, double radiusY, double r0,
                     double value0, double r1, double value1) {
  const double sx = 1 / std::max(radiusX, 1e-9), sy = 1 / std::max(radiusY, 1e-9);
  return kernel::generate(width, height, 1, [=](const float* const*, float* out, int n, int x, int y) {
    HWY_DYNAMIC_DISPATCH(RadialRow)
    (float(sx), float(centre.x), float(sy * (y + 0.5 - centre.y)), float(r0), float(r1), float(value0),
     float(value1), x, out, std::size_t(n));
  });
}

}  // namespace lumivale::filters

#endif  // HWY_ONCE
