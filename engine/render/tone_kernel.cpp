#include "engine/render/tone_kernel.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <string>

namespace lumivale::tone_detail {

namespace {

// Centre hues of the colour-mixer bands, in `ColorBand` order.
constexpr std::array<double, 8> bandCentres{0, 30, 60, 120, 180, 225, 275, 320};

// Half-width of a band's reach: beyond 50 degrees from its centre a band
// contributes nothing.
constexpr double bandReach = 50;

// Hue modulo 360 into 0 … 360. The common case, already in range, skips the
// division; fmod is exact, so both routes give the same value.
double wrapHue(double h) {
  if (h >= 0 && h < 360) return h;
  double wrapped = std::fmod(h, 360.0);
  if (wrapped < 0) wrapped += 360;
  return wrapped;
}

}  // namespace

double channelTone(double gained, const ToneParams& p) {
  double e = srgbEncode(gained);
  if (p.whites != 0) {
    const double s = smooth(clamp01((e - 0.45) / 0.55));
    e = e + p.whites * 0.22 * s;
  }
  if (p.blacks != 0) {
    const double s = smooth(clamp01(e / 0.45));
    e = e + p.blacks * 0.14 * (1 - s);
  }
  // Recovery pulls down in proportion to the distance above 0.35; boosting
  // is gentler and weaker for values that are already bright.
  if (p.highlights > 0) {
    const double s = smooth(clamp01((e - 0.35) / 0.6));
    e = e + (1.1 - 0.5 * std::min(e, 1.0)) * p.highlights * 0.18 * s;
  } else if (p.highlights < 0) {
    const double s = smooth(clamp01((e - 0.35) / 0.6));
    e = e + std::max(e - 0.35, 0.0) * p.highlights * 0.5 * s;
  }
  if (p.shadows != 0) {
    // A bump rising over 0 … 0.12 and falling over 0.12 … 0.6.
    const double a = smooth(clamp01(e / 0.12));
    const double b = smooth(clamp01((e - 0.12) / 0.48));
    e = e + p.shadows * 0.24 * a * (1 - b);
  }
  if (p.contrast != 0) {
    const double factor = p.contrast > 0 ? 1 + p.contrast * 0.6 : 1 + p.contrast * 0.5;
    e = (e - 0.46) * factor + 0.46;
  }
  return clamp01(e);
}

double channelCurves(double encoded, const std::optional<CurveEvaluator>& master,
                     const std::optional<CurveEvaluator>& own) {
  if (master) encoded = clamp01((*master)(encoded));
  if (own) encoded = clamp01((*own)(encoded));
  return encoded;
}

CrossStages::CrossStages(const ToneParams& p) {
  mixer = !p.hsl.empty();
  // A list of another length than eight (only possible for hand-made
  // parameters) reads as padded with neutral bands, or cut.
  for (std::size_t i = 0; i < bands.size() && i < p.hsl.size(); ++i) bands[i] = p.hsl[i];
  vibrance = p.vibrance;
  saturation = p.saturation;
  hslStage = mixer || vibrance != 0 || saturation != 0;

  const GradeWheel* source[3] = {&p.gradeS, &p.gradeM, &p.gradeH};
  for (int i = 0; i < 3; ++i) {
    Wheel& w = wheels[i];
    w.on = source[i]->saturation != 0 || source[i]->luminance != 0;
    w.saturation = source[i]->saturation / 100;
    w.luminance = source[i]->luminance / 100;
    const RGB full = hslToRGB(source[i]->hue, 1, 0.5);
    const double y = luminance709(full.r, full.g, full.b);
    w.tr = full.r - y;
    w.tg = full.g - y;
    w.tb = full.b - y;
    grading = grading || w.on;
  }
  mid = 0.5 - 0.25 * p.gradeBalance;
  width = 0.12 + 0.38 * p.gradeBlending;
  shadowScale = 1 / (mid + width);
  highlightScale = 1 / (1 - (mid - width));
  blackAndWhite = p.blackAndWhite;
}

void CrossStages::mix(double& h, double& s, double& l) const {
  double weights = 0, hues = 0, saturations = 0, luminances = 0;
  for (std::size_t i = 0; i < bands.size(); ++i) {
    double d = std::abs(h - bandCentres[i]);
    if (d > 180) d = 360 - d;
    if (!(d < bandReach)) continue;
    const double wt = bandWeight(d);
    if (wt == 0) continue;
    weights += wt;
    hues += wt * bands[i].hue;
    saturations += wt * bands[i].saturation;
    luminances += wt * bands[i].luminance;
  }
  if (!(weights > 0)) return;
  const double m = std::min(weights, 1.0);
  // The weighted means of the bands' sliders, as fractions.
  const double scale = 1 / (weights * 100);
  // A hue slider at ±100 turns the hue by at most ±30 degrees.
  h = wrapHue(h + m * (hues * scale) * 30);
  const double shifted = clamp01(s * ((saturations * scale) * m + 1));
  // Greyish colours barely change in lightness: the old saturation scales it.
  l = clamp01(l + std::min(s * 1.6, 1.0) * m * (luminances * scale) * 0.28);
  s = shifted;
}

// The tint goes in with its own luminance taken out, so saturation turns the
// hue without brightening; luminance lifts all three channels alike.
inline void CrossStages::addTint(RGB& c, const Wheel& w, double weight) {
  if (!w.on || weight <= 0) return;
  const double a = w.saturation * weight * 0.3;
  const double o = w.luminance * weight * 0.2;
  c.r += o + a * w.tr;
  c.g += o + a * w.tg;
  c.b += o + a * w.tb;
}

void CrossStages::grade(RGB& c) const {
  const double y = luminance709(c.r, c.g, c.b);
  const double shadow = 1 - smooth(clamp01(y * shadowScale));
  const double highlight = smooth(clamp01((y - (mid - width)) * highlightScale));
  const double midtone = std::max(1 - shadow - highlight, 0.0);
  addTint(c, wheels[0], shadow);
  addTint(c, wheels[1], midtone);
  addTint(c, wheels[2], highlight);
  c = {clamp01(c.r), clamp01(c.g), clamp01(c.b)};
}

RGB CrossStages::apply(RGB c) const {
  if (hslStage) {
    // Once the stage runs, the round trip through HSL always happens.
    const HSL hsl = rgbToHSL(c.r, c.g, c.b);
    double h = hsl.h, s = hsl.s, l = hsl.l;
    if (mixer && s > 0.0001) mix(h, s, l);
    if (vibrance != 0) {
      // Skin hues (strictly between 10 and 50 degrees) are protected.
      const double k = vibrance <= 0 ? 1.0 : (h > 10 && h < 50 ? 0.77 : 1.4);
      s = clamp01(s * ((1 - s) * vibrance * k + 1));
    }
    if (saturation != 0) s = clamp01(s * (1 + saturation));
    c = hslToRGB(h, s, l);
  }
  if (grading) grade(c);
  if (blackAndWhite) {
    const double y = clamp01(luminance709(c.r, c.g, c.b));
    c = {y, y, y};
  }
  return c;
}

const DisplayGamma& DisplayGamma::instance() {
  static const DisplayGamma table;
  return table;
}

DisplayGamma::DisplayGamma() : table(intervals + 1) {
  // Nodes of the smooth branch only, also below the toe, so that an interval
  // that straddles the toe still interpolates the branch it is used for.
  for (int i = 0; i <= intervals; ++i) {
    table[i] = std::pow((double(i) / intervals + 0.055) / 1.055, 2.4 / 2.2);
  }
  table[intervals] = 1;
}

double DisplayGamma::exact(double encoded) { return std::pow(srgbDecode(encoded), 1 / 2.2); }

double DisplayGamma::toeValue(double encoded) {
  if (!(encoded > 0)) return 0;
  return std::pow(encoded / 12.92, 1 / 2.2);
}

CubeBuilder::CubeBuilder(const ToneParams& p, LUTDomain domain, int size)
    : n(size), cross(p), gamma(DisplayGamma::instance()) {
  if (size < 2 || size > ToneLUT::maximumDimension) {
    throw std::invalid_argument("a tone cube has 2 to " + std::to_string(ToneLUT::maximumDimension) +
                                " points per axis, not " + std::to_string(size));
  }
  const double gains[3] = {p.gain.r, p.gain.g, p.gain.b};
  const std::optional<CurveEvaluator>* own[3] = {&p.curveR, &p.curveG, &p.curveB};
  for (int ch = 0; ch < 3; ++ch) {
    axis[ch].resize(n);
    for (int i = 0; i < n; ++i) {
      const double linear = ToneLUT::decode(double(i) / (n - 1), domain);
      axis[ch][i] = channelCurves(channelTone(linear * gains[ch], p), p.curveMaster, *own[ch]);
    }
    if (!cross.active()) {
      stored[ch].resize(n);
      for (int i = 0; i < n; ++i) stored[ch][i] = static_cast<float>(gamma(axis[ch][i]));
    }
  }
}

void CubeBuilder::fillSlab(int blue, float* cube) const {
  float* out = cube + std::size_t(blue) * n * n * 4;
  if (!cross.active()) {
    const float b = stored[2][blue];
    for (int g = 0; g < n; ++g) {
      const float gv = stored[1][g];
      for (int r = 0; r < n; ++r) {
        out[0] = stored[0][r];
        out[1] = gv;
        out[2] = b;
        out[3] = 1.0f;
        out += 4;
      }
    }
    return;
  }
  const double b = axis[2][blue];
  for (int g = 0; g < n; ++g) {
    const double gv = axis[1][g];
    for (int r = 0; r < n; ++r) {
      const RGB v = cross.apply({axis[0][r], gv, b});
      out[0] = static_cast<float>(gamma(v.r));
      out[1] = static_cast<float>(gamma(v.g));
      out[2] = static_cast<float>(gamma(v.b));
      out[3] = 1.0f;
      out += 4;
    }
  }
}

}  // namespace lumivale::tone_detail
