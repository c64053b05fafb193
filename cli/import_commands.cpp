// Commands that bring photos into the library and describe one photo.

#include <cstdio>

#include "cli/commands.h"
#include "cli/common.h"
#include "cli/record_output.h"
#include "engine/catalog/photo_library.h"
#include "engine/catalog/photo_meta.h"

namespace lumivale::cli {
namespace {

std::string resultText(const ImportResult& r) {
  char seconds[32];
  std::snprintf(seconds, sizeof seconds, "%.1fs", r.seconds);
  std::string text = "Imported " + std::to_string(r.added) + (r.added == 1 ? " photo" : " photos") + " in " +
                     seconds;
  if (r.skipped > 0) text += " (" + std::to_string(r.skipped) + " already in the library)";
  if (r.failed > 0) text += ", " + std::to_string(r.failed) + " could not be read";
  return text;
}

int importCommand(Context& ctx, const Arguments& args) {
  if (args.positional.size() != 1) throw UsageError("import takes one folder");
  PhotoLibrary& library = ctx.writableLibrary();
  ImportResult result;
  {
    Progress progress(ctx, "Importing");
    result = library.importFolder(args.positional[0], !args.has("--no-recursive"),
                                  [&](int handled, int total) { progress.update(handled, total); });
  }
  if (ctx.json) {
    ctx.printJson({{"added", result.added},
                   {"skipped", result.skipped},
                   {"failed", result.failed},
                   {"seconds", result.seconds}});
  } else {
    ctx.out << resultText(result) << "\n";
  }
  return 0;
}

PhotoRecord photoOrError(Context& ctx, const Arguments& args, const char* command) {
  if (args.positional.size() != 1) throw UsageError(std::string(command) + " takes one photo id");
  return existingPhoto(ctx.library(), parseId(args.positional[0]));
}

int showCommand(Context& ctx, const Arguments& args) {
  PhotoRecord r = photoOrError(ctx, args, "show");
  if (ctx.json) {
    ctx.printJson(recordJson(r));
    return 0;
  }
  auto orDash = [](const std::string& text) { return text.empty() ? std::string("-") : printable(text); };
  const std::pair<const char*, std::string> lines[] = {
      {"Id", std::to_string(r.id)},
      {"Name", printable(r.name)},
      {"Path", printable(r.path)},
      {"Folder", printable(r.folder)},
      {"Type", orDash(r.ext) + (r.isRaw ? " (RAW)" : "")},
      {"File size", std::to_string(r.fileSize) + " bytes"},
      {"Pixels", std::to_string(r.width) + " \u00d7 " + std::to_string(r.height)},
      {"Captured", localTimeText(r.captureDate)},
      {"Imported", localTimeText(r.importDate)},
      {"Camera", orDash(r.camera)},
      {"Lens", orDash(r.lens)},
      {"ISO", r.iso > 0 ? std::to_string(r.iso) : "-"},
      {"Shutter", orDash(r.shutterText())},
      {"Aperture", r.aperture > 0 ? "f/" + formatFixed(r.aperture, 1) : "-"},
      // The same rounding as in the summary: 4.5 mm shows as 5 mm in both.
      {"Focal length", r.focalLength > 0 ? formatMillimetres(r.focalLength) : "-"},
      {"Summary", orDash(r.summary())},
      {"Rating", std::to_string(r.rating)},
      {"Flag", orDash(flagText(r.flag))},
      {"Label", orDash(r.label)},
      {"Edited", r.edited ? "yes, " + localTimeText(r.editDate) : "no"},
  };
  for (const auto& [label, value] : lines) {
    std::string head = std::string(label) + ":";
    ctx.out << head << std::string(head.size() < 14 ? 14 - head.size() : 1, ' ') << value << "\n";
  }
  return 0;
}

int detailsCommand(Context& ctx, const Arguments& args) {
  PhotoRecord r = photoOrError(ctx, args, "details");
  std::vector<DetailRow> rows = PhotoMeta::details(r.path);
  if (ctx.json) {
    nlohmann::json list = nlohmann::json::array();
    for (const DetailRow& row : rows) list.push_back({{"label", row.label}, {"value", row.value}});
    ctx.printJson(list);
    return 0;
  }
  if (rows.empty()) ctx.err << "No details: the file cannot be read: " << printable(r.path) << "\n";
  for (const DetailRow& row : rows) ctx.out << printable(row.label) << ": " << printable(row.value) << "\n";
  return 0;
}

}  // namespace

void addImportCommands(std::vector<Command>& table) {
  table.push_back({"import", "import DIR [--no-recursive]", "Add the photos of a folder to the library",
                   "Catalogues the JPEG, HEIC, TIFF, PNG and camera RAW files of DIR and its\n"
                   "subfolders where they are; files are only read, never copied or changed.\n"
                   "Hidden files, packages and the library folder itself are left out, and\n"
                   "files already in the library are skipped.\n\n"
                   "  --no-recursive   only the files directly in DIR\n\n"
                   "Prints the number of photos added, skipped and unreadable; --json gives\n"
                   "{added, skipped, failed, seconds}. A folder that cannot be read is an error.",
                   {{"--no-recursive"}, {}},
                   importCommand});
  table.push_back({"show", "show ID", "Show the catalog record of one photo",
                   "Prints every field of the photo's record with its exposure summary;\n"
                   "--json gives the record as one object.",
                   {},
                   showCommand});
  table.push_back({"details", "details ID", "Show the camera details of one photo, read from its file",
                   "Reads the photo's file afresh and prints the info panel's rows as\n"
                   "\"Label: value\"; --json gives an array of {label, value} objects in order.",
                   {},
                   detailsCommand});
}

}  // namespace lumivale::cli
