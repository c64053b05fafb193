#pragma once
// File-system steps the catalog's safety rests on: the folder lock, renames
// that never replace, syncing, and why a folder cannot be written.
//
// The folder lock is `flock` on the library folder itself (no file is added
// to it). Every open `PhotoLibrary` holds it shared; a restore holds it
// exclusively, so it never replaces a catalog that one of our programs has
// open. Taking it also tells an opener whether it is the only one, which is
// how a crash is recognised (see PhotoLibrary). An flock lock belongs to
// the open file, not to the process: two libraries open in one process see
// each other, and closing the descriptor never drops SQLite's own (POSIX)
// locks on the database files, as closing a descriptor of those files would.

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>

namespace lumivale {

class FolderLock {
 public:
  /// Holds `folder` shared. `alone` is set to whether no one else held it
  /// at that moment. Waits up to `wait` for an exclusive holder to let go;
  /// throws FileError when it does not, or when the folder cannot be opened.
  static FolderLock shared(const std::filesystem::path& folder, bool* alone = nullptr,
                           std::chrono::milliseconds wait = std::chrono::milliseconds(4000));
  /// Holds `folder` exclusively, waiting up to `wait`; nothing when someone
  /// else still holds it then. Throws FileError when it cannot be opened.
  static std::optional<FolderLock> exclusive(const std::filesystem::path& folder,
                                             std::chrono::milliseconds wait = std::chrono::milliseconds(0));

  FolderLock(FolderLock&& other) noexcept;
  FolderLock& operator=(FolderLock&& other) noexcept;
  FolderLock(const FolderLock&) = delete;
  FolderLock& operator=(const FolderLock&) = delete;
  ~FolderLock();

 private:
  explicit FolderLock(int fd) : fd(fd) {}
  int fd = -1;
};

/// Why nothing can be written at `path` (a folder or a file), in words fit
/// for a message ("it is on a read-only disk", "no permission to write
/// it"), or nothing when it can be.
std::optional<std::string> unwritableReason(const std::filesystem::path& path);

/// Renames `from` to `to` unless `to` exists, atomically. Returns 0 or the
/// errno (EEXIST when the name is taken).
int renameWithoutReplacing(const std::filesystem::path& from, const std::filesystem::path& to);

/// Flushes a file's or a folder's contents (for a folder: its names) to the
/// disk; false when that fails.
bool syncToDisk(const std::filesystem::path& path);

}  // namespace lumivale
