#include "engine/media/image_header.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <string_view>
#include <utility>
#include <vector>

namespace lumivale {
namespace {

using Bytes = const unsigned char*;

std::uint16_t be16(Bytes p) { return std::uint16_t(p[0] << 8 | p[1]); }
std::uint32_t be32(Bytes p) {
  return std::uint32_t(p[0]) << 24 | std::uint32_t(p[1]) << 16 | std::uint32_t(p[2]) << 8 | p[3];
}
std::uint64_t be64(Bytes p) { return std::uint64_t(be32(p)) << 32 | be32(p + 4); }

bool isPixelCount(std::uint64_t n) { return n >= 1 && n <= INT_MAX; }

// The bytes of a file through a window of it, so that walks taking a few
// bytes at a time make few reads.
class FileWindow {
 public:
  explicit FileWindow(PhotoFile& file) : file_(file) {}

  /// The `length` bytes at `offset`, valid until the next call; nullptr
  /// when the file ends before them.
  Bytes at(std::int64_t offset, std::size_t length) {
    if (offset < 0 || offset > file_.size() || length > std::uint64_t(file_.size() - offset)) return nullptr;
    if (offset < start_ || offset + std::int64_t(length) > start_ + std::int64_t(data_.size())) {
      start_ = offset;
      data_ = file_.bytes(offset, std::max(length, chunk));
      if (data_.size() < length) return nullptr;
    }
    return reinterpret_cast<Bytes>(data_.data()) + (offset - start_);
  }

  std::int64_t size() const { return file_.size(); }

 private:
  static constexpr std::size_t chunk = 64 * 1024;
  PhotoFile& file_;
  std::int64_t start_ = 0;
  std::string data_;
};

std::string_view textOf(Bytes p, std::size_t n) { return {reinterpret_cast<const char*>(p), n}; }

// ---- JPEG: markers up to the start of the first scan ----

bool isFrameMarker(int marker) {
  // SOF0 to SOF15, less DHT (C4), JPG (C8) and DAC (CC), which share the range.
  return marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
}

std::optional<ImageHeader> readJpeg(FileWindow& in) {
  ImageHeader header;
  header.format = ImageFormat::jpeg;
  std::vector<std::pair<int, std::string>> iccChunks;  // (sequence number, bytes)
  bool haveFrame = false;
  std::int64_t at = 2;
  for (;;) {
    // Decoders pass over stray bytes before a marker; any number of 0xFF
    // fill bytes may precede the marker code.
    Bytes p = in.at(at, 1);
    while (p && *p != 0xFF) p = in.at(++at, 1);
    while (p && *p == 0xFF) p = in.at(++at, 1);
    if (!p) return std::nullopt;
    const int marker = *p;
    ++at;
    if (marker == 0xDA) break;                // start of scan: the header is complete
    if (marker == 0xD9) return std::nullopt;  // end of image without a scan
    if (marker == 0x01 || (marker >= 0xD0 && marker <= 0xD8)) continue;  // markers without a length
    Bytes lengthBytes = in.at(at, 2);
    if (!lengthBytes || be16(lengthBytes) < 2) return std::nullopt;
    const std::size_t length = be16(lengthBytes);
    Bytes body = in.at(at + 2, length - 2);
    if (!body) return std::nullopt;
    const std::string_view payload = textOf(body, length - 2);
    if (isFrameMarker(marker) && !haveFrame) {
      if (payload.size() < 6) return std::nullopt;
      header.depth = body[0];
      header.height = be16(body + 1);
      header.width = be16(body + 3);
      haveFrame = true;
    } else if (marker == 0xE1 && header.exif.empty() &&
               payload.starts_with(std::string_view("Exif\0\0", 6))) {
      header.exif = payload.substr(6);
    } else if (marker == 0xED && payload.starts_with(std::string_view("Photoshop 3.0\0", 14))) {
      header.photoshop += payload.substr(14);
    } else if (marker == 0xE2 && payload.size() > 14 &&
               payload.starts_with(std::string_view("ICC_PROFILE\0", 12))) {
      iccChunks.emplace_back(body[12], payload.substr(14));
    }
    at += std::int64_t(length);
  }
  // A height of 0 defers it to a DNL marker after the scan, which decoders refuse.
  if (!haveFrame || header.width < 1 || header.height < 1) return std::nullopt;
  // A profile too large for one segment is split into numbered chunks.
  std::stable_sort(iccChunks.begin(), iccChunks.end(),
                   [](const auto& a, const auto& b) { return a.first < b.first; });
  for (const auto& chunk : iccChunks) header.iccProfile += chunk.second;
  return header;
}

// ---- PNG: the IHDR chunk, which must come first ----

std::uint32_t crc32(Bytes p, std::size_t n) {
  std::uint32_t crc = 0xFFFFFFFF;
  for (std::size_t i = 0; i < n; ++i) {
    crc ^= p[i];
    for (int bit = 0; bit < 8; ++bit) crc = crc & 1 ? (crc >> 1) ^ 0xEDB88320 : crc >> 1;
  }
  return ~crc;
}

std::optional<ImageHeader> readPng(FileWindow& in) {
  // Length 13, "IHDR", width, height, depth, colour type, three methods, CRC.
  Bytes p = in.at(8, 25);
  if (!p || be32(p) != 13 || std::memcmp(p + 4, "IHDR", 4) != 0 || crc32(p + 4, 17) != be32(p + 21)) {
    return std::nullopt;
  }
  const std::uint32_t width = be32(p + 8), height = be32(p + 12);
  const int depth = p[16];
  if (!isPixelCount(width) || !isPixelCount(height)) return std::nullopt;
  if (depth != 1 && depth != 2 && depth != 4 && depth != 8 && depth != 16) return std::nullopt;
  ImageHeader header;
  header.format = ImageFormat::png;
  header.width = int(width);
  header.height = int(height);
  header.depth = depth;
  return header;
}

// ---- TIFF and BigTIFF: the first directory ----

class TiffDirectory {
 public:
  struct Entry {
    std::uint16_t tag = 0;
    std::uint16_t type = 0;
    std::uint64_t count = 0;
    std::int64_t valueAt = 0;  ///< where the value lies in the file
  };

  TiffDirectory(FileWindow& in, bool littleEndian, bool big) : in_(in), little_(littleEndian), big_(big) {}

  /// The entries of the directory at `offset`; nothing when they do not fit the file.
  std::optional<std::vector<Entry>> read(std::uint64_t offset) {
    const std::size_t countSize = big_ ? 8 : 2, entrySize = big_ ? 20 : 12, fieldSize = big_ ? 8 : 4;
    Bytes p = in_.at(std::int64_t(std::min<std::uint64_t>(offset, INT64_MAX)), countSize);
    if (!p) return std::nullopt;
    const std::uint64_t count = big_ ? u64(p) : u16(p);
    const std::uint64_t room = std::uint64_t(in_.size()) - offset - countSize;
    if (count == 0 || count > room / entrySize) return std::nullopt;
    Bytes entries = in_.at(std::int64_t(offset + countSize), count * entrySize);
    if (!entries) return std::nullopt;
    std::vector<Entry> out;
    for (std::uint64_t i = 0; i < count; ++i) {
      Bytes e = entries + i * entrySize;
      Entry entry{.tag = u16(e), .type = u16(e + 2), .count = big_ ? u64(e + 4) : u32(e + 4)};
      const std::int64_t field = std::int64_t(offset + countSize + i * entrySize + (big_ ? 12 : 8));
      // An unknown type, or more values than the file has bytes: not ours to read.
      const std::size_t unit = typeSize(entry.type);
      if (unit == 0 || entry.count > std::uint64_t(in_.size())) continue;
      if (entry.count * unit <= fieldSize) {
        entry.valueAt = field;
      } else {
        const std::uint64_t at = big_ ? u64(e + 12) : u32(e + 8);
        if (at > std::uint64_t(in_.size())) continue;
        entry.valueAt = std::int64_t(at);
      }
      out.push_back(entry);
    }
    return out;
  }

  /// Value `index` of an unsigned integer entry.
  std::optional<std::uint64_t> number(const Entry& entry, std::uint64_t index = 0) {
    const std::size_t size = typeSize(entry.type);
    if (index >= entry.count || (entry.type != 1 && entry.type != 3 && entry.type != 4 && entry.type != 16)) {
      return std::nullopt;
    }
    Bytes p = in_.at(entry.valueAt + std::int64_t(index * size), size);
    if (!p) return std::nullopt;
    return size == 1 ? *p : size == 2 ? u16(p) : size == 4 ? u32(p) : u64(p);
  }

  /// The bytes of an entry; empty when they run past the end of the file.
  std::string bytes(const Entry& entry) {
    const std::uint64_t length = entry.count * typeSize(entry.type);
    Bytes p = in_.at(entry.valueAt, length);
    return p ? std::string(textOf(p, length)) : std::string();
  }

  std::uint16_t u16(Bytes p) const { return little_ ? std::uint16_t(p[1] << 8 | p[0]) : be16(p); }
  std::uint32_t u32(Bytes p) const {
    return little_ ? std::uint32_t(p[3]) << 24 | std::uint32_t(p[2]) << 16 | std::uint32_t(p[1]) << 8 | p[0]
                   : be32(p);
  }
  std::uint64_t u64(Bytes p) const { return little_ ? std::uint64_t(u32(p + 4)) << 32 | u32(p) : be64(p); }

 private:
  static std::size_t typeSize(std::uint16_t type) {
    // By type number: BYTE, ASCII, SHORT, LONG, RATIONAL, SBYTE, UNDEFINED,
    // SSHORT, SLONG, SRATIONAL, FLOAT, DOUBLE, IFD, two unused, LONG8,
    // SLONG8, IFD8.
    static constexpr std::uint8_t sizes[] = {0, 1, 1, 2, 4, 8, 1, 1, 2, 4, 8, 4, 8, 4, 0, 0, 8, 8, 8};
    return type < std::size(sizes) ? sizes[type] : 0;
  }

  FileWindow& in_;
  bool little_;
  bool big_;
};

std::optional<ImageHeader> readTiff(FileWindow& in) {
  Bytes head = in.at(0, 16);
  if (!head) return std::nullopt;
  const bool little = head[0] == 'I';
  const bool big = head[little ? 2 : 3] == 43;
  TiffDirectory tiff(in, little, big);
  if (big && (tiff.u16(head + 4) != 8 || tiff.u16(head + 6) != 0)) return std::nullopt;
  const std::uint64_t first = big ? tiff.u64(head + 8) : tiff.u32(head + 4);
  auto entries = tiff.read(first);
  if (!entries) return std::nullopt;

  ImageHeader header;
  header.format = ImageFormat::tiff;
  header.depth = 1;  // what a file without BitsPerSample has
  std::uint64_t width = 0, height = 0;
  for (const auto& entry : *entries) {
    switch (entry.tag) {
      case 256:
        width = tiff.number(entry).value_or(0);
        break;
      case 257:
        height = tiff.number(entry).value_or(0);
        break;
      case 258:
        header.depth = int(std::min<std::uint64_t>(tiff.number(entry).value_or(0), 64));
        break;
      case 34675:
        header.iccProfile = tiff.bytes(entry);
        break;
    }
  }
  if (!isPixelCount(width) || !isPixelCount(height)) return std::nullopt;
  header.width = int(width);
  header.height = int(height);
  return header;
}

// ---- HEIF: the item properties of the primary image ----

constexpr std::uint32_t fourCC(const char (&code)[5]) {
  return std::uint32_t(std::uint8_t(code[0])) << 24 | std::uint32_t(std::uint8_t(code[1])) << 16 |
         std::uint32_t(std::uint8_t(code[2])) << 8 | std::uint8_t(code[3]);
}

// The brands that mark a HEIF image file (HEVC, AVC-free image sequences,
// the generic image brands, AVIF).
bool isHeifBrand(std::uint32_t brand) {
  for (auto known :
       {"heic", "heix", "hevc", "hevx", "heim", "heis", "hevm", "hevs", "mif1", "msf1", "avif", "avis"}) {
    if (brand == be32(reinterpret_cast<Bytes>(known))) return true;
  }
  return false;
}

struct Box {
  std::uint32_t type = 0;
  Bytes body = nullptr;
  std::size_t size = 0;
};

// Calls `visit` with each box packed in `n` bytes at `p`; false when a box
// claims more bytes than there are.
template <class Visit>
bool forEachBox(Bytes p, std::size_t n, Visit&& visit) {
  std::size_t at = 0;
  while (n - at >= 8) {
    std::uint64_t size = be32(p + at);
    std::size_t header = 8;
    if (size == 1) {
      if (n - at < 16) return false;
      size = be64(p + at + 8);
      header = 16;
    } else if (size == 0) {
      size = n - at;  // to the end of the enclosing box
    }
    if (size < header || size > n - at) return false;
    visit(Box{be32(p + at + 4), p + at + header, std::size_t(size) - header});
    at += std::size_t(size);
  }
  return true;
}

// A transform as mirrored-or-not followed by quarter turns clockwise,
// the way the EXIF orientations are built.
struct Turn {
  bool mirrored = false;
  int clockwise = 0;  // 0 to 3

  int exifOrientation() const {
    static const int unmirroredTurns[4] = {1, 6, 3, 8}, mirroredTurns[4] = {2, 7, 4, 5};
    return (mirrored ? mirroredTurns : unmirroredTurns)[clockwise];
  }
  // `irot` turns anticlockwise.
  void rotate(int anticlockwise) { clockwise = (clockwise + 4 - (anticlockwise & 3)) % 4; }
  // Mirroring after a turn equals mirroring first and turning the other way;
  // a top-to-bottom flip is a left-to-right one and half a turn.
  void mirror(bool topToBottom) {
    mirrored = !mirrored;
    clockwise = ((topToBottom ? 2 : 0) + 4 - clockwise) % 4;
  }
};

class HeifMeta {
 public:
  // `body`: the contents of the 'meta' box.
  bool parse(Bytes body, std::size_t size) {
    if (size < 4) return false;  // version and flags
    return forEachBox(body + 4, size - 4, [&](const Box& box) {
      if (box.type == fourCC("pitm") && box.size >= 6) {
        primary_ = box.body[0] == 0 ? be16(box.body + 4) : (box.size >= 8 ? be32(box.body + 4) : 0);
      } else if (box.type == fourCC("iprp")) {
        forEachBox(box.body, box.size, [&](const Box& child) {
          if (child.type == fourCC("ipco")) {
            forEachBox(child.body, child.size, [&](const Box& property) { properties_.push_back(property); });
          } else if (child.type == fourCC("ipma")) {
            readAssociations(child);
          }
        });
      } else if (box.type == fourCC("iref") && box.size >= 4) {
        readTiles(box);
      }
    });
  }

  std::uint32_t primary() const { return primary_; }
  std::optional<std::uint32_t> firstTile() const { return firstTile_; }

  // The properties of an item, in the order they apply.
  std::vector<const Box*> propertiesOf(std::uint32_t item) const {
    std::vector<const Box*> out;
    for (const auto& [owner, index] : associations_) {
      if (owner == item && index >= 1 && index <= properties_.size()) out.push_back(&properties_[index - 1]);
    }
    return out;
  }

 private:
  void readAssociations(const Box& box) {
    if (box.size < 8) return;
    const int version = box.body[0];
    const bool wideIndex = box.body[3] & 1;
    std::uint32_t entries = be32(box.body + 4);
    std::size_t at = 8;
    while (entries-- > 0) {
      const std::size_t idSize = version < 1 ? 2 : 4;
      if (box.size - at < idSize + 1) return;
      const std::uint32_t item = idSize == 2 ? be16(box.body + at) : be32(box.body + at);
      int count = box.body[at + idSize];
      at += idSize + 1;
      for (; count > 0; --count) {
        const std::size_t indexSize = wideIndex ? 2 : 1;
        if (box.size - at < indexSize) return;
        const std::size_t index = wideIndex ? be16(box.body + at) & 0x7FFF : box.body[at] & 0x7F;
        associations_.emplace_back(item, index);
        at += indexSize;
      }
    }
  }

  // The first tile ('dimg' reference) of the primary image, where a grid's
  // pixel format and colour are stated.
  void readTiles(const Box& box) {
    const bool wideIds = box.body[0] != 0;
    const std::size_t idSize = wideIds ? 4 : 2;
    forEachBox(box.body + 4, box.size - 4, [&](const Box& reference) {
      if (reference.type != fourCC("dimg") || reference.size < 2 * idSize + 2 || firstTile_) return;
      const std::uint32_t from = wideIds ? be32(reference.body) : be16(reference.body);
      const std::size_t count = be16(reference.body + idSize);
      if (from == primary_ && count > 0) {
        firstTile_ = wideIds ? be32(reference.body + idSize + 2) : be16(reference.body + idSize + 2);
      }
    });
  }

  std::uint32_t primary_ = 0;
  std::optional<std::uint32_t> firstTile_;
  std::vector<Box> properties_;
  std::vector<std::pair<std::uint32_t, std::size_t>> associations_;
};

// Bits per sample from an item's pixel information or codec configuration.
int codedDepth(const std::vector<const Box*>& properties) {
  for (const Box* p : properties) {
    if (p->type == fourCC("pixi") && p->size >= 6 && p->body[4] >= 1) return p->body[5];
  }
  for (const Box* p : properties) {
    if (p->type == fourCC("hvcC") && p->size >= 23) return (p->body[17] & 7) + 8;
    if (p->type == fourCC("av1C") && p->size >= 4) {
      const bool high = p->body[2] & 0x40, twelve = p->body[2] & 0x20;
      return high ? (twelve ? 12 : 10) : 8;
    }
  }
  return 0;
}

std::string iccProfileOf(const std::vector<const Box*>& properties) {
  for (const Box* p : properties) {
    if (p->type != fourCC("colr") || p->size < 4) continue;
    const std::uint32_t kind = be32(p->body);
    if (kind == fourCC("prof") || kind == fourCC("rICC"))
      return std::string(textOf(p->body + 4, p->size - 4));
  }
  return {};
}

std::optional<ImageHeader> readHeif(FileWindow& in) {
  // The file type box names the brands; the 'meta' box follows at the top level.
  constexpr std::size_t maxMetaSize = 64 << 20;
  std::int64_t at = 0;
  std::optional<std::string> meta;
  while (!meta) {
    Bytes p = in.at(at, 8);
    if (!p) return std::nullopt;
    std::uint64_t size = be32(p);
    const std::uint32_t type = be32(p + 4);
    std::size_t header = 8;
    if (size == 1) {
      Bytes large = in.at(at + 8, 8);
      if (!large) return std::nullopt;
      size = be64(large);
      header = 16;
    } else if (size == 0) {
      size = std::uint64_t(in.size() - at);
    }
    if (size < header || size > std::uint64_t(in.size() - at)) return std::nullopt;
    if (at == 0) {
      // 'ftyp': major brand, minor version, compatible brands.
      if (type != fourCC("ftyp") || size < 16 || size > 4096) return std::nullopt;
      Bytes brands = in.at(8, std::size_t(size) - 8);
      if (!brands) return std::nullopt;
      bool heif = isHeifBrand(be32(brands));
      for (std::size_t i = 8; !heif && i + 4 <= size - 8; i += 4) heif = isHeifBrand(be32(brands + i));
      if (!heif) return std::nullopt;
    } else if (type == fourCC("meta")) {
      if (size - header > maxMetaSize) return std::nullopt;
      Bytes body = in.at(at + std::int64_t(header), std::size_t(size) - header);
      if (!body) return std::nullopt;
      meta = std::string(textOf(body, std::size_t(size) - header));
    }
    at += std::int64_t(size);
  }

  HeifMeta items;
  if (!items.parse(reinterpret_cast<Bytes>(meta->data()), meta->size()) || items.primary() == 0) {
    return std::nullopt;
  }
  const auto properties = items.propertiesOf(items.primary());
  ImageHeader header;
  header.format = ImageFormat::heif;
  Turn turn;
  for (const Box* p : properties) {
    if (p->type == fourCC("ispe") && p->size >= 12) {
      const std::uint32_t width = be32(p->body + 4), height = be32(p->body + 8);
      if (isPixelCount(width) && isPixelCount(height)) header.width = int(width), header.height = int(height);
    } else if (p->type == fourCC("irot") && p->size >= 1) {
      turn.rotate(p->body[0] & 3);
    } else if (p->type == fourCC("imir") && p->size >= 1) {
      turn.mirror(p->body[0] & 1);
    }
  }
  if (header.width < 1) return std::nullopt;
  header.orientation = turn.exifOrientation();
  header.depth = codedDepth(properties);
  header.iccProfile = iccProfileOf(properties);
  if (auto tile = items.firstTile(); tile && (header.depth == 0 || header.iccProfile.empty())) {
    const auto tileProperties = items.propertiesOf(*tile);
    if (header.depth == 0) header.depth = codedDepth(tileProperties);
    if (header.iccProfile.empty()) header.iccProfile = iccProfileOf(tileProperties);
  }
  return header;
}

}  // namespace

std::optional<ImageHeader> readImageHeader(PhotoFile& file) {
  FileWindow in(file);
  Bytes head = in.at(0, std::size_t(std::min<std::int64_t>(file.size(), 12)));
  if (!head || file.size() < 8) return std::nullopt;
  if (head[0] == 0xFF && head[1] == 0xD8 && head[2] == 0xFF) return readJpeg(in);
  if (std::memcmp(head, "\x89PNG\r\n\x1a\n", 8) == 0) return readPng(in);
  for (const char* magic : {"II*\0", "MM\0*", "II+\0", "MM\0+"}) {
    if (std::memcmp(head, magic, 4) == 0) return readTiff(in);
  }
  if (file.size() >= 12 && std::memcmp(head + 4, "ftyp", 4) == 0) return readHeif(in);
  return std::nullopt;
}

}  // namespace lumivale
