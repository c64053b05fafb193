#pragma once
// The decoders behind a PhotoSource: one kind for image files (JPEG, PNG,
// TIFF, HEIF) and one for RAW files. Internal to engine/render.

#include <filesystem>
#include <memory>
#include <optional>

#include "engine/edit/edit_settings.h"
#include "engine/edit/geometry.h"
#include "engine/media/image_decoder.h"

namespace lumivale {

class SourceDecoder {
 public:
  virtual ~SourceDecoder() = default;
  /// Pixel size after the orientation.
  virtual Size fullSize() const = 0;
  virtual bool lensCorrectionAvailable() const = 0;
  /// The photo in the working space, upright, at full size or with its
  /// longer side `maxSide` (never enlarged), with the decoder's own share of
  /// `settings` applied (RAW: lens correction, noise reduction). Throws
  /// ImageError.
  virtual DecodedImage decode(std::optional<int> maxSide, const EditSettings& settings) const = 0;
};

/// The decoder of an image file, its header read. Throws ImageError.
std::unique_ptr<SourceDecoder> openImageFileDecoder(const std::filesystem::path& file);

/// The decoder of a RAW file, its header read; none while RAW decoding is
/// not built. Throws ImageError.
std::unique_ptr<SourceDecoder> openRawDecoder(const std::filesystem::path& file);

}  // namespace lumivale
