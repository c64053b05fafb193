#include "engine/render/filters/filter_support.h"

#include <string>

#include "engine/media/vips_glue.h"

namespace lumivale::filters::detail {

namespace {

[[noreturn]] void missing(const char* filter) {
  throw ImageError(std::string(filter) + ": an image was missing in the render chain");
}

}  // namespace

int colourBands(const Image& image, const char* filter) {
  if (image.empty()) missing(filter);
  if (image.bands() != 1 && image.bands() != 3)
    throw ImageError(std::string(filter) + " needs a grey or an RGB image, not " +
                     std::to_string(image.bands()) + " bands");
  return image.bands();
}

void requireSameSize(const Image& a, const Image& b, const char* filter) {
  if (a.empty() || b.empty()) missing(filter);
  if (a.width() != b.width() || a.height() != b.height())
    throw ImageError(std::string(filter) + " needs images of one size, not " + std::to_string(a.width()) +
                     "×" + std::to_string(a.height()) + " and " + std::to_string(b.width()) + "×" +
                     std::to_string(b.height()));
}

Image readTwice(const Image& image) {
  constexpr int tileSide = 128;
  // Enough tiles for the rows that the threads work on at once plus the
  // blur's reach above and below.
  const int across = (image.width() + tileSide - 1) / tileSide;
  return withVips("cannot cache the image", [&] {
    return fromVips(vipsImage(image).tilecache(vips::VImage::option()
                                                   ->set("tile_width", tileSide)
                                                   ->set("tile_height", tileSide)
                                                   ->set("max_tiles", across * 6)
                                                   ->set("threaded", true)));
  });
}

Image greyAsRgb(const Image& grey) {
  return withVips("cannot widen a grey image", [&] {
    const vips::VImage v = vipsImage(grey);
    return fromVips(vips::VImage::bandjoin({v, v, v}).copy(
        vips::VImage::option()->set("interpretation", VIPS_INTERPRETATION_scRGB)));
  });
}

Image firstBand(const Image& image) {
  return withVips("cannot take a band", [&] {
    return fromVips(vipsImage(image).extract_band(0).copy(
        vips::VImage::option()->set("interpretation", VIPS_INTERPRETATION_B_W)));
  });
}

}  // namespace lumivale::filters::detail
