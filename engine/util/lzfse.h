#pragma once
// Our own codec for raw LZFSE streams, the compression of stored mask bitmaps.
//
// The streams are the ones the reference LZFSE library reads and writes (no
// container, no checksum): a sequence of blocks ended by an end-of-stream
// block. `decode` reads every block kind (raw, LZVN, LZFSE with plain or packed
// header); `encode` writes LZFSE blocks with a packed header, LZVN for small
// inputs and raw blocks where compression does not pay.
//
// Both functions are pure and thread-safe; they allocate only their result and
// a little scratch.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace lumivale::lzfse {

/// Output cap of `decode` when the caller gives none: 256 MiB.
inline constexpr std::size_t defaultMaxOutput = std::size_t{1} << 28;

/// Decodes a whole raw LZFSE stream. Returns nothing when the stream is
/// malformed in any way (unknown block, truncated block, header fields out of
/// range, a match before the start of the output, literals or matches past the
/// end of their block, an entropy stream that runs dry, no end-of-stream block)
/// or when it would produce more than `maxOutput` bytes. Never reads outside
/// [data, data + size) and stops after at most one pass over the input.
std::optional<std::vector<std::uint8_t>> decode(const std::uint8_t* data, std::size_t size,
                                                std::size_t maxOutput = defaultMaxOutput);

inline std::optional<std::vector<std::uint8_t>> decode(std::span<const std::uint8_t> data,
                                                       std::size_t maxOutput = defaultMaxOutput) {
  return decode(data.data(), data.size(), maxOutput);
}

/// Encodes bytes as a raw LZFSE stream that any conforming decoder reads back:
/// inputs under 8 bytes as one raw block, inputs under 4 KiB as one LZVN block
/// (or raw, whichever is smaller), longer inputs as LZFSE blocks of at most
/// 10,000 matches and 40,000 literals each (a block that would not shrink is
/// written raw). Always ends with the end-of-stream block.
std::vector<std::uint8_t> encode(const std::uint8_t* data, std::size_t size);

inline std::vector<std::uint8_t> encode(std::span<const std::uint8_t> data) {
  return encode(data.data(), data.size());
}

}  // namespace lumivale::lzfse
