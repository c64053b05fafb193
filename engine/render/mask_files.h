#pragma once
// Masks from image files, and the small lookups the mask commands need:
// bringing a coverage PNG made by another tool in as a smart mask's stored
// bitmap, and the adjustments a mask makes.
//
// Only PNG files are read, whatever their name says: a mask is exact coverage,
// and a lossy or colour-managed format would not keep it so.

#include <cstddef>
#include <filesystem>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "engine/edit/photo_mask.h"
#include "engine/render/mask_bitmap.h"

namespace lumivale {

/// A mask bitmap could not be read from or written to a file, or a mask has
/// no bitmap to give. The message is one line, fit to show to the user.
class MaskImageError : public std::runtime_error {
 public:
  explicit MaskImageError(const std::string& description) : std::runtime_error(description) {}
};

/// The largest side of a PNG that `maskBitmapFromImageFile` accepts.
inline constexpr int maxMaskImageSide = 16384;

/// Reads the coverage of a PNG file as a bitmap of the PNG's own size.
///
/// The coverage is the alpha channel when the PNG has one (an alpha channel,
/// or transparency given by a tRNS chunk) and some pixel is not fully opaque;
/// otherwise the grey value: the grey channel, or the luma of RGB
/// (0.2126 R + 0.7152 G + 0.0722 B on the stored values, so R = G = B = v gives
/// v). Palette images are read through their palette; 16-bit samples are
/// scaled to 8 bits with rounding (v × 255 / 65535); 1, 2 and 4-bit grey is
/// stretched to 0 … 255.
///
/// Throws MaskImageError naming the file when it cannot be opened, is empty
/// ("empty file"), is not a PNG by its content ("not a PNG image"), is larger
/// than 16384 on a side or than a stored bitmap may be ("too large"), or is
/// damaged or cut short.
MaskBitmap maskBitmapFromImageFile(const std::filesystem::path& file);

/// The size of a stored bitmap (`PhotoMask::maskPNG`): nothing when the data
/// does not decode, since such a bitmap counts as absent everywhere else too
/// (the mask renders as if its selection were not computed yet).
std::optional<std::pair<int, int>> storedBitmapSize(std::span<const std::uint8_t> stored);

/// A new smart mask of `kind` holding `bitmap` as its stored coverage, named
/// `name` or the kind's title. Throws MaskImageError when `kind` is not a
/// smart kind or the bitmap is empty or larger than a stored bitmap may be.
PhotoMask smartMaskFromBitmap(const MaskBitmap& bitmap, MaskKind kind,
                              std::optional<std::string> name = std::nullopt);

/// The share of a photo displayed at `displayWidth` × `displayHeight` that
/// `mask` selects: the mean of its coverage, 0 … 1, taken after `invert` and
/// before `opacity`. A smart mask's stored bitmap counts as it is, a brush
/// mask as painted at the photo's aspect (as `MaskRenderer::image` paints
/// it), a gradient as rendered 256 pixels on the long side. A size that is
/// unknown (zero or negative) counts as square. Nothing for a smart mask
/// whose bitmap is absent or does not decode.
std::optional<double> meanCoverage(const PhotoMask& mask, int displayWidth, int displayHeight);

/// The adjustments of `adjust` that are not zero, in field order, each with
/// its stored key ("exposure", "contrast", ..., "sharpness").
std::vector<std::pair<std::string_view, double>> nonZeroAdjustments(const MaskAdjust& adjust);

}  // namespace lumivale
