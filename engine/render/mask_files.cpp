#include "engine/render/mask_files.h"

#include <algorithm>
#include <cctype>
#include <cmath>

#include "engine/media/png_file.h"
#include "engine/media/safe_file.h"

namespace lumivale {

namespace {

bool equalIgnoringCase(std::string_view a, std::string_view b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
           return std::tolower(static_cast<unsigned char>(x)) == std::tolower(static_cast<unsigned char>(y));
         });
}

bool allDigits(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

}  // namespace

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

std::size_t findMask(std::span<const PhotoMask> masks, std::string_view reference) {
  if (reference.empty()) throw MaskImageError("no mask given");
  const std::string shown(reference);
  for (std::size_t i = 0; i < masks.size(); ++i)
    if (equalIgnoringCase(masks[i].id, reference)) return i;

  if (allDigits(reference) && reference.size() <= 9) {
    const std::size_t index = std::stoul(shown);
    if (index < masks.size()) return index;
  }

  std::optional<std::size_t> found;
  int matches = 0;
  for (std::size_t i = 0; i < masks.size(); ++i) {
    const std::string_view id = masks[i].id;
    if (id.size() >= reference.size() && equalIgnoringCase(id.substr(0, reference.size()), reference)) {
      found = i;
      ++matches;
    }
  }
  if (matches == 1) return *found;
  if (matches > 1)
    throw MaskImageError("\"" + shown + "\" is the start of " + std::to_string(matches) +
                         " mask ids; give more of the id");
  if (masks.empty()) throw MaskImageError("the photo has no masks");
  throw MaskImageError("no mask \"" + shown +
                       "\": give its id, the start of its id, or its position from 0 to " +
                       std::to_string(masks.size() - 1));
}

}  // namespace lumivale
