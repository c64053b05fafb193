#include "tests/support/sample_photos.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <mutex>
#include <stdexcept>

#include <exiv2/exiv2.hpp>
#include <vips/vips8>

// The HEVC encoder behind the HEIC saver keeps one allocation for the life
// of the process, and fontconfig (under the watermark's text layout) its
// font patterns, once however much text is laid out; LeakSanitizer builds
// should not report them as ours.
extern "C" const char* __lsan_default_suppressions() { return "leak:libx265\nleak:libfontconfig\n"; }

namespace lumivale::test {
namespace {

void initLibraries() {
  static std::once_flag once;
  std::call_once(once, [] {
    if (VIPS_INIT("lumivale-tests")) throw std::runtime_error("cannot start libvips");
    Exiv2::LogMsg::setLevel(Exiv2::LogMsg::mute);
    Exiv2::XmpParser::initialize();
    Exiv2::enableBMFF(true);
  });
}

std::string lowerExtension(const std::filesystem::path& file) {
  std::string ext = file.extension().string();
  for (char& c : ext) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return ext;
}

// A smooth gradient, so the encoders have real content to compress.
vips::VImage gradient(int width, int height, int bits) {
  vips::VImage x = vips::VImage::xyz(width, height);
  vips::VImage r = x[0] * (255.0 / std::max(1, width - 1));
  vips::VImage g = x[1] * (255.0 / std::max(1, height - 1));
  vips::VImage b = (r + g) / 2;
  vips::VImage rgb = r.bandjoin(g).bandjoin(b);
  if (bits == 16) {
    return (rgb * 257).cast(VIPS_FORMAT_USHORT).copy(vips::VImage::option()->set("interpretation", VIPS_INTERPRETATION_RGB16));
  }
  return rgb.cast(VIPS_FORMAT_UCHAR).copy(vips::VImage::option()->set("interpretation", VIPS_INTERPRETATION_sRGB));
}

Exiv2::URational urational(const Rational& r) { return {static_cast<uint32_t>(r.numerator), static_cast<uint32_t>(r.denominator)}; }

Exiv2::ExifData exifOf(const SampleTags& t) {
  Exiv2::ExifData exif;
  for (const auto& [key, text] : {std::pair("Image.Make", &t.make), {"Image.Model", &t.model}, {"Image.DateTime", &t.dateTime}, {"Image.Copyright", &t.copyright}, {"Image.Artist", &t.artist}, {"Image.Software", &t.software},
                                  {"Photo.LensModel", &t.lens}, {"Photo.DateTimeOriginal", &t.dateTimeOriginal}, {"GPSInfo.GPSLatitudeRef", &t.latitudeRef}, {"GPSInfo.GPSLongitudeRef", &t.longitudeRef}})
    if (*text) exif[std::string("Exif.") + key] = **text;
  for (const auto& [key, number] : {std::pair("Image.Orientation", &t.orientation), {"Photo.ISOSpeedRatings", &t.iso}, {"Photo.FocalLengthIn35mmFilm", &t.focal35}, {"Photo.Flash", &t.flash}, {"Photo.WhiteBalance", &t.whiteBalance}, {"Photo.MeteringMode", &t.metering}})
    if (*number) exif[std::string("Exif.") + key] = static_cast<uint16_t>(**number);
  for (const auto& [key, r] : {std::pair("Photo.ExposureTime", &t.exposure), {"Photo.FNumber", &t.fNumber}, {"Photo.FocalLength", &t.focal}})
    if (*r) exif[std::string("Exif.") + key] = urational(**r);
  if (t.exposureBias) exif["Exif.Photo.ExposureBiasValue"] = Exiv2::Rational(t.exposureBias->numerator, t.exposureBias->denominator);
  // Degrees, minutes and seconds: one value of three rationals.
  for (const auto& [key, text] : {std::pair("Exif.GPSInfo.GPSLatitude", &t.latitude), {"Exif.GPSInfo.GPSLongitude", &t.longitude}}) {
    if (!*text) continue;
    Exiv2::URationalValue value;
    value.read(**text);
    exif.add(Exiv2::ExifKey(key), &value);
  }
  if (t.thumbnail) {
    const std::string jpeg = jpegBytes(t.thumbnail->first, t.thumbnail->second);
    Exiv2::ExifThumb(exif).setJpegThumbnail(reinterpret_cast<const Exiv2::byte*>(jpeg.data()),
                                            long(jpeg.size()));
  }
  return exif;
}

// Byte writers for the containers built by hand below.
void putLittle(std::string& out, std::uint64_t value, int bytes) {
  for (int i = 0; i < bytes; ++i) out += static_cast<char>(value >> (8 * i));
}
void putBig(std::string& out, std::uint64_t value, int bytes) {
  for (int i = bytes - 1; i >= 0; --i) out += static_cast<char>(value >> (8 * i));
}

// A CIFF heap: the records' data, then their directory, then its offset.
std::string ciffHeap(const std::vector<std::pair<std::uint16_t, std::string>>& records) {
  std::string data, directory;
  putLittle(directory, records.size(), 2);
  for (const auto& [tag, bytes] : records) {
    putLittle(directory, tag, 2);
    putLittle(directory, bytes.size(), 4);
    putLittle(directory, data.size(), 4);
    data += bytes;
  }
  std::string heap = data + directory;
  putLittle(heap, data.size(), 4);
  return heap;
}

// An ISO base media box, and one with a version and flags.
std::string box(const char* type, const std::string& body) {
  std::string out;
  putBig(out, 8 + body.size(), 4);
  return out + type + body;
}
std::string fullBox(const char* type, const std::string& body) {
  return box(type, std::string(4, '\0') + body);
}

// A little-endian TIFF structure with one directory of (tag, type, count,
// value bytes) entries in ascending tag order; values longer than four
// bytes follow the directory.
struct TiffEntry {
  std::uint16_t tag, type;
  std::uint32_t count;
  std::string value;
};
std::string tiffBytes(const std::vector<TiffEntry>& entries) {
  std::string out = "II*";
  out += '\0';
  putLittle(out, 8, 4);
  std::string values;
  const std::size_t valuesAt = 8 + 2 + 12 * entries.size() + 4;
  putLittle(out, entries.size(), 2);
  for (const TiffEntry& e : entries) {
    putLittle(out, e.tag, 2);
    putLittle(out, e.type, 2);
    putLittle(out, e.count, 4);
    if (e.value.size() <= 4) {
      out += e.value + std::string(4 - e.value.size(), '\0');
    } else {
      putLittle(out, valuesAt + values.size(), 4);
      values += e.value;
    }
  }
  putLittle(out, 0, 4);  // no next directory
  return out + values;
}
TiffEntry asciiEntry(std::uint16_t tag, const std::string& text) {
  return {tag, 2, std::uint32_t(text.size() + 1), text + '\0'};
}
TiffEntry numberEntry(std::uint16_t tag, std::uint16_t type, std::uint32_t value) {
  std::string bytes;
  putLittle(bytes, value, type == 3 ? 2 : 4);
  return {tag, type, 1, bytes};
}
TiffEntry rationalEntry(std::uint16_t tag, const Rational& r) {
  std::string bytes;
  putLittle(bytes, std::uint32_t(r.numerator), 4);
  putLittle(bytes, std::uint32_t(r.denominator), 4);
  return {tag, 5, 1, bytes};
}

}  // namespace

std::filesystem::path realPhoto(const std::string& name) {
  return std::filesystem::path(LUMIVALE_TEST_DATA) / "photos" / name;
}

std::optional<std::filesystem::path> sharedPhoto(const std::string& relativePath) {
  std::filesystem::path file = std::filesystem::path(LUMIVALE_SHARED_TEST_DATA) / "photos" / relativePath;
  if (!std::filesystem::is_regular_file(file)) return std::nullopt;
  return file;
}

std::string jpegBytes(int width, int height) {
  initLibraries();
  void* buffer = nullptr;
  std::size_t length = 0;
  gradient(width, height, 8).write_to_buffer(".jpg", &buffer, &length, vips::VImage::option()->set("Q", 85));
  std::string bytes(static_cast<const char*>(buffer), length);
  g_free(buffer);
  return bytes;
}

std::string encodedPicture(const std::string& ext, int width, int height, int bits, const std::string& leftover) {
  initLibraries();
  vips::VImage image = gradient(width, height, bits).copy();
  VipsBlob* profile = vips::VImage::profile_load("sRGB");
  std::size_t length = 0;
  const void* icc = vips_area_get_data(reinterpret_cast<VipsArea*>(profile), &length, nullptr, nullptr, nullptr);
  vips_image_set_blob_copy(image.get_image(), VIPS_META_ICC_NAME, icc, length);
  vips_area_unref(reinterpret_cast<VipsArea*>(profile));
  if (!leftover.empty()) {
    Exiv2::ExifData exif;
    exif["Exif.Image.ImageDescription"] = leftover;
    Exiv2::Blob blob;
    Exiv2::ExifParser::encode(blob, Exiv2::littleEndian, exif);
    std::string block("Exif\0\0", 6);
    block.append(reinterpret_cast<const char*>(blob.data()), blob.size());
    vips_image_set_blob_copy(image.get_image(), VIPS_META_EXIF_NAME, block.data(), block.size());
    const std::string xmp = "<x:xmpmeta xmlns:x='adobe:ns:meta/'><rdf:RDF "
                            "xmlns:rdf='http://www.w3.org/1999/02/22-rdf-syntax-ns#'><rdf:Description "
                            "xmlns:dc='http://purl.org/dc/elements/1.1/' dc:format='" +
                            leftover + "'/></rdf:RDF></x:xmpmeta>";
    vips_image_set_blob_copy(image.get_image(), VIPS_META_XMP_NAME, xmp.data(), xmp.size());
  }
  auto options = vips::VImage::option();
  if (ext == "heic") options->set("compression", VIPS_FOREIGN_HEIF_COMPRESSION_HEVC)->set("Q", 50);
  void* buffer = nullptr;
  std::size_t size = 0;
  image.write_to_buffer(("." + ext).c_str(), &buffer, &size, options);
  std::string bytes(static_cast<const char*>(buffer), size);
  g_free(buffer);
  return bytes;
}

void writePhoto(const std::filesystem::path& file, int width, int height, const SampleTags& tags,
                int bitsPerSample) {
  initLibraries();
  if (file.has_parent_path()) std::filesystem::create_directories(file.parent_path());
  std::string ext = lowerExtension(file);
  vips::VImage image = gradient(width, height, bitsPerSample > 8 ? 16 : 8);
  const bool fewBits = bitsPerSample < 8;
  if (fewBits) image = image[0];  // grey, the only layout kept at 1, 2 or 4 bits
  Exiv2::ExifData exif = exifOf(tags);

  if (ext == ".heic" || ext == ".heif") {
    // exiv2 cannot write HEIF; the saver embeds an EXIF block instead.
    image = image.copy();
    if (!exif.empty()) {
      Exiv2::Blob blob;
      Exiv2::ExifParser::encode(blob, Exiv2::littleEndian, exif);
      std::string block("Exif\0\0", 6);
      block.append(reinterpret_cast<const char*>(blob.data()), blob.size());
      // The saver reads the block from its worker threads: vips gets its own copy.
      vips_image_set_blob_copy(image.get_image(), VIPS_META_EXIF_NAME, block.data(), block.size());
    }
    image.heifsave(file.c_str(), vips::VImage::option()
                                     ->set("Q", 50)
                                     ->set("compression", VIPS_FOREIGN_HEIF_COMPRESSION_HEVC)
                                     ->set("bitdepth", bitsPerSample > 8 ? bitsPerSample : 8));
    return;
  }
  // Saved without vips' own metadata, so what the file carries is only what
  // exiv2 writes next.
  auto options = vips::VImage::option()->set("strip", true);
  if (fewBits) options->set("bitdepth", bitsPerSample);
  image.write_to_file(file.c_str(), options);
  if (exif.empty() && tags.keywords.empty()) return;
  auto written = Exiv2::ImageFactory::open(file.string());
  written->readMetadata();
  written->setExifData(exif);
  if (!tags.keywords.empty()) {
    Exiv2::IptcData iptc;
    for (const std::string& keyword : tags.keywords) {
      Exiv2::StringValue value(keyword);
      iptc.add(Exiv2::IptcKey("Iptc.Application2.Keywords"), &value);
    }
    written->setIptcData(iptc);
  }
  written->writeMetadata();
}


void writeCrw(const std::filesystem::path& file, const SampleCrw& crw) {
  if (file.has_parent_path()) std::filesystem::create_directories(file.parent_path());
  // CaptureTime: the clock, a zone code and zone information, unused here.
  std::string capture;
  putLittle(capture, crw.captureClock, 4);
  putLittle(capture, 0, 8);
  // ImageInfo: width, height, pixel aspect ratio (float 1.0), rotation,
  // component and colour bit depths, colour or not.
  std::string info;
  for (std::uint32_t v : {std::uint32_t(crw.width), std::uint32_t(crw.height), 0x3F800000u, 0u, 8u, 24u, 1u})
    putLittle(info, v, 4);
  const std::string makeModel = crw.make + '\0' + crw.model + '\0';
  const std::string raw(std::size_t(crw.width) * crw.height * 10 / 8, '\x40');
  // Records by their CIFF tags: 0x300a image properties, 0x300b EXIF
  // information, 0x2807 the camera object, 0x2005 the raw data.
  const std::string root =
      ciffHeap({{0x300a, ciffHeap({{0x180e, capture},
                                   {0x1810, info},
                                   {0x300b, ciffHeap({{0x2807, ciffHeap({{0x080a, makeModel}})}})}})},
                {0x2005, raw}});
  std::string bytes = "II";
  putLittle(bytes, 26, 4);  // header length
  bytes += "HEAPCCDR";
  putLittle(bytes, 0x00010002, 4);
  bytes += std::string(8, '\0');
  bytes += root;
  std::ofstream(file, std::ios::binary).write(bytes.data(), std::streamsize(bytes.size()));
}

std::string cr3Bytes(const SampleDng& cr3) {
  const std::string camera = tiffBytes(
      {asciiEntry(0x010f, cr3.make), asciiEntry(0x0110, cr3.model), numberEntry(0x0112, 3, cr3.orientation)});
  const std::string exif =
      tiffBytes({rationalEntry(0x829a, cr3.exposure), rationalEntry(0x829d, cr3.fNumber),
                 numberEntry(0x8827, 3, std::uint32_t(cr3.iso)), asciiEntry(0x9003, cr3.dateTimeOriginal),
                 rationalEntry(0x920a, cr3.focal), numberEntry(0xa002, 4, cr3.exifWidth),
                 numberEntry(0xa003, 4, cr3.exifHeight), asciiEntry(0xa434, cr3.lens)});
  static const unsigned char canonBox[16] = {0x85, 0xc0, 0xb6, 0x87, 0x82, 0x0f, 0x11, 0xe0,
                                             0x81, 0x11, 0xf4, 0xce, 0x46, 0x2b, 0x6a, 0x48};
  const std::string canon = std::string(reinterpret_cast<const char*>(canonBox), 16) +
                            box("CNCV", "CanonCR3_001/00.09.00/00.00.00") + box("CMT1", camera) +
                            box("CMT2", exif);
  std::string brands = "crx ";
  putBig(brands, 1, 4);
  brands += "crx isom";
  return box("ftyp", brands) + box("moov", box("uuid", canon));
}

std::string heifHeaderBytes(const SampleHeif& heif) {
  std::string extent, pixels(1, '\3'), properties, associations;
  putBig(extent, heif.width, 4);
  putBig(extent, heif.height, 4);
  pixels += std::string(3, static_cast<char>(heif.depth));
  properties = fullBox("ispe", extent) + fullBox("pixi", pixels);
  for (const auto& [kind, value] : heif.transforms)
    properties += box(kind == 'r' ? "irot" : "imir", std::string(1, static_cast<char>(value)));
  // Item 1 has every property, in order; transforms are essential.
  const std::size_t count = 2 + heif.transforms.size();
  putBig(associations, 1, 4);
  putBig(associations, 1, 2);
  associations += static_cast<char>(count);
  for (std::size_t i = 1; i <= count; ++i) associations += static_cast<char>(i > 2 ? 0x80 | i : i);
  std::string handler(4, '\0');
  handler += "pict" + std::string(13, '\0');
  std::string primary;
  putBig(primary, 1, 2);
  const std::string meta =
      fullBox("meta", fullBox("hdlr", handler) + fullBox("pitm", primary) +
                          box("iprp", box("ipco", properties) + fullBox("ipma", associations)));
  return box("ftyp", std::string("heic") + std::string(4, '\0') + "mif1heic") + meta;
}

}  // namespace lumivale::test
