#include "engine/render/lzfse.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "tests/support/temp_dir.h"

using namespace lumivale;
using Bytes = std::vector<std::uint8_t>;

namespace {

Bytes readVector(const std::string& name) {
  const std::string text = test::readFile(std::string(LUMIVALE_TEST_DATA) + "/lzfse/" + name);
  return Bytes(text.begin(), text.end());
}

Bytes text(const std::string& s) { return Bytes(s.begin(), s.end()); }

void put32(Bytes& b, std::uint32_t v) {
  for (int i = 0; i < 4; ++i) b.push_back(std::uint8_t(v >> (8 * i)));
}
void put16(Bytes& b, std::uint16_t v) {
  b.push_back(std::uint8_t(v));
  b.push_back(std::uint8_t(v >> 8));
}

// The magics of the blocks of a stream, walking the block sizes.
std::vector<std::string> blockKinds(const Bytes& s) {
  std::vector<std::string> kinds;
  std::size_t p = 0;
  const auto u32 = [&](std::size_t at) {
    std::uint32_t v;
    std::memcpy(&v, s.data() + at, 4);
    return v;
  };
  while (p + 4 <= s.size()) {
    const std::string magic(s.begin() + std::ptrdiff_t(p), s.begin() + std::ptrdiff_t(p) + 4);
    kinds.push_back(magic);
    if (magic == "bvx$") break;
    if (magic == "bvx-") {
      p += 8 + u32(p + 4);
    } else if (magic == "bvxn") {
      p += 12 + u32(p + 8);
    } else if (magic == "bvx2") {
      std::uint64_t f0, f1, f2;
      std::memcpy(&f0, s.data() + p + 8, 8);
      std::memcpy(&f1, s.data() + p + 16, 8);
      std::memcpy(&f2, s.data() + p + 24, 8);
      p += (f2 & 0xFFFFFFFF) + ((f0 >> 20) & 0xFFFFF) + ((f1 >> 40) & 0xFFFFF);
    } else {
      break;
    }
  }
  return kinds;
}

// Content made like masks: a soft radial falloff, a hard-edged disc, noise.
Bytes maskLike(int width, int height, unsigned seed) {
  Bytes b(std::size_t(width) * height);
  std::mt19937 rng(seed);
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) {
      const double dx = (x - width * 0.4) / width, dy = (y - height * 0.6) / height;
      const double d = std::sqrt(dx * dx + dy * dy);
      int v = d < 0.15 ? 255 : d < 0.35 ? int(255 * (0.35 - d) / 0.2) : 0;
      if (x > width / 2 && y < height / 3) v = std::min(255, v + int(rng() % 8));
      b[std::size_t(y) * width + x] = std::uint8_t(v);
    }
  return b;
}

Bytes randomBytes(std::size_t n, unsigned seed) {
  std::mt19937 rng(seed);
  Bytes b(n);
  for (auto& x : b) x = std::uint8_t(rng());
  return b;
}

}  // namespace

// --- The reference encoder's vectors ---------------------------------------------

class LzfseVectorTest : public testing::TestWithParam<const char*> {};

TEST_P(LzfseVectorTest, DecodesTheReferenceStreamToItsInput) {
  const Bytes raw = readVector(std::string(GetParam()) + ".raw");
  const Bytes stream = readVector(std::string(GetParam()) + ".lzfse");
  ASSERT_FALSE(raw.empty());
  const auto decoded = lzfse::decode(stream);
  ASSERT_TRUE(decoded.has_value());
  EXPECT_EQ(*decoded, raw);
}

TEST_P(LzfseVectorTest, OurEncodingDecodesBackWithinAQuarterOfTheReferenceSize) {
  const Bytes raw = readVector(std::string(GetParam()) + ".raw");
  const Bytes reference = readVector(std::string(GetParam()) + ".lzfse");
  const Bytes ours = lzfse::encode(raw);
  const auto decoded = lzfse::decode(ours);
  ASSERT_TRUE(decoded.has_value());
  EXPECT_EQ(*decoded, raw);
  EXPECT_LE(double(ours.size()), 1.25 * double(reference.size()))
      << "ours " << ours.size() << " bytes, reference " << reference.size();
}

INSTANTIATE_TEST_SUITE_P(SharedVectors, LzfseVectorTest,
                         testing::Values("one_byte", "seven_bytes", "text_315", "ones_100x37", "zeros_64x64",
                                         "gradient_256x256", "radial_320x213"));

TEST(LzfseVectorTest, TheVectorsCoverEveryBlockKindAReferenceEncoderWrites) {
  EXPECT_EQ(blockKinds(readVector("one_byte.lzfse")), (std::vector<std::string>{"bvx-", "bvx$"}));
  EXPECT_EQ(blockKinds(readVector("text_315.lzfse")), (std::vector<std::string>{"bvxn", "bvx$"}));
  EXPECT_EQ(blockKinds(readVector("radial_320x213.lzfse")), (std::vector<std::string>{"bvx2", "bvx$"}));
}

// --- Round trips -----------------------------------------------------------------

// Inputs are made inside the test: every test process instantiates all cases.
struct RoundTripCase {
  const char* name;
  std::function<Bytes()> make;
  const char* firstBlock;  // the block kind our encoder should choose
};

void PrintTo(const RoundTripCase& c, std::ostream* os) { *os << c.name; }

class LzfseRoundTripTest : public testing::TestWithParam<RoundTripCase> {};

TEST_P(LzfseRoundTripTest, DecodesBackToTheInput) {
  const RoundTripCase& c = GetParam();
  const Bytes input = c.make();
  const Bytes stream = lzfse::encode(input);
  const auto kinds = blockKinds(stream);
  ASSERT_FALSE(kinds.empty());
  EXPECT_EQ(kinds.front(), c.firstBlock);
  EXPECT_EQ(kinds.back(), "bvx$");
  const auto decoded = lzfse::decode(stream, input.size());
  ASSERT_TRUE(decoded.has_value());
  EXPECT_TRUE(*decoded == input);
}

std::vector<RoundTripCase> roundTripCases() {
  std::vector<RoundTripCase> cases;
  cases.push_back({"Empty", [] { return Bytes{}; }, "bvx$"});
  cases.push_back({"OneByte", [] { return Bytes{42}; }, "bvx-"});
  cases.push_back({"SevenBytes", [] { return text("abcabca"); }, "bvx-"});
  cases.push_back({"EightEqualBytes", [] { return Bytes(8, 7); }, "bvx-"});  // LZVN would be larger
  cases.push_back(
      {"ShortText", [] { return text(std::string(40, 'x') + "hello hello hello hello"); }, "bvxn"});
  cases.push_back({"JustBelowLzvnLimit", [] { return maskLike(63, 65, 1); }, "bvxn"});
  cases.push_back({"AtLzvnLimit", [] { return maskLike(64, 64, 2); }, "bvx2"});
  cases.push_back({"SmallIncompressible", [] { return randomBytes(1000, 3); }, "bvx-"});
  cases.push_back({"Incompressible", [] { return randomBytes(300000, 4); }, "bvx-"});
  cases.push_back({"Repetitive", [] { return Bytes(5000000, 0xAB); }, "bvx2"});
  cases.push_back({"Mask1024", [] { return maskLike(1024, 1024, 5); }, "bvx2"});
  // Short periods exercise the overlapping copies of every distance below 16.
  cases.push_back({"ShortPeriods",
                   [] {
                     Bytes periods;
                     for (int period = 1; period <= 17; ++period)
                       for (int i = 0; i < 3000; ++i)
                         periods.push_back(std::uint8_t((i % period) * 37 + period));
                     return periods;
                   },
                   "bvx2"});
  return cases;
}

INSTANTIATE_TEST_SUITE_P(Inputs, LzfseRoundTripTest, testing::ValuesIn(roundTripCases()),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(LzfseRoundTripTest, RandomSizesAndContents) {
  std::mt19937 rng(11);
  for (int round = 0; round < 60; ++round) {
    const std::size_t size = rng() % 3 == 0 ? rng() % 64 : rng() % 20000;
    // Mix runs, copies of earlier bytes and noise in random proportions.
    Bytes input;
    const unsigned alphabet = 1 + rng() % 256;
    while (input.size() < size) {
      const unsigned kind = rng() % 3;
      const std::size_t n = 1 + rng() % 300;
      for (std::size_t i = 0; i < n && input.size() < size; ++i) {
        if (kind == 0 || input.empty())
          input.push_back(std::uint8_t(rng() % alphabet));
        else if (kind == 1)
          input.push_back(input.back());
        else
          input.push_back(input[input.size() - 1 - rng() % std::min<std::size_t>(input.size(), 5000)]);
      }
    }
    const auto decoded = lzfse::decode(lzfse::encode(input));
    ASSERT_TRUE(decoded.has_value()) << "round " << round << ", " << size << " bytes";
    ASSERT_TRUE(*decoded == input) << "round " << round << ", " << size << " bytes";
  }
}

TEST(LzfseRoundTripTest, InputsPastTheBlockLimitsSpanSeveralBlocks) {
  // Over 40,000 literals: noise that still compresses a little.
  Bytes literalHeavy = randomBytes(150000, 21);
  for (auto& b : literalHeavy) b &= 0x3F;
  // Over 10,000 matches: eight-byte words from a small dictionary.
  const Bytes dictionary = randomBytes(64 * 8, 22);
  std::mt19937 rng(23);
  Bytes matchHeavy;
  for (int i = 0; i < 40000; ++i) {
    const std::size_t word = rng() % 64;
    matchHeavy.insert(matchHeavy.end(), dictionary.begin() + std::ptrdiff_t(word * 8),
                      dictionary.begin() + std::ptrdiff_t(word * 8 + 8));
  }
  // 4096 × 4096: matches longer than one L/M/D triple can say, many blocks.
  const Bytes large = maskLike(4096, 4096, 24);
  for (const Bytes* input : std::initializer_list<const Bytes*>{&literalHeavy, &matchHeavy, &large}) {
    const Bytes stream = lzfse::encode(*input);
    const auto kinds = blockKinds(stream);
    EXPECT_GE(std::count(kinds.begin(), kinds.end(), "bvx2"), 2) << input->size();
    EXPECT_LT(stream.size(), input->size());
    const auto decoded = lzfse::decode(stream);
    ASSERT_TRUE(decoded.has_value()) << input->size();
    EXPECT_TRUE(*decoded == *input) << input->size();
  }
}

// --- Hand-made streams: the plain header and the LZVN opcodes ---------------------

namespace {

// A plain-header block of 8 bytes, "ABABABAB": the literals "ABAB" come from
// the four coders' starting states (A owns states 0…511, B 512…1023, one bit
// read each); then one triple L = 4, M = 4, D = 2 needing no bits at all.
Bytes plainHeaderBlock() {
  Bytes b;
  put32(b, 0x31787662);         // "bvx1"
  put32(b, 8);                  // raw bytes
  put32(b, 1);                  // payload bytes
  put32(b, 4);                  // literals
  put32(b, 1);                  // matches
  put32(b, 1);                  // literal payload bytes
  put32(b, 0);                  // L/M/D payload bytes
  put32(b, std::uint32_t(-4));  // literal bits: 4 of the last byte are used
  for (std::uint16_t state : {0, 512, 0, 512}) put16(b, state);
  put32(b, 0);  // L/M/D bits
  put16(b, 0);
  put16(b, 0);
  put16(b, 0);
  std::vector<std::uint16_t> freq(360, 0);
  freq[4] = 64;        // L = 4
  freq[20 + 4] = 64;   // M = 4
  freq[40 + 2] = 256;  // D = 2
  freq[104 + 'A'] = 512;
  freq[104 + 'B'] = 512;
  for (std::uint16_t f : freq) put16(b, f);
  put16(b, 0);        // padding of the header
  b.push_back(0x0B);  // the four literal bits
  return b;
}

Bytes lzvnBlock(std::uint32_t raw, const Bytes& code) {
  Bytes b;
  put32(b, 0x6E787662);  // "bvxn"
  put32(b, raw);
  put32(b, std::uint32_t(code.size()));
  b.insert(b.end(), code.begin(), code.end());
  return b;
}

Bytes withEnd(Bytes b) {
  put32(b, 0x24787662);  // "bvx$"
  return b;
}

const Bytes eos = {0x06, 0, 0, 0, 0, 0, 0, 0};

Bytes cat(std::initializer_list<Bytes> parts) {
  Bytes b;
  for (const Bytes& p : parts) b.insert(b.end(), p.begin(), p.end());
  return b;
}

}  // namespace

TEST(LzfseDecodeTest, ReadsAPlainHeaderBlock) {
  const auto decoded = lzfse::decode(withEnd(plainHeaderBlock()));
  ASSERT_TRUE(decoded.has_value());
  EXPECT_EQ(*decoded, text("ABABABAB"));
}

TEST(LzfseDecodeTest, ReadsEveryLzvnOpcodeKind) {
  // small literal "abc", small distance (L=1 "d", M=3, D=4): "abcd" + "abc",
  // nop, previous distance (L=1 "x", M=3): "x" + 3 bytes from 4 back,
  // medium distance (L=0, M=5, D=8), large distance (L=0, M=3, D=2),
  // small match (M=2, D=2), large literal (16 bytes), large match (M=16, D=2).
  const Bytes code = cat({{0xE3, 'a', 'b', 'c'},
                          {0x40, 0x04, 'd'},
                          {0x0E},
                          {0x46, 'x'},
                          {0xA0, 8 << 2 | 2, 0x00},
                          {0x07, 0x02, 0x00},
                          {0xF2},
                          {0xE0, 0x00},
                          text("0123456789ABCDEF"),
                          {0xF0, 0x00},
                          eos});
  std::string expected = "abcdabc";
  expected += "x";
  expected += expected.substr(expected.size() - 4, 3);
  for (int i = 0; i < 5; ++i) expected += expected[expected.size() - 8];
  for (int i = 0; i < 3; ++i) expected += expected[expected.size() - 2];
  for (int i = 0; i < 2; ++i) expected += expected[expected.size() - 2];
  expected += "0123456789ABCDEF";
  for (int i = 0; i < 16; ++i) expected += expected[expected.size() - 2];
  const auto decoded = lzfse::decode(withEnd(lzvnBlock(std::uint32_t(expected.size()), code)));
  ASSERT_TRUE(decoded.has_value());
  EXPECT_EQ(std::string(decoded->begin(), decoded->end()), expected);
}

TEST(LzfseDecodeTest, MatchesMayReachIntoEarlierBlocks) {
  Bytes raw = {'b', 'v', 'x', '-', 4, 0, 0, 0, 'w', 'x', 'y', 'z'};
  const Bytes stream = withEnd(cat({raw, lzvnBlock(6, cat({{0x08, 0x04}, {0xF2}, eos}))}));
  const auto decoded = lzfse::decode(stream);
  ASSERT_TRUE(decoded.has_value());
  EXPECT_EQ(*decoded, text("wxyzwxyzwx"));
}

TEST(LzfseDecodeTest, HonoursTheOutputCap) {
  const Bytes input = Bytes(100000, 1);
  const Bytes stream = lzfse::encode(input);
  EXPECT_TRUE(lzfse::decode(stream, input.size()).has_value());
  EXPECT_FALSE(lzfse::decode(stream, input.size() - 1).has_value());
  EXPECT_FALSE(lzfse::decode(readVector("seven_bytes.lzfse"), 6).has_value());
}

// --- Malformed streams -----------------------------------------------------------

struct BadStream {
  const char* name;
  Bytes stream;
};

void PrintTo(const BadStream& c, std::ostream* os) { *os << c.name; }

class LzfseBadStreamTest : public testing::TestWithParam<BadStream> {};

TEST_P(LzfseBadStreamTest, YieldsNothing) { EXPECT_FALSE(lzfse::decode(GetParam().stream).has_value()); }

std::vector<BadStream> badStreams() {
  std::vector<BadStream> cases;
  const Bytes text315 = readVector("text_315.lzfse");
  const Bytes radial = readVector("radial_320x213.lzfse");
  const Bytes plain = withEnd(plainHeaderBlock());
  const auto patched = [](Bytes b, std::size_t at, std::initializer_list<std::uint8_t> bytes) {
    for (std::uint8_t x : bytes) b.at(at++) = x;
    return b;
  };
  cases.push_back({"Empty", {}});
  cases.push_back({"EndMarkerCut", Bytes(text315.begin(), text315.end() - 1)});
  cases.push_back({"NoEndBlock", Bytes(radial.begin(), radial.end() - 4)});
  cases.push_back({"UnknownMagic", text("bvx3\0\0\0\0bvx$")});
  cases.push_back({"RawSizePastTheData", withEnd(Bytes{'b', 'v', 'x', '-', 9, 0, 0, 0, 1, 2, 3})});
  cases.push_back({"RawBlockCut", Bytes{'b', 'v', 'x', '-', 3, 0, 0}});
  cases.push_back({"LzvnPayloadPastTheData", patched(text315, 8, {0xFF, 0x01})});
  cases.push_back({"LzvnRawSizeLies", patched(text315, 4, {0x3C})});
  cases.push_back(
      {"LzvnDistanceBeforeTheStart", withEnd(lzvnBlock(4, cat({{0xE1, 'a'}, {0x00, 0x02}, eos})))});
  cases.push_back({"LzvnDistanceZero", withEnd(lzvnBlock(4, cat({{0xE1, 'a'}, {0x00, 0x00}, eos})))});
  cases.push_back({"LzvnPreviousDistanceUnset", withEnd(lzvnBlock(4, cat({{0x46, 'a'}, eos})))});
  cases.push_back({"LzvnLiteralsPastThePayload", withEnd(lzvnBlock(20, {0xE9, 'a', 'b'}))});
  cases.push_back({"LzvnMatchPastTheBlock", withEnd(lzvnBlock(3, cat({{0xE1, 'a'}, {0x00, 0x01}, eos})))});
  cases.push_back({"LzvnUndefinedOpcode", withEnd(lzvnBlock(1, cat({{0xE1, 'a'}, {0x7A}, eos})))});
  cases.push_back({"LzvnEndMarkerCut", withEnd(lzvnBlock(1, {0xE1, 'a', 0x06, 0, 0}))});
  cases.push_back({"LzvnNoEndMarker", withEnd(lzvnBlock(1, {0xE1, 'a'}))});
  cases.push_back({"PackedHeaderSizeTooSmall", patched(radial, 24, {0x10, 0, 0, 0})});
  cases.push_back({"PackedHeaderSizePastTheData", patched(radial, 26, {0x01})});
  cases.push_back({"PackedRawSizeLies", patched(radial, 4, {0x41})});
  cases.push_back({"PackedLmdPayloadCut", patched(radial, 21, {0x00})});
  cases.push_back({"PlainTooManyLiterals", patched(plain, 12, {0x44, 0x9C})});  // 40,004
  cases.push_back({"PlainTooManyMatches", patched(plain, 16, {0x11, 0x27})});   // 10,001
  cases.push_back({"PlainStateOutOfRange", patched(plain, 34, {0x00, 0x04})});  // 1024
  cases.push_back({"PlainLiteralBitsOutOfRange", patched(plain, 28, {0xF7})});  // −9
  cases.push_back({"PlainUnusedBitsSet", patched(plain, plain.size() - 5, {0xFB})});
  cases.push_back({"PlainFrequenciesOverfull", patched(plain, 50 + 2 * 5, {64})});
  // L = 4 becomes L = 5: one literal more than the block has.
  cases.push_back({"PlainLiteralsPastTheEnd", patched(plain, 50 + 2 * 4, {0, 0, 64, 0})});
  // L = 4 becomes L = 0: the match at distance 2 starts before the output.
  cases.push_back({"PlainDistanceBeforeTheStart", patched(plain, 50, {64, 0, 0, 0, 0, 0, 0, 0, 0, 0})});
  // No literal payload, no bits: the four coders find nothing to read.
  cases.push_back({"PlainBitsRunDry", patched(patched(plain, 20, {0}), 28, {0, 0, 0, 0})});
  cases.push_back({"PlainTailBitsWithoutPayload", patched(plain, 20, {0})});
  // Sixteen literals of no bits each for an 8-byte block: more work than output.
  cases.push_back(
      {"PlainMoreLiteralsThanBytes", patched(patched(plain, 12, {16}), 50 + 2 * (104 + 'A'), {0, 4, 0, 0})});
  return cases;
}

INSTANTIATE_TEST_SUITE_P(Streams, LzfseBadStreamTest, testing::ValuesIn(badStreams()),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(LzfseBadStreamTest, RandomCorruptionNeverCrashes) {
  std::vector<Bytes> streams;
  for (const char* name : {"text_315", "ones_100x37", "zeros_64x64", "gradient_256x256", "radial_320x213"})
    streams.push_back(readVector(std::string(name) + ".lzfse"));
  streams.push_back(lzfse::encode(maskLike(300, 200, 31)));
  streams.push_back(withEnd(plainHeaderBlock()));
  std::mt19937 rng(32);
  int decodedSomething = 0, attempts = 0;
  for (const Bytes& original : streams) {
    for (int round = 0; round < 400; ++round) {
      Bytes s = original;
      const unsigned edits = 1 + rng() % 3;
      for (unsigned e = 0; e < edits && !s.empty(); ++e) {
        const std::size_t at = rng() % s.size();
        switch (rng() % 4) {
          case 0:
            s[at] ^= std::uint8_t(1u << (rng() % 8));
            break;
          case 1:
            s.resize(at);
            break;
          case 2:
            s.insert(s.begin() + std::ptrdiff_t(at), std::uint8_t(rng()));
            break;
          default:
            s[at] = std::uint8_t(rng());
            break;
        }
      }
      const auto decoded = lzfse::decode(s, 1 << 20);
      ++attempts;
      if (decoded) {
        ++decodedSomething;
        EXPECT_LE(decoded->size(), std::size_t(1) << 20);
      }
    }
  }
  // Most damage is caught; some (a flipped literal bit) cannot be.
  EXPECT_LT(decodedSomething, attempts);
}
