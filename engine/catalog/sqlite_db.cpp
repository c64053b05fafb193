#include "engine/catalog/sqlite_db.h"

#include <sqlite3.h>

#include <cctype>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>

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

// A file: URI naming `path`, with every byte a URI reserves escaped.
std::string fileUri(const std::string& path) {
  std::string uri = "file:";
  for (unsigned char c : path) {
    if (std::isalnum(c) || std::strchr("/-_.~", c)) {
      uri += static_cast<char>(c);
    } else {
      char escaped[4];
      std::snprintf(escaped, sizeof escaped, "%%%02X", c);
      uri += escaped;
    }
  }
  return uri;
}

sqlite3* openConnection(const std::string& name, int flags) {
  sqlite3* handle = nullptr;
  if (sqlite3_open_v2(name.c_str(), &handle, flags, nullptr) != SQLITE_OK) {
    // sqlite3_open_v2 may hand back a handle even on failure; it must be closed.
    if (handle) sqlite3_close_v2(handle);
    return nullptr;
  }
  sqlite3_busy_timeout(handle, 4000);
  return handle;
}

// The primary result code of the connection's first read.
int firstRead(sqlite3* db) {
  sqlite3_stmt* stmt = nullptr;
  int rc = sqlite3_prepare_v2(db, "SELECT COUNT(*) FROM sqlite_master", -1, &stmt, nullptr);
  if (rc == SQLITE_OK) rc = sqlite3_step(stmt);
  sqlite3_finalize(stmt);
  return rc & 0xFF;
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

SQLiteDB::SQLiteDB(const std::string& path, Access access) : path_(path), access(access) {
  configureSqliteOnce();
  const int shared = SQLITE_OPEN_FULLMUTEX;
  if (access == Access::readWrite) {
    db = openConnection(path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | shared);
  } else {
    db = openConnection(path, SQLITE_OPEN_READONLY | shared);
    // A write-ahead-log database is read through its -shm file, which a
    // read-only connection still has to create when it is missing. Where
    // the folder cannot be written, the file is read as it stands: nothing
    // can change it there either.
    const int rc = db ? firstRead(db) : SQLITE_OK;
    if (rc == SQLITE_READONLY || rc == SQLITE_CANTOPEN) {
      sqlite3_close_v2(db);
      db = openConnection(fileUri(path) + "?immutable=1", SQLITE_OPEN_READONLY | SQLITE_OPEN_URI | shared);
    }
  }
  if (!db) throw SQLError("Cannot open the library database at " + path);
}

SQLiteDB::~SQLiteDB() {
  if (db) sqlite3_close_v2(db);
}

void SQLiteDB::explainReadOnly(const std::string& note) {
  std::lock_guard guard(mutex);
  readOnlyNote = note;
}

std::string SQLiteDB::failure() {
  if ((sqlite3_errcode(db) & 0xFF) == SQLITE_READONLY && !readOnlyNote.empty()) return readOnlyNote;
  const char* message = sqlite3_errmsg(db);
  return message && *message ? message : "error";
}

void SQLiteDB::noteReadError() { readError = failure(); }

std::optional<std::string> SQLiteDB::lastReadError() {
  std::lock_guard guard(mutex);
  return readError;
}

std::optional<std::string> SQLiteDB::takeReadError() {
  std::lock_guard guard(mutex);
  return std::exchange(readError, std::nullopt);
}

void SQLiteDB::exec(const std::string& sql) {
  std::lock_guard guard(mutex);
  char* message = nullptr;
  int rc = sqlite3_exec(db, sql.c_str(), nullptr, nullptr, &message);
  if (rc != SQLITE_OK) {
    std::string description = (rc & 0xFF) == SQLITE_READONLY && !readOnlyNote.empty() ? readOnlyNote
                              : message                                               ? message
                                                                                      : "error";
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
      sqlite3_bind_blob(stmt, index, bytes->empty() ? &empty : bytes->data(), static_cast<int>(bytes->size()),
                        transientBytes);
    } else {
      sqlite3_bind_null(stmt, index);
    }
    ++index;
  }
}

std::int64_t SQLiteDB::run(const std::string& sql, const std::vector<SQLValue>& args) {
  std::lock_guard guard(mutex);
  sqlite3_stmt* stmt = nullptr;
  // A write refused by a read-only connection is told without the SQL:
  // the reader of that message is the user, not a developer.
  const auto description = [&] {
    std::string text = failure();
    return text == readOnlyNote ? text : text + " \u2014 " + sql;
  };
  if (sqlite3_prepare_v2(db, sql.c_str(), -1, &stmt, nullptr) != SQLITE_OK) {
    std::string text = description();
    sqlite3_finalize(stmt);
    throw SQLError(text);
  }
  bindArguments(stmt, args);
  int rc = sqlite3_step(stmt);
  if (rc != SQLITE_ROW && rc != SQLITE_DONE) {
    std::string text = description();
    sqlite3_finalize(stmt);
    throw SQLError(text);
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
    if (stmt || sqlite3_errcode(db) != SQLITE_OK) noteReadError();
    sqlite3_finalize(stmt);
    return rows;
  }
  bindArguments(stmt, args);
  const int columns = sqlite3_column_count(stmt);
  int rc;
  while ((rc = sqlite3_step(stmt)) == SQLITE_ROW) {
    SQLRow row(static_cast<std::size_t>(columns));
    for (int c = 0; c < columns; ++c) readColumn(stmt, c, row[static_cast<std::size_t>(c)]);
    rows.push_back(std::move(row));
  }
  if (rc != SQLITE_DONE) noteReadError();
  sqlite3_finalize(stmt);
  return rows;
}

void SQLiteDB::forEachRow(const std::string& sql, const std::vector<SQLValue>& args,
                          const std::function<void(const SQLRow&)>& body) {
  std::lock_guard guard(mutex);
  sqlite3_stmt* stmt = nullptr;
  if (sqlite3_prepare_v2(db, sql.c_str(), -1, &stmt, nullptr) != SQLITE_OK || !stmt) {
    if (stmt || sqlite3_errcode(db) != SQLITE_OK) noteReadError();
    sqlite3_finalize(stmt);
    return;
  }
  std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt*)> owned(stmt, sqlite3_finalize);
  bindArguments(stmt, args);
  SQLRow row(static_cast<std::size_t>(sqlite3_column_count(stmt)));
  int rc;
  while ((rc = sqlite3_step(stmt)) == SQLITE_ROW) {
    for (std::size_t c = 0; c < row.size(); ++c) readColumn(stmt, static_cast<int>(c), row[c]);
    body(row);
  }
  if (rc != SQLITE_DONE) noteReadError();
}

std::vector<std::string> SQLiteDB::quickCheck() {
  std::lock_guard guard(mutex);
  std::vector<std::string> problems;
  sqlite3_stmt* stmt = nullptr;
  if (sqlite3_prepare_v2(db, "PRAGMA quick_check", -1, &stmt, nullptr) != SQLITE_OK) {
    problems.push_back(failure());
    sqlite3_finalize(stmt);
    return problems;
  }
  int rc;
  while ((rc = sqlite3_step(stmt)) == SQLITE_ROW) {
    const auto* line = reinterpret_cast<const char*>(sqlite3_column_text(stmt, 0));
    const std::string answer = line ? line : "no answer";
    if (answer == "ok") continue;
    // One answer may hold several problems, a line each, after a line
    // naming the schema ("*** in database main ***"); there is one schema.
    std::size_t start = 0;
    for (std::size_t end; start <= answer.size(); start = end + 1) {
      end = std::min(answer.find('\n', start), answer.size());
      const std::string problem = answer.substr(start, end - start);
      if (!problem.empty() && problem.rfind("*** ", 0) != 0) problems.push_back(problem);
    }
  }
  if (rc != SQLITE_DONE) problems.push_back(failure());
  sqlite3_finalize(stmt);
  return problems;
}

void SQLiteDB::backupInto(const std::string& destination, const CopyPacing& pacing,
                          const std::function<bool()>& proceed) {
  std::lock_guard guard(mutex);
  sqlite3* target = openConnection(destination, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
  if (!target) throw SQLError("cannot create the database " + destination);
  std::unique_ptr<sqlite3, int (*)(sqlite3*)> ownedTarget(target, sqlite3_close_v2);
  const auto targetFailure = [&] { return std::string(sqlite3_errmsg(target)); };
  // A failed copy is thrown away whole, so none is journalled while it is
  // written; it is synced to the disk once, when it is complete.
  if (sqlite3_exec(target, "PRAGMA journal_mode=OFF; PRAGMA synchronous=OFF", nullptr, nullptr, nullptr) !=
      SQLITE_OK)
    throw SQLError(targetFailure());

  // One read transaction for the whole copy: the backup steps then read one
  // snapshot and never start over when another connection commits.
  exec("BEGIN");
  std::unique_ptr<sqlite3_backup, int (*)(sqlite3_backup*)> backup(nullptr, sqlite3_backup_finish);
  std::string error;
  if (sqlite3_exec(db, "SELECT COUNT(*) FROM sqlite_master", nullptr, nullptr, nullptr) != SQLITE_OK) {
    error = failure();
  } else {
    backup.reset(sqlite3_backup_init(target, "main", db, "main"));
    if (!backup) error = targetFailure();
  }
  int rc = SQLITE_OK;
  int busySteps = 0;
  while (error.empty()) {
    rc = sqlite3_backup_step(backup.get(), std::max(pacing.pagesPerStep, 1));
    if (rc == SQLITE_DONE) break;
    const bool busy = rc == SQLITE_BUSY || rc == SQLITE_LOCKED;
    if (rc != SQLITE_OK && !busy) {
      error = sqlite3_errstr(rc);
    } else if (proceed && !proceed()) {
      error = "the copy was cancelled";
    } else if (busy && ++busySteps > 4000) {
      error = "the database stayed locked";
    } else if (busy || pacing.pause.count() > 0) {
      std::this_thread::sleep_for(
          std::max<std::chrono::microseconds>(pacing.pause, std::chrono::milliseconds(1)));
    }
  }
  if (backup) {
    const int finished = sqlite3_backup_finish(backup.release());
    if (finished != SQLITE_OK && error.empty()) error = sqlite3_errstr(finished);
  }
  sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr);
  if (!error.empty()) throw SQLError(error);
  // The copy carries the catalog's write-ahead-log mode in its header; a
  // backup is better one self-contained file.
  if (sqlite3_exec(target, "PRAGMA synchronous=FULL; PRAGMA journal_mode=DELETE", nullptr, nullptr,
                   nullptr) != SQLITE_OK)
    throw SQLError(targetFailure());
}

void SQLiteDB::transaction(const std::function<void()>& body) {
  std::lock_guard guard(mutex);
  // SQLite would begin one and fail only at the first write inside.
  if (access == Access::readOnly)
    throw SQLError(readOnlyNote.empty() ? "attempt to write a readonly database" : readOnlyNote);
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
