#include "engine/render/color_math.h"

#include <cmath>

namespace lumivale {

double srgbEncode(double linear) {
  // Written so that NaN fails the first test and lands on 0.
  if (!(linear > 0)) return 0;
  if (linear <= 0.0031308) return 12.92 * linear;
  return 1.055 * std::pow(linear, 1 / 2.4) - 0.055;
}

double srgbDecode(double encoded) {
  if (!(encoded > 0)) return 0;
  if (encoded <= 0.04045) return encoded / 12.92;
  return std::pow((encoded + 0.055) / 1.055, 2.4);
}

double hueOf(const RGB& linear) {
  return rgbToHSL(srgbEncode(linear.r), srgbEncode(linear.g), srgbEncode(linear.b)).h;
}

double saturationOf(const RGB& linear) {
  return rgbToHSL(srgbEncode(linear.r), srgbEncode(linear.g), srgbEncode(linear.b)).s;
}

}  // namespace lumivale
