// Single-channel PNG files through libpng.
//
// libpng reports errors by longjmp to a setjmp point. The functions holding
// that point (readPixels, writePixels) keep nothing with a destructor in their
// own frame and touch no local after a jump: every buffer lives in a struct
// owned by the caller, so a jump out of libpng skips only C frames and plain
// values. Warnings (odd ancillary chunks, gamma oddities) are ignored: only
// the pixels matter here.

#include "engine/media/png_file.h"

#include <fcntl.h>
#include <png.h>
#include <unistd.h>

#include <cerrno>
#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <memory>
#include <system_error>

#include "engine/media/photo_file.h"
#include "engine/media/safe_file.h"

namespace lumivale {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t signatureSize = 8;

std::string systemMessage(int error) { return std::generic_category().message(error); }

// What libpng's error callback leaves for the code after the jump.
struct PngFailure {
  char message[256] = {};
};

[[noreturn]] void onPngError(png_structp png, png_const_charp message) {
  auto* failure = static_cast<PngFailure*>(png_get_error_ptr(png));
  std::snprintf(failure->message, sizeof failure->message, "%s", message ? message : "unknown error");
  png_longjmp(png, 1);
}

void onPngWarning(png_structp, png_const_charp) {}

// ---- reading ----

struct FileCloser {
  void operator()(std::FILE* f) const { std::fclose(f); }
};
using FileHandle = std::unique_ptr<std::FILE, FileCloser>;

class PngReadHandle {
 public:
  explicit PngReadHandle(PngFailure* failure)
      : png(png_create_read_struct(PNG_LIBPNG_VER_STRING, failure, onPngError, onPngWarning)),
        info(png ? png_create_info_struct(png) : nullptr) {}
  ~PngReadHandle() { png_destroy_read_struct(&png, info ? &info : nullptr, nullptr); }
  PngReadHandle(const PngReadHandle&) = delete;
  PngReadHandle& operator=(const PngReadHandle&) = delete;

  png_structp png;
  png_infop info;
};

// The pixels of one PNG as coverage, both ways it may be wanted.
struct CoverageRows {
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  bool tooLarge = false;
  bool translucent = false;         ///< some alpha value below full
  std::vector<std::uint8_t> grey;   ///< grey channel or luma of RGB, 8 bits
  std::vector<std::uint8_t> alpha;  ///< alpha, 8 bits; empty without alpha
  std::vector<std::uint8_t> row;    ///< one decoded row (non-interlaced)
  std::vector<std::uint8_t> image;  ///< every decoded row (interlaced)
  std::vector<png_bytep> rowPointers;
};

// Rounds v of 0 … maxValue to 0 … 255.
inline std::uint8_t to8(std::uint32_t v, std::uint32_t maxValue) {
  return std::uint8_t((std::uint64_t(v) * 255 + maxValue / 2) / maxValue);
}

// Luma with weights 2126, 7152 and 722 in ten-thousandths, rounded to 8 bits.
inline std::uint8_t luma8(std::uint32_t r, std::uint32_t g, std::uint32_t b, std::uint32_t maxValue) {
  const std::uint64_t weighted = 2126ull * r + 7152ull * g + 722ull * b;
  const std::uint64_t scale = 10000ull * maxValue;
  return std::uint8_t((weighted * 255 + scale / 2) / scale);
}

// Turns one decoded row (1 to 4 channels of 8 or 16 bits, big-endian) into
// coverage row y.
void convertRow(CoverageRows& out, const std::uint8_t* row, std::uint32_t y, int channels, int depth) {
  const std::uint32_t maxValue = depth == 16 ? 65535 : 255;
  const bool hasAlpha = channels == 2 || channels == 4;
  std::uint8_t* grey = out.grey.data() + std::size_t(y) * out.width;
  std::uint8_t* alpha = hasAlpha ? out.alpha.data() + std::size_t(y) * out.width : nullptr;
  const auto sample = [&](std::size_t i) -> std::uint32_t {
    return depth == 16 ? std::uint32_t(row[2 * i]) << 8 | row[2 * i + 1] : row[i];
  };
  for (std::uint32_t x = 0; x < out.width; ++x) {
    const std::size_t first = std::size_t(x) * channels;
    grey[x] = channels >= 3 ? luma8(sample(first), sample(first + 1), sample(first + 2), maxValue)
                            : to8(sample(first), maxValue);
    if (hasAlpha) {
      const std::uint32_t a = sample(first + channels - 1);
      if (a < maxValue) out.translucent = true;
      alpha[x] = to8(a, maxValue);
    }
  }
}

// Reads the PNG whose signature has been consumed. False when libpng failed
// (the message is in the failure record).
bool readPixels(png_structp png, png_infop info, const PngFile::Limits* limits, CoverageRows* out) {
  if (setjmp(png_jmpbuf(png))) return false;

  png_set_sig_bytes(png, int(signatureSize));
  // Our own size check gives the clearer message; let libpng read any header.
  png_set_user_limits(png, PNG_UINT_31_MAX, PNG_UINT_31_MAX);
  png_read_info(png, info);
  out->width = png_get_image_width(png, info);
  out->height = png_get_image_height(png, info);
  if (out->width > std::uint32_t(limits->maxSide) || out->height > std::uint32_t(limits->maxSide) ||
      std::uint64_t(out->width) * out->height > limits->maxPixels) {
    out->tooLarge = true;
    return true;
  }

  // Palette to RGB, grey below 8 bits to 8, tRNS to an alpha channel; 16-bit
  // samples stay 16-bit so that they are rounded once, at the end.
  png_set_expand(png);
  const int passes = png_set_interlace_handling(png);
  png_read_update_info(png, info);
  const int channels = png_get_channels(png, info);
  const int depth = png_get_bit_depth(png, info);
  if (channels < 1 || channels > 4 || (depth != 8 && depth != 16)) png_error(png, "unsupported pixel layout");
  const std::size_t rowBytes = png_get_rowbytes(png, info);

  const std::size_t pixels = std::size_t(out->width) * out->height;
  out->grey.resize(pixels);
  if (channels == 2 || channels == 4) out->alpha.resize(pixels);
  if (passes == 1) {
    out->row.resize(rowBytes);
    for (std::uint32_t y = 0; y < out->height; ++y) {
      png_read_row(png, out->row.data(), nullptr);
      convertRow(*out, out->row.data(), y, channels, depth);
    }
  } else {
    // Interlaced rows arrive in several passes over the whole image.
    out->image.resize(rowBytes * out->height);
    out->rowPointers.resize(out->height);
    for (std::uint32_t y = 0; y < out->height; ++y) out->rowPointers[y] = out->image.data() + rowBytes * y;
    png_read_image(png, out->rowPointers.data());
    for (std::uint32_t y = 0; y < out->height; ++y) convertRow(*out, out->rowPointers[y], y, channels, depth);
  }
  // Reading on to the end checks the rest of the file (a cut-off file fails).
  png_read_end(png, nullptr);
  return true;
}

class PngWriteHandle {
 public:
  explicit PngWriteHandle(PngFailure* failure)
      : png(png_create_write_struct(PNG_LIBPNG_VER_STRING, failure, onPngError, onPngWarning)),
        info(png ? png_create_info_struct(png) : nullptr) {}
  ~PngWriteHandle() { png_destroy_write_struct(&png, info ? &info : nullptr); }
  PngWriteHandle(const PngWriteHandle&) = delete;
  PngWriteHandle& operator=(const PngWriteHandle&) = delete;

  png_structp png;
  png_infop info;
};

struct WriteTarget {
  int fd = -1;
  int error = 0;  ///< errno of a failed write
};

void writeToFd(png_structp png, png_bytep data, png_size_t length) {
  auto* target = static_cast<WriteTarget*>(png_get_io_ptr(png));
  while (length > 0) {
    const ssize_t n = ::write(target->fd, data, length);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      target->error = n < 0 ? errno : EIO;
      png_error(png, "write failed");
    }
    data += n;
    length -= std::size_t(n);
  }
}

void flushNothing(png_structp) {}

bool writePixels(png_structp png, png_infop info, const GreyImage* bitmap, WriteTarget* target) {
  if (setjmp(png_jmpbuf(png))) return false;

  png_set_write_fn(png, target, writeToFd, flushNothing);
  png_set_IHDR(png, info, png_uint_32(bitmap->width), png_uint_32(bitmap->height), 8, PNG_COLOR_TYPE_GRAY,
               PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  png_write_info(png, info);
  for (int y = 0; y < bitmap->height; ++y)
    png_write_row(png, bitmap->bytes.data() + std::size_t(y) * bitmap->width);
  png_write_end(png, info);
  return true;
}

}  // namespace

namespace PngFile {

GreyImage readCoverage(const fs::path& file, const Limits& limits) {
  // Opened as a PhotoFile, so that a FIFO in the file's place is refused
  // rather than waited on; libpng reads from a duplicate of its descriptor.
  const PhotoFile source(file);
  const int fd = ::dup(source.descriptor());
  FileHandle handle(fd >= 0 ? ::fdopen(fd, "rb") : nullptr);
  if (!handle) {
    const int error = errno;
    if (fd >= 0) ::close(fd);
    throw MediaError("cannot open " + quotedPath(file) + ": " + systemMessage(error));
  }
  unsigned char signature[signatureSize];
  const std::size_t got = std::fread(signature, 1, signatureSize, handle.get());
  if (got < signatureSize && std::ferror(handle.get()))
    throw MediaError("cannot read " + quotedPath(file) + ": " + systemMessage(errno));
  if (got == 0) throw MediaError(quotedPath(file) + ": empty file");
  if (got < signatureSize || png_sig_cmp(signature, 0, signatureSize) != 0)
    throw MediaError(quotedPath(file) + ": not a PNG image");

  PngFailure failure;
  PngReadHandle reader(&failure);
  if (!reader.png || !reader.info) throw MediaError("cannot read " + quotedPath(file) + ": out of memory");
  png_init_io(reader.png, handle.get());
  CoverageRows rows;
  try {
    if (!readPixels(reader.png, reader.info, &limits, &rows))
      throw MediaError(quotedPath(file) + ": damaged PNG image (" + failure.message + ")");
  } catch (const std::bad_alloc&) {
    throw MediaError(quotedPath(file) + ": too large to read into memory");
  }
  if (rows.tooLarge)
    throw MediaError(quotedPath(file) + ": too large (" + std::to_string(rows.width) + " \u00d7 " +
                     std::to_string(rows.height) + "; at most " + std::to_string(limits.maxSide) +
                     " pixels on a side and " + std::to_string(limits.maxPixels) + " pixels in all)");

  GreyImage image;
  image.width = int(rows.width);
  image.height = int(rows.height);
  image.bytes = rows.translucent ? std::move(rows.alpha) : std::move(rows.grey);
  return image;
}

void writeGrey(const GreyImage& image, const fs::path& file, bool replaceExisting) {
  if (image.width <= 0 || image.height <= 0)
    throw MediaError("cannot write " + quotedPath(file) + ": the picture is empty");
  if (image.bytes.size() != std::size_t(image.width) * std::size_t(image.height))
    throw MediaError("cannot write " + quotedPath(file) + ": the picture's bytes do not match its size");
  writeFileSafely(
      file,
      [&](int fd) {
        WriteTarget target{fd};
        PngFailure pngFailure;
        PngWriteHandle writer(&pngFailure);
        if (!writer.png || !writer.info) throw MediaError("out of memory");
        if (!writePixels(writer.png, writer.info, &image, &target))
          throw MediaError(target.error ? systemMessage(target.error) : std::string(pngFailure.message));
      },
      replaceExisting);
}

}  // namespace PngFile
}  // namespace lumivale
