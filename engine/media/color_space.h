#pragma once
// The RGB colour spaces pictures are written in, by name, and the working
// space they are converted from.
//
// The working space of decoders and the renderer is linear extended-range
// sRGB: Rec. 709 primaries, D65 white, no transfer curve, values outside
// 0 … 1 kept. Each named space is defined by its primaries, its white (D65
// for all three) and its transfer curve, and its ICC profile is built from
// exactly those with lcms2, so a picture written in a space and read back
// through its profile gives the colours it was written from. All functions
// are pure and thread-safe.

#include <array>
#include <cstdint>
#include <string_view>
#include <vector>

namespace lumivale {

enum class ColorSpace {
  sRGB,       ///< IEC 61966-2.1: Rec. 709 primaries, the sRGB curve
  displayP3,  ///< DCI-P3 primaries with a D65 white, the sRGB curve
  adobeRGB,   ///< Adobe RGB (1998): wider greens, a pure gamma of 563/256
};

inline constexpr std::array<ColorSpace, 3> allColorSpaces = {ColorSpace::sRGB, ColorSpace::displayP3,
                                                             ColorSpace::adobeRGB};

/// Chromaticities (CIE xy) of the three primaries and the white.
struct Primaries {
  double redX, redY, greenX, greenY, blueX, blueY, whiteX, whiteY;
};

/// A 3 × 3 matrix, row by row, applied to column vectors (r, g, b).
using Matrix3 = std::array<double, 9>;

Primaries primariesOf(ColorSpace space);

/// The description written into the space's ICC profile: "sRGB
/// IEC61966-2.1", "Display P3" or "Adobe RGB (1998)".
std::string_view profileDescription(ColorSpace space);

/// The space's ICC profile (version 4, RGB display class, matrix and
/// parametric curves, its description in 'desc'); built once per process.
const std::vector<std::uint8_t>& iccProfile(ColorSpace space);

/// The matrix from linear working-space RGB to the space's linear RGB
/// (the identity for sRGB). Both whites are D65, so no adaptation is needed.
Matrix3 linearFromWorking(ColorSpace space);

/// The space's transfer curve, linear to encoded. Defined for all inputs:
/// negative values and NaN give 0; values above 1 continue the curve.
double encodeTransfer(ColorSpace space, double linear);

/// The inverse curve, encoded to linear, with the same conventions.
double decodeTransfer(ColorSpace space, double encoded);

/// The RGB → XYZ matrix of a set of primaries (white scaled to Y = 1).
Matrix3 rgbToXyz(const Primaries& primaries);
Matrix3 multiply(const Matrix3& a, const Matrix3& b);
Matrix3 inverse(const Matrix3& m);

}  // namespace lumivale
