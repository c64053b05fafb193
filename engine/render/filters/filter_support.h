#pragma once
// What the filters share: checks on the images they are given and small
// band shuffles. Internal to engine/render/filters.

#include "engine/media/image.h"

namespace lumivale::filters::detail {

/// The image's band count when it is 1 (grey) or 3 (RGB); otherwise throws
/// ImageError naming `filter`.
int colourBands(const Image& image, const char* filter);

/// Throws ImageError naming `filter` unless both images are there and have
/// one size.
void requireSameSize(const Image& a, const Image& b, const char* filter);

/// A grey image as RGB: the value v becomes (v, v, v).
Image greyAsRgb(const Image& grey);

/// The first band alone.
Image firstBand(const Image& image);

/// The image behind a cache of its recent tiles, for an image that two
/// branches of a chain read (a blur and the pixel beside it): without it,
/// everything before it is computed once per branch. Holds a few rows of
/// tiles, so memory stays small at any size.
Image readTwice(const Image& image);

}  // namespace lumivale::filters::detail
