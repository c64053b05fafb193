#pragma once
// HEIC files coded by libheif's HEVC encoder (x265): one 8-bit RGB picture
// with its ICC profile, nothing else. Thread-safe: each call has its own
// encoder.

#include <cstdint>
#include <string>
#include <string_view>

namespace lumivale::HeifEncoder {

/// Whether libheif here has an HEVC encoder.
bool available();

/// A HEIC file of the picture in `rgb` (`height` rows of `width` × 3 bytes,
/// red, green, blue, without gaps), with `icc` attached as its colour
/// profile when not empty, coded at `quality` (1 … 100, as libheif's lossy
/// quality). Throws ImageError when there is no encoder or it fails.
std::string encode(const std::uint8_t* rgb, int width, int height, std::string_view icc, int quality);

}  // namespace lumivale::HeifEncoder
