#pragma once
// The preview pictures cameras store inside their RAW files, decoded: what
// thumbnails and the first moments of Develop show before (or instead of)
// developing the sensor data.

#include <filesystem>

#include "engine/media/image.h"

namespace lumivale::EmbeddedPreviews {

/// The largest preview the camera stored in the RAW file (a JPEG or a
/// bitmap), decoded into the working space, turned upright by the RAW's own
/// orientation and scaled down (never up) so that its longer side is at most
/// `maxSide`, computed into memory. An empty image when the file is not a
/// RAW container, holds no preview, its preview cannot be decoded or
/// `maxSide` is below 1. Never throws; thread-safe.
Image largest(const std::filesystem::path& file, int maxSide);

}  // namespace lumivale::EmbeddedPreviews
