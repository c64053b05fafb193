#pragma once
// Automatic lens correction with lensfun's database: vignetting, lateral
// chromatic aberration (TCA) and distortion, for the camera body and lens a
// RAW file names.
//
// The correction works on the frame as the sensor recorded it (before the
// orientation is applied), at whatever size it was decoded: lensfun's
// models use coordinates relative to the frame, so one profile fits every
// scale. Vignetting is a gain on the linear data at each pixel; distortion
// and TCA move pixels, each output pixel taking red, green and blue from
// where lensfun's modifier says they came from, sampled bilinearly. The
// picture is then enlarged just enough (lensfun's automatic scale) that no
// corner is left empty. The database is loaded once per process; lookups
// and corrections may run on several threads at once.

#include <optional>
#include <string>

#include "engine/media/image.h"
#include "engine/media/raw_decoder.h"

namespace lumivale::LensCorrection {

/// The profile found for a file, for display and tests.
struct Profile {
  std::string camera;  ///< lensfun's maker and model of the body
  std::string lens;    ///< lensfun's model of the lens
  bool distortion = false;
  bool tca = false;
  bool vignetting = false;
  bool operator==(const Profile&) const = default;
};

/// The camera body and lens as lensfun knows them, when it knows both and
/// has at least one calibration (distortion, TCA or vignetting) for the
/// lens. Tries each of the file's camera and lens names in turn.
std::optional<Profile> profile(const RawFacts& facts);

/// True when `profile(facts)` finds one.
bool available(const RawFacts& facts);

/// `image` (the frame at any size, not yet oriented) corrected; the image
/// itself when no profile is found. Lazy, apart from the correction tables.
/// Throws ImageError.
Image apply(const Image& image, const RawFacts& facts);

}  // namespace lumivale::LensCorrection
