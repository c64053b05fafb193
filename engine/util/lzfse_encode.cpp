// Encoding of raw LZFSE streams.
//
// One parse serves both compressed block kinds: a hash table with a few
// candidate positions per bucket finds matches, the previous distance is tried
// first (it is cheap to code), and a match is deferred by one byte when the
// next position matches longer. The parse hands (literals, L, M, D) sequences
// to a writer: LZVN byte-code for small inputs, otherwise LZFSE blocks that
// are entropy coded when full (or at the end) and stored raw when that is not
// smaller.

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstring>
#include <queue>
#include <utility>

#include "engine/util/lzfse.h"
#include "engine/util/lzfse_format.h"

namespace lumivale::lzfse {
namespace {

using namespace format;

constexpr std::size_t lzvnThreshold = 4096;  // smaller inputs are coded as LZVN
constexpr std::uint32_t minMatch = 4;
constexpr std::uint32_t goodMatch = 16;  // long enough not to look one byte further
constexpr std::uint32_t lzvnMaxDistance = 0xFFFF;

// ---------------------------------------------------------------------------
// Match finding

struct Match {
  std::uint32_t length = 0;
  std::uint32_t distance = 0;
};

class MatchFinder {
 public:
  static constexpr int ways = 4;

  MatchFinder(const std::uint8_t* data, std::size_t size, int hashBits, std::uint32_t maxDistance)
      : data(data),
        size(size),
        shift(32 - hashBits),
        maxDistance(maxDistance),
        table(std::size_t{ways} << hashBits, 0) {}

  /// The longest match at `pos` (needs pos + 8 ≤ size), trying `rep` first.
  Match find(std::size_t pos, std::uint32_t rep) const {
    Match best;
    const std::uint32_t here = load32(data + pos);
    if (rep != 0 && rep <= pos && load32(data + pos - rep) == here)
      best = {4 + common(pos - rep + 4, pos + 4), rep};
    const std::uint32_t* bucket = &table[std::size_t(hash(here)) * ways];
    for (int w = 0; w < ways; ++w) {
      if (bucket[w] == 0) break;
      const std::size_t candidate = bucket[w] - 1;
      const std::size_t distance = pos - candidate;
      if (distance > maxDistance) break;  // older entries are further still
      if (distance == rep || load32(data + candidate) != here) continue;
      const std::uint32_t length = 4 + common(candidate + 4, pos + 4);
      if (length > best.length) best = {length, std::uint32_t(distance)};
    }
    return best;
  }

  void insert(std::size_t pos) {
    std::uint32_t* bucket = &table[std::size_t(hash(load32(data + pos))) * ways];
    for (int w = ways - 1; w > 0; --w) bucket[w] = bucket[w - 1];
    bucket[0] = std::uint32_t(pos + 1);
  }

 private:
  std::uint32_t hash(std::uint32_t v) const { return (v * 2654435761u) >> shift; }

  // Number of equal bytes at a and b (a < b), up to the end of the input.
  std::uint32_t common(std::size_t a, std::size_t b) const {
    if (b >= size) return 0;
    const std::size_t limit = size - b;
    std::size_t n = 0;
    while (n + 8 <= limit) {
      const std::uint64_t diff = load64(data + a + n) ^ load64(data + b + n);
      if (diff != 0) return std::uint32_t(n + (std::countr_zero(diff) >> 3));
      n += 8;
    }
    while (n < limit && data[a + n] == data[b + n]) ++n;
    return std::uint32_t(n);
  }

  const std::uint8_t* data;
  std::size_t size;
  int shift;
  std::uint32_t maxDistance;
  std::vector<std::uint32_t> table;  // position + 1, newest first; 0 = empty
};

// Splits the input into sequences: sink(literals, L, M, D) for L literal bytes
// followed by a match of M bytes at distance D; the last one has M = 0.
template <typename Sink>
void parse(const std::uint8_t* data, std::size_t size, int hashBits, std::uint32_t maxDistance, Sink& sink) {
  MatchFinder finder(data, size, hashBits, maxDistance);
  // Matches start where 8 bytes can be read; positions fit the table's 32 bits.
  const std::size_t limit = std::min<std::size_t>(size >= 8 ? size - 8 : 0, 0xFFFFFF00u);
  std::size_t anchor = 0, pos = 0, inserted = 0;
  std::uint32_t rep = 0;
  const auto findAt = [&](std::size_t p) {
    const Match m = finder.find(p, rep);
    if (p >= inserted) {
      finder.insert(p);
      inserted = p + 1;
    }
    return m;
  };
  while (pos < limit) {
    Match m = findAt(pos);
    if (m.length < minMatch) {
      // Step faster through long literal runs: they are rarely compressible.
      pos += 1 + ((pos - anchor) >> 6);
      continue;
    }
    while (m.length < goodMatch && pos + 1 < limit) {
      const Match next = findAt(pos + 1);
      if (next.length <= m.length) break;
      ++pos;
      m = next;
    }
    sink(data + anchor, pos - anchor, m.length, m.distance);
    rep = m.distance;
    // Index the matched bytes: all of a short match, the ends of a long one.
    const std::size_t end = std::min(pos + m.length, limit);
    std::size_t p = std::max(inserted, pos + 1);
    if (m.length > 64) {
      for (; p < std::min(end, pos + 16); ++p) finder.insert(p);
      p = std::max(p, end >= 16 ? end - 16 : 0);
    }
    for (; p < end; ++p) finder.insert(p);
    inserted = std::max(inserted, end);
    pos += m.length;
    anchor = pos;
  }
  if (anchor < size) sink(data + anchor, size - anchor, 0, 0);
}

// ---------------------------------------------------------------------------
// Entropy coding

// Writes a little-endian bit string; the buffer needs 8 spare bytes.
class ForwardBits {
 public:
  explicit ForwardBits(std::uint8_t* out) : out(out) {}

  void push(int n, std::uint32_t bits) {
    accum |= std::uint64_t(bits) << count;
    count += n;
  }

  void flush() {
    store64(out, accum);
    const int bytes = count >> 3;
    out += bytes;
    accum >>= 8 * bytes;
    count &= 7;
  }

  /// Writes the last partial byte; returns −(unused high bits of it), 0…−7.
  int finish() {
    flush();
    if (count == 0) return 0;
    *out++ = std::uint8_t(accum);
    return count - 8;
  }

  std::uint8_t* position() const { return out; }

 private:
  std::uint8_t* out;
  std::uint64_t accum = 0;
  int count = 0;
};

inline void encodeSymbol(std::uint32_t& state, const EncodeEntry& e, ForwardBits& out) {
  const bool high = std::int32_t(state) >= e.threshold;
  const int n = high ? e.bits : e.bits - 1;
  out.push(n, state & ((1u << n) - 1));
  state = std::uint32_t((high ? e.deltaHigh : e.deltaLow) + std::int32_t(state >> n));
}

// Scales symbol counts to frequencies that sum to `states`, every symbol that
// occurs keeping at least 1, so as to cost the fewest bits: a proportional
// share first, then unit moves where they cost or save the most.
void normalize(const std::uint32_t* counts, int symbols, int states, std::uint16_t* freq) {
  std::uint64_t total = 0;
  for (int s = 0; s < symbols; ++s) total += counts[s];
  int sum = 0;
  for (int s = 0; s < symbols; ++s) {
    if (counts[s] == 0) {
      freq[s] = 0;
      continue;
    }
    const double share = double(counts[s]) * states / double(total);
    freq[s] = std::uint16_t(std::max(1.0, std::floor(share + 0.5)));
    sum += freq[s];
  }
  if (total == 0 || sum == states) return;
  const bool grow = sum < states;
  // Bits a unit move changes for symbol s; the heap keeps the best move on top.
  const auto score = [&](int s) -> double {
    const double f = freq[s];
    if (grow) return counts[s] * std::log2((f + 1) / f);
    return f > 1 ? -counts[s] * std::log2(f / (f - 1)) : -HUGE_VAL;
  };
  std::priority_queue<std::pair<double, int>> moves;
  for (int s = 0; s < symbols; ++s)
    if (counts[s] != 0) moves.emplace(score(s), s);
  while (sum != states) {
    const int s = moves.top().second;
    moves.pop();
    if (grow) {
      ++freq[s];
      ++sum;
    } else {
      --freq[s];
      --sum;
    }
    moves.emplace(score(s), s);
  }
}

// The packed header's code of one frequency (see the decoder): bits and length.
std::pair<std::uint32_t, int> frequencyCode(std::uint32_t value) {
  if (value < 2) return {value << 1, 2};
  if (value < 4) return {1 | (value - 2) << 2, 3};
  if (value < 8) return {3 | (value - 4) << 3, 5};
  if (value < 24) return {7 | (value - 8) << 4, 8};
  return {15 | (value - 24) << 4, 14};
}

// ---------------------------------------------------------------------------
// LZFSE blocks

class LzfseWriter {
 public:
  LzfseWriter(std::vector<std::uint8_t>& out, const std::uint8_t* input) : out(out), blockStart(input) {
    literals.reserve(literalsPerBlock);
    lValues.reserve(matchesPerBlock);
    mValues.reserve(matchesPerBlock);
    dValues.reserve(matchesPerBlock);
  }

  void operator()(const std::uint8_t* lits, std::size_t L, std::size_t M, std::uint32_t D) {
    while (L > maxL) {
      push(lits, maxL, 0, 0);
      lits += maxL;
      L -= maxL;
    }
    while (M > maxM) {
      push(lits, std::uint32_t(L), maxM, D);
      lits += L;
      L = 0;
      M -= maxM;
    }
    if (L > 0 || M > 0) push(lits, std::uint32_t(L), std::uint32_t(M), D);
  }

  void finish() {
    if (blockRaw > 0) flush();
  }

 private:
  void push(const std::uint8_t* lits, std::uint32_t L, std::uint32_t M, std::uint32_t D) {
    // Leave room for the padding of the literals to a multiple of four.
    if (lValues.size() == matchesPerBlock || literals.size() + L > literalsPerBlock - 4) flush();
    lValues.push_back(L);
    mValues.push_back(M);
    if (M == 0 && previousD != 0) {
      dValues.push_back(0);  // no match: keep the previous distance
    } else if (M == 0) {
      // The reference decoder starts every block without a previous distance
      // and checks the distance of each triple, a literal run's too, so the
      // block's first triple may not lean on one. 1 is always in range (L > 0)
      // and becomes the distance later triples repeat.
      dValues.push_back(1);
      previousD = 1;
    } else {
      dValues.push_back(D == previousD ? 0 : D);
      previousD = D;
    }
    literals.insert(literals.end(), lits, lits + L);
    blockRaw += std::size_t(L) + M;
  }

  void flush() {
    const std::size_t size = encodeBlock();
    if (size < blockRaw + 8) {
      out.insert(out.end(), buffer.begin(), buffer.begin() + std::ptrdiff_t(size));
    } else {
      const std::size_t at = out.size();
      out.resize(at + 8);
      store32(out.data() + at, rawMagic);
      store32(out.data() + at + 4, std::uint32_t(blockRaw));
      out.insert(out.end(), blockStart, blockStart + blockRaw);
    }
    blockStart += blockRaw;
    blockRaw = 0;
    previousD = 0;
    literals.clear();
    lValues.clear();
    mValues.clear();
    dValues.clear();
  }

  // Writes the pending block into `buffer` as a packed-header LZFSE block and
  // returns its size.
  std::size_t encodeBlock() {
    while (literals.size() % 4 != 0) literals.push_back(0);
    const std::size_t matches = lValues.size();

    std::array<std::uint32_t, frequencyCount> counts{};
    std::uint32_t* lCount = counts.data();
    std::uint32_t* mCount = lCount + lSymbols;
    std::uint32_t* dCount = mCount + mSymbols;
    std::uint32_t* literalCount = dCount + dSymbols;
    std::vector<std::uint8_t> lSym(matches), mSym(matches), dSym(matches);
    for (std::size_t i = 0; i < matches; ++i) {
      lSym[i] = std::uint8_t(lengthSymbol(lClasses, lValues[i]));
      mSym[i] = std::uint8_t(lengthSymbol(mClasses, mValues[i]));
      dSym[i] = std::uint8_t(distanceSymbol(dValues[i]));
      ++lCount[lSym[i]];
      ++mCount[mSym[i]];
      ++dCount[dSym[i]];
    }
    for (std::uint8_t b : literals) ++literalCount[b];

    std::array<std::uint16_t, frequencyCount> freq{};
    std::uint16_t* lFreq = freq.data();
    std::uint16_t* mFreq = lFreq + lSymbols;
    std::uint16_t* dFreq = mFreq + mSymbols;
    std::uint16_t* literalFreq = dFreq + dSymbols;
    normalize(lCount, lSymbols, lStates, lFreq);
    normalize(mCount, mSymbols, mStates, mFreq);
    normalize(dCount, dSymbols, dStates, dFreq);
    normalize(literalCount, literalSymbols, literalStates, literalFreq);

    std::array<EncodeEntry, lSymbols> lTable;
    std::array<EncodeEntry, mSymbols> mTable;
    std::array<EncodeEntry, dSymbols> dTable;
    std::array<EncodeEntry, literalSymbols> literalTable;
    buildEncodeTable(lStates, lFreq, lSymbols, lTable.data());
    buildEncodeTable(mStates, mFreq, mSymbols, mTable.data());
    buildEncodeTable(dStates, dFreq, dSymbols, dTable.data());
    buildEncodeTable(literalStates, literalFreq, literalSymbols, literalTable.data());

    // Room for the largest block: header, 10 bits per literal, 54 per match.
    buffer.resize(v2FixedHeader + 640 + literals.size() * 10 / 8 + matches * 7 + 64);
    std::uint8_t* const start = buffer.data();

    // Frequency tables, right after the fixed header.
    std::uint8_t* p = start + v2FixedHeader;
    std::uint32_t accum = 0;
    int count = 0;
    for (std::uint16_t f : freq) {
      const auto [bits, length] = frequencyCode(f);
      accum |= bits << count;
      count += length;
      while (count >= 8) {
        *p++ = std::uint8_t(accum);
        accum >>= 8;
        count -= 8;
      }
    }
    if (count > 0) *p++ = std::uint8_t(accum);
    const std::size_t headerSize = std::size_t(p - start);

    // Literals, last to first, so the decoder reads them first to last.
    ForwardBits literalBits(p);
    std::array<std::uint32_t, 4> literalState{};
    for (std::size_t i = literals.size(); i > 0;) {
      i -= 4;
      for (int k = 3; k >= 0; --k) encodeSymbol(literalState[k], literalTable[literals[i + k]], literalBits);
      literalBits.flush();
    }
    const int literalTail = literalBits.finish();
    std::uint8_t* const lmdStart = literalBits.position();
    const std::size_t literalPayload = std::size_t(lmdStart - p);

    // (L, M, D), last to first, after eight bytes of zeros that let a decoder
    // read ahead in whole words without leaving the stream.
    store64(lmdStart, 0);
    ForwardBits lmdBits(lmdStart + 8);
    std::uint32_t lState = 0, mState = 0, dState = 0;
    for (std::size_t i = matches; i-- > 0;) {
      lmdBits.push(dClasses[dSym[i]].bits, dValues[i] - dClasses[dSym[i]].base);
      encodeSymbol(dState, dTable[dSym[i]], lmdBits);
      lmdBits.push(mClasses[mSym[i]].bits, mValues[i] - mClasses[mSym[i]].base);
      encodeSymbol(mState, mTable[mSym[i]], lmdBits);
      lmdBits.push(lClasses[lSym[i]].bits, lValues[i] - lClasses[lSym[i]].base);
      encodeSymbol(lState, lTable[lSym[i]], lmdBits);
      lmdBits.flush();
    }
    const int lmdTail = lmdBits.finish();
    const std::size_t lmdPayload = std::size_t(lmdBits.position() - lmdStart);

    const auto field = [](std::uint64_t v, int offset) { return v << offset; };
    store32(start, v2Magic);
    store32(start + 4, std::uint32_t(blockRaw));
    store64(start + 8, field(literals.size(), 0) | field(literalPayload, 20) | field(matches, 40) |
                           field(std::uint64_t(literalTail + 7), 60));
    store64(start + 16, field(literalState[0], 0) | field(literalState[1], 10) | field(literalState[2], 20) |
                            field(literalState[3], 30) | field(lmdPayload, 40) |
                            field(std::uint64_t(lmdTail + 7), 60));
    store64(start + 24, field(headerSize, 0) | field(lState, 32) | field(mState, 42) | field(dState, 52));
    return headerSize + literalPayload + lmdPayload;
  }

  std::vector<std::uint8_t>& out;
  const std::uint8_t* blockStart;  // input bytes of the pending block
  std::size_t blockRaw = 0;
  std::uint32_t previousD = 0;
  std::vector<std::uint8_t> literals;
  std::vector<std::uint32_t> lValues, mValues, dValues;
  std::vector<std::uint8_t> buffer;
};

// ---------------------------------------------------------------------------
// LZVN byte-code

class LzvnWriter {
 public:
  void operator()(const std::uint8_t* lits, std::size_t L, std::size_t M, std::uint32_t D) {
    if (M == 0) {
      literals(lits, L);
      return;
    }
    // Up to three literals ride in the match opcode; the rest go before it.
    const std::size_t inlined = std::min<std::size_t>(L, 3);
    literals(lits, L - inlined);
    lits += L - inlined;
    const unsigned ll = unsigned(inlined);
    // Longest match each literal count allows in the two-byte opcodes.
    static constexpr unsigned maxShortM[4] = {10, 8, 6, 4};

    std::size_t first = 0;  // match bytes covered by the opcode
    if (D == previousD && ll == 0) {
      first = 0;
    } else if (D == previousD) {
      first = std::min<std::size_t>(M, maxShortM[ll]);
      code.push_back(std::uint8_t(ll << 6 | (first - 3) << 3 | 6));
    } else if (D < 0x600) {
      first = std::min<std::size_t>(M, maxShortM[ll]);
      code.push_back(std::uint8_t(ll << 6 | (first - 3) << 3 | D >> 8));
      code.push_back(std::uint8_t(D));
    } else if (D < 0x4000) {
      first = std::min<std::size_t>(M, 34);
      const unsigned m = unsigned(first - 3);
      code.push_back(std::uint8_t(0xA0 | ll << 3 | m >> 2));
      code.push_back(std::uint8_t((D << 2 | (m & 3)) & 0xFF));
      code.push_back(std::uint8_t(D >> 6));
    } else {
      first = std::min<std::size_t>(M, maxShortM[ll]);
      code.push_back(std::uint8_t(ll << 6 | (first - 3) << 3 | 7));
      code.push_back(std::uint8_t(D));
      code.push_back(std::uint8_t(D >> 8));
    }
    code.insert(code.end(), lits, lits + inlined);
    previousD = D;
    // The rest of the match repeats the distance.
    for (std::size_t rest = M - first; rest > 0;) {
      if (rest < 16) {
        code.push_back(std::uint8_t(0xF0 | rest));
        rest = 0;
      } else {
        const std::size_t n = std::min<std::size_t>(rest, 271);
        code.push_back(0xF0);
        code.push_back(std::uint8_t(n - 16));
        rest -= n;
      }
    }
  }

  std::vector<std::uint8_t> finish() {
    code.push_back(0x06);  // end of stream: opcode and seven bytes of padding
    code.insert(code.end(), 7, 0);
    return std::move(code);
  }

 private:
  void literals(const std::uint8_t* lits, std::size_t L) {
    while (L > 0) {
      std::size_t n;
      if (L < 16) {
        n = L;
        code.push_back(std::uint8_t(0xE0 | n));
      } else {
        n = std::min<std::size_t>(L, 271);
        code.push_back(0xE0);
        code.push_back(std::uint8_t(n - 16));
      }
      code.insert(code.end(), lits, lits + n);
      lits += n;
      L -= n;
    }
  }

  std::vector<std::uint8_t> code;
  std::uint32_t previousD = 0;
};

void appendRawBlock(std::vector<std::uint8_t>& out, const std::uint8_t* data, std::size_t size) {
  const std::size_t at = out.size();
  out.resize(at + 8);
  store32(out.data() + at, rawMagic);
  store32(out.data() + at + 4, std::uint32_t(size));
  out.insert(out.end(), data, data + size);
}

}  // namespace

std::vector<std::uint8_t> encode(const std::uint8_t* data, std::size_t size) {
  std::vector<std::uint8_t> out;
  if (size > 0 && size < 8) {
    appendRawBlock(out, data, size);
  } else if (size > 0 && size < lzvnThreshold) {
    LzvnWriter writer;
    parse(data, size, 12, lzvnMaxDistance, writer);
    const std::vector<std::uint8_t> code = writer.finish();
    if (code.size() + 12 < size + 8) {
      out.resize(12);
      store32(out.data(), lzvnMagic);
      store32(out.data() + 4, std::uint32_t(size));
      store32(out.data() + 8, std::uint32_t(code.size()));
      out.insert(out.end(), code.begin(), code.end());
    } else {
      appendRawBlock(out, data, size);
    }
  } else if (size > 0) {
    out.reserve(size / 4 + 64);
    LzfseWriter writer(out, data);
    parse(data, size, 14, maxD, writer);
    writer.finish();
  }
  const std::size_t at = out.size();
  out.resize(at + 4);
  store32(out.data() + at, endMagic);
  return out;
}

}  // namespace lumivale::lzfse
