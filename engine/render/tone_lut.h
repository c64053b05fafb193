#pragma once
// The tone look-up table: all global tone and colour work of a photo (white
// balance, whites, blacks, highlights, shadows, contrast, curves, colour
// mixer, vibrance, saturation, colour grading, black and white) as one pure
// function of a linear colour, sampled on a grid into a colour cube that the
// render chain applies to the image.
//
// Coordinates: a cube axis runs over 0 … 1 in a plain 2.2-gamma encoding of
// linear light, spanning linear 0 … 4 in the `scene` domain (headroom for
// scene-referred RAW data) and 0 … 1 in the `display` domain. The stored
// output is always display-referred: the mapped linear value (0 … 1) raised
// to 1/2.2. Inside the mapping, tone work happens per channel on
// sRGB-encoded values.
//
// Everything here is stateless and thread-safe.

#include <vector>

#include "engine/render/color_math.h"
#include "engine/render/tone_params.h"

namespace lumivale {

/// How cube coordinates map to linear light.
enum class LUTDomain {
  scene,    ///< linear 0 … 4: the photo's global table
  display,  ///< linear 0 … 1: mask tables, applied to display-referred images
};

namespace ToneLUT {

/// Grid points per axis of the tables the renderer builds.
inline constexpr int dimension = 33;
/// The largest grid `cube` accepts (256³ entries are 256 MB).
inline constexpr int maximumDimension = 256;

/// Linear to cube coordinate: scaled by 0.25 for `scene`, clamped to 0 … 1
/// (NaN as 0), raised to 1/2.2.
double encode(double linear, LUTDomain domain);

/// Cube coordinate to linear: clamped to 0 … 1 (NaN as 0), raised to 2.2,
/// times 4 for `scene`.
double decode(double coordinate, LUTDomain domain);

/// The tone mapping of one linear colour. The output is linear with every
/// channel within 0 … 1, and finite whatever the input or the parameters
/// (a NaN met at a clamp reads as 0). Steps whose parameters are zero are
/// skipped, so default parameters return the gained input clamped to 0 … 1.
RGB map(const RGB& linear, const ToneParams& params);

/// The sampled cube: size³ entries of four floats (R, G, B, A), red varying
/// fastest, then green, then blue, entry (b × size + g) × size + r; alpha 1;
/// each colour component is the mapped linear value raised to 1/2.2. Grid
/// value i of an axis is `decode(i / (size − 1), domain)`. Filled in
/// parallel, one blue slab per job. Throws std::invalid_argument for a size
/// outside 2 … maximumDimension.
std::vector<float> cube(const ToneParams& params, LUTDomain domain, int size = dimension);

}  // namespace ToneLUT

}  // namespace lumivale
