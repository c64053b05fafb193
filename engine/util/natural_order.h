#pragma once
// The order a file browser shows names in: the Unicode collation of the root
// locale, letters compared without regard to case, runs of digits compared by
// their numeric value (IMG_2 before IMG_10), punctuation before digits before
// letters, accented letters beside their base letters.

#include <string_view>

namespace lumivale {

/// Negative, zero or positive as `a` sorts before, with or after `b` in the
/// file browser's order. Zero also for texts that differ only in letter case
/// or leading zeros; `naturalLess` breaks those ties. Safe from any thread.
int naturalCompare(std::string_view a, std::string_view b);

/// A strict total order: `naturalCompare`, ties broken by letter case
/// (lower case first), then by plain byte order, so sorting is deterministic.
bool naturalLess(std::string_view a, std::string_view b);

}  // namespace lumivale
