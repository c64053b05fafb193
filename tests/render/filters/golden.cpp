#include "tests/render/filters/golden.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <limits>
#include <sstream>

namespace lumivale::test {

namespace {

// Reads little-endian values from a byte string; `ok` turns false at the end.
struct Reader {
  std::string bytes;
  std::size_t at = 0;
  bool ok = true;

  template <class T>
  T read() {
    T value{};
    if (at + sizeof(T) > bytes.size()) {
      ok = false;
      return value;
    }
    std::memcpy(&value, bytes.data() + at, sizeof(T));
    at += sizeof(T);
    return value;
  }
};

double channelError(float got, float want) {
  if (std::isnan(want) || std::isinf(want))
    return (std::isnan(want) && std::isnan(got)) || got == want ? 0 : HUGE_VAL;
  if (!std::isfinite(got)) return HUGE_VAL;
  return std::abs(double(got) - want) / std::max(1.0, std::abs(double(want)));
}

}  // namespace

std::string goldenFolder() { return std::string(LUMIVALE_TEST_DATA) + "/golden"; }

std::optional<Golden> loadGolden(const std::string& name) {
  std::ifstream file(goldenFolder() + "/" + name + ".lvg", std::ios::binary);
  if (!file) return std::nullopt;
  Reader in{std::string(std::istreambuf_iterator<char>(file), {})};
  if (in.bytes.compare(0, 4, "LVGD") != 0) return std::nullopt;
  in.at = 4;
  if (in.read<std::uint32_t>() != 1) return std::nullopt;
  Golden golden;
  for (std::uint32_t n = in.read<std::uint32_t>(); in.ok && n > 0; --n)
    golden.params.push_back(in.read<double>());
  std::vector<FloatPixels> images;
  for (std::uint32_t n = in.read<std::uint32_t>(); in.ok && n > 0; --n) {
    FloatPixels p;
    p.width = int(in.read<std::uint32_t>());
    p.height = int(in.read<std::uint32_t>());
    p.bands = int(in.read<std::uint32_t>());
    for (std::size_t i = std::size_t(p.width) * p.height * p.bands; in.ok && i > 0; --i)
      p.values.push_back(in.read<float>());
    images.push_back(std::move(p));
  }
  if (!in.ok || images.empty() || in.at != in.bytes.size()) return std::nullopt;
  golden.expected = std::move(images.back());
  images.pop_back();
  golden.inputs = std::move(images);
  return golden;
}

::testing::AssertionResult matchesGolden(const FloatPixels& got, const FloatPixels& want,
                                         const Tolerance& tolerance) {
  if (got.width != want.width || got.height != want.height || got.bands != want.bands)
    return ::testing::AssertionFailure()
           << "the result is " << got.width << "×" << got.height << "×" << got.bands << ", the golden "
           << want.width << "×" << want.height << "×" << want.bands;
  int above = 0;
  double worst = 0;
  int worstX = 0, worstY = 0, worstBand = 0;
  for (int y = 0; y < want.height; ++y)
    for (int x = 0; x < want.width; ++x) {
      bool counted = false;
      for (int b = 0; b < want.bands; ++b) {
        const double e = channelError(got.at(x, y, b), want.at(x, y, b));
        if (e > tolerance.channel && !counted) ++above, counted = true;
        if (e > worst) worst = e, worstX = x, worstY = y, worstBand = b;
      }
    }
  const double share = double(above) / (double(want.width) * want.height);
  if (worst <= tolerance.hard && share <= tolerance.share) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure()
         << share * 100 << "% of the pixels are off by more than " << tolerance.channel << " ("
         << tolerance.share * 100 << "% allowed); the worst, " << worst << " (hard limit " << tolerance.hard
         << "), at " << worstX << ", " << worstY << " band " << worstBand << ": "
         << got.at(worstX, worstY, worstBand) << " for " << want.at(worstX, worstY, worstBand);
}

}  // namespace lumivale::test
