// Decoding of raw LZFSE streams.
//
// Safety model: every length, distance and count read from the stream is
// checked against the bytes actually present before it is used. The output
// vector is sized before a block is decoded (block size checked against the
// caller's cap first) and carries `slack` spare bytes past the block, so the
// copy loops may move whole 8- or 16-byte words; the literal buffer has the
// same kind of spare room. Entropy streams are read backwards and never below
// their first byte. Every loop is bounded by a count from a checked header.

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>

#include "engine/util/lzfse.h"
#include "engine/util/lzfse_format.h"

namespace lumivale::lzfse {
namespace {

using namespace format;

constexpr std::size_t slack = 32;

// Reads a bit string backwards: the last bits written come out first.
// `accum` holds the next `count` bits in its low bits (anything above is
// stale and masked off by `pull`).
class BackwardBits {
 public:
  /// [begin, end) is the stream; `tailBits` (−7…0) tells how many high bits of
  /// its last byte are unused: they must be zero.
  bool init(const std::uint8_t* begin, const std::uint8_t* end, int tailBits) {
    first = begin;
    pos = end;
    accum = 0;
    count = 0;
    if (tailBits < -7 || tailBits > 0) return false;
    if (begin == end) return tailBits == 0;
    const std::uint8_t last = *--pos;
    const int valid = 8 + tailBits;
    if (valid < 8 && (last >> valid) != 0) return false;
    accum = last;
    count = valid;
    refill();
    return true;
  }

  /// Tops the accumulator up to at least 56 bits, or to all that is left.
  void refill() {
    if (pos - first >= 8) {
      const int bytes = (63 - count) >> 3;
      if (bytes > 0) {
        const std::uint64_t word = load64(pos - 8);
        pos -= bytes;
        accum = (accum << (8 * bytes)) | (word >> (64 - 8 * bytes));
        count += 8 * bytes;
      }
    } else {
      while (count <= 55 && pos > first) {
        accum = (accum << 8) | *--pos;
        count += 8;
      }
    }
  }

  int available() const { return count; }

  /// The next n bits (n ≤ 32, n ≤ available()).
  std::uint32_t pull(int n) {
    count -= n;
    return std::uint32_t((accum >> count) & ((std::uint64_t{1} << n) - 1));
  }

 private:
  const std::uint8_t* first = nullptr;
  const std::uint8_t* pos = nullptr;
  std::uint64_t accum = 0;
  int count = 0;
};

struct BlockHeader {
  std::uint32_t rawBytes = 0;
  std::uint32_t literals = 0;
  std::uint32_t matches = 0;
  std::uint32_t literalPayload = 0;
  std::uint32_t lmdPayload = 0;
  int literalBits = 0;
  int lmdBits = 0;
  std::array<std::uint32_t, 4> literalState{};
  std::uint32_t lState = 0;
  std::uint32_t mState = 0;
  std::uint32_t dState = 0;
  std::array<std::uint16_t, frequencyCount> freq{};
  std::size_t headerSize = 0;
};

// One frequency of the packed header from the low bits of `bits`: a prefix
// code read from the least significant bit, 2 to 14 bits long.
std::uint32_t frequencyCode(std::uint32_t bits, int& length) {
  if ((bits & 1) == 0) {
    length = 2;
    return (bits >> 1) & 1;
  }
  if ((bits & 2) == 0) {
    length = 3;
    return 2 + ((bits >> 2) & 1);
  }
  if ((bits & 4) == 0) {
    length = 5;
    return 4 + ((bits >> 3) & 3);
  }
  if ((bits & 8) == 0) {
    length = 8;
    return 8 + ((bits >> 4) & 15);
  }
  length = 14;
  return 24 + ((bits >> 4) & 1023);
}

bool readPackedFrequencies(const std::uint8_t* p, const std::uint8_t* end, std::uint16_t* freq) {
  if (p == end) return true;  // no tables: every frequency is zero
  std::uint32_t accum = 0;
  int count = 0;
  for (int i = 0; i < frequencyCount; ++i) {
    while (p < end && count <= 24) {
      accum |= std::uint32_t(*p++) << count;
      count += 8;
    }
    int length = 0;
    const std::uint32_t value = frequencyCode(accum, length);
    if (length > count) return false;
    freq[i] = std::uint16_t(value);
    accum >>= length;
    count -= length;
  }
  // The table must end in its last byte.
  return p == end && count < 8;
}

bool checkCounts(const BlockHeader& h) {
  if (h.literals > literalsPerBlock || h.matches > matchesPerBlock) return false;
  for (std::uint32_t s : h.literalState)
    if (s >= std::uint32_t(literalStates)) return false;
  if (h.lState >= std::uint32_t(lStates) || h.mState >= std::uint32_t(mStates) ||
      h.dState >= std::uint32_t(dStates))
    return false;
  if (h.literalBits < -7 || h.literalBits > 0 || h.lmdBits < -7 || h.lmdBits > 0) return false;
  // A block cannot produce more than its literals and longest matches. Nor
  // does it carry more literals (but for the padding to a multiple of four) or
  // triples than bytes it produces: this bounds the work of a block by its
  // output, which the caller caps.
  return std::uint64_t(h.rawBytes) <= std::uint64_t(h.literals) + std::uint64_t(h.matches) * maxM &&
         h.literals <= std::uint64_t(h.rawBytes) + 3 && h.matches <= h.rawBytes;
}

std::optional<BlockHeader> readV1Header(const std::uint8_t* p, std::size_t available) {
  if (available < v1Header) return std::nullopt;
  BlockHeader h;
  h.rawBytes = load32(p + 4);
  h.literals = load32(p + 12);
  h.matches = load32(p + 16);
  h.literalPayload = load32(p + 20);
  h.lmdPayload = load32(p + 24);
  h.literalBits = std::int32_t(load32(p + 28));
  for (int i = 0; i < 4; ++i) h.literalState[i] = std::uint32_t(p[32 + 2 * i] | p[33 + 2 * i] << 8);
  h.lmdBits = std::int32_t(load32(p + 40));
  h.lState = std::uint32_t(p[44] | p[45] << 8);
  h.mState = std::uint32_t(p[46] | p[47] << 8);
  h.dState = std::uint32_t(p[48] | p[49] << 8);
  for (int i = 0; i < frequencyCount; ++i) h.freq[i] = std::uint16_t(p[50 + 2 * i] | p[51 + 2 * i] << 8);
  h.headerSize = v1Header;
  if (!checkCounts(h)) return std::nullopt;
  return h;
}

std::optional<BlockHeader> readV2Header(const std::uint8_t* p, std::size_t available) {
  if (available < v2FixedHeader) return std::nullopt;
  const std::uint64_t f0 = load64(p + 8);
  const std::uint64_t f1 = load64(p + 16);
  const std::uint64_t f2 = load64(p + 24);
  const auto field = [](std::uint64_t v, int offset, int bits) {
    return std::uint32_t((v >> offset) & ((std::uint64_t{1} << bits) - 1));
  };
  BlockHeader h;
  h.rawBytes = load32(p + 4);
  h.literals = field(f0, 0, 20);
  h.literalPayload = field(f0, 20, 20);
  h.matches = field(f0, 40, 20);
  h.literalBits = int(field(f0, 60, 3)) - 7;
  for (int i = 0; i < 4; ++i) h.literalState[i] = field(f1, 10 * i, 10);
  h.lmdPayload = field(f1, 40, 20);
  h.lmdBits = int(field(f1, 60, 3)) - 7;
  h.headerSize = field(f2, 0, 32);
  h.lState = field(f2, 32, 10);
  h.mState = field(f2, 42, 10);
  h.dState = field(f2, 52, 10);
  if (h.headerSize < v2FixedHeader || h.headerSize > available) return std::nullopt;
  if (!readPackedFrequencies(p + v2FixedHeader, p + h.headerSize, h.freq.data())) return std::nullopt;
  if (!checkCounts(h)) return std::nullopt;
  return h;
}

// Copies `length` bytes from `distance` bytes back (1 ≤ distance ≤ bytes
// already written). May write up to 15 bytes past the end: the caller keeps
// `slack` spare bytes there.
inline void copyMatch(std::uint8_t* dst, std::size_t distance, std::size_t length) {
  const std::uint8_t* src = dst - distance;
  if (distance >= 16) {
    for (std::size_t i = 0; i < length; i += 16) std::memcpy(dst + i, src + i, 16);
  } else if (distance >= 8) {
    for (std::size_t i = 0; i < length; i += 8) std::memcpy(dst + i, src + i, 8);
  } else if (distance == 1) {
    std::memset(dst, src[0], length);
  } else {
    // A short period: copy the first eight bytes one by one, then whole words
    // from a whole number of periods back (at least eight bytes).
    const std::size_t head = std::min<std::size_t>(length, 8);
    for (std::size_t i = 0; i < head; ++i) dst[i] = src[i];
    const std::size_t period = distance * ((8 + distance - 1) / distance);
    for (std::size_t i = 8; i < length; i += 8) std::memcpy(dst + i, dst + i - period, 8);
  }
}

struct Scratch {
  std::array<SymbolEntry, literalStates> literalTable;
  std::array<ValueEntry, lStates> lTable;
  std::array<ValueEntry, mStates> mTable;
  std::array<ValueEntry, dStates> dTable;
  std::array<std::uint8_t, literalsPerBlock + 64> literals;
};

template <std::size_t States, std::size_t Symbols>
bool buildValueTable(const std::uint16_t* freq, const std::array<ValueClass, Symbols>& classes,
                     std::array<ValueEntry, States>& table) {
  table.fill(ValueEntry{});
  return forEachState(int(States), freq, int(Symbols), [&](int state, int symbol, int bits, int delta) {
    const ValueClass c = classes[symbol];
    table[state] = {std::uint8_t(bits + c.bits), c.bits, std::uint16_t(delta), c.base};
  });
}

template <bool Checked, std::size_t States>
inline bool decodeValue(const std::array<ValueEntry, States>& table, std::uint32_t& state, BackwardBits& in,
                        std::uint32_t& value) {
  const ValueEntry e = table[state];
  if (Checked && e.totalBits > in.available()) return false;
  const std::uint32_t b = in.pull(e.totalBits);
  state = e.delta + (b >> e.valueBits);
  value = e.base + (b & ((1u << e.valueBits) - 1));
  return true;
}

template <bool Checked>
inline bool decodeLiteral(const std::array<SymbolEntry, literalStates>& table, std::uint32_t& state,
                          BackwardBits& in, std::uint8_t& out) {
  const SymbolEntry e = table[state];
  if (Checked && e.bits > in.available()) return false;
  state = e.delta + in.pull(e.bits);
  out = e.symbol;
  return true;
}

// Decodes one LZFSE block whose payload starts at `payload` into [dst,
// dst + h.rawBytes); `outBegin` is the start of the whole output.
bool decodeLzfseBlock(const BlockHeader& h, const std::uint8_t* payload, Scratch& s,
                      const std::uint8_t* outBegin, std::uint8_t* dst) {
  const std::uint16_t* lFreq = h.freq.data();
  const std::uint16_t* mFreq = lFreq + lSymbols;
  const std::uint16_t* dFreq = mFreq + mSymbols;
  const std::uint16_t* literalFreq = dFreq + dSymbols;

  s.literalTable.fill(SymbolEntry{});
  const bool tablesOk =
      forEachState(literalStates, literalFreq, literalSymbols,
                   [&](int state, int symbol, int bits, int delta) {
                     s.literalTable[state] = {std::uint8_t(bits), std::uint8_t(symbol), std::uint16_t(delta)};
                   }) &&
      buildValueTable(lFreq, lClasses, s.lTable) && buildValueTable(mFreq, mClasses, s.mTable) &&
      buildValueTable(dFreq, dClasses, s.dTable);
  if (!tablesOk) return false;

  // Literals: four interleaved coders, literal i from coder i mod 4.
  BackwardBits in;
  if (!in.init(payload, payload + h.literalPayload, h.literalBits)) return false;
  std::array<std::uint32_t, 4> state = h.literalState;
  const std::uint32_t literalCount = (h.literals + 3) & ~3u;
  std::uint8_t* lit = s.literals.data();
  for (std::uint32_t i = 0; i < literalCount; i += 4) {
    in.refill();
    if (in.available() >= 4 * 10) {
      for (int k = 0; k < 4; ++k) decodeLiteral<false>(s.literalTable, state[k], in, lit[i + k]);
    } else {
      for (int k = 0; k < 4; ++k)
        if (!decodeLiteral<true>(s.literalTable, state[k], in, lit[i + k])) return false;
    }
  }

  // (L, M, D) triples, executed as they are decoded.
  if (!in.init(payload + h.literalPayload, payload + h.literalPayload + h.lmdPayload, h.lmdBits))
    return false;
  std::uint32_t lState = h.lState, mState = h.mState, dState = h.dState;
  const std::uint8_t* litEnd = lit + h.literals;
  std::uint8_t* const blockEnd = dst + h.rawBytes;
  std::size_t distance = 0;
  for (std::uint32_t i = 0; i < h.matches; ++i) {
    in.refill();
    std::uint32_t L = 0, M = 0, D = 0;
    if (in.available() >= 14 + 17 + 23) {
      decodeValue<false>(s.lTable, lState, in, L);
      decodeValue<false>(s.mTable, mState, in, M);
      decodeValue<false>(s.dTable, dState, in, D);
    } else if (!decodeValue<true>(s.lTable, lState, in, L) || !decodeValue<true>(s.mTable, mState, in, M) ||
               !decodeValue<true>(s.dTable, dState, in, D)) {
      return false;
    }
    // A block starts without a distance to repeat, and every triple, a bare
    // literal run too, must hold one that stays within the output: streams
    // that break this are refused by other decoders, so they are not ours.
    if (D != 0) distance = D;
    if (L > std::size_t(litEnd - lit) || std::size_t(L) + M > std::size_t(blockEnd - dst)) return false;
    if (distance == 0 || distance > std::size_t(dst - outBegin) + L) return false;
    for (std::uint32_t k = 0; k < L; k += 16) std::memcpy(dst + k, lit + k, 16);
    dst += L;
    lit += L;
    if (M != 0) {
      copyMatch(dst, distance, M);
      dst += M;
    }
  }
  return dst == blockEnd;
}

enum class Op : std::uint8_t {
  smallD,
  mediumD,
  largeD,
  previousD,
  smallM,
  largeM,
  smallL,
  largeL,
  nop,
  eos,
  undefined
};

constexpr Op classify(unsigned op) {
  if (op == 0x06) return Op::eos;
  if (op == 0x0E || op == 0x16) return Op::nop;
  if (op >= 0xF0) return op == 0xF0 ? Op::largeM : Op::smallM;
  if (op >= 0xE0) return op == 0xE0 ? Op::largeL : Op::smallL;
  if (op >= 0xA0 && op < 0xC0) return Op::mediumD;
  if ((op >= 0x70 && op < 0x80) || (op >= 0xD0 && op < 0xE0)) return Op::undefined;
  if ((op & 7) == 7) return Op::largeD;
  if ((op & 7) == 6) return op < 0x40 ? Op::undefined : Op::previousD;
  return Op::smallD;
}

constexpr std::array<Op, 256> opTable = [] {
  std::array<Op, 256> table{};
  for (unsigned op = 0; op < 256; ++op) table[op] = classify(op);
  return table;
}();

// Decodes one LZVN block's byte-code [src, srcEnd) into [dst, blockEnd).
bool decodeLzvnBlock(const std::uint8_t* src, const std::uint8_t* srcEnd, const std::uint8_t* outBegin,
                     std::uint8_t* dst, std::uint8_t* blockEnd) {
  std::size_t distance = 0;
  while (src < srcEnd) {
    const unsigned op = *src;
    const std::size_t left = std::size_t(srcEnd - src);
    std::size_t L = 0, M = 0;
    switch (opTable[op]) {
      case Op::smallD:
        if (left < 2) return false;
        L = op >> 6;
        M = 3 + ((op >> 3) & 7);
        distance = (op & 7) << 8 | src[1];
        src += 2;
        break;
      case Op::mediumD: {
        if (left < 3) return false;
        const unsigned v = src[1] | src[2] << 8;
        L = (op >> 3) & 3;
        M = 3 + ((op & 7) << 2 | (v & 3));
        distance = v >> 2;
        src += 3;
        break;
      }
      case Op::largeD:
        if (left < 3) return false;
        L = op >> 6;
        M = 3 + ((op >> 3) & 7);
        distance = src[1] | src[2] << 8;
        src += 3;
        break;
      case Op::previousD:
        L = op >> 6;
        M = 3 + ((op >> 3) & 7);
        src += 1;
        break;
      case Op::smallM:
        M = op & 15;
        src += 1;
        break;
      case Op::largeM:
        if (left < 2) return false;
        M = 16 + src[1];
        src += 2;
        break;
      case Op::smallL:
        L = op & 15;
        src += 1;
        break;
      case Op::largeL:
        if (left < 2) return false;
        L = 16 + src[1];
        src += 2;
        break;
      case Op::nop:
        src += 1;
        continue;
      case Op::eos:
        // The end marker is the opcode and seven bytes of padding.
        return left >= 8 && dst == blockEnd;
      case Op::undefined:
        return false;
    }
    if (L > std::size_t(srcEnd - src) || L + M > std::size_t(blockEnd - dst)) return false;
    std::memcpy(dst, src, L);
    src += L;
    dst += L;
    if (M != 0) {
      if (distance == 0 || distance > std::size_t(dst - outBegin)) return false;
      copyMatch(dst, distance, M);
      dst += M;
    }
  }
  return false;  // no end marker
}

}  // namespace

std::optional<std::vector<std::uint8_t>> decode(const std::uint8_t* data, std::size_t size,
                                                std::size_t maxOutput) {
  if (data == nullptr) size = 0;
  std::vector<std::uint8_t> out;
  // Reserving a likely size saves most copies of a growing vector; a cap set
  // to the expected size, as for a mask, makes it exact.
  out.reserve(std::min<std::size_t>(maxOutput, size * 32 + 65536) + slack);
  std::size_t produced = 0;
  std::unique_ptr<Scratch> scratch;
  const std::uint8_t* p = data;
  const std::uint8_t* const end = data + size;

  // Makes room for a block of n bytes (plus slack) at the end of the output.
  const auto reserveBlock = [&](std::uint64_t n) {
    if (n > maxOutput - produced) return false;
    if (out.size() < produced + n + slack) out.resize(produced + std::size_t(n) + slack);
    return true;
  };

  while (true) {
    if (end - p < 4) return std::nullopt;
    const std::uint32_t magic = load32(p);
    const std::size_t available = std::size_t(end - p);
    if (magic == endMagic) {
      out.resize(produced);
      return out;
    }
    if (magic == rawMagic) {
      if (available < 8) return std::nullopt;
      const std::uint32_t n = load32(p + 4);
      if (n > available - 8 || !reserveBlock(n)) return std::nullopt;
      std::memcpy(out.data() + produced, p + 8, n);
      produced += n;
      p += 8 + std::size_t(n);
    } else if (magic == lzvnMagic) {
      if (available < 12) return std::nullopt;
      const std::uint32_t raw = load32(p + 4);
      const std::uint32_t payload = load32(p + 8);
      // One byte of byte-code yields at most 271 / 2 bytes of output.
      if (payload > available - 12 || std::uint64_t(raw) > std::uint64_t(payload) * 136 || !reserveBlock(raw))
        return std::nullopt;
      if (!decodeLzvnBlock(p + 12, p + 12 + payload, out.data(), out.data() + produced,
                           out.data() + produced + raw))
        return std::nullopt;
      produced += raw;
      p += 12 + std::size_t(payload);
    } else if (magic == v1Magic || magic == v2Magic) {
      const auto header = magic == v1Magic ? readV1Header(p, available) : readV2Header(p, available);
      if (!header) return std::nullopt;
      const std::uint64_t blockSize =
          std::uint64_t(header->headerSize) + header->literalPayload + header->lmdPayload;
      if (blockSize > available || !reserveBlock(header->rawBytes)) return std::nullopt;
      if (!scratch) scratch = std::make_unique<Scratch>();
      if (!decodeLzfseBlock(*header, p + header->headerSize, *scratch, out.data(), out.data() + produced))
        return std::nullopt;
      produced += header->rawBytes;
      p += blockSize;
    } else {
      return std::nullopt;
    }
  }
}

}  // namespace lumivale::lzfse
