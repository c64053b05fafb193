#include "tests/support/color_check.h"

#include <lcms2.h>

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

ColourDifference deltaE(const Image& a, const Image& b) {
  if (a.width() != b.width() || a.height() != b.height()) throw std::runtime_error("images differ in size");
  auto lab = [](const Image& image) {
    return vipsImage(image)
        .copy(vips::VImage::option()->set("interpretation", VIPS_INTERPRETATION_scRGB))
        .colourspace(VIPS_INTERPRETATION_LAB);
  };
  const vips::VImage difference = lab(a).dE00(lab(b)).copy_memory();
  return {difference.avg(), difference.max()};
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
