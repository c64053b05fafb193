#pragma once
// The point stages that open the render chain, fused into one pass over
// the pixels: the exposure gain, then the tone cube applied as
// `PhotoRenderer::applyCube` applies it (scale by domain, clamp to 0 … 1,
// raise to 1/2.2, trilinear cube lookup, raise to 2.2), optionally blended
// over the input through a coverage mask (a local mask's adjustment).
//
// One pass reads and writes the image once where the plain filter chain
// would read and write it six times. The powers are exact-enough tables
// instead of pow() (a table indexed by the float's exponent and leading
// mantissa bits for x^(1/2.2), whose curve is steep near 0; a uniform one for
// y^2.2), and the lookup is vectorised with Highway. The result equals the
// plain chain of filters within 1e-4 (a test holds it to that).

#include <memory>
#include <vector>

#include "engine/media/image.h"
#include "engine/render/tone_lut.h"

namespace lumivale {

struct TonePass {
  /// Linear multiplier applied first (2^exposure); 1 for none.
  float gain = 1;
  /// The cube (RGBA entries, red fastest, `dimension`³ of them, as
  /// `ToneLUT::cube` makes them); null for none.
  std::shared_ptr<const std::vector<float>> cube;
  int dimension = ToneLUT::dimension;
  LUTDomain domain = LUTDomain::scene;
};

/// The pass over a 3-band working-space image. With `mask` (1-band coverage
/// of the image's size) the result r is blended over the input i as
/// i + m × (r − i). Lazy, like every render step. Throws ImageError for a
/// cube whose size does not match its dimension.
Image applyTonePass(const Image& input, const TonePass& pass, const Image& mask = {});

/// The pass over `width` interleaved RGB pixels (and `mask` values, or
/// null); for tests and benchmarks.
void tonePassRow(const TonePass& pass, const float* input, const float* mask, float* output, int width);

}  // namespace lumivale
