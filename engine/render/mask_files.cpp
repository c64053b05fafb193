#include "engine/render/mask_files.h"

#include <cmath>

#include "engine/media/png_file.h"
#include "engine/media/safe_file.h"

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
