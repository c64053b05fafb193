#pragma once
// Checking decoded colours against an independent decode: libvips' own
// loader, orientation and colour management (lcms2 through icc_transform),
// compared in CIEDE2000 as libvips computes it.

#include <filesystem>
#include <optional>
#include <string>

#include "engine/media/image.h"

namespace lumivale::test {

/// Mean and largest CIEDE2000 difference between two images of one size.
struct ColourDifference {
  double mean = 0;
  double max = 0;
};

/// Between two working-space (linear sRGB) images; both go to CIELAB by
/// libvips' own conversion.
ColourDifference deltaE(const Image& a, const Image& b);

/// The file as libvips decodes it by itself: turned upright, alpha flattened
/// onto white, converted from its embedded profile (sRGB, or libvips'
/// generic CMYK, when it has none) with the relative colorimetric intent
/// into 16-bit linear Rec. 2020, then to linear sRGB by the published
/// Rec. 2020 to Rec. 709 matrix. Only the rectangle `area` (left, top,
/// width, height of the upright picture) when given.
struct Area {
  int left = 0, top = 0, width = 0, height = 0;
};
Image referenceDecode(const std::filesystem::path& file, std::optional<Area> area = std::nullopt);

/// A rectangle of an image as a new image.
Image cropped(const Image& image, const Area& area);

}  // namespace lumivale::test
