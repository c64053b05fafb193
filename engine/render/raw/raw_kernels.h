#pragma once
// The per-pixel arithmetic of the RAW look and noise reduction, one row at a
// time, vectorised with Highway and dispatched at run time to the best
// instruction set of the machine. Internal to engine/render/raw; the
// meaning of each step is documented with its user (raw_look.h,
// raw_noise.h).

namespace lumivale::raw_kernels {

/// The look's curve y = s x^c / (x^c + k) after a gain, on luminance.
struct LookCurve {
  float gain = 1;
  float c = 1;
  float s = 1;
  float k = 1;
};

/// The look in place on `width` RGB pixels: each scaled by y / x of its
/// luminance, then drawn towards its grey until it fits below 1 where its
/// luminance does. Luminance at or below 0 gives black.
void lookRow(const LookCurve& curve, float* rgb, int width);

/// The last pass of noise reduction: from `rgb` (the input) and, each when
/// not null, `ab` (the guided filter's blurred a and b per pixel) and
/// `chroma` (the blurred chroma of the rooted channels per pixel), the
/// output pixels unrooted again into `out`.
void combineRow(const float* rgb, const float* ab, const float* chroma, float* out, int width);

}  // namespace lumivale::raw_kernels
