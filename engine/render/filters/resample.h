#pragma once
// Resampling and geometry: Lanczos scaling, affine transforms, exact
// flips and quarter turns, and crops. Positions are pixels, origin top-left
// (see how_it_works.md for the one conversion from bottom-left transforms).

#include "engine/edit/geometry.h"
#include "engine/media/image.h"

namespace lumivale::filters {

/// Lanczos-3 resampling to round(width × scale × aspect) × round(height ×
/// scale) pixels (at least 1 × 1), the image mapped edge to edge onto the
/// result. A reduction widens the kernel by the reduction factor, so it
/// filters what it leaves out; beyond the edges the edge pixels repeat.
/// Throws ImageError for a scale or aspect that is not above 0 or a result
/// side beyond 10,000,000 pixels.
Image lanczosScale(const Image& input, double scale, double aspect = 1.0);

/// The image under `transform` (input pixel coordinates to output pixel
/// coordinates, origin top-left, pixel centres at +0.5), sampled bilinearly,
/// over the output rectangle `area` (its origin becomes the result's (0, 0);
/// it is rounded to whole pixels outwards). Outside the input, its edge
/// pixels go on for ever (clamp to extent). Throws ImageError when the
/// transform cannot be inverted or the area has no usable size.
Image affine(const Image& input, const Affine& transform, const Rect& area);

/// A bottom-left-origin transform (the edit layer's `orientTransform`,
/// `straightenTransform`) of an image `inputHeight` high into a space
/// `outputHeight` high, as the equivalent top-left-origin transform.
Affine topLeftTransform(const Affine& bottomLeft, double inputHeight, double outputHeight);

/// Mirror left–right (`horizontal`) or top–bottom.
Image flip(const Image& input, bool horizontal);

/// `turns` clockwise quarter turns (any integer, taken modulo 4).
Image rotateQuarterTurns(const Image& input, int turns);

/// The `width` × `height` pixels whose top-left pixel is (left, top),
/// clipped to the image; at least 1 × 1.
Image crop(const Image& input, int left, int top, int width, int height);

}  // namespace lumivale::filters
