#pragma once
// Pictures the diagnostics make in memory, so that they need no photo files:
// a grey ramp, colour patches, a sky over textured ground and a portrait-like
// oval. Each is drawn from unit coordinates, so a scene looks the same at
// every size, and from a fixed hash instead of a random generator, so the
// same size always gives the same pixels on every computer.
//
// Pixels are in the working space: linear sRGB, 0 … 1.

#include <array>
#include <string_view>

#include "engine/media/bitmap.h"
#include "engine/media/image.h"

namespace lumivale::diagnostics {

enum class Scene { greyRamp, colorPatches, skyOverGround, portrait };

/// Every scene, in the order the snapshots show them.
inline constexpr std::array<Scene, 4> allScenes = {Scene::greyRamp, Scene::colorPatches, Scene::skyOverGround,
                                                   Scene::portrait};

/// The scene's name in file names: "grey-ramp", "colour-patches",
/// "sky-over-ground", "portrait".
std::string_view key(Scene scene);

/// The scene as `width` × `height` float pixels (3 bands, linear). A size
/// below 1 counts as 1.
FloatPixels scenePixels(Scene scene, int width, int height);

/// The same as an image in memory.
Image sceneImage(Scene scene, int width, int height);

/// The scene as an 8-bit sRGB picture, as the smart masks take it.
Bitmap sceneBitmap(Scene scene, int width, int height);

}  // namespace lumivale::diagnostics
