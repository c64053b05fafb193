#include "engine/catalog/thumbnails.h"

#include <algorithm>

#include "engine/media/embedded_preview.h"
#include "engine/media/image_decoder.h"
#include "engine/media/image_encoder.h"
#include "engine/media/orientation.h"
#include "engine/media/photo_formats.h"
#include "engine/media/raw_decoder.h"

namespace lumivale::Thumbnails {
namespace {

namespace fs = std::filesystem;

// A camera preview at least this long is shown for any larger request.
constexpr int goodEnoughPreview = 320;
// A stored thumbnail shorter than this is never enough for a request at
// least this large.
constexpr int smallestStored = 160;

int longSide(const Image& picture) { return std::max(picture.width(), picture.height()); }

bool previewAccepted(const Image& preview, int maxSide) {
  const int side = longSide(preview);
  return maxSide <= goodEnoughPreview ? side >= maxSide : side >= goodEnoughPreview;
}

bool tooSmall(const Image& stored, int maxSide) {
  return longSide(stored) < std::min(maxSide, smallestStored);
}

// The whole file decoded with its longer side at most `maxSide`: a RAW's
// sensor data at half size when that is large enough, an image file
// reduced while it loads. A file named as a RAW that LibRaw does not know
// is read by its content, as any image.
Image decodedWhole(const fs::path& file, int maxSide, bool raw) {
  if (raw) {
    if (const std::optional<RawFacts> facts = RawDecoder::facts(file)) {
      const bool halfSize = std::max(facts->width, facts->height) / 2 >= maxSide;
      const Image developed = RawDecoder::develop(file, {.halfSize = halfSize});
      return orientUpright(shrunkToFit(developed, maxSide), facts->orientation);
    }
  }
  return ImageDecoder::decode(file, maxSide).image;
}

std::optional<Bitmap> picture(const Image& image) {
  if (image.empty()) return std::nullopt;
  return toBitmap(image, ColorSpace::sRGB, 8);
}

}  // namespace

std::optional<Bitmap> make(const fs::path& file, int maxSide) {
  if (maxSide < 1) return std::nullopt;
  try {
    const bool raw = PhotoFormats::isRaw(file);
    Image stored;
    if (raw) {
      stored = EmbeddedPreviews::largest(file, maxSide);
      if (stored && previewAccepted(stored, maxSide)) return picture(stored);
    } else if (std::optional<DecodedImage> thumbnail = ImageDecoder::decodeStoredThumbnail(file, maxSide)) {
      stored = thumbnail->image;
    }
    if (stored && !tooSmall(stored, maxSide)) return picture(stored);
    return picture(decodedWhole(file, maxSide, raw));
  } catch (const std::exception&) {
    // Missing, unreadable or damaged: no thumbnail, and nothing written.
    return std::nullopt;
  }
}

bool write(const Bitmap& image, const fs::path& to, double quality) {
  try {
    ImageEncoder::write(pictureOf(image), to,
                        {.format = ImageFormat::jpeg,
                         .quality = quality >= 0 ? std::min(quality, 1.0) : 0.0,
                         .replaceExisting = true});
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

std::optional<Bitmap> load(const fs::path& file) {
  try {
    DecodedImage decoded = ImageDecoder::decode(file, std::nullopt);
    if (!decoded.warning.empty()) return std::nullopt;
    return picture(decoded.image);
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

}  // namespace lumivale::Thumbnails
