#pragma once
// Noise reduction of developed RAW data (working space, scene-referred):
// luminance noise by edge-preserving smoothing, colour noise by smoothing
// the chroma while keeping every pixel's luminance.
//
// Both work on the square root of each channel (signed for the negative
// values of noise around black). There the sensor's photon noise has about
// the same spread at every brightness, so one threshold fits shadows and
// highlights alike. With L the Rec. 709 weighted sum of the rooted channels
// and C = rooted − L their chroma:
//   - luminance: L goes through a guided filter (He, Sun and Tang) with
//     itself as guide: where L varies less than the noise, it is averaged;
//     across edges, which vary far more, it is kept. The noise's spread is
//     measured on the image itself, so the same amount is as strong at every
//     ISO speed and preview size;
//   - colour: C is blurred and added back to L, so L itself never moves.
//     A wide blur runs on a copy of the image shrunk by block averages
//     (chroma is smooth), read back bilinearly.
// Radii are given in full-resolution pixels and scaled with the image.

#include <functional>

#include "engine/media/image.h"

namespace lumivale {

struct RawNoiseAmounts {
  double luminance = 0;  ///< 0 … 1
  double color = 0;      ///< 0 … 1
  bool operator==(const RawNoiseAmounts&) const = default;
};

namespace RawNoise {

/// Width (sigma, full-resolution pixels) of the chroma blur at amount 1.
inline constexpr double colorSigmaAtFull = 24;

/// The spread (standard deviation) of pixel-to-pixel noise of the image's
/// rooted luminance, estimated robustly from its central part (at most 512
/// × 512 pixels, which are computed). Throws ImageError.
double noiseSigma(const Image& image);

/// A point operation that follows the noise reduction, run in place on
/// each finished row of `width` RGB pixels, so that both take one pass.
using RowFinish = std::function<void(float* rgb, int width)>;

/// The image with its noise reduced by `amounts`, then `finish` (when given)
/// applied; the image itself when both amounts are 0 and there is no
/// `finish`. `noiseSigma` as measured by `noiseSigma`, `scale` the image's
/// fraction of full resolution. Lazy; throws ImageError.
Image reduce(const Image& image, const RawNoiseAmounts& amounts, double noiseSigma, double scale,
             const RowFinish& finish = {});

}  // namespace RawNoise
}  // namespace lumivale
