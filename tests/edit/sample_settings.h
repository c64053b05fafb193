#pragma once
// Records for the edit-model tests: every field away from its default, four
// shaped curves and masks of every kind.

#include "engine/edit/edit_settings.h"

namespace lumivale::test {

inline PhotoMask sampleMask(MaskKind kind, int seed) {
  PhotoMask m(kind);
  m.invert = seed % 2 == 1;
  m.opacity = 0.25 + 0.1 * seed;
  m.adjust = {0.5 * seed, -10.0 + seed, 20, -30, 5.5, -7, 12, -0.125 * seed};
  m.x0 = 0.1, m.y0 = 0.2, m.x1 = 0.7, m.y1 = 0.9;
  m.cx = 0.33, m.cy = 0.66, m.rx = 0.125, m.ry = 0.4, m.feather = 0.75;
  for (int i = 0; i < 3 + seed; ++i) {
    m.dabs.push_back({0.01 * i, 1 - 0.01 * i, 0.05, 0.5, 0.8, i % 3 == 0});
  }
  if (isSmart(kind)) {
    m.maskPNG = std::vector<std::uint8_t>{};
    for (int i = 0; i < 100 + seed; ++i) m.maskPNG->push_back(static_cast<std::uint8_t>(i * 7 + seed));
  }
  return m;
}

inline EditSettings richSettings() {
  EditSettings s;
  s.version = 3;
  s.temperature = 12.5, s.tint = -3, s.exposure = 0.35, s.contrast = 22, s.highlights = -41;
  s.shadows = 17, s.whites = 8, s.blacks = -9, s.vibrance = 30, s.saturation = -4.25;
  s.blackAndWhite = true;
  s.curveRGB.points = {{0, 0.05}, {0.25, 0.22}, {0.5, 0.55}, {0.75, 0.8}, {1, 0.97}};
  s.curveRed.points = {{0.1, 0.0}, {0.6, 0.7}};
  s.curveGreen.points = {{0.4, 0.45}, {0, 0}, {1, 1}};
  s.curveBlue.points = {{0, 0.1}, {0.3, 0.2}, {0.7, 0.75}, {1, 0.9}};
  for (std::size_t i = 0; i < s.hsl.size(); ++i) s.hsl[i] = {i * 1.5, -2.0 * i, 0.1 * i};
  s.gradeShadows = {220, 20, -5}, s.gradeMidtones = {10, 5, 1}, s.gradeHighlights = {40, 25, 3};
  s.gradeBlending = 60, s.gradeBalance = -12;
  s.sharpenAmount = 40, s.sharpenRadius = 1.4, s.noiseLuminance = 20, s.noiseColor = 25;
  s.lensCorrection = false;
  s.vignetteAmount = -20, s.vignetteMidpoint = 40, s.vignetteFeather = 70, s.grainAmount = 15,
  s.grainSize = 33;
  s.rotateQuarterTurns = 3, s.flipHorizontal = true, s.flipVertical = true, s.straighten = -2.75;
  s.crop = {0.1, 0.05, 0.8, 0.85};
  s.cropAspect = "16 : 9";
  s.masks = {sampleMask(MaskKind::brush, 0), sampleMask(MaskKind::linear, 1), sampleMask(MaskKind::radial, 2),
             sampleMask(MaskKind::subject, 3), sampleMask(MaskKind::sky, 4)};
  s.masks[0].name = "Dodge \"eyes\" \u2192 brighter / \\ \t";
  return s;
}

}  // namespace lumivale::test
