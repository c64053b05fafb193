#pragma once
// Gaussian blur and the unsharp mask built on it. Both see beyond the
// image's edges as if its edge pixels went on for ever (clamp to extent), so
// borders neither darken nor brighten; the result has the input's size.

#include "engine/media/image.h"

namespace lumivale::filters {

/// A separable Gaussian of standard deviation `sigma` pixels (any band
/// count). A sigma at or below 0.05 returns the input unchanged. The kernel
/// reaches far enough that what it leaves out weighs below 1/1000.
Image gaussianBlur(const Image& input, double sigma);

/// input + intensity × (input − gaussianBlur(input, σ = radius)).
Image unsharpMask(const Image& input, double radius, double intensity);

}  // namespace lumivale::filters
