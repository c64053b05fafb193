#pragma once
// Working-space images as output pictures: the samples a file, a thumbnail,
// a histogram or the screen gets.
//
// The conversion happens once, at the end of a chain: linear working RGB is
// taken to the output space's linear RGB by the matrix of their primaries,
// clipped to 0 … 1 (NaN counts as 0, infinities as ±65504), given the space's transfer curve and
// rounded to the nearest 8- or 16-bit sample. The output space's ICC profile
// goes with the samples. See color_space.h for the spaces.

#include <cstdint>
#include <vector>

#include "engine/media/color_space.h"
#include "engine/media/image.h"

namespace lumivale {

/// Output samples in memory.
struct Bitmap {
  int width = 0;
  int height = 0;
  int channels = 3;  ///< red, green, blue
  int bits = 8;      ///< 8 or 16 bits per sample
  /// Rows from the top, channels interleaved; 16-bit samples as native-endian
  /// std::uint16_t.
  std::vector<std::uint8_t> bytes;
  std::vector<std::uint8_t> iccProfile;  ///< the space's profile

  /// Sample `channel` of pixel (x, y), 0 … 255 or 0 … 65535.
  int sample(int x, int y, int channel) const;

  bool operator==(const Bitmap&) const = default;
};

/// `working` (3-band or 1-band linear working space) as an output picture:
/// 3 bands of 8-bit (`bits` 8) or 16-bit (`bits` 16) samples in `space`, the
/// space's ICC profile attached, computed lazily so a saver can stream it.
/// Throws ImageError for other `bits` or an empty image.
Image outputImage(const Image& working, ColorSpace space, int bits);

/// The same, computed into memory. Throws ImageError.
Bitmap toBitmap(const Image& working, ColorSpace space, int bits);

/// An output picture backed by a copy of `bitmap`'s samples, with its
/// profile: what the encoders take. Throws ImageError when the samples do
/// not fill its size or its form is not one `toBitmap` makes.
Image pictureOf(const Bitmap& bitmap);

}  // namespace lumivale
