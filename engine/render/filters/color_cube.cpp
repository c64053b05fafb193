// The cube lookup runs on every preview, so it is written for speed: the
// cell and the corner weights of a group of pixels are computed a vector at
// a time, then each pixel blends its cell's eight entries as (R, G, B, A)
// vectors: first over green and blue, at both red neighbours at once, then
// between the two along red.

#include "engine/render/filters/color_cube.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "engine/render/filters/color_cube.cpp"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include "engine/render/simd_loops-inl.h"

HWY_BEFORE_NAMESPACE();
namespace lumivale::filters::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;
using namespace lumivale::simd::HWY_NAMESPACE;

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

void CubeRow(const float* in, float* out, std::size_t pixels, const float* cube, int n) {
  const hn::ScalableTag<float> d;
  const hn::RebindToSigned<decltype(d)> di;
  using V = hn::Vec<decltype(d)>;
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
  const std::size_t lanes = hn::Lanes(d);
  forEachGroup<1>(d, {in}, {3}, out, 3, pixels, [&](const std::array<const float*, 1>& at, float* o) {
    V r, g, b, cr, cg, cb;
    hn::LoadInterleaved3(d, at[0], r, g, b);
    hn::Store(locate(r, cr), d, cells.fr);
    const V tg = locate(g, cg), tb = locate(b, cb), sg = hn::Sub(one, tg), sb = hn::Sub(one, tb);
    hn::Store(hn::Mul(sg, sb), d, cells.w[0]);
    hn::Store(hn::Mul(tg, sb), d, cells.w[1]);
    hn::Store(hn::Mul(sg, tb), d, cells.w[2]);
    hn::Store(hn::Mul(tg, tb), d, cells.w[3]);
    // Exact in float: the index is below n³ ≤ 2²⁴.
    const V index = hn::MulAdd(cb, planeStep, hn::MulAdd(cg, rowStep, cr));
    hn::Store(hn::ShiftLeft<2>(hn::ConvertTo(di, index)), di, cells.base);
    // The fourth float a pixel writes is the next pixel's red, written next.
    for (std::size_t p = 0; p < lanes; ++p) BlendCell(cube, cells, p, g1, b1, o + p * 3, p + 1 < lanes);
  });
}

}  // namespace lumivale::filters::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE

#include <memory>
#include <string>

#include "engine/render/filters/filter_support.h"
#include "engine/render/kernel.h"

namespace lumivale::filters {

HWY_EXPORT(CubeRow);

Image colorCube(const Image& input, const std::vector<float>& cube, int dimension) {
  if (dimension < 2 || dimension > 256 || cube.size() != std::size_t(dimension) * dimension * dimension * 4)
    throw ImageError("a colour cube of dimension " + std::to_string(dimension) + " cannot hold " +
                     std::to_string(cube.size()) + " values");
  // A grey pixel v is the colour (v, v, v); its result is the red channel.
  const Image rgb = detail::colourBands(input, "colour cube") == 3 ? input : detail::greyAsRgb(input);
  auto table = std::make_shared<const std::vector<float>>(cube);
  const Image looked =
      kernel::mapRows({rgb}, 3, [table, dimension](const float* const* in, float* out, int width, int, int) {
        HWY_DYNAMIC_DISPATCH(CubeRow)(in[0], out, std::size_t(width), table->data(), dimension);
      });
  return input.bands() == 3 ? looked : detail::firstBand(looked);
}

}  // namespace lumivale::filters

#endif  // HWY_ONCE
