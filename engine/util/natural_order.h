#pragma once
// The order a file browser shows names in: letters compared without regard to
// case, runs of digits compared by their numeric value (IMG_2 before IMG_10).

#include <string_view>

namespace lumivale {

/// Negative, zero or positive as `a` sorts before, with or after `b` in the
/// file browser's order. Zero also for texts that differ only in letter case
/// or leading zeros; `naturalLess` breaks those ties.
int naturalCompare(std::string_view a, std::string_view b);

/// A strict total order: `naturalCompare`, ties broken by plain byte order
/// so that sorting is deterministic.
bool naturalLess(std::string_view a, std::string_view b);

}  // namespace lumivale
