#include "engine/media/output_metadata.h"

#include <cstdint>
#include <cstring>
#include <exiv2/exiv2.hpp>
#include <iterator>
#include <optional>

#include "engine/media/exif_metadata.h"
#include "engine/media/heif_metadata.h"
#include "engine/media/image_header.h"
#include "engine/media/media_libraries.h"
#include "engine/media/photo_file.h"

namespace lumivale {
namespace {

[[noreturn]] void fail(const std::string& reason) {
  throw MediaError("cannot write the metadata: " + reason);
}

std::optional<ImageFormat> formatOf(std::string_view file) {
  const auto starts = [&](std::string_view head, std::size_t at = 0) {
    return file.size() >= at + head.size() && file.substr(at, head.size()) == head;
  };
  if (starts("\xFF\xD8\xFF")) return ImageFormat::jpeg;
  if (starts("\x89PNG\r\n\x1A\n")) return ImageFormat::png;
  if (starts(std::string_view("II*\0", 4)) || starts(std::string_view("MM\0*", 4))) return ImageFormat::tiff;
  if (starts("ftyp", 4)) return ImageFormat::heif;
  return std::nullopt;
}

// The IFD0 entries a TIFF file needs to be read: how its pixels are stored.
// Everything else in a TIFF's IFD0 is metadata and is replaced.
bool isTiffStructure(std::uint16_t tag) {
  constexpr std::uint16_t structure[] = {
      0x00fe, 0x0100, 0x0101, 0x0102, 0x0103, 0x0106, 0x0111, 0x0115, 0x0116, 0x0117, 0x0118,
      0x0119, 0x011a, 0x011b, 0x011c, 0x0128, 0x013d, 0x0140, 0x0142, 0x0143, 0x0144, 0x0145,
      0x0152, 0x0153, 0x0154, 0x0155, 0x015b, 0x0211, 0x0212, 0x0213, 0x0214, 0x8773,
  };
  return std::find(std::begin(structure), std::end(structure), tag) != std::end(structure);
}

Exiv2::ExifData exifOf(const OutputMetadata& metadata) {
  Exiv2::ExifData exif;
  const std::string& carried = metadata.carried.exif;
  if (!carried.empty()) {
    Exiv2::ExifParser::decode(exif, reinterpret_cast<const Exiv2::byte*>(carried.data()),
                              std::uint32_t(carried.size()));
  }
  exif["Exif.Image.Orientation"] = std::uint16_t(1);
  if (!metadata.software.empty()) exif["Exif.Image.Software"] = metadata.software;
  if (!metadata.copyright.empty()) exif["Exif.Image.Copyright"] = metadata.copyright;
  return exif;
}

void eraseAll(Exiv2::IptcData& iptc, const char* key) {
  const Exiv2::IptcKey wanted(key);
  for (auto it = iptc.begin(); it != iptc.end();) {
    it = it->record() == wanted.record() && it->tag() == wanted.tag() ? iptc.erase(it) : std::next(it);
  }
}

Exiv2::IptcData iptcOf(const OutputMetadata& metadata) {
  Exiv2::IptcData iptc;
  const std::string& carried = metadata.carried.iptc;
  if (!carried.empty() &&
      Exiv2::IptcParser::decode(iptc, reinterpret_cast<const Exiv2::byte*>(carried.data()),
                                std::uint32_t(carried.size())) != 0) {
    iptc.clear();
  }
  if (!metadata.copyright.empty()) {
    eraseAll(iptc, "Iptc.Application2.Copyright");
    iptc["Iptc.Application2.Copyright"] = metadata.copyright;
  }
  bool anyKeyword = false;
  for (const std::string& keyword : metadata.keywords) anyKeyword = anyKeyword || !keyword.empty();
  if (anyKeyword) {
    eraseAll(iptc, "Iptc.Application2.Keywords");
    for (const std::string& keyword : metadata.keywords) {
      if (keyword.empty()) continue;
      Exiv2::StringValue value(keyword);
      iptc.add(Exiv2::IptcKey("Iptc.Application2.Keywords"), &value);
    }
  }
  if (!iptc.empty()) iptc["Iptc.Envelope.CharacterSet"] = "\x1b%G";  // UTF-8
  return iptc;
}

std::string heifWithMetadata(const std::string& encoded, const OutputMetadata& metadata) {
  Exiv2::Blob exif;
  Exiv2::ExifParser::encode(exif, Exiv2::littleEndian, exifOf(metadata));
  Exiv2::XmpData xmp;
  Exiv2::copyIptcToXmp(iptcOf(metadata), xmp);
  std::string packet;
  if (!xmp.empty() && Exiv2::XmpParser::encode(packet, xmp) != 0) fail("the XMP packet cannot be made");
  return replaceHeifMetadata(
      encoded, std::string_view(reinterpret_cast<const char*>(exif.data()), exif.size()), packet);
}

std::string rewrittenByExiv2(const std::string& encoded, ImageFormat format, const OutputMetadata& metadata) {
  auto image =
      Exiv2::ImageFactory::open(reinterpret_cast<const Exiv2::byte*>(encoded.data()), long(encoded.size()));
  if (image.get() == nullptr) fail("exiv2 does not know the file");
  // Reading first keeps the ICC profile and, for TIFF, the pixel layout.
  image->readMetadata();
  const Exiv2::ExifData exif = exifOf(metadata);
  if (format == ImageFormat::tiff) {
    Exiv2::ExifData& own = image->exifData();
    for (auto it = own.begin(); it != own.end();) {
      const bool keep = it->groupName() == "Image" && isTiffStructure(it->tag());
      it = keep ? std::next(it) : own.erase(it);
    }
    for (const Exiv2::Exifdatum& d : exif) own[d.key()] = d.value();
  } else {
    image->setExifData(exif);
  }
  image->setIptcData(iptcOf(metadata));
  // A fresh record, not a cleared one: a cleared one still holds the packet
  // it was read from, and exiv2 writes that back into a TIFF.
  image->setXmpData(Exiv2::XmpData());
  image->clearComment();
  image->writeMetadata();

  Exiv2::BasicIo& io = image->io();
  if (io.open() != 0) fail("exiv2 cannot read back what it wrote");
  std::string out(io.size(), '\0');
  const long got = io.read(reinterpret_cast<Exiv2::byte*>(out.data()), long(out.size()));
  io.close();
  if (got != long(out.size())) fail("exiv2 cannot read back what it wrote");
  return out;
}

}  // namespace

CarriedMetadata readCarriedMetadata(const std::filesystem::path& photo) {
  try {
    PhotoFile file(photo);
    return ExifMetadata::readCarried(file);
  } catch (const std::exception&) {
    return {};
  }
}

std::string withOutputMetadata(std::string encoded, const OutputMetadata& metadata) {
  initMediaLibraries();
  const auto format = formatOf(encoded);
  if (!format) fail("the file is none of JPEG, TIFF, PNG or HEIF");
  try {
    if (*format == ImageFormat::heif) return heifWithMetadata(encoded, metadata);
    return rewrittenByExiv2(encoded, *format, metadata);
  } catch (const MediaError&) {
    throw;
  } catch (const std::exception& e) {
    fail(e.what());
  }
}

}  // namespace lumivale
