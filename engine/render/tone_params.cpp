#include "engine/render/tone_params.h"

#include <algorithm>
#include <cmath>

namespace lumivale {

namespace {

// A NaN setting reads as the field's default; see the header.
double orDefault(double value, double fallback = 0) { return std::isnan(value) ? fallback : value; }

double slider(double value, double fallback = 0) { return orDefault(value, fallback) / 100; }

GradeWheel cleanWheel(const GradeWheel& w) {
  return {orDefault(w.hue), orDefault(w.saturation), orDefault(w.luminance)};
}

std::optional<CurveEvaluator> curveField(const ToneCurve& curve) {
  if (curve.isIdentity()) return std::nullopt;
  return curve.evaluator();
}

// Clamps to −100 … 100; NaN reads as 0.
double sliderClamped(double v) {
  if (std::isnan(v)) return 0;
  return std::clamp(v, -100.0, 100.0);
}

}  // namespace

RGB ToneParams::whiteBalanceGain(double temperature, double tint) {
  const double t = temperature / 100 * 0.55;
  const double n = tint / 100;
  const double r = std::exp2(t + 0.15 * n);
  const double b = std::exp2(0.15 * n - t);
  const double g = std::exp2(-0.35 * n);
  const double l = luminance709(r, g, b);
  return {r / l, g / l, b / l};
}

WhiteBalance ToneParams::neutralizing(const RGB& rgb) {
  // `v > floor ? v : floor` rather than std::max so that NaN takes the floor.
  auto floored = [](double v) { return v > 1e-5 ? v : 1e-5; };
  const double r = floored(rgb.r);
  const double g = floored(rgb.g);
  const double b = floored(rgb.b);
  const double a = std::log2(b / r);
  const double temperature = a / 1.1 * 100;
  const double d = std::log2(g) - std::log2(r) - (a / 1.1) * 0.55;
  const double tint = 2 * d * 100;
  return {sliderClamped(temperature), sliderClamped(tint)};
}

ToneParams::ToneParams(const EditSettings& s) {
  gain = whiteBalanceGain(orDefault(s.temperature), orDefault(s.tint));

  contrast = slider(s.contrast);
  highlights = slider(s.highlights);
  shadows = slider(s.shadows);
  whites = slider(s.whites);
  blacks = slider(s.blacks);
  vibrance = slider(s.vibrance);
  saturation = slider(s.saturation);

  curveMaster = curveField(s.curveRGB);
  curveR = curveField(s.curveRed);
  curveG = curveField(s.curveGreen);
  curveB = curveField(s.curveBlue);

  // The list goes over as stored (eight bands after decoding), or not at all.
  std::vector<HSLBand> bands;
  bands.reserve(s.hsl.size());
  for (const HSLBand& band : s.hsl) {
    bands.push_back({orDefault(band.hue), orDefault(band.saturation), orDefault(band.luminance)});
  }
  const bool anyBand = std::any_of(bands.begin(), bands.end(), [](const HSLBand& band) {
    return band.hue != 0 || band.saturation != 0 || band.luminance != 0;
  });
  if (anyBand) hsl = std::move(bands);

  gradeS = cleanWheel(s.gradeShadows);
  gradeM = cleanWheel(s.gradeMidtones);
  gradeH = cleanWheel(s.gradeHighlights);
  gradeBlending = slider(s.gradeBlending, 50);
  gradeBalance = slider(s.gradeBalance);

  blackAndWhite = s.blackAndWhite;
}

ToneParams::ToneParams(const MaskAdjust& a) {
  const RGB wb = whiteBalanceGain(orDefault(a.temperature), orDefault(a.tint));
  // Mask exposure is in stops, not a slider.
  const double e = std::exp2(orDefault(a.exposure));
  gain = {e * wb.r, e * wb.g, e * wb.b};
  contrast = slider(a.contrast);
  highlights = slider(a.highlights);
  shadows = slider(a.shadows);
  saturation = slider(a.saturation);
}

}  // namespace lumivale
