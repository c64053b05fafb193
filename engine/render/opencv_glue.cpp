#include "engine/render/opencv_glue.h"

#include <opencv2/imgproc.hpp>

namespace lumivale {

bool wellFormed(const Bitmap& image) {
  if (image.width <= 0 || image.height <= 0) return false;
  if (image.channels < 1 || image.channels > 4) return false;
  if (image.bits != 8 && image.bits != 16) return false;
  const std::uint64_t expected = std::uint64_t(image.width) * std::uint64_t(image.height) *
                                 std::uint64_t(image.channels) * (image.bits / 8);
  return image.bytes.size() == expected;
}

cv::Mat rgb8(const Bitmap& image) {
  if (!wellFormed(image)) return {};
  // The bytes are only read: the matrix wraps them without copying.
  const int depth = image.bits == 16 ? CV_16U : CV_8U;
  const cv::Mat samples(image.height, image.width, CV_MAKETYPE(depth, image.channels),
                        const_cast<std::uint8_t*>(image.bytes.data()));
  cv::Mat eight;
  if (image.bits == 16)
    samples.convertTo(eight, CV_8U, 255.0 / 65535.0);
  else
    eight = samples;
  cv::Mat rgb;
  switch (image.channels) {
    case 3:
      return eight;
    case 1:
      cv::cvtColor(eight, rgb, cv::COLOR_GRAY2RGB);
      return rgb;
    case 2: {
      cv::Mat planes[2];
      cv::split(eight, planes);
      cv::multiply(planes[0], planes[1], planes[0], 1.0 / 255);
      cv::cvtColor(planes[0], rgb, cv::COLOR_GRAY2RGB);
      return rgb;
    }
    default: {
      cv::Mat alpha, alpha3;
      cv::extractChannel(eight, alpha, 3);
      cv::cvtColor(eight, rgb, cv::COLOR_RGBA2RGB);
      cv::cvtColor(alpha, alpha3, cv::COLOR_GRAY2RGB);
      cv::multiply(rgb, alpha3, rgb, 1.0 / 255);
      return rgb;
    }
  }
}

cv::Mat scaledRGB(const Bitmap& image, int width, int height) {
  const cv::Mat rgb = rgb8(image);
  if (rgb.empty() || width <= 0 || height <= 0) return {};
  if (rgb.cols == width && rgb.rows == height) return rgb;
  const bool shrinking = width <= rgb.cols && height <= rgb.rows;
  cv::Mat scaled;
  cv::resize(rgb, scaled, cv::Size(width, height), 0, 0, shrinking ? cv::INTER_AREA : cv::INTER_LINEAR);
  return scaled;
}

}  // namespace lumivale
