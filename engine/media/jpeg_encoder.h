#pragma once
// Pictures as JPEG bytes: what the command line writes for a camera's
// preview.

#include <string>

#include "engine/media/image.h"

namespace lumivale {

/// The image (working space) as an sRGB JPEG of `quality` 0 … 1, with no
/// metadata. Computes the image; throws ImageError.
std::string encodeJpeg(const Image& image, double quality);

}  // namespace lumivale
