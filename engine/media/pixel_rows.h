#pragma once
// Per-pixel functions of ours as libvips operations, for the colour
// conversions of the media floor (decoded samples into the working space,
// the working space into output samples). Internal to engine/media: it
// includes libvips.
//
// A row function fills one run of output pixels from the same run of input
// pixels. libvips calls it from several worker threads at once, for rows in
// any order, so it must be a pure function of its arguments (what it
// captures is read only) and must not throw.

#include <functional>
#include <vips/vips8>

namespace lumivale::media_detail {

/// Fills `width` output pixels at `out` from the `width` input pixels at
/// `in`, both interleaved in their images' sample formats.
using PixelRowFn = std::function<void(const void* in, void* out, int width)>;

/// An image of `in`'s size, `bands` bands of `format` samples read as
/// `interpretation`, whose pixels `fn` computes. It carries no metadata of
/// `in` (no EXIF, orientation or profile). Throws vips::VError.
vips::VImage mapPixelRows(const vips::VImage& in, VipsBandFormat format, int bands,
                          VipsInterpretation interpretation, PixelRowFn fn);

/// Removes every metadata item (EXIF, XMP, orientation, ICC profile, loader
/// notes) from an image that is not shared yet.
void clearMetadata(VipsImage* image);

}  // namespace lumivale::media_detail
