#include "app/startup.h"

#include <ostream>

#include "diagnostics/benchmark.h"
#include "diagnostics/self_test.h"
#include "diagnostics/snapshots.h"
#include "engine/catalog/library_location.h"
#include "engine/catalog/photo_library.h"

namespace lumivale::app {

std::optional<StartupOptions> parseStartup(const std::vector<std::string>& args, std::ostream& err) {
  StartupOptions options;
  // The diagnostics switches rank in this order when several are given:
  // the self-test first, then the benchmark, then the snapshots; any of
  // them before help (the cases are declared in that order).
  auto choose = [&](StartupOptions::Mode mode) {
    if (options.mode == StartupOptions::Mode::normal || mode < options.mode) options.mode = mode;
  };
  for (std::size_t i = 0; i < args.size(); ++i) {
    const std::string& a = args[i];
    if (a == "--selftest") {
      choose(StartupOptions::Mode::selftest);
    } else if (a == "--benchmark") {
      choose(StartupOptions::Mode::benchmark);
    } else if (a == "--json") {
      options.json = true;
    } else if (a == "--snapshots") {
      if (i + 1 >= args.size() || args[i + 1].empty()) {
        err << "lumivale: --snapshots needs a folder to write into\n";
        return std::nullopt;
      }
      choose(StartupOptions::Mode::snapshots);
      options.snapshotsPath = args[++i];
    } else if (a == "--library") {
      if (i + 1 >= args.size()) {
        err << "lumivale: --library needs a folder\n";
        return std::nullopt;
      }
      options.library = args[++i];
    } else if (a.rfind("--library=", 0) == 0) {
      options.library = a.substr(10);
    } else if (a == "--help" || a == "-h") {
      if (options.mode == StartupOptions::Mode::normal) options.mode = StartupOptions::Mode::help;
    }
  }
  return options;
}

OpenedLibrary openLibrary(const std::filesystem::path& folder) {
  OpenedLibrary opened;
  opened.library = std::make_unique<PhotoLibrary>(folder);
  opened.backup = std::make_unique<DailyBackup>(folder);
  return opened;
}

OpenedLibrary restoreLastBackup(const std::filesystem::path& folder, const CatalogDamaged& damage) {
  if (!damage.lastGoodBackup()) throw BackupError("There is no backup that checks clean to restore.");
  CatalogBackups::restore(folder, damage.lastGoodBackup()->name);
  return openLibrary(folder);
}

std::optional<int> startUp(const StartupOptions& options, std::ostream& out, std::ostream& err) {
  switch (options.mode) {
    case StartupOptions::Mode::help:
      out << "usage: lumivale [--library DIR] [--selftest | --benchmark [--json] | --snapshots PATH]\n"
             "  --library DIR     use the library in DIR (also LUMIVALE_LIBRARY)\n"
             "  --selftest        run the built-in self-test and exit\n"
             "  --benchmark       run the built-in benchmark and exit (--json: as JSON)\n"
             "  --snapshots PATH  render the snapshot images into PATH and exit\n";
      return 0;
    case StartupOptions::Mode::selftest:
      return diagnostics::runSelfTest(out);
    case StartupOptions::Mode::benchmark:
      return diagnostics::runBenchmark(options.json, out, err);
    case StartupOptions::Mode::snapshots:
      return diagnostics::writeSnapshots(options.snapshotsPath, out, err);
    case StartupOptions::Mode::normal:
      break;
  }
  const auto folder = resolveLibraryFolder(options.library);
  try {
    OpenedLibrary opened = openLibrary(folder);
    PhotoLibrary& library = *opened.library;
    out << "Library: " << library.folder().string() << "\n"
        << "Photos:  " << library.count() << "\n";
    const CatalogSafety safety = library.safety();
    if (safety.readOnly) out << "Read-only: " << safety.readOnlyReason << "\n";
    if (safety.check.passed()) {
      out << "Checked: sound, in " << formatFixed(safety.check.seconds, 2) << " s (" << safety.check.reason
          << ")\n";
    }
    // The window takes over from here once the interface exists. Until
    // then the program ends at once, and waits for the backup first so that
    // the day's backup is not cut short.
    out << "Backup:  " << opened.backup->wait().note << "\n";
    return 0;
  } catch (const std::exception& e) {
    err << "KUVO Lumivale could not open its library\n" << folder.string() << "\n" << e.what() << "\n";
    return 1;
  }
}

}  // namespace lumivale::app
