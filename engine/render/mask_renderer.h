#pragma once
// Rasterising brush masks into coverage bitmaps.
//
// A brush mask is a list of dabs in unit coordinates of the image (origin
// top-left). It is painted into an 8-bit bitmap of a fixed resolution, 1024
// pixels on the long side of the render's aspect, and scaled to each render
// size afterwards; so the same dab list always paints the same bytes at one
// aspect, whatever the preview size.
//
// Every dab blends with what earlier dabs left, and each result is rounded to
// a byte before the next dab, so the order of the dabs matters: two dabs of
// flow 0.5 on one spot give 128 and then 192 (about 0.75), not 0.5 + 0.5.
//
// The functions are pure and thread-safe.

#include <span>

#include "engine/edit/photo_mask.h"
#include "engine/media/image.h"
#include "engine/render/mask_bitmap.h"

namespace lumivale::MaskRenderer {

/// The long side of a brush bitmap, in pixels.
inline constexpr int brushLongSide = 1024;
/// The least a brush bitmap's short side may be, however extreme the aspect.
inline constexpr int brushMinSide = 8;

struct PixelSize {
  int width = 0;
  int height = 0;

  bool operator==(const PixelSize&) const = default;
};

/// The bitmap a brush mask is painted into for a render of `aspect` = width /
/// height: for aspect ≥ 1, 1024 wide and max(trunc(1024 / aspect), 8) high;
/// below 1, 1024 high and max(trunc(aspect × 1024), 8) wide. An aspect that is
/// NaN counts as 1; zero, negative and infinite aspects give the 8-pixel side.
PixelSize brushBitmapSize(double aspect);

/// Paints `dabs`, in order, into a `width` × `height` bitmap that starts empty.
///
/// With L = max(width, height), a dab covers the disc of radius
/// R = max(radius × L, 0.5) pixels around (x × width, y × height). A pixel whose
/// centre lies at distance d = sqrt(dx² + dy²) ≤ R gets strength a = flow when
/// d ≤ R × (1 − feather), else flow × (1 − smooth(t)) with t the position of d
/// between that inner radius and R, and smooth(t) = t² (3 − 2t); feather is
/// limited to 0 … 1 (NaN counts as 0). Painting moves a value c towards full
/// (c + a (1 − c)); erasing scales it down ((1 − a) c); each result is
/// rounded to the nearest byte and limited to 0 … 255.
///
/// A dab whose position, radius or flow is not finite, or whose disc lies
/// outside the bitmap, changes nothing. A size that is zero or negative gives
/// an empty bitmap.
MaskBitmap paint(std::span<const BrushDab> dabs, int width, int height);

/// The coverage image of `mask` for a render of `width` × `height` pixels:
/// 1-band float, 0 (no effect) … 1 (full effect), origin top-left.
/// - linear: 1 up to (x0, y0), 0 from (x1, y1) on, linear between, along the
///   line between the two points (unit coordinates times the size);
/// - radial: 1 inside the inner ellipse (inner radius min(max(1 − feather, 0),
///   0.999) of the ellipse with radii rx × width, ry × height around
///   (cx × width, cy × height)), 0 outside the ellipse, linear between;
/// - brush: the dabs painted at the size `brushBitmapSize` gives for the
///   render's aspect, scaled to the render size (bilinear, edges repeated);
///   black without dabs;
/// - smart kinds: the stored bitmap scaled likewise; black when there is none
///   or it does not decode.
/// Brush and smart bitmaps are cached process-wide (one lock, each cache
/// emptied when it holds more than 30 images); painting and decoding happen
/// outside the lock. An empty image for a size below 1 × 1.
Image image(const PhotoMask& mask, int width, int height);

/// Images held by the two caches now, and emptying them (for tests).
std::size_t cachedBrushImages();
std::size_t cachedSmartImages();
void clearImageCaches();

}  // namespace lumivale::MaskRenderer
