#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <set>
#include <system_error>

#include "engine/catalog/catalog_files.h"
#include "engine/catalog/catalog_safety.h"
#include "engine/catalog/photo_library.h"
#include "engine/media/safe_file.h"
#include "engine/util/clock.h"

namespace lumivale {
namespace {

namespace fs = std::filesystem;
using Kind = BackupInfo::Kind;

constexpr std::string_view backupPrefix = "Lumivale-";
constexpr std::string_view replacedPrefix = "Replaced-";
constexpr std::string_view fileSuffix = ".sqlite";
// A file being written: hidden, and never a backup's name.
constexpr std::string_view partialSuffix = ".partial";
// SQLite's side files of a database file.
constexpr const char* sideFiles[] = {"-journal", "-wal", "-shm"};

// "2025-03-14T09-30-12Z": UTC, and free of characters some file systems refuse.
std::string stamp(double seconds) {
  const std::time_t t = static_cast<std::time_t>(std::floor(seconds));
  std::tm utc{};
  gmtime_r(&t, &utc);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%dT%H-%M-%SZ", &utc);
  return text;
}

// The kind and time of a file named "<prefix><stamp>[-N].sqlite".
std::optional<std::pair<Kind, double>> parseName(const std::string& name) {
  Kind kind;
  std::string_view rest = name;
  if (rest.substr(0, backupPrefix.size()) == backupPrefix) {
    kind = Kind::backup;
    rest.remove_prefix(backupPrefix.size());
  } else if (rest.substr(0, replacedPrefix.size()) == replacedPrefix) {
    kind = Kind::replaced;
    rest.remove_prefix(replacedPrefix.size());
  } else {
    return std::nullopt;
  }
  if (rest.size() <= fileSuffix.size() || rest.substr(rest.size() - fileSuffix.size()) != fileSuffix)
    return std::nullopt;
  const std::string core(rest.substr(0, rest.size() - fileSuffix.size()));
  std::tm utc{};
  int used = 0;
  if (std::sscanf(core.c_str(), "%4d-%2d-%2dT%2d-%2d-%2dZ%n", &utc.tm_year, &utc.tm_mon, &utc.tm_mday,
                  &utc.tm_hour, &utc.tm_min, &utc.tm_sec, &used) != 6 ||
      used != 20)
    return std::nullopt;
  // A second backup within one second carries "-2", "-3" ...
  const std::string tail = core.substr(static_cast<std::size_t>(used));
  if (!tail.empty() &&
      (tail.size() < 2 || tail[0] != '-' ||
       !std::all_of(tail.begin() + 1, tail.end(), [](char c) { return c >= '0' && c <= '9'; })))
    return std::nullopt;
  if (utc.tm_mon < 1 || utc.tm_mon > 12 || utc.tm_mday < 1 || utc.tm_mday > 31 || utc.tm_hour > 23 ||
      utc.tm_min > 59 || utc.tm_sec > 60)
    return std::nullopt;
  utc.tm_year -= 1900;
  utc.tm_mon -= 1;
  return std::pair(kind, static_cast<double>(timegm(&utc)));
}

// A name of `prefix` for the time `now` that no file in `dir` has yet.
std::string freshName(const fs::path& dir, std::string_view prefix, double now) {
  const std::string base = std::string(prefix) + stamp(now);
  std::string name = base + std::string(fileSuffix);
  for (int n = 2; nameTaken(dir / name) || nameTaken(dir / ("." + name + std::string(partialSuffix))); ++n)
    name = base + "-" + std::to_string(n) + std::string(fileSuffix);
  return name;
}

// Days and weeks of the local calendar, counted from 1970-01-01.
long localDay(double seconds) {
  const std::time_t t = static_cast<std::time_t>(std::floor(seconds));
  std::tm local{};
  localtime_r(&t, &local);
  std::tm date{};
  date.tm_year = local.tm_year;
  date.tm_mon = local.tm_mon;
  date.tm_mday = local.tm_mday;
  return static_cast<long>(timegm(&date) / 86400);
}
// Weeks start on Monday; 1970-01-01 was a Thursday.
long localWeek(long day) { return (day + 3 >= 0 ? day + 3 : day - 3) / 7; }

// Newest first; within one second, "-3" after "-2" after none.
bool newerFirst(const BackupInfo& a, const BackupInfo& b) {
  if (a.created != b.created) return a.created > b.created;
  if (a.name.size() != b.name.size()) return a.name.size() > b.name.size();
  return a.name > b.name;
}

BackupInfo namedFile(const fs::path& path, Kind kind, double created) {
  BackupInfo info;
  info.name = path.filename().string();
  info.path = path;
  info.kind = kind;
  info.created = created;
  return info;
}

void removeWithSideFiles(const fs::path& file) {
  std::error_code ignored;
  fs::remove(file, ignored);
  for (const char* side : sideFiles) fs::remove(file.string() + side, ignored);
}

// Copies that an interrupted backup left behind. Only called while holding
// the Backups folder's lock, so no backup is writing them.
void removeLeftovers(const fs::path& dir) {
  std::error_code error;
  for (auto it = fs::directory_iterator(dir, error); !error && it != fs::directory_iterator();
       it.increment(error)) {
    const std::string name = it->path().filename().string();
    if (name.size() > 1 && name[0] == '.' && name.find(partialSuffix) != std::string::npos) {
      std::error_code ignored;
      fs::remove(it->path(), ignored);
    }
  }
}

// Checks a backup file and counts its photos.
void inspect(BackupInfo& info) {
  try {
    SQLiteDB db(info.path.string(), SQLiteDB::Access::readOnly);
    CatalogCheck check = checkCatalog(db, "a backup is checked before it is kept or restored");
    if (check.passed()) {
      auto format = db.query("SELECT value FROM meta WHERE key = 'format'");
      auto count = db.query("SELECT COUNT(*) FROM photos");
      if (format.empty() || format[0].empty() || format[0][0].stringValue() != PhotoLibrary::formatName) {
        check.outcome = CatalogCheck::Outcome::failed;
        check.problems.push_back("it is not a KUVO Lumivale catalog");
      } else if (!count.empty() && !count[0].empty()) {
        info.photos = static_cast<int>(count[0][0].intValue().value_or(0));
      }
    }
    info.check = std::move(check);
  } catch (const SQLError& e) {
    info.check = CatalogCheck::failedWith(e.what());
  }
}

// Whether another process has the database open through SQLite. Every
// connection to a write-ahead-log database holds a lock on one of the lock
// bytes of its -shm file (SQLite's bytes 120 to 128) for as long as it is
// open; F_GETLK only asks and takes nothing. Closing the descriptor would
// drop POSIX locks this process holds on the file, which is why a restore
// must not run while this process has the catalog open.
bool openElsewhere(const fs::path& database) {
  const int fd = ::open((database.string() + "-shm").c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  struct flock probe {};
  probe.l_type = F_WRLCK;
  probe.l_whence = SEEK_SET;
  probe.l_start = 120;
  probe.l_len = 9;
  const bool held = ::fcntl(fd, F_GETLK, &probe) == 0 && probe.l_type != F_UNLCK;
  ::close(fd);
  return held;
}

std::string systemMessage(int error) { return std::generic_category().message(error); }

}  // namespace

namespace CatalogBackups {

fs::path folder(const fs::path& library) { return library / folderName; }

std::vector<BackupInfo> list(const fs::path& library, bool check) {
  std::vector<BackupInfo> found;
  std::error_code error;
  for (auto it = fs::directory_iterator(folder(library), error); !error && it != fs::directory_iterator();
       it.increment(error)) {
    const std::string name = it->path().filename().string();
    const auto parsed = parseName(name);
    std::error_code fileError;
    if (!parsed || !it->is_regular_file(fileError)) continue;
    found.push_back(namedFile(it->path(), parsed->first, parsed->second));
    found.back().bytes = it->file_size(fileError);
  }
  std::sort(found.begin(), found.end(), newerFirst);
  if (check) {
    for (BackupInfo& info : found) inspect(info);
  }
  return found;
}

std::optional<BackupInfo> find(const fs::path& library, const std::string& name) {
  std::string wanted = name;
  if (wanted.size() < fileSuffix.size() || wanted.substr(wanted.size() - fileSuffix.size()) != fileSuffix)
    wanted += fileSuffix;
  for (BackupInfo& info : list(library, false)) {
    if (info.name == wanted) {
      inspect(info);
      return std::move(info);
    }
  }
  return std::nullopt;
}

std::optional<BackupInfo> lastGood(const fs::path& library) {
  for (BackupInfo& info : list(library, false)) {
    inspect(info);
    if (info.good()) return info;
  }
  return std::nullopt;
}

bool due(const fs::path& library, double now) {
  const long today = localDay(now);
  for (const BackupInfo& info : list(library, false)) {
    if (info.kind == Kind::backup && localDay(info.created) == today) return false;
  }
  return true;
}

std::vector<std::string> expired(const std::vector<BackupInfo>& backups, int daily, int weekly) {
  std::vector<const BackupInfo*> ordered;
  for (const BackupInfo& info : backups) {
    if (info.kind == Kind::backup) ordered.push_back(&info);
  }
  std::sort(ordered.begin(), ordered.end(),
            [](const BackupInfo* a, const BackupInfo* b) { return newerFirst(*a, *b); });
  std::set<long> days, weeks;
  std::vector<std::string> names;
  for (const BackupInfo* info : ordered) {
    const long day = localDay(info->created);
    const long week = localWeek(day);
    bool keep = false;
    if (!days.count(day) && static_cast<int>(days.size()) < daily) keep = days.insert(day).second;
    if (!weeks.count(week) && static_cast<int>(weeks.size()) < weekly)
      keep = weeks.insert(week).second || keep;
    if (!keep) names.push_back(info->name);
  }
  return names;
}

BackupResult create(const fs::path& library, const Options& options) {
  const auto started = std::chrono::steady_clock::now();
  const auto failed = [](const std::string& why) { return BackupError("No backup was made: " + why); };
  const fs::path database = library / PhotoLibrary::databaseName;
  if (!nameTaken(database)) throw failed("there is no catalog at " + quotedPath(database));
  if (auto reason = unwritableReason(library))
    throw failed("the library " + quotedPath(library) + " cannot be written (" + *reason + ")");
  const fs::path dir = folder(library);
  std::error_code error;
  fs::create_directory(dir, error);
  if (!fs::is_directory(dir)) {
    throw failed("the folder " + quotedPath(dir) + " cannot be made" + (error ? ": " + error.message() : ""));
  }
  if (auto reason = unwritableReason(dir))
    throw failed("the folder " + quotedPath(dir) + " cannot be written (" + *reason + ")");
  auto lock = FolderLock::exclusive(dir, std::chrono::seconds(10));
  if (!lock) throw failed("another backup of this library is still being made");
  removeLeftovers(dir);

  const double now = nowSeconds();
  const std::string name = freshName(dir, backupPrefix, now);
  const fs::path temporary = dir / ("." + name + std::string(partialSuffix));
  BackupInfo made = namedFile(dir / name, Kind::backup, std::floor(now));
  try {
    {
      SQLiteDB source(database.string(), SQLiteDB::Access::readOnly);
      source.backupInto(temporary.string(), options.pacing, options.proceed);
    }
    BackupInfo copy = made;
    copy.path = temporary;
    inspect(copy);
    if (!copy.good()) {
      throw failed("the copy does not check clean, so the catalog itself is likely damaged (" +
                   copy.check->summary() + ")");
    }
    made.check = copy.check;
    made.photos = copy.photos;
    if (!syncToDisk(temporary)) throw failed("the copy could not be written to the disk");
    if (int renameError = renameWithoutReplacing(temporary, made.path))
      throw failed("the copy could not be named " + quotedPath(made.path) + ": " +
                   systemMessage(renameError));
  } catch (const SQLError& e) {
    removeWithSideFiles(temporary);
    throw failed(e.what());
  } catch (...) {
    removeWithSideFiles(temporary);
    throw;
  }
  syncToDisk(dir);
  made.bytes = fs::file_size(made.path, error);

  BackupResult result;
  result.backup = made;
  for (const std::string& old : expired(list(library, false))) {
    if (old == made.name) continue;
    std::error_code removeError;
    if (fs::remove(dir / old, removeError)) result.removed.push_back(old);
  }
  result.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
  return result;
}

RestoreResult restore(const fs::path& library, const std::string& name) {
  const auto refused = [](const std::string& why) { return BackupError("Nothing was restored: " + why); };
  const fs::path dir = folder(library);
  std::optional<BackupInfo> chosen = find(library, name);
  if (!chosen) throw refused("there is no backup called \"" + name + "\" in " + quotedPath(dir));
  if (!chosen->good()) {
    throw refused(quotedPath(chosen->path) + " is damaged (" + chosen->check->summary() +
                  "), and a damaged backup is never restored");
  }
  if (auto reason = unwritableReason(library))
    throw refused("the library " + quotedPath(library) + " cannot be written (" + *reason + ")");
  auto lock = FolderLock::exclusive(library);
  const fs::path database = library / PhotoLibrary::databaseName;
  if (!lock || openElsewhere(database))
    throw refused("the library is open in another program; close KUVO Lumivale and try again");

  // The backup's copy is made ready beside the catalog first, so that a
  // failure up to here changes nothing.
  const fs::path incoming =
      library / ("." + std::string(PhotoLibrary::databaseName) + std::string(partialSuffix));
  removeWithSideFiles(incoming);
  std::error_code error;
  if (!fs::copy_file(chosen->path, incoming, error)) {
    removeWithSideFiles(incoming);
    throw refused("the backup could not be copied: " + error.message());
  }
  try {
    SQLiteDB copy(incoming.string());
    copy.exec("PRAGMA journal_mode=WAL");
    copy.run("INSERT OR REPLACE INTO meta(key, value) VALUES('lastCheck', ?)",
             {std::to_string(chosen->check->at)});
  } catch (const SQLError& e) {
    removeWithSideFiles(incoming);
    throw refused(e.what());
  }
  if (!syncToDisk(incoming)) {
    removeWithSideFiles(incoming);
    throw refused("the backup's copy could not be written to the disk");
  }

  // The current catalog and its side files are set aside, never deleted.
  RestoreResult result;
  result.restored = *chosen;
  std::vector<std::pair<fs::path, fs::path>> moved;
  const auto undo = [&] {
    for (auto it = moved.rbegin(); it != moved.rend(); ++it) renameWithoutReplacing(it->second, it->first);
    removeWithSideFiles(incoming);
  };
  if (nameTaken(database)) {
    const double now = nowSeconds();
    const std::string asideName = freshName(dir, replacedPrefix, now);
    for (const char* side : {"", "-wal", "-shm"}) {
      const fs::path from = database.string() + side;
      const fs::path to = dir / (asideName + side);
      if (!nameTaken(from)) continue;
      if (int moveError = renameWithoutReplacing(from, to)) {
        undo();
        throw refused("the current catalog could not be set aside: " + systemMessage(moveError));
      }
      moved.emplace_back(from, to);
    }
    result.setAside = namedFile(dir / asideName, Kind::replaced, std::floor(now));
    result.setAside->bytes = fs::file_size(dir / asideName, error);
  }
  if (int renameError = renameWithoutReplacing(incoming, database)) {
    undo();
    throw refused("the backup could not take the catalog's place: " + systemMessage(renameError));
  }
  syncToDisk(library);
  syncToDisk(dir);
  return result;
}

}  // namespace CatalogBackups

DailyBackup::DailyBackup(fs::path library, CopyPacing pacing) {
  worker = std::thread([this, library = std::move(library), pacing] {
    try {
      if (!CatalogBackups::due(library, nowSeconds())) {
        outcome.note = "today's backup was made already";
      } else if (auto reason = unwritableReason(library)) {
        outcome.note = "no backup: the library cannot be written (" + *reason + ")";
      } else {
        BackupResult made = CatalogBackups::create(library, {pacing, [this] { return !stop.load(); }});
        outcome.made = true;
        outcome.note = "made " + made.backup.name;
        outcome.result = std::move(made);
      }
    } catch (const std::exception& e) {
      outcome.note = e.what();
    }
    done = true;
  });
}

DailyBackup::~DailyBackup() {
  stop = true;
  if (worker.joinable()) worker.join();
}

const DailyBackup::Outcome& DailyBackup::wait() {
  if (worker.joinable()) worker.join();
  return outcome;
}

}  // namespace lumivale
