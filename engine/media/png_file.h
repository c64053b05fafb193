#pragma once
// Single-channel PNG files: coverage read from another tool's picture, and
// grey pictures written for other tools. Through libpng directly, so exactly
// the stored samples come in and out (no colour management, no gamma).

#include <cstdint>
#include <filesystem>
#include <vector>

namespace lumivale {

/// An 8-bit single-channel picture, rows top to bottom.
struct GreyImage {
  int width = 0;
  int height = 0;
  std::vector<std::uint8_t> bytes;  ///< width × height values
  bool operator==(const GreyImage&) const = default;
};

namespace PngFile {

/// What `readCoverage` accepts.
struct Limits {
  int maxSide = 16384;
  std::uint64_t maxPixels = std::uint64_t(16384) * 16384;
};

/// Reads the coverage of a PNG file at the PNG's own size.
///
/// The coverage is the alpha channel when the PNG has one (an alpha channel,
/// or transparency given by a tRNS chunk) and some pixel is not fully opaque;
/// otherwise the grey value: the grey channel, or the luma of RGB
/// (0.2126 R + 0.7152 G + 0.0722 B on the stored values, so R = G = B = v gives
/// v). Palette images are read through their palette; 16-bit samples are
/// scaled to 8 bits with rounding (v × 255 / 65535); 1, 2 and 4-bit grey is
/// stretched to 0 … 255. Only the content decides: the name is not looked at.
///
/// Throws MediaError naming the file when it cannot be opened or is not a
/// regular file, is empty ("empty file"), is not a PNG by its content ("not
/// a PNG image"), exceeds `limits` ("too large"), or is damaged or cut short
/// ("damaged PNG image").
GreyImage readCoverage(const std::filesystem::path& file, const Limits& limits = {});

/// Writes `image` as an 8-bit grey PNG without colour information, through
/// `writeFileSafely` (never over an existing file unless `replaceExisting`).
/// Throws MediaError when the image is empty or its bytes do not match its
/// size, FileExistsError or MediaError as `writeFileSafely` does.
void writeGrey(const GreyImage& image, const std::filesystem::path& file, bool replaceExisting = false);

}  // namespace PngFile
}  // namespace lumivale
