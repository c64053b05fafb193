// Commands that find and organise photos: list and search, ratings, flags,
// labels, keywords, collections, folders and removal from the catalog.
//
// Commands that take photo ids check them all before changing anything: an
// id that is not in the catalog is an error (exit 1) naming the missing ids,
// and nothing is written. Malformed values (a rating that is not a number, an
// unknown label, flag or sort key) are usage errors (exit 2).

#include <algorithm>
#include <sstream>

#include "cli/commands.h"
#include "cli/common.h"
#include "cli/record_output.h"
#include "engine/catalog/library_query.h"
#include "engine/catalog/folder_listing.h"
#include "engine/catalog/photo_library.h"

namespace lumivale::cli {
namespace {

// ---- Shared helpers ----------------------------------------------------------

template <class E>
std::string keyList(const std::vector<E>& all) {
  std::vector<std::string> keys;
  for (E e : all) keys.emplace_back(key(e));
  return joined(keys, ", ");
}

nlohmann::json idsJson(const Ids& ids) { return nlohmann::json(ids); }

// The photo ids of a command: the positional argument at `index`.
Ids idsAt(const Arguments& args, std::size_t index, const std::string& command) {
  if (args.positional.size() <= index) throw UsageError(command + " needs photo ids");
  return parseIds(args.positional[index]);
}

Collection requireCollection(PhotoLibrary& library, std::int64_t id) {
  for (const Collection& c : library.collections()) {
    if (c.id == id) return c;
  }
  throw CommandError("no collection with id " + std::to_string(id));
}

std::string stars(int rating) {
  std::string text;
  for (int i = 1; i <= 5; ++i) text += i <= rating ? "\u2605" : "\u2606";
  return text;
}

// The form in which import stores folders: absolute, normalised, without a
// trailing separator.
std::string normalisedFolder(const std::string& text) {
  if (text.empty()) throw UsageError("--folder needs a folder path");
  return standardizedPath(text).string();
}

// ---- list ----------------------------------------------------------------------

LibraryQuery queryFrom(Context& ctx, const Arguments& args) {
  LibraryQuery query;
  query.text = textFrom(args, 0);
  if (auto v = args.value("--min-rating")) {
    std::int64_t n = parseInteger(*v, "rating");
    if (n < 0 || n > 5) throw UsageError("--min-rating takes 0 to 5 stars, not " + *v);
    query.minRating = static_cast<int>(n);
  }
  if (auto v = args.value("--flag")) {
    auto flag = flagFilterFromKey(*v);
    if (!flag)
      throw UsageError("unknown flag filter '" + *v + "' (one of " + keyList(allFlagFilters()) + ")");
    query.flag = *flag;
  }
  for (const std::string& value : args.all("--label")) {
    std::stringstream pieces(value);
    std::string piece;
    while (std::getline(pieces, piece, ',')) {
      if (!colorLabelFromKey(piece)) {
        throw UsageError("unknown label '" + piece + "' (one of " + keyList(allColorLabels()) + ")");
      }
      query.labels.insert(piece);
    }
  }
  if (auto v = args.value("--folder")) query.folder = normalisedFolder(*v);
  if (auto v = args.value("--collection")) {
    std::int64_t id = parseRowId(*v, "collection id");
    requireCollection(ctx.library(), id);
    query.collection = id;
  }
  query.editedOnly = args.has("--edited");
  if (auto v = args.value("--sort")) {
    auto sort = sortOrderFromKey(*v);
    if (!sort) throw UsageError("unknown sort key '" + *v + "' (one of " + keyList(allSortOrders()) + ")");
    query.sort = *sort;
  }
  query.ascending = args.has("--ascending");
  return query;
}

int list(Context& ctx, const Arguments& args) {
  LibraryQuery query = queryFrom(ctx, args);
  std::vector<PhotoRecord> photos = ctx.library().photos(query);
  if (ctx.json) {
    nlohmann::json records = nlohmann::json::array();
    for (const PhotoRecord& r : photos) records.push_back(recordJson(r));
    ctx.printJson(records);
    return 0;
  }
  if (photos.empty()) {
    ctx.out << "No photos.\n";
    return 0;
  }
  std::size_t idWidth = 1, nameWidth = 4;
  for (const PhotoRecord& r : photos) {
    idWidth = std::max(idWidth, std::to_string(r.id).size());
    nameWidth = std::max(nameWidth, columns(printable(r.name)));
  }
  nameWidth = std::min<std::size_t>(nameWidth, 40);
  for (const PhotoRecord& r : photos) {
    std::string id = std::to_string(r.id);
    std::string flag = flagText(r.flag);
    std::string line = std::string(idWidth - id.size(), ' ') + id + "  " +
                       padded(printable(r.name), nameWidth) + "  " + stars(r.rating) + "  " +
                       padded(flag.empty() ? "-" : flag, 6) + "  " +
                       padded(r.label.empty() ? "-" : printable(r.label), 6) + "  " +
                       padded(localTimeText(r.captureDate), 19) + "  " + r.summary();
    line.erase(line.find_last_not_of(' ') + 1);  // no padding after the last column
    ctx.out << line << "\n";
  }
  return 0;
}

// ---- rate, flag, label -----------------------------------------------------------

int rate(Context& ctx, const Arguments& args) {
  requireCount(args, 2, "rate IDS N");
  Ids ids = idsAt(args, 0, "rate");
  // Out of range is not an error: the catalog clamps a rating to 0...5,
  // so 7 stores 5 and -2 stores 0, and the output shows what was stored.
  const int rating =
      static_cast<int>(std::clamp<std::int64_t>(parseInteger(args.positional[1], "rating"), 0, 5));
  PhotoLibrary& library = ctx.writableLibrary();
  requirePhotos(library, ids);
  library.setRating(ids, rating);
  if (ctx.json) {
    ctx.printJson({{"ids", idsJson(ids)}, {"rating", rating}});
  } else {
    ctx.out << "Rated " << photoCount(ids.size()) << " " << stars(rating) << "\n";
  }
  return 0;
}

int flag(Context& ctx, const Arguments& args) {
  requireCount(args, 2, "flag IDS pick|reject|none");
  Ids ids = idsAt(args, 0, "flag");
  const std::string& word = args.positional[1];
  int value = 0;
  if (word == "pick") {
    value = 1;
  } else if (word == "reject") {
    value = -1;
  } else if (word != "none") {
    throw UsageError("unknown flag '" + word + "' (one of pick, reject, none)");
  }
  PhotoLibrary& library = ctx.writableLibrary();
  requirePhotos(library, ids);
  library.setFlag(ids, value);
  if (ctx.json) {
    ctx.printJson({{"ids", idsJson(ids)}, {"flag", value}});
  } else if (value == 0) {
    ctx.out << "Cleared the flag of " << photoCount(ids.size()) << "\n";
  } else {
    ctx.out << "Flagged " << photoCount(ids.size()) << " as " << (value > 0 ? "picks" : "rejects") << "\n";
  }
  return 0;
}

int label(Context& ctx, const Arguments& args) {
  requireCount(args, 2, "label IDS red|yellow|green|blue|purple|none");
  Ids ids = idsAt(args, 0, "label");
  std::string key = args.positional[1];
  if (key == "none") {
    key.clear();
  } else if (!colorLabelFromKey(key)) {
    throw UsageError("unknown label '" + key + "' (one of " + keyList(allColorLabels()) + ", none)");
  }
  PhotoLibrary& library = ctx.writableLibrary();
  requirePhotos(library, ids);
  library.setLabel(ids, key);
  if (ctx.json) {
    ctx.printJson({{"ids", idsJson(ids)}, {"label", key}});
  } else if (key.empty()) {
    ctx.out << "Cleared the label of " << photoCount(ids.size()) << "\n";
  } else {
    ctx.out << "Labelled " << photoCount(ids.size()) << " " << key << "\n";
  }
  return 0;
}

// ---- keywords ----------------------------------------------------------------------

int keywords(Context& ctx, const Arguments& args) {
  if (args.positional.size() > 1) throw UsageError("expected: keywords [ID]");
  PhotoLibrary& library = ctx.library();
  if (args.positional.size() == 1) {
    std::int64_t id = parseId(args.positional[0]);
    requirePhotos(library, {id}, false);
    std::vector<std::string> words = library.keywords(id);
    if (ctx.json) {
      nlohmann::json list = nlohmann::json::array();
      for (const std::string& w : words) list.push_back(jsonText(w));
      ctx.printJson({{"id", id}, {"keywords", list}});
    } else {
      for (const std::string& w : words) ctx.out << printable(w) << "\n";
    }
    return 0;
  }
  auto all = library.allKeywords();
  if (ctx.json) {
    nlohmann::json list = nlohmann::json::array();
    for (const auto& [word, count] : all) list.push_back({{"word", jsonText(word)}, {"count", count}});
    ctx.printJson(list);
    return 0;
  }
  std::size_t width = 1;
  for (const auto& entry : all) width = std::max(width, std::to_string(entry.second).size());
  for (const auto& [word, count] : all) {
    std::string n = std::to_string(count);
    ctx.out << std::string(width - n.size(), ' ') << n << "  " << printable(word) << "\n";
  }
  return 0;
}

// Splits at commas and semicolons, in the form the catalog stores; blank
// pieces are dropped.
std::vector<std::string> splitWords(const std::string& text) {
  std::vector<std::string> words;
  std::string current;
  auto flush = [&] {
    std::string w = PhotoLibrary::keywordForm(current);
    if (!w.empty() && std::find(words.begin(), words.end(), w) == words.end()) words.push_back(w);
    current.clear();
  };
  for (char c : text) {
    if (c == ',' || c == ';') {
      flush();
    } else {
      current += c;
    }
  }
  flush();
  return words;
}

int keyword(Context& ctx, const Arguments& args) {
  const std::string usage = "keyword add IDS WORDS | keyword remove IDS WORD";
  if (args.positional.size() < 3) throw UsageError("expected: " + usage);
  const std::string& action = args.positional[0];
  Ids ids = idsAt(args, 1, "keyword " + action);
  std::string text = textFrom(args, 2);
  PhotoLibrary& library = ctx.library(action == "add" || action == "remove");
  if (action == "add") {
    std::vector<std::string> words = splitWords(text);
    if (words.empty()) throw UsageError("no keywords given");
    requirePhotos(library, ids);
    library.addKeywords(ids, words);
    if (ctx.json) {
      nlohmann::json list = nlohmann::json::array();
      for (const std::string& w : words) list.push_back(jsonText(w));
      ctx.printJson({{"ids", idsJson(ids)}, {"added", list}});
    } else {
      ctx.out << "Added " << printable(joined(words, ", ")) << " to " << photoCount(ids.size()) << "\n";
    }
  } else if (action == "remove") {
    std::string word = PhotoLibrary::keywordForm(text);
    if (word.empty()) throw UsageError("no keyword given");
    requirePhotos(library, ids);
    const int removed = library.removeKeyword(ids, word);
    // Removing a word that is not there is most likely a typing mistake;
    // saying "Removed" would hide it.
    if (removed == 0) {
      throw CommandError("no photo " +
                         std::string(ids.size() == 1 ? "" : "of the " + photoCount(ids.size()) + " ") +
                         "has the keyword \"" + word + "\"; nothing was changed");
    }
    if (ctx.json) {
      ctx.printJson({{"ids", idsJson(ids)}, {"removed", jsonText(word)}, {"count", removed}});
    } else {
      ctx.out << "Removed " << printable(word) << " from " << photoCount(static_cast<std::size_t>(removed))
              << "\n";
    }
  } else {
    throw UsageError("unknown keyword action '" + action + "' (add or remove)");
  }
  return 0;
}

// ---- collection ------------------------------------------------------------------

nlohmann::json collectionJson(const Collection& c) {
  return {{"id", c.id}, {"name", jsonText(c.name)}, {"count", c.count}};
}

std::string collectionText(const Collection& c) {
  return std::to_string(c.id) + " \"" + printable(c.name) + "\" (" +
         photoCount(static_cast<std::size_t>(c.count)) + ")";
}

int collection(Context& ctx, const Arguments& args) {
  if (args.positional.empty()) throw UsageError("expected: collection list|create|rename|delete|add|remove");
  const std::string& action = args.positional[0];
  PhotoLibrary& library = ctx.library(action == "create" || action == "rename" || action == "delete" ||
                                      action == "add" || action == "remove");

  if (action == "list") {
    requireCount(args, 1, "collection list");
    auto all = library.collections();
    if (ctx.json) {
      nlohmann::json list = nlohmann::json::array();
      for (const Collection& c : all) list.push_back(collectionJson(c));
      ctx.printJson(list);
    } else {
      for (const Collection& c : all) ctx.out << collectionText(c) << "\n";
    }
    return 0;
  }

  if (action == "create") {
    if (args.positional.size() < 2 || args.positional.size() > 3)
      throw UsageError("expected: collection create NAME [IDS]");
    std::string name = requireName(args.positional[1], "a collection");
    Ids ids = args.positional.size() == 3 ? parseIds(args.positional[2]) : Ids{};
    requirePhotos(library, ids);
    bool existed = false;
    for (const Collection& c : library.collections()) existed = existed || c.name == name;
    std::int64_t id = library.createCollection(name);
    if (!ids.empty()) library.addToCollection(id, ids);
    Collection made = requireCollection(library, id);
    if (ctx.json) {
      nlohmann::json doc = collectionJson(made);
      doc["created"] = !existed;
      doc["added"] = idsJson(ids);
      ctx.printJson(doc);
    } else {
      ctx.out << (existed ? "Collection " : "Created collection ") << collectionText(made)
              << (existed ? " already exists" : "") << "\n";
      if (!ids.empty()) ctx.out << "Added " << photoCount(ids.size()) << "\n";
    }
    return 0;
  }

  if (action == "rename") {
    requireCount(args, 3, "collection rename ID NAME");
    std::int64_t id = parseRowId(args.positional[1], "collection id");
    std::string name = requireName(args.positional[2], "a collection");
    requireCollection(library, id);
    for (const Collection& c : library.collections()) {
      if (c.name == name && c.id != id)
        throw CommandError("a collection named \"" + name + "\" already exists");
    }
    library.renameCollection(id, name);
    Collection renamed = requireCollection(library, id);
    if (ctx.json) {
      ctx.printJson(collectionJson(renamed));
    } else {
      ctx.out << "Renamed collection " << collectionText(renamed) << "\n";
    }
    return 0;
  }

  if (action == "delete") {
    requireCount(args, 2, "collection delete ID");
    std::int64_t id = parseRowId(args.positional[1], "collection id");
    Collection gone = requireCollection(library, id);
    library.deleteCollection(id);
    if (ctx.json) {
      ctx.printJson({{"deleted", collectionJson(gone)}});
    } else {
      ctx.out << "Deleted collection " << collectionText(gone) << "; its photos stay in the library\n";
    }
    return 0;
  }

  if (action == "add" || action == "remove") {
    requireCount(args, 3, "collection " + action + " ID IDS");
    std::int64_t id = parseRowId(args.positional[1], "collection id");
    Ids ids = parseIds(args.positional[2]);
    requireCollection(library, id);
    requirePhotos(library, ids);
    if (action == "add") {
      library.addToCollection(id, ids);
    } else {
      library.removeFromCollection(id, ids);
    }
    Collection now = requireCollection(library, id);
    if (ctx.json) {
      nlohmann::json doc = collectionJson(now);
      doc[action == "add" ? "added" : "removed"] = idsJson(ids);
      ctx.printJson(doc);
    } else {
      ctx.out << (action == "add" ? "Added " : "Removed ") << photoCount(ids.size())
              << (action == "add" ? " to " : " from ") << "collection " << collectionText(now) << "\n";
    }
    return 0;
  }

  throw UsageError("unknown collection action '" + action +
                   "' (list, create, rename, delete, add or remove)");
}

// ---- folders and remove --------------------------------------------------------------

int folders(Context& ctx, const Arguments& args) {
  if (!args.positional.empty()) throw UsageError("folders takes no arguments");
  PhotoLibrary& library = ctx.library();
  std::vector<std::string> roots = library.folders();
  std::map<std::string, int> counts = library.folderCounts();
  if (ctx.json) {
    nlohmann::json rootList = nlohmann::json::array();
    for (const std::string& r : roots) rootList.push_back(jsonText(r));
    nlohmann::json countList = nlohmann::json::array();
    for (const auto& [path, n] : counts) countList.push_back({{"path", jsonText(path)}, {"count", n}});
    ctx.printJson({{"importFolders", rootList}, {"folders", countList}});
    return 0;
  }
  ctx.out << "Import folders:\n";
  if (roots.empty()) ctx.out << "  (none)\n";
  for (const std::string& r : roots) ctx.out << "  " << printable(r) << "\n";
  ctx.out << "Photos per folder:\n";
  if (counts.empty()) ctx.out << "  (none)\n";
  std::size_t width = 1;
  for (const auto& entry : counts) width = std::max(width, std::to_string(entry.second).size());
  for (const auto& [path, n] : counts) {
    std::string text = std::to_string(n);
    ctx.out << "  " << std::string(width - text.size(), ' ') << text << "  " << printable(path) << "\n";
  }
  return 0;
}

int removePhotos(Context& ctx, const Arguments& args) {
  requireCount(args, 1, "remove IDS [--yes]");
  Ids ids = idsAt(args, 0, "remove");
  PhotoLibrary& library = ctx.writableLibrary();
  requirePhotos(library, ids);
  if (!args.has("--yes") && !args.has("-y")) {
    if (!ctx.stdinIsTerminal) {
      throw CommandError("removing " + photoCount(ids.size()) +
                         " needs confirmation: pass --yes when not running on a terminal");
    }
    std::string question = ids.size() == 1
                               ? "Remove 1 photo from the library?"
                               : "Remove " + std::to_string(ids.size()) + " photos from the library?";
    question +=
        "\nThe photo files stay on this computer, untouched. Their ratings, keywords and edits in KUVO "
        "Lumivale are removed.";
    if (!ctx.confirm(question)) throw CommandError("nothing was removed");
  }
  library.remove(ids);
  if (ctx.json) {
    ctx.printJson({{"removed", idsJson(ids)}});
  } else {
    ctx.out << "Removed " << photoCount(ids.size()) << " from the library; the files are untouched\n";
  }
  return 0;
}

}  // namespace

void addOrganizeCommands(std::vector<Command>& table) {
  table.push_back(
      {"list",
       "list [SEARCH] [--min-rating N] [--flag F] [--label KEY]... [--folder PATH] [--collection "
       "ID] [--edited] "
       "[--sort KEY] [--ascending]",
       "List and search photos",
       std::string(searchHelp) +
           "\n\n"
           "Prints one line per photo: id, file name, rating, flag, label, capture date and the\n"
           "capture summary. SEARCH may be several words; every word must match.\n"
           "Search words: plain words match name, camera, lens and keywords; key:value tokens\n"
           "filter one field: rating:>=3 (or stars:), iso:>800, flag:pick|reject, label:red,\n"
           "camera:canon, lens:50, name:IMG_ (or file:), keyword:sky (or kw:, tag:), type:raw,\n"
           "type:heic, edited:yes. Quote values with blanks: camera:\"EOS R5\". A rating or iso\n"
           "comparison with a value that is not a whole number compares with 0.\n\n"
           "  --min-rating N   at least N stars (0 to 5)\n"
           "  --flag F         any, picks, rejects, unflagged or notRejected\n"
           "  --label KEY      red, yellow, green, blue or purple; repeat for several\n"
           "  --folder PATH    photos in this folder and its subfolders\n"
           "  --collection ID  photos in this collection\n"
           "  --edited         only edited photos\n"
           "  --sort KEY       captureDate (default), importDate, name, rating, editDate, fileSize\n"
           "  --ascending      oldest, smallest or A first (default: newest first)\n"
           "With --json, prints the photo records as a JSON array.",
       {{"--edited", "--ascending"},
        {"--min-rating", "--flag", "--label", "--folder", "--collection", "--sort"}},
       list});
  table.push_back({"rate",
                   "rate IDS N",
                   "Set the star rating (0 to 5) of photos",
                   "A rating above 5 stores 5, below 0 stores 0. Every id must be in the library;\n"
                   "otherwise nothing changes.",
                   {},
                   rate});
  table.push_back({"flag",
                   "flag IDS pick|reject|none",
                   "Flag photos as picks or rejects, or clear the flag",
                   "Every id must be in the library; otherwise nothing changes.",
                   {},
                   flag});
  table.push_back({"label",
                   "label IDS red|yellow|green|blue|purple|none",
                   "Set or clear the colour label of photos",
                   "Every id must be in the library; otherwise nothing changes.",
                   {},
                   label});
  table.push_back({"keywords",
                   "keywords [ID]",
                   "List a photo's keywords, or every keyword with its photo count",
                   "",
                   {},
                   keywords});
  table.push_back({"keyword",
                   "keyword add IDS WORDS | keyword remove IDS WORD",
                   "Add keywords to photos or remove one",
                   "WORDS are separated by commas or semicolons (\"sky, blue hour; sea\"); words on\n"
                   "the command line after IDS are joined with blanks. Keywords are stored trimmed\n"
                   "and in lower case. Every id must be in the library; otherwise nothing changes.\n"
                   "remove fails (exit 1) when none of the photos has the keyword.",
                   {},
                   keyword});
  table.push_back({"collection",
                   "collection list|create NAME [IDS]|rename ID NAME|delete ID|add ID IDS|remove ID IDS",
                   "List, make, rename and delete collections, and add or remove photos",
                   "create with a name that is taken gives the existing collection. Deleting a\n"
                   "collection keeps its photos in the library.",
                   {},
                   collection});
  table.push_back(
      {"folders", "folders", "List the import folders and the number of photos per folder", "", {}, folders});
  table.push_back({"remove",
                   "remove IDS [--yes]",
                   "Remove photos from the library (the files stay untouched)",
                   "Removes the photos with their keywords, collection places, history and snapshots,\n"
                   "and their cached thumbnails. The photo files themselves are never touched.\n"
                   "Asks first on a terminal; elsewhere --yes (or -y) is required.\n\n"
                   "  --yes, -y   do not ask",
                   {{"--yes", "-y"}, {}},
                   removePhotos});
}

}  // namespace lumivale::cli
