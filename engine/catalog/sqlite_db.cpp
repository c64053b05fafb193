#include "engine/catalog/sqlite_db.h"

#include <sqlite3.h>

#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <memory>

namespace lumivale {
namespace {

// SQLite copies bound bytes before the bind call returns.
const sqlite3_destructor_type transientBytes = SQLITE_TRANSIENT;

// SQLite counts every allocation under one global mutex unless told not to;
// with a statement prepared per call that is a quarter of a bulk insert's
// time, and nothing reads the counts. Only possible before SQLite starts, so
// it is done once, before the first connection opens.
void configureSqliteOnce() {
  static std::once_flag once;
  std::call_once(once, [] { sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0); });
}

}  // namespace

std::optional<std::int64_t> SQLValue::intValue() const {
  if (auto* i = std::get_if<std::int64_t>(&value)) return *i;
  if (auto* d = std::get_if<double>(&value)) {
    // Truncation toward zero; a value no integer can hold reads as absent
    // rather than bringing the program down over one damaged row.
    if (std::isnan(*d) || *d >= 9223372036854775808.0 || *d < -9223372036854775808.0) {
      return std::nullopt;
    }
    return static_cast<std::int64_t>(*d);
  }
  return std::nullopt;
}

std::optional<double> SQLValue::doubleValue() const {
  if (auto* i = std::get_if<std::int64_t>(&value)) return static_cast<double>(*i);
  if (auto* d = std::get_if<double>(&value)) return *d;
  return std::nullopt;
}

std::optional<std::string> SQLValue::stringValue() const {
  if (auto* s = std::get_if<std::string>(&value)) return *s;
  return std::nullopt;
}

std::optional<Blob> SQLValue::dataValue() const {
  if (auto* b = std::get_if<Blob>(&value)) return *b;
  if (auto* s = std::get_if<std::string>(&value)) return Blob(s->begin(), s->end());
  return std::nullopt;
}

SQLiteDB::SQLiteDB(const std::string& path) : path_(path) {
  configureSqliteOnce();
  int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX;
  sqlite3* handle = nullptr;
  int rc = sqlite3_open_v2(path.c_str(), &handle, flags, nullptr);
  if (rc != SQLITE_OK) {
    // sqlite3_open_v2 may hand back a handle even on failure; it must be closed.
    if (handle) sqlite3_close_v2(handle);
    throw SQLError("Cannot open the library database at " + path);
  }
  db = handle;
  sqlite3_busy_timeout(db, 4000);
}

SQLiteDB::~SQLiteDB() {
  if (db) sqlite3_close_v2(db);
}

void SQLiteDB::exec(const std::string& sql) {
  std::lock_guard guard(mutex);
  char* message = nullptr;
  int rc = sqlite3_exec(db, sql.c_str(), nullptr, nullptr, &message);
  if (rc != SQLITE_OK) {
    std::string description = message ? message : "error";
    sqlite3_free(message);
    throw SQLError(description);
  }
  sqlite3_free(message);
}

// Binds args to parameters 1, 2, 3 ...; parameters not covered stay NULL.
void SQLiteDB::bindArguments(sqlite3_stmt* stmt, const std::vector<SQLValue>& args) {
  int index = 1;
  for (const SQLValue& v : args) {
    if (auto* i = std::get_if<std::int64_t>(&v.value)) {
      sqlite3_bind_int64(stmt, index, *i);
    } else if (auto* d = std::get_if<double>(&v.value)) {
      sqlite3_bind_double(stmt, index, *d);
    } else if (auto* text = std::get_if<std::string>(&v.value)) {
      sqlite3_bind_text(stmt, index, text->c_str(), -1, transientBytes);
    } else if (auto* bytes = std::get_if<Blob>(&v.value)) {
      if (bytes->size() > static_cast<std::size_t>(INT_MAX)) {
        // SQLite's bind interface takes a 32-bit length; nothing this
        // program writes comes near it.
        std::abort();
      }
      // A zero-length blob needs a non-null pointer to stay a blob.
      static const std::uint8_t empty = 0;
      sqlite3_bind_blob(stmt, index, bytes->empty() ? &empty : bytes->data(),
                        static_cast<int>(bytes->size()), transientBytes);
    } else {
      sqlite3_bind_null(stmt, index);
    }
    ++index;
  }
}

std::int64_t SQLiteDB::run(const std::string& sql, const std::vector<SQLValue>& args) {
  std::lock_guard guard(mutex);
  sqlite3_stmt* stmt = nullptr;
  if (sqlite3_prepare_v2(db, sql.c_str(), -1, &stmt, nullptr) != SQLITE_OK) {
    std::string description = std::string(sqlite3_errmsg(db)) + " \u2014 " + sql;
    sqlite3_finalize(stmt);
    throw SQLError(description);
  }
  bindArguments(stmt, args);
  int rc = sqlite3_step(stmt);
  if (rc != SQLITE_ROW && rc != SQLITE_DONE) {
    std::string description = std::string(sqlite3_errmsg(db)) + " \u2014 " + sql;
    sqlite3_finalize(stmt);
    throw SQLError(description);
  }
  sqlite3_finalize(stmt);
  return sqlite3_last_insert_rowid(db);
}

std::int64_t SQLiteDB::changes() {
  std::lock_guard guard(mutex);
  return sqlite3_changes64(db);
}

void SQLiteDB::readColumn(sqlite3_stmt* stmt, int c, SQLValue& into) {
  switch (sqlite3_column_type(stmt, c)) {
    case SQLITE_INTEGER:
      into.value = static_cast<std::int64_t>(sqlite3_column_int64(stmt, c));
      break;
    case SQLITE_FLOAT:
      into.value = sqlite3_column_double(stmt, c);
      break;
    case SQLITE_TEXT: {
      auto* text = reinterpret_cast<const char*>(sqlite3_column_text(stmt, c));
      auto length = static_cast<std::size_t>(sqlite3_column_bytes(stmt, c));
      // Reuse the buffer of a text already in place (rows read one by one).
      if (auto* s = std::get_if<std::string>(&into.value)) {
        if (text) {
          s->assign(text, length);
        } else {
          s->clear();
        }
      } else {
        into.value = text ? std::string(text, length) : std::string();
      }
      break;
    }
    case SQLITE_BLOB: {
      auto* bytes = static_cast<const std::uint8_t*>(sqlite3_column_blob(stmt, c));
      int length = sqlite3_column_bytes(stmt, c);
      // A blob never reads as NULL, however short.
      if (!bytes || length < 1) {
        into.value = Blob{};
      } else {
        into.value = Blob(bytes, bytes + length);
      }
      break;
    }
    default:
      into.value = SQLValue::Null{};
      break;
  }
}

std::vector<SQLRow> SQLiteDB::query(const std::string& sql, const std::vector<SQLValue>& args) {
  std::lock_guard guard(mutex);
  std::vector<SQLRow> rows;
  sqlite3_stmt* stmt = nullptr;
  if (sqlite3_prepare_v2(db, sql.c_str(), -1, &stmt, nullptr) != SQLITE_OK || !stmt) {
    sqlite3_finalize(stmt);
    return rows;
  }
  bindArguments(stmt, args);
  const int columns = sqlite3_column_count(stmt);
  while (sqlite3_step(stmt) == SQLITE_ROW) {
    SQLRow row(static_cast<std::size_t>(columns));
    for (int c = 0; c < columns; ++c) readColumn(stmt, c, row[static_cast<std::size_t>(c)]);
    rows.push_back(std::move(row));
  }
  sqlite3_finalize(stmt);
  return rows;
}

void SQLiteDB::forEachRow(const std::string& sql, const std::vector<SQLValue>& args,
                          const std::function<void(const SQLRow&)>& body) {
  std::lock_guard guard(mutex);
  sqlite3_stmt* stmt = nullptr;
  if (sqlite3_prepare_v2(db, sql.c_str(), -1, &stmt, nullptr) != SQLITE_OK || !stmt) {
    sqlite3_finalize(stmt);
    return;
  }
  std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt*)> owned(stmt, sqlite3_finalize);
  bindArguments(stmt, args);
  SQLRow row(static_cast<std::size_t>(sqlite3_column_count(stmt)));
  while (sqlite3_step(stmt) == SQLITE_ROW) {
    for (std::size_t c = 0; c < row.size(); ++c) readColumn(stmt, static_cast<int>(c), row[c]);
    body(row);
  }
}

void SQLiteDB::transaction(const std::function<void()>& body) {
  std::lock_guard guard(mutex);
  exec("BEGIN IMMEDIATE");
  try {
    body();
    exec("COMMIT");
  } catch (...) {
    try {
      exec("ROLLBACK");
    } catch (...) {
      // The rollback's own failure is never the one reported.
    }
    throw;
  }
}

}  // namespace lumivale
