#include "engine/media/ciff_directory.h"

#include <cstdint>
#include <cstring>
#include <ctime>

namespace lumivale {
namespace {

class CiffReader {
 public:
  CiffReader(PhotoFile& file, bool littleEndian) : file_(file), little_(littleEndian) {}

  // Looks for record `wanted` in the heap of `length` bytes at `start` and
  // in the heaps below it, to `depth` levels; the offset of its data.
  std::optional<std::int64_t> find(std::uint16_t wanted, std::int64_t start, std::int64_t length, int depth) {
    if (depth == 0 || length < 6) return std::nullopt;
    const auto directoryOffset = u32At(start + length - 4);
    if (!directoryOffset || *directoryOffset > std::uint64_t(length) - 6) return std::nullopt;
    const std::int64_t directory = start + std::int64_t(*directoryOffset);
    const auto count = u16At(directory);
    if (!count || *count > (start + length - directory - 2) / 10) return std::nullopt;
    const std::string entries = file_.bytes(directory + 2, std::size_t(*count) * 10);
    if (entries.size() != std::size_t(*count) * 10) return std::nullopt;
    for (std::size_t i = 0; i < *count; ++i) {
      const auto* e = reinterpret_cast<const unsigned char*>(entries.data()) + 10 * i;
      const std::uint16_t tag = u16(e);
      const std::int64_t size = u32(e + 2), offset = u32(e + 6);
      const int location = tag & 0xC000, type = tag & 0x3800;
      if (location == 0x4000) continue;  // data held in the record: too small for ours
      if (location != 0 || offset + size > length) continue;
      if ((tag & 0x3FFF) == wanted) return start + offset;
      if ((type == 0x2800 || type == 0x3000) && size < length) {  // a smaller heap of records
        if (auto found = find(wanted, start + offset, size, depth - 1)) return found;
      }
    }
    return std::nullopt;
  }

  std::optional<std::uint32_t> u32At(std::int64_t at) {
    unsigned char b[4];
    if (file_.read(at, b, 4) != 4) return std::nullopt;
    return u32(b);
  }

 private:
  std::optional<std::uint16_t> u16At(std::int64_t at) {
    unsigned char b[2];
    if (file_.read(at, b, 2) != 2) return std::nullopt;
    return u16(b);
  }
  std::uint16_t u16(const unsigned char* p) const {
    return little_ ? std::uint16_t(p[1] << 8 | p[0]) : std::uint16_t(p[0] << 8 | p[1]);
  }
  std::uint32_t u32(const unsigned char* p) const {
    return little_ ? std::uint32_t(u16(p + 2)) << 16 | u16(p) : std::uint32_t(u16(p)) << 16 | u16(p + 2);
  }

  PhotoFile& file_;
  bool little_;
};

}  // namespace

std::optional<std::string> ciffCaptureTime(PhotoFile& file) {
  unsigned char head[14];
  if (file.read(0, head, sizeof head) != sizeof head || std::memcmp(head + 6, "HEAPCCDR", 8) != 0) {
    return std::nullopt;
  }
  if (std::memcmp(head, "II", 2) != 0 && std::memcmp(head, "MM", 2) != 0) return std::nullopt;
  CiffReader ciff(file, head[0] == 'I');
  const auto headerLength = ciff.u32At(2);
  if (!headerLength || *headerLength < 14 || *headerLength >= file.size()) return std::nullopt;
  // Canon's own files nest three heaps deep; a few more levels are allowed.
  constexpr int maxDepth = 8;
  constexpr std::uint16_t captureTime = 0x180e;
  const auto at = ciff.find(captureTime, *headerLength, file.size() - *headerLength, maxDepth);
  if (!at) return std::nullopt;
  const auto seconds = ciff.u32At(*at);
  if (!seconds || *seconds == 0) return std::nullopt;
  const std::time_t stamp = std::time_t(*seconds);
  std::tm clock{};
  if (!gmtime_r(&stamp, &clock)) return std::nullopt;
  char text[32];
  std::strftime(text, sizeof text, "%Y:%m:%d %H:%M:%S", &clock);
  return text;
}

}  // namespace lumivale
