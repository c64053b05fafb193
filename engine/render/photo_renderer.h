#pragma once
// From a decoded base image and a photo's settings to the developed image:
// exposure, the global tone cube, local masks, the mask overlay, geometry
// (flips, quarter turns, straighten, crop) and effects (sharpening,
// vignette, grain), in that order. Every stage whose controls are at zero is
// left out of the chain. The result is a lazy image: nothing is computed
// until its pixels are asked for (see how_it_works.md).
//
// A renderer owns two caches of tone cubes under one lock: global cubes,
// keyed by the settings that shape them (`toneKey`), at most 12, evicted
// first in first out and built outside the lock; and mask cubes, keyed by a
// mask's adjustments, at most 25, flushed as a whole when full and built
// under the lock. Rendering from several threads at once is safe.

#include <cstddef>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "engine/edit/edit_settings.h"
#include "engine/edit/geometry.h"
#include "engine/media/image.h"
#include "engine/render/tone_lut.h"
#include "engine/render/tone_params.h"

namespace lumivale {

/// A tone cube as the renderer shares it: immutable once built.
using SharedCube = std::shared_ptr<const std::vector<float>>;

struct MaskAdjustHash {
  std::size_t operator()(const MaskAdjust& adjust) const;
};

class PhotoRenderer {
 public:
  struct Options {
    /// The crop tool is active: the crop is not applied, the area outside
    /// the straightened photo shows as a dark backdrop, effects are skipped.
    bool cropEditing = false;
    /// Apply the effects stage (sharpening, vignette, grain).
    bool outputEffects = true;
    /// The id of the mask whose coverage is tinted red on screen.
    std::optional<std::string> maskOverlay;
    bool operator==(const Options&) const = default;
  };

  /// Global cubes kept at most, and mask cubes at which the mask cache is
  /// flushed.
  static constexpr std::size_t lutCacheLimit = 12;
  static constexpr std::size_t maskLUTCacheLimit = 25;

  PhotoRenderer() = default;
  PhotoRenderer(const PhotoRenderer&) = delete;
  PhotoRenderer& operator=(const PhotoRenderer&) = delete;

  /// The developed image of `base` (the decoded source at some fraction of
  /// `fullSize`, the photo's full size after orientation). Throws
  /// ImageError when the chain cannot be built.
  Image render(const Image& base, Size fullSize, const EditSettings& settings, const Options& options);
  Image render(const Image& base, Size fullSize, const EditSettings& settings) {
    return render(base, fullSize, settings, Options());
  }

  /// The global tone cube of the settings (scene domain, 33 points),
  /// cached by `toneKey`.
  SharedCube lut(const EditSettings& settings);

  /// The tone cube of one mask's adjustments (display domain), cached by the
  /// adjustments.
  SharedCube maskLUT(const MaskAdjust& adjust, const ToneParams& params);

  /// The default settings with exactly the fields that shape the global cube
  /// copied from `settings` (white balance, light but exposure, presence,
  /// curves, colour mixer, colour grading, black and white).
  static EditSettings toneKey(const EditSettings& settings);

  /// The cube applied to a linear image: scaled by 0.25 (scene) or 1
  /// (display), clamped to 0 … 1, raised to 1/2.2, looked up trilinearly,
  /// raised to 2.2; linear display-referred colour results.
  static Image applyCube(const Image& image, const SharedCube& cube, LUTDomain domain);

  /// Sharpening, vignette and grain, each when its amount is not zero.
  /// `scale` is the image's fraction of full resolution (radii given in
  /// full-resolution pixels are scaled by it).
  static Image effects(const Image& image, const EditSettings& settings, double scale);

  /// The mean linear colour of the (2 radius + 1)² square around the unit
  /// point `p` (y from the top) of the image, clipped to the image; black
  /// when nothing of the square is inside. Computes those pixels only.
  static LinearRGB sample(const Image& image, Point p, int radius);

  /// Wall time of the last global cube build, in milliseconds.
  double lastLUTBuildMS() const;
  /// Cubes held now (for diagnostics and tests).
  std::size_t cachedLUTs() const;
  std::size_t cachedMaskLUTs() const;

 private:
  mutable std::mutex lock_;
  std::unordered_map<EditSettings, SharedCube> lutCache_;
  std::deque<EditSettings> lutOrder_;
  double lastLUTBuildMS_ = 0;
  std::unordered_map<MaskAdjust, SharedCube, MaskAdjustHash> maskLUTCache_;
};

}  // namespace lumivale
