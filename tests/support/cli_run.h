#pragma once
// Runs lumivale-cli in-process for the CLI tests.

#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "cli/cli.h"
#include "tests/support/library.h"

namespace lumivale::test {

using Args = std::vector<std::string>;

struct CliResult {
  int status = 0;
  std::string out;
  std::string err;
  nlohmann::json json() const { return nlohmann::json::parse(out); }
};

inline CliResult runCli(const std::vector<std::string>& args) {
  std::ostringstream out, err;
  int status = cli::run(args, out, err);
  return {status, out.str(), err.str()};
}

/// The same with "--library `library`" in front.
inline CliResult runCliOn(const std::filesystem::path& library, std::vector<std::string> args) {
  args.insert(args.begin(), {"--library", library.string()});
  return runCli(args);
}

/// A failed run: exit `status`, nothing on stdout and one line on stderr,
/// "error: ..." containing `message`.
inline void expectError(const CliResult& r, int status, const std::string& message = "") {
  EXPECT_EQ(r.status, status) << r.err;
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err.rfind("error: ", 0), 0u) << r.err;
  EXPECT_EQ(r.err.find('\n'), r.err.size() - 1) << r.err;
  EXPECT_NE(r.err.find(message), std::string::npos) << r.err;
}

/// A fresh library and the command line run on it.
class CliLibraryTest : public LibraryTest {
 protected:
  CliResult run(std::vector<std::string> args) { return runCliOn(folder, std::move(args)); }
  /// A run that must succeed.
  CliResult ok(std::vector<std::string> args) {
    CliResult r = run(args);
    EXPECT_EQ(r.status, 0) << args[0] << ": " << r.err;
    return r;
  }
  /// Runs that must each fail as `expectError` says.
  void expectRefused(int status, std::initializer_list<Args> cases) {
    for (const Args& args : cases) {
      std::string line;
      for (const std::string& a : args) line += a + " ";
      SCOPED_TRACE(line);
      expectError(run(args), status);
    }
  }
};

}  // namespace lumivale::test
