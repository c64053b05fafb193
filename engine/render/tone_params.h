#pragma once
// Render-ready tone parameters: everything the per-colour tone mapping needs,
// folded out of the photo's settings (or one mask's adjustments) once.
//
// Sliders become fractions (value / 100), white balance becomes three linear
// channel gains, and whatever would change nothing is dropped so the mapping
// can skip it: identity curves are absent, an all-zero colour mixer is an
// empty list. The photo's own exposure is not here (the render chain applies
// it as a stage of its own); a mask's exposure is folded into `gain`.
//
// A NaN in the settings reads as that field's default (untouched) value:
// there is no meaningful adjustment to derive from it, and letting it through
// would turn every colour it touches into NaN. Infinite and out-of-range
// values are kept as they are; the tone mapping keeps its output finite and
// within 0 … 1 whatever they do.

#include <optional>
#include <vector>

#include "engine/edit/edit_settings.h"
#include "engine/edit/photo_mask.h"
#include "engine/edit/tone_curve.h"
#include "engine/render/color_math.h"

namespace lumivale {

/// Temperature and tint slider values, each −100 … 100.
struct WhiteBalance {
  double temperature = 0;
  double tint = 0;
  bool operator==(const WhiteBalance&) const = default;
};

/// A plain value; copying it copies the curve evaluators, which are
/// immutable and safe to call from several threads at once.
struct ToneParams {
  RGB gain{1, 1, 1};      ///< linear per-channel multipliers: white balance (and a mask's exposure)
  double contrast = 0;    ///< slider / 100
  double highlights = 0;  ///< slider / 100
  double shadows = 0;     ///< slider / 100
  double whites = 0;      ///< slider / 100
  double blacks = 0;      ///< slider / 100
  double vibrance = 0;    ///< slider / 100
  double saturation = 0;  ///< slider / 100
  std::optional<CurveEvaluator> curveMaster;  ///< absent when the RGB curve is an identity
  std::optional<CurveEvaluator> curveR;
  std::optional<CurveEvaluator> curveG;
  std::optional<CurveEvaluator> curveB;
  /// The eight colour-mixer bands in `ColorBand` order, or empty when every
  /// band is all zero.
  std::vector<HSLBand> hsl;
  GradeWheel gradeS;           ///< shadows wheel, as stored (hue in degrees, sliders unscaled)
  GradeWheel gradeM;           ///< midtones wheel
  GradeWheel gradeH;           ///< highlights wheel
  double gradeBlending = 0.5;  ///< slider / 100
  double gradeBalance = 0;     ///< slider / 100
  bool blackAndWhite = false;

  /// The identity parameters: unit gains, every adjustment off, blending 0.5.
  ToneParams() = default;

  /// From the photo's settings; exposure, detail, effects, geometry and masks
  /// are not read.
  explicit ToneParams(const EditSettings& settings);

  /// From one mask's adjustments: gain = 2^exposure × white balance;
  /// contrast, highlights, shadows and saturation as sliders / 100; the rest
  /// off. `sharpness` is the render chain's business.
  explicit ToneParams(const MaskAdjust& adjust);

  /// The white-balance model: linear channel gains for temperature and tint
  /// sliders (−100 … 100), normalised so that a neutral grey keeps its
  /// Rec. 709 luminance. Positive temperature warms, positive tint adds
  /// magenta. Zero and zero give exactly (1, 1, 1).
  static RGB whiteBalanceGain(double temperature, double tint);

  /// The temperature and tint that make the sampled linear colour `rgb`
  /// neutral under `whiteBalanceGain`: the exact inverse of the model. Each
  /// channel is floored at 1e-5 (NaN too), results are clamped to −100 … 100,
  /// and a result that is still not a number reads as 0.
  static WhiteBalance neutralizing(const RGB& rgb);
};

}  // namespace lumivale
