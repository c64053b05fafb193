#include "engine/media/bitmap.h"

#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <mutex>

#include "engine/media/pixel_rows.h"
#include "engine/media/vips_glue.h"

namespace lumivale {
namespace {

// A transfer curve from linear 0 … 1 to encoded 0 … 1, tabulated over the
// bit patterns of floats: 2^mantissaBits cells per octave from 2^-40 to 1,
// linear within a cell (where a float is linear in its mantissa). The
// interpolation error stays below 3e-8, under the float rounding of the
// result itself; below 2^-40 every curve of ours encodes to less than half
// of a 16-bit step.
class TransferTable {
 public:
  explicit TransferTable(ColorSpace space) {
    const std::size_t cells = std::size_t(octaves) << mantissaBits;
    table_.resize(cells + 2);
    for (std::size_t i = 0; i < table_.size(); ++i) {
      const double linear = double(std::bit_cast<float>(std::uint32_t(base + (i << shift))));
      table_[i] = float(encodeTransfer(space, std::min(linear, 1.0)));
    }
  }

  float encode(float linear) const {
    if (!(linear > minimum)) return 0;  // also NaN
    if (linear >= 1) return 1;
    const std::uint32_t offset = std::bit_cast<std::uint32_t>(linear) - base;
    const std::uint32_t i = offset >> shift;
    const float fraction = float(offset & ((1u << shift) - 1)) * (1.0f / float(1u << shift));
    return table_[i] + fraction * (table_[i + 1] - table_[i]);
  }

  static std::size_t cells() { return std::size_t(octaves) << mantissaBits; }
  static int shiftBits() { return shift; }
  static float minimumValue() { return minimum; }
  /// The bits of the first float of cell `i`.
  static std::uint32_t firstBits(std::size_t i) { return base + (std::uint32_t(i) << shift); }
  /// The cell of a value in (minimum, 1).
  static std::size_t cellOf(float linear) { return (std::bit_cast<std::uint32_t>(linear) - base) >> shift; }

 private:
  static constexpr int octaves = 40;
  static constexpr int mantissaBits = 10;
  static constexpr int shift = 23 - mantissaBits;
  static constexpr float minimum = 0x1p-40f;
  static constexpr std::uint32_t base = std::uint32_t(127 - octaves) << 23;  // the bits of 2^-40
  std::vector<float> table_;
};

const TransferTable& transferTable(ColorSpace space) {
  static std::once_flag once;
  static std::unique_ptr<TransferTable> tables[allColorSpaces.size()];
  std::call_once(once, [] {
    for (ColorSpace s : allColorSpaces) tables[std::size_t(s)] = std::make_unique<TransferTable>(s);
  });
  return *tables[std::size_t(space)];
}

// Inputs are limited to ±65504 (the range of half floats) and NaN read as
// 0 before the matrix, so that no NaN or infinity comes out of it.
inline double finite(float v) {
  return v > -65504.0f ? (v < 65504.0f ? v : 65504.0) : (v <= -65504.0f ? -65504.0 : 0.0);
}

// The 8-bit output of a transfer table, exactly as rounding its encoded
// value would give it, without the interpolation: each cell of the table
// holds the byte at its start, and a value moves one byte up when it reaches
// that byte's threshold. A cell is far narrower than a byte's step on every
// curve of ours (checked when the table is built; `exact` says so).
class ByteEncoder {
 public:
  explicit ByteEncoder(const TransferTable& curve) {
    const auto byteOf = [&](float v) { return int(double(curve.encode(v)) * 255 + 0.5); };
    // threshold_[k]: the smallest float that encodes to byte k or more.
    for (int k = 1; k < 256; ++k) {
      std::uint32_t lo = 0, hi = std::bit_cast<std::uint32_t>(1.0f);
      while (lo < hi) {
        const std::uint32_t mid = lo + (hi - lo) / 2;
        if (byteOf(std::bit_cast<float>(mid)) >= k) hi = mid; else lo = mid + 1;
      }
      threshold_[k] = std::bit_cast<float>(lo);
    }
    threshold_[0] = -std::numeric_limits<float>::infinity();
    threshold_[256] = std::numeric_limits<float>::infinity();
    start_.resize(TransferTable::cells());
    for (std::size_t i = 0; i < start_.size(); ++i) {
      const std::uint32_t first = TransferTable::firstBits(i);
      const std::uint32_t last = first + (1u << TransferTable::shiftBits()) - 1;
      const int a = byteOf(std::bit_cast<float>(first)), b = byteOf(std::bit_cast<float>(last));
      start_[i] = std::uint8_t(a);
      if (b > a + 1) exact_ = false;
    }
  }

  bool exact() const { return exact_; }

  std::uint8_t encode(float linear) const {
    if (!(linear > TransferTable::minimumValue())) return 0;  // also NaN
    if (linear >= 1) return 255;
    const std::uint8_t low = start_[TransferTable::cellOf(linear)];
    return std::uint8_t(low + (linear >= threshold_[low + 1]));
  }

 private:
  float threshold_[257];
  std::vector<std::uint8_t> start_;
  bool exact_ = true;
};

const ByteEncoder* byteEncoder(ColorSpace space) {
  static std::once_flag once;
  static std::unique_ptr<ByteEncoder> encoders[allColorSpaces.size()];
  std::call_once(once, [] {
    for (ColorSpace s : allColorSpaces) {
      auto e = std::make_unique<ByteEncoder>(transferTable(s));
      if (e->exact()) encoders[std::size_t(s)] = std::move(e);
    }
  });
  return encoders[std::size_t(space)].get();
}

template <class Sample>
media_detail::PixelRowFn outputRows(ColorSpace space, int inBands) {
  const TransferTable* curve = &transferTable(space);
  const Matrix3 m = linearFromWorking(space);
  const bool identity = space == ColorSpace::sRGB;
  const double full = std::numeric_limits<Sample>::max();
  if constexpr (sizeof(Sample) == 1) {
    if (const ByteEncoder* bytes = byteEncoder(space); bytes && identity && inBands == 3) {
      return [bytes](const void* in, void* out, int width) {
        const auto* s = static_cast<const float*>(in);
        auto* o = static_cast<std::uint8_t*>(out);
        for (std::size_t i = 0, n = std::size_t(width) * 3; i < n; ++i) o[i] = bytes->encode(s[i]);
      };
    }
  }
  return [curve, m, identity, inBands, full](const void* in, void* out, int width) {
    const auto* s = static_cast<const float*>(in);
    auto* o = static_cast<Sample*>(out);
    for (int i = 0; i < width; ++i) {
      const float* p = s + std::size_t(i) * inBands;
      const double r = finite(p[0]), g = finite(p[inBands == 1 ? 0 : 1]), b = finite(p[inBands == 1 ? 0 : 2]);
      // The matrix in double: in float it would move 16-bit samples that lie
      // near a half step.
      const double rgb[3] = {identity ? r : m[0] * r + m[1] * g + m[2] * b,
                             identity ? g : m[3] * r + m[4] * g + m[5] * b,
                             identity ? b : m[6] * r + m[7] * g + m[8] * b};
      for (int c = 0; c < 3; ++c) o[3 * i + c] = Sample(double(curve->encode(float(rgb[c]))) * full + 0.5);
    }
  };
}

}  // namespace

int Bitmap::sample(int x, int y, int channel) const {
  const std::size_t index = (std::size_t(y) * width + x) * channels + channel;
  if (bits == 16) {
    std::uint16_t v;
    std::memcpy(&v, bytes.data() + 2 * index, 2);
    return v;
  }
  return bytes[index];
}

Image outputImage(const Image& working, ColorSpace space, int bits) {
  initImageLibraries();
  if (bits != 8 && bits != 16) throw ImageError("output pictures have 8 or 16 bits per sample");
  return withVips("cannot convert the image for output", [&] {
    vips::VImage in = vipsImage(working);
    if (in.format() != VIPS_FORMAT_FLOAT) in = in.cast(VIPS_FORMAT_FLOAT);
    // Colour bands only: grey, or the first three.
    if (in.bands() == 2) in = in.extract_band(0);
    if (in.bands() > 3) in = in.extract_band(0, vips::VImage::option()->set("n", 3));
    vips::VImage out = bits == 8
                           ? media_detail::mapPixelRows(in, VIPS_FORMAT_UCHAR, 3, VIPS_INTERPRETATION_sRGB,
                                                        outputRows<std::uint8_t>(space, in.bands()))
                           : media_detail::mapPixelRows(in, VIPS_FORMAT_USHORT, 3, VIPS_INTERPRETATION_RGB16,
                                                        outputRows<std::uint16_t>(space, in.bands()));
    // The profile bytes live as long as the process; libvips only points at them.
    const std::vector<std::uint8_t>& profile = iccProfile(space);
    vips_image_set_blob(out.get_image(), VIPS_META_ICC_NAME, nullptr, profile.data(), profile.size());
    return fromVips(out);
  });
}

Bitmap toBitmap(const Image& working, ColorSpace space, int bits) {
  Image picture = outputImage(working, space, bits);
  return withVips("cannot render the image", [&] {
    vips::VImage out = vipsImage(picture);
    Bitmap bitmap;
    bitmap.width = out.width();
    bitmap.height = out.height();
    bitmap.bits = bits;
    bitmap.iccProfile = iccProfile(space);
    std::size_t size = 0;
    void* memory = out.write_to_memory(&size);
    bitmap.bytes.assign(static_cast<std::uint8_t*>(memory), static_cast<std::uint8_t*>(memory) + size);
    g_free(memory);
    return bitmap;
  });
}

Image pictureOf(const Bitmap& bitmap) {
  initImageLibraries();
  const std::size_t sampleBytes = bitmap.bits == 16 ? 2 : 1;
  if ((bitmap.bits != 8 && bitmap.bits != 16) || (bitmap.channels != 1 && bitmap.channels != 3) ||
      bitmap.width < 1 || bitmap.height < 1 ||
      bitmap.bytes.size() != std::size_t(bitmap.width) * bitmap.height * bitmap.channels * sampleBytes) {
    throw ImageError("the bitmap's samples do not match its size");
  }
  return withVips("cannot read the bitmap", [&] {
    const bool wide = bitmap.bits == 16;
    // Copied at once: the bitmap may go before the picture does.
    vips::VImage out = vips::VImage::new_from_memory(
                           const_cast<std::uint8_t*>(bitmap.bytes.data()), bitmap.bytes.size(), bitmap.width,
                           bitmap.height, bitmap.channels, wide ? VIPS_FORMAT_USHORT : VIPS_FORMAT_UCHAR)
                           .copy_memory();
    const VipsInterpretation interpretation =
        bitmap.channels == 1 ? (wide ? VIPS_INTERPRETATION_GREY16 : VIPS_INTERPRETATION_B_W)
                             : (wide ? VIPS_INTERPRETATION_RGB16 : VIPS_INTERPRETATION_sRGB);
    out = out.copy(vips::VImage::option()->set("interpretation", interpretation));
    if (!bitmap.iccProfile.empty()) {
      vips_image_set_blob_copy(out.get_image(), VIPS_META_ICC_NAME, bitmap.iccProfile.data(),
                               bitmap.iccProfile.size());
    }
    return fromVips(out);
  });
}

}  // namespace lumivale
