#include "engine/util/natural_order.h"

namespace lumivale {
namespace {

bool isDigit(char c) { return c >= '0' && c <= '9'; }

unsigned char folded(char c) {
  if (c >= 'A' && c <= 'Z') return static_cast<unsigned char>(c - 'A' + 'a');
  return static_cast<unsigned char>(c);
}

}  // namespace

int naturalCompare(std::string_view a, std::string_view b) {
  std::size_t i = 0, j = 0;
  while (i < a.size() && j < b.size()) {
    if (isDigit(a[i]) && isDigit(b[j])) {
      // Compare the two digit runs as numbers of any length: without their
      // leading zeros, a longer run is larger, equal lengths compare digit
      // by digit.
      std::size_t endA = i, endB = j;
      while (endA < a.size() && isDigit(a[endA])) ++endA;
      while (endB < b.size() && isDigit(b[endB])) ++endB;
      while (i + 1 < endA && a[i] == '0') ++i;
      while (j + 1 < endB && b[j] == '0') ++j;
      std::size_t lengthA = endA - i, lengthB = endB - j;
      if (lengthA != lengthB) return lengthA < lengthB ? -1 : 1;
      if (int c = a.substr(i, lengthA).compare(b.substr(j, lengthB)); c != 0) return c < 0 ? -1 : 1;
      i = endA;
      j = endB;
      continue;
    }
    unsigned char ca = folded(a[i]), cb = folded(b[j]);
    if (ca != cb) return ca < cb ? -1 : 1;
    ++i;
    ++j;
  }
  if (i < a.size()) return 1;
  if (j < b.size()) return -1;
  return 0;
}

bool naturalLess(std::string_view a, std::string_view b) {
  int c = naturalCompare(a, b);
  return c != 0 ? c < 0 : a < b;
}

}  // namespace lumivale
