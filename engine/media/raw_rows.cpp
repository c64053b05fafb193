#include "engine/media/raw_rows.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "engine/media/raw_rows.cpp"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

namespace lumivale::media_detail {
// Defined once, below; every target's code may call them.
void developRowScalar(const float* const* rows, const BayerRow& sites, const CameraToWorking& post,
                      float* out, int width);
}  // namespace lumivale::media_detail

HWY_BEFORE_NAMESPACE();
namespace lumivale::media_detail::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

void NormaliseRow(const std::uint16_t* HWY_RESTRICT raw, float* HWY_RESTRICT out, int width,
                  const float* black, const float* scale) {
  const hn::ScalableTag<float> d;
  const hn::Rebind<std::uint16_t, decltype(d)> d16;
  const hn::Rebind<std::int32_t, decltype(d)> d32;
  const int lanes = int(hn::Lanes(d));
  int x = 0;
  if (lanes % 2 == 0) {
    // Lane parity is column parity: every vector starts at an even column.
    const auto b = hn::OddEven(hn::Set(d, black[1]), hn::Set(d, black[0]));
    const auto s = hn::OddEven(hn::Set(d, scale[1]), hn::Set(d, scale[0]));
    for (; x + lanes <= width; x += lanes) {
      const auto v = hn::ConvertTo(d, hn::PromoteTo(d32, hn::LoadU(d16, raw + x)));
      hn::StoreU(hn::Mul(hn::Sub(v, b), s), d, out + x);
    }
  }
  for (; x < width; ++x) out[x] = (float(raw[x]) - black[x & 1]) * scale[x & 1];
}

void DevelopRow(const float* const* rows, const BayerRow& sites, const CameraToWorking& post, float* out,
                int width) {
  const hn::ScalableTag<float> d;
  using V = hn::Vec<decltype(d)>;
  const int lanes = int(hn::Lanes(d));
  if (lanes % 2 != 0) {
    developRowScalar(rows, sites, post, out, width);
    return;
  }
  const float* n2 = rows[0];
  const float* n1 = rows[1];
  const float* c0 = rows[2];
  const float* s1 = rows[3];
  const float* s2 = rows[4];

  // Which estimate each channel takes at even and odd columns: 0 the site's
  // own value, 1 green at red or blue, 2 the opposite of red or blue, 3 the
  // horizontal and 4 the vertical estimate at green.
  int source[2][3];
  for (int parity = 0; parity < 2; ++parity) {
    const int colour = sites.colour[parity];
    for (int channel = 0; channel < 3; ++channel) {
      if (channel == colour) {
        source[parity][channel] = 0;
      } else if (colour != 1) {
        source[parity][channel] = channel == 1 ? 1 : 2;
      } else {
        source[parity][channel] = (channel == 0) == sites.redBeside[parity] ? 3 : 4;
      }
    }
  }

  const V eighth = hn::Set(d, 0.125f), half = hn::Set(d, 0.5f), two = hn::Set(d, 2.0f),
          four = hn::Set(d, 4.0f);
  const V five = hn::Set(d, 5.0f), six = hn::Set(d, 6.0f), oneHalf = hn::Set(d, 1.5f);
  const V inverseClip[3] = {hn::Set(d, 1 / post.clip[0]), hn::Set(d, 1 / post.clip[1]),
                            hn::Set(d, 1 / post.clip[2])};
  const V knee = hn::Set(d, CameraToWorking::kneeStart);
  V m[3][3];
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) m[i][j] = hn::Set(d, post.matrix[i][j]);
  }

  HWY_ALIGN float spill[3][HWY_MAX_BYTES / sizeof(float)];
  HWY_ALIGN float tail[3 * HWY_MAX_BYTES / sizeof(float)];
  for (int x = 0; x < width; x += lanes) {
    const V c = hn::LoadU(d, c0 + x);
    const V hpair = hn::Add(hn::LoadU(d, c0 + x - 1), hn::LoadU(d, c0 + x + 1));
    const V vpair = hn::Add(hn::LoadU(d, n1 + x), hn::LoadU(d, s1 + x));
    const V h2 = hn::Add(hn::LoadU(d, c0 + x - 2), hn::LoadU(d, c0 + x + 2));
    const V v2 = hn::Add(hn::LoadU(d, n2 + x), hn::LoadU(d, s2 + x));
    const V diagonal = hn::Add(hn::Add(hn::LoadU(d, n1 + x - 1), hn::LoadU(d, n1 + x + 1)),
                               hn::Add(hn::LoadU(d, s1 + x - 1), hn::LoadU(d, s1 + x + 1)));
    const V cross2 = hn::Add(h2, v2);
    const V estimates[5] = {
        c,
        // Green at red or blue.
        hn::Mul(hn::Sub(hn::MulAdd(four, c, hn::Mul(two, hn::Add(hpair, vpair))), cross2), eighth),
        // Blue at red, red at blue.
        hn::Mul(hn::Sub(hn::MulAdd(six, c, hn::Mul(two, diagonal)), hn::Mul(oneHalf, cross2)), eighth),
        // Red or blue at green, from left and right.
        hn::Mul(
            hn::Sub(hn::MulAdd(half, v2, hn::MulAdd(five, c, hn::Mul(four, hpair))), hn::Add(h2, diagonal)),
            eighth),
        // The same from above and below.
        hn::Mul(
            hn::Sub(hn::MulAdd(half, h2, hn::MulAdd(five, c, hn::Mul(four, vpair))), hn::Add(v2, diagonal)),
            eighth),
    };
    V rgb[3];
    for (int channel = 0; channel < 3; ++channel) {
      rgb[channel] = hn::OddEven(estimates[source[1][channel]], estimates[source[0][channel]]);
    }

    V outRgb[3];
    const V reach = hn::Max(hn::Max(hn::Mul(rgb[0], inverseClip[0]), hn::Mul(rgb[1], inverseClip[1])),
                            hn::Mul(rgb[2], inverseClip[2]));
    float* target = x + lanes <= width ? out + 3 * x : tail;
    if (!hn::AllFalse(d, hn::Gt(reach, knee))) {
      // Near clipping: the rare pixels go one by one.
      for (int channel = 0; channel < 3; ++channel) hn::Store(rgb[channel], d, spill[channel]);
      for (int i = 0; i < lanes; ++i) post.convert(spill[0][i], spill[1][i], spill[2][i], target + 3 * i);
    } else {
      for (int row = 0; row < 3; ++row) {
        outRgb[row] =
            hn::MulAdd(m[row][2], rgb[2], hn::MulAdd(m[row][1], rgb[1], hn::Mul(m[row][0], rgb[0])));
      }
      hn::StoreInterleaved3(outRgb[0], outRgb[1], outRgb[2], d, target);
    }
    if (target == tail) std::copy_n(tail, 3 * (width - x), out + 3 * x);
  }
}

}  // namespace lumivale::media_detail::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace lumivale::media_detail {

HWY_EXPORT(NormaliseRow);
HWY_EXPORT(DevelopRow);

void CameraToWorking::convert(float r, float g, float b, float* out) const {
  const float reach = std::max({r / clip[0], g / clip[1], b / clip[2]});
  if (reach > kneeStart) {
    // Lightness and hue from the data as it is, chroma as it is after
    // clipping every channel at the neutral white (1): where one channel
    // stopped at its clipping point and the others went on, the colour is
    // not known, and white is the safe guess.
    const float mean = (r + g + b) / 3;
    const float cr = r - mean, cg = g - mean, cb = b - mean;
    const float ur = std::min(r, 1.0f), ug = std::min(g, 1.0f), ub = std::min(b, 1.0f);
    const float umean = (ur + ug + ub) / 3;
    const float chroma = std::sqrt(cr * cr + cg * cg + cb * cb);
    const float clipped =
        std::sqrt((ur - umean) * (ur - umean) + (ug - umean) * (ug - umean) + (ub - umean) * (ub - umean));
    const float k = chroma > 1e-9f ? clipped / chroma : 0.0f;
    float t = std::min((reach - kneeStart) / (1 - kneeStart), 1.0f);
    t = t * t * (3 - 2 * t);
    r += t * (mean + cr * k - r);
    g += t * (mean + cg * k - g);
    b += t * (mean + cb * k - b);
  }
  out[0] = matrix[0][0] * r + matrix[0][1] * g + matrix[0][2] * b;
  out[1] = matrix[1][0] * r + matrix[1][1] * g + matrix[1][2] * b;
  out[2] = matrix[2][0] * r + matrix[2][1] * g + matrix[2][2] * b;
}

void developRowScalar(const float* const* rows, const BayerRow& sites, const CameraToWorking& post,
                      float* out, int width) {
  const float* n2 = rows[0];
  const float* n1 = rows[1];
  const float* c0 = rows[2];
  const float* s1 = rows[3];
  const float* s2 = rows[4];
  for (int x = 0; x < width; ++x) {
    const float c = c0[x];
    const float hpair = c0[x - 1] + c0[x + 1], vpair = n1[x] + s1[x];
    const float h2 = c0[x - 2] + c0[x + 2], v2 = n2[x] + s2[x];
    const float diagonal = n1[x - 1] + n1[x + 1] + s1[x - 1] + s1[x + 1];
    const int colour = sites.colour[x & 1];
    float rgb[3];
    if (colour == 1) {
      const float horizontal = (5 * c + 4 * hpair - h2 - diagonal + 0.5f * v2) / 8;
      const float vertical = (5 * c + 4 * vpair - v2 - diagonal + 0.5f * h2) / 8;
      const bool redBeside = sites.redBeside[x & 1];
      rgb[0] = redBeside ? horizontal : vertical;
      rgb[1] = c;
      rgb[2] = redBeside ? vertical : horizontal;
    } else {
      rgb[1] = (4 * c + 2 * (hpair + vpair) - (h2 + v2)) / 8;
      rgb[colour] = c;
      rgb[2 - colour] = (6 * c + 2 * diagonal - 1.5f * (h2 + v2)) / 8;
    }
    post.convert(rgb[0], rgb[1], rgb[2], out + 3 * x);
  }
}

void normaliseRow(const std::uint16_t* raw, float* out, int width, const float black[2],
                  const float scale[2]) {
  HWY_DYNAMIC_DISPATCH(NormaliseRow)(raw, out, width, black, scale);
}

void developRow(const float* const* rows, const BayerRow& sites, const CameraToWorking& post, float* out,
                int width) {
  HWY_DYNAMIC_DISPATCH(DevelopRow)(rows, sites, post, out, width);
}

}  // namespace lumivale::media_detail
#endif  // HWY_ONCE
