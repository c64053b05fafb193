#pragma once
// Point filters: each output pixel depends on the same input pixel only.
// Images are float RGB (3 bands) in the working space, or 1-band grey
// coverage; a grey pixel v is read as the colour (v, v, v) with alpha 1, and
// a 1-band image stays 1-band (its result is the red channel's). There is no
// alpha channel in the chain: where a formula reads alpha, it is 1. Images
// of other band counts are refused (ImageError).

#include <array>

#include "engine/media/image.h"

namespace lumivale::filters {

/// rgb × 2^ev.
Image exposureAdjust(const Image& input, double ev);

/// Four weight vectors over (r, g, b, a) and a bias, one per output channel.
struct ColorMatrix {
  std::array<double, 4> r{1, 0, 0, 0};
  std::array<double, 4> g{0, 1, 0, 0};
  std::array<double, 4> b{0, 0, 1, 0};
  std::array<double, 4> a{0, 0, 0, 1};
  std::array<double, 4> bias{0, 0, 0, 0};

  /// Each colour channel times `s`, alpha kept.
  static ColorMatrix scale(double s);
  bool operator==(const ColorMatrix&) const = default;
};

/// Each output channel = its vector · (r, g, b, a) + its bias.
Image colorMatrix(const Image& input, const ColorMatrix& matrix);

/// Each channel limited to its [min, max] (r, g, b; the fourth value is
/// alpha's and has nothing to limit here), as min(max(x, min), max): NaN
/// counts as −∞ and gives min; a min above max gives max.
Image colorClamp(const Image& input, const std::array<double, 4>& minimum, const std::array<double, 4>& maximum);

/// sign(x) × |x|^power per channel: values above 1 and below 0 survive.
/// 0 stays 0, NaN stays NaN; results beyond float are infinite.
Image gammaAdjust(const Image& input, double power);

/// 1 − value per channel.
Image colorInvert(const Image& input);

}  // namespace lumivale::filters
