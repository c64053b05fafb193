#pragma once
// Keeping the catalog safe beyond what SQLite's write-ahead log does: the
// catalog check, rotating backups and restoring one.
//
// The check is SQLite's quick_check over the whole database file, run on a
// read-only connection, so a damaged catalog is never written by it. The
// library runs it when it opens (see LibraryOptions): when the catalog was
// not closed cleanly (a write-ahead log with content in it was left beside
// it, and no program of ours holds the library), or when no check passed
// for a day (the time of the last passing check is the meta row
// `lastCheck`, seconds since 1970 as text).
//
// Backups are whole copies of the database made with SQLite's backup API in
// the folder "Backups" inside the library folder; the "Thumbnails" folder
// is not copied (it can be remade). A backup is written under a hidden
// temporary name, checked, synced, and only then given its name,
// "Lumivale-YYYY-MM-DDTHH-MM-SSZ.sqlite" (UTC), so a failed or interrupted
// backup never looks like one. Only after a new backup checked clean are the
// old ones beyond the last 7 days and the last 4 weeks that have a backup
// removed (the newest of each day and of each week is kept, in local time).
// A restore first sets the current catalog aside as
// "Replaced-YYYY-MM-DDTHH-MM-SSZ.sqlite" in the same folder (with its -wal
// and -shm files), never deleting it; set-aside catalogs are never rotated.

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "engine/catalog/sqlite_db.h"

namespace lumivale {

/// One run of the catalog check.
struct CatalogCheck {
  enum class Outcome { notRun, passed, failed };
  Outcome outcome = Outcome::notRun;
  std::string reason;                 ///< why it ran, e.g. "it was not closed cleanly"
  std::vector<std::string> problems;  ///< what was found when it failed
  double at = 0;                      ///< when it ran, seconds since 1970
  double seconds = 0;                 ///< how long it took

  bool passed() const { return outcome == Outcome::passed; }
  bool failed() const { return outcome == Outcome::failed; }
  /// The problems on one line, the first few only.
  std::string summary() const;
  /// A check that could not run, for this reason, now.
  static CatalogCheck failedWith(std::string problem);
  bool operator==(const CatalogCheck&) const = default;
};

/// Checks the database `db` is connected to: quick_check, then that it is a
/// catalog (it has the format row). Never writes, never throws: whatever
/// keeps the check from running is one of its problems.
CatalogCheck checkCatalog(SQLiteDB& db, std::string reason);

/// What an open library knows about its own safety (for the about box).
struct CatalogSafety {
  bool readOnly = false;
  std::string readOnlyReason;       ///< why, when read-only
  bool closedCleanly = true;        ///< false: the last program to open it did not close it
  std::optional<double> lastCheck;  ///< the last check that passed, seconds since 1970
  CatalogCheck check;               ///< the check of this opening, if one ran
  bool operator==(const CatalogSafety&) const = default;
};

/// A backup in the library's "Backups" folder, or a catalog a restore set
/// aside there.
struct BackupInfo {
  enum class Kind { backup, replaced };
  std::string name;  ///< the file name
  std::filesystem::path path;
  Kind kind = Kind::backup;
  double created = 0;                 ///< from the name, seconds since 1970
  std::uintmax_t bytes = 0;           ///< the file's size
  std::optional<CatalogCheck> check;  ///< absent when it was not checked
  std::optional<int> photos;          ///< photos in it, when it was checked and could be read

  bool good() const { return check && check->passed(); }
  bool operator==(const BackupInfo&) const = default;
};

/// The catalog check failed when the library was opened: nothing was
/// opened for writing and nothing was deleted. The message says what is
/// wrong and where the last good backup is.
class CatalogDamaged : public SQLError {
 public:
  CatalogDamaged(const std::filesystem::path& database, CatalogCheck check,
                 std::optional<BackupInfo> lastGoodBackup);
  const CatalogCheck& check() const { return check_; }
  const std::optional<BackupInfo>& lastGoodBackup() const { return lastGood; }

 private:
  CatalogCheck check_;
  std::optional<BackupInfo> lastGood;
};

/// A backup or a restore could not be done; nothing was changed.
class BackupError : public std::runtime_error {
 public:
  explicit BackupError(const std::string& message) : std::runtime_error(message) {}
};

/// What a backup made and what rotation removed.
struct BackupResult {
  BackupInfo backup;                 ///< checked, with its photo count
  std::vector<std::string> removed;  ///< names of old backups removed
  double seconds = 0;
};

/// What a restore did.
struct RestoreResult {
  BackupInfo restored;
  std::optional<BackupInfo> setAside;  ///< the catalog it replaced, when there was one
};

namespace CatalogBackups {

inline constexpr const char* folderName = "Backups";

/// How a backup runs: the copy's pacing, and whether to go on (asked
/// between steps; false abandons the backup, leaving nothing behind).
struct Options {
  CopyPacing pacing;
  std::function<bool()> proceed;
};

/// The "Backups" folder of the library folder `library`.
std::filesystem::path folder(const std::filesystem::path& library);

/// Backups and set-aside catalogs, newest first. With `check`, each is
/// checked and its photos counted (a damaged one says so in its check).
std::vector<BackupInfo> list(const std::filesystem::path& library, bool check);

/// The backup or set-aside catalog called `name` (".sqlite" may be left
/// off), checked and counted, or nothing when there is none.
std::optional<BackupInfo> find(const std::filesystem::path& library, const std::string& name);

/// The newest backup or set-aside catalog that checks clean.
std::optional<BackupInfo> lastGood(const std::filesystem::path& library);

/// True when the library has no backup from the local day of `now`.
bool due(const std::filesystem::path& library, double now);

/// Backs up the library's catalog now, then rotates. Throws BackupError
/// ("No backup was made: ...") when the library cannot be written, the copy
/// fails (a full disk) or does not check clean; nothing is kept then.
BackupResult create(const std::filesystem::path& library, const Options& options = {});

/// The names of backups (not set-aside catalogs) that rotation removes:
/// all but the newest of each of the last `daily` local days and the last
/// `weekly` weeks (from Monday) that have one.
std::vector<std::string> expired(const std::vector<BackupInfo>& backups, int daily = 7, int weekly = 4);

/// Replaces the library's catalog with the backup or set-aside catalog
/// called `name` (".sqlite" may be left off). Refuses (BackupError, nothing
/// changed) when there is no such file, when it does not check clean, or
/// while another program has the library open. The current catalog is set
/// aside, never deleted. Must not be called while this process has the
/// library open.
RestoreResult restore(const std::filesystem::path& library, const std::string& name);

}  // namespace CatalogBackups

/// The day's backup, made on a thread of its own when one is due. It reads
/// one snapshot on a connection of its own, which writers on the library's
/// connection never wait for in write-ahead-log mode, and it is asked
/// between steps (of `pacing`) whether to go on. The thread starts in the
/// constructor; the destructor asks an unfinished copy to stop (nothing is
/// left behind) and waits for it.
class DailyBackup {
 public:
  struct Outcome {
    bool made = false;
    std::string note;  ///< what happened, one line: made, not due, or why not
    std::optional<BackupResult> result;
  };

  explicit DailyBackup(std::filesystem::path library, CopyPacing pacing = {});
  ~DailyBackup();
  DailyBackup(const DailyBackup&) = delete;
  DailyBackup& operator=(const DailyBackup&) = delete;

  bool finished() const { return done.load(); }
  /// Waits for the thread and returns what it did.
  const Outcome& wait();

 private:
  std::atomic<bool> stop{false};
  std::atomic<bool> done{false};
  Outcome outcome;
  std::thread worker;
};

}  // namespace lumivale
