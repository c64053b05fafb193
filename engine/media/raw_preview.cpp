#include "engine/media/raw_preview.h"

#include <algorithm>
#include <charconv>
#include <ctime>
#include <memory>
#include <tuple>

#include <exiv2/exiv2.hpp>
#include <libraw/libraw.h>

#include "engine/media/media_libraries.h"
#include "engine/util/text.h"

namespace lumivale {
namespace {

// LibRaw keeps the thumbnail's writer and offset to itself; a subclass may
// look at them, which is all we need to describe the thumbnail without
// unpacking it.
class RawReader : public LibRaw {
 public:
  RawReader() : LibRaw(LIBRAW_OPIONS_NO_DATAERR_CALLBACK | LIBRAW_OPIONS_NO_MEMERR_CALLBACK) {}

  EmbeddedPreview::Format thumbnailFormat() const {
    if (write_thumb == &RawReader::jpeg_thumb) return EmbeddedPreview::Format::jpeg;
    if (write_thumb == &RawReader::ppm_thumb || write_thumb == &RawReader::ppm16_thumb ||
        write_thumb == &RawReader::layer_thumb || write_thumb == &RawReader::rollei_thumb) {
      return EmbeddedPreview::Format::bitmap;
    }
    return EmbeddedPreview::Format::other;
  }

  std::int64_t thumbnailOffset() const { return libraw_internal_data.internal_data.toffset; }
};

// A fixed-size text field of LibRaw, which may lack its terminator.
template <std::size_t N>
std::string fieldText(const char (&field)[N]) {
  return trimmed(std::string(field, strnlen(field, N)));
}

// LibRaw keeps exposure facts as floats; the shortest text of the float
// gives back the value the camera wrote (0.004f is 1/250 s, not 0.0040000002).
double cleanDouble(float value) {
  if (!(value > 0)) return 0;
  char text[64];
  auto [end, error] = std::to_chars(text, text + sizeof text, value);
  double result = value;
  if (error == std::errc()) std::from_chars(text, end, result);  // never the locale's decimal mark
  return result;
}

std::string localExifDate(std::time_t stamp) {
  if (stamp <= 0) return {};
  std::tm local{};
  if (!localtime_r(&stamp, &local)) return {};
  char text[32];
  std::strftime(text, sizeof text, "%Y:%m:%d %H:%M:%S", &local);
  return text;
}

std::string exifText(const Exiv2::ExifData& exif, const char* key) {
  auto it = exif.findKey(Exiv2::ExifKey(key));
  if (it == exif.end() || it->count() == 0) return {};
  return trimmed(it->toString());
}

// The maker, model and original date as the file spells them (LibRaw
// shortens both names, "NIKON CORPORATION" to "Nikon"), the lens when LibRaw
// found none, and the further previews. Failures leave `info` as LibRaw filled it.
void addExiv2Facts(const std::filesystem::path& file, RawInfo& info) {
  try {
    auto image = Exiv2::ImageFactory::open(file.string());
    if (image.get() == nullptr) return;
    image->readMetadata();
    const Exiv2::ExifData& exif = image->exifData();
    if (std::string make = exifText(exif, "Exif.Image.Make"); !make.empty()) info.make = make;
    if (std::string model = exifText(exif, "Exif.Image.Model"); !model.empty()) info.model = model;
    if (info.lens.empty()) info.lens = exifText(exif, "Exif.Photo.LensModel");
    // The date text as stored: LibRaw keeps only a time stamp made through the
    // local clock, whose text differs for an hour that summer time skips.
    if (std::string date = exifText(exif, "Exif.Photo.DateTimeOriginal"); !date.empty()) {
      info.dateOriginal = date;
    }

    Exiv2::PreviewManager manager(*image);
    for (const Exiv2::PreviewProperties& p : manager.getPreviewProperties()) {
      EmbeddedPreview preview;
      preview.source = EmbeddedPreview::Source::exiv2;
      preview.exiv2Id = static_cast<long>(p.id_);
      preview.mimeType = p.mimeType_;
      if (p.mimeType_ == "image/jpeg") {
        preview.format = EmbeddedPreview::Format::jpeg;
      } else if (p.mimeType_ == "image/tiff") {
        preview.format = EmbeddedPreview::Format::tiff;
      }
      preview.width = static_cast<int>(p.width_);
      preview.height = static_cast<int>(p.height_);
      preview.length = p.size_;
      info.previews.push_back(preview);
    }
  } catch (const std::exception&) {
    // exiv2 does not know every RAW container; LibRaw's facts stand alone.
  }
}

}  // namespace

namespace RawPreview {

int orientationFromFlip(int flip) {
  switch (flip) {
    case 0: return 1;
    case 1: return 2;
    case 3: return 3;
    case 2: return 4;
    case 4: return 5;
    case 6: return 6;
    case 7: return 7;
    case 5: return 8;
    default: return 1;
  }
}

void orderPreviews(std::vector<EmbeddedPreview>& previews) {
  // Largest first; among pictures of one size a JPEG (which decodes without
  // a wrapper) and then LibRaw's report (which knows the offset) come first.
  auto rank = [](const EmbeddedPreview& p) {
    return std::tuple(-std::int64_t(p.width) * p.height, p.format == EmbeddedPreview::Format::jpeg ? 0 : 1,
                      p.source == EmbeddedPreview::Source::libraw ? 0 : 1, -p.length);
  };
  std::stable_sort(previews.begin(), previews.end(),
                   [&](const EmbeddedPreview& a, const EmbeddedPreview& b) { return rank(a) < rank(b); });
  // Both readers usually report the camera's main preview, exiv2 sometimes
  // wrapped as a TIFF: a second picture of the same size is the same one.
  std::vector<EmbeddedPreview> unique;
  for (const EmbeddedPreview& p : previews) {
    bool repeat = std::any_of(unique.begin(), unique.end(), [&](const EmbeddedPreview& q) {
      if (p.width > 0 && p.height > 0) return p.width == q.width && p.height == q.height;
      return p.length == q.length && p.format == q.format;
    });
    if (!repeat) unique.push_back(p);
  }
  previews = std::move(unique);
}

std::optional<RawInfo> info(const std::filesystem::path& file) {
  initMediaLibraries();
  RawInfo info;
  try {
    // About half a megabyte: keep it off the stack of worker threads.
    auto raw = std::make_unique<RawReader>();
    if (raw->open_file(file.c_str()) != LIBRAW_SUCCESS) return std::nullopt;
    const libraw_data_t& d = raw->imgdata;
    info.make = fieldText(d.idata.make);
    info.model = fieldText(d.idata.model);
    info.lens = fieldText(d.lens.Lens);
    if (info.lens.empty()) info.lens = fieldText(d.lens.makernotes.Lens);
    info.iso = d.other.iso_speed > 0 ? static_cast<int>(d.other.iso_speed + 0.5f) : 0;
    info.exposure = cleanDouble(d.other.shutter);
    info.fNumber = cleanDouble(d.other.aperture);
    info.focal = cleanDouble(d.other.focal_len);
    info.dateOriginal = localExifDate(d.other.timestamp);

    // The displayed size: the visible sensor area (what the file's raw image
    // directory states), turned by the orientation.
    int width = d.sizes.width, height = d.sizes.height;
    info.orientation = orientationFromFlip(d.sizes.flip);
    if (info.orientation >= 5) std::swap(width, height);
    info.width = width;
    info.height = height;

    const libraw_thumbnail_t& thumb = d.thumbnail;
    if (thumb.tlength > 0 && raw->thumbOK()) {
      EmbeddedPreview preview;
      preview.source = EmbeddedPreview::Source::libraw;
      preview.format = raw->thumbnailFormat();
      if (preview.format == EmbeddedPreview::Format::jpeg) preview.mimeType = "image/jpeg";
      preview.width = thumb.twidth;
      preview.height = thumb.theight;
      preview.length = thumb.tlength;
      preview.offset = raw->thumbnailOffset();
      info.previews.push_back(preview);
    }
  } catch (const std::exception&) {
    // LibRaw reports through codes, but its allocations may still throw.
    return std::nullopt;
  }
  addExiv2Facts(file, info);
  orderPreviews(info.previews);
  return info;
}

}  // namespace RawPreview
}  // namespace lumivale
