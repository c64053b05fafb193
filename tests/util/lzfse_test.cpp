#include "engine/util/lzfse.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
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

Bytes cat(std::initializer_list<Bytes> parts) {
  Bytes b;
  for (const Bytes& p : parts) b.insert(b.end(), p.begin(), p.end());
  return b;
}

void put(Bytes& b, std::uint64_t v, int bytes = 4) {
  for (int i = 0; i < bytes; ++i) b.push_back(std::uint8_t(v >> (8 * i)));
}

// The magics of the blocks of a stream, walking the block sizes.
std::vector<std::string> blockKinds(const Bytes& s) {
  std::vector<std::string> kinds;
  const auto at = [&](std::size_t p) {
    std::uint64_t v = 0;
    std::memcpy(&v, s.data() + p, p < s.size() ? std::min<std::size_t>(8, s.size() - p) : 0);
    return v;
  };
  for (std::size_t p = 0, size = 1; size && p + 4 <= s.size(); p += size) {
    const std::string& kind =
        kinds.emplace_back(s.begin() + std::ptrdiff_t(p), s.begin() + std::ptrdiff_t(p) + 4);
    const std::uint64_t u32 = 0xFFFFFFFF, u20 = 0xFFFFF;
    size = kind == "bvx-"   ? 8 + (at(p + 4) & u32)
           : kind == "bvxn" ? 12 + (at(p + 8) & u32)
           : kind == "bvx2" ? (at(p + 24) & u32) + ((at(p + 8) >> 20) & u20) + ((at(p + 16) >> 40) & u20)
                            : 0;
  }
  return kinds;
}

// Content made like masks: a soft radial falloff, a hard-edged disc, noise.
Bytes maskLike(int width, int height, unsigned seed) {
  Bytes b(std::size_t(width) * height);
  std::mt19937 rng(seed);
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) {
      const double d = std::hypot((x - width * 0.4) / width, (y - height * 0.6) / height);
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

// A plain-header block, "ABABABAB" by default: the literals "ABAB" come from
// the four coders' starting states (A owns states 0…511, B 512…1023, one bit
// read each); then one triple L = 4, M, D needing no bits at all.
Bytes plainHeaderBlock(std::uint32_t M = 4, std::uint32_t D = 2) {
  Bytes b;
  // "bvx1", raw bytes, payload bytes, literals, matches, literal payload
  // bytes, L/M/D payload bytes, literal bits (4 of the last byte are used).
  for (std::uint32_t v : {0x31787662u, 4 + M, 1u, 4u, 1u, 1u, 0u, std::uint32_t(-4)}) put(b, v);
  for (std::uint16_t state : {0, 512, 0, 512}) put(b, state, 2);
  put(b, 0), put(b, 0, 6);  // L/M/D bits and states
  std::vector<std::uint16_t> freq(360, 0);
  freq[4] = 64, freq[20 + M] = 64, freq[40 + D] = 256;
  freq[104 + 'A'] = freq[104 + 'B'] = 512;
  for (std::uint16_t f : freq) put(b, f, 2);
  put(b, 0, 2);       // padding of the header
  b.push_back(0x0B);  // the four literal bits
  return b;
}

Bytes lzvnBlock(std::uint32_t raw, const Bytes& code) {
  Bytes b;
  for (std::uint32_t v : {0x6E787662u, raw, std::uint32_t(code.size())}) put(b, v);  // "bvxn"
  return cat({b, code});
}

Bytes withEnd(Bytes b) {
  put(b, 0x24787662);  // "bvx$"
  return b;
}

const Bytes eos = {0x06, 0, 0, 0, 0, 0, 0, 0};

}  // namespace

// The reference encoder's vectors: each decodes to its input, and our own
// encoding of the input decodes back and is at most a quarter larger.
class LzfseVectorTest : public testing::TestWithParam<const char*> {};

TEST_P(LzfseVectorTest, DecodesTheReferenceStreamAndOurOwnWithinAQuarterOfItsSize) {
  const Bytes raw = readVector(std::string(GetParam()) + ".raw");
  const Bytes reference = readVector(std::string(GetParam()) + ".lzfse");
  ASSERT_FALSE(raw.empty());
  EXPECT_EQ(lzfse::decode(reference), raw);
  const Bytes ours = lzfse::encode(raw);
  EXPECT_EQ(lzfse::decode(ours), raw);
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

TEST(LzfseRoundTripTest, DecodesBackToTheInputFromTheBlockKindThatFits) {
  // Short periods exercise the overlapping copies of every distance below 16.
  Bytes periods;
  for (int period = 1; period <= 17; ++period)
    for (int i = 0; i < 3000; ++i) periods.push_back(std::uint8_t((i % period) * 37 + period));
  const std::tuple<const char*, Bytes, const char*> cases[] = {
      {"empty", {}, "bvx$"},
      {"one byte", {42}, "bvx-"},
      {"seven bytes", text("abcabca"), "bvx-"},
      {"eight equal bytes", Bytes(8, 7), "bvx-"},  // LZVN would be larger
      {"short text", text(std::string(40, 'x') + "hello hello hello hello"), "bvxn"},
      {"just below the LZVN limit", maskLike(63, 65, 1), "bvxn"},
      {"at the LZVN limit", maskLike(64, 64, 2), "bvx2"},
      {"small incompressible", randomBytes(1000, 3), "bvx-"},
      {"incompressible", randomBytes(300000, 4), "bvx-"},
      {"repetitive", Bytes(5000000, 0xAB), "bvx2"},
      {"mask 1024", maskLike(1024, 1024, 5), "bvx2"},
      {"short periods", periods, "bvx2"}};
  for (const auto& [name, input, firstBlock] : cases) {
    SCOPED_TRACE(name);
    const Bytes stream = lzfse::encode(input);
    const auto kinds = blockKinds(stream);
    ASSERT_FALSE(kinds.empty());
    EXPECT_EQ(kinds.front(), firstBlock);
    EXPECT_EQ(kinds.back(), "bvx$");
    EXPECT_TRUE(lzfse::decode(stream, input.size()) == input);
  }
}

TEST(LzfseRoundTripTest, RandomSizesAndContents) {
  std::mt19937 rng(11);
  for (int round = 0; round < 60; ++round) {
    const std::size_t size = rng() % 3 == 0 ? rng() % 64 : rng() % 20000;
    // Mix runs, copies of earlier bytes and noise in random proportions.
    Bytes input;
    const unsigned alphabet = 1 + rng() % 256;
    while (input.size() < size) {
      const unsigned kind = rng() % 3;
      for (std::size_t i = 0, n = 1 + rng() % 300; i < n && input.size() < size; ++i) {
        if (kind == 0 || input.empty())
          input.push_back(std::uint8_t(rng() % alphabet));
        else
          input.push_back(
              input[input.size() - 1 - (kind == 1 ? 0 : rng() % std::min<std::size_t>(input.size(), 5000))]);
      }
    }
    ASSERT_TRUE(lzfse::decode(lzfse::encode(input)) == input)
        << "round " << round << ", " << size << " bytes";
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
    const auto word = dictionary.begin() + std::ptrdiff_t(rng() % 64 * 8);
    matchHeavy.insert(matchHeavy.end(), word, word + 8);
  }
  // 4096 × 4096: matches longer than one L/M/D triple can say, many blocks.
  for (const Bytes& input : {literalHeavy, matchHeavy, maskLike(4096, 4096, 24)}) {
    const Bytes stream = lzfse::encode(input);
    const auto kinds = blockKinds(stream);
    EXPECT_GE(std::count(kinds.begin(), kinds.end(), "bvx2"), 2) << input.size();
    EXPECT_LT(stream.size(), input.size());
    EXPECT_TRUE(lzfse::decode(stream) == input) << input.size();
  }
}

TEST(LzfseDecodeTest, ReadsHandMadeBlocksAndHonoursTheOutputCap) {
  EXPECT_EQ(lzfse::decode(withEnd(plainHeaderBlock())), text("ABABABAB"));
  EXPECT_EQ(lzfse::decode(withEnd(plainHeaderBlock(0, 2))), text("ABAB"));

  // Every LZVN opcode kind: small literal "abc"; small distance (L=1 "d",
  // M=3, D=4): "abcd" + "abc"; nop; previous distance (L=1 "x", M=3): "x" +
  // 3 bytes from 4 back; medium distance (L=0, M=5, D=8); large distance
  // (L=0, M=3, D=2); small match (M=2, D=2); large literal (16 bytes); large
  // match (M=16, D=2).
  const Bytes code = cat({{0xE3, 'a', 'b', 'c', 0x40, 0x04, 'd', 0x0E, 0x46, 'x', 0xA0, 8 << 2 | 2, 0x00,
                           0x07, 0x02, 0x00, 0xF2, 0xE0, 0x00},
                          text("0123456789ABCDEF"),
                          {0xF0, 0x00},
                          eos});
  std::string expected = "abcdabcx";
  expected += expected.substr(expected.size() - 4, 3);
  for (int i = 0; i < 5; ++i) expected += expected[expected.size() - 8];
  for (int i = 0; i < 5; ++i) expected += expected[expected.size() - 2];
  expected += "0123456789ABCDEF";
  for (int i = 0; i < 16; ++i) expected += expected[expected.size() - 2];
  EXPECT_EQ(lzfse::decode(withEnd(lzvnBlock(std::uint32_t(expected.size()), code))), text(expected));

  // Matches may reach into earlier blocks.
  const Bytes raw = {'b', 'v', 'x', '-', 4, 0, 0, 0, 'w', 'x', 'y', 'z'};
  EXPECT_EQ(lzfse::decode(withEnd(cat({raw, lzvnBlock(6, cat({{0x08, 0x04, 0xF2}, eos}))}))),
            text("wxyzwxyzwx"));

  const Bytes input = Bytes(100000, 1), stream = lzfse::encode(input);
  EXPECT_TRUE(lzfse::decode(stream, input.size()).has_value());
  EXPECT_FALSE(lzfse::decode(stream, input.size() - 1).has_value());
  EXPECT_FALSE(lzfse::decode(readVector("seven_bytes.lzfse"), 6).has_value());
}

TEST(LzfseBadStreamTest, MalformedStreamsYieldNothing) {
  const Bytes text315 = readVector("text_315.lzfse"), radial = readVector("radial_320x213.lzfse");
  const Bytes plain = withEnd(plainHeaderBlock());
  const auto patched = [](Bytes b, std::size_t at, std::initializer_list<std::uint8_t> bytes) {
    for (std::uint8_t x : bytes) b.at(at++) = x;
    return b;
  };
  const auto lzvn = [](std::uint32_t raw, const Bytes& code) { return withEnd(lzvnBlock(raw, code)); };
  const std::pair<const char*, Bytes> cases[] = {
      {"empty", {}},
      {"end marker cut", Bytes(text315.begin(), text315.end() - 1)},
      {"no end block", Bytes(radial.begin(), radial.end() - 4)},
      {"unknown magic", text("bvx3\0\0\0\0bvx$")},
      {"raw size past the data", withEnd(Bytes{'b', 'v', 'x', '-', 9, 0, 0, 0, 1, 2, 3})},
      {"raw block cut", Bytes{'b', 'v', 'x', '-', 3, 0, 0}},
      {"LZVN payload past the data", patched(text315, 8, {0xFF, 0x01})},
      {"LZVN raw size lies", patched(text315, 4, {0x3C})},
      {"LZVN distance before the start", lzvn(4, cat({{0xE1, 'a', 0x00, 0x02}, eos}))},
      {"LZVN distance zero", lzvn(4, cat({{0xE1, 'a', 0x00, 0x00}, eos}))},
      {"LZVN previous distance unset", lzvn(4, cat({{0x46, 'a'}, eos}))},
      {"LZVN literals past the payload", lzvn(20, {0xE9, 'a', 'b'})},
      {"LZVN match past the block", lzvn(3, cat({{0xE1, 'a', 0x00, 0x01}, eos}))},
      {"LZVN undefined opcode", lzvn(1, cat({{0xE1, 'a', 0x7A}, eos}))},
      {"LZVN end marker cut", lzvn(1, {0xE1, 'a', 0x06, 0, 0})},
      {"LZVN no end marker", lzvn(1, {0xE1, 'a'})},
      {"packed header size too small", patched(radial, 24, {0x10, 0, 0, 0})},
      {"packed header size past the data", patched(radial, 26, {0x01})},
      {"packed raw size lies", patched(radial, 4, {0x41})},
      {"packed L/M/D payload cut", patched(radial, 21, {0x00})},
      {"plain: 40,004 literals", patched(plain, 12, {0x44, 0x9C})},
      {"plain: 10,001 matches", patched(plain, 16, {0x11, 0x27})},
      {"plain: state 1024", patched(plain, 34, {0x00, 0x04})},
      {"plain: literal bits -9", patched(plain, 28, {0xF7})},
      {"plain: unused bits set", patched(plain, plain.size() - 5, {0xFB})},
      {"plain: frequencies overfull", patched(plain, 50 + 2 * 5, {64})},
      // L = 4 becomes L = 5: one literal more than the block has.
      {"plain: literals past the end", patched(plain, 50 + 2 * 4, {0, 0, 64, 0})},
      // L = 4 becomes L = 0: the match at distance 2 starts before the output.
      {"plain: distance before the start", patched(plain, 50, {64, 0, 0, 0, 0, 0, 0, 0, 0, 0})},
      // No literal payload, no bits: the four coders find nothing to read.
      {"plain: bits run dry", patched(patched(plain, 20, {0}), 28, {0, 0, 0, 0})},
      {"plain: tail bits without payload", patched(plain, 20, {0})},
      // One triple of 4 literals, no match, D = 0: a distance the block never had.
      {"plain: first triple repeats no distance", withEnd(plainHeaderBlock(0, 0))},
      // Sixteen literals of no bits each for an 8-byte block: more work than output.
      {"plain: more literals than bytes",
       patched(patched(plain, 12, {16}), 50 + 2 * (104 + 'A'), {0, 4, 0, 0})}};
  for (const auto& [name, stream] : cases) EXPECT_FALSE(lzfse::decode(stream).has_value()) << name;
}

TEST(LzfseBadStreamTest, RandomCorruptionNeverCrashes) {
  std::vector<Bytes> streams;
  for (const char* name : {"text_315", "ones_100x37", "zeros_64x64", "gradient_256x256", "radial_320x213"})
    streams.push_back(readVector(std::string(name) + ".lzfse"));
  streams.push_back(lzfse::encode(maskLike(300, 200, 31)));
  streams.push_back(withEnd(plainHeaderBlock()));
  std::mt19937 rng(32);
  int decodedSomething = 0, attempts = 0;
  for (const Bytes& original : streams) {
    for (int round = 0; round < 400; ++round, ++attempts) {
      Bytes s = original;
      for (unsigned e = 0, edits = 1 + rng() % 3; e < edits && !s.empty(); ++e) {
        const std::size_t at = rng() % s.size();
        const unsigned how = rng() % 4;  // flip a bit, cut, insert a byte, replace a byte
        if (how == 0) s[at] ^= std::uint8_t(1u << (rng() % 8));
        if (how == 1) s.resize(at);
        if (how == 2) s.insert(s.begin() + std::ptrdiff_t(at), std::uint8_t(rng()));
        if (how == 3) s[at] = std::uint8_t(rng());
      }
      const auto decoded = lzfse::decode(s, 1 << 20);
      EXPECT_TRUE(!decoded || decoded->size() <= std::size_t(1) << 20);
      decodedSomething += decoded.has_value();
    }
  }
  // Most damage is caught; some (a flipped literal bit) cannot be.
  EXPECT_LT(decodedSomething, attempts);
}
