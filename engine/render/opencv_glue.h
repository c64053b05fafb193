#pragma once
// OpenCV on our side of the fence: output pictures as `cv::Mat`. Included by
// .cpp files of engine/render only; headers never see OpenCV.

#include <opencv2/core.hpp>

#include "engine/media/bitmap.h"

namespace lumivale {

/// The picture's fields agree with each other: a positive size, 1 to 4
/// channels, 8 or 16 bits, and exactly as many bytes as they call for.
bool wellFormed(const Bitmap& image);

/// The picture as 8-bit RGB (CV_8UC3, red first): grey repeated into the
/// three channels, colour premultiplied by alpha, 16-bit samples rounded to
/// 8 bits. An empty matrix for a malformed picture. May share the bitmap's
/// bytes: read it, never write to it.
cv::Mat rgb8(const Bitmap& image);

/// The picture scaled to `width` × `height` as 8-bit RGB: the mean of the
/// pixels each output pixel covers when shrinking, bilinear when enlarging.
/// An empty matrix for a malformed picture.
cv::Mat scaledRGB(const Bitmap& image, int width, int height);

}  // namespace lumivale
