#pragma once
// The frame of `lumivale-cli`: global options, the command table, argument
// parsing, id lists, output in text or JSON, errors and progress.
//
//   lumivale-cli [--library DIR] [--json] COMMAND [ARGS...]
//
// Exit status: 0 success, 1 an error (one "error: ..." line on stderr),
// 2 a usage error.

#include <cstdint>
#include <filesystem>
#include <functional>
#include <iosfwd>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace lumivale {
class PhotoLibrary;
}

namespace lumivale::cli {

/// The command line was not understood: exit status 2.
class UsageError : public std::runtime_error {
 public:
  explicit UsageError(const std::string& message) : std::runtime_error(message) {}
};

/// The command could not do its work: exit status 1.
class CommandError : public std::runtime_error {
 public:
  explicit CommandError(const std::string& message) : std::runtime_error(message) {}
};

/// Everything a command may use: the library (opened on first use), the
/// output streams and the output mode.
class Context {
 public:
  Context(std::optional<std::string> libraryArg, bool json, std::ostream& out, std::ostream& err,
          bool stderrIsTerminal, bool stdinIsTerminal);
  ~Context();

  /// The library folder chosen by --library, LUMIVALE_LIBRARY or the default.
  std::filesystem::path libraryFolder() const;
  /// Opens (creating if needed) the library on first call.
  PhotoLibrary& library();

  bool json;
  std::ostream& out;
  std::ostream& err;
  bool stderrIsTerminal;
  bool stdinIsTerminal;
  bool stdoutIsTerminal = false;  ///< standard output is a terminal (charts instead of numbers)

  /// Prints one JSON document on stdout.
  void printJson(const nlohmann::json& document) const;

  /// Asks a yes/no question on the terminal; false when the answer is not yes.
  std::function<bool(const std::string& question)> confirm;

 private:
  std::optional<std::string> libraryArg;
  std::unique_ptr<PhotoLibrary> lib;
};

/// The parsed arguments of one command.
struct Arguments {
  std::vector<std::string> positional;
  std::map<std::string, std::vector<std::string>> values;  ///< options with values
  std::set<std::string> flags;  ///< options without values that were given

  bool has(const std::string& flag) const { return flags.count(flag) > 0; }
  /// The last value of an option, or nothing.
  std::optional<std::string> value(const std::string& option) const;
  /// Every value of a repeatable option, in order.
  std::vector<std::string> all(const std::string& option) const;
};

/// Which options a command accepts.
struct OptionSpec {
  std::set<std::string> flags;  ///< e.g. "--edited"
  std::set<std::string> valued;  ///< e.g. "--sort"; "--sort=KEY" is accepted too
};

struct Command {
  std::string name;
  std::string usage;  ///< e.g. "info"
  std::string summary;  ///< one line for the command list
  std::string help;  ///< further lines for `COMMAND --help`
  OptionSpec options;
  std::function<int(Context&, const Arguments&)> run;
};

/// Splits `args` by `spec`; an unknown option or a missing value is a usage error.
Arguments parseArguments(const std::vector<std::string>& args, const OptionSpec& spec);

/// Photo ids as "7", "3,7,9", "3-9" or a mix ("1,4-6"), in the given order,
/// duplicates dropped. Anything else is a usage error.
std::vector<std::int64_t> parseIds(const std::string& text);
/// One id.
std::int64_t parseId(const std::string& text);
/// A whole number; anything else is a usage error naming `what`.
std::int64_t parseInteger(const std::string& text, const std::string& what);

/// Shows "label  done/total" with a bar on stderr when it is a terminal.
class Progress {
 public:
  Progress(const Context& context, std::string label);
  ~Progress();
  void update(std::int64_t done, std::int64_t total);
  void finish();

 private:
  bool active;
  std::ostream& err;
  std::string label;
  bool drawn = false;
};

/// JSON string for text that may not be valid UTF-8 (file names).
nlohmann::json jsonText(const std::string& text);

/// Runs the program with these arguments (without argv[0]).
int run(const std::vector<std::string>& args, std::ostream& out, std::ostream& err,
        bool stderrIsTerminal = false, bool stdinIsTerminal = false);

/// The command table, in the order `--help` lists it.
const std::vector<Command>& commands();

}  // namespace lumivale::cli
