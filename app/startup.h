#pragma once
// What the desktop program does before any window exists: read its command
// line (the diagnostics switches come first) and open its library.

#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

namespace lumivale::app {

struct StartupOptions {
  enum class Mode { normal, selftest, benchmark, snapshots, help };
  Mode mode = Mode::normal;
  std::string snapshotsPath;  ///< for Mode::snapshots
  std::optional<std::string> library;  ///< --library DIR
};

/// Reads the program's arguments (without argv[0]). Unknown arguments are
/// left to the window system, which takes its own (-platform and the like).
/// Returns nothing and writes a message to `err` on a malformed switch.
std::optional<StartupOptions> parseStartup(const std::vector<std::string>& args, std::ostream& err);

/// Runs everything up to the window: diagnostics switches, then the library.
/// Returns the process exit status, or nothing when the window should open.
std::optional<int> startUp(const StartupOptions& options, std::ostream& out, std::ostream& err);

}  // namespace lumivale::app
