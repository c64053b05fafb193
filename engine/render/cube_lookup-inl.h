// The trilinear lookup of a group of colours in a tone cube, shared by the
// colour cube filter and the fused tone pass: included once for every
// instruction set from a .cpp that includes hwy/foreach_target.h (hence the
// toggling guard instead of #pragma once).
//
// The cell and the corner weights of a group of pixels are computed a
// vector at a time, then each pixel blends its cell's eight entries as
// (R, G, B, A) vectors: first over green and blue, at both red neighbours at
// once, then between the two along red.

#if defined(LUMIVALE_RENDER_CUBE_LOOKUP_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef LUMIVALE_RENDER_CUBE_LOOKUP_INL_H_
#undef LUMIVALE_RENDER_CUBE_LOOKUP_INL_H_
#else
#define LUMIVALE_RENDER_CUBE_LOOKUP_INL_H_
#endif

#include <hwy/highway.h>

#include <cstddef>
#include <cstdint>

HWY_BEFORE_NAMESPACE();
namespace lumivale::simd::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

constexpr std::size_t maxLanes = HWY_MAX_BYTES / sizeof(float);

// Where a group of pixels lies in the cube: the offset of each pixel's cell
// (its first entry, in floats), the fraction along red, and the weights of
// the cell's four (green, blue) corners: (1 − g)(1 − b), g (1 − b),
// (1 − g) b and g b.
struct Cells {
  HWY_ALIGN std::int32_t base[maxLanes];
  HWY_ALIGN float fr[maxLanes];
  HWY_ALIGN float w[4][maxLanes];
};

// Blends the eight corners of pixel p's cell into o[0 … 2]; `spare` says
// o[3] may be written too. The two red neighbours of a (green, blue) corner
// are adjacent entries, so where 8-float vectors exist one load holds both.
#if HWY_TARGET == HWY_SCALAR
HWY_INLINE void BlendCell(const float* cube, const Cells& cells, std::size_t p, std::size_t g1,
                          std::size_t b1, float* o, bool) {
  const float* c = cube + cells.base[p];
  const std::size_t corner[4] = {0, g1, b1, b1 + g1};
  for (int ch = 0; ch < 3; ++ch) {
    float lo = 0, hi = 0;
    for (int k = 0; k < 4; ++k)
      lo += cells.w[k][p] * c[corner[k] + ch], hi += cells.w[k][p] * c[corner[k] + 4 + ch];
    o[ch] = lo + cells.fr[p] * (hi - lo);
  }
}
#else
HWY_INLINE void BlendCell(const float* cube, const Cells& cells, std::size_t p, std::size_t g1,
                          std::size_t b1, float* o, bool spare) {
  const hn::FixedTag<float, 4> d4;
  const float* c = cube + cells.base[p];
#if HWY_CAP_GE256
  const hn::FixedTag<float, 8> d8;
  auto pair = hn::Mul(hn::LoadU(d8, c), hn::Set(d8, cells.w[0][p]));
  pair = hn::MulAdd(hn::LoadU(d8, c + g1), hn::Set(d8, cells.w[1][p]), pair);
  pair = hn::MulAdd(hn::LoadU(d8, c + b1), hn::Set(d8, cells.w[2][p]), pair);
  pair = hn::MulAdd(hn::LoadU(d8, c + b1 + g1), hn::Set(d8, cells.w[3][p]), pair);
  const auto lo = hn::LowerHalf(d4, pair), hi = hn::UpperHalf(d4, pair);
#else
  const auto corner = [&](std::size_t offset, int k, auto sum) {
    return hn::MulAdd(hn::LoadU(d4, c + offset), hn::Set(d4, cells.w[k][p]), sum);
  };
  auto lo = hn::Mul(hn::LoadU(d4, c), hn::Set(d4, cells.w[0][p]));
  auto hi = hn::Mul(hn::LoadU(d4, c + 4), hn::Set(d4, cells.w[0][p]));
  lo = corner(b1 + g1, 3, corner(b1, 2, corner(g1, 1, lo)));
  hi = corner(b1 + g1 + 4, 3, corner(b1 + 4, 2, corner(g1 + 4, 1, hi)));
#endif
  const auto result = hn::MulAdd(hn::Set(d4, cells.fr[p]), hn::Sub(hi, lo), lo);
  if (spare) return hn::StoreU(result, d4, o);
  HWY_ALIGN float rgba[4];
  hn::Store(result, d4, rgba);
  o[0] = rgba[0], o[1] = rgba[1], o[2] = rgba[2];
}
#endif

/// Looks up the colours (r, g, b), each clamped to 0 … 1 (NaN as 0), in the
/// cube of `n`³ RGBA entries (red fastest), writing Lanes(d) RGB results to
/// `out`, which must have room for one float more.
template <class D>
HWY_INLINE void LookupGroup(D d, hn::Vec<D> r, hn::Vec<D> g, hn::Vec<D> b, const float* cube, int n, float* out) {
  const hn::RebindToSigned<D> di;
  using V = hn::Vec<D>;
  Cells cells;
  const V zero = hn::Zero(d), one = hn::Set(d, 1.0f);
  const V last = hn::Set(d, float(n - 1)), lastCell = hn::Set(d, float(n - 2));
  const V rowStep = hn::Set(d, float(n)), planeStep = hn::Set(d, float(n) * float(n));
  // Offsets of the corners from the cell's first entry, in floats.
  const std::size_t g1 = std::size_t(n) * 4, b1 = std::size_t(n) * n * 4;
  // Position of a channel in the cube: its cell and the fraction beyond it.
  const auto locate = [&](V v, V& cell) {
    v = hn::Min(hn::Max(hn::IfThenZeroElse(hn::IsNaN(v), v), zero), one);
    const V x = hn::Mul(v, last);
    cell = hn::Min(hn::Floor(x), lastCell);
    return hn::Sub(x, cell);
  };
  V cr, cg, cb;
  hn::Store(locate(r, cr), d, cells.fr);
  const V tg = locate(g, cg), tb = locate(b, cb), sg = hn::Sub(one, tg), sb = hn::Sub(one, tb);
  hn::Store(hn::Mul(sg, sb), d, cells.w[0]);
  hn::Store(hn::Mul(tg, sb), d, cells.w[1]);
  hn::Store(hn::Mul(sg, tb), d, cells.w[2]);
  hn::Store(hn::Mul(tg, tb), d, cells.w[3]);
  // Exact in float: the index is below n³ ≤ 2²⁴.
  const V index = hn::MulAdd(cb, planeStep, hn::MulAdd(cg, rowStep, cr));
  hn::Store(hn::ShiftLeft<2>(hn::ConvertTo(di, index)), di, cells.base);
  // The fourth float a pixel writes is the next pixel's red, written next
  // (or the spare float after the last).
  const std::size_t lanes = hn::Lanes(d);
  for (std::size_t p = 0; p < lanes; ++p) BlendCell(cube, cells, p, g1, b1, out + p * 3, true);
}

}  // namespace lumivale::simd::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // LUMIVALE_RENDER_CUBE_LOOKUP_INL_H_
