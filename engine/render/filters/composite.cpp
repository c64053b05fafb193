#include "engine/render/filters/composite.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "engine/render/filters/composite.cpp"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include "engine/render/simd_loops-inl.h"

HWY_BEFORE_NAMESPACE();
namespace lumivale::filters::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;
using namespace lumivale::simd::HWY_NAMESPACE;

// input × m + background × (1 − m), m the first of the mask's `maskBands`;
// `bands` is 1 or 3 for input and background alike.
void BlendRow(const float* input, const float* background, const float* mask, int bands, int maskBands,
              float* out, std::size_t pixels) {
  const hn::ScalableTag<float> d;
  using V = hn::Vec<decltype(d)>;
  const V one = hn::Set(d, 1.0f);
  const auto mix = [&](V a, V b, V m) { return hn::MulAdd(a, m, hn::Mul(b, hn::Sub(one, m))); };
  const auto first = [&](const float* p) {
    if (maskBands == 1) return hn::LoadU(d, p);
    V m, unused1, unused2;
    hn::LoadInterleaved3(d, p, m, unused1, unused2);
    return m;
  };
  forEachGroup<3>(d, {input, background, mask}, {bands, bands, maskBands}, out, bands, pixels,
                  [&](const std::array<const float*, 3>& at, float* o) {
                    const V m = first(at[2]);
                    if (bands == 1) return hn::StoreU(mix(hn::LoadU(d, at[0]), hn::LoadU(d, at[1]), m), d, o);
                    V r, g, b, br, bg, bb;
                    hn::LoadInterleaved3(d, at[0], r, g, b);
                    hn::LoadInterleaved3(d, at[1], br, bg, bb);
                    hn::StoreInterleaved3(mix(r, br, m), mix(g, bg, m), mix(b, bb, m), d, o);
                  });
}

// (1 − t) × a + t × b over flat values.
void DissolveRow(const float* a, const float* b, float t, float* out, std::size_t count) {
  const hn::ScalableTag<float> d;
  using V = hn::Vec<decltype(d)>;
  const V wa = hn::Set(d, 1 - t), wb = hn::Set(d, t);
  forEachValuePair(d, a, b, out, count, [&](V x, V y) { return hn::MulAdd(wa, x, hn::Mul(wb, y)); });
}

// The luminosity blend mode's SetLum(background, Lum(input)) and ClipColor,
// both RGB.
void LuminosityRow(const float* input, const float* background, float* out, std::size_t pixels) {
  const hn::ScalableTag<float> d;
  using V = hn::Vec<decltype(d)>;
  const V kr = hn::Set(d, 0.3f), kg = hn::Set(d, 0.59f), kb = hn::Set(d, 0.11f);
  const V zero = hn::Zero(d), one = hn::Set(d, 1.0f);
  const auto lum = [&](V r, V g, V b) { return hn::MulAdd(kr, r, hn::MulAdd(kg, g, hn::Mul(kb, b))); };
  forEachGroup<2>(
      d, {input, background}, {3, 3}, out, 3, pixels, [&](const std::array<const float*, 2>& at, float* o) {
        V ir, ig, ib, r, g, b;
        hn::LoadInterleaved3(d, at[0], ir, ig, ib);
        hn::LoadInterleaved3(d, at[1], r, g, b);
        const V shift = hn::Sub(lum(ir, ig, ib), lum(r, g, b));
        r = hn::Add(r, shift), g = hn::Add(g, shift), b = hn::Add(b, shift);
        const V l = lum(r, g, b);
        const V lowest = hn::Min(hn::Min(r, g), b), highest = hn::Max(hn::Max(r, g), b);
        // Below 0: pull towards l until the lowest channel is 0.
        const auto low = hn::Lt(lowest, zero);
        const V lowScale = hn::Div(l, hn::Sub(l, lowest));
        const auto pullLow = [&](V c) {
          return hn::IfThenElse(low, hn::MulAdd(hn::Sub(c, l), lowScale, l), c);
        };
        r = pullLow(r), g = pullLow(g), b = pullLow(b);
        // Above 1: pull towards l until the channel that was highest is 1.
        const auto high = hn::Gt(highest, one);
        const V highScale = hn::Div(hn::Sub(one, l), hn::Sub(highest, l));
        const auto pullHigh = [&](V c) {
          return hn::IfThenElse(high, hn::MulAdd(hn::Sub(c, l), highScale, l), c);
        };
        r = pullHigh(r), g = pullHigh(g), b = pullHigh(b);
        // Outside 0 … 1 the luminosity leaves no room for colour: grey.
        const auto grey = hn::Or(hn::Le(l, zero), hn::Ge(l, one));
        r = hn::IfThenElse(grey, l, r), g = hn::IfThenElse(grey, l, g), b = hn::IfThenElse(grey, l, b);
        hn::StoreInterleaved3(r, g, b, d, o);
      });
}

}  // namespace lumivale::filters::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE

#include <algorithm>
#include <cmath>

#include "engine/media/vips_glue.h"
#include "engine/render/filters/filter_support.h"
#include "engine/render/kernel.h"

namespace lumivale::filters {

HWY_EXPORT(BlendRow);
HWY_EXPORT(DissolveRow);
HWY_EXPORT(LuminosityRow);

namespace {

// Both images with one band count: a grey one beside an RGB one is widened.
std::pair<Image, Image> matchBands(const Image& a, const Image& b, const char* filter) {
  detail::requireSameSize(a, b, filter);
  const int ba = detail::colourBands(a, filter), bb = detail::colourBands(b, filter);
  if (ba == bb) return {a, b};
  return {ba == 1 ? detail::greyAsRgb(a) : a, bb == 1 ? detail::greyAsRgb(b) : b};
}

}  // namespace

Image blendWithMask(const Image& input, const Image& background, const Image& mask) {
  const auto [a, b] = matchBands(input, background, "blend with mask");
  detail::requireSameSize(a, mask, "blend with mask");
  const int bands = a.bands(), maskBands = detail::colourBands(mask, "blend with mask");
  return kernel::mapRows({a, b, mask}, bands, [=](const float* const* in, float* out, int width, int, int) {
    HWY_DYNAMIC_DISPATCH(BlendRow)(in[0], in[1], in[2], bands, maskBands, out, std::size_t(width));
  });
}

Image multiplyCompositing(const Image& input, const Image& background) {
  const auto [a, b] = matchBands(input, background, "multiply");
  return withVips("cannot multiply images", [&] {
    vips::VImage product = vipsImage(a).multiply(vipsImage(b));
    return fromVips(product.format() == VIPS_FORMAT_FLOAT ? product : product.cast(VIPS_FORMAT_FLOAT));
  });
}

Image dissolveTransition(const Image& input, const Image& target, double t) {
  const auto [a, b] = matchBands(input, target, "dissolve");
  const float time = std::isnan(t) ? 0.0f : float(std::clamp(t, 0.0, 1.0));
  if (time == 0) return a;
  if (time == 1) return b;
  const int bands = a.bands();
  return kernel::mapRows({a, b}, bands, [=](const float* const* in, float* out, int width, int, int) {
    HWY_DYNAMIC_DISPATCH(DissolveRow)(in[0], in[1], time, out, std::size_t(width) * bands);
  });
}

Image luminosityBlend(const Image& input, const Image& background) {
  detail::requireSameSize(input, background, "luminosity blend");
  const bool grey = detail::colourBands(input, "luminosity blend") == 1 &&
                    detail::colourBands(background, "luminosity blend") == 1;
  const Image a = input.bands() == 3 ? input : detail::greyAsRgb(input);
  const Image b = background.bands() == 3 ? background : detail::greyAsRgb(background);
  const Image blended =
      kernel::mapRows({a, b}, 3, [](const float* const* in, float* out, int width, int, int) {
        HWY_DYNAMIC_DISPATCH(LuminosityRow)(in[0], in[1], out, std::size_t(width));
      });
  return grey ? detail::firstBand(blended) : blended;
}

}  // namespace lumivale::filters

#endif  // HWY_ONCE
