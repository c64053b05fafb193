#include "engine/render/mask_bitmap.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <random>
#include <string>

#include "engine/render/lzfse.h"
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

TEST(MaskBitmapTest, FilledConstruction) {
  const MaskBitmap m(3, 2, 200);
  EXPECT_EQ(m.width, 3);
  EXPECT_EQ(m.height, 2);
  EXPECT_EQ(m.bytes, Bytes(6, 200));
  const MaskBitmap empty(-4, 5, 9);
  EXPECT_EQ(empty.width, 0);
  EXPECT_TRUE(empty.bytes.empty());
}

TEST(MaskBitmapTest, StoredFormStartsWithMagicAndLittleEndianSize) {
  const Bytes stored = MaskBitmap(300, 2, 17).encoded();
  ASSERT_GE(stored.size(), 13u);
  EXPECT_EQ(Bytes(stored.begin(), stored.begin() + 12), header(300, 2));
  // The payload is an LZFSE stream of the bytes.
  const auto payload = lzfse::decode(Bytes(stored.begin() + 12, stored.end()));
  ASSERT_TRUE(payload.has_value());
  EXPECT_EQ(*payload, Bytes(600, 17));
}

// Bitmaps are made inside the test: every test process instantiates all cases.
using BitmapCase = std::pair<const char*, std::function<MaskBitmap()>>;

class MaskBitmapRoundTripTest : public testing::TestWithParam<BitmapCase> {};

TEST_P(MaskBitmapRoundTripTest, SurvivesTheStoredFormBitForBit) {
  const MaskBitmap m = GetParam().second();
  const Bytes stored = m.encoded();
  const auto back = MaskBitmap::decode(stored);
  ASSERT_TRUE(back.has_value());
  EXPECT_TRUE(*back == m);
  EXPECT_LE(stored.size(), 16 + m.bytes.size());  // never much larger than the bytes
}

std::vector<BitmapCase> roundTripBitmaps() {
  return {{"OneByOne", [] { return MaskBitmap(1, 1, 255); }},
          {"ThreeByOne",
           [] {
             return fromRows(3, 1, {0, 128, 255});
           }},
          {"Empty", [] { return MaskBitmap(0, 0); }},
          {"NoiseStoredRaw",
           [] {
             std::mt19937 rng(5);
             MaskBitmap noise(64, 48);
             for (auto& b : noise.bytes) b = std::uint8_t(rng());
             return noise;
           }},
          {"PaintedStroke", [] { return stroke(1024, 683); }},
          {"Large", [] { return stroke(4096, 4096); }}};
}

INSTANTIATE_TEST_SUITE_P(Bitmaps, MaskBitmapRoundTripTest, testing::ValuesIn(roundTripBitmaps()),
                         [](const auto& info) { return std::string(info.param.first); });

TEST(MaskBitmapTest, IncompressibleBytesAreStoredAsThemselves) {
  std::mt19937 rng(6);
  MaskBitmap m(40, 30);
  for (auto& b : m.bytes) b = std::uint8_t(rng());
  const Bytes stored = m.encoded();
  EXPECT_EQ(stored, header(40, 30) + m.bytes);
}

TEST(MaskBitmapTest, ReadsAStreamOfTheReferenceEncoder) {
  const std::string dir = std::string(LUMIVALE_TEST_DATA) + "/lzfse/";
  const std::string stream = test::readFile(dir + "radial_320x213.lzfse");
  const std::string raw = test::readFile(dir + "radial_320x213.raw");
  const auto m = MaskBitmap::decode(header(320, 213) + Bytes(stream.begin(), stream.end()));
  ASSERT_TRUE(m.has_value());
  EXPECT_EQ(m->bytes, Bytes(raw.begin(), raw.end()));
}

struct StoredCase {
  const char* name;
  Bytes data;
};

void PrintTo(const StoredCase& c, std::ostream* os) { *os << c.name; }

class MaskBitmapBadStoredTest : public testing::TestWithParam<StoredCase> {};

TEST_P(MaskBitmapBadStoredTest, DecodesToNothing) { EXPECT_FALSE(MaskBitmap::decode(GetParam().data)); }

std::vector<StoredCase> badStored() {
  const Bytes good = MaskBitmap(50, 40, 9).encoded();
  const Bytes payload(good.begin() + 12, good.end());
  std::vector<StoredCase> cases;
  cases.push_back({"Nothing", {}});
  cases.push_back({"HeaderOnly", header(0, 0)});
  cases.push_back({"TwelveBytesOfAValidBitmap", Bytes(good.begin(), good.begin() + 12)});
  cases.push_back({"OtherMagic", header(50, 40, "KVMX") + payload});
  cases.push_back({"PngSignature", Bytes{0x89, 'P', 'N', 'G', 0x0D, 0x0A, 0x1A, 0x0A, 0, 0, 0, 13, 'I'}});
  cases.push_back({"OnePixelTooFew", header(50, 40) + lzfse::encode(Bytes(1999, 9))});
  cases.push_back({"OnePixelTooMany", header(50, 40) + lzfse::encode(Bytes(2001, 9))});
  cases.push_back({"SizeClaimsOneMoreRow", header(50, 41) + payload});
  cases.push_back({"PayloadCut", header(50, 40) + Bytes(payload.begin(), payload.end() - 1)});
  cases.push_back({"PayloadNotAStream", header(50, 40) + Bytes(100, 0xEE)});
  cases.push_back({"AbsurdSize", header(65536, 65536) + payload});
  cases.push_back({"WidthBeyondInt", header(0x80000000u, 1) + payload});
  cases.push_back({"ZeroSizeWithBytes", header(0, 7) + Bytes{1, 2, 3}});
  return cases;
}

INSTANTIATE_TEST_SUITE_P(Data, MaskBitmapBadStoredTest, testing::ValuesIn(badStored()),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(MaskBitmapTest, APayloadOfExactlyTheBitmapSizeIsTakenUncompressed) {
  // Even when those bytes happen to be a valid stream, they are pixels.
  const Bytes stream = lzfse::encode(Bytes(40, 1));
  const auto m = MaskBitmap::decode(header(std::uint32_t(stream.size()), 1) + stream);
  ASSERT_TRUE(m.has_value());
  EXPECT_EQ(m->bytes, stream);
}

TEST(MaskBitmapTest, ValueIsBilinearBetweenPixelCentresAndClampedOutside) {
  const MaskBitmap row = fromRows(2, 1, {0, 255});
  struct Probe {
    double u, v, expected;
  };
  for (const Probe& p : std::vector<Probe>{{0.25, 0.5, 0.0},
                                           {0.75, 0.5, 1.0},
                                           {0.5, 0.5, 0.5},
                                           {0.625, 0.9, 0.75},
                                           {0.0, 0.0, 0.0},
                                           {1.0, 1.0, 1.0},
                                           {-3.0, 7.0, 0.0},
                                           {std::numeric_limits<double>::infinity(), 0.5, 1.0},
                                           {std::numeric_limits<double>::quiet_NaN(), 0.5, 0.0}})
    EXPECT_NEAR(row.value(p.u, p.v), p.expected, 1e-12) << p.u << ", " << p.v;

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
