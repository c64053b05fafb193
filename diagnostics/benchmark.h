#pragma once
// The built-in benchmark: how fast this build is on this computer, on
// synthetic pictures sized like real photos (a 24-megapixel frame and an
// 1800-pixel preview) and a catalog of 100,000 photos, all made in a
// temporary folder of its own. Each line is the median of several runs, so
// that one slow run (another program waking up) does not decide it.

#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

namespace lumivale::diagnostics {

struct BenchmarkOptions {
  int fullWidth = 6000;  ///< the photo frame: 24 megapixels
  int fullHeight = 4000;
  int previewSide = 1800;     ///< long side of the Develop preview
  int catalogRows = 100'000;  ///< photos in the queried catalog
  int runs = 5;               ///< runs of a line that takes well under a second
  int slowRuns = 3;           ///< runs of a line that takes a second or more
};

/// One measured line.
struct BenchmarkLine {
  std::string name;
  std::string input;                   ///< what it ran on: "1800 × 1200", "100000 rows"
  std::vector<double> milliseconds;    ///< every run, in the order run
  std::optional<std::string> skipped;  ///< why it was not measured

  /// The median of the runs; 0 when there are none.
  double median() const;
};

struct BenchmarkReport {
  unsigned cores = 0;
  std::string buildType;  ///< the build's type: "Release", "RelWithDebInfo"
  std::vector<BenchmarkLine> lines;
};

/// The median of `values` (the mean of the middle two for an even count);
/// 0 for none.
double median(std::vector<double> values);

/// Measures every line. `progress` gets one line per measurement as it
/// ends, for a person watching. Throws what the engine throws when the
/// pictures cannot be made; a line that fails alone is reported skipped.
BenchmarkReport measure(const BenchmarkOptions& options, std::ostream& progress);

/// The report as a table: a header with the cores and the build type, then
/// one row per line with its median and its number of runs.
void printTable(const BenchmarkReport& report, std::ostream& out);

/// The report as one JSON object: "cores", "buildType" and "lines", each
/// line with "name", "input", "medianMs", "runsMs" and, when it was not
/// measured, "skipped".
void printJson(const BenchmarkReport& report, std::ostream& out);

/// The benchmark as the program runs it: the table (or, with `json`, the
/// JSON object) on `out`, progress on `err`. Returns the exit status: 0, or
/// 1 with a message on `err` when it could not run.
int runBenchmark(bool json, std::ostream& out, std::ostream& err);

}  // namespace lumivale::diagnostics
