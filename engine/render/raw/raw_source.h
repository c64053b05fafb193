#pragma once
// A camera RAW file as the source of a photo's develop pipeline: its size
// and lens-correction support from the header alone, and decoded base
// images at a requested size with the decoder-level settings applied.
//
// Decoding a request, each step only when its setting asks:
//   1. the scale s = min(maxSide / longer side, 1); at s ≤ 0.5 the sensor
//      data is developed at half size, else at full size (never more than
//      needed; engine/media/raw_decoder.h), then reduced to the exact size;
//   2. lens correction (lens_correction.h) at that size;
//   3. luminance and colour noise reduction (raw_noise.h);
//   4. the default look (raw_look.h), its exposure matched to the camera's
//      own preview of the frame;
//   5. the orientation.
// The result is in the working space with its origin at (0, 0). No
// sharpening is done here: the render pipeline sharpens.
//
// A source is a plain value (the file's name and facts); every `image` call
// opens the file afresh, so one source may decode on several threads.
// PhotoSource opens RAW files through this class (`openRawDecoder`).

#include <filesystem>
#include <optional>

#include "engine/edit/edit_settings.h"
#include "engine/edit/geometry.h"
#include "engine/media/image.h"
#include "engine/media/raw_decoder.h"

namespace lumivale {

class RawSource {
 public:
  /// How a request for `maxSide` pixels is decoded.
  struct Plan {
    double scale = 1;       ///< of the full size, at most 1
    bool halfSize = false;  ///< the sensor data developed at half size
    int width = 0;          ///< of the result before orientation
    int height = 0;
    bool operator==(const Plan&) const = default;
  };

  /// Reads the file's header (nothing is unpacked). Nothing when it is not
  /// a RAW file LibRaw reads or its frame is empty. Never throws.
  static std::optional<RawSource> open(const std::filesystem::path& file);

  /// The plan for a frame of `width` × `height` (either orientation):
  /// `maxSide` nothing means full size.
  static Plan plan(int width, int height, std::optional<int> maxSide);

  const std::filesystem::path& file() const { return file_; }
  const RawFacts& facts() const { return facts_; }
  /// Pixel size after orientation (width and height swapped for
  /// orientations 5 to 8).
  Size fullSize() const;
  /// lensfun knows the camera body and the lens, with some calibration.
  bool lensCorrectionAvailable() const { return lensCorrectionAvailable_; }

  /// The decoded base image at most `maxSide` pixels on its longer side
  /// (nothing: full size), with `settings`' lens correction and noise
  /// reduction. Throws ImageError "cannot decode "<file>": <reason>" when the
  /// file cannot be decoded (damaged, cut short, changed since opening).
  Image image(std::optional<int> maxSide, const EditSettings& settings) const;

 private:
  RawSource() = default;
  std::filesystem::path file_;
  RawFacts facts_;
  bool lensCorrectionAvailable_ = false;
};

}  // namespace lumivale
