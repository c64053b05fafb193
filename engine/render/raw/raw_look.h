#pragma once
// The default look of a developed RAW file: what turns the decoder's
// scene-referred data (1.0 = a neutral at the sensor's clipping point, see
// engine/media/raw_decoder.h) into a picture as bright and as contrasty as
// the camera's own JPEG, before any setting of the user.
//
// Two steps, on linear data:
//   1. Exposure: a gain of 2^exposureEV, which decides where the scene's mid
//      tones land. It is the file's, found in this order: the exposure at
//      which this look renders the mid tones of the camera's own preview of
//      the same frame as bright as the camera did (the camera knows its ISO
//      calibration, its intermediate ISO speeds and its highlight modes; we
//      do not); the camera's baseline exposure when the file carries one
//      (DNG), on top of the typical headroom; else the typical headroom of a
//      sensor above a metered mid grey, 3.5 stops.
//   2. Tone curve on luminance, y = s·x^c / (x^c + k): the photoreceptor-like
//      S-curve of log exposure, steep (slope c) in the shadows and easing
//      off into the highlights. s and k follow from two facts: a mid grey
//      (0.18) stays 0.18, and the sensor's clipping point (2^exposureEV after
//      the gain) becomes white (1.0). The contrast c is the one constant of
//      style. Each pixel is scaled by y / x of its luminance, so hue and
//      linear saturation stay; a colour that would leave the display range
//      on the way is drawn towards the grey of its luminance until it fits.
// Reconstructed highlights above the clipping point stay above 1, for the
// highlight controls to bring back.

#include <functional>
#include <optional>

#include "engine/media/image.h"
#include "engine/media/raw_decoder.h"

namespace lumivale {

struct RawLook {
  /// Stops of headroom a camera typically leaves above a metered mid grey.
  static constexpr double typicalHeadroomStops = 3.5;
  /// The log-log slope of the curve in the shadows.
  static constexpr double defaultContrast = 1.7;

  /// Gain 2^exposureEV on the scene-referred data.
  double exposureEV = typicalExposureEV();
  double contrast = defaultContrast;

  bool operator==(const RawLook&) const = default;

  /// The exposure that puts a mid grey `typicalHeadroomStops` below the
  /// clipping point at 0.18.
  static double typicalExposureEV();

  /// The look from the file's facts alone: its baseline exposure on top of
  /// the typical one, or the typical one.
  static RawLook fromFacts(const RawFacts& facts);

  /// The exposure at which this look renders `scene` (developed data of a
  /// frame, any size) like `preview` (the camera's rendering of the same
  /// frame, any size, same orientation, working space): the median over
  /// mid-tone pixels of the gain each needs. Nothing when the two do not
  /// show one frame (their shapes differ, or their brightness does not
  /// rise and fall together) or too few pixels are usable.
  /// Computes both images at a small size. Throws ImageError.
  std::optional<double> matchedExposure(const Image& scene, const Image& preview) const;

  /// Display-referred linear luminance of a scene-referred one (before the
  /// exposure gain).
  double map(double sceneLuminance) const;

  /// The look as a function on a row of `width` RGB pixels, in place: what
  /// `apply` runs, for joining the pass before it.
  std::function<void(float* rgb, int width)> rowFunction() const;

  /// The look applied to an image in the working space. Lazy.
  Image apply(const Image& scene) const;
};

}  // namespace lumivale
