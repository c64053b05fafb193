#pragma once
// The built-in self-test: checks of the engine's real code on pictures and
// files it makes itself (in memory and in a temporary folder of its own), so
// that a user or a packager can see whether this build works on this
// computer without any photo.
//
// Each check prints one line as it ends, "PASS name", "FAIL name: what
// differed" or "SKIP name: why" (for something this computer lacks, which is
// not a failure), and the run ends with "N passed, N failed".

#include <functional>
#include <iosfwd>
#include <stdexcept>
#include <string>
#include <vector>

namespace lumivale::diagnostics {

/// Thrown by a check that found something other than it expected; the
/// message says what differed.
class CheckFailure : public std::runtime_error {
 public:
  explicit CheckFailure(const std::string& what) : std::runtime_error(what) {}
};

/// Thrown by a check that cannot run on this computer; the message says why.
class CheckSkipped : public std::runtime_error {
 public:
  explicit CheckSkipped(const std::string& why) : std::runtime_error(why) {}
};

/// One named check. It passes by returning, fails by throwing CheckFailure
/// (or anything else: an exception from the engine fails the check with its
/// message), and is skipped by throwing CheckSkipped.
struct SelfCheck {
  std::string name;
  std::function<void()> run;
};

struct SelfTestSummary {
  int passed = 0;
  int failed = 0;
  int skipped = 0;
  /// The process exit status: 0 only when nothing failed.
  int exitStatus() const { return failed == 0 ? 0 : 1; }
};

/// Runs `checks` in order, printing each one's line to `out` as it ends and
/// then the summary line. A check that fails does not stop the others.
SelfTestSummary runChecks(const std::vector<SelfCheck>& checks, std::ostream& out);

/// The self-test: every built-in check, with the summary. Returns the exit
/// status. Never throws; a temporary folder that cannot be made fails the
/// checks that need it.
int runSelfTest(std::ostream& out);

}  // namespace lumivale::diagnostics
