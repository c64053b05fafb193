// The Gaussian is the discrete one, T(k) = e^(−σ²) I_k(σ²) (I_k the modified
// Bessel function): the lattice's own Gaussian, whose variance is exactly
// σ² at every size. Sampling the bell e^(−k²/2σ²) instead is fine from σ ≈ 1
// on, where the two agree, but below that the sampled kernel collapses (at
// σ = 0.3 its variance is a tenth of σ²) and an unsharp mask of radius 0.3
// would hardly sharpen. The weights come from the kernel's Fourier
// transform, e^(σ²(cos θ − 1)), sampled finely enough that aliasing stays
// far below float precision.
//
// Two passes, columns then rows, each reading clamped positions (clamp to
// extent); the row pass runs flat over the interleaved values of the pixels
// whose window lies inside the image and pixel by pixel near the edges.

#include "engine/render/filters/blur.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "engine/render/filters/blur.cpp"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include "engine/render/simd_loops-inl.h"

HWY_BEFORE_NAMESPACE();
namespace lumivale::filters::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;
using namespace lumivale::simd::HWY_NAMESPACE;

// out[i] = w[0] rows[R][i] + Σ w[k] (rows[R − k][i] + rows[R + k][i]).
void BlurColumns(const float* const* rows, const float* w, int reach, float* out, std::size_t count) {
  const hn::ScalableTag<float> d;
  using V = hn::Vec<decltype(d)>;
  const std::size_t lanes = hn::Lanes(d);
  const float* centre = rows[reach];
  std::size_t i = 0;
  for (; i + lanes <= count; i += lanes) {
    V sum = hn::Mul(hn::Set(d, w[0]), hn::LoadU(d, centre + i));
    for (int k = 1; k <= reach; ++k)
      sum = hn::MulAdd(hn::Set(d, w[k]),
                       hn::Add(hn::LoadU(d, rows[reach - k] + i), hn::LoadU(d, rows[reach + k] + i)), sum);
    hn::StoreU(sum, d, out + i);
  }
  for (; i < count; ++i) {
    float sum = w[0] * centre[i];
    for (int k = 1; k <= reach; ++k) sum += w[k] * (rows[reach - k][i] + rows[reach + k][i]);
    out[i] = sum;
  }
}

// The same along a row: `values` points at the first value to blur, whose
// neighbours lie `step` floats apart and all exist.
void BlurRow(const float* values, int step, const float* w, int reach, float* out, std::size_t count) {
  const hn::ScalableTag<float> d;
  using V = hn::Vec<decltype(d)>;
  const std::size_t lanes = hn::Lanes(d);
  std::size_t i = 0;
  for (; i + lanes <= count; i += lanes) {
    const float* p = values + i;
    V sum = hn::Mul(hn::Set(d, w[0]), hn::LoadU(d, p));
    for (int k = 1; k <= reach; ++k)
      sum =
          hn::MulAdd(hn::Set(d, w[k]), hn::Add(hn::LoadU(d, p - k * step), hn::LoadU(d, p + k * step)), sum);
    hn::StoreU(sum, d, out + i);
  }
  for (; i < count; ++i) {
    const float* p = values + i;
    float sum = w[0] * p[0];
    for (int k = 1; k <= reach; ++k) sum += w[k] * (p[-k * step] + p[k * step]);
    out[i] = sum;
  }
}

// in + intensity × (in − blurred).
void SharpenRow(const float* in, const float* blurred, float intensity, float* out, std::size_t count) {
  const hn::ScalableTag<float> d;
  using V = hn::Vec<decltype(d)>;
  const V k = hn::Set(d, intensity);
  forEachValuePair(d, in, blurred, out, count, [&](V a, V b) { return hn::MulAdd(k, hn::Sub(a, b), a); });
}

}  // namespace lumivale::filters::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE

#include <algorithm>
#include <cmath>
#include <memory>
#include <numbers>
#include <vector>

#include "engine/render/filters/filter_support.h"
#include "engine/render/kernel.h"

namespace lumivale::filters {

HWY_EXPORT(BlurColumns);
HWY_EXPORT(BlurRow);
HWY_EXPORT(SharpenRow);

namespace {

constexpr double identitySigma = 0.05;
// The kernel stops where what it leaves out of its two tails weighs less.
constexpr double tailWeight = 1e-3;

// From this sigma on the sampled bell is used: it differs from the discrete
// Gaussian by less than 2e-6 of a weight there, and the Fourier sums would
// cost O(σ²).
constexpr double sampledSigma = 32;

// The weights T(0 … n − 1) of the discrete Gaussian. Sampling its transform
// at m points adds T(k ± m), T(k ± 2m) … to each weight; with m ≥ 4 (n + 8)
// those lie beyond 18 σ.
std::vector<double> discreteGaussian(double sigma, int n) {
  const double t = sigma * sigma;
  int m = 64;
  while (m < 4 * (n + 8)) m *= 2;
  std::vector<double> cosine(static_cast<std::size_t>(m)), spectrum(static_cast<std::size_t>(m));
  for (int j = 0; j < m; ++j) {
    cosine[std::size_t(j)] = std::cos(2 * std::numbers::pi * j / m);
    spectrum[std::size_t(j)] = std::exp(t * (cosine[std::size_t(j)] - 1));
  }
  std::vector<double> weights;
  for (int k = 0; k < n; ++k) {
    double sum = 0;
    for (int j = 0; j < m; ++j)
      sum += spectrum[std::size_t(j)] * cosine[std::size_t(j * k) & std::size_t(m - 1)];
    weights.push_back(std::max(sum / m, 0.0));
  }
  return weights;
}

// w[0 … R] of the Gaussian cut to its reach R, normalised so that
// w[0] + 2 Σ w[k] = 1.
std::vector<float> gaussianWeights(double sigma) {
  const int longest = int(std::ceil(6 * sigma)) + 2;
  std::vector<double> weights;
  if (sigma < sampledSigma) {
    weights = discreteGaussian(sigma, longest + 1);
  } else {
    for (int k = 0; k <= longest; ++k) weights.push_back(std::exp(-k * k / (2 * sigma * sigma)));
  }
  double total = weights[0];
  for (std::size_t k = 1; k < weights.size(); ++k) total += 2 * weights[k];
  double inside = 0;
  std::size_t reach = 0;
  for (; reach < weights.size(); ++reach) {
    inside += reach == 0 ? weights[0] : 2 * weights[reach];
    if (1 - inside / total < tailWeight) break;
  }
  std::vector<float> result;
  for (std::size_t k = 0; k <= std::min(reach, weights.size() - 1); ++k)
    result.push_back(float(weights[k] / inside));
  return result;
}

struct Kernel {
  std::vector<float> weights;
  int reach() const { return int(weights.size()) - 1; }
};

Image blurColumns(const Image& input, std::shared_ptr<const Kernel> kernel) {
  const int w = input.width(), h = input.height(), bands = input.bands(), reach = kernel->reach();
  return kernel::mapArea(
      input, w, h, bands,
      [reach](const kernel::PixelRect& r) {
        return kernel::PixelRect{r.left, r.top - reach, r.width, r.height + 2 * reach};
      },
      [=](const kernel::InputArea& in, float* out, int width, int x, int y) {
        std::vector<const float*> rows(std::size_t(2 * reach + 1));
        for (int k = -reach; k <= reach; ++k)
          rows[std::size_t(k + reach)] = in.at(x, std::clamp(y + k, 0, h - 1));
        HWY_DYNAMIC_DISPATCH(BlurColumns)
        (rows.data(), kernel->weights.data(), reach, out, std::size_t(width) * bands);
      });
}

Image blurRows(const Image& input, std::shared_ptr<const Kernel> kernel) {
  const int w = input.width(), h = input.height(), bands = input.bands(), reach = kernel->reach();
  const float* weights = kernel->weights.data();
  return kernel::mapArea(
      input, w, h, bands,
      [reach](const kernel::PixelRect& r) {
        return kernel::PixelRect{r.left - reach, r.top, r.width + 2 * reach, r.height};
      },
      [=](const kernel::InputArea& in, float* out, int width, int x, int y) {
        // Pixels whose whole window lies inside the image run flat.
        const int first = std::clamp(reach, x, x + width), end = std::clamp(w - reach, first, x + width);
        const auto edge = [&](int px) {
          for (int c = 0; c < bands; ++c) {
            float sum = weights[0] * in.at(px, y)[c];
            for (int k = 1; k <= reach; ++k)
              sum += weights[k] * (in.at(std::max(px - k, 0), y)[c] + in.at(std::min(px + k, w - 1), y)[c]);
            out[(px - x) * bands + c] = sum;
          }
        };
        for (int px = x; px < first; ++px) edge(px);
        if (end > first) HWY_DYNAMIC_DISPATCH(BlurRow)
        (in.at(first, y), bands, weights, reach, out + (first - x) * bands, std::size_t(end - first) * bands);
        for (int px = std::max(end, first); px < x + width; ++px) edge(px);
      });
}

}  // namespace

Image gaussianBlur(const Image& input, double sigma) {
  if (input.empty()) throw ImageError("blur: an image was missing in the render chain");
  if (!(sigma > identitySigma)) return input;
  auto kernel = std::make_shared<const Kernel>(Kernel{gaussianWeights(sigma)});
  return blurRows(blurColumns(input, kernel), kernel);
}

Image unsharpMask(const Image& source, double radius, double intensity) {
  if (intensity == 0 || gaussianBlur(source, radius).get() == source.get()) return source;
  const Image input = detail::readTwice(source);
  const Image blurred = gaussianBlur(input, radius);
  const int bands = input.bands();
  const float k = float(intensity);
  return kernel::mapRows({input, blurred}, bands,
                         [=](const float* const* in, float* out, int width, int, int) {
                           HWY_DYNAMIC_DISPATCH(SharpenRow)(in[0], in[1], k, out, std::size_t(width) * bands);
                         });
}

}  // namespace lumivale::filters

#endif  // HWY_ONCE
