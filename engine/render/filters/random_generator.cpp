// The noise is an integer hash of the position, so any tile of any render
// on any thread computes the same values. With mix() a 32-bit bijection
// that spreads every input bit over the output (two multiply–xorshift
// rounds), channel c of pixel (x, y) is
//
//   mix(mix(x) xor key(y, c)) / 2³² (its top 24 bits),
//   key(y, c) = mix(mix(y) + 0x9E3779B9 × (c + 1)).
//
// The column is hashed before the row key joins it, so no row is a shifted
// copy of another, and each row and channel is a bijection of x: no two
// pixels of a row share a 32-bit hash.

#include "engine/render/filters/random_generator.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "engine/render/filters/random_generator.cpp"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include <cstdint>

#include "engine/render/simd_loops-inl.h"

HWY_BEFORE_NAMESPACE();
namespace lumivale::filters::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;
using namespace lumivale::simd::HWY_NAMESPACE;

template <class D, class V>
HWY_INLINE V Mix(D d, V v) {
  v = hn::Xor(v, hn::ShiftRight<16>(v));
  v = hn::Mul(v, hn::Set(d, 0x7FEB352Du));
  v = hn::Xor(v, hn::ShiftRight<15>(v));
  v = hn::Mul(v, hn::Set(d, 0x846CA68Bu));
  return hn::Xor(v, hn::ShiftRight<16>(v));
}

// `keys` are the row's three channel keys.
void NoiseRow(const std::uint32_t* keys, std::uint32_t x, float* out, std::size_t pixels) {
  const hn::ScalableTag<float> d;
  const hn::RebindToUnsigned<decltype(d)> du;
  const hn::RebindToSigned<decltype(d)> di;
  using VU = hn::Vec<decltype(du)>;
  const VU k0 = hn::Set(du, keys[0]), k1 = hn::Set(du, keys[1]), k2 = hn::Set(du, keys[2]);
  const auto unit = hn::Set(d, 1.0f / 16777216);
  const auto toUnit = [&](VU h) {
    return hn::Mul(hn::ConvertTo(d, hn::BitCast(di, hn::ShiftRight<8>(h))), unit);
  };
  VU column = hn::Iota(du, x);
  const VU step = hn::Set(du, std::uint32_t(hn::Lanes(du)));
  forEachGroup<0>(d, {}, {}, out, 3, pixels, [&](const std::array<const float*, 0>&, float* o) {
    const VU a = Mix(du, column);
    hn::StoreInterleaved3(toUnit(Mix(du, hn::Xor(a, k0))), toUnit(Mix(du, hn::Xor(a, k1))),
                          toUnit(Mix(du, hn::Xor(a, k2))), d, o);
    column = hn::Add(column, step);
  });
}

}  // namespace lumivale::filters::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE

#include <array>

#include "engine/render/kernel.h"

namespace lumivale::filters {

HWY_EXPORT(NoiseRow);

namespace {

constexpr std::uint32_t mixScalar(std::uint32_t v) {
  v ^= v >> 16;
  v *= 0x7FEB352Du;
  v ^= v >> 15;
  v *= 0x846CA68Bu;
  v ^= v >> 16;
  return v;
}

}  // namespace

Image randomGenerator(int left, int top, int width, int height) {
  return kernel::generate(width, height, 3,
                          [left, top](const float* const*, float* out, int n, int x, int y) {
                            const std::uint32_t row = mixScalar(std::uint32_t(top) + std::uint32_t(y));
                            std::array<std::uint32_t, 3> keys{};
                            for (std::uint32_t c = 0; c < 3; ++c)
                              keys[c] = mixScalar(row + 0x9E3779B9u * (c + 1));
                            HWY_DYNAMIC_DISPATCH(NoiseRow)
                            (keys.data(), std::uint32_t(left) + std::uint32_t(x), out, std::size_t(n));
                          });
}

}  // namespace lumivale::filters

#endif  // HWY_ONCE
