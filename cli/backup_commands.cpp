// Backups of the catalog: make one, list them, restore one.
//
// None of these opens the catalog itself: a backup copies it on a
// connection of its own, and list and restore must work when the catalog is
// damaged or missing.

#include "cli/commands.h"
#include "cli/common.h"
#include "cli/record_output.h"
#include "engine/catalog/catalog_safety.h"
#include "engine/media/safe_file.h"

namespace lumivale::cli {
namespace {

nlohmann::json backupJson(const BackupInfo& b) {
  nlohmann::json problems = nlohmann::json::array();
  if (b.check) {
    for (const std::string& p : b.check->problems) problems.push_back(jsonText(p));
  }
  return {{"name", jsonText(b.name)},
          {"path", jsonText(b.path.string())},
          {"kind", b.kind == BackupInfo::Kind::backup ? "backup" : "replaced"},
          {"created", b.created},
          {"bytes", b.bytes},
          {"photos", b.photos ? nlohmann::json(*b.photos) : nlohmann::json(nullptr)},
          {"good", b.good()},
          {"problems", problems}};
}

std::string photosText(const BackupInfo& b) {
  return b.photos ? photoCount(static_cast<std::size_t>(*b.photos)) : "-";
}

int backupNow(Context& ctx) {
  BackupResult made;
  {
    Progress progress(ctx, "Backing up");
    made = CatalogBackups::create(ctx.libraryFolder());
  }
  if (ctx.json) {
    nlohmann::json removed = nlohmann::json::array();
    for (const std::string& name : made.removed) removed.push_back(jsonText(name));
    nlohmann::json doc = backupJson(made.backup);
    doc["seconds"] = made.seconds;
    doc["removed"] = removed;
    ctx.printJson(doc);
    return 0;
  }
  ctx.out << "Backed up " << photosText(made.backup) << " to " << printable(quotedPath(made.backup.path))
          << " (" << byteText(made.backup.bytes) << ", " << formatFixed(made.seconds, 1) << " s)\n";
  for (const std::string& name : made.removed)
    ctx.out << "Removed the old backup " << printable(name) << "\n";
  return 0;
}

int backupList(Context& ctx) {
  const std::vector<BackupInfo> all = CatalogBackups::list(ctx.libraryFolder(), true);
  if (ctx.json) {
    nlohmann::json list = nlohmann::json::array();
    for (const BackupInfo& b : all) list.push_back(backupJson(b));
    ctx.printJson(list);
    return 0;
  }
  if (all.empty()) {
    ctx.out << "No backups in " << printable(quotedPath(CatalogBackups::folder(ctx.libraryFolder())))
            << ".\n";
    return 0;
  }
  std::size_t nameWidth = 0, sizeWidth = 0, photosWidth = 0;
  for (const BackupInfo& b : all) {
    nameWidth = std::max(nameWidth, columns(printable(b.name)));
    sizeWidth = std::max(sizeWidth, byteText(b.bytes).size());
    photosWidth = std::max(photosWidth, photosText(b).size());
  }
  for (const BackupInfo& b : all) {
    std::string state = b.good() ? "good" : "damaged: " + b.check->summary();
    if (b.kind == BackupInfo::Kind::replaced) state += ", set aside by a restore";
    ctx.out << padded(printable(b.name), nameWidth) << "  " << localTimeText(b.created) << "  "
            << padded(byteText(b.bytes), sizeWidth) << "  " << padded(photosText(b), photosWidth) << "  "
            << printable(state) << "\n";
  }
  return 0;
}

int backupRestore(Context& ctx, const Arguments& args) {
  requireCount(args, 2, "backup restore NAME [--yes]");
  const std::string& name = args.positional[1];
  const auto folder = ctx.libraryFolder();
  if (!args.has("--yes") && !args.has("-y")) {
    // Asked only about a backup that exists and checks clean; restore
    // itself says why not otherwise.
    auto chosen = CatalogBackups::find(folder, name);
    if (chosen && chosen->good()) {
      if (!ctx.stdinIsTerminal) {
        throw CommandError(
            "restoring a backup needs confirmation: pass --yes when not running on a terminal");
      }
      const std::string question = "Replace the catalog with the backup " + printable(chosen->name) + " of " +
                                   localTimeText(chosen->created) + " (" + photosText(*chosen) +
                                   ")?\nThe current catalog is kept in the Backups folder.";
      if (!ctx.confirm(question)) throw CommandError("nothing was restored");
    }
  }
  const RestoreResult result = CatalogBackups::restore(folder, name);
  if (ctx.json) {
    ctx.printJson({{"restored", backupJson(result.restored)},
                   {"setAside", result.setAside ? backupJson(*result.setAside) : nlohmann::json(nullptr)}});
    return 0;
  }
  ctx.out << "Restored the catalog from " << printable(result.restored.name) << " ("
          << photosText(result.restored) << ")\n";
  if (result.setAside) {
    ctx.out << "The catalog it replaced is kept as " << printable(quotedPath(result.setAside->path)) << "\n";
  }
  return 0;
}

int backup(Context& ctx, const Arguments& args) {
  const std::string action = args.positional.empty() ? "now" : args.positional[0];
  if ((args.has("--yes") || args.has("-y")) && action != "restore")
    throw UsageError("--yes belongs to backup restore");
  if (action == "now" || action == "list") {
    if (args.positional.size() > 1) throw UsageError("backup " + action + " takes no further arguments");
    return action == "now" ? backupNow(ctx) : backupList(ctx);
  }
  if (action == "restore") return backupRestore(ctx, args);
  throw UsageError("unknown backup action '" + action + "' (now, list or restore)");
}

}  // namespace

void addBackupCommands(std::vector<Command>& table) {
  table.push_back({"backup",
                   "backup [now | list | restore NAME [--yes]]",
                   "Back up the catalog, list its backups, or restore one",
                   "now (the default) copies the catalog into the library's \"Backups\" folder while other\n"
                   "programs keep working, checks the copy and keeps it only when it is sound; then old\n"
                   "backups beyond the last 7 days and the last 4 weeks are removed. The app makes one\n"
                   "such backup a day by itself. Thumbnails are not backed up: they can be remade.\n\n"
                   "list shows each backup with its date, size, photo count and whether it checks clean.\n\n"
                   "restore replaces the catalog with the backup NAME (as list shows it). The current\n"
                   "catalog is set aside in the Backups folder, never deleted. A damaged backup is never\n"
                   "restored, and nothing is restored while KUVO Lumivale or another program has the\n"
                   "library open. Asks first on a terminal; elsewhere --yes (or -y) is required.",
                   {{"--yes", "-y"}, {}},
                   backup});
}

}  // namespace lumivale::cli
