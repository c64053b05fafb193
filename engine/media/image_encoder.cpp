#include "engine/media/image_encoder.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <vector>

#include "engine/media/heif_encoder.h"
#include "engine/media/pixel_rows.h"
#include "engine/media/safe_file.h"
#include "engine/media/tiff_writer.h"
#include "engine/media/vips_glue.h"

namespace lumivale {
namespace {

// The ICC profile attached to a picture; empty when it has none.
std::vector<std::uint8_t> profileOf(const vips::VImage& picture) {
  std::vector<std::uint8_t> profile;
  const void* data = nullptr;
  std::size_t length = 0;
  if (vips_image_get_typeof(picture.get_image(), VIPS_META_ICC_NAME) &&
      vips_image_get_blob(picture.get_image(), VIPS_META_ICC_NAME, &data, &length) == 0) {
    profile.assign(static_cast<const std::uint8_t*>(data), static_cast<const std::uint8_t*>(data) + length);
  }
  vips_error_clear();
  return profile;
}

// The picture with its ICC profile as its only metadata: the chain behind
// it may have carried a source's EXIF (and its orientation) along.
vips::VImage withProfileOnly(const vips::VImage& picture) {
  const std::vector<std::uint8_t> profile = profileOf(picture);
  vips::VImage clean = picture.copy();
  media_detail::clearMetadata(clean.get_image());
  if (!profile.empty())
    vips_image_set_blob_copy(clean.get_image(), VIPS_META_ICC_NAME, profile.data(), profile.size());
  return clean;
}

vips::VImage to8Bit(const vips::VImage& picture) {
  if (picture.format() == VIPS_FORMAT_UCHAR) return picture;
  return (picture / 257.0)
      .rint()
      .cast(VIPS_FORMAT_UCHAR)
      .copy(vips::VImage::option()->set(
          "interpretation", picture.bands() == 1 ? VIPS_INTERPRETATION_B_W : VIPS_INTERPRETATION_sRGB));
}

int qualityPercent(const EncodeOptions& options) {
  return std::clamp(int(std::lround(options.quality * 100)), 1, 100);
}

void save(const vips::VImage& picture, const EncodeOptions& options, vips::VTarget& target) {
  switch (options.format) {
    case ImageFormat::jpeg:
      to8Bit(picture).jpegsave_target(target, vips::VImage::option()->set("Q", qualityPercent(options)));
      return;
    case ImageFormat::png:
      // zlib level 2: a photo's PNG is about 5% larger than at the usual
      // level 6 and written in half the time, which is most of a render.
      picture.pngsave_target(target, vips::VImage::option()->set("compression", 2));
      return;
    case ImageFormat::tiff:
    case ImageFormat::heif:
      break;
  }
  throw ImageError("this file format cannot be written");
}

// The picture checked and with its profile as its only metadata.
vips::VImage prepared(const Image& picture) {
  initImageLibraries();
  return withVips("cannot prepare the picture", [&] {
    vips::VImage v = vipsImage(picture);
    if ((v.format() != VIPS_FORMAT_UCHAR && v.format() != VIPS_FORMAT_USHORT) ||
        (v.bands() != 1 && v.bands() != 3))
      throw ImageError("only 1 or 3 bands of 8- or 16-bit samples can be written");
    return withProfileOnly(v);
  });
}

// HEIF is coded from the whole picture in memory, 8 bits, as phones and
// cameras write it; a grey picture as RGB, which every HEIF reader takes.
std::string heifFile(const vips::VImage& clean, const EncodeOptions& options) {
  vips::VImage rgb = to8Bit(clean);
  if (rgb.bands() == 1) rgb = vips::VImage::bandjoin({rgb, rgb, rgb});
  const std::vector<std::uint8_t> profile = profileOf(clean);
  const std::string icc(profile.begin(), profile.end());
  std::size_t size = 0;
  std::unique_ptr<void, decltype(&g_free)> pixels(rgb.write_to_memory(&size), g_free);
  return HeifEncoder::encode(static_cast<const std::uint8_t*>(pixels.get()), rgb.width(), rgb.height(), icc,
                             qualityPercent(options));
}

std::string inMemory(const vips::VImage& clean, const EncodeOptions& options) {
  if (options.format == ImageFormat::heif) return heifFile(clean, options);
  if (options.format == ImageFormat::tiff) return media_detail::deflateTiff(clean, profileOf(clean));
  vips::VTarget target = vips::VTarget::new_to_memory();
  save(clean, options, target);
  VipsBlob* blob = nullptr;
  g_object_get(target.get_target(), "blob", &blob, nullptr);
  if (!blob) throw ImageError("the encoder wrote nothing");
  std::size_t length = 0;
  const void* data =
      vips_area_get_data(reinterpret_cast<VipsArea*>(blob), &length, nullptr, nullptr, nullptr);
  std::string bytes(static_cast<const char*>(data), length);
  vips_area_unref(reinterpret_cast<VipsArea*>(blob));
  return bytes;
}

}  // namespace

namespace ImageEncoder {

std::string encode(const Image& picture, const EncodeOptions& options) {
  const vips::VImage clean = prepared(picture);
  try {
    return inMemory(clean, options);
  } catch (const vips::VError& e) {
    throw ImageError("cannot encode the picture: " + vipsErrorLine(e));
  }
}

void write(const Image& picture, const std::filesystem::path& file, const EncodeOptions& options) {
  // HEIF is coded in memory; TIFF strips are collected there to be
  // compressed in parallel.
  if (options.format == ImageFormat::heif || options.format == ImageFormat::tiff) {
    if (!canWrite(options.format)) throw ImageError("this computer has no HEIF encoder");
    writeFileSafely(file, encode(picture, options), options.replaceExisting);
    return;
  }
  const vips::VImage clean = prepared(picture);
  writeFileSafely(
      file,
      [&](int fd) {
        try {
          vips::VTarget target = vips::VTarget::new_to_descriptor(fd);
          save(clean, options, target);
        } catch (const vips::VError& e) {
          throw MediaError(vipsErrorLine(e));
        }
      },
      options.replaceExisting);
}

bool canWrite(ImageFormat format) { return format != ImageFormat::heif || HeifEncoder::available(); }

}  // namespace ImageEncoder
}  // namespace lumivale
