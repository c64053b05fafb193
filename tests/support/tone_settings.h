#pragma once
// Settings with every stage of the tone mapping switched on, black and white
// excepted (it would hide the colour work before it): for the tone tests and
// the tone benchmarks alike.

#include "engine/edit/edit_settings.h"

namespace lumivale::test {

inline EditSettings everyToneStage() {
  EditSettings s;
  s.temperature = 18, s.tint = -7;
  s.whites = 12, s.blacks = -9, s.highlights = -35, s.shadows = 28, s.contrast = 24;
  s.curveRGB.points = {{0, 0.03}, {0.25, 0.22}, {0.5, 0.53}, {0.75, 0.8}, {1, 0.97}};
  s.curveRed.points = {{0, 0}, {0.3, 0.27}, {0.7, 0.74}, {1, 1}};
  s.curveGreen.points = {{0, 0.02}, {0.5, 0.52}, {1, 0.98}};
  s.curveBlue.points = {{0, 0.05}, {0.3, 0.25}, {0.7, 0.75}, {1, 0.95}};
  s.hsl = {{10, -20, 5},  {-15, 10, 8}, {20, 15, -5},  {-30, 25, 10},
           {12, -10, -8}, {25, 20, 5},  {-18, 12, -6}, {8, -5, 4}};
  s.vibrance = 25, s.saturation = 10;
  s.gradeShadows = {210, 20, -5};
  s.gradeMidtones = {40, 10, 3};
  s.gradeHighlights = {55, 15, 4};
  s.gradeBlending = 60, s.gradeBalance = -10;
  return s;
}

}  // namespace lumivale::test
