#pragma once
// The coverage bitmap of a mask and its stored form.
//
// Pixel (x, y) is bytes[y × width + x]; row 0 is the top of the image; 0 means
// no coverage and 255 full coverage. Unit coordinates put the bitmap's
// top-left corner at (0, 0) and its bottom-right corner at (1, 1), so the
// centre of column i is at u = (i + 0.5) / width, whatever the bitmap's size.
//
// Stored form (little-endian): "KVMK", u32 width, u32 height, then the
// width × height bytes compressed as a raw LZFSE stream. A payload of exactly
// width × height bytes is the bytes themselves, uncompressed.

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace lumivale {

struct MaskBitmap {
  /// The most pixels a stored bitmap may claim (8192 × 8192): a damaged or
  /// hostile header cannot make `decode` allocate more than this.
  static constexpr std::uint64_t maxPixels = std::uint64_t{1} << 26;

  int width = 0;
  int height = 0;
  std::vector<std::uint8_t> bytes;  ///< width × height values, row by row from the top

  MaskBitmap() = default;
  /// A width × height bitmap with every value `fill`; a negative size counts as 0.
  MaskBitmap(int width, int height, std::uint8_t fill = 0);

  bool operator==(const MaskBitmap&) const = default;

  /// The stored form. The bytes are LZFSE-compressed, or stored as they are
  /// when compression would not make them smaller (which `decode` reads back
  /// the same way). Needs bytes.size() == width × height.
  std::vector<std::uint8_t> encoded() const;

  /// Reads the stored form; nothing when the data is shorter than 13 bytes,
  /// has another magic, claims more than `maxPixels`, or its payload does not
  /// decompress to exactly width × height bytes.
  static std::optional<MaskBitmap> decode(std::span<const std::uint8_t> data);

  /// Coverage 0…1 at the unit point (u, v): bilinear between the four nearest
  /// pixel centres, clamped to the edge pixels outside them (NaN counts as 0).
  /// An empty bitmap gives 0.
  double value(double u, double v) const;

  /// Mean coverage 0…1 over the unit rectangle with top-left corner (x, y) and
  /// size w × h, clipped to the bitmap. Each pixel counts with the area of its
  /// square that lies inside the rectangle, so a pixel half inside weighs half.
  /// A rectangle with no area inside the bitmap gives value() at its centre.
  double mean(double x, double y, double w, double h) const;
};

}  // namespace lumivale
