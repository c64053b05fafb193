#include "engine/media/heif_metadata.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <vector>

#include "engine/media/safe_file.h"

// ISO/IEC 14496-12 and 23008-12 in brief: a file is a row of boxes (32-bit
// big-endian size including the 8-byte header, or 1 and a 64-bit size
// after the type). The meta box ("full box": a version byte and 24 flag
// bits after the header) lists the items in `iinf` (one `infe` each: id,
// type, name, MIME type for "mime" items), where each item's bytes lie in
// `iloc` (extents at absolute file offsets, or inside the meta box's own
// `idat`), and how items relate in `iref` (an EXIF item "cdsc", describes,
// the image it belongs to). Offsets in `iloc` point into the `mdat` boxes,
// so changing the size of the meta box moves them: the file is rebuilt as
// file type box, meta box, one media data box with every kept extent copied
// and `iloc` written with the new offsets.

namespace lumivale {
namespace {

using u8 = std::uint8_t;
using u16 = std::uint16_t;
using u32 = std::uint32_t;
using u64 = std::uint64_t;

[[noreturn]] void fail(const std::string& reason) {
  throw MediaError("cannot write the metadata: " + reason);
}

constexpr u32 fourCC(const char (&s)[5]) {
  return u32(u8(s[0])) << 24 | u32(u8(s[1])) << 16 | u32(u8(s[2])) << 8 | u32(u8(s[3]));
}

// Reads big-endian fields from a range of the file, refusing to read past it.
class Reader {
 public:
  Reader(std::string_view data, std::size_t begin, std::size_t end) : data_(data), at_(begin), end_(end) {}
  u64 number(int bytes) {
    need(std::size_t(bytes));
    u64 v = 0;
    for (int i = 0; i < bytes; ++i) v = v << 8 | u8(data_[at_++]);
    return v;
  }
  u8 u8_() { return u8(number(1)); }
  u16 u16_() { return u16(number(2)); }
  u32 u32_() { return u32(number(4)); }
  std::string text() {
    const std::size_t stop = data_.find('\0', at_);
    if (stop == std::string_view::npos || stop >= end_) fail("an item name is cut short");
    std::string s(data_.substr(at_, stop - at_));
    at_ = stop + 1;
    return s;
  }
  std::size_t at() const { return at_; }
  std::size_t end() const { return end_; }
  bool done() const { return at_ >= end_; }

 private:
  void need(std::size_t n) {
    if (end_ - at_ < n) fail("a box is cut short");
  }
  std::string_view data_;
  std::size_t at_;
  std::size_t end_;
};

struct Box {
  u32 type = 0;
  std::size_t start = 0;  ///< of the header
  std::size_t body = 0;   ///< first byte after the header
  std::size_t end = 0;
};

std::vector<Box> boxesIn(std::string_view data, std::size_t begin, std::size_t end) {
  std::vector<Box> boxes;
  std::size_t at = begin;
  while (at < end) {
    Reader r(data, at, end);
    Box box;
    box.start = at;
    u64 size = r.u32_();
    box.type = r.u32_();
    if (size == 1) {
      size = r.number(8);
    } else if (size == 0) {
      size = end - at;
    }
    box.body = r.at();
    if (size < box.body - at || size > end - at) fail("a box's size runs past its container");
    box.end = at + std::size_t(size);
    boxes.push_back(box);
    at = box.end;
  }
  return boxes;
}

// ---- writing ----

class Writer {
 public:
  void number(u64 v, int bytes) {
    for (int i = bytes - 1; i >= 0; --i) out_.push_back(char(u8(v >> (8 * i))));
  }
  void bytes(std::string_view b) { out_.append(b); }
  void text(std::string_view s) {
    out_.append(s);
    out_.push_back('\0');
  }
  // Starts a box; `end` fills in its size.
  std::size_t begin(u32 type) {
    const std::size_t start = out_.size();
    number(0, 4);
    number(type, 4);
    return start;
  }
  std::size_t beginFull(u32 type, int version, u32 flags) {
    const std::size_t start = begin(type);
    number(u32(version) << 24 | flags, 4);
    return start;
  }
  void end(std::size_t start) {
    const u64 size = out_.size() - start;
    if (size > 0xFFFFFFFFu) fail("a box is too large");
    for (int i = 0; i < 4; ++i) out_[start + i] = char(u8(size >> (8 * (3 - i))));
  }
  std::string& text() { return out_; }

 private:
  std::string out_;
};

// ---- the meta box's item tables ----

struct ItemInfo {
  u32 id = 0;
  bool metadata = false;  ///< an EXIF or XMP item: replaced
  std::string_view box;   ///< the whole `infe` box, kept as it is
};

struct Extent {
  u64 offset = 0;  ///< absolute in the file (construction 0) or in `idat` (1)
  u64 length = 0;
};

struct Location {
  u32 id = 0;
  int construction = 0;
  std::vector<Extent> extents;
};

struct Reference {
  u32 type = 0;
  u32 from = 0;
  std::vector<u32> to;
};

struct Meta {
  int version = 0;
  u32 flags = 0;
  std::vector<Box> children;
  u32 primary = 0;
  std::vector<ItemInfo> items;
  std::vector<Location> locations;
  std::vector<Reference> references;
  bool hasReferences = false;
};

u32 itemId(Reader& r, bool wide) { return wide ? r.u32_() : r.u16_(); }

std::vector<ItemInfo> readItemInfos(std::string_view data, const Box& iinf) {
  Reader r(data, iinf.body, iinf.end);
  const int version = r.u8_();
  r.number(3);
  r.number(version == 0 ? 2 : 4);  // the entry count; the boxes that follow tell
  std::vector<ItemInfo> items;
  for (const Box& infe : boxesIn(data, r.at(), iinf.end)) {
    if (infe.type != fourCC("infe")) continue;
    Reader e(data, infe.body, infe.end);
    const int v = e.u8_();
    e.number(3);
    ItemInfo item;
    item.box = data.substr(infe.start, infe.end - infe.start);
    item.id = itemId(e, v >= 3);
    if (v >= 2) {
      e.u16_();  // protection index
      const u32 type = e.u32_();
      e.text();  // name
      item.metadata = type == fourCC("Exif") || (type == fourCC("mime") && e.text() == "application/rdf+xml");
    }
    items.push_back(item);
  }
  return items;
}

std::vector<Location> readLocations(std::string_view data, const Box& iloc) {
  Reader r(data, iloc.body, iloc.end);
  const int version = r.u8_();
  r.number(3);
  if (version > 2) fail("unknown item location version");
  const int sizes = r.u8_();
  const int offsetSize = sizes >> 4, lengthSize = sizes & 15;
  const int more = r.u8_();
  const int baseSize = more >> 4, indexSize = version >= 1 ? more & 15 : 0;
  for (int size : {offsetSize, lengthSize, baseSize, indexSize}) {
    if (size != 0 && size != 4 && size != 8) fail("unknown item location field size");
  }
  const u32 count = version < 2 ? r.u16_() : r.u32_();
  std::vector<Location> locations;
  for (u32 i = 0; i < count; ++i) {
    Location location;
    location.id = itemId(r, version == 2);
    if (version >= 1) location.construction = r.u16_() & 15;
    const u16 reference = r.u16_();
    const u64 base = r.number(baseSize);
    const u16 extents = r.u16_();
    if (reference != 0) fail("item data in another file");
    if (location.construction > 1) fail("an item built from other items");
    for (u16 k = 0; k < extents; ++k) {
      r.number(indexSize);
      Extent extent;
      extent.offset = base + r.number(offsetSize);
      extent.length = r.number(lengthSize);
      location.extents.push_back(extent);
    }
    locations.push_back(std::move(location));
  }
  return locations;
}

std::vector<Reference> readReferences(std::string_view data, const Box& iref) {
  Reader r(data, iref.body, iref.end);
  const int version = r.u8_();
  r.number(3);
  std::vector<Reference> references;
  for (const Box& box : boxesIn(data, r.at(), iref.end)) {
    Reader e(data, box.body, box.end);
    Reference reference;
    reference.type = box.type;
    reference.from = itemId(e, version != 0);
    const u16 count = e.u16_();
    for (u16 k = 0; k < count; ++k) reference.to.push_back(itemId(e, version != 0));
    references.push_back(std::move(reference));
  }
  return references;
}

Meta readMeta(std::string_view data, const Box& box) {
  Meta meta;
  Reader r(data, box.body, box.end);
  meta.version = r.u8_();
  meta.flags = u32(r.number(3));
  meta.children = boxesIn(data, r.at(), box.end);
  bool hasInfos = false, hasLocations = false, hasPrimary = false;
  for (const Box& child : meta.children) {
    if (child.type == fourCC("pitm")) {
      Reader p(data, child.body, child.end);
      const int version = p.u8_();
      p.number(3);
      meta.primary = itemId(p, version != 0);
      hasPrimary = true;
    } else if (child.type == fourCC("iinf")) {
      meta.items = readItemInfos(data, child);
      hasInfos = true;
    } else if (child.type == fourCC("iloc")) {
      meta.locations = readLocations(data, child);
      hasLocations = true;
    } else if (child.type == fourCC("iref")) {
      meta.references = readReferences(data, child);
      meta.hasReferences = true;
    }
  }
  if (!hasInfos || !hasLocations || !hasPrimary) fail("the file lists no images");
  return meta;
}

// ---- the new file ----

struct NewItem {
  u32 id = 0;
  bool exif = false;
  std::string payload;
};

bool wide(u32 id) { return id > 0xFFFF; }

void writeItemInfos(Writer& w, const Meta& meta, const std::vector<NewItem>& added) {
  std::size_t count = added.size();
  for (const ItemInfo& item : meta.items) count += item.metadata ? 0 : 1;
  const std::size_t iinf = w.beginFull(fourCC("iinf"), count > 0xFFFF ? 1 : 0, 0);
  w.number(count, count > 0xFFFF ? 4 : 2);
  for (const ItemInfo& item : meta.items) {
    if (!item.metadata) w.bytes(item.box);
  }
  for (const NewItem& item : added) {
    // Hidden (flag 1): metadata is not an image to show.
    const std::size_t infe = w.beginFull(fourCC("infe"), wide(item.id) ? 3 : 2, 1);
    w.number(item.id, wide(item.id) ? 4 : 2);
    w.number(0, 2);
    w.number(item.exif ? fourCC("Exif") : fourCC("mime"), 4);
    w.text("");
    if (!item.exif) w.text("application/rdf+xml");
    w.end(infe);
  }
  w.end(iinf);
}

void writeReferences(Writer& w, const std::vector<Reference>& references) {
  bool anyWide = false;
  for (const Reference& r : references) {
    anyWide = anyWide || wide(r.from) || std::any_of(r.to.begin(), r.to.end(), wide);
  }
  const std::size_t iref = w.beginFull(fourCC("iref"), anyWide ? 1 : 0, 0);
  for (const Reference& r : references) {
    const std::size_t box = w.begin(r.type);
    w.number(r.from, anyWide ? 4 : 2);
    w.number(r.to.size(), 2);
    for (u32 id : r.to) w.number(id, anyWide ? 4 : 2);
    w.end(box);
  }
  w.end(iref);
}

// `mdatPayload` is where the new media data's bytes start in the new file;
// extents of construction 0 are given relative to it.
void writeLocations(Writer& w, const std::vector<Location>& locations, u64 mdatPayload, bool wideOffsets) {
  bool anyWide = false;
  for (const Location& l : locations) anyWide = anyWide || wide(l.id);
  const int fieldSize = wideOffsets ? 8 : 4;
  const std::size_t iloc = w.beginFull(fourCC("iloc"), anyWide ? 2 : 1, 0);
  w.number(u64(fieldSize) << 4 | u64(fieldSize), 1);
  w.number(0, 1);  // no base offsets, no extent indexes
  w.number(locations.size(), anyWide ? 4 : 2);
  for (const Location& l : locations) {
    w.number(l.id, anyWide ? 4 : 2);
    w.number(l.construction, 2);
    w.number(0, 2);
    if (l.extents.size() > 0xFFFF) fail("an item has too many pieces");
    w.number(l.extents.size(), 2);
    for (const Extent& e : l.extents) {
      w.number(e.offset + (l.construction == 0 ? mdatPayload : 0), fieldSize);
      w.number(e.length, fieldSize);
    }
  }
  w.end(iloc);
}

}  // namespace

std::string replaceHeifMetadata(std::string_view file, std::string_view exif, std::string_view xmp) {
  const std::vector<Box> top = boxesIn(file, 0, file.size());
  if (top.empty() || top.front().type != fourCC("ftyp")) fail("not a HEIF file");
  const Box* metaBox = nullptr;
  for (const Box& box : top) {
    if (box.type == fourCC("meta")) {
      if (metaBox) fail("two meta boxes");
      metaBox = &box;
    } else if (box.type != fourCC("ftyp") && box.type != fourCC("mdat") && box.type != fourCC("free") &&
               box.type != fourCC("skip")) {
      fail("a box this does not take apart at the top of the file");
    }
  }
  if (!metaBox) fail("no meta box");
  Meta meta = readMeta(file, *metaBox);

  // The kept items' bytes, in the order `iloc` lists them.
  std::vector<u32> removed;
  u32 largestId = meta.primary;
  for (const ItemInfo& item : meta.items) {
    if (item.metadata) {
      removed.push_back(item.id);
    } else {
      largestId = std::max(largestId, item.id);
    }
  }
  const auto isRemoved = [&](u32 id) {
    return std::find(removed.begin(), removed.end(), id) != removed.end();
  };
  std::string payload;
  std::vector<Location> locations;
  for (Location location : meta.locations) {
    if (isRemoved(location.id)) continue;
    largestId = std::max(largestId, location.id);
    if (location.construction == 0) {
      for (Extent& extent : location.extents) {
        if (extent.length == 0 || extent.offset > file.size() ||
            extent.length > file.size() - extent.offset) {
          fail("an item's bytes lie outside the file");
        }
        // Items sharing bytes are copied once each: a damaged table must
        // not make that many times the file.
        if (extent.length > file.size() - payload.size()) fail("items claim more bytes than the file has");
        const u64 at = payload.size();
        payload.append(file.substr(std::size_t(extent.offset), std::size_t(extent.length)));
        extent.offset = at;
      }
    }
    locations.push_back(std::move(location));
  }

  std::vector<NewItem> added;
  if (!exif.empty()) {
    // The EXIF item opens with the offset of the TIFF header behind an
    // "Exif\0\0" marker, as cameras write it.
    NewItem item{largestId + 1, true, std::string("\0\0\0\6Exif\0\0", 10)};
    item.payload.append(exif);
    added.push_back(std::move(item));
  }
  if (!xmp.empty()) added.push_back({largestId + 1 + u32(added.size()), false, std::string(xmp)});
  if (largestId + added.size() < largestId) fail("no item number is left");
  for (const NewItem& item : added) {
    locations.push_back({item.id, 0, {{payload.size(), item.payload.size()}}});
    payload.append(item.payload);
  }

  std::vector<Reference> references;
  for (Reference r : meta.references) {
    if (isRemoved(r.from)) continue;
    r.to.erase(std::remove_if(r.to.begin(), r.to.end(), isRemoved), r.to.end());
    if (!r.to.empty()) references.push_back(std::move(r));
  }
  for (const NewItem& item : added) references.push_back({fourCC("cdsc"), item.id, {meta.primary}});

  const bool wideOffsets = u64(file.size()) + payload.size() + (u64(1) << 20) > 0xFFFFFFFFu;
  const bool wideMdat = payload.size() + 8 > 0xFFFFFFFFu;
  const auto buildMeta = [&](u64 mdatPayload) {
    Writer w;
    const std::size_t start = w.beginFull(fourCC("meta"), meta.version, meta.flags);
    for (const Box& child : meta.children) {
      if (child.type == fourCC("iinf")) {
        writeItemInfos(w, meta, added);
      } else if (child.type == fourCC("iloc")) {
        writeLocations(w, locations, mdatPayload, wideOffsets);
      } else if (child.type == fourCC("iref")) {
        if (!references.empty()) writeReferences(w, references);
      } else {
        w.bytes(file.substr(child.start, child.end - child.start));
      }
    }
    if (!meta.hasReferences && !references.empty()) writeReferences(w, references);
    w.end(start);
    return std::move(w.text());
  };

  const Box& ftyp = top.front();
  const std::size_t ftypSize = ftyp.end - ftyp.start;
  const u64 payloadStart = ftypSize + buildMeta(0).size() + (wideMdat ? 16 : 8);
  Writer out;
  out.bytes(file.substr(ftyp.start, ftypSize));
  out.bytes(buildMeta(payloadStart));
  if (wideMdat) {
    out.number(1, 4);
    out.number(fourCC("mdat"), 4);
    out.number(payload.size() + 16, 8);
  } else {
    out.number(payload.size() + 8, 4);
    out.number(fourCC("mdat"), 4);
  }
  out.bytes(payload);
  return std::move(out.text());
}

}  // namespace lumivale
