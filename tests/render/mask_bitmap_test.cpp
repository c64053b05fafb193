#include "engine/render/mask_bitmap.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <string>

#include "engine/util/lzfse.h"
#include "tests/support/temp_dir.h"

using namespace lumivale;
using Bytes = std::vector<std::uint8_t>;

namespace {

Bytes header(std::uint32_t width, std::uint32_t height, const char* magic = "KVMK") {
  Bytes b(magic, magic + 4);
  for (std::uint32_t v : {width, height})
    for (int i = 0; i < 4; ++i) b.push_back(std::uint8_t(v >> (8 * i)));
  return b;
}

Bytes operator+(Bytes a, const Bytes& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

MaskBitmap fromRows(int width, int height, Bytes bytes) {
  MaskBitmap m(width, height);
  m.bytes = std::move(bytes);
  return m;
}

// A painted-looking bitmap: soft discs along a stroke on an empty background.
MaskBitmap stroke(int width, int height) {
  MaskBitmap m(width, height);
  for (int k = 0; k < 40; ++k) {
    const double cx = width * (0.1 + 0.02 * k), cy = height * (0.5 + 0.3 * std::sin(k * 0.2));
    const double r = 0.04 * width;
    for (int y = std::max(0, int(cy - r)); y < std::min(height, int(cy + r) + 1); ++y)
      for (int x = std::max(0, int(cx - r)); x < std::min(width, int(cx + r) + 1); ++x) {
        const double d = std::hypot(x + 0.5 - cx, y + 0.5 - cy) / r;
        if (d >= 1) continue;
        const double a = 0.5 * (d < 0.5 ? 1 : 1 - (d - 0.5) / 0.5);
        std::uint8_t& b = m.bytes[std::size_t(y) * width + x];
        b = std::uint8_t(std::lround(255 * (b / 255.0 + a * (1 - b / 255.0))));
      }
  }
  return m;
}

}  // namespace

TEST(MaskBitmapTest, StoredFormIsMagicLittleEndianSizeAndAnLzfseStreamOrTheBytes) {
  const MaskBitmap filled(300, 2, 17);
  EXPECT_EQ(std::tuple(filled.width, filled.height, filled.bytes), std::tuple(300, 2, Bytes(600, 17)));
  EXPECT_EQ(MaskBitmap(-4, 5, 9), MaskBitmap(0, 5));  // a negative size counts as 0
  EXPECT_TRUE(MaskBitmap(-4, 5, 9).bytes.empty());
  const Bytes stored = filled.encoded();
  ASSERT_GE(stored.size(), 13u);
  EXPECT_EQ(Bytes(stored.begin(), stored.begin() + 12), header(300, 2));
  EXPECT_EQ(lzfse::decode(Bytes(stored.begin() + 12, stored.end())), Bytes(600, 17));

  // Incompressible bytes are stored as themselves; a payload of exactly the
  // bitmap's size is taken as pixels even when it happens to be a stream.
  std::mt19937 rng(6);
  MaskBitmap noise(40, 30);
  for (auto& b : noise.bytes) b = std::uint8_t(rng());
  EXPECT_EQ(noise.encoded(), header(40, 30) + noise.bytes);
  const Bytes stream = lzfse::encode(Bytes(40, 1));
  EXPECT_EQ(MaskBitmap::decode(header(std::uint32_t(stream.size()), 1) + stream),
            fromRows(int(stream.size()), 1, stream));

  // A stream of the reference encoder.
  const std::string dir = std::string(LUMIVALE_TEST_DATA) + "/lzfse/";
  const std::string radial = test::readFile(dir + "radial_320x213.lzfse"),
                    raw = test::readFile(dir + "radial_320x213.raw");
  EXPECT_EQ(MaskBitmap::decode(header(320, 213) + Bytes(radial.begin(), radial.end())),
            fromRows(320, 213, Bytes(raw.begin(), raw.end())));
}

TEST(MaskBitmapTest, RoundTripsTheStoredFormBitForBit) {
  std::mt19937 rng(5);
  MaskBitmap noise(64, 48);
  for (auto& b : noise.bytes) b = std::uint8_t(rng());
  for (const MaskBitmap& m : {MaskBitmap(1, 1, 255), fromRows(3, 1, {0, 128, 255}), MaskBitmap(0, 0), noise,
                              stroke(1024, 683), stroke(4096, 4096)}) {
    SCOPED_TRACE(testing::Message() << m.width << " × " << m.height);
    const Bytes stored = m.encoded();
    EXPECT_TRUE(MaskBitmap::decode(stored) == m);
    EXPECT_LE(stored.size(), 16 + m.bytes.size());  // never much larger than the bytes
  }
}

TEST(MaskBitmapTest, DamagedStoredFormsDecodeToNothing) {
  const Bytes good = MaskBitmap(50, 40, 9).encoded();
  const Bytes payload(good.begin() + 12, good.end());
  const std::pair<const char*, Bytes> cases[] = {
      {"nothing", {}},
      {"header only", header(0, 0)},
      {"twelve bytes of a valid bitmap", Bytes(good.begin(), good.begin() + 12)},
      {"other magic", header(50, 40, "KVMX") + payload},
      {"PNG signature", Bytes{0x89, 'P', 'N', 'G', 0x0D, 0x0A, 0x1A, 0x0A, 0, 0, 0, 13, 'I'}},
      {"one pixel too few", header(50, 40) + lzfse::encode(Bytes(1999, 9))},
      {"one pixel too many", header(50, 40) + lzfse::encode(Bytes(2001, 9))},
      {"size claims one more row", header(50, 41) + payload},
      {"payload cut", header(50, 40) + Bytes(payload.begin(), payload.end() - 1)},
      {"payload not a stream", header(50, 40) + Bytes(100, 0xEE)},
      {"absurd size", header(65536, 65536) + payload},
      {"width beyond int", header(0x80000000u, 1) + payload},
      {"zero size with bytes", header(0, 7) + Bytes{1, 2, 3}}};
  for (const auto& [name, data] : cases) EXPECT_FALSE(MaskBitmap::decode(data)) << name;
}

TEST(MaskBitmapTest, ValueIsBilinearBetweenPixelCentresAndClampedOutside) {
  const MaskBitmap row = fromRows(2, 1, {0, 255});
  using P = std::tuple<double, double, double>;
  for (auto [u, v, expected] :
       {P{0.25, 0.5, 0.0}, P{0.75, 0.5, 1.0}, P{0.5, 0.5, 0.5}, P{0.625, 0.9, 0.75}, P{0.0, 0.0, 0.0},
        P{1.0, 1.0, 1.0}, P{-3.0, 7.0, 0.0}, P{std::numeric_limits<double>::infinity(), 0.5, 1.0},
        P{std::numeric_limits<double>::quiet_NaN(), 0.5, 0.0}})
    EXPECT_NEAR(row.value(u, v), expected, 1e-12) << u << ", " << v;

  const MaskBitmap square = fromRows(2, 2, {0, 100, 200, 255});
  EXPECT_NEAR(square.value(0.5, 0.5), (0 + 100 + 200 + 255) / 4.0 / 255.0, 1e-12);
  EXPECT_NEAR(square.value(0.25, 0.75), 200 / 255.0, 1e-12);
  EXPECT_NEAR(MaskBitmap(1, 1, 51).value(0.9, 0.1), 0.2, 1e-12);
  EXPECT_EQ(MaskBitmap().value(0.5, 0.5), 0.0);
}

TEST(MaskBitmapTest, MeanWeighsPixelsByTheirAreaInsideTheRectangle) {
  const MaskBitmap row = fromRows(2, 1, {0, 255});
  EXPECT_NEAR(row.mean(0, 0, 1, 1), 0.5, 1e-12);
  EXPECT_NEAR(row.mean(0, 0, 0.5, 1), 0.0, 1e-12);
  EXPECT_NEAR(row.mean(0.5, 0, 0.5, 1), 1.0, 1e-12);
  // One and a half pixels: the full first and half of the second.
  EXPECT_NEAR(row.mean(0, 0, 0.75, 1), (0 * 1 + 1 * 0.5) / 1.5, 1e-12);
  // A rectangle reaching outside is clipped; a negative size is turned around.
  EXPECT_NEAR(row.mean(0.5, -2, 9, 9), 1.0, 1e-12);
  EXPECT_NEAR(row.mean(0.75, 1, -0.5, -1), 0.5, 1e-12);
  // No area inside: the value at the centre.
  EXPECT_NEAR(row.mean(0.6, 0.5, 0, 0), row.value(0.6, 0.5), 1e-12);
  EXPECT_NEAR(row.mean(3, 0, 1, 1), 1.0, 1e-12);
  EXPECT_EQ(MaskBitmap().mean(0, 0, 1, 1), 0.0);

  const MaskBitmap painted = stroke(200, 100);
  double total = 0;
  for (std::uint8_t b : painted.bytes) total += b;
  EXPECT_NEAR(painted.mean(0, 0, 1, 1), total / painted.bytes.size() / 255.0, 1e-9);
}
