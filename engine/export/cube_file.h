#pragma once
// A tone cube as a standard .cube 3D LUT text file, so a look made here can
// be used in video editors and other tools.
//
// The file holds exactly the renderer's cube: input coordinates are linear
// light in a plain 2.2 gamma (scaled by 1/4 first in the scene domain),
// output values are the mapped linear light raised to 1/2.2. Both are said
// in the file's comments, since .cube has no field for a transfer curve.

#include <filesystem>
#include <string>
#include <vector>

#include "engine/render/tone_lut.h"

namespace lumivale::CubeFile {

/// The smallest and largest number of points per axis a file may have.
inline constexpr int smallestSize = 2;
inline constexpr int largestSize = 129;

/// The .cube text of `cube` (RGBA entries, red fastest, as `ToneLUT::cube`
/// makes them) with `size` points per axis; `source` names what it was made
/// from in the title and comments (quotes and control characters are
/// replaced there).
std::string text(const std::vector<float>& cube, int size, LUTDomain domain, const std::string& source);

/// Writes `text` as a new file, complete or not at all, never over an
/// existing file unless `replaceExisting`. Throws FileExistsError or
/// MediaError (see `writeFileSafely`).
void write(const std::filesystem::path& file, const std::string& text, bool replaceExisting = false);

}  // namespace lumivale::CubeFile
