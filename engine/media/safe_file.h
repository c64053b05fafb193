#pragma once
// The one way the engine writes a file: completely or not at all, and never
// over a file that is already there unless the caller says so.
//
// The bytes go to a hidden temporary file created anew in the target's own
// folder (so the final step is a rename on one file system), are flushed to
// the disk, and only then take the target's name: without replacing, by an
// atomic rename that refuses an existing name (renameat2 RENAME_NOREPLACE,
// or link(), which never replaces, where the file system lacks it). So two
// writers racing for one name never overwrite each other, a reader never
// sees half a file, and a full disk or a failed write leaves nothing behind.

#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace lumivale {

/// One small error type for every reader and writer of the media floor;
/// the message is one line fit to show to the user.
class MediaError : public std::runtime_error {
 public:
  explicit MediaError(const std::string& message) : std::runtime_error(message) {}
};

/// The target name is taken (by a file, a folder or a dangling link) and
/// replacing was not allowed.
class FileExistsError : public MediaError {
 public:
  explicit FileExistsError(const std::filesystem::path& file);
};

/// Fills the open file descriptor; returns nothing and throws MediaError (or
/// anything else) to abandon the write. The descriptor stays ours: do not
/// close it.
using FileFiller = std::function<void(int fd)>;

/// Writes a new file at `file` with what `fill` writes. Throws
/// FileExistsError when `file` exists and `replaceExisting` is false (also
/// when it appeared while we were writing), MediaError "cannot write
/// "<file>": <reason>" for a missing folder, no permission, a full disk or a
/// failed `fill`. On any failure the temporary file is removed and `file` is
/// as it was.
void writeFileSafely(const std::filesystem::path& file, const FileFiller& fill, bool replaceExisting = false);

/// Writes `bytes` as a new file, as above.
void writeFileSafely(const std::filesystem::path& file, std::string_view bytes, bool replaceExisting = false);

/// Gives the name to try on attempt `n` (1, 2, 3, …); every name must lie
/// in the same folder.
using NameCandidate = std::function<std::filesystem::path(int n)>;

/// Writes a new file with what `fill` writes and gives it the first name
/// `candidate(n)` that is free at the moment it takes it; returns that name.
/// The bytes are written once, to a temporary file beside the first
/// candidate; each taken name then costs one refused rename, so a name that
/// appears while we write (another writer racing for it) is passed over,
/// never replaced. Throws MediaError as `writeFileSafely` does (naming the
/// first candidate), and when `maxAttempts` names in a row are taken.
std::filesystem::path writeFileUnderFreeName(const NameCandidate& candidate, const FileFiller& fill,
                                             int maxAttempts = 100000);

/// A file written completely under a hidden temporary name in its folder,
/// waiting for the name it is to have. It is removed when destroyed unless
/// it was given a name. Move-only; one thread at a time.
class PendingFile {
 public:
  /// Writes what `fill` writes to a new hidden file beside `file` (the name
  /// it will most likely take) and flushes it to the disk. Throws MediaError
  /// "cannot write "<file>": <reason>" for a missing folder, no permission, a
  /// full disk or a failed `fill`; nothing is left behind then.
  PendingFile(const std::filesystem::path& file, const FileFiller& fill);
  PendingFile(PendingFile&& other) noexcept;
  PendingFile& operator=(PendingFile&& other) noexcept;
  PendingFile(const PendingFile&) = delete;
  PendingFile& operator=(const PendingFile&) = delete;
  ~PendingFile();

  /// Gives the file the name `file`, never over an existing one unless
  /// `replaceExisting`; throws FileExistsError or MediaError as
  /// `writeFileSafely` does, and then keeps the file pending.
  void place(const std::filesystem::path& file, bool replaceExisting = false);

  /// Gives the file the first name `candidate(n)` that is free at the moment
  /// it takes it (one refused rename per taken name) and returns it. Throws
  /// MediaError naming the first candidate when `maxAttempts` names in a row
  /// are taken or the rename fails otherwise.
  std::filesystem::path placeUnderFreeName(const NameCandidate& candidate, int maxAttempts = 100000);

 private:
  void discard() noexcept;

  std::filesystem::path temporary_;  ///< empty once placed or discarded
};

/// Writes all of `bytes` to `fd`, retrying short writes; throws MediaError
/// with the system's reason when the write fails.
void writeAll(int fd, const void* bytes, std::size_t length);

/// True when something (a file, a folder, a dangling link) has this name.
bool nameTaken(const std::filesystem::path& file);

/// `file` in double quotes, as messages name files.
std::string quotedPath(const std::filesystem::path& file);

}  // namespace lumivale
