#pragma once
// One photo file to be developed: its size once upright, and its decoded
// base image at a requested size with the decoder-level settings applied
// (noise reduction; lens correction for RAW files). Everything after
// decoding is the render chain's work.
//
// The file is only ever read. Opening reads the header; each `image` call
// decodes afresh. A source is used by one thread at a time.

#include <filesystem>
#include <memory>
#include <optional>

#include "engine/edit/edit_settings.h"
#include "engine/edit/geometry.h"
#include "engine/media/image.h"
#include "engine/media/image_decoder.h"

namespace lumivale {

class SourceDecoder;

class PhotoSource {
 public:
  /// Opens the photo file's header. Throws ImageError with a message naming
  /// the file when it is missing, not a photo of a readable kind or damaged
  /// in its header; RAW files are not decoded yet and are refused the same
  /// way.
  static PhotoSource open(const std::filesystem::path& file);

  PhotoSource(PhotoSource&&) noexcept;
  PhotoSource& operator=(PhotoSource&&) noexcept;
  PhotoSource(const PhotoSource&) = delete;
  PhotoSource& operator=(const PhotoSource&) = delete;
  ~PhotoSource();

  const std::filesystem::path& url() const { return url_; }
  /// The extension (any case) is one of the RAW extensions.
  bool isRaw() const { return isRaw_; }
  /// Pixel size after the orientation (width and height swapped for EXIF
  /// orientations 5 to 8).
  Size fullSize() const;
  /// RAW only: the lens-correction data knows this camera and lens.
  bool lensCorrectionAvailable() const;

  /// Decodes the photo: at full size when `maxSide` is empty, otherwise with
  /// its longer side `maxSide` pixels (never enlarged). The result is in the
  /// working space, upright, its top-left pixel at (0, 0); for image files
  /// the program's own noise reduction is applied (`applyNonRawNoise`).
  /// Throws ImageError when decoding fails; a picture decoded only in part
  /// comes back with a warning.
  DecodedImage image(std::optional<int> maxSide, const EditSettings& settings) const;

  /// The noise reduction of non-RAW photos: luminance noise smoothed by an
  /// edge-preserving filter and a median, blended in by `noiseLuminance`;
  /// colour noise removed by taking hue and saturation from a blurred copy
  /// whose radius follows `noiseColor` and the preview's share of
  /// `fullWidth`. With both settings 0 the image comes back unchanged.
  static Image applyNonRawNoise(const Image& image, const EditSettings& settings, double fullWidth);

 private:
  PhotoSource(std::filesystem::path url, bool isRaw, std::unique_ptr<SourceDecoder> decoder);

  std::filesystem::path url_;
  bool isRaw_ = false;
  std::unique_ptr<SourceDecoder> decoder_;
};

}  // namespace lumivale
