#pragma once
// Decoded samples into the working space (linear extended-range sRGB, see
// color_space.h), through the ICC profile the file carries. Internal to
// engine/media: it includes libvips.
//
// Profiles are read with lcms2 and converted with the relative colorimetric
// intent. A matrix-shaper profile (what cameras, phones and editors embed:
// sRGB, Display P3, Adobe RGB, ProPhoto) is applied directly: each channel
// through its tone curve, tabulated per possible 8- or 16-bit sample value,
// then one 3 × 3 matrix from the profile's colorants to the working space's,
// which is the arithmetic lcms2 performs for such a pair of profiles,
// without its clipping. Every other profile (CMYK, look-up-table RGB or
// grey) goes through an lcms2 floating-point transform.

#include <cstdint>
#include <string>
#include <vector>
#include <vips/vips8>

namespace lumivale::media_detail {

/// What the samples are.
enum class SampleModel { grey, rgb, cmyk };

/// `samples`: 1 (grey), 3 (RGB) or 4 (CMYK) bands of uchar, ushort or float
/// samples, no alpha. `profile`: the ICC profile embedded in the file, or
/// empty: then grey and RGB are read as sRGB and CMYK through a generic
/// press profile. A profile that cannot be read or does not describe the
/// samples is ignored the same way, and `warning` says so. Returns 3-band
/// float linear extended-range sRGB without metadata, lazily. Throws
/// vips::VError.
vips::VImage importToWorking(const vips::VImage& samples, SampleModel model,
                             const std::vector<std::uint8_t>& profile, std::string& warning);

}  // namespace lumivale::media_detail
