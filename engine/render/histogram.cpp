#include "engine/render/histogram.h"

#include <algorithm>
#include <cmath>

#include "engine/media/vips_glue.h"
#include "engine/render/kernel.h"

namespace lumivale {

std::optional<Histogram> Histogram::of(const Image& displayed) {
  if (displayed.empty() || displayed.width() < 1 || displayed.height() < 1) return std::nullopt;
  const int width = std::min(displayed.width(), 400);
  const int height = std::max(int(std::int64_t(displayed.height()) * width / displayed.width()), 1);
  const Image measured = width == displayed.width() && height == displayed.height()
                             ? displayed
                             : withVips("cannot measure the histogram", [&] {
                                 const vips::VImage v = vipsImage(displayed);
                                 return fromVips(v.resize(double(width) / v.width(),
                                                          vips::VImage::option()
                                                              ->set("vscale", double(height) / v.height())
                                                              ->set("kernel", VIPS_KERNEL_LINEAR)));
                               });
  const FloatPixels pixels = measured.readPixels();
  std::array<std::array<double, 64>, 4> counts{};
  const int bands = pixels.bands;
  const std::size_t count = std::size_t(pixels.width) * pixels.height;
  for (std::size_t i = 0; i < count; ++i) {
    int v[3];
    for (int c = 0; c < 3; ++c) {
      const float sample = pixels.values[i * std::size_t(bands) + std::size_t(std::min(c, bands - 1))];
      v[c] = std::clamp(int(std::lround(sample)), 0, 255);
      counts[std::size_t(c)][std::size_t(v[c] / 4)] += 1;
    }
    const int y = int(0.2126 * v[0] + 0.7152 * v[1] + 0.0722 * v[2]);
    counts[3][std::size_t(std::min(y / 4, 63))] += 1;
  }
  double peak = 1;
  for (int c = 0; c < 3; ++c)
    for (int i = 1; i <= 62; ++i) peak = std::max(peak, counts[std::size_t(c)][std::size_t(i)]);
  Histogram h;
  std::array<double, 64>* lists[4] = {&h.r, &h.g, &h.b, &h.l};
  for (int c = 0; c < 4; ++c)
    for (int i = 0; i < 64; ++i)
      (*lists[c])[std::size_t(i)] = std::min(counts[std::size_t(c)][std::size_t(i)] / peak, 1.0);
  return h;
}

Image clippingOverlay(const Image& image) {
  return kernel::mapRows({image}, 3, [](const float* const* in, float* out, int width, int, int) {
    const float* p = in[0];
    for (int x = 0; x < width; ++x, p += 3, out += 3) {
      const float m = 0.33f * p[0] + 0.33f * p[1] + 0.34f * p[2];
      const float high = std::clamp((m - 0.985f) * 200, 0.0f, 1.0f);
      const float low = std::clamp((0.002f - m) * 500, 0.0f, 1.0f);
      const float red[3] = {1, 0, 0}, blue[3] = {0, 0.3f, 1};
      for (int c = 0; c < 3; ++c) {
        const float marked = red[c] * high + p[c] * (1 - high);
        out[c] = blue[c] * low + marked * (1 - low);
      }
    }
  });
}

}  // namespace lumivale
