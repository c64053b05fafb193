#include "engine/render/raw/raw_kernels.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "engine/render/raw/raw_kernels.cpp"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include "engine/render/simd_loops-inl.h"
#include "hwy/contrib/math/math-inl.h"

HWY_BEFORE_NAMESPACE();
namespace lumivale::raw_kernels::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;
namespace simd = lumivale::simd::HWY_NAMESPACE;

template <class D, class V = hn::Vec<D>>
HWY_INLINE V Luminance(D d, V r, V g, V b) {
  return hn::MulAdd(hn::Set(d, 0.0722f), b,
                    hn::MulAdd(hn::Set(d, 0.7152f), g, hn::Mul(hn::Set(d, 0.2126f), r)));
}

template <class D, class V = hn::Vec<D>>
HWY_INLINE void Look(D d, const LookCurve& curve, V& r, V& g, V& b) {
  const V zero = hn::Zero(d), one = hn::Set(d, 1.0f);
  const V x = hn::Mul(hn::Set(d, curve.gain), Luminance(d, r, g, b));
  const auto lit = hn::Gt(x, zero);
  // x^c through the logarithm, of a positive stand-in where x is not.
  const V safe = hn::IfThenElse(lit, x, one);
  const V p = hn::Exp(d, hn::Mul(hn::Set(d, curve.c), hn::Log(d, safe)));
  const V y =
      hn::IfThenElseZero(lit, hn::Div(hn::Mul(hn::Set(d, curve.s), p), hn::Add(p, hn::Set(d, curve.k))));
  const V ratio = hn::IfThenElseZero(lit, hn::Mul(hn::Set(d, curve.gain), hn::Div(y, safe)));
  r = hn::Mul(r, ratio);
  g = hn::Mul(g, ratio);
  b = hn::Mul(b, ratio);
  // Towards grey at constant luminance until the largest channel fits.
  const V high = hn::Max(r, hn::Max(g, b));
  const auto over = hn::And(hn::Gt(high, one), hn::Lt(y, one));
  if (hn::AllFalse(d, over)) return;
  const V t = hn::Div(hn::Sub(one, y), hn::Max(hn::Sub(high, y), hn::Set(d, 1e-12f)));
  r = hn::IfThenElse(over, hn::MulAdd(hn::Sub(r, y), t, y), r);
  g = hn::IfThenElse(over, hn::MulAdd(hn::Sub(g, y), t, y), g);
  b = hn::IfThenElse(over, hn::MulAdd(hn::Sub(b, y), t, y), b);
}

void LookRow(const LookCurve& curve, float* rgb, int width) {
  const hn::ScalableTag<float> d;
  simd::forEachRgb(d, rgb, rgb, std::size_t(width),
                   [&](hn::Vec<decltype(d)>& r, hn::Vec<decltype(d)>& g, hn::Vec<decltype(d)>& b) {
                     Look(d, curve, r, g, b);
                   });
}

template <class D, class V = hn::Vec<D>>
HWY_INLINE V Root(D d, V v) {
  return hn::CopySign(hn::Sqrt(hn::Abs(v)), v);
}

template <class D, class V = hn::Vec<D>>
HWY_INLINE V Unroot(D, V v) {
  return hn::Mul(v, hn::Abs(v));
}

void CombineRow(const float* rgb, const float* ab, const float* chroma, float* out, int width) {
  const hn::ScalableTag<float> d;
  using V = hn::Vec<decltype(d)>;
  // Absent inputs read as the input itself; their values go unused.
  const std::array<const float*, 3> in{rgb, ab ? ab : rgb, chroma ? chroma : rgb};
  const std::array<int, 3> bands{3, ab ? 2 : 3, 3};
  simd::forEachGroup<3>(
      d, in, bands, out, 3, std::size_t(width), [&](const std::array<const float*, 3>& at, float* o) {
        V r, g, b;
        hn::LoadInterleaved3(d, at[0], r, g, b);
        r = Root(d, r);
        g = Root(d, g);
        b = Root(d, b);
        const V l = Luminance(d, r, g, b);
        V smoothed = l;
        if (ab) {
          V a, offset;
          hn::LoadInterleaved2(d, at[1], a, offset);
          smoothed = hn::MulAdd(a, l, offset);
        }
        if (chroma) {
          hn::LoadInterleaved3(d, at[2], r, g, b);
        } else {
          r = hn::Sub(r, l);
          g = hn::Sub(g, l);
          b = hn::Sub(b, l);
        }
        hn::StoreInterleaved3(Unroot(d, hn::Add(smoothed, r)), Unroot(d, hn::Add(smoothed, g)),
                              Unroot(d, hn::Add(smoothed, b)), d, o);
      });
}

}  // namespace lumivale::raw_kernels::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace lumivale::raw_kernels {

HWY_EXPORT(LookRow);
HWY_EXPORT(CombineRow);

void lookRow(const LookCurve& curve, float* rgb, int width) {
  HWY_DYNAMIC_DISPATCH(LookRow)(curve, rgb, width);
}

void combineRow(const float* rgb, const float* ab, const float* chroma, float* out, int width) {
  HWY_DYNAMIC_DISPATCH(CombineRow)(rgb, ab, chroma, out, width);
}

}  // namespace lumivale::raw_kernels
#endif  // HWY_ONCE
