#pragma once
// Turning a decoded picture upright by its EXIF orientation.

#include "engine/media/image.h"

namespace lumivale {

/// `image` turned and mirrored so that it shows upright, for the EXIF
/// orientation it was stored with (1 to 8; other values leave it as it is).
/// Orientations 5 to 8 swap width and height. Lazy; throws ImageError.
Image orientUpright(const Image& image, int orientation);

}  // namespace lumivale
