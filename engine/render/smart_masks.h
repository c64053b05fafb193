#pragma once
// Smart masks: coverage computed once from a photo's pixels when the user
// creates or refreshes a subject, sky or people mask, then stored in the
// mask as a `MaskBitmap` and scaled at each render (mask_renderer.h).
//
// The input is the rendered preview as an 8- or 16-bit picture (rows from
// the top, 1 to 4 channels: grey, grey and alpha, RGB or RGBA; colour
// channels are taken as the encoded sRGB values they hold, alpha as
// premultiplying them, so transparent pixels count as black).
//
// - The sky is our own search on a copy of at most 320 pixels a side: bright,
//   smooth, blue or overcast areas reached from the top row.
// - The subject is the ISNet salient-object model, run with OpenCV's `dnn`
//   from a converted ONNX file (segmentation_model.h says where it is looked
//   for); the mask has the model's resolution.
// - People are the subject mask kept only in the connected regions where a
//   person is found (a face, frontal or in profile, or a standing figure).
//
// Without a usable model the subject and people give nothing and say why;
// the sky works without one. Every function is safe to call from several
// threads at once (the model runs one picture at a time).

#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "engine/media/bitmap.h"
#include "engine/render/mask_bitmap.h"
#include "engine/render/mask_renderer.h"

namespace lumivale::SmartMasks {

/// The message for a subject or people selection that cannot be computed.
inline constexpr std::string_view unavailableMessage = "Subject detection is not available";

/// The long side of the picture the sky is searched in, in pixels.
inline constexpr int skyLongSide = 320;
/// The least the short side of that picture may be.
inline constexpr int skyMinSide = 8;

/// The working size of the sky search for a `width` × `height` picture: for
/// aspect a = width / max(height, 1) ≥ 1, 320 wide and max(trunc(320 / a), 8)
/// high; else 320 high and max(trunc(a × 320), 8) wide.
MaskRenderer::PixelSize skySize(int width, int height);

/// The sky of `image`, leaving out `subject` (pixels whose subject coverage,
/// sampled at the nearest subject pixel, is above half): a bitmap of the
/// working size, 255 in the sky with edges softened by two 3 × 3 box means.
/// Sky is a candidate pixel joined to the top row through candidates whose
/// luminance steps by less than 0.08, where a candidate is blue (b ≥ r,
/// b ≥ 0.92 g, Y > 0.22), overcast (Y > 0.62, saturation < 0.22) or a warm sky
/// in the top 45 % of rows (Y > 0.45, b < r, saturation < 0.75), and is
/// smooth (|ΔY| across its left and right plus its upper and lower
/// neighbours at most 0.12). Nothing for an empty or malformed picture.
std::optional<MaskBitmap> sky(const Bitmap& image, const std::optional<MaskBitmap>& subject = std::nullopt);

/// The foreground objects of `image`, at the model's resolution (a square
/// `SegmentationModel::inputSide` on a side, whatever the picture's aspect).
/// Nothing when the model is missing, unreadable or fails, or the picture is
/// empty or malformed; `why`, when given, then receives one line that starts
/// with `unavailableMessage` (or says the picture is unusable).
std::optional<MaskBitmap> subject(const Bitmap& image, std::string* why = nullptr);

/// The people of `image`: the subject mask where one of its connected
/// regions holds a face or a standing figure, 0 elsewhere (all 0 when there
/// is no one). Nothing, and `why`, as for `subject`.
std::optional<MaskBitmap> people(const Bitmap& image, std::string* why = nullptr);

/// A one-channel coverage map as a model returns it: `width` × `height`
/// values 0 … 1, rows from the top.
struct CoverageMap {
  int width = 0;
  int height = 0;
  std::span<const float> values;
};

/// The map as a bitmap of its own size: each value times 255, rounded and
/// limited to 0 … 255 (NaN counts as 0). Nothing when the size is not
/// positive, exceeds what a stored bitmap may hold, or does not match the
/// number of values.
std::optional<MaskBitmap> bitmap(const CoverageMap& map);

}  // namespace lumivale::SmartMasks
