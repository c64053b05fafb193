#include "tests/support/color_check.h"

#include <lcms2.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <string>

#include "engine/media/vips_glue.h"
#include "tests/support/temp_dir.h"

namespace lumivale::test {
namespace {

// Linear Rec. 2020 as an ICC profile file, wide enough for P3 and Adobe RGB.
const std::filesystem::path& linearRec2020Profile() {
  static const TempDir folder;
  static const std::filesystem::path file = [] {
    const cmsCIExyY white{0.3127, 0.3290, 1.0};
    const cmsCIExyYTRIPLE primaries{{0.708, 0.292, 1.0}, {0.170, 0.797, 1.0}, {0.131, 0.046, 1.0}};
    cmsToneCurve* linear = cmsBuildGamma(nullptr, 1.0);
    cmsToneCurve* curves[3] = {linear, linear, linear};
    cmsHPROFILE profile = cmsCreateRGBProfile(&white, &primaries, curves);
    const std::filesystem::path path = folder / "linear-rec2020.icc";
    if (!profile || !cmsSaveProfileToFile(profile, path.c_str()))
      throw std::runtime_error("no Rec. 2020 profile");
    cmsCloseProfile(profile);
    cmsFreeToneCurve(linear);
    return path;
  }();
  return file;
}

}  // namespace

namespace {

// CIEDE2000 (Sharma, Wu and Dalal 2005), with hue terms defined as 0 for
// neutral colours.
double ciede2000(const float* lab1, const float* lab2) {
  constexpr double pi = 3.14159265358979323846;
  auto degrees = [](double rad) { return rad * 180 / pi; };
  auto radians = [](double deg) { return deg * pi / 180; };
  const double l1 = lab1[0], a1 = lab1[1], b1 = lab1[2], l2 = lab2[0], a2 = lab2[1], b2 = lab2[2];
  const double cBar = (std::hypot(a1, b1) + std::hypot(a2, b2)) / 2;
  const double g = 0.5 * (1 - std::sqrt(std::pow(cBar, 7) / (std::pow(cBar, 7) + std::pow(25.0, 7))));
  const double ap1 = a1 * (1 + g), ap2 = a2 * (1 + g);
  const double c1 = std::hypot(ap1, b1), c2 = std::hypot(ap2, b2);
  auto hue = [&](double b, double ap) {
    if (b == 0 && ap == 0) return 0.0;
    const double h = degrees(std::atan2(b, ap));
    return h < 0 ? h + 360 : h;
  };
  const double h1 = hue(b1, ap1), h2 = hue(b2, ap2);
  double dh = 0;
  if (c1 * c2 != 0) {
    dh = h2 - h1;
    if (dh > 180) dh -= 360;
    if (dh < -180) dh += 360;
  }
  const double dL = l2 - l1, dC = c2 - c1, dH = 2 * std::sqrt(c1 * c2) * std::sin(radians(dh / 2));
  const double lBar = (l1 + l2) / 2, cpBar = (c1 + c2) / 2;
  double hBar = h1 + h2;
  if (c1 * c2 != 0) {
    hBar = std::abs(h1 - h2) <= 180 ? (h1 + h2) / 2 : (h1 + h2 + (h1 + h2 < 360 ? 360 : -360)) / 2;
  }
  const double t = 1 - 0.17 * std::cos(radians(hBar - 30)) + 0.24 * std::cos(radians(2 * hBar)) +
                   0.32 * std::cos(radians(3 * hBar + 6)) - 0.20 * std::cos(radians(4 * hBar - 63));
  const double sl = 1 + 0.015 * (lBar - 50) * (lBar - 50) / std::sqrt(20 + (lBar - 50) * (lBar - 50));
  const double sc = 1 + 0.045 * cpBar, sh = 1 + 0.015 * cpBar * t;
  const double rt = -2 * std::sqrt(std::pow(cpBar, 7) / (std::pow(cpBar, 7) + std::pow(25.0, 7))) *
                    std::sin(radians(60 * std::exp(-std::pow((hBar - 275) / 25, 2))));
  return std::sqrt(std::pow(dL / sl, 2) + std::pow(dC / sc, 2) + std::pow(dH / sh, 2) +
                   rt * (dC / sc) * (dH / sh));
}

}  // namespace

ColourDifference deltaE(const Image& a, const Image& b) {
  if (a.width() != b.width() || a.height() != b.height()) throw std::runtime_error("images differ in size");
  auto lab = [](const Image& image) {
    vips::VImage v =
        vipsImage(image).copy(vips::VImage::option()->set("interpretation", VIPS_INTERPRETATION_scRGB));
    return fromVips(v.colourspace(VIPS_INTERPRETATION_LAB).cast(VIPS_FORMAT_FLOAT)).readPixels();
  };
  const FloatPixels labA = lab(a), labB = lab(b);
  ColourDifference d;
  const std::size_t pixels = std::size_t(labA.width) * labA.height;
  for (std::size_t i = 0; i < pixels; ++i) {
    const double e = ciede2000(&labA.values[3 * i], &labB.values[3 * i]);
    d.mean += e / double(pixels);
    d.max = std::max(d.max, e);
  }
  return d;
}

Image cropped(const Image& image, const Area& area) {
  return Image::fromPixels(image.readPixels(area.left, area.top, area.width, area.height));
}

Image referenceDecode(const std::filesystem::path& file, std::optional<Area> area) {
  initImageLibraries();
  vips::VImage image = vips::VImage::new_from_file(file.c_str()).autorot();
  const bool cmyk = image.interpretation() == VIPS_INTERPRETATION_CMYK;
  const int colourBands = cmyk ? 4 : image.bands() <= 2 ? 1 : 3;
  const double full = image.format() == VIPS_FORMAT_USHORT ? 65535 : 255;
  if (image.bands() > colourBands)
    image =
        image.flatten(vips::VImage::option()
                          ->set("background", std::vector<double>(std::size_t(colourBands), cmyk ? 0 : full))
                          ->set("max_alpha", full));
  const bool tagged = vips_image_get_typeof(image.get_image(), VIPS_META_ICC_NAME) != 0;
  if (!tagged && colourBands == 1)
    image = image.colourspace(full > 255 ? VIPS_INTERPRETATION_RGB16 : VIPS_INTERPRETATION_sRGB);
  if (area) image = image.extract_area(area->left, area->top, area->width, area->height);
  vips::VImage rec2020 =
      image.icc_transform(linearRec2020Profile().c_str(), vips::VImage::option()
                                                              ->set("embedded", true)
                                                              ->set("input_profile", cmyk ? "cmyk" : "srgb")
                                                              ->set("intent", VIPS_INTENT_RELATIVE)
                                                              ->set("depth", 16));
  // ITU-R BT.2087: linear Rec. 2020 to linear Rec. 709.
  double matrix[9] = {1.6605, -0.5876, -0.0728, -0.1246, 1.1329, -0.0083, -0.0182, -0.1006, 1.1187};
  vips::VImage linear = (rec2020.cast(VIPS_FORMAT_FLOAT) / 65535.0)
                            .recomb(vips::VImage::new_matrix(3, 3, matrix, 9))
                            .cast(VIPS_FORMAT_FLOAT);
  return fromVips(
      linear.copy(vips::VImage::option()->set("interpretation", VIPS_INTERPRETATION_scRGB)).copy_memory());
}

}  // namespace lumivale::test
