#pragma once
// A photo file opened for reading its header, the one way every header
// reader of this floor (our own parsers, exiv2, LibRaw, libvips, libpng)
// gets at a file's bytes.
//
// Only regular files are opened: a FIFO, a device or a folder standing where
// a photo was is refused at once, without blocking on it. Every read is
// charged against a budget of a few times the file's size, so a damaged file
// that sends a parser round in circles (LibRaw walks some directories by
// counts read from the file) runs out of budget and counts as unreadable
// instead of stalling its caller for ever. A legible header costs a small
// part of the budget: parsers seek and read headers, never the pixels.

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>

#include "engine/media/safe_file.h"

namespace lumivale {

/// A reader spent the whole read budget of a file.
class ReadBudgetExceeded : public MediaError {
 public:
  explicit ReadBudgetExceeded(const std::filesystem::path& file);
};

/// A regular file open for reading, with a read budget. Move-only; not for
/// use by two threads at once (each reader opens its own).
class PhotoFile {
 public:
  /// Opens `file` when it is a regular file. Throws MediaError "cannot read
  /// "<file>": not a regular file" for anything else, "cannot open "<file>":
  /// <reason>" when the system refuses (missing, no permission).
  explicit PhotoFile(const std::filesystem::path& file);
  ~PhotoFile();
  PhotoFile(PhotoFile&& other) noexcept;
  PhotoFile& operator=(PhotoFile&& other) noexcept;
  PhotoFile(const PhotoFile&) = delete;
  PhotoFile& operator=(const PhotoFile&) = delete;

  const std::filesystem::path& path() const { return path_; }
  /// Bytes, as the file had when it was opened.
  std::int64_t size() const { return size_; }
  /// The open descriptor, still ours: do not close it.
  int descriptor() const { return fd_; }

  /// Reads up to `length` bytes at `offset` into `into` and returns how many
  /// came (fewer at the end of the file, 0 past it or on a read error).
  /// Throws ReadBudgetExceeded when the budget is spent.
  std::size_t read(std::int64_t offset, void* into, std::size_t length);
  /// Up to `length` bytes at `offset`, as `read`.
  std::string bytes(std::int64_t offset, std::size_t length);
  /// Charges a call that reads nothing here (a seek, a position query, bytes
  /// a library maps itself). Throws ReadBudgetExceeded when the budget is spent.
  void charge(std::int64_t bytes = 0);

  /// What a file of `size` bytes may spend: four times its size and a
  /// megabyte, every call costing `callCost` on top of the bytes it reads.
  static std::int64_t budgetFor(std::int64_t size);
  static constexpr std::int64_t callCost = 64;

 private:
  void spend(std::int64_t cost);

  std::filesystem::path path_;
  int fd_ = -1;
  std::int64_t size_ = 0;
  std::int64_t budgetLeft_ = 0;
};

}  // namespace lumivale
