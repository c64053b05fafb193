#pragma once
// The catalog: one library folder holding the SQLite database and the
// thumbnail cache. `PhotoLibrary` is the only place that issues SQL; the rest
// of the system reads `PhotoRecord` values and changes them through it.
//
// Reads never throw (a failed read gives no rows, defaults or nothing);
// writes throw `SQLError`, and writes of several statements are transactions.
// All access goes through the database's recursive lock, so a library may be
// used from several threads.

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "engine/catalog/photo_record.h"
#include "engine/catalog/sqlite_db.h"

namespace lumivale {

/// A library folder or one of its files could not be created or reached.
class FileError : public std::runtime_error {
 public:
  explicit FileError(const std::string& description) : std::runtime_error(description) {}
};

class PhotoLibrary {
 public:
  /// The value of the `format` row of the `meta` table.
  static constexpr const char* formatName = "KUVO Lumivale library 1";
  static constexpr const char* databaseName = "Lumivale Library.sqlite";
  static constexpr const char* thumbnailsName = "Thumbnails";
  /// Longest side of a grid thumbnail, in pixels.
  static constexpr int thumbSide = 420;
  /// The column list every photo read starts with.
  static const std::string recordColumns;

  /// Opens or creates the library at `folder`: makes the "Thumbnails" folder
  /// (with missing parents), opens the database and runs the schema script.
  /// Throws FileError or SQLError; no library results then.
  explicit PhotoLibrary(std::filesystem::path folder);

  const std::filesystem::path& folder() const { return folder_; }
  std::filesystem::path databasePath() const { return folder_ / databaseName; }
  std::filesystem::path thumbFolder() const { return folder_ / thumbnailsName; }
  SQLiteDB& db() { return *db_; }

  /// Maps one row of `recordColumns` to a record; missing or NULL columns
  /// take the record's defaults.
  static PhotoRecord record(const SQLRow& row);

  /// The photo with this id, or nothing.
  std::optional<PhotoRecord> photo(std::int64_t id);

  /// Number of photos in the catalog; 0 when it cannot be read.
  int count();

  /// The value of a `meta` row, or nothing.
  std::optional<std::string> meta(const std::string& key);

 private:
  std::filesystem::path folder_;
  std::unique_ptr<SQLiteDB> db_;
};

}  // namespace lumivale
