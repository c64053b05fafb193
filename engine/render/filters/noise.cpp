// Both filters are 3 × 3 window kernels. The median compares floats as
// ordered integers, so that it is exact and places NaN above +∞ (NaN is
// the median only when five or more values of the window are NaN): the
// median of three sorted rows is the median of (the largest row minimum,
// the median of the row medians, the smallest row maximum).

#include "engine/render/filters/noise.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "engine/render/filters/noise.cpp"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include "engine/render/simd_loops-inl.h"

HWY_BEFORE_NAMESPACE();
namespace lumivale::filters::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;
using namespace lumivale::simd::HWY_NAMESPACE;

// The nine window positions as kernel inputs: rows[k] + dx × bands.
std::array<const float*, 9> windowInputs(const float* const* rows, int bands) {
  std::array<const float*, 9> in{};
  for (int k = 0; k < 3; ++k)
    for (int dx = 0; dx < 3; ++dx) in[std::size_t(k * 3 + dx)] = rows[k] + dx * bands;
  return in;
}

void SmoothRow(const float* const* rows, int bands, float level, float sharpness, float* out,
               std::size_t pixels) {
  const hn::ScalableTag<float> d;
  using V = hn::Vec<decltype(d)>;
  const V wr = hn::Set(d, 0.2126f), wg = hn::Set(d, 0.7152f), wb = hn::Set(d, 0.0722f);
  const V limit = hn::Set(d, level), k = hn::Set(d, sharpness), one = hn::Set(d, 1.0f);
  std::array<int, 9> inBands;
  inBands.fill(bands);
  forEachGroup<9>(d, windowInputs(rows, bands), inBands, out, bands, pixels,
                  [&](const std::array<const float*, 9>& at, float* o) {
                    V c[3], sum[3], count = one;
                    const auto load = [&](const float* p, V* v) {
                      if (bands == 1)
                        v[0] = v[1] = v[2] = hn::LoadU(d, p);
                      else
                        hn::LoadInterleaved3(d, p, v[0], v[1], v[2]);
                      return hn::MulAdd(wr, v[0], hn::MulAdd(wg, v[1], hn::Mul(wb, v[2])));
                    };
                    const V y = load(at[4], c);
                    for (int i = 0; i < 3; ++i) sum[i] = c[i];
                    for (int n = 0; n < 9; ++n) {
                      if (n == 4) continue;
                      V v[3];
                      const auto near = hn::Lt(hn::Abs(hn::Sub(load(at[std::size_t(n)], v), y)), limit);
                      for (int i = 0; i < 3; ++i) sum[i] = hn::Add(sum[i], hn::IfThenElseZero(near, v[i]));
                      count = hn::Add(count, hn::IfThenElseZero(near, one));
                    }
                    V s[3];
                    for (int i = 0; i < 3; ++i) {
                      s[i] = hn::Div(sum[i], count);
                      s[i] = hn::MulAdd(k, hn::Sub(c[i], s[i]), s[i]);
                    }
                    if (bands == 1)
                      hn::StoreU(s[0], d, o);
                    else
                      hn::StoreInterleaved3(s[0], s[1], s[2], d, o);
                  });
}

void MedianRow(const float* const* rows, int bands, float* out, std::size_t values) {
  const hn::ScalableTag<float> d;
  const hn::RebindToSigned<decltype(d)> di;
  using VI = hn::Vec<decltype(di)>;
  const VI nan = hn::Set(di, 0x7FC00000), magnitude = hn::Set(di, 0x7FFFFFFF);
  // Order-preserving: negative floats get their magnitude bits flipped. The
  // mapping is its own inverse.
  const auto ordered = [&](VI bits) { return hn::Xor(bits, hn::And(hn::ShiftRight<31>(bits), magnitude)); };
  const auto key = [&](const float* p) {
    const auto v = hn::LoadU(d, p);
    return ordered(hn::IfThenElse(hn::RebindMask(di, hn::IsNaN(v)), nan, hn::BitCast(di, v)));
  };
  const auto median3 = [](VI a, VI b, VI c) { return hn::Max(hn::Min(a, b), hn::Min(hn::Max(a, b), c)); };
  std::array<int, 9> inBands;
  inBands.fill(1);
  forEachGroup<9>(d, windowInputs(rows, bands), inBands, out, 1, values,
                  [&](const std::array<const float*, 9>& at, float* o) {
                    VI lows[3], mids[3], highs[3];
                    for (int k = 0; k < 3; ++k) {
                      const VI a = key(at[std::size_t(k * 3)]), b = key(at[std::size_t(k * 3 + 1)]);
                      const VI c = key(at[std::size_t(k * 3 + 2)]);
                      const VI lo = hn::Min(a, b), hi = hn::Max(a, b);
                      lows[k] = hn::Min(lo, c);
                      highs[k] = hn::Max(hi, c);
                      mids[k] = hn::Max(lo, hn::Min(hi, c));
                    }
                    const VI lowest = hn::Max(hn::Max(lows[0], lows[1]), lows[2]);
                    const VI highest = hn::Min(hn::Min(highs[0], highs[1]), highs[2]);
                    const VI m = median3(lowest, median3(mids[0], mids[1], mids[2]), highest);
                    hn::StoreU(hn::BitCast(d, ordered(m)), d, o);
                  });
}

}  // namespace lumivale::filters::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE

#include "engine/render/filters/filter_support.h"
#include "engine/render/kernel.h"

namespace lumivale::filters {

HWY_EXPORT(SmoothRow);
HWY_EXPORT(MedianRow);

Image noiseReduction(const Image& input, double noiseLevel, double sharpness) {
  const int bands = detail::colourBands(input, "noise reduction");
  if (!(noiseLevel > 0)) return input;
  const float level = float(noiseLevel), k = float(sharpness);
  return kernel::mapWindow(input, 1, bands, [=](const float* const* rows, float* out, int width, int, int) {
    HWY_DYNAMIC_DISPATCH(SmoothRow)(rows, bands, level, k, out, std::size_t(width));
  });
}

Image medianFilter(const Image& input) {
  if (input.empty()) throw ImageError("median: an image was missing in the render chain");
  const int bands = input.bands();
  return kernel::mapWindow(input, 1, bands, [=](const float* const* rows, float* out, int width, int, int) {
    HWY_DYNAMIC_DISPATCH(MedianRow)(rows, bands, out, std::size_t(width) * bands);
  });
}

}  // namespace lumivale::filters

#endif  // HWY_ONCE
