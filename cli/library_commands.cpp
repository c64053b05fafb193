// Commands about the library as a whole.

#include <system_error>

#include "cli/commands.h"
#include "cli/common.h"
#include "engine/catalog/photo_library.h"

namespace lumivale::cli {
namespace {

int info(Context& ctx, const Arguments& args) {
  if (!args.positional.empty()) throw UsageError("info takes no arguments");
  PhotoLibrary& library = ctx.library();
  std::error_code error;
  std::uintmax_t size = std::filesystem::file_size(library.databasePath(), error);
  if (error) size = 0;
  std::string format = library.meta("format").value_or("");
  int photos = library.count();
  if (ctx.json) {
    ctx.printJson({{"library", library.folder().string()},
                   {"database", library.databasePath().string()},
                   {"thumbnails", library.thumbFolder().string()},
                   {"format", format},
                   {"photos", photos},
                   {"databaseSize", size}});
  } else {
    ctx.out << "Library:    " << printable(library.folder().string()) << "\n"
            << "Database:   " << printable(library.databasePath().string()) << "\n"
            << "Format:     " << printable(format) << "\n"
            << "Photos:     " << photos << "\n"
            << "Size:       " << byteText(size) << "\n";
  }
  return 0;
}

}  // namespace

void addLibraryCommands(std::vector<Command>& table) {
  table.push_back({"info", "info", "Show the library folder, its database and the number of photos",
                   "Opens the library (creating it when missing) and prints its folder, the database\n"
                   "file, the catalog format, the number of photos and the size of the database file.",
                   {}, info});
}

}  // namespace lumivale::cli
