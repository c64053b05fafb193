#pragma once
// The pieces of the tone mapping, shared by `ToneLUT::map` and the cube
// builder and visible to the tests that check them; not meant for other
// callers.
//
// Why the cube is built from pieces rather than by calling `map` per grid
// point: everything up to and including the curves acts on each channel
// alone, so for one grid axis it depends on one index only. Those stages are
// computed once per axis value (3 × size evaluations instead of 3 × size³),
// with exactly the arithmetic `map` uses. Only the stages that mix channels
// (HSL, grading, black and white) and the final transfer run per grid point;
// when none of them is active the whole cube is separable and each entry is
// three look-ups.

#include <array>
#include <optional>
#include <vector>

#include "engine/edit/tone_curve.h"
#include "engine/render/color_math.h"
#include "engine/render/tone_lut.h"
#include "engine/render/tone_params.h"

namespace lumivale::tone_detail {

/// Clamp to 0 … 1 where NaN lands on 0, so a NaN never leaves a clamp.
inline double clamp01(double v) { return v > 0 ? (v < 1 ? v : 1) : 0; }

/// Smoothstep of a value already in 0 … 1.
inline double smooth(double x) { return x * x * (3 - 2 * x); }

/// A colour-mixer band's weight at `d` degrees (0 … 50) from its centre:
/// cos(d / 50 × π / 2)². The cosine is an even Taylor polynomial through
/// x^16, within 1e-12 of the library cosine on this range and several times
/// cheaper; it runs for two or three bands of every cube entry.
inline double bandWeight(double d) {
  const double x = d * (3.14159265358979323846 / 100);
  const double x2 = x * x;
  double c = 1.0 / 20922789888000;  // 1 / 16!
  c = c * x2 - 1.0 / 87178291200;   // 1 / 14!
  c = c * x2 + 1.0 / 479001600;     // 1 / 12!
  c = c * x2 - 1.0 / 3628800;       // 1 / 10!
  c = c * x2 + 1.0 / 40320;         // 1 / 8!
  c = c * x2 - 1.0 / 720;
  c = c * x2 + 1.0 / 24;
  c = c * x2 - 1.0 / 2;
  c = c * x2 + 1;
  return c * c;
}

/// One channel after its gain: sRGB-encoded, then whites, blacks,
/// highlights, shadows and contrast (each only when its parameter is not
/// zero), clamped to 0 … 1.
double channelTone(double gained, const ToneParams& p);

/// The master curve, then the channel's own curve, each result clamped.
double channelCurves(double encoded, const std::optional<CurveEvaluator>& master,
                     const std::optional<CurveEvaluator>& own);

/// The stages that mix channels, prepared once from the parameters: the HSL
/// stage (colour mixer, vibrance, saturation), colour grading, black and
/// white. Works on encoded values in 0 … 1 and returns encoded values in
/// 0 … 1. Immutable; `apply` may run on many threads at once.
class CrossStages {
 public:
  explicit CrossStages(const ToneParams& p);

  /// False when every one of these stages is skipped.
  bool active() const { return hslStage || grading || blackAndWhite; }

  RGB apply(RGB encoded) const;

 private:
  struct Wheel {
    bool on = false;
    double saturation = 0, luminance = 0;  // sliders / 100
    // The wheel's hue at full saturation with its own luminance taken out.
    double tr = 0, tg = 0, tb = 0;
  };

  void mix(double& h, double& s, double& l) const;
  void grade(RGB& c) const;
  static void addTint(RGB& c, const Wheel& w, double weight);

  bool hslStage = false;
  bool mixer = false;
  std::array<HSLBand, 8> bands{};
  double vibrance = 0;
  double saturation = 0;
  bool grading = false;
  std::array<Wheel, 3> wheels{};  // shadows, midtones, highlights
  double mid = 0;                 // centre of the grading's tonal split
  double width = 0;               // half-width of the midtone band
  // Reciprocals of the grading weights' denominators, taken once.
  double shadowScale = 0;
  double highlightScale = 0;
  bool blackAndWhite = false;
};

/// sRGB-encoded value to the form a cube stores, decode(v)^(1/2.2), without
/// a power per call: a uniform table of the smooth branch with linear
/// interpolation (error below 1e-8, far inside float precision), and the
/// exact formula on the short linear-toe branch where the 1/2.2 power is
/// too steep to interpolate. 0 for v ≤ 0 and NaN; exact 1 at v = 1.
class DisplayGamma {
 public:
  static const DisplayGamma& instance();

  double operator()(double encoded) const {
    if (!(encoded > toe)) return toeValue(encoded);
    if (!(encoded < 1)) return encoded == 1 ? 1.0 : exact(encoded);
    const double x = encoded * intervals;
    const int i = static_cast<int>(x);
    const double f = x - i;
    return table[i] + f * (table[i + 1] - table[i]);
  }

  /// The same value by the plain formula.
  static double exact(double encoded);

  static constexpr int intervals = 4096;

 private:
  DisplayGamma();
  static double toeValue(double encoded);
  static constexpr double toe = 0.04045;
  std::vector<double> table;
};

/// Builds a cube: prepares the per-axis values and the cross-channel stages
/// once, then fills one blue slab per call.
class CubeBuilder {
 public:
  CubeBuilder(const ToneParams& p, LUTDomain domain, int size);

  int size() const { return n; }

  /// Writes the entries with blue index `blue` (n × n × 4 floats) into the
  /// cube buffer that starts at `cube`. Slabs do not overlap, so different
  /// blues may be filled at the same time.
  void fillSlab(int blue, float* cube) const;

 private:
  int n;
  CrossStages cross;
  const DisplayGamma& gamma;
  std::array<std::vector<double>, 3> axis;   // encoded, after the curves
  std::array<std::vector<float>, 3> stored;  // the stored form, when separable
};

}  // namespace lumivale::tone_detail
