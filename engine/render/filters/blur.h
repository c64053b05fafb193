#pragma once
// Gaussian blur and the unsharp mask built on it. Both see beyond the
// image's edges as if its edge pixels went on for ever (clamp to extent), so
// borders neither darken nor brighten; the result has the input's size.

#include "engine/media/image.h"

namespace lumivale::filters {

/// A separable Gaussian of standard deviation `sigma` pixels (any band
/// count): the discrete Gaussian, whose variance is σ² at every size (a
/// sampled bell loses its width below σ ≈ 1). A sigma at or below 0.05, or
/// NaN, returns the input unchanged. The kernel reaches far enough that what
/// it leaves out weighs below 1/1000; its weights are then scaled to sum
/// to 1, so flat areas stay exactly flat.
Image gaussianBlur(const Image& input, double sigma);

/// input + intensity × (input − gaussianBlur(input, σ = radius)); the input
/// itself where the blur or the intensity is nothing.
Image unsharpMask(const Image& input, double radius, double intensity);

}  // namespace lumivale::filters
