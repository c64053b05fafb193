#include "engine/util/natural_order.h"

#include <unicode/ucol.h>

#include <memory>

namespace lumivale {
namespace {

struct CollatorClose {
  void operator()(UCollator* c) const { ucol_close(c); }
};
using Collator = std::unique_ptr<UCollator, CollatorClose>;

// The root collation of the Unicode algorithm with digit runs read as
// numbers: punctuation before digits before letters ("_a" before "1a"
// before "a"), accented letters beside their base letter. Empty when ICU
// cannot open it (its data missing).
Collator openCollator(UCollationStrength strength) {
  UErrorCode status = U_ZERO_ERROR;
  Collator c(ucol_open("", &status));
  if (U_FAILURE(status)) return {};
  ucol_setAttribute(c.get(), UCOL_NUMERIC_COLLATION, UCOL_ON, &status);
  ucol_setStrength(c.get(), strength);
  return U_SUCCESS(status) ? std::move(c) : Collator();
}

// Collators are not safe to share between threads, so each thread opens its
// own: one that ignores case (secondary strength), one that does not.
UCollator* collator(UCollationStrength strength) {
  thread_local const Collator secondary = openCollator(UCOL_SECONDARY);
  thread_local const Collator tertiary = openCollator(UCOL_TERTIARY);
  return strength == UCOL_TERTIARY ? tertiary.get() : secondary.get();
}

int sign(int v) { return (v > 0) - (v < 0); }

int compareWith(UCollationStrength strength, std::string_view a, std::string_view b) {
  UCollator* c = collator(strength);
  if (c == nullptr) return sign(a.compare(b));
  UErrorCode status = U_ZERO_ERROR;
  // Text that is not valid UTF-8 compares with U+FFFD in place of the bad bytes.
  const UCollationResult r = ucol_strcollUTF8(c, a.data(), static_cast<int32_t>(a.size()), b.data(),
                                              static_cast<int32_t>(b.size()), &status);
  if (U_FAILURE(status)) return sign(a.compare(b));
  return r == UCOL_LESS ? -1 : r == UCOL_GREATER ? 1 : 0;
}

}  // namespace

int naturalCompare(std::string_view a, std::string_view b) { return compareWith(UCOL_SECONDARY, a, b); }

bool naturalLess(std::string_view a, std::string_view b) {
  if (int c = naturalCompare(a, b); c != 0) return c < 0;
  if (int c = compareWith(UCOL_TERTIARY, a, b); c != 0) return c < 0;
  return a < b;
}

}  // namespace lumivale
