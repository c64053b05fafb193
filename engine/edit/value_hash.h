#pragma once
// A small incremental hasher for the value records of the edit model.
//
// Records are fed field by field in declaration order. What must stay true:
// equal records hash alike. Doubles compare by value, so a zero is always fed
// as the bit pattern of +0 (−0 == +0); NaN never equals anything, so how it
// hashes does not matter.

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace lumivale {

class Hasher {
 public:
  void add(std::uint64_t v) {
    // splitmix64 finaliser over the running state: every input bit reaches
    // every output bit, so nearby values (0 and 1, 0.5 and 0.25) spread well.
    std::uint64_t z = state + 0x9E3779B97F4A7C15ull + v;
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    state = z ^ (z >> 31);
  }
  void add(std::int64_t v) { add(static_cast<std::uint64_t>(v)); }
  void add(bool v) { add(std::uint64_t{v ? 1u : 0u}); }
  void add(double v) { add(v == 0.0 ? std::uint64_t{0} : std::bit_cast<std::uint64_t>(v)); }

  /// Feeds the length, then the bytes in 8-byte words.
  void add(std::string_view bytes) {
    add(static_cast<std::uint64_t>(bytes.size()));
    std::size_t i = 0;
    for (; i + 8 <= bytes.size(); i += 8) {
      std::uint64_t word;
      std::memcpy(&word, bytes.data() + i, 8);
      add(word);
    }
    if (i < bytes.size()) {
      std::uint64_t word = 0;
      std::memcpy(&word, bytes.data() + i, bytes.size() - i);
      add(word);
    }
  }

  /// Feeds an element count (for arrays).
  void addCount(std::size_t count) { add(static_cast<std::uint64_t>(count)); }

  std::size_t value() const { return static_cast<std::size_t>(state); }

 private:
  std::uint64_t state = 0;
};

}  // namespace lumivale
