#pragma once
// Internal to the LZFSE codec (lzfse_decode.cpp, lzfse_encode.cpp): the block
// layout, the value classes of the L/M/D streams and the finite-state entropy
// tables that the encoder and the decoder must build identically.
//
// A stream is a sequence of blocks, each opening with a four-byte magic:
//   "bvx-"  raw bytes:  u32 size, then the bytes
//   "bvxn"  LZVN:       u32 raw size, u32 payload size, then the byte-code
//   "bvx1"  LZFSE with a plain header (every field and frequency at full width)
//   "bvx2"  LZFSE with a packed header (bit fields, variable-length frequencies)
//   "bvx$"  end of stream
// Matches of every block kind may reach back into the output of earlier blocks.
//
// An LZFSE block holds two entropy-coded streams: the literal bytes (four
// interleaved coders) and the (L, M, D) triples: copy L literals, then copy M
// bytes from D bytes back. D = 0 repeats the block's previous distance. Each
// stream is written forwards as a little-endian bit string and read backwards
// from its last byte, so the encoder codes its symbols last to first.
//
// The entropy coder is tabled ANS with one contiguous run of states per
// symbol: a symbol of frequency f owns f consecutive states in symbol order.

#include <array>
#include <bit>
#include <cstdint>
#include <cstring>

namespace lumivale::lzfse::format {

constexpr std::uint32_t magicOf(const char (&text)[5]) {
  return std::uint32_t(std::uint8_t(text[0])) | std::uint32_t(std::uint8_t(text[1])) << 8 |
         std::uint32_t(std::uint8_t(text[2])) << 16 | std::uint32_t(std::uint8_t(text[3])) << 24;
}

inline constexpr std::uint32_t rawMagic = magicOf("bvx-");
inline constexpr std::uint32_t lzvnMagic = magicOf("bvxn");
inline constexpr std::uint32_t v1Magic = magicOf("bvx1");
inline constexpr std::uint32_t v2Magic = magicOf("bvx2");
inline constexpr std::uint32_t endMagic = magicOf("bvx$");

// Coder sizes: states per stream and symbols per alphabet.
inline constexpr int literalStates = 1024;
inline constexpr int lStates = 64;
inline constexpr int mStates = 64;
inline constexpr int dStates = 256;
inline constexpr int literalSymbols = 256;
inline constexpr int lSymbols = 20;
inline constexpr int mSymbols = 20;
inline constexpr int dSymbols = 64;
inline constexpr int frequencyCount = lSymbols + mSymbols + dSymbols + literalSymbols;

// What one block may hold. Decoders size their literal buffer by these.
inline constexpr std::uint32_t matchesPerBlock = 10000;
inline constexpr std::uint32_t literalsPerBlock = 4 * matchesPerBlock;

// Fixed sizes of the two header forms.
inline constexpr std::size_t v2FixedHeader = 32;  // magic, raw size, three packed u64
inline constexpr std::size_t v1Header =
    52 + 2 * frequencyCount;  // 50 bytes of fields, frequencies, 2 of padding

// A value class: `bits` extra bits follow the symbol, added to `base`.
struct ValueClass {
  std::uint8_t bits = 0;
  std::uint32_t base = 0;
};

// Builds a class table from the extra-bit counts: each class starts where the
// previous one's range ends.
template <std::size_t N>
constexpr std::array<ValueClass, N> classesFromBits(const std::array<std::uint8_t, N>& bits) {
  std::array<ValueClass, N> classes{};
  std::uint32_t base = 0;
  for (std::size_t s = 0; s < N; ++s) {
    classes[s] = {bits[s], base};
    base += std::uint32_t{1} << bits[s];
  }
  return classes;
}

// Literal run lengths: 0…15 as themselves, then four wider classes (0…315).
inline constexpr std::array<ValueClass, lSymbols> lClasses =
    classesFromBits<lSymbols>({0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2, 3, 5, 8});
// Match lengths: 0…15 as themselves, then four wider classes (0…2359).
inline constexpr std::array<ValueClass, mSymbols> mClasses =
    classesFromBits<mSymbols>({0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 3, 5, 8, 11});

constexpr std::array<std::uint8_t, dSymbols> distanceBits() {
  std::array<std::uint8_t, dSymbols> bits{};
  for (int s = 0; s < dSymbols; ++s) bits[s] = std::uint8_t(s / 4);  // four classes per width
  return bits;
}
// Distances: classes in groups of four sharing a width of 0…15 extra bits.
inline constexpr std::array<ValueClass, dSymbols> dClasses = classesFromBits<dSymbols>(distanceBits());

constexpr std::uint32_t maxValue(const ValueClass& last) { return last.base + (1u << last.bits) - 1; }
inline constexpr std::uint32_t maxL = maxValue(lClasses.back());
inline constexpr std::uint32_t maxM = maxValue(mClasses.back());
inline constexpr std::uint32_t maxD = maxValue(dClasses.back());
static_assert(maxL == 315 && maxM == 2359 && maxD == 262139);

// The class of a literal run length or match length: the first 16 values are
// their own class, longer ones fall into the last four.
template <std::size_t N>
inline int lengthSymbol(const std::array<ValueClass, N>& classes, std::uint32_t value) {
  if (value < 16) return int(value);
  int s = int(N) - 1;
  while (classes[s].base > value) --s;
  return s;
}

// The class of a distance: classes 4g…4g+3 cover [4(2^g − 1), 4(2^(g+1) − 1)).
inline int distanceSymbol(std::uint32_t value) {
  const std::uint32_t group = std::uint32_t(std::bit_width((value >> 2) + 1) - 1);
  return int(4 * group + ((value - 4 * ((1u << group) - 1)) >> group));
}

// Decoding entry of the literal coder: read `bits` bits b, emit `symbol`, go to
// state `delta` + b.
struct SymbolEntry {
  std::uint8_t bits = 0;
  std::uint8_t symbol = 0;
  std::uint16_t delta = 0;
};

// Decoding entry of an L/M/D coder: read `totalBits` bits at once; the high
// part is the state's bits, the low `valueBits` are the value's extra bits.
struct ValueEntry {
  std::uint8_t totalBits = 0;
  std::uint8_t valueBits = 0;
  std::uint16_t delta = 0;
  std::uint32_t base = 0;
};

// Calls visit(state, symbol, bits, delta) for every state of a coder with
// `states` states (a power of two) and the given frequencies, which must sum
// to at most `states`. Returns false when they sum to more.
//
// A symbol of frequency f takes k = log2(states) − floor(log2 f) bits in its
// first j0 = 2·states/2^k − f states and k − 1 bits in the rest, so that its f
// states together spread over all `states` next states exactly once.
template <typename Visit>
bool forEachState(int states, const std::uint16_t* freq, int symbols, Visit&& visit) {
  const int stateBits = std::countr_zero(unsigned(states));
  int next = 0;
  for (int s = 0; s < symbols; ++s) {
    const int f = freq[s];
    if (f == 0) continue;
    if (f > states - next) return false;
    const int k = stateBits - (std::bit_width(unsigned(f)) - 1);
    const int j0 = ((2 * states) >> k) - f;
    for (int j = 0; j < f; ++j) {
      if (j < j0)
        visit(next + j, s, k, ((f + j) << k) - states);
      else
        visit(next + j, s, k - 1, (j - j0) << (k - 1));
    }
    next += f;
  }
  return true;
}

// Encoding entry of one symbol: from encoder state x, a state at or above
// `threshold` writes `bits` low bits and moves to deltaHigh + (x >> bits);
// below it writes bits − 1 and moves to deltaLow + (x >> (bits − 1)).
struct EncodeEntry {
  std::int32_t threshold = 0;
  std::int32_t bits = 0;
  std::int32_t deltaHigh = 0;
  std::int32_t deltaLow = 0;
};

inline void buildEncodeTable(int states, const std::uint16_t* freq, int symbols, EncodeEntry* table) {
  const int stateBits = std::countr_zero(unsigned(states));
  int offset = 0;
  for (int s = 0; s < symbols; ++s) {
    const int f = freq[s];
    table[s] = {};
    if (f == 0) continue;
    const int k = stateBits - (std::bit_width(unsigned(f)) - 1);
    table[s].threshold = (f << k) - states;
    table[s].bits = k;
    table[s].deltaHigh = offset - f + (states >> k);
    table[s].deltaLow = k > 0 ? offset - f + (states >> (k - 1)) : 0;
    offset += f;
  }
}

inline std::uint32_t load32(const std::uint8_t* p) {
  std::uint32_t v;
  std::memcpy(&v, p, 4);
  return v;  // the codec is little-endian only, as the format
}

inline std::uint64_t load64(const std::uint8_t* p) {
  std::uint64_t v;
  std::memcpy(&v, p, 8);
  return v;
}

inline void store32(std::uint8_t* p, std::uint32_t v) { std::memcpy(p, &v, 4); }
inline void store64(std::uint8_t* p, std::uint64_t v) { std::memcpy(p, &v, 8); }

static_assert(std::endian::native == std::endian::little, "the LZFSE codec assumes a little-endian machine");

}  // namespace lumivale::lzfse::format
