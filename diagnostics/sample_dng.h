#pragma once
// Small DNG files made in memory and written with libtiff: a 16-bit CFA (or
// linear) raw image with its camera tags and an EXIF directory, optionally
// behind a JPEG preview, in the form LibRaw reads. The self-test decodes one
// to check the RAW path; the tests make the many odd variants they need.

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace lumivale::diagnostics {

/// An EXIF rational.
struct Rational {
  std::int32_t numerator = 0;
  std::int32_t denominator = 1;
};

/// A DNG file's content.
struct SampleDng {
  int width = 64;
  int height = 48;
  std::string make = "Lumivale";
  std::string model = "Test Camera";
  std::string lens = "Test 35mm F2";
  Rational exposure{1, 125};
  Rational fNumber{28, 10};
  int iso = 400;
  Rational focal{35, 1};
  std::string dateTimeOriginal = "2023:06:01 12:34:56";
  int orientation = 1;
  /// A JPEG preview of this size in IFD0 (the raw then in a SubIFD); none when 0.
  int previewWidth = 0;
  int previewHeight = 0;
  /// False leaves out DNGVersion and the DNG colour tags: a plain TIFF-based
  /// raw file as some makers write it.
  bool dngTags = true;
  /// The RGGB samples, row by row (width × height); a gradient when empty.
  /// With `linearRaw`, three samples per pixel (RGB in camera space).
  std::vector<std::uint16_t> samples;
  /// A demosaiced ("linear raw") image instead of a colour filter array.
  bool linearRaw = false;
  int blackLevel = 0;
  int whiteLevel = 4095;
  /// ColorMatrix1 (XYZ to camera, D65) and the camera's neutral as shot.
  std::vector<float> colorMatrix = {0.9f, -0.3f, -0.1f, -0.4f, 1.2f, 0.2f, -0.1f, 0.2f, 0.6f};
  std::vector<float> asShotNeutral = {0.5f, 1.0f, 0.7f};
  std::optional<double> baselineExposure;
  /// EXIF SubjectDistance in metres; not written when unset.
  std::optional<double> subjectDistance;
  /// The size the raw image's tags state, when it should differ from the
  /// samples written (a damaged file).
  std::optional<std::pair<std::uint32_t, std::uint32_t>> statedSize;
  /// True writes the make and model in the raw image's directory only, not
  /// in IFD0 (which then describes the preview).
  bool cameraInRawDirectory = false;
  /// The DefaultCropSize of the raw image; not written when 0.
  int cropWidth = 0;
  int cropHeight = 0;
  /// The EXIF PixelXDimension and PixelYDimension; not written when 0.
  int exifWidth = 0;
  int exifHeight = 0;
};

/// RGGB samples for `dng`'s size, levels and neutral: `level(x, y, colour)`
/// is the light a site receives, 0 … 1 of the range above black, colour 0
/// red, 1 green, 2 blue. `sceneGrey` gives a grey of that level in the scene
/// as the camera's sites record it (each colour times the neutral).
std::vector<std::uint16_t> cfaSamples(const SampleDng& dng,
                                      const std::function<double(int x, int y, int colour)>& level);
std::vector<std::uint16_t> sceneGrey(const SampleDng& dng, double level);

/// Writes a DNG with a 16-bit RGGB CFA raw image (or a linear one) as a new
/// file at `file`, creating its folder. Throws std::runtime_error when the
/// file exists already or cannot be written.
void writeDng(const std::filesystem::path& file, const SampleDng& dng = {});

}  // namespace lumivale::diagnostics
