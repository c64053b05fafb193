// The sky search: our own, no model. It works on a small copy of the
// picture, so it takes a few milliseconds and can run whenever the user asks.
//
// A pixel may be sky when its colour says so (blue, overcast grey, or a warm
// evening sky near the top) and its neighbourhood is smooth; the sky is then
// what a flood fill from the top row reaches through such pixels without a
// step in luminance. Texture (trees, buildings) stops the fill, so sky that
// the fill cannot reach from the top, a lake say, is never selected.

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include "engine/render/opencv_glue.h"
#include "engine/render/smart_masks.h"

namespace lumivale::SmartMasks {

namespace {

// Luminance differences between neighbours above this mark an edge or
// texture; a flood-fill step needs less than `fillStep`.
constexpr float smoothLimit = 0.12f;
constexpr float fillStep = 0.08f;

struct SkyPixels {
  int width = 0;
  int height = 0;
  std::vector<float> luminance;
  std::vector<std::uint8_t> candidate;
};

SkyPixels classify(const cv::Mat& rgb) {
  SkyPixels p;
  p.width = rgb.cols;
  p.height = rgb.rows;
  const std::size_t n = std::size_t(p.width) * p.height;
  p.luminance.resize(n);
  p.candidate.resize(n);
  const double warmRows = 0.45 * p.height;
  for (int y = 0; y < p.height; ++y) {
    const std::uint8_t* row = rgb.ptr<std::uint8_t>(y);
    const bool nearTop = y < warmRows;
    for (int x = 0; x < p.width; ++x) {
      const float r = row[3 * x] / 255.0f, g = row[3 * x + 1] / 255.0f, b = row[3 * x + 2] / 255.0f;
      const float lum = 0.2126f * r + 0.7152f * g + 0.0722f * b;
      const float mx = std::max({r, g, b});
      const float saturation = mx > 0 ? (mx - std::min({r, g, b})) / mx : 0.0f;
      const bool blue = b >= r && b >= 0.92f * g && lum > 0.22f;
      const bool overcast = lum > 0.62f && saturation < 0.22f;
      const bool warm = lum > 0.45f && b < r && saturation < 0.75f && nearTop;
      const std::size_t i = std::size_t(y) * p.width + x;
      p.luminance[i] = lum;
      p.candidate[i] = blue || overcast || warm;
    }
  }
  // Edges and texture are never sky: the outer rows and columns have no
  // neighbours on one side and are left as they are.
  std::vector<std::uint8_t> smooth = p.candidate;
  for (int y = 1; y + 1 < p.height; ++y)
    for (int x = 1; x + 1 < p.width; ++x) {
      const std::size_t i = std::size_t(y) * p.width + x;
      const float* l = p.luminance.data();
      const float t = std::abs(l[i + 1] - l[i - 1]) + std::abs(l[i + p.width] - l[i - p.width]);
      if (t > smoothLimit) smooth[i] = 0;
    }
  p.candidate = std::move(smooth);
  return p;
}

// Candidates reached from the top row through steps of small luminance
// change, as 255; everything else 0.
std::vector<std::uint8_t> fillFromTop(const SkyPixels& p) {
  std::vector<std::uint8_t> sky(p.candidate.size(), 0);
  std::vector<std::size_t> stack;
  for (int x = 0; x < p.width; ++x) {
    if (p.candidate[x]) {
      sky[x] = 255;
      stack.push_back(std::size_t(x));
    }
  }
  auto visit = [&](std::size_t from, std::size_t to) {
    if (!sky[to] && p.candidate[to] && std::abs(p.luminance[to] - p.luminance[from]) < fillStep) {
      sky[to] = 255;
      stack.push_back(to);
    }
  };
  while (!stack.empty()) {
    const std::size_t i = stack.back();
    stack.pop_back();
    const int x = int(i % p.width), y = int(i / p.width);
    if (x > 0) visit(i, i - 1);
    if (x + 1 < p.width) visit(i, i + 1);
    if (y > 0) visit(i, i - p.width);
    if (y + 1 < p.height) visit(i, i + p.width);
  }
  return sky;
}

void removeSubject(std::vector<std::uint8_t>& sky, int width, int height, const MaskBitmap& subject) {
  if (subject.width <= 0 || subject.height <= 0 ||
      subject.bytes.size() != std::size_t(subject.width) * subject.height)
    return;
  for (int y = 0; y < height; ++y) {
    const int sy = std::min(int((y + 0.5) / height * subject.height), subject.height - 1);
    for (int x = 0; x < width; ++x) {
      const int sx = std::min(int((x + 0.5) / width * subject.width), subject.width - 1);
      if (subject.bytes[std::size_t(sy) * subject.width + sx] / 255.0 > 0.5)
        sky[std::size_t(y) * width + x] = 0;
    }
  }
}

// The truncated mean of the in-bounds pixels of each 3 × 3 neighbourhood.
std::vector<std::uint8_t> boxMean(const std::vector<std::uint8_t>& in, int width, int height) {
  std::vector<std::uint8_t> out(in.size());
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) {
      int sum = 0, count = 0;
      for (int yy = std::max(y - 1, 0); yy <= std::min(y + 1, height - 1); ++yy)
        for (int xx = std::max(x - 1, 0); xx <= std::min(x + 1, width - 1); ++xx) {
          sum += in[std::size_t(yy) * width + xx];
          ++count;
        }
      out[std::size_t(y) * width + x] = std::uint8_t(sum / count);
    }
  return out;
}

}  // namespace

MaskRenderer::PixelSize skySize(int width, int height) {
  const double aspect = double(width) / std::max(height, 1);
  if (!(aspect > 0)) return {skyLongSide, skyLongSide};
  if (aspect >= 1) return {skyLongSide, std::max(int(skyLongSide / aspect), skyMinSide)};
  return {std::max(int(aspect * skyLongSide), skyMinSide), skyLongSide};
}

std::optional<MaskBitmap> sky(const Bitmap& image, const std::optional<MaskBitmap>& subject) {
  if (!wellFormed(image)) return std::nullopt;
  const MaskRenderer::PixelSize size = skySize(image.width, image.height);
  const cv::Mat rgb = scaledRGB(image, size.width, size.height);
  if (rgb.empty()) return std::nullopt;
  const SkyPixels pixels = classify(rgb);
  std::vector<std::uint8_t> coverage = fillFromTop(pixels);
  if (subject) removeSubject(coverage, size.width, size.height, *subject);
  coverage = boxMean(boxMean(coverage, size.width, size.height), size.width, size.height);
  MaskBitmap mask;
  mask.width = size.width;
  mask.height = size.height;
  mask.bytes = std::move(coverage);
  return mask;
}

}  // namespace lumivale::SmartMasks
