#include "engine/media/safe_file.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <random>
#include <system_error>
#include <utility>

namespace lumivale {
namespace {

namespace fs = std::filesystem;

std::string systemMessage(int error) { return std::generic_category().message(error); }

// A hidden file beside `file`, created anew (never an existing one); its
// permissions follow the process's umask like any other new file. Its name
// starts with at most 200 bytes of the target's, so that it stays within
// the 255 bytes a name may have whenever the target's own name does.
int createTemporary(const fs::path& file, fs::path& temporary) {
  static thread_local std::mt19937_64 random{std::random_device{}()};
  const std::string name = file.filename().string().substr(0, 200);
  for (int attempt = 0; attempt < 16; ++attempt) {
    char suffix[32];
    std::snprintf(suffix, sizeof suffix, ".%016llx.tmp", static_cast<unsigned long long>(random()));
    temporary = file.parent_path() / ("." + name + suffix);
    const int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd >= 0 || errno != EEXIST) return fd;
  }
  errno = EEXIST;
  return -1;
}

// Moves the finished temporary file to `file`. Without `replace`, an existing
// file wins, even one that appeared while we were writing: renameat2 refuses
// atomically; where the file system cannot do that, link() (which never
// replaces) stands in. Returns 0 or errno.
int moveIntoPlace(const fs::path& temporary, const fs::path& file, bool replace) {
  if (replace) return ::rename(temporary.c_str(), file.c_str()) == 0 ? 0 : errno;
  if (::renameat2(AT_FDCWD, temporary.c_str(), AT_FDCWD, file.c_str(), RENAME_NOREPLACE) == 0) return 0;
  if (errno != EINVAL && errno != ENOSYS && errno != ENOTSUP) return errno;
  if (::link(temporary.c_str(), file.c_str()) == 0) {
    ::unlink(temporary.c_str());
    return 0;
  }
  return errno;
}

void checkFileName(const fs::path& file) {
  if (file.filename().empty() || file.filename() == "." || file.filename() == "..")
    throw MediaError("cannot write " + quotedPath(file) + ": not a file name");
}

}  // namespace

FileExistsError::FileExistsError(const fs::path& file)
    : MediaError(quotedPath(file) + " already exists; it is not replaced unless asked to") {}

std::string quotedPath(const fs::path& file) { return "\"" + file.string() + "\""; }

bool nameTaken(const fs::path& file) {
  struct stat existing;
  return ::lstat(file.c_str(), &existing) == 0;
}

void writeAll(int fd, const void* bytes, std::size_t length) {
  const char* data = static_cast<const char*>(bytes);
  while (length > 0) {
    const ssize_t n = ::write(fd, data, length);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) throw MediaError(systemMessage(n < 0 ? errno : EIO));
    data += n;
    length -= static_cast<std::size_t>(n);
  }
}

PendingFile::PendingFile(const fs::path& file, const FileFiller& fill) {
  const auto failed = [&](const std::string& reason) {
    return MediaError("cannot write " + quotedPath(file) + ": " + reason);
  };
  fs::path temporary;
  const int fd = createTemporary(file, temporary);
  if (fd < 0) throw failed(systemMessage(errno));

  // From here on the temporary file goes away unless it is handed on.
  std::string failure;
  try {
    fill(fd);
  } catch (const MediaError& e) {
    failure = e.what();
  } catch (const std::bad_alloc&) {
    failure = "out of memory";
  } catch (const std::exception& e) {
    failure = e.what();
  }
  if (failure.empty() && ::fsync(fd) != 0 && errno != EINVAL) failure = systemMessage(errno);
  if (::close(fd) != 0 && failure.empty()) failure = systemMessage(errno);
  if (!failure.empty()) {
    ::unlink(temporary.c_str());
    throw failed(failure);
  }
  temporary_ = std::move(temporary);
}

PendingFile::PendingFile(PendingFile&& other) noexcept : temporary_(std::exchange(other.temporary_, {})) {}

PendingFile& PendingFile::operator=(PendingFile&& other) noexcept {
  if (this != &other) {
    discard();
    temporary_ = std::exchange(other.temporary_, {});
  }
  return *this;
}

PendingFile::~PendingFile() { discard(); }

void PendingFile::discard() noexcept {
  if (!temporary_.empty()) ::unlink(temporary_.c_str());
  temporary_.clear();
}

void PendingFile::place(const fs::path& file, bool replaceExisting) {
  if (temporary_.empty()) throw MediaError("cannot write " + quotedPath(file) + ": nothing is pending");
  const int error = moveIntoPlace(temporary_, file, replaceExisting);
  if (error == EEXIST) throw FileExistsError(file);
  if (error != 0) throw MediaError("cannot write " + quotedPath(file) + ": " + systemMessage(error));
  temporary_.clear();
}

fs::path PendingFile::placeUnderFreeName(const NameCandidate& candidate, int maxAttempts) {
  const fs::path first = candidate(1);
  if (temporary_.empty()) throw MediaError("cannot write " + quotedPath(first) + ": nothing is pending");
  for (int n = 1; n <= maxAttempts; ++n) {
    const fs::path chosen = n == 1 ? first : candidate(n);
    const int error = moveIntoPlace(temporary_, chosen, false);
    if (error == 0) {
      temporary_.clear();
      return chosen;
    }
    if (error != EEXIST) throw MediaError("cannot write " + quotedPath(first) + ": " + systemMessage(error));
  }
  throw MediaError("cannot write " + quotedPath(first) + ": " + std::to_string(maxAttempts) +
                   " names in a row are taken");
}

void writeFileSafely(const fs::path& file, const FileFiller& fill, bool replaceExisting) {
  checkFileName(file);
  struct stat existing;
  if (::stat(file.c_str(), &existing) == 0 && S_ISDIR(existing.st_mode))
    throw MediaError("cannot write " + quotedPath(file) + ": it is a folder");
  if (!replaceExisting && nameTaken(file)) throw FileExistsError(file);
  PendingFile(file, fill).place(file, replaceExisting);
}

fs::path writeFileUnderFreeName(const NameCandidate& candidate, const FileFiller& fill, int maxAttempts) {
  const fs::path first = candidate(1);
  checkFileName(first);
  return PendingFile(first, fill).placeUnderFreeName(candidate, maxAttempts);
}

void writeFileSafely(const fs::path& file, std::string_view bytes, bool replaceExisting) {
  writeFileSafely(file, [&](int fd) { writeAll(fd, bytes.data(), bytes.size()); }, replaceExisting);
}

}  // namespace lumivale
