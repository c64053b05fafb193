#include "engine/render/smart_masks.h"

#include <cmath>

#include "engine/render/opencv_glue.h"
#include "engine/render/person_finder.h"
#include "engine/render/segmentation_model.h"

namespace lumivale::SmartMasks {

namespace {

void say(std::string* why, const std::string& text) {
  if (why) *why = text;
}

}  // namespace

std::optional<MaskBitmap> subject(const Bitmap& image, std::string* why) {
  if (!wellFormed(image)) {
    say(why, "the picture is empty or malformed");
    return std::nullopt;
  }
  std::string reason;
  std::shared_ptr<SegmentationModel> model = SegmentationModel::shared(&reason);
  std::optional<MaskBitmap> mask;
  if (model) mask = model->run(image, &reason);
  if (!mask) say(why, std::string(unavailableMessage) + ": " + reason);
  return mask;
}

std::optional<MaskBitmap> people(const Bitmap& image, std::string* why) {
  std::optional<MaskBitmap> found = subject(image, why);
  if (!found) return std::nullopt;
  // Only a person within the subject can keep a part of it, so the search
  // looks at the subject and a margin for the boxes around faces and figures.
  const std::optional<UnitRect> area = subjectBounds(*found, 0.1);
  if (!area) return MaskBitmap(found->width, found->height);
  return keepPeople(*found, findPeople(image, *area));
}

std::optional<MaskBitmap> bitmap(const CoverageMap& map) {
  if (map.width <= 0 || map.height <= 0) return std::nullopt;
  const std::uint64_t pixels = std::uint64_t(map.width) * std::uint64_t(map.height);
  if (pixels > MaskBitmap::maxPixels || map.values.size() != pixels) return std::nullopt;
  MaskBitmap mask(map.width, map.height);
  for (std::size_t i = 0; i < pixels; ++i) {
    const float v = map.values[i];
    // NaN fails both comparisons and stays 0.
    if (v >= 1)
      mask.bytes[i] = 255;
    else if (v > 0)
      mask.bytes[i] = std::uint8_t(std::lround(v * 255));
  }
  return mask;
}

}  // namespace lumivale::SmartMasks
