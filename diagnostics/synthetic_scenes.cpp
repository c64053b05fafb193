#include "diagnostics/synthetic_scenes.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "engine/render/color_math.h"

namespace lumivale::diagnostics {
namespace {

// An sRGB-encoded colour, the way the scenes are designed.
struct Encoded {
  double r = 0, g = 0, b = 0;
};

Encoded mix(const Encoded& a, const Encoded& b, double t) {
  return {a.r + (b.r - a.r) * t, a.g + (b.g - a.g) * t, a.b + (b.b - a.b) * t};
}

double smoothstep(double edge0, double edge1, double x) {
  const double t = std::clamp((x - edge0) / (edge1 - edge0), 0.0, 1.0);
  return t * t * (3 - 2 * t);
}

// A fixed hash of a lattice point to 0 … 1: the same everywhere.
double lattice(int x, int y, std::uint32_t seed) {
  std::uint32_t h = std::uint32_t(x) * 0x8da6b343u ^ std::uint32_t(y) * 0xd8163841u ^ seed * 0xcb1ab31fu;
  h ^= h >> 13;
  h *= 0x5bd1e995u;
  h ^= h >> 15;
  return double(h & 0xffffff) / double(0xffffff);
}

// Smooth value noise at (u, v) with `cells` lattice cells across.
double valueNoise(double u, double v, double cells, std::uint32_t seed) {
  const double x = u * cells, y = v * cells;
  const int x0 = int(std::floor(x)), y0 = int(std::floor(y));
  const double fx = smoothstep(0, 1, x - x0), fy = smoothstep(0, 1, y - y0);
  const double top = lattice(x0, y0, seed) + (lattice(x0 + 1, y0, seed) - lattice(x0, y0, seed)) * fx;
  const double bottom =
      lattice(x0, y0 + 1, seed) + (lattice(x0 + 1, y0 + 1, seed) - lattice(x0, y0 + 1, seed)) * fx;
  return top + (bottom - top) * fy;
}

// Upper half a continuous ramp, lower half eleven even steps, both even in
// the encoded value, so that each tenth of the way looks like an equal step.
Encoded greyRamp(double u, double v) {
  const double g = v < 0.5 ? u : std::min(std::floor(u * 11) / 10, 1.0);
  return {g, g, g};
}

// Six by four patches on a dark surround: skin and foliage tones, the six
// primaries and secondaries at two strengths, and a row of greys.
Encoded colorPatches(double u, double v, double aspect) {
  static const Encoded patches[24] = {
      {0.45, 0.32, 0.27}, {0.76, 0.58, 0.50}, {0.38, 0.48, 0.61}, {0.35, 0.42, 0.26}, {0.51, 0.50, 0.69},
      {0.40, 0.74, 0.67}, {0.85, 0.49, 0.18}, {0.28, 0.36, 0.65}, {0.76, 0.33, 0.38}, {0.36, 0.24, 0.42},
      {0.62, 0.73, 0.25}, {0.88, 0.63, 0.17}, {0.90, 0.12, 0.10}, {0.12, 0.72, 0.16}, {0.10, 0.20, 0.88},
      {0.92, 0.86, 0.10}, {0.80, 0.20, 0.78}, {0.08, 0.66, 0.80}, {0.96, 0.96, 0.95}, {0.78, 0.78, 0.78},
      {0.62, 0.62, 0.62}, {0.47, 0.47, 0.47}, {0.33, 0.33, 0.33}, {0.20, 0.20, 0.20}};
  const Encoded surround{0.10, 0.10, 0.10};
  const double margin = 0.03;
  const double x = (u - margin) / (1 - 2 * margin) * 6;
  const double y = (v - margin * aspect) / (1 - 2 * margin * aspect) * 4;
  if (x < 0 || y < 0 || x >= 6 || y >= 4) return surround;
  const double fx = x - std::floor(x), fy = y - std::floor(y);
  if (fx < 0.08 || fx > 0.92 || fy < 0.08 || fy > 0.92) return surround;
  return patches[int(y) * 6 + int(x)];
}

// A blue sky brightening towards the horizon at 55 % of the height, over
// ground of grass and earth with texture at two scales.
Encoded skyOverGround(double u, double v) {
  const double horizon = 0.55 + 0.03 * std::sin(u * 6.2832 * 1.5);
  if (v < horizon) {
    const Encoded zenith{0.33, 0.52, 0.88}, haze{0.70, 0.80, 0.94};
    return mix(zenith, haze, smoothstep(0, horizon, v));
  }
  const Encoded grass{0.30, 0.45, 0.16}, earth{0.48, 0.36, 0.22};
  const double patchiness = valueNoise(u, v, 6, 1);
  const double grain = valueNoise(u, v, 90, 2) - 0.5;
  Encoded ground = mix(grass, earth, smoothstep(0.45, 0.75, patchiness));
  const double shade = 1 + 0.35 * grain - 0.25 * (1 - (v - horizon) / (1 - horizon));
  return {ground.r * shade, ground.g * shade, ground.b * shade};
}

// A head and shoulders in front of a soft background: a skin-toned oval with
// darker hair above it and a coloured garment below.
Encoded portrait(double u, double v, double aspect) {
  const Encoded backdrop = mix({0.42, 0.47, 0.52}, {0.22, 0.25, 0.30}, v);
  // Distances in units of the picture's height, so the oval stays an oval.
  const double px = (u - 0.5) / aspect;
  auto ellipse = [&](double cx, double cy, double rx, double ry) {
    const double dx = (px - cx) / rx, dy = (v - cy) / ry;
    return dx * dx + dy * dy;
  };
  const double hair = ellipse(0, 0.40, 0.17, 0.22);
  const double face = ellipse(0, 0.47, 0.13, 0.18);
  const double body = ellipse(0, 1.02, 0.34, 0.36);
  if (face <= 1) {
    const double light = 1 - 0.18 * face + 0.05 * (valueNoise(u, v, 40, 3) - 0.5);
    return {0.86 * light, 0.64 * light, 0.52 * light};
  }
  if (hair <= 1) return {0.20, 0.13, 0.09};
  if (body <= 1) {
    const double fold = 0.9 + 0.1 * valueNoise(u, v, 12, 4);
    return {0.16 * fold, 0.34 * fold, 0.58 * fold};
  }
  return backdrop;
}

}  // namespace

std::string_view key(Scene scene) {
  switch (scene) {
    case Scene::greyRamp:
      return "grey-ramp";
    case Scene::colorPatches:
      return "colour-patches";
    case Scene::skyOverGround:
      return "sky-over-ground";
    case Scene::portrait:
      return "portrait";
  }
  return "scene";
}

FloatPixels scenePixels(Scene scene, int width, int height) {
  width = std::max(width, 1);
  height = std::max(height, 1);
  const double aspect = double(width) / height;
  FloatPixels pixels{width, height, 3, std::vector<float>(std::size_t(width) * height * 3)};
  for (int y = 0; y < height; ++y) {
    const double v = (y + 0.5) / height;
    for (int x = 0; x < width; ++x) {
      const double u = (x + 0.5) / width;
      Encoded c;
      switch (scene) {
        case Scene::greyRamp:
          c = greyRamp(u, v);
          break;
        case Scene::colorPatches:
          c = colorPatches(u, v, aspect);
          break;
        case Scene::skyOverGround:
          c = skyOverGround(u, v);
          break;
        case Scene::portrait:
          c = portrait(u, v, aspect);
          break;
      }
      float* p = &pixels.values[(std::size_t(y) * width + x) * 3];
      p[0] = float(srgbDecode(std::clamp(c.r, 0.0, 1.0)));
      p[1] = float(srgbDecode(std::clamp(c.g, 0.0, 1.0)));
      p[2] = float(srgbDecode(std::clamp(c.b, 0.0, 1.0)));
    }
  }
  return pixels;
}

Image sceneImage(Scene scene, int width, int height) {
  return Image::fromPixels(scenePixels(scene, width, height));
}

Bitmap sceneBitmap(Scene scene, int width, int height) {
  return toBitmap(sceneImage(scene, width, height), ColorSpace::sRGB, 8);
}

}  // namespace lumivale::diagnostics
