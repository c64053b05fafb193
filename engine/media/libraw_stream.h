#pragma once
// LibRaw reading a PhotoFile: every header LibRaw parses is read through
// the file's bounded budget (photo_file.h). Internal to engine/media: it
// includes LibRaw.

#include <libraw/libraw.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <string>

#include "engine/media/photo_file.h"

namespace lumivale::media_detail {

// LibRaw reads the file through this stream: only the PhotoFile's bytes, on
// its budget, through a small window so that LibRaw's many two- and
// four-byte reads cost no system call each. LibRaw knows its own exception
// codes only, so a spent budget leaves as LIBRAW_EXCEPTION_IO_CORRUPT and
// `exhausted` tells the caller why.
class BudgetStream : public LibRaw_abstract_datastream {
 public:
  explicit BudgetStream(PhotoFile& file) : file_(file), name_(file.path().string()) {}

  bool exhausted() const { return exhausted_; }

  int valid() override { return 1; }
  int read(void* into, size_t size, size_t count) override {
    if (size == 0 || count == 0) return 0;
    if (count > std::size_t(file_.size()) / size + 1) count = std::size_t(file_.size()) / size + 1;
    const std::size_t want = size * count;
    std::size_t got = 0;
    charged([&] {
      if (want > window) {
        got = file_.read(position_, into, want);
      } else {
        file_.charge(std::int64_t(want));
        if (position_ < windowStart_ ||
            position_ + std::int64_t(want) > windowStart_ + std::int64_t(window_.size())) {
          windowStart_ = position_;
          window_ = file_.bytes(position_, window);
        }
        const std::int64_t inWindow = windowStart_ + std::int64_t(window_.size()) - position_;
        got = std::size_t(std::clamp<std::int64_t>(inWindow, 0, std::int64_t(want)));
        std::memcpy(into, window_.data() + (position_ - windowStart_), got);
      }
    });
    position_ += std::int64_t(got);
    return int(got / size);
  }
  int seek(INT64 offset, int whence) override {
    charged([&] { file_.charge(); });
    const std::int64_t base = whence == SEEK_SET ? 0 : whence == SEEK_CUR ? position_ : file_.size();
    if (base + offset < 0) return -1;
    position_ = std::min<std::int64_t>(base + offset, file_.size());
    return 0;
  }
  INT64 tell() override {
    charged([&] { file_.charge(); });
    return position_;
  }
  INT64 size() override { return file_.size(); }
  int get_char() override {
    unsigned char c;
    return read(&c, 1, 1) == 1 ? c : -1;
  }
  char* gets(char* into, int size) override {
    if (size <= 0) return nullptr;
    int n = 0;
    while (n < size - 1) {
      const int c = get_char();
      if (c < 0) break;
      into[n++] = char(c);
      if (c == '\n') break;
    }
    into[n] = 0;
    return n > 0 ? into : nullptr;
  }
  // One number after optional white space, as fscanf reads it.
  int scanf_one(const char* format, void* value) override {
    int c = get_char();
    while (c == ' ' || c == '\t' || c == '\n' || c == '\r') c = get_char();
    std::string token;
    while (c >= 0 && token.size() < 64 && (std::isdigit(c) || std::strchr("+-.eE", c))) {
      token += char(c);
      c = get_char();
    }
    if (c >= 0) position_ -= 1;  // the character after the number stays unread
    if (token.empty()) return c < 0 ? EOF : 0;
    return std::sscanf(token.c_str(), format, value);
  }
  int eof() override {
    charged([&] { file_.charge(); });
    return position_ >= file_.size();
  }
  void* make_jas_stream() override { return nullptr; }
  const char* fname() override { return name_.c_str(); }

 private:
  static constexpr std::size_t window = 16 * 1024;

  template <class Work>
  void charged(Work work) {
    if (exhausted_) throw LIBRAW_EXCEPTION_IO_CORRUPT;
    try {
      work();
    } catch (const ReadBudgetExceeded&) {
      exhausted_ = true;
      throw LIBRAW_EXCEPTION_IO_CORRUPT;
    }
  }

  PhotoFile& file_;
  std::string name_;
  std::int64_t position_ = 0;
  std::int64_t windowStart_ = 0;
  std::string window_;
  bool exhausted_ = false;
};

}  // namespace lumivale::media_detail
