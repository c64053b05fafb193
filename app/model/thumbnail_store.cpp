#include "app/model/thumbnail_store.h"

#include <QColorSpace>
#include <cmath>
#include <string>

#include "engine/media/embedded_preview.h"
#include "engine/media/image_decoder.h"
#include "engine/media/image_encoder.h"

namespace lumivale::app::ThumbnailStore {

namespace fs = std::filesystem;

fs::path plainFile(const PhotoLibrary& library, std::int64_t id) {
  return library.thumbFolder() / (std::to_string(id) + ".jpg");
}

fs::path editedFile(const PhotoLibrary& library, std::int64_t id) {
  return library.thumbFolder() / (std::to_string(id) + "-e.jpg");
}

namespace {

QImage readFile(const fs::path& file) {
  std::error_code error;
  if (!fs::is_regular_file(file, error)) return {};
  try {
    return toQImageFromWorking(ImageDecoder::decode(file, std::nullopt).image);
  } catch (const std::exception&) {
    return {};
  }
}

// The plain thumbnail from the photo itself, stored for the next time.
QImage make(const PhotoLibrary& library, const PhotoRecord& record) {
  try {
    Image picture;
    if (record.isRaw) picture = EmbeddedPreviews::largest(record.path, PhotoLibrary::thumbSide);
    if (picture.empty()) picture = ImageDecoder::decode(record.path, PhotoLibrary::thumbSide).image;
    if (picture.empty()) return {};
    const Image out = outputImage(picture, ColorSpace::sRGB, 8).materialize();
    try {
      ImageEncoder::write(out, plainFile(library, record.id), {.format = ImageFormat::jpeg, .quality = 0.8});
    } catch (const MediaError&) {
      // Another thread made it first, or the folder cannot be written: the
      // picture is still good to show.
    }
    return toQImage(out);
  } catch (const std::exception&) {
    return {};
  }
}

}  // namespace

QImage load(const PhotoLibrary& library, const PhotoRecord& record) {
  if (record.edited) {
    QImage edited = readFile(editedFile(library, record.id));
    if (!edited.isNull()) return edited;
  }
  QImage plain = readFile(plainFile(library, record.id));
  return plain.isNull() ? make(library, record) : plain;
}

void writeEdited(const PhotoLibrary& library, std::int64_t id, const Image& developed) {
  const Image out = outputImage(developed, ColorSpace::sRGB, 8);
  ImageEncoder::write(out, editedFile(library, id),
                      {.format = ImageFormat::jpeg, .quality = 0.82, .replaceExisting = true});
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
