#include "diagnostics/self_test.h"

#include <gtest/gtest.h>

#include <sstream>

using namespace lumivale::diagnostics;

// The checks themselves run as their own test (lumivale --selftest); this is
// the runner that reports them.
TEST(SelfTestRunner, ReportsEachCheckAndFailsWhenAnyFails) {
  int ran = 0;
  const std::vector<SelfCheck> checks = {
      {"passes", [&] { ++ran; }},
      {"differs", [&] { ++ran, throw CheckFailure("2 instead of 1"); }},
      {"lacks a model", [&] { ++ran, throw CheckSkipped("no model here"); }},
      {"engine error", [&] { ++ran, throw std::runtime_error("cannot read \"x\""); }},
      {"odd throw", [&] { ++ran, throw 42; }},
      {"passes too", [&] { ++ran; }},
  };
  std::ostringstream out;
  const SelfTestSummary summary = runChecks(checks, out);
  EXPECT_EQ(ran, 6);
  EXPECT_EQ(out.str(),
            "PASS passes\n"
            "FAIL differs: 2 instead of 1\n"
            "SKIP lacks a model: no model here\n"
            "FAIL engine error: cannot read \"x\"\n"
            "FAIL odd throw: an unknown exception\n"
            "PASS passes too\n"
            "2 passed, 3 failed, 1 skipped\n");
  EXPECT_EQ(summary.exitStatus(), 1);
}

TEST(SelfTestRunner, PassesWhenOnlySkipsAndPassesAreLeft) {
  std::ostringstream out;
  const auto summary = runChecks({{"a", [] {}}, {"b", [] { throw CheckSkipped("absent"); }}}, out);
  EXPECT_EQ(summary.exitStatus(), 0);
  EXPECT_EQ(out.str(), "PASS a\nSKIP b: absent\n1 passed, 0 failed, 1 skipped\n");
  std::ostringstream none;
  EXPECT_EQ(runChecks({}, none).exitStatus(), 0);
  EXPECT_EQ(none.str(), "0 passed, 0 failed\n");
}
