#include "engine/render/raw/raw_look.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <vector>

#include "engine/media/vips_glue.h"
#include "engine/render/filters/blur.h"
#include "engine/render/filters/resample.h"
#include "engine/render/kernel.h"
#include "engine/render/raw/raw_kernels.h"

namespace lumivale {
namespace {

constexpr double midGrey = 0.18;

// Exposures outside this range are not photographs of a lit scene; inside
// it the curve's two conditions can always both hold.
constexpr double lowestEV = -0.5;
constexpr double highestEV = 8.0;

// How closely the log brightness of a preview must follow the frame's for
// it to count as the camera's rendering of that frame.
constexpr double minCorrelation = 0.8;

double luminance(double r, double g, double b) { return 0.2126 * r + 0.7152 * g + 0.0722 * b; }

// y = s x^c / (x^c + k) on luminance after the exposure gain.
struct Curve {
  double gain = 1;
  double c = 1;
  double s = 1;
  double k = 1;

  explicit Curve(const RawLook& look) {
    gain = std::exp2(std::clamp(look.exposureEV, lowestEV, highestEV));
    c = std::clamp(look.contrast, 1.0, 4.0);
    // f(midGrey) = midGrey and f(white) = 1, white = the clipping point.
    const double mc = std::pow(midGrey, c), wc = std::pow(gain, c);
    k = mc * (midGrey - 1) / (mc / wc - midGrey);
    s = 1 + k / wc;
  }

  double operator()(double x) const {
    if (!(x > 0)) return 0;
    const double p = std::pow(x, c);
    return s * p / (p + k);
  }

  // The value after the gain that the curve maps to y (0 < y < s).
  double inverse(double y) const { return std::pow(k * y / (s - y), 1 / c); }
};

}  // namespace

double RawLook::typicalExposureEV() { return typicalHeadroomStops + std::log2(midGrey); }

RawLook RawLook::fromFacts(const RawFacts& facts) {
  RawLook look;
  if (facts.baselineExposure) look.exposureEV = typicalExposureEV() + *facts.baselineExposure;
  return look;
}

double RawLook::map(double sceneLuminance) const {
  const Curve curve(*this);
  return curve(curve.gain * sceneLuminance);
}

std::optional<double> RawLook::matchedExposure(const Image& scene, const Image& preview) const {
  if (scene.empty() || preview.empty()) return std::nullopt;
  const double sceneAspect = double(scene.width()) / scene.height();
  const double previewAspect = double(preview.width()) / preview.height();
  if (std::abs(sceneAspect / previewAspect - 1) > 0.02) return std::nullopt;

  // Both at a size where their small misalignments and the noise no longer
  // matter, blurred a little for the same reason.
  constexpr int side = 160;
  auto small = [&](const Image& image, int width, int height) {
    // Block averages first, so the resampler's kernel stays short.
    const int factor = std::max(1, std::min(image.width() / width, image.height() / height) / 2);
    Image v =
        factor > 1
            ? withVips(
                  "cannot compare with the preview",
                  [&] { return fromVips(vipsImage(image).shrink(factor, factor).cast(VIPS_FORMAT_FLOAT)); })
            : image;
    const double scaleY = double(height) / v.height();
    v = filters::lanczosScale(v, scaleY, double(width) / v.width() / scaleY);
    return filters::gaussianBlur(v, 0.8);
  };
  const double shrink = std::min(1.0, double(side) / std::max(preview.width(), preview.height()));
  const int width = std::max(1, int(std::lround(preview.width() * shrink)));
  const int height = std::max(1, int(std::lround(preview.height() * shrink)));
  const FloatPixels p = small(preview, width, height).readPixels();
  const FloatPixels d = small(scene, width, height).readPixels();
  if (p.bands < 3 || d.bands < 3 || p.width != d.width || p.height != d.height) return std::nullopt;

  // Mid tones of the preview only: its blacks and whites say nothing about
  // the gain.
  std::vector<std::pair<double, double>> pairs;  // (preview, scene) luminance
  for (int y = 0; y < p.height; ++y) {
    for (int x = 0; x < p.width; ++x) {
      const double yp = luminance(p.at(x, y, 0), p.at(x, y, 1), p.at(x, y, 2));
      const double yd = luminance(d.at(x, y, 0), d.at(x, y, 1), d.at(x, y, 2));
      if (yp >= 0.03 && yp <= 0.7 && yd > 1e-6) pairs.emplace_back(yp, yd);
    }
  }
  if (pairs.size() < std::size_t(p.width) * p.height / 20) return std::nullopt;
  // The preview must show this frame: its brightness rises and falls with
  // the scene's, pixel for pixel.
  double sp = 0, sd = 0, spp = 0, sdd = 0, spd = 0;
  for (const auto& [yp, yd] : pairs) {
    const double lp = std::log(yp), ld = std::log(yd);
    sp += lp;
    sd += ld;
    spp += lp * lp;
    sdd += ld * ld;
    spd += lp * ld;
  }
  const double n = double(pairs.size());
  const double covariance = spd / n - sp * sd / (n * n);
  const double varianceP = spp / n - sp * sp / (n * n), varianceD = sdd / n - sd * sd / (n * n);
  if (!(varianceP > 1e-6 && varianceD > 1e-6) ||
      covariance / std::sqrt(varianceP * varianceD) < minCorrelation) {
    return std::nullopt;
  }

  // The curve's white point moves with the gain: a few rounds settle it.
  RawLook trial = *this;
  std::vector<double> needed(pairs.size());
  for (int round = 0; round < 6; ++round) {
    const Curve curve(trial);
    for (std::size_t i = 0; i < pairs.size(); ++i) {
      const double target = std::min(pairs[i].first, 0.999 * curve.s);
      needed[i] = std::log2(curve.inverse(target) / pairs[i].second);
    }
    auto middle = needed.begin() + std::ptrdiff_t(needed.size() / 2);
    std::nth_element(needed.begin(), middle, needed.end());
    trial.exposureEV = std::clamp(*middle, lowestEV, highestEV);
  }
  return trial.exposureEV;
}

std::function<void(float*, int)> RawLook::rowFunction() const {
  const Curve curve(*this);
  const raw_kernels::LookCurve vectorCurve{float(curve.gain), float(curve.c), float(curve.s), float(curve.k)};
  return [vectorCurve](float* rgb, int width) { raw_kernels::lookRow(vectorCurve, rgb, width); };
}

Image RawLook::apply(const Image& scene) const {
  auto rows = rowFunction();
  return kernel::mapRows({scene}, 3, [rows](const float* const* in, float* out, int width, int, int) {
    std::copy(in[0], in[0] + 3 * width, out);
    rows(out, width);
  });
}

}  // namespace lumivale
