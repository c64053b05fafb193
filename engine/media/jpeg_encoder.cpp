#include "engine/media/jpeg_encoder.h"

#include <algorithm>
#include <cmath>

#include "engine/media/vips_glue.h"

namespace lumivale {

std::string encodeJpeg(const Image& image, double quality) {
  return withVips("cannot encode the JPEG", [&] {
    const vips::VImage srgb = vipsImage(image).colourspace(VIPS_INTERPRETATION_sRGB).cast(VIPS_FORMAT_UCHAR);
    void* buffer = nullptr;
    std::size_t length = 0;
    const int q = std::clamp(int(std::lround(quality * 100)), 1, 100);
    srgb.write_to_buffer(".jpg", &buffer, &length, vips::VImage::option()->set("Q", q)->set("strip", true));
    std::string bytes(static_cast<const char*>(buffer), length);
    g_free(buffer);
    return bytes;
  });
}

}  // namespace lumivale
