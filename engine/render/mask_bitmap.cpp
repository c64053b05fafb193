#include "engine/render/mask_bitmap.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>

#include "engine/util/lzfse.h"

namespace lumivale {

namespace {

constexpr char magic[4] = {'K', 'V', 'M', 'K'};
constexpr std::size_t headerSize = 12;

void put32(std::uint8_t* p, std::uint32_t v) {
  for (int i = 0; i < 4; ++i) p[i] = std::uint8_t(v >> (8 * i));
}

std::uint32_t get32(const std::uint8_t* p) {
  return std::uint32_t(p[0]) | std::uint32_t(p[1]) << 8 | std::uint32_t(p[2]) << 16 |
         std::uint32_t(p[3]) << 24;
}

// Where unit coordinate t falls between the pixel centres of an axis of n
// pixels: the two neighbouring indexes and the weight of the second.
struct AxisSample {
  int first = 0;
  int second = 0;
  double weight = 0;
};

AxisSample sampleAxis(double t, int n) {
  double x = t * n - 0.5;
  if (!(x > 0)) x = 0;  // also NaN
  if (x > n - 1) x = n - 1;
  AxisSample s;
  s.first = int(x);
  s.second = std::min(s.first + 1, n - 1);
  s.weight = x - s.first;
  return s;
}

}  // namespace

MaskBitmap::MaskBitmap(int width, int height, std::uint8_t fill)
    : width(std::max(width, 0)),
      height(std::max(height, 0)),
      bytes(std::size_t(this->width) * std::size_t(this->height), fill) {}

std::vector<std::uint8_t> MaskBitmap::encoded() const {
  std::vector<std::uint8_t> out(headerSize);
  std::memcpy(out.data(), magic, 4);
  put32(out.data() + 4, std::uint32_t(width));
  put32(out.data() + 8, std::uint32_t(height));
  const std::vector<std::uint8_t> payload = lzfse::encode(bytes);
  // A stream exactly as long as the bytes would be read back as raw bytes, and
  // a longer one does not pay: store the bytes then. (An empty bitmap keeps its
  // stream so that its stored form is long enough to be read back.)
  if (payload.size() >= bytes.size() && !bytes.empty())
    out.insert(out.end(), bytes.begin(), bytes.end());
  else
    out.insert(out.end(), payload.begin(), payload.end());
  return out;
}

std::optional<MaskBitmap> MaskBitmap::decode(std::span<const std::uint8_t> data) {
  if (data.size() < headerSize + 1 || std::memcmp(data.data(), magic, 4) != 0) return std::nullopt;
  const std::uint32_t w = get32(data.data() + 4);
  const std::uint32_t h = get32(data.data() + 8);
  if (w > std::uint32_t(INT_MAX) || h > std::uint32_t(INT_MAX)) return std::nullopt;
  const std::uint64_t pixels = std::uint64_t(w) * h;
  if (pixels > maxPixels) return std::nullopt;

  MaskBitmap bitmap;
  bitmap.width = int(w);
  bitmap.height = int(h);
  const std::span<const std::uint8_t> payload = data.subspan(headerSize);
  if (payload.size() == pixels) {
    bitmap.bytes.assign(payload.begin(), payload.end());
    return bitmap;
  }
  auto decoded = lzfse::decode(payload, std::size_t(pixels));
  if (!decoded || decoded->size() != pixels) return std::nullopt;
  bitmap.bytes = std::move(*decoded);
  return bitmap;
}

double MaskBitmap::value(double u, double v) const {
  if (width <= 0 || height <= 0 || bytes.size() < std::size_t(width) * std::size_t(height)) return 0;
  const AxisSample x = sampleAxis(u, width);
  const AxisSample y = sampleAxis(v, height);
  const auto at = [&](int col, int row) { return double(bytes[std::size_t(row) * width + col]); };
  const double top = at(x.first, y.first) * (1 - x.weight) + at(x.second, y.first) * x.weight;
  const double bottom = at(x.first, y.second) * (1 - x.weight) + at(x.second, y.second) * x.weight;
  return (top * (1 - y.weight) + bottom * y.weight) / 255.0;
}

double MaskBitmap::mean(double x, double y, double w, double h) const {
  if (width <= 0 || height <= 0 || bytes.size() < std::size_t(width) * std::size_t(height)) return 0;
  if (w < 0) x += w, w = -w;
  if (h < 0) y += h, h = -h;
  // The rectangle in pixel units, clipped to the bitmap.
  const auto clip = [](double t, int n) { return std::isnan(t) ? 0.0 : std::clamp(t * n, 0.0, double(n)); };
  const double x0 = clip(x, width), x1 = clip(x + w, width);
  const double y0 = clip(y, height), y1 = clip(y + h, height);
  if (!(x1 > x0) || !(y1 > y0)) return value(x + w / 2, y + h / 2);

  // Overlap of each column's unit span with [x0, x1).
  const int firstCol = int(x0), lastCol = std::min(int(std::ceil(x1)), width) - 1;
  std::vector<double> colWeight(std::size_t(lastCol - firstCol + 1));
  for (int i = firstCol; i <= lastCol; ++i)
    colWeight[std::size_t(i - firstCol)] = std::min<double>(i + 1, x1) - std::max<double>(i, x0);

  double sum = 0;
  const int firstRow = int(y0), lastRow = std::min(int(std::ceil(y1)), height) - 1;
  for (int j = firstRow; j <= lastRow; ++j) {
    const double rowWeight = std::min<double>(j + 1, y1) - std::max<double>(j, y0);
    const std::uint8_t* row = bytes.data() + std::size_t(j) * width;
    double rowSum = 0;
    for (int i = firstCol; i <= lastCol; ++i) rowSum += colWeight[std::size_t(i - firstCol)] * row[i];
    sum += rowWeight * rowSum;
  }
  return sum / ((x1 - x0) * (y1 - y0) * 255.0);
}

}  // namespace lumivale
