#include "engine/catalog/photo_library.h"

#include <algorithm>
#include <climits>
#include <system_error>

namespace lumivale {
namespace {

// Run as one script on every open. Every statement is idempotent, so opening
// an existing library changes nothing; the format has a single version.
const char* const schemaScript = R"SQL(
PRAGMA journal_mode=WAL; PRAGMA foreign_keys=ON;
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

PhotoLibrary::PhotoLibrary(std::filesystem::path folder) : folder_(std::move(folder)) {
  std::error_code error;
  std::filesystem::create_directories(thumbFolder(), error);
  if (error || !std::filesystem::is_directory(thumbFolder())) {
    std::string reason = error ? error.message() : "it is not a folder";
    throw FileError("Cannot create the folder " + thumbFolder().string() + ": " + reason);
  }
  db_ = std::make_unique<SQLiteDB>(databasePath().string());
  db_->exec(schemaScript);
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
