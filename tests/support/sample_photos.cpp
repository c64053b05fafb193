#include "tests/support/sample_photos.h"

#include <algorithm>
#include <cmath>
#include <mutex>
#include <stdexcept>

#include <exiv2/exiv2.hpp>
#include <tiffio.h>
#include <vips/vips8>

// The HEVC encoder behind the HEIC saver keeps one allocation for the life
// of the process; LeakSanitizer builds should not report it as ours.
extern "C" const char* __lsan_default_suppressions() { return "leak:libx265\n"; }

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
  return exif;
}

}  // namespace

std::string jpegBytes(int width, int height) {
  initLibraries();
  void* buffer = nullptr;
  std::size_t length = 0;
  gradient(width, height, 8).write_to_buffer(".jpg", &buffer, &length, vips::VImage::option()->set("Q", 85));
  std::string bytes(static_cast<const char*>(buffer), length);
  g_free(buffer);
  return bytes;
}

void writePhoto(const std::filesystem::path& file, int width, int height, const SampleTags& tags,
                int bitsPerSample) {
  initLibraries();
  if (file.has_parent_path()) std::filesystem::create_directories(file.parent_path());
  std::string ext = lowerExtension(file);
  vips::VImage image = gradient(width, height, bitsPerSample > 8 ? 16 : 8);
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
  image.write_to_file(file.c_str(), vips::VImage::option()->set("strip", true));
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

std::vector<std::uint16_t> cfaSamples(const SampleDng& dng, const std::function<double(int, int, int)>& level) {
  std::vector<std::uint16_t> samples(std::size_t(dng.width) * dng.height);
  for (int y = 0; y < dng.height; ++y) {
    for (int x = 0; x < dng.width; ++x) {
      const int colour = (y & 1) == 0 ? ((x & 1) == 0 ? 0 : 1) : ((x & 1) == 0 ? 1 : 2);
      const double v = dng.blackLevel + level(x, y, colour) * (dng.whiteLevel - dng.blackLevel);
      samples[std::size_t(y) * dng.width + x] = std::uint16_t(std::lround(std::clamp(v, 0.0, 65535.0)));
    }
  }
  return samples;
}

std::vector<std::uint16_t> sceneGrey(const SampleDng& dng, double level) {
  return cfaSamples(dng, [&](int, int, int colour) { return level * dng.asShotNeutral.at(colour); });
}

void writeDng(const std::filesystem::path& file, const SampleDng& dng) {
  initLibraries();
  if (file.has_parent_path()) std::filesystem::create_directories(file.parent_path());
  TIFF* tif = TIFFOpen(file.c_str(), "wl");
  if (!tif) throw std::runtime_error("cannot write " + file.string());

  // The EXIF directory goes first, so IFD0 can point at it when written.
  TIFFCreateEXIFDirectory(tif);
  TIFFSetField(tif, EXIFTAG_EXPOSURETIME, double(dng.exposure.numerator) / dng.exposure.denominator);
  TIFFSetField(tif, EXIFTAG_FNUMBER, double(dng.fNumber.numerator) / dng.fNumber.denominator);
  uint16_t iso = static_cast<uint16_t>(dng.iso);
  TIFFSetField(tif, EXIFTAG_ISOSPEEDRATINGS, 1, &iso);
  TIFFSetField(tif, EXIFTAG_DATETIMEORIGINAL, dng.dateTimeOriginal.c_str());
  TIFFSetField(tif, EXIFTAG_FOCALLENGTH, double(dng.focal.numerator) / dng.focal.denominator);
  if (!dng.lens.empty()) TIFFSetField(tif, EXIFTAG_LENSMODEL, dng.lens.c_str());
  if (dng.subjectDistance) TIFFSetField(tif, EXIFTAG_SUBJECTDISTANCE, *dng.subjectDistance);
  uint64_t exifOffset = 0;
  TIFFWriteCustomDirectory(tif, &exifOffset);
  TIFFFreeDirectory(tif);
  TIFFCreateDirectory(tif);

  const bool withPreview = dng.previewWidth > 0 && dng.previewHeight > 0;
  auto writeCameraTags = [&] {
    TIFFSetField(tif, TIFFTAG_MAKE, dng.make.c_str());
    TIFFSetField(tif, TIFFTAG_MODEL, dng.model.c_str());
    TIFFSetField(tif, TIFFTAG_ORIENTATION, static_cast<uint16_t>(dng.orientation));
    TIFFSetField(tif, TIFFTAG_EXIFIFD, exifOffset);
    if (!dng.dngTags) return;
    static const uint8_t version[4] = {1, 4, 0, 0};
    TIFFSetField(tif, TIFFTAG_DNGVERSION, version);
    TIFFSetField(tif, TIFFTAG_UNIQUECAMERAMODEL, (dng.make + " " + dng.model).c_str());
    TIFFSetField(tif, TIFFTAG_COLORMATRIX1, 9, dng.colorMatrix.data());
    TIFFSetField(tif, TIFFTAG_CALIBRATIONILLUMINANT1, static_cast<uint16_t>(21));
    TIFFSetField(tif, TIFFTAG_ASSHOTNEUTRAL, 3, dng.asShotNeutral.data());
    if (dng.baselineExposure) TIFFSetField(tif, TIFFTAG_BASELINEEXPOSURE, *dng.baselineExposure);
  };
  // Integer tags, whatever their width: varargs pass them all as int.
  auto setAll = [&](std::initializer_list<std::pair<ttag_t, int>> tags) {
    for (auto [tag, value] : tags) TIFFSetField(tif, tag, value);
  };
  auto writeRaw = [&] {
    const auto [statedWidth, statedHeight] = dng.statedSize.value_or(std::pair(uint32_t(dng.width), uint32_t(dng.height)));
    const int channels = dng.linearRaw ? 3 : 1;
    setAll({{TIFFTAG_SUBFILETYPE, 0}, {TIFFTAG_IMAGEWIDTH, int(statedWidth)}, {TIFFTAG_IMAGELENGTH, int(statedHeight)}, {TIFFTAG_BITSPERSAMPLE, 16}, {TIFFTAG_SAMPLESPERPIXEL, channels},
            {TIFFTAG_COMPRESSION, COMPRESSION_NONE}, {TIFFTAG_PHOTOMETRIC, dng.linearRaw ? 34892 /* linear raw */ : 32803 /* colour filter array */}, {TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG}, {TIFFTAG_ROWSPERSTRIP, int(statedHeight)}});
    if (!dng.linearRaw) {
      static const uint16_t repeat[2] = {2, 2};
      static const uint8_t pattern[4] = {0, 1, 1, 2};  // RGGB
      TIFFSetField(tif, TIFFTAG_CFAREPEATPATTERNDIM, repeat);
      TIFFSetField(tif, TIFFTAG_CFAPATTERN, 4, pattern);
    }
    uint32_t white = static_cast<uint32_t>(dng.whiteLevel);
    if (dng.dngTags) TIFFSetField(tif, TIFFTAG_WHITELEVEL, 1, &white);
    float black = static_cast<float>(dng.blackLevel);
    if (dng.dngTags && dng.blackLevel != 0) TIFFSetField(tif, TIFFTAG_BLACKLEVEL, 1, &black);
    std::vector<uint16_t> pixels = dng.samples;
    if (pixels.size() != std::size_t(dng.width) * dng.height * channels) {
      pixels.resize(std::size_t(dng.width) * dng.height * channels);
      for (std::size_t i = 0; i < pixels.size(); ++i) {
        const std::size_t site = i / channels;
        pixels[i] = uint16_t(256 + 8 * (site % dng.width + site / dng.width));
      }
    }
    // Raw, so a stated size that differs from the samples is kept as it is.
    TIFFWriteRawStrip(tif, 0, pixels.data(), static_cast<tmsize_t>(pixels.size() * 2));
  };

  if (withPreview) {
    // IFD0 is the camera's JPEG preview; the raw image lives in a SubIFD.
    std::string jpeg = jpegBytes(dng.previewWidth, dng.previewHeight);
    writeCameraTags();
    setAll({{TIFFTAG_SUBFILETYPE, FILETYPE_REDUCEDIMAGE}, {TIFFTAG_IMAGEWIDTH, dng.previewWidth}, {TIFFTAG_IMAGELENGTH, dng.previewHeight}, {TIFFTAG_BITSPERSAMPLE, 8}, {TIFFTAG_SAMPLESPERPIXEL, 3},
            {TIFFTAG_COMPRESSION, COMPRESSION_JPEG}, {TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_YCBCR}, {TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG}, {TIFFTAG_ROWSPERSTRIP, dng.previewHeight}});
    uint64_t subIfd = 0;
    TIFFSetField(tif, TIFFTAG_SUBIFD, 1, &subIfd);
    TIFFWriteRawStrip(tif, 0, jpeg.data(), static_cast<tmsize_t>(jpeg.size()));
    TIFFWriteDirectory(tif);
    writeRaw();
    TIFFWriteDirectory(tif);
  } else {
    writeCameraTags();
    writeRaw();
    TIFFWriteDirectory(tif);
  }
  TIFFClose(tif);
}

}  // namespace lumivale::test
