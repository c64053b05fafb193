#pragma once
// Filters that combine two images of one size pixel by pixel. Images of
// different sizes are an error (ImageError). A grey image combined with an
// RGB one is read as (v, v, v); the result is RGB.

#include "engine/media/image.h"

namespace lumivale::filters {

/// input × m + background × (1 − m), m the mask's grey value (its first band)
/// used as it is (not limited to 0 … 1).
Image blendWithMask(const Image& input, const Image& background, const Image& mask);

/// input × background per channel.
Image multiplyCompositing(const Image& input, const Image& background);

/// (1 − t) × input + t × target, t limited to 0 … 1 (NaN as 0); at t = 0
/// the input itself, at t = 1 the target.
Image dissolveTransition(const Image& input, const Image& target, double t);

/// The standard non-separable "luminosity" blend mode: the background's hue
/// and saturation with the input's luminosity, SetLum(background,
/// Lum(input)) with ClipColor, Lum(c) = 0.3 r + 0.59 g + 0.11 b. ClipColor
/// fits colours into 0 … 1 around their luminosity L; where L itself lies
/// at or outside 0 or 1 there is no room for colour and the result is the
/// grey (L, L, L), the standard formula's limit there.
Image luminosityBlend(const Image& input, const Image& background);

}  // namespace lumivale::filters
