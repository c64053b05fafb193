#include "engine/catalog/photo_library.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <system_error>

#include "engine/media/safe_file.h"
#include "engine/util/clock.h"

namespace lumivale {
namespace {

// The schema, made in one transaction when the catalog is new or its
// schema incomplete, so that a crash never leaves half a catalog. Every
// statement is idempotent. An existing, complete catalog is opened without
// any write at all: reading needs no write access and never waits for a
// writer elsewhere. The format has a single version, recorded in `meta`.
const char* const schemaScript = R"SQL(
CREATE TABLE IF NOT EXISTS meta(key TEXT PRIMARY KEY, value TEXT);
CREATE TABLE IF NOT EXISTS photos(
  id INTEGER PRIMARY KEY,
  path TEXT UNIQUE NOT NULL,
  folder TEXT,
  name TEXT,
  ext TEXT,
  size INTEGER,
  width INTEGER,
  height INTEGER,
  capture REAL,
  imported REAL,
  camera TEXT,
  lens TEXT,
  iso INTEGER,
  shutter REAL,
  aperture REAL,
  focal REAL,
  rating INTEGER DEFAULT 0,
  flag INTEGER DEFAULT 0,
  label TEXT DEFAULT '',
  raw INTEGER DEFAULT 0,
  edits BLOB,
  edited INTEGER DEFAULT 0,
  editDate REAL,
  histPos INTEGER DEFAULT 0
);
CREATE INDEX IF NOT EXISTS photos_folder ON photos(folder);
CREATE INDEX IF NOT EXISTS photos_capture ON photos(capture);
CREATE TABLE IF NOT EXISTS keywords(photo INTEGER, word TEXT, PRIMARY KEY(photo, word));
CREATE INDEX IF NOT EXISTS keywords_word ON keywords(word);
CREATE TABLE IF NOT EXISTS collections(id INTEGER PRIMARY KEY, name TEXT UNIQUE, created REAL);
CREATE TABLE IF NOT EXISTS collection_items(collection INTEGER, photo INTEGER, PRIMARY KEY(collection, photo));
CREATE TABLE IF NOT EXISTS history(photo INTEGER, seq INTEGER, name TEXT, edits BLOB, date REAL, PRIMARY KEY(photo, seq));
CREATE TABLE IF NOT EXISTS snapshots(id INTEGER PRIMARY KEY, photo INTEGER, name TEXT, edits BLOB, date REAL);
CREATE TABLE IF NOT EXISTS presets(id INTEGER PRIMARY KEY, name TEXT UNIQUE, edits BLOB, groups TEXT, created REAL);
CREATE TABLE IF NOT EXISTS folders(path TEXT PRIMARY KEY, added REAL);
INSERT OR IGNORE INTO meta(key, value) VALUES('format', 'KUVO Lumivale library 1');
)SQL";

// What the script makes, by type.
const std::set<std::string> schemaTables{"meta",        "photos",           "keywords",
                                         "collections", "collection_items", "history",
                                         "snapshots",   "presets",          "folders"};
const std::set<std::string> schemaIndexes{"photos_folder", "photos_capture", "keywords_word"};

// A passing check counts for this long.
constexpr double checkInterval = 24 * 3600;

// A time kept as text in `meta`, when it reads as one.
std::optional<double> storedTime(const std::optional<std::string>& text) {
  if (!text || text->empty()) return std::nullopt;
  char* end = nullptr;
  const double seconds = std::strtod(text->c_str(), &end);
  return *end == '\0' ? std::optional(seconds) : std::nullopt;
}

std::int64_t intAt(const SQLRow& row, std::size_t i) {
  return i < row.size() ? row[i].intValue().value_or(0) : 0;
}
// A 32-bit record field: a damaged value beyond its range saturates
// rather than wrapping round to an unrelated number or changing sign.
int smallIntAt(const SQLRow& row, std::size_t i) {
  return static_cast<int>(std::clamp<std::int64_t>(intAt(row, i), INT_MIN, INT_MAX));
}
double doubleAt(const SQLRow& row, std::size_t i) {
  return i < row.size() ? row[i].doubleValue().value_or(0) : 0;
}
std::optional<double> optionalDoubleAt(const SQLRow& row, std::size_t i) {
  return i < row.size() ? row[i].doubleValue() : std::nullopt;
}
std::string stringAt(const SQLRow& row, std::size_t i) {
  return i < row.size() ? row[i].stringValue().value_or("") : "";
}

}  // namespace

const std::string PhotoLibrary::recordColumns =
    "SELECT id, path, folder, name, ext, size, width, height, capture, imported, camera, lens, "
    "iso, shutter, aperture, focal, rating, flag, label, raw, edited, editDate FROM photos";

PhotoLibrary::PhotoLibrary(std::filesystem::path folder, const LibraryOptions& options)
    : folder_(std::move(folder)) {
  std::error_code error;
  std::filesystem::create_directories(thumbFolder(), error);
  const bool existed = nameTaken(databasePath());
  std::optional<std::string> cannotWrite = unwritableReason(folder_);
  if (!cannotWrite && existed) cannotWrite = unwritableReason(databasePath());
  if (error || !std::filesystem::is_directory(thumbFolder())) {
    // A catalog that is there can still be read where nothing can be made.
    if (!existed || !cannotWrite) {
      std::string reason = error ? error.message() : "it is not a folder";
      throw FileError("Cannot create the folder " + thumbFolder().string() + ": " + reason);
    }
  }
  if (cannotWrite && !existed) {
    throw FileError("Cannot create the catalog in " + quotedPath(folder_) + ": " + *cannotWrite);
  }

  // Not closed cleanly: SQLite writes every change to the write-ahead log
  // first and empties it into the catalog when the last connection closes.
  // A log with anything in it, while no program of ours holds the library,
  // means the last one ended without closing. (A read-only connection may
  // leave an empty log behind; that says nothing.)
  bool alone = false;
  lock_ = FolderLock::shared(folder_, &alone);
  std::error_code walError;
  const auto walBytes = std::filesystem::file_size(databasePath().string() + "-wal", walError);
  safety_.closedCleanly = !(existed && alone && !walError && walBytes > 0);
  safety_.readOnly = cannotWrite.has_value();
  safety_.readOnlyReason = cannotWrite.value_or("");
  if (existed && options.checkWhenDue) {
    checkBeforeOpening();
  } else if (!safety_.closedCleanly && !safety_.readOnly) {
    // Closing a read-write connection would checkpoint and delete the log,
    // and with it the sign that a check is due.
    safety_.readOnly = true;
    safety_.readOnlyReason = "it was not closed cleanly and has not been checked since";
  }

  db_ = std::make_unique<SQLiteDB>(
      databasePath().string(), safety_.readOnly ? SQLiteDB::Access::readOnly : SQLiteDB::Access::readWrite);
  if (safety_.readOnly) {
    db_->explainReadOnly(readOnlyMessage());
  }
  prepareSchema();
  safety_.lastCheck = storedTime(meta("lastCheck"));
  if (safety_.check.passed()) recordCheck(safety_.check);
  // The reads of opening are not the caller's.
  db_->takeReadError();
}

void PhotoLibrary::checkBeforeOpening() {
  SQLiteDB probe(databasePath().string(), SQLiteDB::Access::readOnly);
  std::string reason;
  if (!safety_.closedCleanly) {
    reason = "it was not closed cleanly";
  } else {
    auto rows = probe.query("SELECT value FROM meta WHERE key = 'lastCheck'");
    const auto last = storedTime(rows.empty() || rows[0].empty() ? std::nullopt : rows[0][0].stringValue());
    const double now = nowSeconds();
    if (!last) {
      reason = "no check has passed yet";
    } else if (now - *last > checkInterval || *last > now + checkInterval) {
      reason = "no check has passed for a day";
    }
  }
  if (reason.empty()) return;
  safety_.check = checkCatalog(probe, reason);
  if (safety_.check.failed()) {
    throw CatalogDamaged(databasePath(), safety_.check, CatalogBackups::lastGood(folder_));
  }
}

void PhotoLibrary::prepareSchema() {
  const std::string file = quotedPath(databasePath());
  const auto unreadable = [&](const std::string& error) {
    return SQLError("Cannot read the catalog " + file + ": " + error);
  };
  std::set<std::string> tables, indexes;
  db_->forEachRow(
      "SELECT type, name FROM sqlite_master "
      "WHERE type IN ('table', 'index') AND name NOT LIKE 'sqlite\\_%' ESCAPE '\\'",
      {}, [&](const SQLRow& row) {
        const std::string name = row.at(1).stringValue().value_or("");
        (row.at(0).stringValue() == "table" ? tables : indexes).insert(name);
      });
  if (auto error = db_->takeReadError()) throw unreadable(*error);
  std::optional<std::string> format;
  if (tables.count("meta")) format = meta("format");
  if (auto error = db_->takeReadError()) throw unreadable(*error);

  if (format && *format != formatName) {
    throw SQLError(file + " is a catalog of another format (\"" + *format + "\"); it was left as it is");
  }
  if (!format && !tables.empty()) {
    // Only what an interrupted creation can have left (some of our tables,
    // all empty) is completed; anything else belongs to another program.
    bool ours = std::includes(schemaTables.begin(), schemaTables.end(), tables.begin(), tables.end()) &&
                std::includes(schemaIndexes.begin(), schemaIndexes.end(), indexes.begin(), indexes.end());
    for (const std::string& table : tables) {
      ours = ours && db_->query("SELECT 1 FROM \"" + table + "\" LIMIT 1").empty();
    }
    if (!ours || db_->takeReadError()) {
      throw SQLError(file +
                     " is a database of another program, not a KUVO Lumivale catalog; it was left as it is");
    }
  }
  const bool complete =
      format && std::includes(tables.begin(), tables.end(), schemaTables.begin(), schemaTables.end()) &&
      std::includes(indexes.begin(), indexes.end(), schemaIndexes.begin(), schemaIndexes.end());
  if (!complete && !safety_.readOnly) {
    db_->exec("PRAGMA journal_mode=WAL");
    db_->transaction([&] {
      db_->exec(schemaScript);
      // A new catalog has nothing to check until tomorrow.
      db_->run("INSERT OR IGNORE INTO meta(key, value) VALUES('lastCheck', ?)",
               {std::to_string(nowSeconds())});
    });
  } else if (!complete && !format) {
    throw SQLError("The catalog " + file + " cannot be made: " + safety_.readOnlyReason);
  } else if (!safety_.readOnly) {
    // A restored backup comes in rollback-journal mode.
    auto mode = db_->query("PRAGMA journal_mode");
    if (mode.empty() || mode[0].empty() || mode[0][0].stringValue() != "wal")
      db_->exec("PRAGMA journal_mode=WAL");
  }
  db_->exec("PRAGMA foreign_keys=ON");
}

void PhotoLibrary::recordCheck(const CatalogCheck& check) {
  if (!check.passed()) return;
  {
    std::lock_guard guard(safetyMutex);
    safety_.lastCheck = check.at;
    if (safety_.readOnly) return;
  }
  try {
    db_->run("INSERT OR REPLACE INTO meta(key, value) VALUES('lastCheck', ?)", {std::to_string(check.at)});
  } catch (const SQLError&) {
    // Busy elsewhere for long: the next opening checks once more.
  }
}

CatalogCheck PhotoLibrary::checkNow() {
  CatalogCheck check;
  try {
    SQLiteDB probe(databasePath().string(), SQLiteDB::Access::readOnly);
    check = checkCatalog(probe, "it was asked for");
  } catch (const SQLError& e) {
    check = CatalogCheck::failedWith(e.what());
  }
  {
    std::lock_guard guard(safetyMutex);
    safety_.check = check;
  }
  recordCheck(check);
  return check;
}

CatalogSafety PhotoLibrary::safety() const {
  std::lock_guard guard(safetyMutex);
  return safety_;
}

bool PhotoLibrary::readOnly() const {
  std::lock_guard guard(safetyMutex);
  return safety_.readOnly;
}

std::string PhotoLibrary::readOnlyMessage() const {
  return "The library " + quotedPath(folder_) + " is read-only (" + safety_.readOnlyReason +
         "); nothing was changed";
}

void PhotoLibrary::requireWritable() const {
  if (readOnly()) throw SQLError(readOnlyMessage());
}

PhotoRecord PhotoLibrary::record(const SQLRow& row) {
  PhotoRecord r;
  r.id = intAt(row, 0);
  r.path = stringAt(row, 1);
  r.folder = stringAt(row, 2);
  r.name = stringAt(row, 3);
  r.ext = stringAt(row, 4);
  r.fileSize = intAt(row, 5);
  r.width = smallIntAt(row, 6);
  r.height = smallIntAt(row, 7);
  r.captureDate = optionalDoubleAt(row, 8);
  r.importDate = doubleAt(row, 9);
  r.camera = stringAt(row, 10);
  r.lens = stringAt(row, 11);
  r.iso = smallIntAt(row, 12);
  r.shutter = doubleAt(row, 13);
  r.aperture = doubleAt(row, 14);
  r.focalLength = doubleAt(row, 15);
  r.rating = smallIntAt(row, 16);
  r.flag = smallIntAt(row, 17);
  r.label = stringAt(row, 18);
  r.isRaw = intAt(row, 19) != 0;
  r.edited = intAt(row, 20) != 0;
  r.editDate = optionalDoubleAt(row, 21);
  return r;
}

std::optional<PhotoRecord> PhotoLibrary::photo(std::int64_t id) {
  auto rows = db_->query(recordColumns + " WHERE id = ?", {id});
  if (rows.empty()) return std::nullopt;
  return record(rows.front());
}

int PhotoLibrary::count() {
  auto rows = db_->query("SELECT COUNT(*) FROM photos");
  if (rows.empty() || rows.front().empty()) return 0;
  return static_cast<int>(rows.front().front().intValue().value_or(0));
}

std::optional<std::string> PhotoLibrary::meta(const std::string& key) {
  auto rows = db_->query("SELECT value FROM meta WHERE key = ?", {key});
  if (rows.empty() || rows.front().empty()) return std::nullopt;
  return rows.front().front().stringValue();
}

}  // namespace lumivale
