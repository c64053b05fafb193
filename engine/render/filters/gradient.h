#pragma once
// Generated grey ramps, made directly at the size they are needed. Positions
// are in pixels of the generated image, origin top-left; each pixel is
// evaluated at its centre (x + 0.5, y + 0.5). The result is 1-band float.

#include "engine/edit/geometry.h"
#include "engine/media/image.h"

namespace lumivale::filters {

/// `value0` up to p0, `value1` from p1 on, linear in between along the
/// projection of the pixel onto the line p0 → p1. p0 = p1 gives `value1`
/// everywhere (every pixel counts as beyond p1).
Image linearGradient(int width, int height, Point p0, double value0, Point p1, double value1);

/// An elliptical ramp around `centre`: with d = the distance from the
/// centre in a space scaled by 1 / radiusX horizontally and 1 / radiusY
/// vertically, `value0` for d ≤ r0, `value1` for d ≥ r1, linear in d between
/// (for r1 ≤ r0 the step is at r0). Radii below 1e-9 count as 1e-9.
Image radialGradient(int width, int height, Point centre, double radiusX, double radiusY, double r0,
                     double value0, double r1, double value1);

}  // namespace lumivale::filters
