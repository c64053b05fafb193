#include "engine/edit/uuid.h"

#include <cstdint>
#include <random>

namespace lumivale {

std::string newUUID() {
  // One generator per thread, seeded from the system's entropy source, so
  // threads never share state and never repeat each other's sequence.
  thread_local std::mt19937_64 generator = [] {
    std::random_device device;
    std::seed_seq seed{device(), device(), device(), device(), device(), device(), device(), device()};
    return std::mt19937_64(seed);
  }();
  std::uint64_t high = generator();
  std::uint64_t low = generator();
  high = (high & ~0xF000ull) | 0x4000ull;                       // version 4
  low = (low & 0x3FFFFFFFFFFFFFFFull) | 0x8000000000000000ull;  // variant 10xx

  static constexpr char hex[] = "0123456789ABCDEF";
  std::string text;
  text.reserve(36);
  auto put = [&](std::uint64_t word, int fromNibble, int count) {
    for (int i = 0; i < count; ++i) text += hex[(word >> (4 * (fromNibble - i))) & 0xF];
  };
  put(high, 15, 8);
  text += '-';
  put(high, 7, 4);
  text += '-';
  put(high, 3, 4);
  text += '-';
  put(low, 15, 4);
  text += '-';
  put(low, 11, 12);
  return text;
}

}  // namespace lumivale
