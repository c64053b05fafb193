#include "engine/media/photo_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

namespace lumivale {

ReadBudgetExceeded::ReadBudgetExceeded(const std::filesystem::path& file)
    : MediaError("cannot read " + quotedPath(file) + ": its header does not end where it says") {}

PhotoFile::PhotoFile(const std::filesystem::path& file) : path_(file) {
  // O_NONBLOCK: opening a FIFO for reading would otherwise wait for a writer.
  fd_ = ::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (fd_ < 0)
    throw MediaError("cannot open " + quotedPath(file) + ": " + std::generic_category().message(errno));
  struct stat status;
  if (::fstat(fd_, &status) != 0 || !S_ISREG(status.st_mode)) {
    ::close(fd_);
    fd_ = -1;
    throw MediaError("cannot read " + quotedPath(file) + ": not a regular file");
  }
  size_ = status.st_size;
  budgetLeft_ = budgetFor(size_);
}

PhotoFile::~PhotoFile() {
  if (fd_ >= 0) ::close(fd_);
}

PhotoFile::PhotoFile(PhotoFile&& other) noexcept
    : path_(std::move(other.path_)),
      fd_(std::exchange(other.fd_, -1)),
      size_(other.size_),
      budgetLeft_(other.budgetLeft_) {}

PhotoFile& PhotoFile::operator=(PhotoFile&& other) noexcept {
  if (this != &other) {
    if (fd_ >= 0) ::close(fd_);
    path_ = std::move(other.path_);
    fd_ = std::exchange(other.fd_, -1);
    size_ = other.size_;
    budgetLeft_ = other.budgetLeft_;
  }
  return *this;
}

std::int64_t PhotoFile::budgetFor(std::int64_t size) { return 4 * size + (std::int64_t(1) << 20); }

void PhotoFile::spend(std::int64_t cost) {
  budgetLeft_ -= cost;
  if (budgetLeft_ < 0) throw ReadBudgetExceeded(path_);
}

void PhotoFile::charge(std::int64_t bytes) { spend(callCost + bytes); }

std::size_t PhotoFile::read(std::int64_t offset, void* into, std::size_t length) {
  spend(callCost);
  if (offset < 0 || offset >= size_ || length == 0) return 0;
  std::size_t done = 0;
  while (done < length) {
    const ssize_t n = ::pread(fd_, static_cast<char*>(into) + done, length - done, offset + done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    done += static_cast<std::size_t>(n);
  }
  spend(static_cast<std::int64_t>(done));
  return done;
}

std::string PhotoFile::bytes(std::int64_t offset, std::size_t length) {
  if (offset < 0 || offset >= size_) {
    charge();
    return {};
  }
  std::string out(std::min<std::uint64_t>(length, std::uint64_t(size_ - offset)), '\0');
  out.resize(read(offset, out.data(), out.size()));
  return out;
}

}  // namespace lumivale
