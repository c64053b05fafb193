#include "engine/media/image_encoder.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "engine/media/pixel_rows.h"
#include "engine/media/safe_file.h"
#include "engine/media/vips_glue.h"

namespace lumivale {
namespace {

// The picture with its ICC profile as its only metadata: the chain behind
// it may have carried a source's EXIF (and its orientation) along.
vips::VImage withProfileOnly(const vips::VImage& picture) {
  std::vector<std::uint8_t> profile;
  const void* data = nullptr;
  std::size_t length = 0;
  if (vips_image_get_typeof(picture.get_image(), VIPS_META_ICC_NAME) &&
      vips_image_get_blob(picture.get_image(), VIPS_META_ICC_NAME, &data, &length) == 0) {
    profile.assign(static_cast<const std::uint8_t*>(data), static_cast<const std::uint8_t*>(data) + length);
  }
  vips_error_clear();
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

void save(const vips::VImage& picture, const EncodeOptions& options, int fd) {
  vips::VTarget target = vips::VTarget::new_to_descriptor(fd);
  switch (options.format) {
    case ImageFormat::jpeg: {
      const int quality = std::clamp(int(std::lround(options.quality * 100)), 1, 100);
      to8Bit(picture).jpegsave_target(target, vips::VImage::option()->set("Q", quality));
      return;
    }
    case ImageFormat::png:
      // zlib level 2: a photo's PNG is about 5% larger than at the usual
      // level 6 and written in half the time, which is most of a render.
      picture.pngsave_target(target, vips::VImage::option()->set("compression", 2));
      return;
    case ImageFormat::tiff:
      // Uncompressed, as photo tools write TIFF by default: every reader
      // takes it, and deflate would make a 16-bit export several seconds
      // slower for a third of the size.
      picture.tiffsave_target(target,
                              vips::VImage::option()->set("compression", VIPS_FOREIGN_TIFF_COMPRESSION_NONE));
      return;
    case ImageFormat::heif:
      break;
  }
  throw ImageError("HEIF files cannot be written yet");
}

}  // namespace

namespace ImageEncoder {

void write(const Image& picture, const std::filesystem::path& file, const EncodeOptions& options) {
  initImageLibraries();
  if (options.format == ImageFormat::heif) throw ImageError("HEIF files cannot be written yet");
  const vips::VImage clean = withVips("cannot prepare the picture", [&] {
    vips::VImage v = vipsImage(picture);
    if ((v.format() != VIPS_FORMAT_UCHAR && v.format() != VIPS_FORMAT_USHORT) ||
        (v.bands() != 1 && v.bands() != 3))
      throw ImageError("only 1 or 3 bands of 8- or 16-bit samples can be written");
    return withProfileOnly(v);
  });
  writeFileSafely(
      file,
      [&](int fd) {
        try {
          save(clean, options, fd);
        } catch (const vips::VError& e) {
          throw MediaError(vipsErrorLine(e));
        }
      },
      options.replaceExisting);
}

}  // namespace ImageEncoder
}  // namespace lumivale
