// Ratings, flags, labels, keywords, collections, folder lists and removal.

#include <algorithm>
#include <mutex>
#include <system_error>

#include "engine/catalog/photo_library.h"
#include "engine/util/clock.h"
#include "engine/util/text.h"

namespace lumivale {
namespace {

std::int64_t firstInt(const std::vector<SQLRow>& rows, std::int64_t fallback = 0) {
  if (rows.empty() || rows.front().empty()) return fallback;
  return rows.front().front().intValue().value_or(fallback);
}

// A list of ids as one JSON array, handed to a statement as a single
// parameter and read back with json_each. A write over many photos is then
// one statement: all or nothing by itself, and prepared once rather than
// once per photo (100,000 separate statements, each its own transaction,
// take seconds and can be cut off half done).
std::string idArray(const std::vector<std::int64_t>& ids) {
  std::string text = "[";
  for (std::size_t i = 0; i < ids.size(); ++i) {
    if (i) text += ',';
    text += std::to_string(ids[i]);
  }
  text += ']';
  return text;
}

}  // namespace

std::string PhotoLibrary::keywordForm(const std::string& word) { return lowercased(trimmed(word)); }

void PhotoLibrary::setRating(const std::vector<std::int64_t>& ids, int rating) {
  if (ids.empty()) return;
  db_->run("UPDATE photos SET rating = ? WHERE id IN (SELECT value FROM json_each(?))",
           {std::clamp(rating, 0, 5), idArray(ids)});
}

void PhotoLibrary::setFlag(const std::vector<std::int64_t>& ids, int flag) {
  if (ids.empty()) return;
  db_->run("UPDATE photos SET flag = ? WHERE id IN (SELECT value FROM json_each(?))", {flag, idArray(ids)});
}

void PhotoLibrary::setLabel(const std::vector<std::int64_t>& ids, const std::string& label) {
  if (ids.empty()) return;
  db_->run("UPDATE photos SET label = ? WHERE id IN (SELECT value FROM json_each(?))", {label, idArray(ids)});
}

std::vector<std::string> PhotoLibrary::keywords(std::int64_t id) {
  std::vector<std::string> words;
  for (const SQLRow& row : db_->query("SELECT word FROM keywords WHERE photo = ? ORDER BY word", {id})) {
    if (!row.empty()) words.push_back(row[0].stringValue().value_or(""));
  }
  return words;
}

std::vector<std::pair<std::string, int>> PhotoLibrary::allKeywords() {
  std::vector<std::pair<std::string, int>> words;
  for (const SQLRow& row : db_->query("SELECT word, COUNT(*) FROM keywords GROUP BY word ORDER BY word")) {
    if (row.size() < 2) continue;
    words.emplace_back(row[0].stringValue().value_or(""), static_cast<int>(row[1].intValue().value_or(0)));
  }
  return words;
}

void PhotoLibrary::addKeywords(const std::vector<std::int64_t>& ids, const std::vector<std::string>& words) {
  std::vector<std::string> normalised;
  for (const std::string& word : words) {
    std::string w = keywordForm(word);
    // A blank keyword could never be typed back into a search or removed by
    // name from the keyword list, so it is not stored at all.
    if (!w.empty()) normalised.push_back(std::move(w));
  }
  if (ids.empty() || normalised.empty()) return;
  // Only photos in the catalog get keywords: a row for an unknown id would
  // be an orphan that no removal cleans up.
  const std::string list = idArray(ids);
  db_->transaction([&] {
    for (const std::string& word : normalised) {
      db_->run(
          "INSERT OR IGNORE INTO keywords(photo, word) SELECT id, ? FROM photos "
          "WHERE id IN (SELECT value FROM json_each(?))",
          {word, list});
    }
  });
}

int PhotoLibrary::removeKeyword(const std::vector<std::int64_t>& ids, const std::string& word) {
  if (ids.empty()) return 0;
  std::lock_guard hold(db_->lock());
  db_->run("DELETE FROM keywords WHERE word = ? AND photo IN (SELECT value FROM json_each(?))",
           {keywordForm(word), idArray(ids)});
  return static_cast<int>(db_->changes());
}

std::vector<Collection> PhotoLibrary::collections() {
  std::vector<Collection> result;
  auto rows = db_->query(
      "SELECT c.id, c.name, (SELECT COUNT(*) FROM collection_items i WHERE i.collection = c.id) "
      "FROM collections c ORDER BY c.name COLLATE NOCASE");
  for (const SQLRow& row : rows) {
    if (row.size() < 3) continue;
    result.push_back({row[0].intValue().value_or(0), row[1].stringValue().value_or(""),
                      static_cast<int>(row[2].intValue().value_or(0))});
  }
  return result;
}

std::int64_t PhotoLibrary::createCollection(const std::string& name) {
  // Held across both statements so the id read back is the one this call
  // made or found, whatever other threads do meanwhile.
  std::lock_guard hold(db_->lock());
  db_->run("INSERT OR IGNORE INTO collections(name, created) VALUES(?, ?)", {name, nowSeconds()});
  std::int64_t id = firstInt(db_->query("SELECT id FROM collections WHERE name = ?", {name}), 0);
  if (id == 0) throw SQLError("The collection \"" + name + "\" could not be read back");
  return id;
}

void PhotoLibrary::renameCollection(std::int64_t id, const std::string& name) {
  db_->run("UPDATE collections SET name = ? WHERE id = ?", {name, id});
}

void PhotoLibrary::deleteCollection(std::int64_t id) {
  // Two statements, so one transaction: a collection is never left without
  // its rows or its rows without the collection.
  db_->transaction([&] {
    db_->run("DELETE FROM collection_items WHERE collection = ?", {id});
    db_->run("DELETE FROM collections WHERE id = ?", {id});
  });
}

void PhotoLibrary::addToCollection(std::int64_t id, const std::vector<std::int64_t>& photos) {
  if (photos.empty()) return;
  db_->run(
      "INSERT OR IGNORE INTO collection_items(collection, photo) SELECT ?, id FROM photos "
      "WHERE id IN (SELECT value FROM json_each(?))",
      {id, idArray(photos)});
}

void PhotoLibrary::removeFromCollection(std::int64_t id, const std::vector<std::int64_t>& photos) {
  if (photos.empty()) return;
  db_->run("DELETE FROM collection_items WHERE collection = ? AND photo IN (SELECT value FROM json_each(?))",
           {id, idArray(photos)});
}

std::set<std::int64_t> PhotoLibrary::collectionsContaining(std::int64_t photo) {
  std::set<std::int64_t> ids;
  for (const SQLRow& row : db_->query("SELECT collection FROM collection_items WHERE photo = ?", {photo})) {
    if (!row.empty()) {
      if (auto id = row[0].intValue()) ids.insert(*id);
    }
  }
  return ids;
}

std::vector<std::string> PhotoLibrary::folders() {
  std::vector<std::string> paths;
  for (const SQLRow& row : db_->query("SELECT path FROM folders ORDER BY path COLLATE NOCASE")) {
    if (!row.empty()) paths.push_back(row[0].stringValue().value_or(""));
  }
  return paths;
}

std::map<std::string, int> PhotoLibrary::folderCounts() {
  std::map<std::string, int> counts;
  for (const SQLRow& row : db_->query("SELECT folder, COUNT(*) FROM photos GROUP BY folder")) {
    if (row.size() < 2) continue;
    // A photo row without a folder is counted under the empty path.
    counts[row[0].stringValue().value_or("")] += static_cast<int>(row[1].intValue().value_or(0));
  }
  return counts;
}

std::vector<std::int64_t> PhotoLibrary::missingPhotos(const std::vector<std::int64_t>& ids) {
  std::vector<std::int64_t> missing;
  if (ids.empty()) return missing;
  for (const SQLRow& row :
       db_->query("SELECT j.value FROM json_each(?) j "
                  "WHERE NOT EXISTS (SELECT 1 FROM photos WHERE id = j.value) ORDER BY j.key",
                  {idArray(ids)})) {
    if (auto id = row.at(0).intValue()) missing.push_back(*id);
  }
  return missing;
}

void PhotoLibrary::remove(const std::vector<std::int64_t>& ids) {
  if (ids.empty()) return;
  // keywords and history are keyed by photo first, so a per-photo delete is
  // an index lookup. collection_items is keyed by collection first: a plain
  // "WHERE photo = ?" would scan all of it for every photo, so the delete
  // walks the distinct collections through the key (a skip scan) and looks
  // up (collection, photo) pairs, with the batch's ids handed over as one
  // JSON array. snapshots has no index on photo at all and is cleared in one
  // pass for the whole batch.
  const std::string idList = idArray(ids);
  db_->transaction([&] {
    for (std::int64_t id : ids) {
      db_->run("DELETE FROM keywords WHERE photo = ?", {id});
    }
    db_->run(
        "WITH RECURSIVE present(collection) AS ("
        " SELECT MIN(collection) FROM collection_items"
        " UNION ALL SELECT (SELECT MIN(collection) FROM collection_items WHERE collection > present.collection)"
        " FROM present WHERE present.collection IS NOT NULL) "
        "DELETE FROM collection_items WHERE collection IN (SELECT collection FROM present)"
        " AND photo IN (SELECT value FROM json_each(?))",
        {idList});
    db_->run("DELETE FROM snapshots WHERE photo IN (SELECT value FROM json_each(?))", {idList});
    for (std::int64_t id : ids) {
      db_->run("DELETE FROM history WHERE photo = ?", {id});
      db_->run("DELETE FROM photos WHERE id = ?", {id});
    }
  });
  // Only after the commit: a removal that rolls back must leave its photos
  // with their thumbnails. The files are a cache, so a failure to delete one
  // (already gone, no permission) changes nothing that matters.
  for (std::int64_t id : ids) {
    std::error_code ignored;
    std::string stem = std::to_string(id);
    std::filesystem::remove(thumbFolder() / (stem + ".jpg"), ignored);
    std::filesystem::remove(thumbFolder() / (stem + "-e.jpg"), ignored);
  }
}

}  // namespace lumivale
