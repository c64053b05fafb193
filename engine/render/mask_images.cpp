// Coverage images of masks at render size. Gradients are generated at the
// size asked for; brush and smart masks are 8-bit bitmaps of their own size,
// cached process-wide as images, then scaled.

#include <cmath>
#include <mutex>
#include <unordered_map>

#include "engine/edit/value_hash.h"
#include "engine/render/filters/gradient.h"
#include "engine/render/filters/resample.h"
#include "engine/render/mask_bitmap.h"
#include "engine/render/mask_renderer.h"

namespace lumivale::MaskRenderer {
namespace {

// Each cache is emptied when it already holds more than this many images.
constexpr std::size_t cacheFlushAbove = 30;

struct Caches {
  std::mutex lock;
  std::unordered_map<std::size_t, Image> brush;
  std::unordered_map<std::size_t, Image> smart;
};

Caches& caches() {
  static Caches c;
  return c;
}

Image coverageImage(const MaskBitmap& bitmap) {
  FloatPixels pixels{bitmap.width, bitmap.height, 1, {}};
  pixels.values.resize(bitmap.bytes.size());
  for (std::size_t i = 0; i < bitmap.bytes.size(); ++i) pixels.values[i] = float(bitmap.bytes[i]) / 255.0f;
  return Image::fromPixels(pixels);
}

// The cached image for `key`, or the one `make` returns (stored, after a
// flush of a cache that outgrew its limit). `make` runs outside the lock.
template <class Make>
Image cached(std::unordered_map<std::size_t, Image>& cache, std::size_t key, Make make) {
  Caches& c = caches();
  {
    std::lock_guard hold(c.lock);
    if (auto it = cache.find(key); it != cache.end()) return it->second;
  }
  Image made = make();
  std::lock_guard hold(c.lock);
  if (cache.size() > cacheFlushAbove) cache.clear();
  cache[key] = made;
  return made;
}

// A bitmap image stretched over the render size, sampled between pixel
// centres, its edge pixels repeated beyond the edges.
Image scaledTo(const Image& bitmap, int width, int height) {
  if (bitmap.width() == width && bitmap.height() == height) return bitmap;
  const double sx = double(width) / bitmap.width(), sy = double(height) / bitmap.height();
  return filters::affine(bitmap, Affine{sx, 0, 0, sy, 0, 0}, Rect{0, 0, double(width), double(height)});
}

}  // namespace

Image image(const PhotoMask& mask, int width, int height) {
  if (width < 1 || height < 1) return {};
  const double w = width, h = height;
  switch (mask.kind) {
    case MaskKind::linear:
      return filters::linearGradient(width, height, {mask.x0 * w, mask.y0 * h}, 1.0, {mask.x1 * w, mask.y1 * h},
                                     0.0);
    case MaskKind::radial: {
      const double inner = std::min(std::max(1 - mask.feather, 0.0), 0.999);
      return filters::radialGradient(width, height, {mask.cx * w, mask.cy * h}, std::max(mask.rx * w, 0.001),
                                     std::max(mask.ry * h, 0.001), std::isnan(inner) ? 0.999 : inner, 1.0, 1.0,
                                     0.0);
    }
    case MaskKind::brush: {
      if (mask.dabs.empty()) return Image::constant(width, height, {0, 0, 0}, 1);
      Hasher hasher;
      hasher.addCount(mask.dabs.size());
      for (const BrushDab& dab : mask.dabs) hashInto(hasher, dab);
      const double aspect = w / h;
      const std::size_t key = hasher.value() ^ std::size_t(std::int64_t(aspect * 1000));
      const Image bitmap = cached(caches().brush, key, [&] {
        const PixelSize size = brushBitmapSize(aspect);
        return coverageImage(paint(mask.dabs, size.width, size.height));
      });
      return scaledTo(bitmap, width, height);
    }
    case MaskKind::subject:
    case MaskKind::sky:
    case MaskKind::people: {
      if (!mask.maskPNG || mask.maskPNG->empty()) return Image::constant(width, height, {0, 0, 0}, 1);
      Hasher hasher;
      hasher.add(std::string_view(reinterpret_cast<const char*>(mask.maskPNG->data()), mask.maskPNG->size()));
      const Image bitmap = cached(caches().smart, hasher.value(), [&]() -> Image {
        const auto decoded = MaskBitmap::decode(*mask.maskPNG);
        if (!decoded || decoded->width < 1 || decoded->height < 1) return {};
        return coverageImage(*decoded);
      });
      if (bitmap.empty()) return Image::constant(width, height, {0, 0, 0}, 1);
      return scaledTo(bitmap, width, height);
    }
  }
  return {};
}

std::size_t cachedBrushImages() {
  std::lock_guard hold(caches().lock);
  return caches().brush.size();
}

std::size_t cachedSmartImages() {
  std::lock_guard hold(caches().lock);
  return caches().smart.size();
}

void clearImageCaches() {
  std::lock_guard hold(caches().lock);
  caches().brush.clear();
  caches().smart.clear();
}

}  // namespace lumivale::MaskRenderer
