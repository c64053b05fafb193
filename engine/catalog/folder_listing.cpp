#include "engine/catalog/folder_listing.h"

#include <algorithm>
#include <array>

#include "engine/catalog/library_location.h"
#include "engine/media/photo_formats.h"
#include "engine/catalog/photo_library.h"
#include "engine/util/natural_order.h"

namespace fs = std::filesystem;

namespace lumivale {
namespace {

bool endsWithNoCase(std::string_view text, std::string_view suffix) {
  if (text.size() < suffix.size()) return false;
  std::string_view tail = text.substr(text.size() - suffix.size());
  return std::equal(tail.begin(), tail.end(), suffix.begin(), [](char a, char b) {
    if (a >= 'A' && a <= 'Z') a = static_cast<char>(a - 'A' + 'a');
    return a == b;
  });
}

bool isOurLibrary(const fs::path& folder, std::string_view name, const fs::path& libraryFolder) {
  if (name == libraryFolderName) return true;
  if (libraryFolder.empty()) return false;
  std::error_code error;
  return fs::equivalent(folder, libraryFolder, error) && !error;
}

[[noreturn]] void cannotList(const fs::path& folder, const std::string& reason) {
  throw FileError("Cannot read the folder " + folder.string() + ": " + reason);
}

}  // namespace

bool isPackageName(std::string_view name) {
  static constexpr std::array<std::string_view, 9> suffixes = {
      ".app", ".bundle", ".framework", ".plugin", ".photoslibrary", ".aplibrary", ".lrdata", ".fcpbundle",
      ".imovielibrary"};
  return std::any_of(suffixes.begin(), suffixes.end(),
                     [&](std::string_view s) { return name.size() > s.size() && endsWithNoCase(name, s); });
}

fs::path standardizedPath(const fs::path& path) {
  std::error_code error;
  fs::path absolute = fs::absolute(path, error);
  if (error) absolute = path;
  fs::path normal = absolute.lexically_normal();
  if (!normal.has_filename() && normal != normal.root_path()) normal = normal.parent_path();
  return normal;
}

std::vector<fs::path> listPhotoFiles(const fs::path& folder, bool recursive, const fs::path& libraryFolder) {
  const fs::path root = standardizedPath(folder);
  std::error_code error;
  fs::file_status status = fs::status(root, error);
  if (error) cannotList(root, error.message());
  if (!fs::is_directory(status)) cannotList(root, "it is not a folder");

  std::vector<fs::path> files;
  if (isOurLibrary(root, root.filename().string(), libraryFolder)) return files;

  // Folders still to list; an explicit stack instead of recursion keeps deep
  // trees off the call stack.
  std::vector<fs::path> pending{root};
  while (!pending.empty()) {
    fs::path current = std::move(pending.back());
    pending.pop_back();
    fs::directory_iterator it(current, error);
    if (error) {
      if (current == root) cannotList(root, error.message());
      continue;  // an unreadable subfolder is passed over
    }
    for (; it != fs::directory_iterator(); it.increment(error)) {
      const fs::path& entry = it->path();
      std::string name = entry.filename().string();
      if (name.empty() || name[0] == '.') continue;
      std::error_code entryError;
      fs::file_status target = it->status(entryError);  // follows links
      if (entryError) continue;  // a broken link, or an entry gone meanwhile
      if (fs::is_regular_file(target)) {
        if (PhotoFormats::isSupported(entry)) files.push_back(entry);
      } else if (recursive && fs::is_directory(target)) {
        if (it->is_symlink(entryError) || entryError) continue;
        if (isPackageName(name) || isOurLibrary(entry, name, libraryFolder)) continue;
        pending.push_back(entry);
      }
    }
    // A failure while reading further entries ends this folder's listing
    // with what was read.
    error.clear();
  }
  std::sort(files.begin(), files.end(),
            [](const fs::path& a, const fs::path& b) { return naturalLess(a.native(), b.native()); });
  return files;
}

}  // namespace lumivale
