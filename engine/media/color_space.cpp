#include "engine/media/color_space.h"

#include <lcms2.h>

#include <cmath>
#include <memory>
#include <mutex>

#include "engine/media/safe_file.h"

namespace lumivale {
namespace {

constexpr Primaries rec709{0.64, 0.33, 0.30, 0.60, 0.15, 0.06, 0.3127, 0.3290};
constexpr Primaries p3D65{0.680, 0.320, 0.265, 0.690, 0.150, 0.060, 0.3127, 0.3290};
constexpr Primaries adobe1998{0.64, 0.33, 0.21, 0.71, 0.15, 0.06, 0.3127, 0.3290};

// The pure gamma of Adobe RGB (1998): 2 + 51/256, as its specification writes it.
constexpr double adobeGamma = 563.0 / 256.0;

double srgbCurveEncode(double v) {
  if (!(v > 0)) return 0;
  return v <= 0.0031308 ? 12.92 * v : 1.055 * std::pow(v, 1 / 2.4) - 0.055;
}

double srgbCurveDecode(double v) {
  if (!(v > 0)) return 0;
  return v <= 0.04045 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4);
}

struct ProfileCloser {
  void operator()(void* profile) const { cmsCloseProfile(profile); }
};
struct CurveFree {
  void operator()(cmsToneCurve* curve) const { cmsFreeToneCurve(curve); }
};
struct MluFree {
  void operator()(cmsMLU* mlu) const { cmsMLUfree(mlu); }
};

void writeText(cmsHPROFILE profile, cmsTagSignature tag, const char* text) {
  std::unique_ptr<cmsMLU, MluFree> mlu(cmsMLUalloc(nullptr, 1));
  if (!mlu || !cmsMLUsetASCII(mlu.get(), "en", "US", text) || !cmsWriteTag(profile, tag, mlu.get()))
    throw MediaError("cannot build a colour profile");
}

std::vector<std::uint8_t> buildProfile(ColorSpace space) {
  const Primaries p = primariesOf(space);
  const cmsCIExyY white{p.whiteX, p.whiteY, 1.0};
  const cmsCIExyYTRIPLE primaries{{p.redX, p.redY, 1.0}, {p.greenX, p.greenY, 1.0}, {p.blueX, p.blueY, 1.0}};
  std::unique_ptr<cmsToneCurve, CurveFree> curve;
  if (space == ColorSpace::adobeRGB) {
    curve.reset(cmsBuildGamma(nullptr, adobeGamma));
  } else {
    // ICC parametric type 4: Y = (aX + b)^g above d, cX below.
    const cmsFloat64Number srgb[5] = {2.4, 1 / 1.055, 0.055 / 1.055, 1 / 12.92, 0.04045};
    curve.reset(cmsBuildParametricToneCurve(nullptr, 4, srgb));
  }
  cmsToneCurve* curves[3] = {curve.get(), curve.get(), curve.get()};
  std::unique_ptr<void, ProfileCloser> profile(cmsCreateRGBProfile(&white, &primaries, curves));
  if (!profile) throw MediaError("cannot build a colour profile");
  writeText(profile.get(), cmsSigProfileDescriptionTag, std::string(profileDescription(space)).c_str());
  writeText(profile.get(), cmsSigCopyrightTag, "No copyright, use freely");
  cmsSetHeaderRenderingIntent(profile.get(), INTENT_PERCEPTUAL);
  cmsUInt32Number size = 0;
  if (!cmsSaveProfileToMem(profile.get(), nullptr, &size)) throw MediaError("cannot build a colour profile");
  std::vector<std::uint8_t> bytes(size);
  if (!cmsSaveProfileToMem(profile.get(), bytes.data(), &size))
    throw MediaError("cannot build a colour profile");
  bytes.resize(size);
  return bytes;
}

}  // namespace

Primaries primariesOf(ColorSpace space) {
  switch (space) {
    case ColorSpace::displayP3:
      return p3D65;
    case ColorSpace::adobeRGB:
      return adobe1998;
    case ColorSpace::sRGB:
      break;
  }
  return rec709;
}

std::string_view profileDescription(ColorSpace space) {
  switch (space) {
    case ColorSpace::displayP3:
      return "Display P3";
    case ColorSpace::adobeRGB:
      return "Adobe RGB (1998)";
    case ColorSpace::sRGB:
      break;
  }
  return "sRGB IEC61966-2.1";
}

const std::vector<std::uint8_t>& iccProfile(ColorSpace space) {
  static std::once_flag once;
  static std::array<std::vector<std::uint8_t>, allColorSpaces.size()> profiles;
  std::call_once(once, [] {
    for (ColorSpace s : allColorSpaces) profiles[std::size_t(s)] = buildProfile(s);
  });
  return profiles[std::size_t(space)];
}

Matrix3 linearFromWorking(ColorSpace space) {
  if (space == ColorSpace::sRGB) return {1, 0, 0, 0, 1, 0, 0, 0, 1};
  return multiply(inverse(rgbToXyz(primariesOf(space))), rgbToXyz(rec709));
}

double encodeTransfer(ColorSpace space, double linear) {
  if (space == ColorSpace::adobeRGB) return linear > 0 ? std::pow(linear, 1 / adobeGamma) : 0;
  return srgbCurveEncode(linear);
}

double decodeTransfer(ColorSpace space, double encoded) {
  if (space == ColorSpace::adobeRGB) return encoded > 0 ? std::pow(encoded, adobeGamma) : 0;
  return srgbCurveDecode(encoded);
}

Matrix3 rgbToXyz(const Primaries& p) {
  auto column = [](double x, double y) { return std::array<double, 3>{x / y, 1.0, (1 - x - y) / y}; };
  const auto r = column(p.redX, p.redY), g = column(p.greenX, p.greenY), b = column(p.blueX, p.blueY);
  const auto w = column(p.whiteX, p.whiteY);
  const Matrix3 m{r[0], g[0], b[0], r[1], g[1], b[1], r[2], g[2], b[2]};
  // Scale each primary so that r = g = b = 1 gives the white.
  const Matrix3 inv = inverse(m);
  const double s[3] = {inv[0] * w[0] + inv[1] * w[1] + inv[2] * w[2],
                       inv[3] * w[0] + inv[4] * w[1] + inv[5] * w[2],
                       inv[6] * w[0] + inv[7] * w[1] + inv[8] * w[2]};
  Matrix3 out{};
  for (int row = 0; row < 3; ++row)
    for (int col = 0; col < 3; ++col) out[row * 3 + col] = m[row * 3 + col] * s[col];
  return out;
}

Matrix3 multiply(const Matrix3& a, const Matrix3& b) {
  Matrix3 out{};
  for (int row = 0; row < 3; ++row)
    for (int col = 0; col < 3; ++col)
      for (int k = 0; k < 3; ++k) out[row * 3 + col] += a[row * 3 + k] * b[k * 3 + col];
  return out;
}

Matrix3 inverse(const Matrix3& m) {
  const double a = m[0], b = m[1], c = m[2], d = m[3], e = m[4], f = m[5], g = m[6], h = m[7], i = m[8];
  const double det = a * (e * i - f * h) - b * (d * i - f * g) + c * (d * h - e * g);
  return {(e * i - f * h) / det, (c * h - b * i) / det, (b * f - c * e) / det,
          (f * g - d * i) / det, (a * i - c * g) / det, (c * d - a * f) / det,
          (d * h - e * g) / det, (b * g - a * h) / det, (a * e - b * d) / det};
}

}  // namespace lumivale
