#include "engine/render/raw/raw_noise.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "engine/media/vips_glue.h"
#include "engine/render/filters/blur.h"
#include "engine/render/filters/resample.h"
#include "engine/render/kernel.h"
#include "engine/render/raw/raw_kernels.h"

namespace lumivale::RawNoise {
namespace {

constexpr float wr = 0.2126f, wg = 0.7152f, wb = 0.0722f;

inline float root(float v) { return v < 0 ? -std::sqrt(-v) : std::sqrt(v); }
inline float rootedLuminance(const float* p) { return wr * root(p[0]) + wg * root(p[1]) + wb * root(p[2]); }

// Luminance is smoothed where it varies by less than this many noise
// spreads, at amount 1.
constexpr double edgeThreshold = 3.0;

// `small` (a copy shrunk by block averages of `factor` × `factor` pixels)
// enlarged back to `width` × `height` bilinearly, each small pixel standing
// at the centre of its block.
Image enlarge(const Image& small, int factor, int width, int height) {
  const float offset = (factor - 1) / 2.0f, inverse = 1.0f / factor;
  return kernel::mapArea(
      small, width, height, small.bands(),
      [=](const kernel::PixelRect& out) {
        const int left = int(std::floor((out.left - offset) * inverse)) - 1;
        const int top = int(std::floor((out.top - offset) * inverse)) - 1;
        const int right = int(std::ceil((out.right() - offset) * inverse)) + 1;
        const int bottom = int(std::ceil((out.bottom() - offset) * inverse)) + 1;
        return kernel::PixelRect{left, top, right - left, bottom - top};
      },
      [=](const kernel::InputArea& in, float* out, int n, int x0, int y) {
        const int bands = in.bands;
        const float sy = (y - offset) * inverse;
        const int ya = std::clamp(int(std::floor(sy)), in.rect.top, in.rect.bottom() - 1);
        const int yb = std::clamp(int(std::floor(sy)) + 1, in.rect.top, in.rect.bottom() - 1);
        const float fy = std::clamp(sy - std::floor(sy), 0.0f, 1.0f);
        for (int i = 0; i < n; ++i) {
          const float sx = (x0 + i - offset) * inverse;
          const int xa = std::clamp(int(std::floor(sx)), in.rect.left, in.rect.right() - 1);
          const int xb = std::clamp(int(std::floor(sx)) + 1, in.rect.left, in.rect.right() - 1);
          const float fx = std::clamp(sx - std::floor(sx), 0.0f, 1.0f);
          const float* p00 = in.at(xa, ya);
          const float* p10 = in.at(xb, ya);
          const float* p01 = in.at(xa, yb);
          const float* p11 = in.at(xb, yb);
          for (int k = 0; k < bands; ++k) {
            const float upper = p00[k] + fx * (p10[k] - p00[k]);
            const float lower = p01[k] + fx * (p11[k] - p01[k]);
            out[bands * i + k] = upper + fy * (lower - upper);
          }
        }
      });
}

// The chroma of rooted channels: each less their luminance.
Image chromaOf(const Image& image) {
  return kernel::mapRows({image}, 3, [](const float* const* in, float* out, int width, int, int) {
    for (int i = 0; i < width; ++i) {
      const float* p = in[0] + 3 * i;
      const float r = root(p[0]), g = root(p[1]), b = root(p[2]);
      const float l = wr * r + wg * g + wb * b;
      out[3 * i] = r - l;
      out[3 * i + 1] = g - l;
      out[3 * i + 2] = b - l;
    }
  });
}

// The image's chroma blurred with a Gaussian of `sigma` pixels. A wide blur
// runs on a copy shrunk by block averages and is read back bilinearly.
Image blurredChroma(const Image& image, double sigma) {
  const int factor = int(sigma / 2);
  if (factor < 2) return filters::gaussianBlur(chromaOf(image), sigma);
  const Image small = withVips("cannot reduce colour noise", [&] {
    return fromVips(vipsImage(image).shrink(factor, factor).cast(VIPS_FORMAT_FLOAT));
  });
  const Image blurred = filters::gaussianBlur(chromaOf(small), sigma / factor).materialize();
  return enlarge(blurred, factor, image.width(), image.height());
}

}  // namespace

double noiseSigma(const Image& image) {
  constexpr int side = 512;
  const int width = std::min(image.width(), side), height = std::min(image.height(), side);
  const FloatPixels p =
      image.readPixels((image.width() - width) / 2, (image.height() - height) / 2, width, height);
  if (p.width < 3 || p.height < 3 || p.bands < 3) return 0;
  std::vector<float> l(std::size_t(p.width) * p.height);
  for (std::size_t i = 0; i < l.size(); ++i) l[i] = rootedLuminance(&p.values[3 * i]);
  // Each pixel less the mean of its four neighbours: for noise of spread σ
  // that residual has spread σ √1.25; the median absolute residual ignores
  // most edges and texture.
  std::vector<float> residual;
  residual.reserve(l.size());
  for (int y = 1; y + 1 < p.height; ++y) {
    for (int x = 1; x + 1 < p.width; ++x) {
      const float* c = &l[std::size_t(y) * p.width + x];
      residual.push_back(std::abs(*c - (c[-1] + c[1] + c[-p.width] + c[p.width]) / 4));
    }
  }
  auto middle = residual.begin() + std::ptrdiff_t(residual.size() / 2);
  std::nth_element(residual.begin(), middle, residual.end());
  return 1.4826 * *middle / std::sqrt(1.25);
}

Image reduce(const Image& image, const RawNoiseAmounts& amounts, double sigma, double scale,
             const RowFinish& finish) {
  const double luminanceAmount = std::clamp(amounts.luminance, 0.0, 1.0);
  const double colorAmount = std::clamp(amounts.color, 0.0, 1.0);
  const bool smoothLuminance = luminanceAmount > 0, smoothChroma = colorAmount > 0;
  if (!smoothLuminance && !smoothChroma && !finish) return image;
  scale = std::clamp(scale, 0.01, 1.0);

  std::vector<Image> inputs{image};
  if (smoothLuminance) {
    // The guided filter's coefficients a and b, blurred: the smoothed
    // luminance is a × L + b.
    const double radius = std::max((1 + 2 * luminanceAmount) * scale, 0.6);
    const float epsilon = float(std::pow(edgeThreshold * luminanceAmount * std::max(sigma, 1e-6), 2));
    const Image moments =
        kernel::mapRows({image}, 2, [](const float* const* in, float* out, int width, int, int) {
          for (int i = 0; i < width; ++i) {
            const float l = rootedLuminance(in[0] + 3 * i);
            out[2 * i] = l;
            out[2 * i + 1] = l * l;
          }
        });
    const Image means = filters::gaussianBlur(moments, radius);
    const Image ab =
        kernel::mapRows({means}, 2, [epsilon](const float* const* in, float* out, int width, int, int) {
          for (int i = 0; i < width; ++i) {
            const float mean = in[0][2 * i], variance = std::max(in[0][2 * i + 1] - mean * mean, 0.0f);
            const float a = variance / (variance + epsilon);
            out[2 * i] = a;
            out[2 * i + 1] = mean - a * mean;
          }
        });
    inputs.push_back(filters::gaussianBlur(ab, radius));
  }
  if (smoothChroma)
    inputs.push_back(blurredChroma(image, std::max(colorAmount * colorSigmaAtFull * scale, 0.5)));

  return kernel::mapRows(inputs, 3, [=](const float* const* in, float* out, int width, int, int) {
    if (smoothLuminance || smoothChroma) {
      raw_kernels::combineRow(in[0], smoothLuminance ? in[1] : nullptr,
                              smoothChroma ? in[smoothLuminance ? 2 : 1] : nullptr, out, width);
    } else {
      std::copy(in[0], in[0] + 3 * width, out);
    }
    if (finish) finish(out, width);
  });
}

}  // namespace lumivale::RawNoise
