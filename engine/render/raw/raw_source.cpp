#include "engine/render/raw/raw_source.h"

#include <algorithm>
#include <cmath>

#include "engine/media/embedded_preview.h"
#include "engine/media/orientation.h"
#include "engine/media/safe_file.h"
#include "engine/render/filters/resample.h"
#include "engine/render/raw/lens_correction.h"
#include "engine/render/raw/raw_look.h"
#include "engine/render/raw/raw_noise.h"
#include "engine/render/source_decoder.h"

namespace lumivale {
namespace {

// The camera's preview is compared with the decoded frame at this size.
constexpr int previewSideForExposure = 256;

// Exactly `width` × `height` pixels, Lanczos-reduced, computed into memory:
// the steps after it read pixels more than once.
Image reduceTo(const Image& image, int width, int height) {
  if (image.width() == width && image.height() == height) return image;
  const double scaleY = double(height) / image.height();
  return filters::lanczosScale(image, scaleY, double(width) / image.width() / scaleY).materialize();
}

}  // namespace

std::optional<RawSource> RawSource::open(const std::filesystem::path& file) {
  std::optional<RawFacts> facts = RawDecoder::facts(file);
  if (!facts || facts->width < 1 || facts->height < 1) return std::nullopt;
  RawSource source;
  source.file_ = file;
  source.facts_ = std::move(*facts);
  source.lensCorrectionAvailable_ = LensCorrection::available(source.facts_);
  return source;
}

RawSource::Plan RawSource::plan(int width, int height, std::optional<int> maxSide) {
  Plan p;
  const int longSide = std::max(width, height);
  if (maxSide && longSide > 0) p.scale = std::min(double(*maxSide) / longSide, 1.0);
  p.scale = std::max(p.scale, 0.0);
  p.halfSize = p.scale <= 0.5;
  p.width = std::max(1, int(std::lround(width * p.scale)));
  p.height = std::max(1, int(std::lround(height * p.scale)));
  return p;
}

Size RawSource::fullSize() const {
  if (facts_.orientation >= 5 && facts_.orientation <= 8)
    return {double(facts_.height), double(facts_.width)};
  return {double(facts_.width), double(facts_.height)};
}

Image RawSource::image(std::optional<int> maxSide, const EditSettings& settings) const {
  try {
    const Plan p = plan(facts_.width, facts_.height, maxSide);
    Image base = reduceTo(RawDecoder::develop(file_, {p.halfSize}), p.width, p.height);

    RawLook look = RawLook::fromFacts(facts_);
    const Image preview = EmbeddedPreviews::largest(file_, previewSideForExposure);
    if (!preview.empty()) {
      if (auto ev = look.matchedExposure(orientUpright(base, facts_.orientation), preview))
        look.exposureEV = *ev;
    }

    const RawNoiseAmounts noise{settings.noiseLuminance / 100, settings.noiseColor / 100};
    const bool reduceNoise = noise.luminance > 0 || noise.color > 0;
    if (settings.lensCorrection && lensCorrectionAvailable_) {
      base = LensCorrection::apply(base, facts_);
      // Noise reduction reads its input several times over.
      if (reduceNoise) base = base.materialize();
    }
    // The look joins the noise reduction's last pass.
    base = reduceNoise
               ? RawNoise::reduce(base, noise, RawNoise::noiseSigma(base), p.scale, look.rowFunction())
               : look.apply(base);
    return orientUpright(base, facts_.orientation);
  } catch (const std::exception& e) {
    throw ImageError("cannot decode " + quotedPath(file_) + ": " + e.what());
  }
}

namespace {

// What PhotoSource sees of a RAW file.
class RawFileDecoder : public SourceDecoder {
 public:
  explicit RawFileDecoder(RawSource source) : source_(std::move(source)) {}
  Size fullSize() const override { return source_.fullSize(); }
  bool lensCorrectionAvailable() const override { return source_.lensCorrectionAvailable(); }
  DecodedImage decode(std::optional<int> maxSide, const EditSettings& settings) const override {
    return {source_.image(maxSide, settings), {}};
  }

 private:
  RawSource source_;
};

}  // namespace

std::unique_ptr<SourceDecoder> openRawDecoder(const std::filesystem::path& file) {
  std::optional<RawSource> source = RawSource::open(file);
  if (!source) throw ImageError("cannot open " + quotedPath(file) + ": not a RAW file this program can read");
  return std::make_unique<RawFileDecoder>(std::move(*source));
}

}  // namespace lumivale
