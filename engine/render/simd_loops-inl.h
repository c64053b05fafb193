// Per-target loop helpers for our Highway kernels: included once for every
// instruction set from a .cpp that includes hwy/foreach_target.h (hence the
// toggling guard below instead of #pragma once).
//
// Kernels load and store whole vectors only. `forEachGroup` hands them
// groups of Lanes(d) pixels and runs the last, partial group on zero-padded
// copies, so no kernel reads or writes past the end of a row.

#if defined(LUMIVALE_RENDER_SIMD_LOOPS_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef LUMIVALE_RENDER_SIMD_LOOPS_INL_H_
#undef LUMIVALE_RENDER_SIMD_LOOPS_INL_H_
#else
#define LUMIVALE_RENDER_SIMD_LOOPS_INL_H_
#endif

#include <hwy/highway.h>

#include <algorithm>
#include <array>
#include <cstddef>

HWY_BEFORE_NAMESPACE();
namespace lumivale::simd::HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

/// The most bands a pixel of a group may have.
inline constexpr std::size_t maxBands = 4;

/// Calls `body(in, out)` for every group of Lanes(d) pixels of `count`:
/// `in[k]` points at input k's first pixel of the group (`inBands[k]` floats
/// per pixel), `out` at the output's (`outBands` floats per pixel).
template <std::size_t kInputs, class D, class Body>
HWY_INLINE void forEachGroup(D d, const std::array<const float*, kInputs>& in,
                             const std::array<int, kInputs>& inBands, float* out, int outBands,
                             std::size_t count, const Body& body) {
  const std::size_t lanes = hn::Lanes(d);
  std::array<const float*, kInputs> at{};
  std::size_t i = 0;
  for (; i + lanes <= count; i += lanes) {
    for (std::size_t k = 0; k < kInputs; ++k) at[k] = in[k] + i * inBands[k];
    body(at, out + i * outBands);
  }
  if (i == count) return;
  const std::size_t rest = count - i;
  constexpr std::size_t size = HWY_MAX_BYTES / sizeof(float) * maxBands;
  HWY_ALIGN float buffers[kInputs + 1][size];
  for (std::size_t k = 0; k < kInputs; ++k) {
    std::fill_n(buffers[k], size, 0.0f);
    std::copy_n(in[k] + i * inBands[k], rest * inBands[k], buffers[k]);
    at[k] = buffers[k];
  }
  body(at, buffers[kInputs]);
  std::copy_n(buffers[kInputs], rest * outBands, out + i * outBands);
}

/// `body(v)` over `count` floats, one vector at a time.
template <class D, class Body>
HWY_INLINE void forEachValue(D d, const float* in, float* out, std::size_t count, const Body& body) {
  forEachGroup<1>(d, {in}, {1}, out, 1, count, [&](const std::array<const float*, 1>& at, float* o) {
    hn::StoreU(body(hn::LoadU(d, at[0])), d, o);
  });
}

/// `body(a, b)` over `count` floats of two inputs, one vector at a time.
template <class D, class Body>
HWY_INLINE void forEachValuePair(D d, const float* a, const float* b, float* out, std::size_t count,
                                 const Body& body) {
  forEachGroup<2>(d, {a, b}, {1, 1}, out, 1, count, [&](const std::array<const float*, 2>& at, float* o) {
    hn::StoreU(body(hn::LoadU(d, at[0]), hn::LoadU(d, at[1])), d, o);
  });
}

/// `body(r, g, b)` in place over `count` RGB pixels, one vector per channel.
template <class D, class Body>
HWY_INLINE void forEachRgb(D d, const float* in, float* out, std::size_t count, const Body& body) {
  forEachGroup<1>(d, {in}, {3}, out, 3, count, [&](const std::array<const float*, 1>& at, float* o) {
    hn::Vec<D> r, g, b;
    hn::LoadInterleaved3(d, at[0], r, g, b);
    body(r, g, b);
    hn::StoreInterleaved3(r, g, b, d, o);
  });
}

}  // namespace lumivale::simd::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // LUMIVALE_RENDER_SIMD_LOOPS_INL_H_
