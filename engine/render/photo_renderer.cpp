// The render chain. Stage order and the constants of each stage are the
// product's look: changing one changes every photo. See photo_renderer.h.

#include "engine/render/photo_renderer.h"

#include <algorithm>
#include <chrono>
#include <cmath>

#include "engine/edit/value_hash.h"
#include "engine/render/filters/blur.h"
#include "engine/render/filters/composite.h"
#include "engine/render/filters/point.h"
#include "engine/render/filters/random_generator.h"
#include "engine/render/filters/resample.h"
#include "engine/render/kernel.h"
#include "engine/render/mask_renderer.h"
#include "engine/render/tone_pass.h"

namespace lumivale {
namespace {

// Below this the straighten angle counts as none (radians).
constexpr double straightenTolerance = 1e-9;

double finiteOr(double v, double fallback) { return std::isfinite(v) ? v : fallback; }

bool hasToneAdjustments(const MaskAdjust& a) {
  return a.exposure != 0 || a.contrast != 0 || a.highlights != 0 || a.shadows != 0 || a.temperature != 0 ||
         a.tint != 0 || a.saturation != 0;
}

// Positive sharpness sharpens with a radius of 8 full-resolution pixels;
// negative softens with a Gaussian of up to 12 full-resolution pixels.
Image maskSharpness(const Image& image, double sharpness, double scale) {
  if (sharpness > 0) return filters::unsharpMask(image, std::max(8 * scale, 0.4), sharpness / 100 * 1.2);
  return filters::gaussianBlur(image, std::max(2 * scale, 0.15) * (-sharpness / 100) * 6);
}

// The coverage of one mask as the blend uses it: inverted, then scaled by
// the opacity.
Image effectiveCoverage(const PhotoMask& mask, int width, int height) {
  Image m = MaskRenderer::image(mask, width, height);
  if (m.empty()) return m;
  if (mask.invert) m = filters::colorInvert(m);
  if (mask.opacity < 1) m = filters::colorMatrix(m, filters::ColorMatrix::scale(mask.opacity));
  return m;
}

Image overlay(const Image& image, const Image& coverage) {
  const Image tint = Image::constant(image.width(), image.height(), {1.0, 0.15, 0.2});
  return filters::blendWithMask(tint, image, filters::colorMatrix(coverage, filters::ColorMatrix::scale(0.55)));
}

// Where the frame (frame.width × frame.height pixels) lands under
// `toOutput`, as coverage: 1 inside, 0 outside, a one-pixel ramp at its
// edges, which is what a white rectangle rotated over black gives.
Image frameCoverage(const Affine& toOutput, Size frame, int width, int height) {
  const double det = toOutput.a * toOutput.d - toOutput.b * toOutput.c;
  const Affine back{toOutput.d / det,
                    -toOutput.b / det,
                    -toOutput.c / det,
                    toOutput.a / det,
                    (toOutput.c * toOutput.ty - toOutput.d * toOutput.tx) / det,
                    (toOutput.b * toOutput.tx - toOutput.a * toOutput.ty) / det};
  return kernel::generate(width, height, 1, [back, frame](const float* const*, float* out, int n, int x, int y) {
    for (int i = 0; i < n; ++i) {
      const Point p = back.apply({x + i + 0.5, y + 0.5});
      const double inside = std::min(std::min(p.x, frame.width - p.x), std::min(p.y, frame.height - p.y)) + 0.5;
      out[i] = float(std::clamp(inside, 0.0, 1.0));
    }
  });
}

// Flips and quarter turns exactly, then straighten and crop in one
// resampling (or an exact cut when there is no angle).
Image applyGeometry(const Image& image, const EditSettings& settings, bool cropEditing) {
  const PhotoGeometry g(settings, Size{double(image.width()), double(image.height())}, cropEditing);
  Image out = image;
  if (g.flipH) out = filters::flip(out, true);
  if (g.flipV) out = filters::flip(out, false);
  if (g.quarterTurns != 0) out = filters::rotateQuarterTurns(out, g.quarterTurns);

  const Size size = g.outputSize();
  const int width = int(size.width), height = int(size.height);
  if (std::abs(g.angle) <= straightenTolerance) {
    if (cropEditing) return out;
    return filters::crop(out, int(std::lround(g.crop.x)), int(std::lround(g.crop.y)), width, height);
  }
  // Rotation about the frame's centre, then the crop's corner moved to the
  // origin: one transform from frame pixels to output pixels.
  const Affine rotation = filters::topLeftTransform(g.straightenTransform(), g.frame.height, g.frame.height);
  const Affine toOutput = rotation.appending(Affine::translation(-g.crop.x, -g.crop.y));
  const Rect area{0, 0, double(width), double(height)};
  Image rotated = filters::affine(out, toOutput, area);
  if (!cropEditing) return rotated;
  // The crop tool shows where the photo is: the rotated frame over a dark
  // backdrop.
  const Image backdrop = Image::constant(width, height, {0.08, 0.08, 0.09});
  return filters::blendWithMask(rotated, backdrop, frameCoverage(toOutput, g.frame, width, height));
}

// The vignette: a radial ramp from 0 (at r0 of the ellipse touching the
// image's edges) to 1 (at r1) blends the image towards itself times
// `cornerGain`. Fused into one pass; equal to the gradient, exposure and
// blend filters in a row.
Image vignette(const Image& image, double r0, double r1, double cornerGain) {
  const double cx = image.width() / 2.0, cy = image.height() / 2.0;
  const float gainMinusOne = float(cornerGain - 1);
  return kernel::mapRows({image}, 3, [=](const float* const* in, float* out, int width, int x0, int y) {
    const double dy = (y + 0.5 - cy) / cy;
    for (int i = 0; i < width; ++i) {
      const double dx = (x0 + i + 0.5 - cx) / cx;
      const double d = std::sqrt(dx * dx + dy * dy);
      const double g = d <= r0 ? 0.0 : (d >= r1 ? 1.0 : (d - r0) / (r1 - r0));
      const float factor = 1 + float(g) * gainMinusOne;
      for (int c = 0; c < 3; ++c) out[3 * i + c] = in[0][3 * i + c] * factor;
    }
  });
}

// Film grain in cells of `k` pixels: a window of the endless noise plane
// with a margin of 32 cells, scaled up by k and blurred (sigma 0.45 k), then
// a grey multiplier 1 − 3a + 6a × noise limited to 1 ± a. Only the noise's
// green channel reaches the multiplier, so only it is scaled and blurred.
Image grain(const Image& image, double k, double a) {
  const int width = image.width(), height = image.height();
  const int cellsX = int(std::ceil(width / k)) + 64, cellsY = int(std::ceil(height / k)) + 64;
  const Image green = kernel::mapRows({filters::randomGenerator(-32, -32, cellsX, cellsY)}, 1,
                                      [](const float* const* in, float* out, int n, int, int) {
                                        for (int i = 0; i < n; ++i) out[i] = in[0][3 * i + 1];
                                      });
  const double sigma = k * 0.45;
  const int margin = int(std::ceil(3 * sigma)) + 1;
  const Affine toImage = Affine::translation(-32, -32).appending({k, 0, 0, k, double(margin), double(margin)});
  Image noise = filters::affine(green, toImage, {0, 0, double(width + 2 * margin), double(height + 2 * margin)});
  noise = filters::crop(filters::gaussianBlur(noise, sigma), margin, margin, width, height);
  const float scale = float(6 * a), offset = float(1 - 3 * a), lo = float(1 - a), hi = float(1 + a);
  return kernel::mapRows({image, noise}, 3, [=](const float* const* in, float* out, int n, int, int) {
    for (int i = 0; i < n; ++i) {
      const float factor = std::clamp(scale * in[1][i] + offset, lo, hi);
      for (int c = 0; c < 3; ++c) out[3 * i + c] = in[0][3 * i + c] * factor;
    }
  });
}

}  // namespace

std::size_t MaskAdjustHash::operator()(const MaskAdjust& adjust) const {
  Hasher h;
  hashInto(h, adjust);
  return h.value();
}

EditSettings PhotoRenderer::toneKey(const EditSettings& s) {
  EditSettings key;
  key.temperature = s.temperature;
  key.tint = s.tint;
  key.contrast = s.contrast;
  key.highlights = s.highlights;
  key.shadows = s.shadows;
  key.whites = s.whites;
  key.blacks = s.blacks;
  key.vibrance = s.vibrance;
  key.saturation = s.saturation;
  key.blackAndWhite = s.blackAndWhite;
  key.curveRGB = s.curveRGB;
  key.curveRed = s.curveRed;
  key.curveGreen = s.curveGreen;
  key.curveBlue = s.curveBlue;
  key.hsl = s.hsl;
  key.gradeShadows = s.gradeShadows;
  key.gradeMidtones = s.gradeMidtones;
  key.gradeHighlights = s.gradeHighlights;
  key.gradeBalance = s.gradeBalance;
  key.gradeBlending = s.gradeBlending;
  return key;
}

SharedCube PhotoRenderer::lut(const EditSettings& settings) {
  const EditSettings key = toneKey(settings);
  {
    std::lock_guard hold(lock_);
    if (auto it = lutCache_.find(key); it != lutCache_.end()) return it->second;
  }
  const auto start = std::chrono::steady_clock::now();
  auto cube = std::make_shared<const std::vector<float>>(ToneLUT::cube(ToneParams(settings), LUTDomain::scene));
  const double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
  std::lock_guard hold(lock_);
  lastLUTBuildMS_ = ms;
  // Two threads may build one cube; the second insert replaces the first
  // and is counted in the order once.
  if (auto it = lutCache_.find(key); it != lutCache_.end()) {
    it->second = cube;
    return cube;
  }
  if (lutOrder_.size() >= lutCacheLimit) {
    lutCache_.erase(lutOrder_.front());
    lutOrder_.pop_front();
  }
  lutCache_.emplace(key, cube);
  lutOrder_.push_back(key);
  return cube;
}

SharedCube PhotoRenderer::maskLUT(const MaskAdjust& adjust, const ToneParams& params) {
  std::lock_guard hold(lock_);
  if (auto it = maskLUTCache_.find(adjust); it != maskLUTCache_.end()) return it->second;
  auto cube = std::make_shared<const std::vector<float>>(ToneLUT::cube(params, LUTDomain::display));
  if (maskLUTCache_.size() >= maskLUTCacheLimit) maskLUTCache_.clear();
  maskLUTCache_.emplace(adjust, cube);
  return cube;
}

double PhotoRenderer::lastLUTBuildMS() const {
  std::lock_guard hold(lock_);
  return lastLUTBuildMS_;
}

std::size_t PhotoRenderer::cachedLUTs() const {
  std::lock_guard hold(lock_);
  return lutCache_.size();
}

std::size_t PhotoRenderer::cachedMaskLUTs() const {
  std::lock_guard hold(lock_);
  return maskLUTCache_.size();
}

Image PhotoRenderer::applyCube(const Image& image, const SharedCube& cube, LUTDomain domain) {
  return applyTonePass(image, TonePass{1.0f, cube, ToneLUT::dimension, domain});
}

Image PhotoRenderer::render(const Image& base, Size fullSize, const EditSettings& settings,
                            const Options& options) {
  if (base.empty()) throw ImageError("there is no image to render");
  const int width = base.width(), height = base.height();
  const double scale = fullSize.width >= 1 ? width / fullSize.width : width;

  // Exposure and the global cube: one fused pass.
  Image image = base;
  const double exposure = finiteOr(settings.exposure, 0);
  const bool tone = !(toneKey(settings) == EditSettings::blank());
  if (exposure != 0 || tone) {
    TonePass pass;
    pass.gain = float(std::exp2(exposure));
    if (tone) pass.cube = lut(settings);
    image = applyTonePass(image, pass);
  }

  // Local masks, in order.
  Image overlayCoverage;
  for (const PhotoMask& mask : settings.masks) {
    if (!(mask.opacity > 0)) continue;
    const Image coverage = effectiveCoverage(mask, width, height);
    if (coverage.empty()) continue;
    if (options.maskOverlay && *options.maskOverlay == mask.id) overlayCoverage = coverage;
    const MaskAdjust& adjust = mask.adjust;
    const bool toneOn = hasToneAdjustments(adjust);
    if (!toneOn && adjust.sharpness == 0) continue;
    const SharedCube cube = toneOn ? maskLUT(adjust, ToneParams(adjust)) : nullptr;
    if (adjust.sharpness == 0) {
      // Tone alone: the cube and the blend in one pass.
      image = applyTonePass(image, TonePass{1.0f, cube, ToneLUT::dimension, LUTDomain::display}, coverage);
      continue;
    }
    Image adjusted = cube ? applyCube(image, cube, LUTDomain::display) : image;
    adjusted = maskSharpness(adjusted, adjust.sharpness, scale);
    image = filters::blendWithMask(adjusted, image, coverage);
  }
  if (!overlayCoverage.empty()) image = overlay(image, overlayCoverage);

  image = applyGeometry(image, settings, options.cropEditing);

  if (options.outputEffects && !options.cropEditing) image = effects(image, settings, scale);
  return image;
}

Image PhotoRenderer::effects(const Image& input, const EditSettings& s, double scale) {
  Image image = input;
  const int width = image.width(), height = image.height();
  if (s.sharpenAmount > 0) {
    image = filters::unsharpMask(image, std::max(finiteOr(s.sharpenRadius, 1) * scale * 1.5, 0.3),
                                 s.sharpenAmount / 100);
  }
  if (s.vignetteAmount != 0 && std::isfinite(s.vignetteAmount)) {
    const double r0 = finiteOr(s.vignetteMidpoint, 50) / 100 * 0.9 + 0.3;
    const double r1 = finiteOr(s.vignetteFeather, 50) / 100 * 0.8 + r0 + 0.08;
    image = vignette(image, r0, r1, std::exp2(s.vignetteAmount / 100 * 2.2));
  }
  if (s.grainAmount > 0 && std::isfinite(s.grainAmount)) {
    const double longSide = std::max(width, height);
    const double k = std::max(longSide / 3000, 0.35) * (finiteOr(s.grainSize, 25) / 100 * 3 + 1);
    image = grain(image, k, s.grainAmount / 100 * 0.35);
  }
  return image;
}

LinearRGB PhotoRenderer::sample(const Image& image, Point p, int radius) {
  const double w = image.width(), h = image.height();
  // The unit point's pixel, y from the top.
  const int cx = int(std::floor(w * p.x)), cy = int(std::floor(h * p.y));
  radius = std::max(radius, 0);
  const int left = std::max(cx - radius, 0), top = std::max(cy - radius, 0);
  const int right = std::min(cx + radius + 1, image.width()), bottom = std::min(cy + radius + 1, image.height());
  if (!std::isfinite(p.x) || !std::isfinite(p.y) || right <= left || bottom <= top) return {};
  const FloatPixels pixels = image.readPixels(left, top, right - left, bottom - top);
  double sum[3] = {0, 0, 0};
  const std::size_t count = std::size_t(pixels.width) * pixels.height;
  for (std::size_t i = 0; i < count; ++i)
    for (int c = 0; c < 3; ++c) sum[c] += pixels.values[i * std::size_t(pixels.bands) + std::size_t(std::min(c, pixels.bands - 1))];
  return {sum[0] / count, sum[1] / count, sum[2] / count};
}

}  // namespace lumivale
