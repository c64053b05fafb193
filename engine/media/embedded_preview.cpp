#include "engine/media/embedded_preview.h"

#include <memory>
#include <system_error>

#include "engine/media/libraw_stream.h"
#include "engine/media/orientation.h"
#include "engine/media/photo_file.h"
#include "engine/media/raw_preview.h"
#include "engine/media/vips_glue.h"

namespace lumivale::EmbeddedPreviews {
namespace {

// No camera stores a preview this large; a header that says so is damaged,
// and decoding it would only cost time and memory.
constexpr std::int64_t maxPreviewPixels = 200'000'000;

class ThumbnailReader : public LibRaw {
 public:
  ThumbnailReader() : LibRaw(LIBRAW_OPIONS_NO_DATAERR_CALLBACK | LIBRAW_OPIONS_NO_MEMERR_CALLBACK) {}
  std::int64_t thumbnailOffset() const { return libraw_internal_data.internal_data.toffset; }
};

struct MemImageFree {
  void operator()(libraw_processed_image_t* image) const { LibRaw::dcraw_clear_mem(image); }
};

vips::VImage decodeJpeg(const libraw_thumbnail_t& thumb, int maxSide) {
  // The header first: its stated size decides whether decoding is sane.
  vips::VImage header = vips::VImage::new_from_buffer(thumb.thumb, thumb.tlength, "");
  if (std::int64_t(header.width()) * header.height() > maxPreviewPixels) {
    throw ImageError("preview too large");
  }
  maxSide = std::min(maxSide, std::max(header.width(), header.height()));
  // Shrinks while decoding (JPEG scaling); the RAW's orientation applies,
  // not the preview's own tag. The blob borrows the reader's bytes: the
  // caller computes the result before the reader goes.
  VipsBlob* blob = vips_blob_new(nullptr, thumb.thumb, thumb.tlength);
  std::unique_ptr<VipsArea, decltype(&vips_area_unref)> release(VIPS_AREA(blob), vips_area_unref);
  return vips::VImage::thumbnail_buffer(
      blob, maxSide,
      vips::VImage::option()->set("height", maxSide)->set("size", VIPS_SIZE_DOWN)->set("no_rotate", true));
}

vips::VImage decodeBitmap(ThumbnailReader& reader, int maxSide) {
  int error = 0;
  std::unique_ptr<libraw_processed_image_t, MemImageFree> bitmap(reader.dcraw_make_mem_thumb(&error));
  if (!bitmap || bitmap->type != LIBRAW_IMAGE_BITMAP || (bitmap->colors != 1 && bitmap->colors != 3) ||
      (bitmap->bits != 8 && bitmap->bits != 16)) {
    throw ImageError("preview not decodable");
  }
  const VipsBandFormat format = bitmap->bits == 16 ? VIPS_FORMAT_USHORT : VIPS_FORMAT_UCHAR;
  vips::VImage image = vips::VImage::new_from_memory(bitmap->data, bitmap->data_size, bitmap->width,
                                                     bitmap->height, bitmap->colors, format)
                           .copy_memory();
  image = image.copy(vips::VImage::option()->set(
      "interpretation", bitmap->colors == 1
                            ? (bitmap->bits == 16 ? VIPS_INTERPRETATION_GREY16 : VIPS_INTERPRETATION_B_W)
                            : (bitmap->bits == 16 ? VIPS_INTERPRETATION_RGB16 : VIPS_INTERPRETATION_sRGB)));
  const int longSide = std::max(image.width(), image.height());
  if (longSide > maxSide) image = image.resize(double(maxSide) / longSide);
  return image;
}

}  // namespace

Image largest(const std::filesystem::path& file, int maxSide) {
  if (maxSide < 1) return {};
  initImageLibraries();
  try {
    // Through the file's bounded budget, regular files only; the stream
    // outlives the reader.
    PhotoFile photo(file);
    media_detail::BudgetStream stream(photo);
    auto reader = std::make_unique<ThumbnailReader>();
    if (reader->open_datastream(&stream) != LIBRAW_SUCCESS || stream.exhausted()) return {};
    const libraw_thumbnail_t& thumb = reader->imgdata.thumbnail;
    // A damaged header can state any length; LibRaw would allocate it.
    const std::int64_t offset = reader->thumbnailOffset();
    if (thumb.tlength == 0 || offset < 0 || offset + std::int64_t(thumb.tlength) > photo.size()) return {};
    if (thumb.tformat == LIBRAW_THUMBNAIL_BITMAP &&
        std::int64_t(thumb.twidth) * thumb.theight > maxPreviewPixels) {
      return {};
    }
    const int orientation = RawPreview::orientationFromFlip(reader->imgdata.sizes.flip);
    if (reader->unpack_thumb() != LIBRAW_SUCCESS) return {};
    return withVips("cannot decode the preview", [&] {
      vips::VImage image;
      if (thumb.tformat == LIBRAW_THUMBNAIL_JPEG) {
        image = decodeJpeg(thumb, maxSide);
      } else if (thumb.tformat == LIBRAW_THUMBNAIL_BITMAP || thumb.tformat == LIBRAW_THUMBNAIL_BITMAP16) {
        image = decodeBitmap(*reader, maxSide);
      } else {
        throw ImageError("preview format not supported");
      }
      // Camera previews are sRGB pictures; the working space is its linear
      // form. Computed now: the JPEG's bytes belong to the reader.
      image = image.colourspace(VIPS_INTERPRETATION_scRGB);
      if (image.bands() > 3) image = image.extract_band(0, vips::VImage::option()->set("n", 3));
      Image upright = orientUpright(fromVips(image), orientation);
      return upright.materialize();
    });
  } catch (const std::exception&) {
    return {};
  }
}

}  // namespace lumivale::EmbeddedPreviews
