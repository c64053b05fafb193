#include "engine/render/tone_pass.h"

#include <array>
#include <bit>
#include <cmath>
#include <cstdint>

#include "engine/render/kernel.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "engine/render/tone_pass.cpp"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include "engine/render/cube_lookup-inl.h"
#include "engine/render/simd_loops-inl.h"

#ifndef LUMIVALE_TONE_PASS_TABLES
#define LUMIVALE_TONE_PASS_TABLES
namespace lumivale::tone_pass_detail {

// x^(1/2.2) for x in 2^-64 … 1, indexed by the top 16 bits of the float
// (sign, exponent and 7 mantissa bits) minus those of 2^-64: 128 segments
// per octave, interpolated linearly in x within a segment. Below 2^-64 the
// result is 0 (the exact value is below 2e-9).
constexpr std::uint32_t rootBase = 0x1F80;  // top 16 bits of 2^-64
constexpr int rootEntries = 0x3F80 - rootBase + 1;
// y^2.2 for y in 0 … 1 at 4096 even steps.
constexpr int powSteps = 4096;

struct Tables {
  std::array<float, rootEntries + 1> root{};
  std::array<float, powSteps + 2> power{};
};

inline const Tables& tables() {
  static const Tables t = [] {
    Tables made;
    for (int i = 0; i < rootEntries; ++i) {
      const float x = std::bit_cast<float>((rootBase + std::uint32_t(i)) << 16);
      made.root[std::size_t(i)] = float(std::pow(double(x), 1 / 2.2));
    }
    made.root[rootEntries] = made.root[rootEntries - 1];
    for (int i = 0; i <= powSteps; ++i) made.power[std::size_t(i)] = float(std::pow(double(i) / powSteps, 2.2));
    made.power[powSteps + 1] = made.power[powSteps];
    return made;
  }();
  return t;
}

}  // namespace lumivale::tone_pass_detail
#endif

HWY_BEFORE_NAMESPACE();
namespace lumivale::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;
using namespace tone_pass_detail;
using namespace lumivale::simd::HWY_NAMESPACE;

void PassRow(const TonePass& pass, const float* in, const float* mask, float* out, int width) {
  const Tables& t = tables();
  const hn::ScalableTag<float> d;
  const hn::RebindToSigned<decltype(d)> di;
  using V = hn::Vec<decltype(d)>;
  const std::size_t lanes = hn::Lanes(d);
  const float* cube = pass.cube ? pass.cube->data() : nullptr;
  const int n = pass.dimension;
  const V gain = hn::Set(d, pass.gain);
  const V scale = hn::Set(d, pass.gain * (pass.domain == LUTDomain::scene ? 0.25f : 1.0f));
  const V zero = hn::Zero(d), one = hn::Set(d, 1.0f);
  const V steps = hn::Set(d, float(powSteps));
  const V fracScale = hn::Set(d, 1.0f / 65536);
  const auto low16 = hn::Set(di, 0xFFFF);
  const auto base = hn::Set(di, std::int32_t(rootBase));

  // Clamped (NaN as 0), then raised to 1/2.2 through the exponent-indexed table.
  const auto rootOf = [&](V v) {
    v = hn::Min(hn::Max(hn::IfThenZeroElse(hn::IsNaN(v), v), zero), one);
    const auto bits = hn::BitCast(di, v);
    const auto index = hn::Sub(hn::ShiftRight<16>(bits), base);
    const auto valid = hn::Gt(index, hn::Set(di, -1));
    const auto safe = hn::Max(index, hn::Zero(di));
    const V fraction = hn::Mul(hn::ConvertTo(d, hn::And(bits, low16)), fracScale);
    const V lo = hn::GatherIndex(d, t.root.data(), safe);
    const V hi = hn::GatherIndex(d, t.root.data() + 1, safe);
    return hn::IfThenElseZero(hn::RebindMask(d, valid), hn::MulAdd(fraction, hn::Sub(hi, lo), lo));
  };
  // Raised to 2.2 through the even table (the cube's values lie in 0 … 1).
  const auto powerOf = [&](V y) {
    const V p = hn::Mul(hn::Min(hn::Max(y, zero), one), steps);
    const auto index = hn::ConvertTo(di, p);  // truncates; p ≥ 0
    const V fraction = hn::Sub(p, hn::ConvertTo(d, index));
    const V lo = hn::GatherIndex(d, t.power.data(), index);
    const V hi = hn::GatherIndex(d, t.power.data() + 1, index);
    return hn::MulAdd(fraction, hn::Sub(hi, lo), lo);
  };

  HWY_ALIGN float looked[maxLanes * 3 + 1];
  const auto group = [&](const float* at, const float* m, float* o) {
    V r, g, b;
    hn::LoadInterleaved3(d, at, r, g, b);
    // Where a local mask covers nothing, the pixels stay as they are.
    if (m && hn::AllTrue(d, hn::Eq(hn::LoadU(d, m), zero))) return hn::StoreInterleaved3(r, g, b, d, o);
    V nr, ng, nb;
    if (cube) {
      LookupGroup(d, rootOf(hn::Mul(r, scale)), rootOf(hn::Mul(g, scale)), rootOf(hn::Mul(b, scale)), cube, n,
                  looked);
      hn::LoadInterleaved3(d, looked, nr, ng, nb);
      nr = powerOf(nr), ng = powerOf(ng), nb = powerOf(nb);
    } else {
      nr = hn::Mul(r, gain), ng = hn::Mul(g, gain), nb = hn::Mul(b, gain);
    }
    if (m) {
      const V k = hn::LoadU(d, m);
      nr = hn::MulAdd(k, hn::Sub(nr, r), r);
      ng = hn::MulAdd(k, hn::Sub(ng, g), g);
      nb = hn::MulAdd(k, hn::Sub(nb, b), b);
    }
    hn::StoreInterleaved3(nr, ng, nb, d, o);
  };
  if (mask) {
    forEachGroup<2>(d, {in, mask}, {3, 1}, out, 3, std::size_t(width),
                    [&](const std::array<const float*, 2>& at, float* o) { group(at[0], at[1], o); });
  } else {
    forEachGroup<1>(d, {in}, {3}, out, 3, std::size_t(width),
                    [&](const std::array<const float*, 1>& at, float* o) { group(at[0], nullptr, o); });
  }
  (void)lanes;
}

}  // namespace lumivale::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace lumivale {

HWY_EXPORT(PassRow);

void tonePassRow(const TonePass& pass, const float* input, const float* mask, float* output, int width) {
  HWY_DYNAMIC_DISPATCH(PassRow)(pass, input, mask, output, width);
}

Image applyTonePass(const Image& input, const TonePass& pass, const Image& mask) {
  if (pass.cube) {
    const std::size_t n = std::size_t(pass.dimension);
    if (pass.dimension < 2 || pass.cube->size() != n * n * n * 4)
      throw ImageError("a tone cube does not match its dimension");
  }
  std::vector<Image> inputs{input};
  if (!mask.empty()) inputs.push_back(mask);
  const bool masked = !mask.empty();
  return kernel::mapRows(inputs, 3, [pass, masked](const float* const* rows, float* out, int width, int, int) {
    tonePassRow(pass, rows[0], masked ? rows[1] : nullptr, out, width);
  });
}

}  // namespace lumivale
#endif
