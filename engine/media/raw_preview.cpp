#include "engine/media/raw_preview.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <tuple>

#include <libraw/libraw.h>

#include "engine/media/ciff_directory.h"
#include "engine/media/exif_metadata.h"
#include "engine/media/libraw_stream.h"
#include "engine/media/media_libraries.h"
#include "engine/media/photo_file.h"
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

// What LibRaw makes of the file: the shooting facts, the visible area as
// stored (before orientation) and its main thumbnail. Its maker and model
// are its own short forms ("EOS M50" for "Canon EOS M50"), used only when the
// file's own directory cannot be read. Nothing when LibRaw refuses the file.
std::optional<RawInfo> libRawFacts(PhotoFile& file) {
  media_detail::BudgetStream stream(file);
  // About half a megabyte: keep it off the stack of worker threads.
  auto raw = std::make_unique<RawReader>();
  if (raw->open_datastream(&stream) != LIBRAW_SUCCESS || stream.exhausted()) {
    if (stream.exhausted()) throw ReadBudgetExceeded(file.path());
    return std::nullopt;
  }
  const libraw_data_t& d = raw->imgdata;
  RawInfo info;
  info.make = fieldText(d.idata.make);
  info.model = fieldText(d.idata.model);
  info.lens = fieldText(d.lens.Lens);
  if (info.lens.empty()) info.lens = fieldText(d.lens.makernotes.Lens);
  info.iso = d.other.iso_speed > 0 ? static_cast<int>(d.other.iso_speed + 0.5f) : 0;
  info.exposure = cleanDouble(d.other.shutter);
  info.fNumber = cleanDouble(d.other.aperture);
  info.focal = cleanDouble(d.other.focal_len);
  info.dateOriginal = localExifDate(d.other.timestamp);
  info.width = d.sizes.width;
  info.height = d.sizes.height;
  info.orientation = RawPreview::orientationFromFlip(d.sizes.flip);

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
  return info;
}

// The file's own directory over LibRaw's reading: the maker, model and date
// as the file spells them, the size the camera records, and whatever LibRaw
// left unknown.
void applyDirectory(const ExifMetadata::RawDirectory& directory, RawInfo& info) {
  const auto prefer = [](std::string& field, const std::string& text) {
    if (!text.empty()) field = text;
  };
  prefer(info.make, directory.make);
  prefer(info.model, directory.model);
  prefer(info.dateOriginal, directory.dateOriginal);
  if (info.lens.empty()) info.lens = directory.lens;
  if (info.iso == 0) info.iso = directory.iso;
  if (info.exposure == 0) info.exposure = directory.exposure;
  if (info.fNumber == 0) info.fNumber = directory.fNumber;
  if (info.focal == 0) info.focal = directory.focal;
  // The recorded size, unless it is a preview's: where exiv2 reads the EXIF
  // of an embedded JPEG (RW2, some RAF), it may describe that JPEG, far
  // smaller than the picture LibRaw finds.
  const std::int64_t recorded = std::int64_t(directory.recordedWidth) * directory.recordedHeight;
  const std::int64_t visible = std::int64_t(info.width) * info.height;
  if (recorded > 0 && 2 * recorded >= visible) {
    info.width = directory.recordedWidth;
    info.height = directory.recordedHeight;
  }
  info.previews.insert(info.previews.end(), directory.previews.begin(), directory.previews.end());
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

std::optional<RawInfo> info(const std::filesystem::path& path) {
  initMediaLibraries();
  try {
    PhotoFile file(path);
    std::optional<RawInfo> info = libRawFacts(file);
    const auto directory = ExifMetadata::readRawDirectory(file);
    // A container LibRaw refuses (cut after its directories, its raw data
    // stripped) is still described by its own directory, if that names the
    // camera and the picture size.
    if (!info) {
      if (!directory || directory->model.empty() || directory->recordedWidth < 1) return std::nullopt;
      info.emplace();
      info->orientation = directory->orientation >= 1 ? directory->orientation : 1;
    }
    if (directory) applyDirectory(*directory, *info);
    // exiv2 and LibRaw turn a CIFF time stamp into this computer's local
    // time; the camera meant its own clock.
    if (auto taken = ciffCaptureTime(file)) info->dateOriginal = *taken;
    if (info->orientation >= 5) std::swap(info->width, info->height);
    orderPreviews(info->previews);
    return info;
  } catch (const std::exception&) {
    // Not a regular file, or a header that spent the read budget.
    return std::nullopt;
  }
}

}  // namespace RawPreview
}  // namespace lumivale
