#pragma once
// Read-outs of the developed preview: the histogram shown above the Develop
// panels, and the overlay that marks clipped highlights red and crushed
// shadows blue.

#include <array>
#include <optional>

#include "engine/media/image.h"

namespace lumivale {

/// Four lists of 64 bins (red, green, blue, luminance), each normalised to
/// 0 … 1; bin i counts 8-bit values 4 i … 4 i + 3. Compared field by field,
/// so an unchanged histogram need not be redrawn.
struct Histogram {
  std::array<double, 64> r{};
  std::array<double, 64> g{};
  std::array<double, 64> b{};
  std::array<double, 64> l{};

  bool operator==(const Histogram&) const = default;

  /// The histogram of a displayed image: 8-bit values of its first three
  /// bands (sRGB as shown; any other format is taken as 0 … 255 values),
  /// measured at min(width, 400) pixels wide. Every count is divided by the
  /// largest count of bins 1 … 62 of red, green and blue (at least 1) and
  /// limited to 1, so a large clipped area does not flatten the rest.
  /// Nothing for an empty image. Throws ImageError when the pixels cannot be
  /// computed.
  static std::optional<Histogram> of(const Image& displayed);
};

/// The working-space image with clipping marked: pure red where the channel
/// mean m = 0.33 r + 0.33 g + 0.34 b exceeds 0.985 (full at 0.99), blue
/// (0, 0.3, 1) where m is below 0.002 (full at 0). Lazy.
Image clippingOverlay(const Image& image);

}  // namespace lumivale
