#include "engine/media/raw_decoder.h"

#include <libraw/libraw.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <cstring>
#include <memory>

#include "engine/media/exif_metadata.h"
#include "engine/media/libraw_stream.h"
#include "engine/media/media_libraries.h"
#include "engine/media/photo_file.h"
#include "engine/media/raw_preview.h"
#include "engine/media/raw_rows.h"
#include "engine/media/vips_glue.h"
#include "engine/util/parallel.h"
#include "engine/util/text.h"

namespace lumivale {
namespace {

using media_detail::BayerRow;
using media_detail::CameraToWorking;

// LibRaw refuses to unpack sensor data larger than this (megabytes): a
// 150-megapixel back needs 300.
constexpr unsigned rawMemoryLimitMB = 640;

// Rows handed to one task of a parallel loop.
constexpr int rowsPerTask = 32;

class Processor : public LibRaw {
 public:
  Processor() : LibRaw(LIBRAW_OPIONS_NO_DATAERR_CALLBACK | LIBRAW_OPIONS_NO_MEMERR_CALLBACK) {
    imgdata.params.max_raw_memory_mb = rawMemoryLimitMB;
  }
  bool fujiLayout() const { return libraw_internal_data.internal_output_params.fuji_width != 0; }
};

// LibRaw's reading of a file's header, through the file's bounded budget
// (a damaged header that sends LibRaw round in circles ends in a moment),
// regular files only. The processor is about half a megabyte: kept off the
// stack of worker threads. Declared before the processor, the stream
// outlives it.
struct HeaderReader {
  explicit HeaderReader(const std::filesystem::path& path) : file(path), stream(file) {}
  bool open() { return processor->open_datastream(&stream) == LIBRAW_SUCCESS && !stream.exhausted(); }

  PhotoFile file;
  media_detail::BudgetStream stream;
  std::unique_ptr<Processor> processor = std::make_unique<Processor>();
};

// The whole file in memory, for unpacking: LibRaw reads the sensor data a
// byte at a time, which the bounded stream makes slow. Only after the
// header was read within its budget: the same bytes take the same path.
struct DataReader {
  explicit DataReader(HeaderReader& header) : bytes(header.file.bytes(0, std::size_t(header.file.size()))) {}
  bool open() {
    return bytes.size() > 0 && processor->open_buffer(bytes.data(), bytes.size()) == LIBRAW_SUCCESS;
  }

  std::string bytes;
  std::unique_ptr<Processor> processor = std::make_unique<Processor>();
};

// The 2 × 2 colour filter pattern from the frame's top-left site: LibRaw's
// colour index (0 red, 1 green, 2 blue, 3 the second green) of each site.
using Pattern = std::array<std::array<int, 2>, 2>;

// The part of LibRaw's visible area that is developed.
struct Frame {
  int left = 0;
  int top = 0;
  int width = 0;
  int height = 0;
};

Frame frameOf(const libraw_data_t& d) {
  const libraw_image_sizes_t& s = d.sizes;
  const libraw_raw_inset_crop_t& c = s.raw_inset_crop;
  // The camera's own crop, in sensor coordinates, when it lies inside the
  // visible area; LibRaw's margins leave a few pixels that the camera's
  // JPEG does not show.
  const int left = int(c.cleft) - s.left_margin, top = int(c.ctop) - s.top_margin;
  if (c.cwidth >= 16 && c.cheight >= 16 && left >= 0 && top >= 0 && left + c.cwidth <= s.width &&
      top + c.cheight <= s.height) {
    return {left, top, c.cwidth, c.cheight};
  }
  return {0, 0, s.width, s.height};
}

// A plain Bayer sensor our development handles: red, blue and two greens
// repeating every 2 × 2 sites, square pixels, not Fuji's rotated layout.
std::optional<Pattern> bayerPattern(Processor& p, const Frame& frame) {
  const libraw_data_t& d = p.imgdata;
  if (d.idata.filters < 1000 || d.idata.colors != 3 || p.fujiLayout() || d.sizes.pixel_aspect != 1.0) {
    return std::nullopt;
  }
  for (int row = 0; row < 16; ++row) {
    for (int col = 0; col < 16; ++col) {
      if (p.COLOR(row, col) != p.COLOR(row & 1, col & 1)) return std::nullopt;
    }
  }
  Pattern pattern{};
  int count[4] = {0, 0, 0, 0};
  for (int y = 0; y < 2; ++y) {
    for (int x = 0; x < 2; ++x) {
      int colour = p.COLOR(frame.top + y, frame.left + x);
      if (colour < 0 || colour > 3) return std::nullopt;
      pattern[y][x] = colour;
      ++count[colour == 3 ? 1 : colour];
    }
  }
  if (count[0] != 1 || count[1] != 2 || count[2] != 1) return std::nullopt;
  return pattern;
}

template <std::size_t N>
std::string fieldText(const char (&field)[N]) {
  return trimmed(std::string(field, strnlen(field, N)));
}

// Lens fields hold placeholders when the camera knew no lens.
bool usableLensName(const std::string& name) {
  if (name.empty() || name[0] == '(' || name[0] == '-') return false;
  const std::string lower = asciiLowercased(name);
  return lower != "n/a" && lower != "unknown" && lower != "none" &&
         lower.find("unknown lens") == std::string::npos;
}

void addName(std::vector<std::string>& names, const std::string& name) {
  std::string text = trimmed(name);
  if (usableLensName(text) && std::find(names.begin(), names.end(), text) == names.end())
    names.push_back(text);
}

bool validMultipliers(const float* mul) {
  const float low = std::min({mul[0], mul[1], mul[2]}), high = std::max({mul[0], mul[1], mul[2]});
  return std::isfinite(low) && std::isfinite(high) && low > 0 && high / low < 64;
}

// The camera's white balance as shot (its daylight balance when the file has
// none), per LibRaw colour index, scaled so that the smallest is 1.
std::array<float, 4> whiteBalance(const libraw_colordata_t& c) {
  std::array<float, 4> mul = {1, 1, 1, 1};
  const float* source = validMultipliers(c.cam_mul)   ? c.cam_mul
                        : validMultipliers(c.pre_mul) ? c.pre_mul
                                                      : nullptr;
  if (source) {
    mul = {source[0], source[1], source[2], source[3] > 0 ? source[3] : source[1]};
  }
  const float low = *std::min_element(mul.begin(), mul.end());
  for (float& m : mul) m /= low;
  return mul;
}

// An image of libvips' own memory that our loops fill row by row.
class OutputImage {
 public:
  OutputImage(int width, int height) {
    VipsImage* image = vips_image_new_memory();
    vips_image_init_fields(image, width, height, 3, VIPS_FORMAT_FLOAT, VIPS_CODING_NONE,
                           VIPS_INTERPRETATION_scRGB, 1.0, 1.0);
    if (vips_image_write_prepare(image) != 0) {
      g_object_unref(image);
      vips_error_clear();
      throw ImageError("not enough memory for the developed photo");
    }
    image_ = Image::adopt(image);
  }
  float* row(int y) const { return reinterpret_cast<float*>(VIPS_IMAGE_ADDR(image_.get(), 0, y)); }
  const Image& image() const { return image_; }

 private:
  Image image_;
};

// Reflects an index into 0 … n − 1 about the edges, keeping its parity
// where n allows (so a reflected site has the colour of the site it stands in for).
int reflect(int i, int n) {
  if (n == 1) return 0;
  while (i < 0 || i >= n) i = i < 0 ? -i : 2 * (n - 1) - i;
  return i;
}

// The Bayer development, steps 1 to 5.
class BayerDevelopment {
 public:
  BayerDevelopment(Processor& p, const Frame& frame, const Pattern& pattern)
      : d_(p.imgdata), frame_(frame), pattern_(pattern) {
    const libraw_colordata_t& c = d_.color;
    const libraw_image_sizes_t& s = d_.sizes;
    raw_ = d_.rawdata.raw_image;
    pitch_ = s.raw_pitch / 2;
    originX_ = s.left_margin + frame.left;
    originY_ = s.top_margin + frame.top;
    if (c.cblack[4] > 0 && c.cblack[5] > 0 &&
        std::size_t(c.cblack[4]) * c.cblack[5] <= LIBRAW_CBLACK_SIZE - 6) {
      patternRows_ = int(c.cblack[4]);
      patternCols_ = int(c.cblack[5]);
    }
    const std::array<float, 4> wb = whiteBalance(c);
    const float white = whiteLevel();
    for (int y = 0; y < 2; ++y) {
      for (int x = 0; x < 2; ++x) {
        const int colour = pattern[y][x];
        const float black = float(c.black + c.cblack[colour]);
        black_[y][x] = black;
        scale_[y][x] = wb[colour] / std::max(white - black, 1.0f);
      }
    }
    post_.clip[0] = wb[0];
    post_.clip[1] = std::min(wb[1], wb[3]);
    post_.clip[2] = wb[2];
    for (int i = 0; i < 3; ++i) {
      for (int j = 0; j < 3; ++j) post_.matrix[i][j] = c.rgb_cam[i][j];
    }
  }

  // Each 2 × 2 block of sites becomes one pixel. The block's two greens
  // average to its centre; its red and blue sites sit a quarter pixel off
  // it, so each is taken bilinearly from the four nearest sites of its
  // colour, which keeps the three colours in register.
  Image halfSize() const {
    const int width = frame_.width / 2, height = frame_.height / 2;
    OutputImage out(width, height);
    forRows(height, [&](int y) {
      float* o = out.row(y);
      for (int x = 0; x < width; ++x) {
        float rgb[3] = {0, 0, 0};
        for (int dy = 0; dy < 2; ++dy) {
          for (int dx = 0; dx < 2; ++dx) {
            int colour = pattern_[dy][dx];
            if (colour == 3 || colour == 1) {
              rgb[1] += sample(2 * x + dx, 2 * y + dy) / 2;
              continue;
            }
            // The neighbouring blocks towards the centre.
            const int nx = std::clamp(x + (dx == 0 ? 1 : -1), 0, width - 1);
            const int ny = std::clamp(y + (dy == 0 ? 1 : -1), 0, height - 1);
            rgb[colour] = (9 * sample(2 * x + dx, 2 * y + dy) + 3 * sample(2 * nx + dx, 2 * y + dy) +
                           3 * sample(2 * x + dx, 2 * ny + dy) + sample(2 * nx + dx, 2 * ny + dy)) /
                          16;
          }
        }
        post_.convert(rgb[0], rgb[1], rgb[2], o + 3 * x);
      }
    });
    return out.image();
  }

  Image fullSize() const {
    const int width = frame_.width, height = frame_.height;
    if (width < 4 || height < 4) throw ImageError("the photo is too small");
    // The normalised samples with a border of 2 reflected sites, so the
    // 5 × 5 windows need no edge tests, and room for whole vectors.
    const int stride = width + 4 + media_detail::rowSlack;
    std::vector<float> mosaic(std::size_t(stride) * (height + 4));
    forRows(height + 4, [&](int py) {
      const int y = reflect(py - 2, height);
      float* m = mosaic.data() + std::size_t(py) * stride;
      if (patternRows_ > 0) {
        for (int x = 0; x < width; ++x) m[x + 2] = sample(x, y);
      } else {
        const ushort* raw = raw_ + std::size_t(originY_ + y) * pitch_ + originX_;
        media_detail::normaliseRow(raw, m + 2, width, black_[y & 1], scale_[y & 1]);
      }
      m[0] = m[4];
      m[1] = m[3];
      m[width + 2] = m[width];
      m[width + 3] = m[width - 1];
    });

    BayerRow sites[2];
    for (int y = 0; y < 2; ++y) {
      for (int x = 0; x < 2; ++x) {
        const int colour = pattern_[y][x] == 3 ? 1 : pattern_[y][x];
        sites[y].colour[x] = colour;
        sites[y].redBeside[x] = pattern_[y][x ^ 1] == 0;
      }
    }
    OutputImage out(width, height);
    forRows(height, [&](int y) {
      const float* rows[5];
      for (int k = 0; k < 5; ++k) rows[k] = mosaic.data() + std::size_t(y + k) * stride + 2;
      media_detail::developRow(rows, sites[y & 1], post_, out.row(y), width);
    });
    return out.image();
  }

 private:
  // The white level: the file's, or the level where the data piles up just
  // below it when the sensor clips earlier than the file says (several
  // cameras do at some ISO speeds); otherwise such highlights would stop
  // short of white in one channel and turn pink.
  float whiteLevel() const {
    const float white = float(d_.color.maximum);
    const float black = float(d_.color.black + d_.color.cblack[pattern_[0][0]]);
    if (!(white > black)) return white;
    std::atomic<unsigned> highest{0};
    forRows(frame_.height, [&](int y) {
      const ushort* row = raw_ + std::size_t(originY_ + y) * pitch_ + originX_;
      unsigned high = 0;
      for (int x = 0; x < frame_.width; ++x) high = std::max<unsigned>(high, row[x]);
      unsigned seen = highest.load();
      while (high > seen && !highest.compare_exchange_weak(seen, high)) {
      }
    });
    const unsigned top = highest.load();
    if (top >= white || top < black + 0.75f * (white - black)) return white;
    // A clipped sensor stacks many samples on its last values; a scene's
    // brightest spot does not.
    std::atomic<std::int64_t> piled{0};
    const unsigned near = top > 4 ? top - 4 : 0;
    forRows(frame_.height, [&](int y) {
      const ushort* row = raw_ + std::size_t(originY_ + y) * pitch_ + originX_;
      std::int64_t count = 0;
      for (int x = 0; x < frame_.width; ++x) count += row[x] >= near;
      piled += count;
    });
    const std::int64_t needed =
        std::max<std::int64_t>(16, std::int64_t(frame_.width) * frame_.height / 10000);
    return piled.load() >= needed ? float(near) : white;
  }

  // Step 1 and 2 for the site at (x, y) of the frame.
  float sample(int x, int y) const {
    const int sy = y & 1, sx = x & 1;
    float black = black_[sy][sx];
    if (patternRows_ > 0) {
      black += float(d_.color.cblack[6 + ((frame_.top + y) % patternRows_) * patternCols_ +
                                     (frame_.left + x) % patternCols_]);
    }
    const ushort value = raw_[std::size_t(originY_ + y) * pitch_ + originX_ + x];
    return (float(value) - black) * scale_[sy][sx];
  }

  template <class Body>
  static void forRows(int rows, const Body& body) {
    const int tasks = (rows + rowsPerTask - 1) / rowsPerTask;
    parallelFor(std::size_t(tasks), [&](std::size_t task) {
      const int first = int(task) * rowsPerTask, last = std::min(rows, first + rowsPerTask);
      for (int y = first; y < last; ++y) body(y);
    });
  }

  const libraw_data_t& d_;
  Frame frame_;
  Pattern pattern_;
  const ushort* raw_ = nullptr;
  std::size_t pitch_ = 0;
  int originX_ = 0;
  int originY_ = 0;
  int patternRows_ = 0;
  int patternCols_ = 0;
  float black_[2][2] = {};
  float scale_[2][2] = {};
  CameraToWorking post_{};
};

struct MemImageFree {
  void operator()(libraw_processed_image_t* image) const { LibRaw::dcraw_clear_mem(image); }
};

// Every other sensor: LibRaw's own processing, scaled like ours, cut to
// `frame` when one is given.
Image developWithLibRaw(Processor& p, const RawDevelopOptions& options, const std::optional<Frame>& frame) {
  libraw_output_params_t& o = p.imgdata.params;
  o.use_camera_wb = 1;
  o.use_camera_matrix = 1;
  o.output_color = 1;  // sRGB primaries
  o.output_bps = 16;
  o.gamm[0] = o.gamm[1] = 1.0;  // linear
  o.no_auto_bright = 1;
  o.highlight = 2;  // blend clipped channels
  o.half_size = options.halfSize ? 1 : 0;
  o.user_flip = 0;  // the orientation is applied by the caller
  if (p.unpack() != LIBRAW_SUCCESS || p.error_count() > 0)
    throw ImageError("the sensor data is damaged or cut short");
  if (p.dcraw_process() != LIBRAW_SUCCESS || p.error_count() > 0)
    throw ImageError("the sensor data cannot be developed");
  int error = 0;
  std::unique_ptr<libraw_processed_image_t, MemImageFree> bitmap(p.dcraw_make_mem_image(&error));
  if (!bitmap || bitmap->type != LIBRAW_IMAGE_BITMAP || bitmap->bits != 16 ||
      (bitmap->colors != 1 && bitmap->colors != 3)) {
    throw ImageError("the sensor data cannot be developed");
  }
  // LibRaw scales so that the largest white-balance multiplier brings its
  // channel's clipping point to 65535: a neutral clips at 65535 × the
  // smallest multiplier over the largest.
  const float* mul = p.imgdata.color.pre_mul;
  const float low = std::min({mul[0], mul[1], mul[2]}), high = std::max({mul[0], mul[1], mul[2]});
  const float scale = low > 0 && high > 0 ? high / (65535.0f * low) : 1 / 65535.0f;
  const int shift = options.halfSize ? 1 : 0;
  const int fullWidth = bitmap->width, fullHeight = bitmap->height;
  Frame area{0, 0, fullWidth, fullHeight};
  if (frame) {
    area.width = std::min(frame->width >> shift, fullWidth);
    area.height = std::min(frame->height >> shift, fullHeight);
    area.left = std::min(frame->left >> shift, fullWidth - area.width);
    area.top = std::min(frame->top >> shift, fullHeight - area.height);
  }
  const int width = area.width, height = area.height, colors = bitmap->colors;
  if (width < 1 || height < 1) throw ImageError("the sensor data cannot be developed");
  OutputImage out(width, height);
  const auto* samples = reinterpret_cast<const std::uint16_t*>(bitmap->data);
  parallelFor(std::size_t(height), [&](std::size_t y) {
    const std::uint16_t* in = samples + ((y + area.top) * std::size_t(fullWidth) + area.left) * colors;
    float* o = out.row(int(y));
    for (int x = 0; x < width; ++x) {
      for (int band = 0; band < 3; ++band)
        o[3 * x + band] = float(in[x * colors + (colors == 3 ? band : 0)]) * scale;
    }
  });
  return out.image();
}

bool tooLarge(int width, int height) {
  return width < 1 || height < 1 || std::int64_t(width) * height > RawDecoder::maxPixels;
}

}  // namespace

namespace RawDecoder {

std::optional<RawFacts> facts(const std::filesystem::path& file) {
  initMediaLibraries();
  RawFacts facts;
  try {
    HeaderReader reader(file);
    if (!reader.open()) return std::nullopt;
    Processor& p = *reader.processor;
    libraw_data_t& d = p.imgdata;
    facts.orientation = RawPreview::orientationFromFlip(d.sizes.flip);
    const Frame frame = frameOf(d);
    if (bayerPattern(p, frame)) {
      facts.width = frame.width;
      facts.height = frame.height;
    } else {
      // LibRaw's output size: Fuji's rotated layout and non-square pixels
      // change it.
      d.params.user_flip = 0;
      if (p.adjust_sizes_info_only() != LIBRAW_SUCCESS) return std::nullopt;
      facts.width = d.sizes.width;
      facts.height = d.sizes.height;
    }
    if (tooLarge(facts.width, facts.height)) return std::nullopt;
    facts.cameraNames.emplace_back(fieldText(d.idata.make), fieldText(d.idata.model));
    addName(facts.lensNames, fieldText(d.lens.Lens));
    addName(facts.lensNames, fieldText(d.lens.makernotes.Lens));
    facts.focal = d.other.focal_len > 0 ? d.other.focal_len : 0;
    facts.fNumber = d.other.aperture > 0 ? d.other.aperture : 0;
    facts.iso = d.other.iso_speed > 0 ? d.other.iso_speed : 0;
    // LibRaw marks a missing baseline exposure with −999.
    const float baseline = d.color.dng_levels.baseline_exposure;
    if (d.idata.dng_version != 0 && std::isfinite(baseline) && baseline > -10 && baseline < 10) {
      facts.baselineExposure = baseline;
    }

    // The file's own texts, which the lens database may know better than
    // LibRaw's short forms, and the makers' lens codes by name.
    if (auto directory = ExifMetadata::readRawDirectory(reader.file)) {
      const std::pair<std::string, std::string> camera{directory->make, directory->model};
      if (!camera.second.empty() &&
          std::find(facts.cameraNames.begin(), facts.cameraNames.end(), camera) == facts.cameraNames.end()) {
        facts.cameraNames.push_back(camera);
      }
      addName(facts.lensNames, directory->lens);
      addName(facts.lensNames, directory->makerLens);
      facts.focusDistance = directory->subjectDistance;
    }
  } catch (const std::exception&) {
    // Not a regular file, or a header that spent the read budget.
    return std::nullopt;
  }
  return facts;
}

Image develop(const std::filesystem::path& file, const RawDevelopOptions& options) {
  initImageLibraries();
  try {
    HeaderReader header(file);
    if (!header.open()) throw ImageError("not a RAW file");
    DataReader data(header);
    if (!data.open()) throw ImageError("not a RAW file");
    Processor* p = data.processor.get();
    const Frame frame = frameOf(p->imgdata);
    if (tooLarge(frame.width, frame.height)) throw ImageError("the photo is too large");
    const std::optional<Pattern> pattern = bayerPattern(*p, frame);
    if (!pattern) return developWithLibRaw(*p, options, std::nullopt);
    if (options.libRawProcessing) return developWithLibRaw(*p, options, frame);
    if (p->unpack() != LIBRAW_SUCCESS || p->error_count() > 0) {
      throw ImageError("the sensor data is damaged or cut short");
    }
    if (p->imgdata.rawdata.raw_image == nullptr) throw ImageError("the sensor data is not a colour mosaic");
    BayerDevelopment development(*p, frame, *pattern);
    return options.halfSize ? development.halfSize() : development.fullSize();
  } catch (const std::bad_alloc&) {
    throw ImageError("not enough memory for the developed photo");
  } catch (const ImageError&) {
    throw;
  } catch (const MediaError& e) {
    // Not a regular file, missing, or a header that spent the read budget.
    throw ImageError(e.what());
  }
}

}  // namespace RawDecoder
}  // namespace lumivale
