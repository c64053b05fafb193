#include "engine/media/image_decoder.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <vector>

#include "engine/media/exif_metadata.h"
#include "engine/media/icc_import.h"
#include "engine/media/orientation.h"
#include "engine/media/photo_file.h"
#include "engine/media/vips_glue.h"

namespace lumivale {
namespace {

namespace fs = std::filesystem;
using media_detail::SampleModel;

// ---- JPEG completeness ----

// Reads a file through a window, for the marker walk below.
class ByteReader {
 public:
  explicit ByteReader(PhotoFile& file) : file_(file) {}

  // The byte at `at`, or -1 past the end.
  int at(std::int64_t at) {
    if (at < start_ || at >= start_ + std::int64_t(window_.size())) {
      if (at >= file_.size()) return -1;
      start_ = at;
      window_ = file_.bytes(at, 1 << 20);
      if (window_.empty()) return -1;
    }
    return std::uint8_t(window_[std::size_t(at - start_)]);
  }

 private:
  PhotoFile& file_;
  std::string window_;
  std::int64_t start_ = 0;
};

// True when the JPEG's data runs up to its end-of-image marker. Cheap for
// a complete file (its last two bytes are the marker); otherwise the
// segments and scans are walked to see whether the marker comes at all, so
// trailing bytes after a complete picture are not taken for damage.
bool jpegReachesEnd(PhotoFile& file) {
  if (file.bytes(std::max<std::int64_t>(file.size() - 2, 0), 2) == "\xFF\xD9") return true;
  ByteReader bytes(file);
  std::int64_t pos = 2;  // after the start-of-image marker
  bool inScan = false;
  while (true) {
    const int b = bytes.at(pos);
    if (b < 0) return false;
    if (b != 0xFF) {  // entropy-coded data, or stray bytes between segments
      ++pos;
      continue;
    }
    const int marker = bytes.at(pos + 1);
    if (marker < 0) return false;
    if (marker == 0xD9) return true;
    // Fill bytes, stuffed zeros and restart markers stand alone.
    if (marker == 0xFF) {
      ++pos;
      continue;
    }
    if (marker == 0x00 || marker == 0x01 || (marker >= 0xD0 && marker <= 0xD8)) {
      pos += 2;
      continue;
    }
    if (inScan && marker < 0xC0) {
      pos += 2;
      continue;
    }
    const int high = bytes.at(pos + 2), low = bytes.at(pos + 3);
    if (high < 0 || low < 0) return false;
    const int length = high << 8 | low;
    if (length < 2) return false;
    pos += 2 + std::int64_t(length);
    inScan = marker == 0xDA;
  }
}

// ---- loading ----

const char* formatName(ImageFormat format) {
  switch (format) {
    case ImageFormat::jpeg:
      return "JPEG";
    case ImageFormat::png:
      return "PNG";
    case ImageFormat::tiff:
      return "TIFF";
    case ImageFormat::heif:
      return "HEIF";
  }
  return "image";
}

struct LoadOptions {
  VipsAccess access = VIPS_ACCESS_SEQUENTIAL;
  int jpegShrink = 1;
  bool heifThumbnail = false;
};

// A JPEG cut short is read as far as it goes (the warning comes from our
// own check); the other formats stop at a truncation, so a damaged file is
// an error rather than a picture with a hole.
vips::VImage load(ImageFormat format, const fs::path& file, const LoadOptions& how) {
  vips::VOption* options = vips::VImage::option()->set("access", how.access);
  switch (format) {
    case ImageFormat::jpeg:
      return vips::VImage::jpegload(
          file.c_str(), options->set("fail_on", VIPS_FAIL_ON_NONE)->set("shrink", how.jpegShrink));
    case ImageFormat::png:
      return vips::VImage::pngload(file.c_str(), options->set("fail_on", VIPS_FAIL_ON_TRUNCATED));
    case ImageFormat::tiff:
      return vips::VImage::tiffload(file.c_str(), options->set("fail_on", VIPS_FAIL_ON_TRUNCATED));
    case ImageFormat::heif:
      return vips::VImage::heifload(
          file.c_str(), options->set("fail_on", VIPS_FAIL_ON_TRUNCATED)->set("thumbnail", how.heifThumbnail));
  }
  throw ImageError("unknown image format");
}

// What was opened: the file, its header, and the picture as libvips loads it.
struct Opened {
  PhotoFile file;
  ImageDecoder::Header header;
  vips::VImage image;  // lazily loaded, full size, sequential access
  std::string exif;    // JPEG: the EXIF block as our header reader found it
};

// The file is recognised and measured by its own header (our parser)
// before libvips sees it, so an absurd size is refused before a decoder
// allocates anything for it.
Opened open(const fs::path& file, const DecodeLimits& limits) {
  initImageLibraries();
  const auto cannotRead = [&](const std::string& reason) {
    return ImageError("cannot read " + quotedPath(file) + ": " + reason);
  };
  const auto tooLarge = [&](std::int64_t width, std::int64_t height) {
    return width > limits.maxSide || height > limits.maxSide ||
           std::uint64_t(width) * std::uint64_t(height) > limits.maxPixels;
  };
  std::optional<PhotoFile> photo;
  std::optional<ImageHeader> stated;
  try {
    photo.emplace(file);
    if (photo->size() == 0) throw cannotRead("empty file");
    stated = readImageHeader(*photo);
  } catch (const ImageError&) {
    throw;
  } catch (const MediaError& e) {
    throw ImageError(e.what());
  }
  if (!stated) throw cannotRead("not a readable JPEG, PNG, TIFF or HEIF image");
  const auto sizeText = [](std::int64_t w, std::int64_t h) {
    return std::to_string(w) + " × " + std::to_string(h) + " pixels";
  };
  if (tooLarge(stated->width, stated->height))
    throw cannotRead("too large (" + sizeText(stated->width, stated->height) + ")");

  Opened opened{std::move(*photo), {}, {}, std::move(stated->exif)};
  try {
    opened.image = load(stated->format, file, {});
  } catch (const vips::VError& e) {
    throw cannotRead(std::string("damaged ") + formatName(stated->format) + " image (" + vipsErrorLine(e) +
                     ")");
  }
  ImageDecoder::Header& header = opened.header;
  header.format = stated->format;
  header.width = opened.image.width();
  header.height = opened.image.height();
  // libheif turns a HEIF picture upright itself.
  const int orientation =
      stated->format == ImageFormat::heif ? 1 : vips_image_get_orientation(opened.image.get_image());
  header.orientation = orientation >= 1 && orientation <= 8 ? orientation : 1;
  if (header.width < 1 || header.height < 1 || tooLarge(header.width, header.height))
    throw cannotRead("too large (" + sizeText(header.width, header.height) + ")");
  return opened;
}

// ---- samples ----

SampleModel modelOf(const vips::VImage& image) {
  if (image.interpretation() == VIPS_INTERPRETATION_CMYK && image.bands() >= 4) return SampleModel::cmyk;
  return image.bands() <= 2 ? SampleModel::grey : SampleModel::rgb;
}

int colourBands(SampleModel model) {
  switch (model) {
    case SampleModel::grey:
      return 1;
    case SampleModel::rgb:
      return 3;
    case SampleModel::cmyk:
      break;
  }
  return 4;
}

std::vector<std::uint8_t> embeddedProfile(const vips::VImage& image) {
  const void* data = nullptr;
  std::size_t length = 0;
  if (!vips_image_get_typeof(image.get_image(), VIPS_META_ICC_NAME) ||
      vips_image_get_blob(image.get_image(), VIPS_META_ICC_NAME, &data, &length) != 0) {
    vips_error_clear();
    return {};
  }
  const auto* bytes = static_cast<const std::uint8_t*>(data);
  return {bytes, bytes + length};
}

bool colorimetric(VipsInterpretation interpretation) {
  switch (interpretation) {
    case VIPS_INTERPRETATION_LAB:
    case VIPS_INTERPRETATION_LABQ:
    case VIPS_INTERPRETATION_LABS:
    case VIPS_INTERPRETATION_LCH:
    case VIPS_INTERPRETATION_CMC:
    case VIPS_INTERPRETATION_XYZ:
    case VIPS_INTERPRETATION_YXY:
      return true;
    default:
      return false;
  }
}

// The colour samples of a loaded picture and how to read them.
struct Samples {
  vips::VImage image;  // 1, 3 or 4 bands of uchar, ushort or float, no alpha
  SampleModel model = SampleModel::rgb;
  std::vector<std::uint8_t> profile;  // as embedded, or empty
};

// The samples as stored, reduced to colour bands: an alpha band flattened
// onto white (no ink for CMYK), bands past it dropped, other sample formats
// taken to 16 bits. Colorimetric encodings (CIELAB TIFFs) need no profile:
// libvips converts them to linear sRGB itself.
Samples colourSamples(vips::VImage image) {
  Samples samples;
  samples.profile = embeddedProfile(image);
  if (image.coding() != VIPS_CODING_NONE || colorimetric(image.interpretation())) {
    image = image.colourspace(VIPS_INTERPRETATION_scRGB);
    samples.profile.clear();
  }
  switch (image.format()) {
    case VIPS_FORMAT_UCHAR:
    case VIPS_FORMAT_USHORT:
    case VIPS_FORMAT_FLOAT:
      break;
    case VIPS_FORMAT_DOUBLE:
      image = image.cast(VIPS_FORMAT_FLOAT);
      break;
    case VIPS_FORMAT_CHAR:
      image = (image.cast(VIPS_FORMAT_INT) * 2).cast(VIPS_FORMAT_UCHAR);
      break;
    default:
      image = image.cast(VIPS_FORMAT_USHORT);
      break;
  }
  samples.model = modelOf(image);
  // lcms2 reads floating-point CMYK as 0 … 100 ink; 16 bits are plenty.
  if (samples.model == SampleModel::cmyk && image.format() == VIPS_FORMAT_FLOAT)
    image = (image * 65535).cast(VIPS_FORMAT_USHORT);
  const int bands = colourBands(samples.model);
  if (image.bands() > bands) {
    const VipsBandFormat format = image.format();
    const double full = format == VIPS_FORMAT_UCHAR ? 255 : format == VIPS_FORMAT_USHORT ? 65535 : 1;
    const double white = samples.model == SampleModel::cmyk ? 0 : full;
    vips::VImage colour = image.extract_band(0, vips::VImage::option()->set("n", bands + 1));
    image = colour.flatten(vips::VImage::option()
                               ->set("background", std::vector<double>(std::size_t(bands), white))
                               ->set("max_alpha", full));
    if (image.format() != format) image = image.cast(format);
  }
  samples.image = image;
  return samples;
}

// Turns stored samples upright for an EXIF orientation.
vips::VImage upright(const vips::VImage& image, int orientation) {
  return vipsImage(orientUpright(fromVips(image), orientation));
}

// ---- reduced decodes ----

struct TargetSize {
  int width = 0;
  int height = 0;
};

// Samples resampled to exactly `target` and turned upright, computed into
// memory: a damaged file fails now, and turning a small picture is cheap.
vips::VImage reducedUpright(vips::VImage reduced, const TargetSize& target, int orientation) {
  if (reduced.width() != target.width || reduced.height() != target.height) {
    reduced = reduced.resize(double(target.width) / reduced.width(),
                             vips::VImage::option()->set("vscale", double(target.height) / reduced.height()));
    if (reduced.width() != target.width || reduced.height() != target.height)
      reduced = reduced.embed(0, 0, target.width, target.height,
                              vips::VImage::option()->set("extend", VIPS_EXTEND_COPY));
  }
  return upright(reduced.copy_memory(), orientation);
}

// The largest reduction on load that keeps the picture at least as large as
// the target: JPEG's scaled DCT, or a HEIF's stored thumbnail.
vips::VImage loadReduced(const Opened& opened, const TargetSize& target) {
  const ImageDecoder::Header& h = opened.header;
  const fs::path& file = opened.file.path();
  if (h.format == ImageFormat::jpeg) {
    // Whole pixels only: libvips cannot load a JPEG shrunk below one pixel.
    for (int shrink : {8, 4, 2}) {
      if (h.width / shrink >= target.width && h.height / shrink >= target.height)
        return load(h.format, file, {.jpegShrink = shrink});
    }
  }
  if (h.format == ImageFormat::heif) {
    vips::VImage thumbnail = load(h.format, file, {.heifThumbnail = true});
    const double aspect = double(h.width) / h.height;
    const double thumbnailAspect = double(thumbnail.width()) / thumbnail.height();
    if (thumbnail.width() >= target.width && thumbnail.height() >= target.height &&
        std::abs(thumbnailAspect / aspect - 1) < 0.01) {
      // A thumbnail without a profile of its own shares the picture's.
      if (!vips_image_get_typeof(thumbnail.get_image(), VIPS_META_ICC_NAME)) {
        std::vector<std::uint8_t> profile = embeddedProfile(opened.image);
        if (!profile.empty()) {
          thumbnail = thumbnail.copy();
          vips_image_set_blob_copy(thumbnail.get_image(), VIPS_META_ICC_NAME, profile.data(), profile.size());
        }
      }
      return thumbnail;
    }
  }
  return opened.image;
}

// The small picture a file stores beside its main one, as libvips loads it
// (computed: it is small), or an empty handle. A JPEG's EXIF thumbnail is
// stored as the main picture is, so the main picture's orientation turns
// it; libheif turns a HEIF thumbnail itself. Cameras store 4:3 thumbnails
// of 3:2 pictures with black bands: a thumbnail of another aspect keeps its
// middle, cut to the main picture's aspect.
vips::VImage storedPicture(const Opened& opened, const DecodeLimits& limits) {
  const ImageDecoder::Header& h = opened.header;
  vips::VImage stored;
  if (h.format == ImageFormat::jpeg) {
    const std::string jpeg = ExifMetadata::thumbnailJpeg(opened.exif);
    if (jpeg.empty()) return {};
    VipsBlob* blob = vips_blob_copy(jpeg.data(), jpeg.size());
    std::unique_ptr<VipsArea, decltype(&vips_area_unref)> release(VIPS_AREA(blob), vips_area_unref);
    stored =
        vips::VImage::jpegload_buffer(blob, vips::VImage::option()->set("fail_on", VIPS_FAIL_ON_TRUNCATED));
  } else if (h.format == ImageFormat::heif) {
    stored = load(h.format, opened.file.path(), {.heifThumbnail = true});
    // Without a thumbnail item libvips gives the primary picture.
    if (stored.width() >= h.width && stored.height() >= h.height) return {};
  } else {
    return {};
  }
  if (stored.width() > limits.maxSide || stored.height() > limits.maxSide ||
      std::uint64_t(stored.width()) * std::uint64_t(stored.height()) > limits.maxPixels) {
    return {};
  }
  const double aspect = double(h.width) / h.height;
  const double storedAspect = double(stored.width()) / stored.height();
  if (std::abs(storedAspect / aspect - 1) > 0.01) {
    int width = stored.width(), height = stored.height();
    if (storedAspect > aspect) {
      width = std::max(1, int(std::lround(height * aspect)));
    } else {
      height = std::max(1, int(std::lround(width / aspect)));
    }
    stored = stored.extract_area((stored.width() - width) / 2, (stored.height() - height) / 2, width, height);
  }
  // libvips' HEIF loader lends out its profile's bytes only while it lives;
  // the picture kept in memory outlives it, so it gets a copy of its own.
  const std::vector<std::uint8_t> profile = embeddedProfile(stored);
  vips::VImage kept = stored.copy_memory();
  if (!profile.empty())
    vips_image_set_blob_copy(kept.get_image(), VIPS_META_ICC_NAME, profile.data(), profile.size());
  return kept;
}

}  // namespace

namespace ImageDecoder {

Header readHeader(const fs::path& file, const DecodeLimits& limits) { return open(file, limits).header; }

DecodedImage decode(const fs::path& file, std::optional<int> maxSide, const DecodeLimits& limits) {
  Opened opened = open(file, limits);
  const ImageDecoder::Header& h = opened.header;
  DecodedImage result;
  try {
    if (h.format == ImageFormat::jpeg && !jpegReachesEnd(opened.file))
      result.warning = "the file is cut short: only the part that could be read is shown";
  } catch (const MediaError&) {
    // Out of read budget or unreadable: the decoder will say what it finds.
  }

  const double longSide = std::max(h.width, h.height);
  const double scale = maxSide ? std::min(std::max(*maxSide, 1) / longSide, 1.0) : 1.0;
  const std::string what = "cannot decode " + quotedPath(file);
  try {
    Samples samples;
    if (scale >= 0.999) {
      // Random access: the chain after us may read rows in any order, and
      // more than once. The samples as stored are decoded once into memory
      // (or a temporary file when large) as needed, never as floats.
      vips::VImage stored = load(h.format, file, {.access = VIPS_ACCESS_RANDOM});
      samples = colourSamples(stored);
      samples.image = upright(samples.image, h.orientation);
    } else {
      const TargetSize target{std::max(1, int(std::lround(h.width * scale))),
                              std::max(1, int(std::lround(h.height * scale)))};
      samples = colourSamples(loadReduced(opened, target));
      samples.image = reducedUpright(samples.image, target, h.orientation);
    }
    std::string profileWarning;
    result.image = fromVips(
        media_detail::importToWorking(samples.image, samples.model, samples.profile, profileWarning));
    if (!profileWarning.empty()) result.warning += (result.warning.empty() ? "" : "; ") + profileWarning;
  } catch (const vips::VError& e) {
    throw ImageError(what + ": " + vipsErrorLine(e));
  }
  return result;
}

std::optional<DecodedImage> decodeStoredThumbnail(const fs::path& file, int maxSide,
                                                  const DecodeLimits& limits) {
  Opened opened = open(file, limits);
  try {
    const vips::VImage stored = storedPicture(opened, limits);
    if (!stored.get_image()) return std::nullopt;
    Samples samples = colourSamples(stored);
    // A thumbnail without a profile of its own shows the main picture's colours.
    if (samples.profile.empty() && samples.model == modelOf(opened.image))
      samples.profile = embeddedProfile(opened.image);
    const double scale =
        std::min(std::max(maxSide, 1) / double(std::max(stored.width(), stored.height())), 1.0);
    const TargetSize target{std::max(1, int(std::lround(stored.width() * scale))),
                            std::max(1, int(std::lround(stored.height() * scale)))};
    const int orientation = opened.header.format == ImageFormat::jpeg ? opened.header.orientation : 1;
    samples.image = reducedUpright(samples.image, target, orientation);
    DecodedImage result;
    result.image = fromVips(
        media_detail::importToWorking(samples.image, samples.model, samples.profile, result.warning));
    return result;
  } catch (const vips::VError& e) {
    // A damaged thumbnail is as good as none: the main picture remains.
    vips_error_clear();
    return std::nullopt;
  }
}

}  // namespace ImageDecoder
}  // namespace lumivale
