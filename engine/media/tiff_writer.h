#pragma once
// TIFF files written by us: one image of 8- or 16-bit samples, 1 or 3
// bands, in strips compressed with deflate after horizontal differencing
// (each sample less the one to its left), the ICC profile in its tag.
// Internal to engine/media: it includes libvips.
//
// The picture is computed strip by strip as libvips' disc sink hands rows
// over, and the strips are compressed on the engine's worker pool while the
// next rows are computed: a single deflate stream is what made TIFF the
// slowest format to write.

#include <cstdint>
#include <string>
#include <vector>
#include <vips/vips8>

namespace lumivale::media_detail {

/// The whole TIFF file of `picture` with `profile` (none when empty).
/// Throws ImageError when the picture cannot be computed or is too large for
/// a TIFF file (4 GB).
std::string deflateTiff(const vips::VImage& picture, const std::vector<std::uint8_t>& profile);

}  // namespace lumivale::media_detail
