#pragma once
// Thin, thread-safe wrapper over the one SQLite connection of a library.
//
// Every operation takes the object's recursive lock for its whole run, so
// statements from several threads are serialised per database, and the body
// of `transaction` may call `exec`, `run` and `query` freely on its thread.
// No statement is cached: each call prepares, uses and finalises its own.
// Reads (`query`) never throw; writes throw `SQLError`. A read that SQLite
// ends early (a damaged page, a statement it refuses) still gives the rows it
// has, and leaves its error in `lastReadError` for whoever reports it.

#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

namespace lumivale {

using Blob = std::vector<std::uint8_t>;

/// The one error type of the SQLite store; `what()` is its description.
class SQLError : public std::runtime_error {
 public:
  explicit SQLError(const std::string& description) : std::runtime_error(description) {}
  std::string description() const { return what(); }
};

/// One bound parameter or read column. Cases in tag order: int, real, text,
/// blob, null. Equal when the case and the payload are equal.
class SQLValue {
 public:
  struct Null {
    bool operator==(const Null&) const = default;
  };
  enum class Kind { integer, real, text, blob, null };

  SQLValue() : value(Null{}) {}
  SQLValue(std::int64_t v) : value(v) {}
  SQLValue(int v) : value(static_cast<std::int64_t>(v)) {}
  SQLValue(double v) : value(v) {}
  SQLValue(std::string v) : value(std::move(v)) {}
  SQLValue(const char* v) : value(std::string(v)) {}
  SQLValue(Blob v) : value(std::move(v)) {}
  SQLValue(std::nullptr_t) : value(Null{}) {}

  /// Absent optionals bind as NULL.
  template <class T>
  static SQLValue optional(const std::optional<T>& v) {
    return v ? SQLValue(*v) : SQLValue();
  }

  Kind kind() const { return static_cast<Kind>(value.index()); }
  bool isNull() const { return kind() == Kind::null; }

  /// Integer; a real is truncated toward zero (NaN or out of range: absent).
  std::optional<std::int64_t> intValue() const;
  /// Floating point; an integer is converted.
  std::optional<double> doubleValue() const;
  /// Text only.
  std::optional<std::string> stringValue() const;
  /// Blob bytes, or the UTF-8 bytes of a text.
  std::optional<Blob> dataValue() const;

  bool operator==(const SQLValue&) const = default;

 private:
  friend class SQLiteDB;
  std::variant<std::int64_t, double, std::string, Blob, Null> value;
};

using SQLRow = std::vector<SQLValue>;

/// How `SQLiteDB::backupInto` paces its copy: pages per step and a pause
/// between steps (zero: none).
struct CopyPacing {
  int pagesPerStep = 4096;
  std::chrono::microseconds pause{0};
};

/// One connection to a catalog database file. Move-free and copy-free: it is
/// owned by the library that opened it and shared by reference.
class SQLiteDB {
 public:
  enum class Access {
    readWrite,  ///< opens or creates the file
    readOnly,   ///< never writes the file; falls back to an immutable view
                ///< when SQLite cannot make its shared-memory file beside it
  };

  /// Opens the database at `path` in serialised mode with a 4000 ms busy
  /// timeout. Throws SQLError "Cannot open the library database at <path>".
  explicit SQLiteDB(const std::string& path, Access access = Access::readWrite);
  ~SQLiteDB();
  SQLiteDB(const SQLiteDB&) = delete;
  SQLiteDB& operator=(const SQLiteDB&) = delete;

  const std::string& path() const { return path_; }
  bool readOnly() const { return access == Access::readOnly; }

  /// The error text of any write refused because the connection is
  /// read-only, in place of SQLite's "attempt to write a readonly database".
  void explainReadOnly(const std::string& note);

  /// Runs a script of statements without parameters. Throws SQLite's message.
  void exec(const std::string& sql);

  /// Runs one statement with `args` bound to ?1, ?2 ... and steps it once.
  /// Returns the connection's last insert rowid (meaningful after an INSERT).
  /// Throws "<sqlite message> — <sql>".
  std::int64_t run(const std::string& sql, const std::vector<SQLValue>& args = {});

  /// The number of rows the connection's last INSERT, UPDATE or DELETE
  /// changed (an INSERT OR IGNORE that hit an existing row changed none).
  /// Only meaningful while the caller holds `lock()` or is inside
  /// `transaction`, from the statement to this call, so that no other
  /// thread's statement comes between.
  std::int64_t changes();

  /// Runs one reading statement and returns every row. Never throws: a
  /// statement that does not prepare gives no rows, and a step error ends the
  /// list early with the rows read so far.
  std::vector<SQLRow> query(const std::string& sql, const std::vector<SQLValue>& args = {});

  /// Like `query`, but hands each row to `body` as it is read instead of
  /// keeping them all: for large reads. The row object is reused from one
  /// call to the next. Never throws on its own; an exception from `body`
  /// ends the read and passes through.
  void forEachRow(const std::string& sql, const std::vector<SQLValue>& args,
                  const std::function<void(const SQLRow&)>& body);

  /// The error of the last read that ended early or did not start, as
  /// SQLite says it, or nothing. `takeReadError` also clears it, so a caller
  /// can ask whether the reads since it last asked were complete.
  std::optional<std::string> lastReadError();
  std::optional<std::string> takeReadError();

  /// Runs SQLite's quick_check over the whole database: the problems it
  /// reports, or the error that kept it from running; empty when the file
  /// is sound. Never throws.
  std::vector<std::string> quickCheck();

  /// Copies the database into a new database file at `destination` with
  /// SQLite's backup API, from one snapshot of this connection (a read
  /// transaction held across every step, so writers on other connections
  /// neither wait for the copy nor make it start over). Between steps
  /// `proceed` is asked whether to go on. Throws SQLError (SQLite's message,
  /// or "the copy was cancelled"); the caller removes the destination then.
  /// The copy is in rollback-journal mode, a single file.
  void backupInto(const std::string& destination, const CopyPacing& pacing,
                  const std::function<bool()>& proceed = {});

  /// Runs `body` between BEGIN IMMEDIATE and COMMIT, holding the lock
  /// throughout. On any failure rolls back and rethrows the first failure
  /// (never the rollback's own error). A read-only connection refuses at
  /// once.
  void transaction(const std::function<void()>& body);

  /// The lock that serialises the connection; hold it to keep several calls
  /// together without a transaction.
  std::recursive_mutex& lock() { return mutex; }

 private:
  static void bindArguments(sqlite3_stmt* stmt, const std::vector<SQLValue>& args);
  static void readColumn(sqlite3_stmt* stmt, int column, SQLValue& into);
  // SQLite's message for the connection's last failure, or the read-only
  // note when that failure was a refused write.
  std::string failure();
  void noteReadError();

  sqlite3* db = nullptr;
  std::recursive_mutex mutex;
  std::string path_;
  Access access;
  std::string readOnlyNote;
  std::optional<std::string> readError;
};

}  // namespace lumivale
