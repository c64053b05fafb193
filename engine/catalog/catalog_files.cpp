#include "engine/catalog/catalog_files.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <system_error>
#include <thread>
#include <utility>

#include "engine/catalog/photo_library.h"
#include "engine/media/safe_file.h"

namespace lumivale {
namespace {

int openFolder(const std::filesystem::path& folder) {
  const int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) {
    throw FileError("Cannot open the folder " + quotedPath(folder) + ": " +
                    std::generic_category().message(errno));
  }
  return fd;
}

// Tries `operation` (with LOCK_NB) until it succeeds or `wait` has passed.
bool lockWithin(int fd, int operation, std::chrono::milliseconds wait) {
  const auto deadline = std::chrono::steady_clock::now() + wait;
  while (::flock(fd, operation | LOCK_NB) != 0) {
    if (errno != EWOULDBLOCK && errno != EINTR) return false;
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

}  // namespace

FolderLock FolderLock::shared(const std::filesystem::path& folder, bool* alone,
                              std::chrono::milliseconds wait) {
  FolderLock lock(openFolder(folder));
  // First the exclusive lock, only to learn whether anyone else holds the
  // folder; then the shared one, which lets others in. The change is not
  // atomic: another opener may take the exclusive lock in between and also
  // believe it is alone, which only costs it a check it did not need.
  const bool first = ::flock(lock.fd, LOCK_EX | LOCK_NB) == 0;
  if (alone) *alone = first;
  if (!lockWithin(lock.fd, LOCK_SH, wait)) {
    throw FileError("The library " + quotedPath(folder) + " is being restored by another program; try again");
  }
  return lock;
}

std::optional<FolderLock> FolderLock::exclusive(const std::filesystem::path& folder,
                                                std::chrono::milliseconds wait) {
  FolderLock lock(openFolder(folder));
  if (!lockWithin(lock.fd, LOCK_EX, wait)) return std::nullopt;
  return lock;
}

FolderLock::FolderLock(FolderLock&& other) noexcept : fd(std::exchange(other.fd, -1)) {}

FolderLock& FolderLock::operator=(FolderLock&& other) noexcept {
  if (this != &other) {
    if (fd >= 0) ::close(fd);
    fd = std::exchange(other.fd, -1);
  }
  return *this;
}

FolderLock::~FolderLock() {
  if (fd >= 0) ::close(fd);
}

std::optional<std::string> unwritableReason(const std::filesystem::path& path) {
  if (::access(path.c_str(), W_OK) == 0) return std::nullopt;
  switch (errno) {
    case EROFS:
      return "it is on a read-only disk";
    case EACCES:
    case EPERM:
      return "there is no permission to write " + quotedPath(path);
    default:
      return std::generic_category().message(errno);
  }
}

int renameWithoutReplacing(const std::filesystem::path& from, const std::filesystem::path& to) {
  if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return 0;
  if (errno != EINVAL && errno != ENOSYS && errno != ENOTSUP) return errno;
  // A file system without the flag: link() never replaces either.
  if (::link(from.c_str(), to.c_str()) != 0) return errno;
  ::unlink(from.c_str());
  return 0;
}

bool syncToDisk(const std::filesystem::path& path) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  const bool synced = ::fsync(fd) == 0 || errno == EINVAL;
  ::close(fd);
  return synced;
}

}  // namespace lumivale
