// Import: catalogue photo files where they lie, with their header metadata.
//
// Three phases. The catalogued paths are read once into a set, so files
// already in the library are never opened again. Headers of the remaining
// files are read in parallel, each into its own slot. Then every row goes in
// on this thread inside one transaction, with the folder's own row: an
// import either lands whole or, on an SQL error, not at all.

#include <algorithm>
#include <chrono>
#include <mutex>
#include <unordered_set>

#include "engine/catalog/folder_listing.h"
#include "engine/media/photo_formats.h"
#include "engine/catalog/photo_library.h"
#include "engine/catalog/photo_meta.h"
#include "engine/util/clock.h"
#include "engine/util/parallel.h"

namespace lumivale {
namespace {

const char* const insertPhoto =
    "INSERT OR IGNORE INTO photos(path, folder, name, ext, size, width, height, capture, imported, camera, "
    "lens, iso, shutter, aperture, focal, raw)\nVALUES(?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?)";
const char* const insertKeyword = "INSERT OR IGNORE INTO keywords(photo, word) VALUES(?, ?)";

// Progress is reported only at multiples of this many files handled.
constexpr int progressStep = 50;

}  // namespace

ImportResult PhotoLibrary::importFiles(const std::vector<std::filesystem::path>& files,
                                       const ImportProgress& progress) {
  return importListed(files, progress, std::nullopt);
}

ImportResult PhotoLibrary::importListed(const std::vector<std::filesystem::path>& files,
                                        const ImportProgress& progress,
                                        const std::optional<std::filesystem::path>& folder) {
  const auto start = std::chrono::steady_clock::now();
  ImportResult result;

  std::unordered_set<std::string> known;
  for (const SQLRow& row : db_->query("SELECT path FROM photos")) {
    if (!row.empty()) {
      if (auto path = row.front().stringValue()) known.insert(std::move(*path));
    }
  }
  std::vector<std::filesystem::path> work;
  for (const auto& file : files) {
    std::filesystem::path path = standardizedPath(file);
    if (!known.insert(path.string()).second) {
      ++result.skipped;
      continue;
    }
    work.push_back(std::move(path));
  }

  std::vector<std::optional<PhotoMeta>> metas(work.size());
  std::mutex slots;
  parallelFor(work.size(), [&](std::size_t i) {
    std::optional<PhotoMeta> meta = PhotoMeta::read(work[i]);
    std::lock_guard lock(slots);
    metas[i] = std::move(meta);
  });

  ImportResult inserted = insertPhotos(work, metas, progress, folder);
  result.added = inserted.added;
  result.skipped += inserted.skipped;
  result.failed = inserted.failed;
  result.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  return result;
}

ImportResult PhotoLibrary::insertPhotos(const std::vector<std::filesystem::path>& files,
                                        const std::vector<std::optional<PhotoMeta>>& metas,
                                        const ImportProgress& progress,
                                        const std::optional<std::filesystem::path>& folder) {
  ImportResult result;
  const double importTime = nowSeconds();
  const int total = static_cast<int>(std::min(files.size(), metas.size()));
  db_->transaction([&] {
    for (int i = 0; i < total; ++i) {
      const std::filesystem::path& path = files[i];
      if (const auto& meta = metas[i]) {
        const std::int64_t id = db_->run(
            insertPhoto, {path.string(), path.parent_path().string(), path.filename().string(),
                          PhotoFormats::extension(path), meta->fileSize, meta->width, meta->height,
                          SQLValue::optional(meta->capture), importTime, meta->camera, meta->lens, meta->iso,
                          meta->shutter, meta->aperture, meta->focal, PhotoFormats::isRaw(path) ? 1 : 0});
        // The set of known paths was read before the headers; another
        // import of the same files may have landed since. Its rows stand,
        // and this import neither counts nor touches them.
        if (db_->changes() == 0) {
          ++result.skipped;
        } else {
          ++result.added;
          for (const std::string& word : meta->keywords) {
            std::string w = keywordForm(word);
            if (!w.empty()) db_->run(insertKeyword, {id, w});
          }
        }
      } else {
        ++result.failed;
      }
      int handled = i + 1;
      if (progress && handled % progressStep == 0) progress(handled, total);
    }
    // In the same transaction: photos never land without their import
    // folder, and a failure to record it leaves no photos behind.
    if (folder) {
      db_->run("INSERT OR IGNORE INTO folders(path, added) VALUES(?, ?)", {folder->string(), importTime});
    }
  });
  return result;
}

ImportResult PhotoLibrary::importFolder(const std::filesystem::path& folder, bool recursive,
                                        const ImportProgress& progress) {
  const std::filesystem::path root = standardizedPath(folder);
  return importListed(listPhotoFiles(root, recursive, folder_), progress, root);
}

}  // namespace lumivale
