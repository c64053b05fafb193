#include "cli/common.h"

#include <algorithm>

#include "engine/catalog/library_query.h"
#include "engine/catalog/photo_library.h"

namespace lumivale::cli {

std::string joined(const std::vector<std::string>& parts, const std::string& separator) {
  std::string text;
  for (const std::string& p : parts) text += (text.empty() ? "" : separator) + p;
  return text;
}

std::string plural(std::size_t n, const std::string& one, const std::string& many) {
  return std::to_string(n) + " " + (n == 1 ? one : many);
}

std::string photoCount(std::size_t n) { return plural(n, "photo", "photos"); }

void requireCount(const Arguments& args, std::size_t count, const std::string& usage) {
  if (args.positional.size() != count) throw UsageError("expected: " + usage);
}

std::string textFrom(const Arguments& args, std::size_t index) {
  std::vector<std::string> rest;
  for (std::size_t i = index; i < args.positional.size(); ++i) rest.push_back(args.positional[i]);
  return joined(rest, " ");
}

std::string requireName(const std::string& name, const std::string& what) {
  if (trimmed(name).empty()) throw UsageError(what + " needs a name");
  return name;
}

std::int64_t parseRowId(const std::string& text, const std::string& what) {
  std::int64_t id = parseInteger(text, what);
  if (id < 1) throw UsageError("'" + text + "' is not a valid " + what);
  return id;
}

void requirePhotos(PhotoLibrary& library, const Ids& ids, bool writing) {
  Ids missing = library.missingPhotos(ids);
  if (missing.empty()) return;
  std::string list;
  const std::size_t shown = std::min<std::size_t>(missing.size(), 10);
  for (std::size_t i = 0; i < shown; ++i) list += (i ? ", " : "") + std::to_string(missing[i]);
  if (missing.size() > shown) list += " and " + std::to_string(missing.size() - shown) + " more";
  throw CommandError((missing.size() == 1 ? "no photo with id " : "no photos with ids ") + list +
                     (writing ? "; nothing was changed" : ""));
}

PhotoRecord existingPhoto(PhotoLibrary& library, std::int64_t id) {
  auto record = library.photo(id);
  if (!record) throw CommandError("no photo with id " + std::to_string(id));
  return *record;
}

}  // namespace lumivale::cli
