#pragma once
// Small colour functions shared by the tone mapping, the white-balance picker
// and the smart masks.
//
// Colours are three doubles. "Linear" colours are extended-range linear sRGB
// (values above 1 are meaningful); "encoded" colours carry the sRGB transfer
// curve, which is where all per-channel tone work and every HSL conversion
// happen. Hue is in degrees, saturation and lightness are fractions. All
// functions are pure and safe to call from any thread.

#include <algorithm>

namespace lumivale {

/// Three channels, red, green, blue; linear or encoded as the caller says.
struct RGB {
  double r = 0;
  double g = 0;
  double b = 0;
  bool operator==(const RGB&) const = default;
};

/// Hue (degrees, 0 … 360), saturation and lightness.
struct HSL {
  double h = 0;
  double s = 0;
  double l = 0;
  bool operator==(const HSL&) const = default;
};

/// The sRGB transfer curve, linear to encoded: 0 at or below 0 (and for NaN),
/// 12.92 v up to 0.0031308, then 1.055 v^(1/2.4) − 0.055 without an upper
/// clamp, so values above 1 stay above 1.
double srgbEncode(double linear);

/// The inverse curve, encoded to linear: 0 at or below 0 (and for NaN),
/// v / 12.92 up to 0.04045, then ((v + 0.055) / 1.055)^2.4, unclamped.
double srgbDecode(double encoded);

/// Hue, saturation and lightness of an encoded colour. Inputs are normally
/// 0 … 1 but are not clamped. A colour whose channels differ by less than
/// 1e-9 is grey: hue 0, saturation 0. Saturation is limited to at most 1.
/// When two channels share the maximum, red wins over green over blue.
inline HSL rgbToHSL(double r, double g, double b);

/// The colour of hue `h` (degrees, meant for 0 … 360), saturation `s` and
/// lightness `l`; a saturation at or below 0 gives the grey (l, l, l). The
/// hue is wrapped by one turn only: any hue from −240 to 600 gives the colour
/// of its place on the circle, hues further out give channels outside 0 … 1.
inline RGB hslToRGB(double h, double s, double l);

/// Hue in degrees of a linear colour, taken after the sRGB encoding.
double hueOf(const RGB& linear);

/// HSL saturation of a linear colour, taken after the sRGB encoding.
double saturationOf(const RGB& linear);

/// Rec. 709 luminance weights; the tone mapping applies them to encoded
/// values as well.
inline double luminance709(double r, double g, double b) { return 0.2126 * r + 0.7152 * g + 0.0722 * b; }

// The two HSL conversions run for every entry of a tone cube, so they are
// defined here where the cube builder can inline them.

inline HSL rgbToHSL(double r, double g, double b) {
  const double hi = std::max(r, std::max(g, b));
  const double lo = std::min(r, std::min(g, b));
  const double l = (hi + lo) / 2;
  const double d = hi - lo;
  if (d < 1e-9) return {0, 0, l};

  double s = l > 0.5 ? d / (2 - hi - lo) : d / (hi + lo);
  s = std::min(s, 1.0);

  double sector;
  if (hi == r) {
    sector = (g - b) / d + (g < b ? 6 : 0);
  } else if (hi == g) {
    sector = (b - r) / d + 2;
  } else {
    sector = (r - g) / d + 4;
  }
  return {sector * 60, s, l};
}

namespace color_detail {

// One channel of the HSL to RGB conversion; `t` is a hue fraction shifted by
// the channel's offset, wrapped once into 0 … 1.
inline double hueChannel(double p, double q, double t) {
  if (t < 0) t += 1;
  if (t > 1) t -= 1;
  if (t < 1.0 / 6) return p + (q - p) * 6 * t;
  if (t < 1.0 / 2) return q;
  if (t < 2.0 / 3) return p + (q - p) * (2.0 / 3 - t) * 6;
  return p;
}

}  // namespace color_detail

inline RGB hslToRGB(double h, double s, double l) {
  if (s <= 0) return {l, l, l};
  const double q = l < 0.5 ? l * (1 + s) : l + s - l * s;
  const double p = 2 * l - q;
  const double k = h / 360;
  return {color_detail::hueChannel(p, q, k + 1.0 / 3), color_detail::hueChannel(p, q, k),
          color_detail::hueChannel(p, q, k - 1.0 / 3)};
}

}  // namespace lumivale
