// The cube lookup runs on every preview, so it is written for speed
// (cube_lookup-inl.h).

#include "engine/render/filters/color_cube.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "engine/render/filters/color_cube.cpp"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include "engine/render/cube_lookup-inl.h"
#include "engine/render/simd_loops-inl.h"

HWY_BEFORE_NAMESPACE();
namespace lumivale::filters::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;
using namespace lumivale::simd::HWY_NAMESPACE;

void CubeRow(const float* in, float* out, std::size_t pixels, const float* cube, int n) {
  const hn::ScalableTag<float> d;
  const std::size_t lanes = hn::Lanes(d);
  HWY_ALIGN float looked[maxLanes * 3 + 1];
  forEachGroup<1>(d, {in}, {3}, out, 3, pixels, [&](const std::array<const float*, 1>& at, float* o) {
    hn::Vec<decltype(d)> r, g, b;
    hn::LoadInterleaved3(d, at[0], r, g, b);
    LookupGroup(d, r, g, b, cube, n, looked);
    std::copy_n(looked, lanes * 3, o);
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
