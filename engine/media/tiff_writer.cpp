#include "engine/media/tiff_writer.h"

#include <tiffio.h>
#include <zlib.h>

#include <algorithm>
#include <cstring>
#include <limits>

#include "engine/media/image.h"
#include "engine/util/parallel.h"

namespace lumivale::media_detail {
namespace {

// zlib level 2, as for PNG: close to the size of the usual level 6 in a
// third of the time.
constexpr int deflateLevel = 2;
// About a quarter of a megabyte of samples per strip: many strips for the
// pool to share, few enough that their offsets stay a small table.
constexpr std::size_t stripBytes = 256 * 1024;

// Each sample less the one a pixel to its left, modulo the sample's range.
template <class Sample>
void differenceRow(std::uint8_t* row, int width, int bands) {
  auto* s = reinterpret_cast<Sample*>(row);
  for (int i = width * bands - 1; i >= bands; --i) s[i] = Sample(s[i] - s[i - bands]);
}

// The rows of the picture as the disc sink delivers them, top to bottom,
// cut into strips that are compressed as soon as they are complete.
class StripCompressor {
 public:
  StripCompressor(int width, int bands, int bytesPerSample, int height)
      : width_(width), bands_(bands), bytesPerSample_(bytesPerSample), height_(height) {
    rowBytes_ = std::size_t(width) * bands * bytesPerSample;
    rowsPerStrip_ = int(std::clamp<std::size_t>(stripBytes / std::max<std::size_t>(rowBytes_, 1), 1, height));
  }

  int rowsPerStrip() const { return rowsPerStrip_; }
  const std::vector<std::string>& strips() const { return strips_; }

  // Takes `rows` rows; compresses every strip that is then complete, and
  // the last one when the picture ends.
  void add(const std::uint8_t* rows, int count, std::size_t stride) {
    for (int y = 0; y < count; ++y)
      pending_.insert(pending_.end(), rows + y * stride, rows + y * stride + rowBytes_);
    rowsSeen_ += count;
    const std::size_t pendingRows = pending_.size() / rowBytes_;
    std::size_t complete = pendingRows / rowsPerStrip_;
    if (rowsSeen_ == height_ && pendingRows % rowsPerStrip_ != 0) ++complete;
    if (complete == 0) return;
    const std::size_t first = strips_.size();
    strips_.resize(first + complete);
    const std::size_t stripSize = rowBytes_ * rowsPerStrip_;
    parallelFor(complete, [&](std::size_t s) {
      const std::size_t begin = s * stripSize;
      const std::size_t length = std::min(stripSize, pending_.size() - begin);
      strips_[first + s] = compress(pending_.data() + begin, length);
    });
    pending_.erase(pending_.begin(), pending_.begin() + std::min(pending_.size(), complete * stripSize));
  }

 private:
  std::string compress(const std::uint8_t* samples, std::size_t length) const {
    std::vector<std::uint8_t> strip(samples, samples + length);
    for (std::size_t row = 0; row < length; row += rowBytes_) {
      bytesPerSample_ == 1 ? differenceRow<std::uint8_t>(strip.data() + row, width_, bands_)
                           : differenceRow<std::uint16_t>(strip.data() + row, width_, bands_);
    }
    uLongf size = compressBound(uLong(length));
    std::string packed(size, '\0');
    if (compress2(reinterpret_cast<Bytef*>(packed.data()), &size, strip.data(), uLong(length),
                  deflateLevel) != Z_OK)
      throw ImageError("cannot compress the TIFF strips");
    packed.resize(size);
    return packed;
  }

  int width_, bands_, bytesPerSample_, height_;
  std::size_t rowBytes_ = 0;
  int rowsPerStrip_ = 1;
  int rowsSeen_ = 0;
  std::vector<std::uint8_t> pending_;
  std::vector<std::string> strips_;
};

struct SinkState {
  StripCompressor* strips;
  std::string failure;
};

int takeRows(VipsRegion* region, VipsRect* area, void* a) {
  auto* state = static_cast<SinkState*>(a);
  try {
    state->strips->add(reinterpret_cast<const std::uint8_t*>(VIPS_REGION_ADDR(region, 0, area->top)),
                       area->height, VIPS_REGION_LSKIP(region));
  } catch (const std::exception& e) {
    state->failure = e.what();
    return -1;
  }
  return 0;
}

// A TIFF file in memory, grown as libtiff writes and seeks.
struct MemoryFile {
  std::string bytes;
  std::size_t position = 0;
};

tmsize_t readMemory(thandle_t h, void* data, tmsize_t size) {
  auto* file = static_cast<MemoryFile*>(h);
  const std::size_t n = std::min<std::size_t>(
      std::size_t(size), file->bytes.size() - std::min(file->position, file->bytes.size()));
  std::memcpy(data, file->bytes.data() + file->position, n);
  file->position += n;
  return tmsize_t(n);
}

tmsize_t writeMemory(thandle_t h, void* data, tmsize_t size) {
  auto* file = static_cast<MemoryFile*>(h);
  if (file->position + std::size_t(size) > std::numeric_limits<std::uint32_t>::max()) return -1;
  if (file->bytes.size() < file->position + std::size_t(size))
    file->bytes.resize(file->position + std::size_t(size));
  std::memcpy(file->bytes.data() + file->position, data, std::size_t(size));
  file->position += std::size_t(size);
  return size;
}

toff_t seekMemory(thandle_t h, toff_t offset, int whence) {
  auto* file = static_cast<MemoryFile*>(h);
  const std::size_t base = whence == SEEK_SET ? 0 : whence == SEEK_CUR ? file->position : file->bytes.size();
  file->position = base + std::size_t(offset);
  return toff_t(file->position);
}

int closeMemory(thandle_t) { return 0; }
toff_t sizeOfMemory(thandle_t h) { return toff_t(static_cast<MemoryFile*>(h)->bytes.size()); }
int mapMemory(thandle_t, void**, toff_t*) { return 0; }
void unmapMemory(thandle_t, void*, toff_t) {}

}  // namespace

std::string deflateTiff(const vips::VImage& picture, const std::vector<std::uint8_t>& profile) {
  const int width = picture.width(), height = picture.height(), bands = picture.bands();
  const int bytesPerSample = picture.format() == VIPS_FORMAT_USHORT ? 2 : 1;
  StripCompressor compressor(width, bands, bytesPerSample, height);
  SinkState state{&compressor, {}};
  if (vips_sink_disc(picture.get_image(), takeRows, &state) != 0) {
    std::string reason = state.failure.empty() ? vips_error_buffer() : state.failure;
    vips_error_clear();
    reason = reason.substr(0, reason.find('\n'));
    throw ImageError("cannot compute the picture: " + reason);
  }

  MemoryFile memory;
  TIFF* tiff = TIFFClientOpen("picture", "wl", &memory, readMemory, writeMemory, seekMemory, closeMemory,
                              sizeOfMemory, mapMemory, unmapMemory);
  if (!tiff) throw ImageError("cannot start a TIFF file");
  bool ok = TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, std::uint32_t(width)) &&
            TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, std::uint32_t(height)) &&
            TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, 8 * bytesPerSample) &&
            TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, bands) &&
            TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, bands == 1 ? PHOTOMETRIC_MINISBLACK : PHOTOMETRIC_RGB) &&
            TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG) &&
            TIFFSetField(tiff, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT) &&
            TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_ADOBE_DEFLATE) &&
            TIFFSetField(tiff, TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL) &&
            TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, std::uint32_t(compressor.rowsPerStrip())) &&
            TIFFSetField(tiff, TIFFTAG_XRESOLUTION, 72.0f) &&
            TIFFSetField(tiff, TIFFTAG_YRESOLUTION, 72.0f) &&
            TIFFSetField(tiff, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
  if (ok && !profile.empty())
    ok = TIFFSetField(tiff, TIFFTAG_ICCPROFILE, std::uint32_t(profile.size()), profile.data());
  const std::vector<std::string>& strips = compressor.strips();
  for (std::size_t s = 0; ok && s < strips.size(); ++s)
    ok = TIFFWriteRawStrip(tiff, std::uint32_t(s), const_cast<char*>(strips[s].data()),
                           tmsize_t(strips[s].size())) >= 0;
  ok = ok && TIFFWriteDirectory(tiff);
  TIFFClose(tiff);
  if (!ok) throw ImageError("cannot write the TIFF file (a TIFF file holds at most 4 GB)");
  return std::move(memory.bytes);
}

}  // namespace lumivale::media_detail
