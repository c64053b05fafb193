#include "engine/media/image_properties.h"

#include <cstdint>
#include <cstring>
#include <string>
#include <utility>

#include <vips/vips.h>

#include "engine/media/exif_metadata.h"
#include "engine/media/image_header.h"
#include "engine/media/media_libraries.h"
#include "engine/media/photo_file.h"
#include "engine/util/text.h"
#include "engine/util/utf8.h"

namespace lumivale {
namespace {

// ---- the HEIF decoder's copy of the EXIF block ----

// vips reads through this source, so the decoder too gets the file's bytes
// only from its PhotoFile, on its budget. Errors cannot cross the decoder's
// C frames: a spent budget reads as a failed read (-1).
struct DecoderSource {
  PhotoFile& file;
  std::int64_t position = 0;
};

gint64 readForDecoder(VipsSourceCustom*, void* buffer, gint64 length, void* user) {
  auto* source = static_cast<DecoderSource*>(user);
  try {
    const std::size_t got =
        source->file.read(source->position, buffer, std::size_t(std::max<gint64>(length, 0)));
    source->position += std::int64_t(got);
    return gint64(got);
  } catch (const std::exception&) {
    return -1;
  }
}

gint64 seekForDecoder(VipsSourceCustom*, gint64 offset, int whence, void* user) {
  auto* source = static_cast<DecoderSource*>(user);
  try {
    source->file.charge();
  } catch (const std::exception&) {
    return -1;
  }
  const std::int64_t base = whence == SEEK_SET   ? 0
                            : whence == SEEK_CUR ? source->position
                                                 : source->file.size();
  if (base + offset < 0) return -1;
  return source->position = base + offset;
}

// exiv2 misses the EXIF item of some HEIF layouts (item locations given
// relative to a base offset) that the HEIF decoder finds. Opening the
// decoder costs more than the rest of the header, so it is asked only then.
std::string heifDecoderExif(PhotoFile& file) {
  DecoderSource state{file};
  VipsSourceCustom* source = vips_source_custom_new();
  g_signal_connect(source, "read", G_CALLBACK(readForDecoder), &state);
  g_signal_connect(source, "seek", G_CALLBACK(seekForDecoder), &state);
  std::string block;
  // The loader is built directly: vips_image_new_from_source would keep the
  // load in vips' operation cache.
  if (VipsOperation* operation = vips_operation_new("heifload_source")) {
    VipsImage* image = nullptr;
    if (vips_object_set(VIPS_OBJECT(operation), "source", source, "access", VIPS_ACCESS_SEQUENTIAL,
                        nullptr) == 0 &&
        vips_object_build(VIPS_OBJECT(operation)) == 0) {
      g_object_get(operation, "out", &image, nullptr);
    }
    vips_object_unref_outputs(VIPS_OBJECT(operation));
    g_object_unref(operation);
    const void* exif = nullptr;
    std::size_t length = 0;
    if (image && vips_image_get_typeof(image, VIPS_META_EXIF_NAME) &&
        vips_image_get_blob(image, VIPS_META_EXIF_NAME, &exif, &length) == 0) {
      block.assign(static_cast<const char*>(exif), length);
    }
    if (image) g_object_unref(image);
  }
  g_object_unref(source);
  vips_error_clear();
  return block;
}

// The TIFF structure inside an EXIF block, which decoders hand out with
// differing prefixes ("Exif\0\0", a 4-byte offset, or none).
std::optional<std::size_t> tiffHeaderIn(const std::string& block) {
  for (std::size_t at = 0; at + 4 <= block.size() && at <= 16; ++at) {
    if (block.compare(at, 4, "II*\0", 4) == 0 || block.compare(at, 4, "MM\0*", 4) == 0) return at;
  }
  return std::nullopt;
}

// ---- text helpers ----

std::uint32_t be32(const unsigned char* p) {
  return std::uint32_t(p[0]) << 24 | std::uint32_t(p[1]) << 16 | std::uint32_t(p[2]) << 8 | p[3];
}
std::uint16_t be16(const unsigned char* p) { return std::uint16_t(p[0] << 8 | p[1]); }

std::string utf8FromUtf16BE(const unsigned char* p, std::size_t bytes) {
  std::string out;
  for (std::size_t i = 0; i + 1 < bytes; i += 2) {
    std::uint32_t c = be16(p + i);
    if (c >= 0xD800 && c < 0xDC00 && i + 3 < bytes) {
      std::uint32_t low = be16(p + i + 2);
      if (low >= 0xDC00 && low < 0xE000) {
        c = 0x10000 + ((c - 0xD800) << 10) + (low - 0xDC00);
        i += 2;
      }
    }
    if (c == 0) break;
    if (c >= 0xD800 && c < 0xE000) c = 0xFFFD;  // a lone surrogate
    appendUtf8(out, c);
  }
  return out;
}

}  // namespace

std::string iccProfileDescription(const unsigned char* data, std::size_t size) {
  const std::size_t headerSize = 128;
  if (!data || size < headerSize + 4 || std::memcmp(data + 36, "acsp", 4) != 0) return {};
  std::uint32_t count = be32(data + headerSize);
  if (count > (size - headerSize - 4) / 12) return {};
  for (std::uint32_t i = 0; i < count; ++i) {
    const unsigned char* entry = data + headerSize + 4 + 12 * i;
    if (std::memcmp(entry, "desc", 4) != 0) continue;
    std::uint64_t offset = be32(entry + 4), length = be32(entry + 8);
    if (offset + length > size || length < 12) return {};
    const unsigned char* tag = data + offset;
    if (std::memcmp(tag, "desc", 4) == 0) {
      std::uint64_t chars = std::min<std::uint64_t>(be32(tag + 8), length - 12);
      const char* text = reinterpret_cast<const char*>(tag + 12);
      return trimmed(utf8FromLegacyText(std::string(text, strnlen(text, chars))));
    }
    if (std::memcmp(tag, "mluc", 4) == 0 && length >= 16) {
      std::uint32_t records = be32(tag + 8), recordSize = be32(tag + 12);
      if (recordSize < 12 || records > (length - 16) / recordSize) return {};
      std::optional<std::string> first, english;
      for (std::uint32_t r = 0; r < records; ++r) {
        const unsigned char* record = tag + 16 + std::uint64_t(r) * recordSize;
        std::uint64_t textLength = be32(record + 4), textOffset = be32(record + 8);
        if (textOffset + textLength > length) continue;
        std::string text = trimmed(utf8FromUtf16BE(tag + textOffset, textLength));
        if (!first) first = text;
        if (!english && std::memcmp(record, "en", 2) == 0) english = text;
      }
      return english ? *english : first.value_or("");
    }
    return {};
  }
  return {};
}

std::optional<ImageProperties> readImageProperties(const std::filesystem::path& path) {
  initMediaLibraries();
  try {
    PhotoFile file(path);
    const auto header = readImageHeader(file);
    if (!header) return std::nullopt;
    ImageProperties p;
    p.pixelWidth = header->width;
    p.pixelHeight = header->height;
    if (header->depth > 0) p.depth = header->depth;
    std::string profile = header->iccProfile;
    if (header->format == ImageFormat::jpeg) {
      // The header walk already holds the metadata segments.
      ExifMetadata::readImageBlocks(header->exif, header->photoshop, p);
    } else {
      const auto facts = ExifMetadata::readImageFile(file, p);
      if (profile.empty()) profile = facts.iccProfile;
      if (header->format == ImageFormat::heif && !facts.hasExif) {
        const std::string block = heifDecoderExif(file);
        if (auto at = tiffHeaderIn(block))
          ExifMetadata::readImageBlocks(std::string_view(block).substr(*at), {}, p);
      }
    }
    // A HEIF image is turned by its own transforms, which decoders apply;
    // its EXIF orientation tag is not looked at.
    if (header->format == ImageFormat::heif) p.orientation = header->orientation;
    p.profileName =
        iccProfileDescription(reinterpret_cast<const unsigned char*>(profile.data()), profile.size());
    return p;
  } catch (const std::exception&) {
    // Not a regular file, unreadable, or a header that spent the read budget.
    return std::nullopt;
  }
}

}  // namespace lumivale
