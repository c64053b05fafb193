#include "diagnostics/sample_dng.h"

#include <tiffio.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "engine/media/bitmap.h"
#include "engine/media/image_encoder.h"
#include "engine/media/media_libraries.h"
#include "engine/media/safe_file.h"

namespace lumivale::diagnostics {
namespace {

// The camera's preview: a smooth gradient, so the coder has content.
std::string gradientJpeg(int width, int height) {
  initMediaLibraries();
  FloatPixels pixels{width, height, 3, std::vector<float>(std::size_t(width) * height * 3)};
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      float* p = &pixels.values[(std::size_t(y) * width + x) * 3];
      p[0] = float(x) / std::max(1, width - 1);
      p[1] = float(y) / std::max(1, height - 1);
      p[2] = (p[0] + p[1]) / 2;
    }
  }
  return ImageEncoder::encode(outputImage(Image::fromPixels(pixels), ColorSpace::sRGB, 8),
                              {.format = ImageFormat::jpeg, .quality = 0.85});
}

}  // namespace

std::vector<std::uint16_t> cfaSamples(const SampleDng& dng,
                                      const std::function<double(int, int, int)>& level) {
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
  if (file.has_parent_path()) std::filesystem::create_directories(file.parent_path());
  if (nameTaken(file)) throw std::runtime_error("cannot write " + file.string() + ": it exists already");
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
  if (dng.exifWidth > 0) {
    TIFFSetField(tif, EXIFTAG_PIXELXDIMENSION, uint32_t(dng.exifWidth));
    TIFFSetField(tif, EXIFTAG_PIXELYDIMENSION, uint32_t(dng.exifHeight));
  }
  uint64_t exifOffset = 0;
  TIFFWriteCustomDirectory(tif, &exifOffset);
  TIFFFreeDirectory(tif);
  TIFFCreateDirectory(tif);

  const bool withPreview = dng.previewWidth > 0 && dng.previewHeight > 0;
  auto writeMakeAndModel = [&] {
    TIFFSetField(tif, TIFFTAG_MAKE, dng.make.c_str());
    TIFFSetField(tif, TIFFTAG_MODEL, dng.model.c_str());
  };
  auto writeCameraTags = [&] {
    if (!dng.cameraInRawDirectory) writeMakeAndModel();
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
    const auto [statedWidth, statedHeight] =
        dng.statedSize.value_or(std::pair(uint32_t(dng.width), uint32_t(dng.height)));
    const int channels = dng.linearRaw ? 3 : 1;
    setAll({{TIFFTAG_SUBFILETYPE, 0},
            {TIFFTAG_IMAGEWIDTH, int(statedWidth)},
            {TIFFTAG_IMAGELENGTH, int(statedHeight)},
            {TIFFTAG_BITSPERSAMPLE, 16},
            {TIFFTAG_SAMPLESPERPIXEL, channels},
            {TIFFTAG_COMPRESSION, COMPRESSION_NONE},
            {TIFFTAG_PHOTOMETRIC, dng.linearRaw ? 34892 /* linear raw */ : 32803 /* colour filter array */},
            {TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG},
            {TIFFTAG_ROWSPERSTRIP, int(statedHeight)}});
    if (!dng.linearRaw) {
      static const uint16_t repeat[2] = {2, 2};
      static const uint8_t pattern[4] = {0, 1, 1, 2};  // RGGB
      TIFFSetField(tif, TIFFTAG_CFAREPEATPATTERNDIM, repeat);
      TIFFSetField(tif, TIFFTAG_CFAPATTERN, 4, pattern);
    }
    uint32_t white = static_cast<uint32_t>(dng.whiteLevel);
    if (dng.dngTags) TIFFSetField(tif, TIFFTAG_WHITELEVEL, 1, &white);
    if (dng.cameraInRawDirectory) writeMakeAndModel();
    if (dng.cropWidth > 0) {
      const float size[2] = {float(dng.cropWidth), float(dng.cropHeight)};
      const float origin[2] = {float(dng.width - dng.cropWidth) / 2, float(dng.height - dng.cropHeight) / 2};
      TIFFSetField(tif, TIFFTAG_DEFAULTCROPORIGIN, origin);
      TIFFSetField(tif, TIFFTAG_DEFAULTCROPSIZE, size);
    }
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
    std::string jpeg = gradientJpeg(dng.previewWidth, dng.previewHeight);
    writeCameraTags();
    setAll({{TIFFTAG_SUBFILETYPE, FILETYPE_REDUCEDIMAGE},
            {TIFFTAG_IMAGEWIDTH, dng.previewWidth},
            {TIFFTAG_IMAGELENGTH, dng.previewHeight},
            {TIFFTAG_BITSPERSAMPLE, 8},
            {TIFFTAG_SAMPLESPERPIXEL, 3},
            {TIFFTAG_COMPRESSION, COMPRESSION_JPEG},
            {TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_YCBCR},
            {TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG},
            {TIFFTAG_ROWSPERSTRIP, dng.previewHeight}});
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

}  // namespace lumivale::diagnostics
