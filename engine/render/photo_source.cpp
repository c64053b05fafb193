#include "engine/render/photo_source.h"

#include <algorithm>

#include "engine/media/photo_formats.h"
#include "engine/media/safe_file.h"
#include "engine/render/filters/blur.h"
#include "engine/render/filters/composite.h"
#include "engine/render/filters/noise.h"
#include "engine/render/source_decoder.h"

namespace lumivale {
namespace {

// JPEG, PNG, TIFF and HEIF files, through the media floor's decoder.
class ImageFileDecoder : public SourceDecoder {
 public:
  ImageFileDecoder(std::filesystem::path file, const ImageDecoder::Header& header)
      : file_(std::move(file)), fullSize_{double(header.orientedWidth()), double(header.orientedHeight())} {}

  Size fullSize() const override { return fullSize_; }
  bool lensCorrectionAvailable() const override { return false; }

  DecodedImage decode(std::optional<int> maxSide, const EditSettings& settings) const override {
    DecodedImage decoded = ImageDecoder::decode(file_, maxSide);
    decoded.image = PhotoSource::applyNonRawNoise(decoded.image, settings, fullSize_.width);
    return decoded;
  }

 private:
  std::filesystem::path file_;
  Size fullSize_;
};

}  // namespace

std::unique_ptr<SourceDecoder> openImageFileDecoder(const std::filesystem::path& file) {
  return std::make_unique<ImageFileDecoder>(file, ImageDecoder::readHeader(file));
}

std::unique_ptr<SourceDecoder> openRawDecoder(const std::filesystem::path&) { return nullptr; }

PhotoSource::PhotoSource(std::filesystem::path url, bool isRaw, std::unique_ptr<SourceDecoder> decoder)
    : url_(std::move(url)), isRaw_(isRaw), decoder_(std::move(decoder)) {}

PhotoSource::PhotoSource(PhotoSource&&) noexcept = default;
PhotoSource& PhotoSource::operator=(PhotoSource&&) noexcept = default;
PhotoSource::~PhotoSource() = default;

PhotoSource PhotoSource::open(const std::filesystem::path& file) {
  const bool raw = PhotoFormats::isRaw(file);
  std::unique_ptr<SourceDecoder> decoder = raw ? openRawDecoder(file) : openImageFileDecoder(file);
  if (!decoder) throw ImageError("cannot open " + quotedPath(file) + ": RAW files cannot be developed yet");
  if (decoder->fullSize().width < 1 || decoder->fullSize().height < 1)
    throw ImageError("cannot open " + quotedPath(file) + ": the picture has no pixels");
  return PhotoSource(file, raw, std::move(decoder));
}

Size PhotoSource::fullSize() const { return decoder_->fullSize(); }

bool PhotoSource::lensCorrectionAvailable() const { return decoder_->lensCorrectionAvailable(); }

DecodedImage PhotoSource::image(std::optional<int> maxSide, const EditSettings& settings) const {
  return decoder_->decode(maxSide, settings);
}

Image PhotoSource::applyNonRawNoise(const Image& image, const EditSettings& settings, double fullWidth) {
  // The preview's share of the full width, so that the colour blur covers
  // the same part of the picture in a preview as in a full-size export.
  const double ratio = fullWidth >= 1 ? image.width() / fullWidth : image.width();
  Image result = image;
  if (const double amount = settings.noiseLuminance; amount > 0) {
    const Image denoised =
        filters::medianFilter(filters::noiseReduction(result, amount / 100 * 0.1 + 0.002, 0.0));
    result = filters::dissolveTransition(result, denoised, std::min(amount / 100 * 1.2, 1.0));
  }
  if (const double amount = settings.noiseColor; amount > 0) {
    const double sigma = std::max(amount / 100 * 8 * std::max(2 * ratio, 0.25), 0.5);
    result = filters::luminosityBlend(result, filters::gaussianBlur(result, sigma));
  }
  return result;
}

}  // namespace lumivale
