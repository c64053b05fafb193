#pragma once
// The colour cube filter: a 3-D table looked up with trilinear
// interpolation.

#include <vector>

#include "engine/media/image.h"

namespace lumivale::filters {

/// Looks each pixel up in `cube`: `dimension`³ entries of four floats
/// (R, G, B, A), red varying fastest, then green, then blue (entry
/// (b × n + g) × n + r), as `ToneLUT::cube` makes them. The input colour is
/// clamped to 0 … 1 (NaN as 0) and interpolated trilinearly between the
/// eight surrounding entries; the output is their R, G and B (a grey image
/// is looked up as (v, v, v) and gets the red). Throws ImageError when the
/// cube's size does not match the dimension, the dimension is not 2 … 256
/// or the image is neither grey nor RGB. The cube is copied.
Image colorCube(const Image& input, const std::vector<float>& cube, int dimension);

}  // namespace lumivale::filters
