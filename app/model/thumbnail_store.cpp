#include "app/model/thumbnail_store.h"

#include <QColorSpace>
#include <algorithm>
#include <cstring>

#include "engine/catalog/thumbnails.h"

namespace lumivale::app::ThumbnailStore {

bool writeEdited(const PhotoLibrary& library, std::int64_t id, const Image& developed) {
  return Thumbnails::write(toBitmap(developed, ColorSpace::sRGB, 8), library.thumbnailURL(id, true),
                           Thumbnails::storedQuality);
}

QImage toQImage(const Bitmap& bitmap) {
  if (bitmap.bits != 8 || bitmap.channels != 3 || bitmap.width < 1 || bitmap.height < 1 ||
      bitmap.bytes.size() != std::size_t(bitmap.width) * bitmap.height * 3) {
    return {};
  }
  QImage image(bitmap.width, bitmap.height, QImage::Format_RGB888);
  const std::size_t rowBytes = std::size_t(bitmap.width) * 3;
  for (int y = 0; y < bitmap.height; ++y) {
    std::memcpy(image.scanLine(y), bitmap.bytes.data() + rowBytes * std::size_t(y), rowBytes);
  }
  image.setColorSpace(QColorSpace::SRgb);
  return image;
}

QImage toQImage(const Image& picture8) {
  if (picture8.empty()) return {};
  const FloatPixels pixels = picture8.readPixels();
  if (pixels.width < 1 || pixels.height < 1 || pixels.bands < 1) return {};
  QImage image(pixels.width, pixels.height, QImage::Format_RGB888);
  // The samples of an 8-bit picture come back as whole numbers 0 … 255.
  const int bands = pixels.bands;
  for (int y = 0; y < pixels.height; ++y) {
    uchar* row = image.scanLine(y);
    const float* in = pixels.values.data() + std::size_t(y) * pixels.width * bands;
    if (bands == 3) {
      for (int i = 0; i < pixels.width * 3; ++i) row[i] = uchar(std::clamp(in[i], 0.0f, 255.0f) + 0.5f);
      continue;
    }
    for (int x = 0; x < pixels.width; ++x, in += bands, row += 3) {
      for (int c = 0; c < 3; ++c) row[c] = uchar(std::clamp(in[bands >= 3 ? c : 0], 0.0f, 255.0f) + 0.5f);
    }
  }
  image.setColorSpace(QColorSpace::SRgb);
  return image;
}

QImage toQImageFromWorking(const Image& working) {
  if (working.empty()) return {};
  return toQImage(outputImage(working, ColorSpace::sRGB, 8));
}

}  // namespace lumivale::app::ThumbnailStore
