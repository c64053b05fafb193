#pragma once
// Noise filters for non-RAW photos: edge-preserving smoothing and the 3 × 3
// median. Edges are clamped to extent; the result has the input's size.

#include "engine/media/image.h"

namespace lumivale::filters {

/// Edge-preserving smoothing: each pixel becomes the mean of itself and the
/// neighbours of its 3 × 3 window whose luminance (Rec. 709 weights; a grey
/// value is its own luminance) differs from its own by less than
/// `noiseLevel` (linear units); a NaN neighbour is never near. `sharpness`
/// 0 adds nothing back; above 0 it adds sharpness × (input − smoothed)
/// back. A level at or below 0 returns the input.
Image noiseReduction(const Image& input, double noiseLevel, double sharpness);

/// The median of each pixel's 3 × 3 window, channel by channel (any band
/// count). NaN sorts above +∞, so it is the median only where five or more
/// values of the window are NaN.
Image medianFilter(const Image& input);

}  // namespace lumivale::filters
