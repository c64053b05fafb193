#pragma once
// Output samples in memory: the 8- or 16-bit pictures a file, a thumbnail or
// the smart masks get from a rendered image.

#include <cstdint>
#include <vector>

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
  int sample(int x, int y, int channel) const {
    const std::size_t i = (std::size_t(y) * width + x) * channels + channel;
    if (bits == 16) return reinterpret_cast<const std::uint16_t*>(bytes.data())[i];
    return bytes[i];
  }

  bool operator==(const Bitmap&) const = default;
};

}  // namespace lumivale
