#include "engine/render/mask_renderer.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>

namespace lumivale::MaskRenderer {

namespace {

// Squared distances are compared with these margins before any square root is
// taken: a pixel beyond R² (1 + margin) is certainly outside the disc, one
// below inner² (1 − margin) certainly inside the solid core. Everything in
// between goes through the exact test on sqrt(d²), so the bytes are the same
// as if every pixel of the box took its square root.
constexpr double cullMargin = 1e-9;

double smooth(double t) {
  t = std::clamp(t, 0.0, 1.0);
  return t * t * (3 - 2 * t);
}

// byte / 255 for every byte, the same doubles the division gives.
const std::array<double, 256>& byteFractions() {
  static const std::array<double, 256> table = [] {
    std::array<double, 256> t{};
    for (int b = 0; b < 256; ++b) t[std::size_t(b)] = b / 255.0;
    return t;
  }();
  return table;
}

// std::round (halves away from zero) of v limited to 0 … 255, without the
// library call: for 0 ≤ v < 256 the truncation is the floor and v minus it is
// exact, so comparing that fraction with one half rounds exactly alike.
std::uint8_t roundedByte(double v) {
  v = std::clamp(v, 0.0, 255.0);
  const int whole = int(v);
  return std::uint8_t(whole + (v - whole >= 0.5 ? 1 : 0));
}

std::uint8_t blend(std::uint8_t byte, double a, bool erase, const std::array<double, 256>& fractions) {
  const double old = fractions[byte];
  const double now = erase ? (1 - a) * old : old + a * (1 - old);
  return roundedByte(now * 255);
}

// The first and last pixel index of the box [centre − R, centre + R] on an axis
// of n pixels, computed in doubles so that no huge value is ever converted to
// an int; false when the box misses the axis.
bool axisRange(double centre, double radius, int n, int& first, int& last) {
  const double lo = std::max(std::trunc(centre - radius), 0.0);
  const double hi = std::min(double(n - 1), std::trunc(centre + radius));
  if (!(lo <= hi)) return false;
  first = int(lo);
  last = int(hi);
  return true;
}

void paintDab(MaskBitmap& bitmap, const BrushDab& dab, double longSide) {
  if (!std::isfinite(dab.x) || !std::isfinite(dab.y) || !std::isfinite(dab.radius) ||
      !std::isfinite(dab.flow))
    return;
  const double radius = std::max(dab.radius * longSide, 0.5);
  if (!std::isfinite(radius)) return;
  const double cx = dab.x * bitmap.width;
  const double cy = dab.y * bitmap.height;
  int col0 = 0, col1 = 0, row0 = 0, row1 = 0;
  if (!axisRange(cx, radius, bitmap.width, col0, col1) || !axisRange(cy, radius, bitmap.height, row0, row1))
    return;

  const double feather = dab.feather > 0 ? std::min(dab.feather, 1.0) : 0.0;
  const double inner = radius * (1 - feather);
  const double outerCull = radius * radius * (1 + cullMargin);
  const double innerCull = inner * inner * (1 - cullMargin);
  const double flow = dab.flow;
  const bool erase = dab.erase;
  const std::array<double, 256>& fractions = byteFractions();
  // Inside the core every pixel gets the same strength.
  const double coreStrength = 1.0 * flow;

  for (int py = row0; py <= row1; ++py) {
    const double dy = (py + 0.5) - cy;
    const double dy2 = dy * dy;
    if (dy2 > outerCull) continue;
    std::uint8_t* row = bitmap.bytes.data() + std::size_t(py) * std::size_t(bitmap.width);
    for (int px = col0; px <= col1; ++px) {
      const double dx = (px + 0.5) - cx;
      const double d2 = dx * dx + dy2;
      if (d2 > outerCull) continue;
      double a = coreStrength;
      if (!(d2 < innerCull)) {
        const double d = std::sqrt(d2);
        if (d > radius) continue;
        if (d > inner) a = (1 - smooth((d - inner) / (radius - inner))) * flow;
      }
      row[px] = blend(row[px], a, erase, fractions);
    }
  }
}

}  // namespace

PixelSize brushBitmapSize(double aspect) {
  if (std::isnan(aspect)) aspect = 1;
  // Sides are worked out in doubles and limited before they become ints, so
  // extreme aspects cannot overflow.
  const auto side = [](double s) {
    return int(std::clamp(std::trunc(s), double(brushMinSide), double(brushLongSide)));
  };
  if (aspect >= 1) return {brushLongSide, side(brushLongSide / aspect)};
  return {side(aspect * brushLongSide), brushLongSide};
}

MaskBitmap paint(std::span<const BrushDab> dabs, int width, int height) {
  MaskBitmap bitmap(width, height);
  if (bitmap.bytes.empty()) return bitmap;
  const double longSide = std::max(bitmap.width, bitmap.height);
  for (const BrushDab& dab : dabs) paintDab(bitmap, dab, longSide);
  return bitmap;
}

}  // namespace lumivale::MaskRenderer
