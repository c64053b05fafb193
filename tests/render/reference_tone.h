#pragma once
// A deliberately plain tone mapping for the tests to hold the engine's to:
// every stage written out in order, with the library power and cosine and
// the divisions as they read, no tables, no precomputation, no reordering.
// The engine's mapping and cube must stay within 1e-6 of it per channel.

#include <algorithm>
#include <cmath>
#include <numbers>

#include "engine/render/color_math.h"
#include "engine/render/tone_params.h"

namespace lumivale::test {

inline double refClamp01(double v) { return v > 0 ? (v < 1 ? v : 1) : 0; }
inline double refSmooth(double x) { return x * x * (3 - 2 * x); }
inline double refY(double r, double g, double b) { return 0.2126 * r + 0.7152 * g + 0.0722 * b; }

inline double refEncode(double c) {
  return !(c > 0) ? 0 : c <= 0.0031308 ? 12.92 * c : 1.055 * std::pow(c, 1 / 2.4) - 0.055;
}
inline double refDecode(double v) {
  return !(v > 0) ? 0 : v <= 0.04045 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4);
}

inline double refChannel(double c, const ToneParams& p, const std::optional<CurveEvaluator>& own) {
  double e = refEncode(c);
  if (p.whites != 0) e = e + p.whites * 0.22 * refSmooth(refClamp01((e - 0.45) / 0.55));
  if (p.blacks != 0) e = e + p.blacks * 0.14 * (1 - refSmooth(refClamp01(e / 0.45)));
  const double high = refSmooth(refClamp01((e - 0.35) / 0.6));
  if (p.highlights > 0) e = e + (1.1 - 0.5 * std::min(e, 1.0)) * p.highlights * 0.18 * high;
  if (p.highlights < 0) e = e + std::max(e - 0.35, 0.0) * p.highlights * 0.5 * high;
  if (p.shadows != 0) {
    double a = refSmooth(refClamp01(e / 0.12));
    double b = refSmooth(refClamp01((e - 0.12) / 0.48));
    e = e + p.shadows * 0.24 * a * (1 - b);
  }
  if (p.contrast != 0) {
    double factor = p.contrast > 0 ? 1 + p.contrast * 0.6 : 1 + p.contrast * 0.5;
    e = (e - 0.46) * factor + 0.46;
  }
  e = refClamp01(e);
  if (p.curveMaster) e = refClamp01((*p.curveMaster)(e));
  if (own) e = refClamp01((*own)(e));
  return e;
}

inline RGB referenceMap(const RGB& in, const ToneParams& p) {
  double r = refChannel(in.r * p.gain.r, p, p.curveR);
  double g = refChannel(in.g * p.gain.g, p, p.curveG);
  double b = refChannel(in.b * p.gain.b, p, p.curveB);

  if (!p.hsl.empty() || p.vibrance != 0 || p.saturation != 0) {
    HSL hsl = rgbToHSL(r, g, b);
    double h = hsl.h, s = hsl.s, l = hsl.l;
    if (!p.hsl.empty() && s > 0.0001) {
      const double centres[8] = {0, 30, 60, 120, 180, 225, 275, 320};
      double W = 0, H = 0, S = 0, L = 0;
      for (int i = 0; i < 8; ++i) {
        double d = std::abs(h - centres[i]);
        if (d > 180) d = 360 - d;
        const double c = d < 50 ? std::cos(d / 50 * std::numbers::pi / 2) : 0, wt = c * c;
        if (wt == 0) continue;
        W += wt, H += wt * p.hsl[i].hue, S += wt * p.hsl[i].saturation, L += wt * p.hsl[i].luminance;
      }
      if (W > 0) {
        double m = std::min(W, 1.0);
        h = std::fmod(h + m * (H / W / 100) * 30, 360.0);
        if (h < 0) h += 360;
        double s2 = refClamp01(s * ((S / W / 100) * m + 1));
        l = refClamp01(l + std::min(s * 1.6, 1.0) * m * (L / W / 100) * 0.28);
        s = s2;
      }
    }
    if (p.vibrance != 0) {
      double k = p.vibrance <= 0 ? 1.0 : (h > 10 && h < 50 ? 0.77 : 1.4);
      s = refClamp01(s * ((1 - s) * p.vibrance * k + 1));
    }
    if (p.saturation != 0) s = refClamp01(s * (1 + p.saturation));
    RGB back = hslToRGB(h, s, l);
    r = back.r, g = back.g, b = back.b;
  }

  auto wheelOn = [](const GradeWheel& w) { return w.saturation != 0 || w.luminance != 0; };
  if (wheelOn(p.gradeS) || wheelOn(p.gradeM) || wheelOn(p.gradeH)) {
    double y = refY(r, g, b);
    double mid = 0.5 - 0.25 * p.gradeBalance;
    double width = 0.12 + 0.38 * p.gradeBlending;
    double wS = 1 - refSmooth(refClamp01(y / (mid + width)));
    double lo = mid - width;
    double wH = refSmooth(refClamp01((y - lo) / (1 - lo)));
    double wM = std::max(1 - wS - wH, 0.0);
    const GradeWheel* wheels[3] = {&p.gradeS, &p.gradeM, &p.gradeH};
    double weights[3] = {wS, wM, wH};
    for (int i = 0; i < 3; ++i) {
      const GradeWheel& w = *wheels[i];
      if (!wheelOn(w) || weights[i] <= 0) continue;
      RGB c = hslToRGB(w.hue, 1, 0.5);
      double cy = refY(c.r, c.g, c.b);
      double a = w.saturation / 100 * weights[i] * 0.3;
      double o = w.luminance / 100 * weights[i] * 0.2;
      r += o + a * (c.r - cy);
      g += o + a * (c.g - cy);
      b += o + a * (c.b - cy);
    }
    r = refClamp01(r), g = refClamp01(g), b = refClamp01(b);
  }

  if (p.blackAndWhite) r = g = b = std::clamp(refY(r, g, b), 0.0, 1.0);
  return {refDecode(r), refDecode(g), refDecode(b)};
}

}  // namespace lumivale::test
