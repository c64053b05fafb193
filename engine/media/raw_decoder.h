#pragma once
// Camera RAW files developed into the working space: what the file says
// about how to develop it, and its sensor data as linear colour.
//
// LibRaw reads the container and unpacks (decompresses) the sensor data. For
// the common sensors (a 2 × 2 Bayer colour filter of red, two greens and
// blue) the development after that is ours, spread over all cores, because
// LibRaw's own runs on one core and takes several times as long:
//   1. each sample less the black level of its site, divided by the range up
//      to the white level (the sensor's clipping point: 1.0);
//   2. the camera's white balance as shot, the multipliers scaled so that
//      the smallest is 1: a neutral that clips in every channel stays 1.0;
//   3. the colour filter pattern interpolated: at half size each 2 × 2 block
//      of sites becomes one pixel; at full size gradient-corrected bilinear
//      interpolation (Malvar, He and Cutler, 2004) on 5 × 5 neighbourhoods;
//   4. highlights where some channel reached its clipping point keep their
//      lightness and the hue of the unclipped data but only the chroma left
//      after clipping at the neutral white, so they turn white, not magenta;
//   5. the camera's colour matrix (LibRaw's: the file's own for DNG, else its
//      table of the makers' matrices) from camera RGB to linear sRGB.
// Other sensors (X-Trans, Foveon, linear DNG, four colours) go through
// LibRaw's own processing with the same choices (camera white balance, its
// matrix, linear 16-bit output, highlights blended) and the same scaling.
//
// The result is 3-band float linear extended-range sRGB (see
// engine/render/how_it_works.md), scene-referred: 1.0 is a neutral at the
// sensor's clipping point, nothing is tone-mapped, brightened or sharpened.
// Its frame is the camera's own crop when the file states one (the frame of
// the camera's JPEG), else LibRaw's visible area, as stored: the
// orientation is reported, not applied.
//
// Every call opens its own reader, so calls may run on several threads.
// Memory is bounded by LibRaw's limit on the unpacked sensor data and by a
// limit on the developed frame (`maxPixels`).

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "engine/media/image.h"

namespace lumivale {

/// What a RAW file's header says about developing it.
struct RawFacts {
  int width = 0;  ///< pixels of the developed frame, as stored (before `orientation`)
  int height = 0;
  int orientation = 1;  ///< EXIF orientation 1 to 8
  /// Camera maker and model, LibRaw's normalised names first ("Canon",
  /// "EOS 30D"), then the file's own texts when they differ ("Canon",
  /// "Canon EOS 30D"): the names a lens database may know the body by.
  std::vector<std::pair<std::string, std::string>> cameraNames;
  /// Every distinct lens name the file carries (LibRaw's lens data, the
  /// EXIF lens model, the maker's lens tag as exiv2 names it), most
  /// specific first; empty when none is known.
  std::vector<std::string> lensNames;
  double focal = 0;          ///< millimetres; 0 when unknown
  double fNumber = 0;        ///< 0 when unknown
  double focusDistance = 0;  ///< metres; 0 when unknown
  double iso = 0;
  /// The camera's baseline exposure in EV (DNG BaselineExposure), when the
  /// file carries one: how much brighter than its raw values the camera
  /// means its pictures to look.
  std::optional<double> baselineExposure;

  bool operator==(const RawFacts&) const = default;
};

struct RawDevelopOptions {
  /// Each 2 × 2 block of sensor sites becomes one pixel: half the width and
  /// height, no interpolation.
  bool halfSize = false;
  /// LibRaw's own (slower) processing even for a Bayer sensor, for
  /// comparing the two.
  bool libRawProcessing = false;
  bool operator==(const RawDevelopOptions&) const = default;
};

namespace RawDecoder {

/// Developed frames larger than this are refused (a damaged header can state
/// any size): 400 megapixels.
inline constexpr std::int64_t maxPixels = 400'000'000;

/// Reads the header (nothing is unpacked). Nothing when LibRaw does not read
/// the file as a RAW container or its frame is empty. Never throws.
std::optional<RawFacts> facts(const std::filesystem::path& file);

/// Unpacks and develops the sensor data as described above, `facts(file)`'s
/// frame (halved and rounded down with `halfSize`). Throws ImageError when
/// the file cannot be read, is not a RAW file, or its data is damaged or cut
/// short.
Image develop(const std::filesystem::path& file, const RawDevelopOptions& options);

}  // namespace RawDecoder
}  // namespace lumivale
