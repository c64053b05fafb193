// Making the grid thumbnails of the library ahead of time.

#include "cli/commands.h"
#include "cli/common.h"
#include "engine/catalog/photo_library.h"

namespace lumivale::cli {
namespace {

constexpr const char* thumbnailsUsage = "thumbnails [IDS] [--force]";

std::string batchText(const ThumbnailBatch& batch) {
  std::string text = "Made " + plural(std::size_t(batch.made), "thumbnail", "thumbnails");
  if (batch.present > 0) text += " (" + std::to_string(batch.present) + " already there)";
  text +=
      ", " + std::to_string(batch.failed) + (batch.failed == 1 ? " photo" : " photos") + " could not be read";
  return text;
}

int thumbnailsCommand(Context& ctx, const Arguments& args) {
  if (args.positional.size() > 1) throw UsageError("expected: " + std::string(thumbnailsUsage));
  PhotoLibrary& library = ctx.library();
  std::vector<PhotoRecord> photos;
  if (args.positional.empty()) {
    photos = library.photos(LibraryQuery{});
  } else {
    const Ids ids = parseIds(args.positional[0]);
    requirePhotos(library, ids, false);
    for (std::int64_t id : ids) photos.push_back(existingPhoto(library, id));
  }
  if (auto error = ctx.readError()) throw CommandError(*error);

  ThumbnailBatch batch;
  {
    Progress progress(ctx, "Making thumbnails");
    batch = library.makeThumbnails(photos, args.has("--force"),
                                   [&](int handled, int total) { progress.update(handled, total); });
  }
  if (ctx.json) {
    ctx.printJson({{"made", batch.made},
                   {"present", batch.present},
                   {"failed", batch.failed},
                   {"unsaved", batch.unsaved}});
  } else {
    ctx.out << batchText(batch) << "\n";
  }
  if (batch.unsaved > 0) {
    throw CommandError(plural(std::size_t(batch.unsaved), "thumbnail", "thumbnails") +
                       " could not be written to " + printable(library.thumbFolder().string()));
  }
  return 0;
}

}  // namespace

void addThumbnailCommands(std::vector<Command>& table) {
  table.push_back({"thumbnails",
                   thumbnailsUsage,
                   "Make the missing grid thumbnails",
                   "Makes the grid thumbnails of the library's photos (or of the photos\n"
                   "IDS lists: \"7\", \"3,7,9\", \"3-9\") that are missing or damaged, several\n"
                   "at once, into the library's Thumbnails folder. Photo files are only read.\n\n"
                   "  --force   make them again even when they are there\n\n"
                   "Prints how many were made and how many photos could not be read (a file\n"
                   "missing or undecodable); --json gives {made, present, failed, unsaved}.\n"
                   "A thumbnail that cannot be written is an error.",
                   {{"--force"}, {}},
                   thumbnailsCommand});
}

}  // namespace lumivale::cli
