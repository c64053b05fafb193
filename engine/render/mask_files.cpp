#include "engine/render/mask_files.h"

#include <algorithm>
#include <cmath>

#include "engine/media/png_file.h"
#include "engine/media/safe_file.h"
#include "engine/render/mask_renderer.h"

namespace lumivale {

MaskBitmap maskBitmapFromImageFile(const std::filesystem::path& file) {
  GreyImage image;
  try {
    image = PngFile::readCoverage(file, {maxMaskImageSide, MaskBitmap::maxPixels});
  } catch (const MediaError& e) {
    throw MaskImageError(e.what());
  }
  MaskBitmap bitmap;
  bitmap.width = image.width;
  bitmap.height = image.height;
  bitmap.bytes = std::move(image.bytes);
  return bitmap;
}

std::optional<std::pair<int, int>> storedBitmapSize(std::span<const std::uint8_t> stored) {
  const std::optional<MaskBitmap> bitmap = MaskBitmap::decode(stored);
  if (!bitmap) return std::nullopt;
  return std::pair<int, int>{bitmap->width, bitmap->height};
}

PhotoMask smartMaskFromBitmap(const MaskBitmap& bitmap, MaskKind kind, std::optional<std::string> name) {
  if (!isSmart(kind))
    throw MaskImageError("a " + std::string(key(kind)) +
                         " mask cannot hold a bitmap; use subject, sky or people");
  if (bitmap.width <= 0 || bitmap.height <= 0 ||
      bitmap.bytes.size() != std::size_t(bitmap.width) * std::size_t(bitmap.height))
    throw MaskImageError("the mask bitmap is empty");
  if (std::uint64_t(bitmap.width) * std::uint64_t(bitmap.height) > MaskBitmap::maxPixels)
    throw MaskImageError("the mask bitmap is too large to store");
  PhotoMask mask(kind, std::move(name));
  mask.maskPNG = bitmap.encoded();
  return mask;
}

std::optional<double> meanCoverage(const PhotoMask& mask, int displayWidth, int displayHeight) {
  const double aspect =
      displayWidth > 0 && displayHeight > 0 ? double(displayWidth) / double(displayHeight) : 1.0;
  double mean = 0;
  if (isSmart(mask.kind)) {
    const std::optional<MaskBitmap> bitmap = mask.maskPNG ? MaskBitmap::decode(*mask.maskPNG) : std::nullopt;
    if (!bitmap || bitmap->bytes.empty()) return std::nullopt;
    mean = bitmap->mean(0, 0, 1, 1);
  } else if (mask.kind == MaskKind::brush) {
    const MaskRenderer::PixelSize size = MaskRenderer::brushBitmapSize(aspect);
    mean = MaskRenderer::paint(mask.dabs, size.width, size.height).mean(0, 0, 1, 1);
  } else {
    constexpr int longSide = 256;
    const int width = aspect >= 1 ? longSide : std::max(int(std::lround(longSide * aspect)), 1);
    const int height = aspect >= 1 ? std::max(int(std::lround(longSide / aspect)), 1) : longSide;
    const FloatPixels pixels = MaskRenderer::image(mask, width, height).readPixels();
    double sum = 0;
    for (float v : pixels.values) sum += v;
    mean = pixels.values.empty() ? 0 : sum / double(pixels.values.size());
  }
  return mask.invert ? 1 - mean : mean;
}

std::vector<std::pair<std::string_view, double>> nonZeroAdjustments(const MaskAdjust& adjust) {
  const std::pair<std::string_view, double> fields[] = {
      {"exposure", adjust.exposure},       {"contrast", adjust.contrast},
      {"highlights", adjust.highlights},   {"shadows", adjust.shadows},
      {"temperature", adjust.temperature}, {"tint", adjust.tint},
      {"saturation", adjust.saturation},   {"sharpness", adjust.sharpness}};
  std::vector<std::pair<std::string_view, double>> result;
  for (const auto& field : fields)
    if (field.second != 0) result.push_back(field);  // NaN is not zero: it shows
  return result;
}

}  // namespace lumivale
