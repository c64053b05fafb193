#include "engine/media/image_properties.h"

#include <cstdint>
#include <cstring>
#include <string>
#include <utility>

#include <exiv2/exiv2.hpp>
#include <vips/vips.h>

#include "engine/media/media_libraries.h"
#include "engine/media/photo_formats.h"
#include "engine/util/text.h"
#include "engine/util/utf8.h"

namespace lumivale {
namespace {

// ---- decoder header (libvips) ----

struct DecoderHeader {
  int width = 0;
  int height = 0;
  int orientation = 1;
  int depth = 0;
  std::string profileName;
  std::string exifBlock;  // the EXIF block as the decoder found it
};

int bitsOf(VipsBandFormat format) {
  switch (format) {
    case VIPS_FORMAT_UCHAR:
    case VIPS_FORMAT_CHAR: return 8;
    case VIPS_FORMAT_USHORT:
    case VIPS_FORMAT_SHORT: return 16;
    case VIPS_FORMAT_UINT:
    case VIPS_FORMAT_INT:
    case VIPS_FORMAT_FLOAT:
    case VIPS_FORMAT_COMPLEX: return 32;
    case VIPS_FORMAT_DOUBLE:
    case VIPS_FORMAT_DPCOMPLEX: return 64;
    default: return 0;
  }
}

// Builds the loader operation directly instead of going through
// vips_image_new_from_file: that path keeps recent loads in vips' operation
// cache, which would hold files open during a large import and hand back a
// stale header for a file that changed since.
// The loader for a file's content: first the one its extension promises,
// then the other formats of ours, each recognised by the file's first bytes.
// vips_foreign_find_load is never used: it asks every loader vips has, and
// some of them (ImageMagick's) start up a whole library to answer, read
// text and document files as images, and are not safe on many threads.
const char* loaderFor(const std::filesystem::path& file) {
  static constexpr std::pair<const char*, const char*> loaders[] = {
      {"jpg", "jpegload"}, {"jpeg", "jpegload"}, {"png", "pngload"},
      {"tif", "tiffload"}, {"tiff", "tiffload"}, {"heic", "heifload"}, {"heif", "heifload"}};
  const std::string ext = PhotoFormats::extension(file);
  for (const auto& [extension, loader] : loaders) {
    if (ext == extension && vips_foreign_is_a(loader, file.c_str())) return loader;
  }
  for (const char* loader : {"jpegload", "pngload", "tiffload", "heifload"}) {
    if (vips_foreign_is_a(loader, file.c_str())) return loader;
  }
  vips_error_clear();
  return nullptr;
}

std::optional<DecoderHeader> readDecoderHeader(const std::filesystem::path& file) {
  const char* loader = loaderFor(file);
  if (!loader) {
    vips_error_clear();
    return std::nullopt;
  }
  VipsOperation* operation = vips_operation_new(loader);
  if (!operation) {
    vips_error_clear();
    return std::nullopt;
  }
  VipsImage* image = nullptr;
  if (vips_object_set(VIPS_OBJECT(operation), "filename", file.c_str(), "access", VIPS_ACCESS_SEQUENTIAL,
                      nullptr) == 0 &&
      vips_object_build(VIPS_OBJECT(operation)) == 0) {
    g_object_get(operation, "out", &image, nullptr);
  }
  vips_object_unref_outputs(VIPS_OBJECT(operation));
  g_object_unref(operation);
  if (!image) {
    vips_error_clear();
    return std::nullopt;
  }

  DecoderHeader header;
  header.width = vips_image_get_width(image);
  header.height = vips_image_get_height(image);
  header.orientation = vips_image_get_orientation(image);
  if (header.orientation < 1 || header.orientation > 8) header.orientation = 1;
  // The depth the file was coded with, not the one it decodes to: a 10-bit
  // HEIF decodes into 16-bit samples.
  int bits = 0;
  auto storedBits = [&](const char* field) {
    return vips_image_get_typeof(image, field) && vips_image_get_int(image, field, &bits) == 0 && bits > 0;
  };
  if (storedBits("heif-bitdepth") || storedBits("bits-per-sample")) {
    header.depth = bits;
  } else {
    header.depth = bitsOf(vips_image_get_format(image));
  }
  const void* icc = nullptr;
  std::size_t iccLength = 0;
  if (vips_image_get_typeof(image, VIPS_META_ICC_NAME) &&
      vips_image_get_blob(image, VIPS_META_ICC_NAME, &icc, &iccLength) == 0) {
    header.profileName = iccProfileDescription(static_cast<const unsigned char*>(icc), iccLength);
  }
  const void* exif = nullptr;
  std::size_t exifLength = 0;
  if (vips_image_get_typeof(image, VIPS_META_EXIF_NAME) &&
      vips_image_get_blob(image, VIPS_META_EXIF_NAME, &exif, &exifLength) == 0) {
    header.exifBlock.assign(static_cast<const char*>(exif), exifLength);
  }
  g_object_unref(image);
  vips_error_clear();
  return header;
}

// ---- embedded metadata (exiv2) ----

const Exiv2::Exifdatum* find(const Exiv2::ExifData& exif, const char* key) {
  auto it = exif.findKey(Exiv2::ExifKey(key));
  if (it == exif.end() || it->count() == 0) return nullptr;
  return &*it;
}

std::optional<std::string> textOf(const Exiv2::ExifData& exif, const char* key) {
  const Exiv2::Exifdatum* d = find(exif, key);
  if (!d) return std::nullopt;
  Exiv2::TypeId type = d->typeId();
  if (type != Exiv2::asciiString && type != Exiv2::string) return std::nullopt;
  return trimmed(d->toString());
}

// Component n of a numeric value as a double; absent for texts, undefined
// bytes and rationals with a zero denominator.
std::optional<double> numberOf(const Exiv2::Exifdatum& d, long n) {
  if (n >= d.count()) return std::nullopt;
  const Exiv2::Value& v = d.value();
  switch (v.typeId()) {
    case Exiv2::unsignedRational: {
      auto r = static_cast<const Exiv2::URationalValue&>(v).value_.at(n);
      if (r.second == 0) return std::nullopt;
      return double(r.first) / double(r.second);
    }
    case Exiv2::signedRational: {
      auto r = static_cast<const Exiv2::RationalValue&>(v).value_.at(n);
      if (r.second == 0) return std::nullopt;
      return double(r.first) / double(r.second);
    }
    case Exiv2::unsignedByte:
    case Exiv2::unsignedShort:
    case Exiv2::unsignedLong:
    case Exiv2::signedByte:
    case Exiv2::signedShort:
    case Exiv2::signedLong:
      return double(v.toLong(n));
    case Exiv2::tiffFloat:
    case Exiv2::tiffDouble:
      return double(v.toFloat(n));
    default:
      return std::nullopt;
  }
}

std::optional<double> numberOf(const Exiv2::ExifData& exif, const char* key) {
  const Exiv2::Exifdatum* d = find(exif, key);
  return d ? numberOf(*d, 0) : std::nullopt;
}

std::optional<long> integerOf(const Exiv2::ExifData& exif, const char* key) {
  const Exiv2::Exifdatum* d = find(exif, key);
  if (!d) return std::nullopt;
  Exiv2::TypeId type = d->typeId();
  if (type == Exiv2::unsignedRational || type == Exiv2::signedRational || type == Exiv2::tiffFloat ||
      type == Exiv2::tiffDouble) {
    return std::nullopt;
  }
  auto n = numberOf(*d, 0);
  if (!n) return std::nullopt;
  return static_cast<long>(*n);
}

// Degrees, minutes and seconds (each a rational; cameras often give fewer
// parts with the fraction in the last) as decimal degrees.
std::optional<double> degreesOf(const Exiv2::ExifData& exif, const char* key) {
  const Exiv2::Exifdatum* d = find(exif, key);
  if (!d) return std::nullopt;
  double degrees = 0;
  double unit = 1;
  for (long i = 0; i < std::min<long>(d->count(), 3); ++i) {
    auto part = numberOf(*d, i);
    if (!part) return std::nullopt;
    degrees += *part / unit;
    unit *= 60;
  }
  return degrees < 0 ? -degrees : degrees;
}

// The TIFF structure inside an EXIF block, which decoders hand out with
// differing prefixes ("Exif\0\0", a 4-byte offset, or none).
std::optional<std::size_t> tiffHeaderIn(const std::string& block) {
  for (std::size_t at = 0; at + 4 <= block.size() && at <= 16; ++at) {
    if (block.compare(at, 4, "II*\0", 4) == 0 || block.compare(at, 4, "MM\0*", 4) == 0) return at;
  }
  return std::nullopt;
}

void readEmbedded(const std::filesystem::path& file, const std::string& decoderExif, ImageProperties& p) {
  auto image = Exiv2::ImageFactory::open(file.string());
  if (image.get() == nullptr) return;
  image->readMetadata();

  // exiv2 misses the EXIF item of some HEIF layouts (item locations given
  // relative to a base offset) that the HEIF decoder finds; use its copy then.
  Exiv2::ExifData decoded;
  if (image->exifData().empty() && !decoderExif.empty()) {
    if (auto at = tiffHeaderIn(decoderExif)) {
      Exiv2::ExifParser::decode(decoded, reinterpret_cast<const Exiv2::byte*>(decoderExif.data()) + *at,
                                static_cast<std::uint32_t>(decoderExif.size() - *at));
    }
  }
  const Exiv2::ExifData& exif = decoded.empty() ? image->exifData() : decoded;
  p.make = textOf(exif, "Exif.Image.Make");
  p.model = textOf(exif, "Exif.Image.Model");
  p.dateTime = textOf(exif, "Exif.Image.DateTime");
  p.copyright = textOf(exif, "Exif.Image.Copyright");
  p.artist = textOf(exif, "Exif.Image.Artist");
  p.software = textOf(exif, "Exif.Image.Software");
  p.lensModel = textOf(exif, "Exif.Photo.LensModel");
  p.dateTimeOriginal = textOf(exif, "Exif.Photo.DateTimeOriginal");
  p.exposureTime = numberOf(exif, "Exif.Photo.ExposureTime");
  p.fNumber = numberOf(exif, "Exif.Photo.FNumber");
  p.focalLength = numberOf(exif, "Exif.Photo.FocalLength");
  p.focalLength35 = numberOf(exif, "Exif.Photo.FocalLengthIn35mmFilm");
  p.exposureBias = numberOf(exif, "Exif.Photo.ExposureBiasValue");
  p.iso = integerOf(exif, "Exif.Photo.ISOSpeedRatings");
  p.flash = integerOf(exif, "Exif.Photo.Flash");
  p.whiteBalance = integerOf(exif, "Exif.Photo.WhiteBalance");
  p.meteringMode = integerOf(exif, "Exif.Photo.MeteringMode");
  p.latitude = degreesOf(exif, "Exif.GPSInfo.GPSLatitude");
  p.longitude = degreesOf(exif, "Exif.GPSInfo.GPSLongitude");
  p.latitudeRef = textOf(exif, "Exif.GPSInfo.GPSLatitudeRef");
  p.longitudeRef = textOf(exif, "Exif.GPSInfo.GPSLongitudeRef");

  for (const Exiv2::Iptcdatum& d : image->iptcData()) {
    if (d.key() == "Iptc.Application2.Keywords") p.keywords.push_back(utf8FromLegacyText(d.toString()));
  }
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

std::optional<ImageProperties> readImageProperties(const std::filesystem::path& file) {
  initMediaLibraries();
  auto header = readDecoderHeader(file);
  if (!header) return std::nullopt;
  ImageProperties p;
  p.pixelWidth = header->width;
  p.pixelHeight = header->height;
  p.orientation = header->orientation;
  if (header->depth > 0) p.depth = header->depth;
  p.profileName = header->profileName;
  try {
    readEmbedded(file, header->exifBlock, p);
  } catch (const std::exception&) {
    // The decoder read the file; damaged or foreign metadata only means the
    // facts it would have given are unknown.
  }
  return p;
}

}  // namespace lumivale
