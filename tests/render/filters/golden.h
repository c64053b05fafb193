#pragma once
// Golden images of the filter tests: files written by
// tests/data/golden/make_goldens.py (their layout is described there), and
// the comparison of a result with one under three named limits.

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "engine/media/image.h"

namespace lumivale::test {

/// How far a result may stray from its golden. A channel's error is
/// |got − want| / max(1, |want|); NaN must meet NaN and an infinity the
/// same infinity, or the error is infinite.
struct Tolerance {
  double channel = 0;  ///< an error up to this does not count
  double share = 0;    ///< the fraction of pixels that may have a channel above `channel`
  double hard = 0;     ///< no channel's error may exceed this
};

struct Golden {
  std::vector<double> params;
  std::vector<FloatPixels> inputs;
  FloatPixels expected;
};

/// The folder of the goldens and the command that writes them.
std::string goldenFolder();
inline constexpr const char* goldenCommand = "/usr/bin/python3 tests/data/golden/make_goldens.py";

/// Reads `<goldenFolder()>/<name>.lvg`; nothing when it is missing or malformed.
std::optional<Golden> loadGolden(const std::string& name);

/// Success when `got` has `want`'s size and stays within `tolerance`.
::testing::AssertionResult matchesGolden(const FloatPixels& got, const FloatPixels& want,
                                         const Tolerance& tolerance);

}  // namespace lumivale::test
