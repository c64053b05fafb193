#pragma once
// Runs lumivale-cli in-process for the CLI tests.

#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "cli/cli.h"

namespace lumivale::test {

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

}  // namespace lumivale::test
