#include "engine/render/filters/point.h"

#include <cmath>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "engine/render/filters/point.cpp"
// The vector maths must follow the target's own headers.
// clang-format off
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>
#include <hwy/contrib/math/math-inl.h>
// clang-format on

#include "engine/render/simd_loops-inl.h"

HWY_BEFORE_NAMESPACE();
namespace lumivale::filters::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;
using namespace lumivale::simd::HWY_NAMESPACE;

// `m` holds three rows of (weight r, weight g, weight b, constant).
void MatrixRow(const float* in, float* out, std::size_t pixels, const float* m) {
  const hn::ScalableTag<float> d;
  using V = hn::Vec<decltype(d)>;
  V w[12];
  for (int i = 0; i < 12; ++i) w[i] = hn::Set(d, m[i]);
  forEachRgb(d, in, out, pixels, [&](V& r, V& g, V& b) {
    const V nr = hn::MulAdd(w[0], r, hn::MulAdd(w[1], g, hn::MulAdd(w[2], b, w[3])));
    const V ng = hn::MulAdd(w[4], r, hn::MulAdd(w[5], g, hn::MulAdd(w[6], b, w[7])));
    const V nb = hn::MulAdd(w[8], r, hn::MulAdd(w[9], g, hn::MulAdd(w[10], b, w[11])));
    r = nr, g = ng, b = nb;
  });
}

// Limits to [lo, hi], NaN counting as −∞; lo above hi gives hi.
template <class D, class V>
HWY_INLINE V ClampValue(D, V v, V lo, V hi) {
  return hn::Min(hn::Max(hn::IfThenElse(hn::IsNaN(v), lo, v), lo), hi);
}

// `bounds` holds the minimum and maximum of each of the `bands` bands.
void ClampRow(const float* in, float* out, std::size_t pixels, int bands, const float* bounds) {
  const hn::ScalableTag<float> d;
  using V = hn::Vec<decltype(d)>;
  if (bands == 1) {
    const V lo = hn::Set(d, bounds[0]), hi = hn::Set(d, bounds[1]);
    forEachValue(d, in, out, pixels, [&](V v) { return ClampValue(d, v, lo, hi); });
    return;
  }
  const V rlo = hn::Set(d, bounds[0]), rhi = hn::Set(d, bounds[1]);
  const V glo = hn::Set(d, bounds[2]), ghi = hn::Set(d, bounds[3]);
  const V blo = hn::Set(d, bounds[4]), bhi = hn::Set(d, bounds[5]);
  forEachRgb(d, in, out, pixels, [&](V& r, V& g, V& b) {
    r = ClampValue(d, r, rlo, rhi);
    g = ClampValue(d, g, glo, ghi);
    b = ClampValue(d, b, blo, bhi);
  });
}

// sign(v) |v|^power through exp(power log |v|); zero, infinity and NaN, which
// the logarithm does not take, are settled apart.
void GammaRow(const float* in, float* out, std::size_t values, float power) {
  const hn::ScalableTag<float> d;
  using V = hn::Vec<decltype(d)>;
  const V p = hn::Set(d, power), zero = hn::Zero(d), inf = hn::Set(d, HUGE_VALF);
  const V largest = hn::Set(d, 88.72f);  // exp of more overflows float
  const V atInfinity = hn::Set(d, power > 0 ? HUGE_VALF : power == 0 ? 1.0f : 0.0f);
  forEachValue(d, in, out, values, [&](V v) {
    const V a = hn::Abs(v);
    const V e = hn::Mul(p, hn::Log(d, hn::IfThenElse(hn::Eq(a, zero), hn::Set(d, 1.0f), a)));
    V r = hn::IfThenElse(hn::Gt(e, largest), inf, hn::Exp(d, hn::Min(e, largest)));
    r = hn::IfThenElse(hn::Eq(a, inf), atInfinity, r);
    r = hn::IfThenZeroElse(hn::Eq(a, zero), r);
    return hn::IfThenElse(hn::IsNaN(v), v, hn::CopySign(r, v));
  });
}

}  // namespace lumivale::filters::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE

#include "engine/media/vips_glue.h"
#include "engine/render/filters/filter_support.h"
#include "engine/render/kernel.h"

namespace lumivale::filters {

HWY_EXPORT(MatrixRow);
HWY_EXPORT(ClampRow);
HWY_EXPORT(GammaRow);

namespace {

// v × factor + offset on every band, as one libvips operation.
Image linear(const Image& input, double factor, double offset) {
  return withVips("cannot adjust the image", [&] {
    vips::VImage v = vipsImage(input);
    if (v.format() != VIPS_FORMAT_FLOAT) v = v.cast(VIPS_FORMAT_FLOAT);
    return fromVips(v.linear(factor, offset));
  });
}

}  // namespace

ColorMatrix ColorMatrix::scale(double s) {
  ColorMatrix m;
  m.r[0] = m.g[1] = m.b[2] = s;
  return m;
}

Image exposureAdjust(const Image& input, double ev) {
  detail::colourBands(input, "exposure");
  return ev == 0 ? input : linear(input, std::exp2(ev), 0);
}

Image colorMatrix(const Image& input, const ColorMatrix& m) {
  if (detail::colourBands(input, "colour matrix") == 1)
    return linear(input, m.r[0] + m.r[1] + m.r[2], m.r[3] + m.bias[0]);
  std::array<float, 12> w{};
  const std::array<const std::array<double, 4>*, 3> rows{&m.r, &m.g, &m.b};
  for (int c = 0; c < 3; ++c) {
    for (int k = 0; k < 3; ++k) w[c * 4 + k] = float((*rows[c])[k]);
    w[c * 4 + 3] = float((*rows[c])[3] + m.bias[c]);  // alpha is 1
  }
  return kernel::mapRows({input}, 3, [w](const float* const* in, float* out, int width, int, int) {
    HWY_DYNAMIC_DISPATCH(MatrixRow)(in[0], out, std::size_t(width), w.data());
  });
}

Image colorClamp(const Image& input, const std::array<double, 4>& minimum,
                 const std::array<double, 4>& maximum) {
  const int bands = detail::colourBands(input, "colour clamp");
  std::array<float, 6> bounds{};
  for (int c = 0; c < 3; ++c) bounds[c * 2] = float(minimum[c]), bounds[c * 2 + 1] = float(maximum[c]);
  return kernel::mapRows({input}, bands, [=](const float* const* in, float* out, int width, int, int) {
    HWY_DYNAMIC_DISPATCH(ClampRow)(in[0], out, std::size_t(width), bands, bounds.data());
  });
}

Image gammaAdjust(const Image& input, double power) {
  const int bands = detail::colourBands(input, "gamma");
  if (power == 1) return input;
  const float p = float(power);
  return kernel::mapRows({input}, bands, [=](const float* const* in, float* out, int width, int, int) {
    HWY_DYNAMIC_DISPATCH(GammaRow)(in[0], out, std::size_t(width) * bands, p);
  });
}

Image colorInvert(const Image& input) {
  detail::colourBands(input, "colour invert");
  return linear(input, -1, 1);
}

}  // namespace lumivale::filters

#endif  // HWY_ONCE
