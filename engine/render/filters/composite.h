#pragma once
// Filters that combine two images of one size pixel by pixel. Images of
// different sizes are an error (ImageError).

#include "engine/media/image.h"

namespace lumivale::filters {

/// input × m + background × (1 − m), m the mask's grey value (its first band)
/// used as it is (not limited to 0 … 1).
Image blendWithMask(const Image& input, const Image& background, const Image& mask);

/// input × background per channel.
Image multiplyCompositing(const Image& input, const Image& background);

/// (1 − t) × input + t × target, t limited to 0 … 1.
Image dissolveTransition(const Image& input, const Image& target, double t);

/// The standard non-separable "luminosity" blend mode: the background's hue
/// and saturation with the input's luminosity, SetLum(background,
/// Lum(input)) with ClipColor, Lum(c) = 0.3 r + 0.59 g + 0.11 b.
Image luminosityBlend(const Image& input, const Image& background);

}  // namespace lumivale::filters
