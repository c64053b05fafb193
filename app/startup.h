#pragma once
// What the desktop program does before any window exists: read its command
// line (the diagnostics switches come first), open its library (checking the
// catalog when the check is due) and start the day's backup.

#include <filesystem>
#include <iosfwd>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "engine/catalog/catalog_safety.h"
#include "engine/catalog/photo_library.h"

namespace lumivale::app {

struct StartupOptions {
  enum class Mode { normal, selftest, benchmark, snapshots, help };
  Mode mode = Mode::normal;
  std::string snapshotsPath;  ///< for Mode::snapshots
  bool json = false;          ///< --json: the benchmark's figures for machines
  std::optional<std::string> library;  ///< --library DIR
};

/// Reads the program's arguments (without argv[0]). Unknown arguments are
/// left to the window system, which takes its own (-platform and the like).
/// Returns nothing and writes a message to `err` on a malformed switch.
std::optional<StartupOptions> parseStartup(const std::vector<std::string>& args, std::ostream& err);

/// The library as start-up opens it, with the day's backup under way.
/// Members go in reverse order: the backup stops before the library closes.
struct OpenedLibrary {
  std::unique_ptr<PhotoLibrary> library;
  std::unique_ptr<DailyBackup> backup;
};

/// Opens the library at `folder`, checked first when the check is due, and
/// starts the day's backup (when one is due) on a thread of its own,
/// `DailyBackup`, which copies on a connection of its own, so that neither
/// the start nor a rating waits for it. Throws what `PhotoLibrary`
/// throws: CatalogDamaged when the check fails, with nothing opened for
/// writing and the last good backup named.
OpenedLibrary openLibrary(const std::filesystem::path& folder);

/// After `openLibrary` threw `damage`: puts the last good backup it names in
/// place of the damaged catalog (which is set aside in "Backups", never
/// deleted), then opens as `openLibrary` does. Throws BackupError when there
/// is no good backup or the restore is refused, and what `openLibrary`
/// throws.
OpenedLibrary restoreLastBackup(const std::filesystem::path& folder, const CatalogDamaged& damage);

/// Runs everything up to the window: diagnostics switches, then the library.
/// Returns the process exit status, or nothing when the window should open.
std::optional<int> startUp(const StartupOptions& options, std::ostream& out, std::ostream& err);

}  // namespace lumivale::app
