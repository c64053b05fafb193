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

// The scalar form of the pass for one colour; the vector code does the same
// arithmetic lane by lane.
inline float clamp01(float v) { return v > 0 ? (v < 1 ? v : 1) : 0; }

inline float root(const Tables& t, float x) {
  const std::uint32_t bits = std::bit_cast<std::uint32_t>(x);
  const std::int32_t index = std::int32_t(bits >> 16) - std::int32_t(rootBase);
  if (index < 0) return 0;
  const float fraction = float(bits & 0xFFFF) * (1.0f / 65536);
  return t.root[std::size_t(index)] + fraction * (t.root[std::size_t(index) + 1] - t.root[std::size_t(index)]);
}

inline float power(const Tables& t, float y) {
  const float p = clamp01(y) * powSteps;
  const int index = int(p);
  const float fraction = p - float(index);
  return t.power[std::size_t(index)] + fraction * (t.power[std::size_t(index) + 1] - t.power[std::size_t(index)]);
}

}  // namespace lumivale::tone_pass_detail
#endif

HWY_BEFORE_NAMESPACE();
namespace lumivale::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;
using namespace tone_pass_detail;

void PassRow(const TonePass& pass, const float* HWY_RESTRICT in, const float* HWY_RESTRICT mask,
             float* HWY_RESTRICT out, int width) {
  const Tables& t = tables();
  const hn::ScalableTag<float> d;
  const hn::RebindToSigned<decltype(d)> di;
  const int lanes = int(hn::Lanes(d));
  const float* cube = pass.cube ? pass.cube->data() : nullptr;
  const int n = pass.dimension;
  const float scale = pass.gain * (pass.domain == LUTDomain::scene ? 0.25f : 1.0f);
  const float last = float(n - 2);

  int x = 0;
  if (cube) {
    const auto vScale = hn::Set(d, scale);
    const auto zero = hn::Zero(d);
    const auto one = hn::Set(d, 1.0f);
    const auto vLast = hn::Set(d, last);
    const auto vSpan = hn::Set(d, float(n - 1));
    const auto vSteps = hn::Set(d, float(powSteps));
    const auto fracScale = hn::Set(d, 1.0f / 65536);
    const auto low16 = hn::Set(di, 0xFFFF);
    const auto base = hn::Set(di, std::int32_t(rootBase));
    const auto strideG = hn::Set(di, 4 * n);
    const auto strideB = hn::Set(di, 4 * n * n);
    const auto four = hn::Set(di, 4);

    // Clamped, then raised to 1/2.2 through the exponent-indexed table.
    auto rootOf = [&](auto v) {
      v = hn::IfThenElseZero(hn::Eq(v, v), v);  // NaN as 0
      v = hn::Min(hn::Max(v, zero), one);
      const auto bits = hn::BitCast(di, v);
      const auto index = hn::Sub(hn::ShiftRight<16>(bits), base);
      const auto valid = hn::Gt(index, hn::Set(di, -1));
      const auto safe = hn::Max(index, hn::Zero(di));
      const auto fraction = hn::Mul(hn::ConvertTo(d, hn::And(bits, low16)), fracScale);
      const auto lo = hn::GatherIndex(d, t.root.data(), safe);
      const auto hi = hn::GatherIndex(d, t.root.data() + 1, safe);
      return hn::IfThenElseZero(hn::RebindMask(d, valid), hn::MulAdd(fraction, hn::Sub(hi, lo), lo));
    };
    auto powerOf = [&](auto y) {
      const auto p = hn::Mul(hn::Min(hn::Max(y, zero), one), vSteps);
      const auto index = hn::ConvertTo(di, p);  // truncates; p ≥ 0
      const auto fraction = hn::Sub(p, hn::ConvertTo(d, index));
      const auto lo = hn::GatherIndex(d, t.power.data(), index);
      const auto hi = hn::GatherIndex(d, t.power.data() + 1, index);
      return hn::MulAdd(fraction, hn::Sub(hi, lo), lo);
    };
    // Grid position of a coordinate: the cell's first index (0 … n − 2) and
    // the fraction within it (0 … 1).
    auto cell = [&](auto c, auto& index) {
      const auto p = hn::Mul(c, vSpan);
      const auto i = hn::Min(hn::Floor(p), vLast);
      index = hn::ConvertTo(di, i);
      return hn::Sub(p, i);
    };

    for (; x + lanes <= width; x += lanes) {
      hn::Vec<decltype(d)> r, g, b;
      hn::LoadInterleaved3(d, in + 3 * x, r, g, b);
      hn::Vec<decltype(di)> ir, ig, ib;
      const auto fr = cell(rootOf(hn::Mul(r, vScale)), ir);
      const auto fg = cell(rootOf(hn::Mul(g, vScale)), ig);
      const auto fb = cell(rootOf(hn::Mul(b, vScale)), ib);
      const auto origin = hn::Add(hn::Add(hn::Mul(ir, four), hn::Mul(ig, strideG)), hn::Mul(ib, strideB));
      hn::Vec<decltype(d)> result[3];
      for (int channel = 0; channel < 3; ++channel) {
        const float* c = cube + channel;
        auto at = [&](int dr, int dg, int db) {
          return hn::GatherIndex(d, c + 4 * (dr + n * (dg + n * db)), origin);
        };
        // Along red, then green, then blue.
        const auto c00 = hn::MulAdd(fr, hn::Sub(at(1, 0, 0), at(0, 0, 0)), at(0, 0, 0));
        const auto c10 = hn::MulAdd(fr, hn::Sub(at(1, 1, 0), at(0, 1, 0)), at(0, 1, 0));
        const auto c01 = hn::MulAdd(fr, hn::Sub(at(1, 0, 1), at(0, 0, 1)), at(0, 0, 1));
        const auto c11 = hn::MulAdd(fr, hn::Sub(at(1, 1, 1), at(0, 1, 1)), at(0, 1, 1));
        const auto c0 = hn::MulAdd(fg, hn::Sub(c10, c00), c00);
        const auto c1 = hn::MulAdd(fg, hn::Sub(c11, c01), c01);
        result[channel] = powerOf(hn::MulAdd(fb, hn::Sub(c1, c0), c0));
      }
      if (mask) {
        const auto m = hn::LoadU(d, mask + x);
        result[0] = hn::MulAdd(m, hn::Sub(result[0], r), r);
        result[1] = hn::MulAdd(m, hn::Sub(result[1], g), g);
        result[2] = hn::MulAdd(m, hn::Sub(result[2], b), b);
      }
      hn::StoreInterleaved3(result[0], result[1], result[2], d, out + 3 * x);
    }
  } else {
    const auto gain = hn::Set(d, pass.gain);
    for (; x + lanes <= width; x += lanes) {
      hn::Vec<decltype(d)> r, g, b;
      hn::LoadInterleaved3(d, in + 3 * x, r, g, b);
      auto nr = hn::Mul(r, gain), ng = hn::Mul(g, gain), nb = hn::Mul(b, gain);
      if (mask) {
        const auto m = hn::LoadU(d, mask + x);
        nr = hn::MulAdd(m, hn::Sub(nr, r), r);
        ng = hn::MulAdd(m, hn::Sub(ng, g), g);
        nb = hn::MulAdd(m, hn::Sub(nb, b), b);
      }
      hn::StoreInterleaved3(nr, ng, nb, d, out + 3 * x);
    }
  }

  // The last pixels, fewer than a vector, one at a time with the same steps.
  for (; x < width; ++x) {
    float source[3] = {in[3 * x], in[3 * x + 1], in[3 * x + 2]};
    float result[3];
    if (!cube) {
      for (int c = 0; c < 3; ++c) result[c] = source[c] * pass.gain;
    } else {
      int index[3];
      float fraction[3];
      for (int c = 0; c < 3; ++c) {
        const float v = source[c] * scale;
        const float p = root(t, clamp01(v == v ? v : 0)) * float(n - 1);
        const float i = std::min(std::floor(p), last);
        index[c] = int(i);
        fraction[c] = p - i;
      }
      const int origin = 4 * (index[0] + n * (index[1] + n * index[2]));
      for (int c = 0; c < 3; ++c) {
        auto at = [&](int dr, int dg, int db) { return cube[origin + c + 4 * (dr + n * (dg + n * db))]; };
        const float c00 = at(0, 0, 0) + fraction[0] * (at(1, 0, 0) - at(0, 0, 0));
        const float c10 = at(0, 1, 0) + fraction[0] * (at(1, 1, 0) - at(0, 1, 0));
        const float c01 = at(0, 0, 1) + fraction[0] * (at(1, 0, 1) - at(0, 0, 1));
        const float c11 = at(0, 1, 1) + fraction[0] * (at(1, 1, 1) - at(0, 1, 1));
        const float c0 = c00 + fraction[1] * (c10 - c00);
        const float c1 = c01 + fraction[1] * (c11 - c01);
        result[c] = power(t, c0 + fraction[2] * (c1 - c0));
      }
    }
    for (int c = 0; c < 3; ++c) {
      const float m = mask ? mask[x] : 1.0f;
      out[3 * x + c] = mask ? source[c] + m * (result[c] - source[c]) : result[c];
    }
  }
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
