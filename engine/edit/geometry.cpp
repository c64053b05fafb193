#include "engine/edit/geometry.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <numbers>

#include "engine/edit/edit_settings.h"

namespace lumivale {

namespace {

constexpr double tolerance = 1e-9;
constexpr double smallestCropFraction = 0.02;
constexpr int fitSteps = 40;

// min(max(v, low), high) with NaN taken as `nanValue`.
double clampOr(double v, double low, double high, double nanValue) {
  if (std::isnan(v)) return nanValue;
  return std::min(std::max(v, low), high);
}

Rect scaledAboutCentre(const Rect& r, double scale) {
  const double width = r.width * scale;
  const double height = r.height * scale;
  return {r.midX() - width / 2, r.midY() - height / 2, width, height};
}

// Whether every corner of `r`, turned back by the straighten angle about the
// frame's centre, lands inside the frame (with half a pixel to spare): then
// the crop shows no corner outside the straightened image.
bool insideRotatedFrame(const Rect& r, Size frame, double c, double s) {
  const double cx = frame.width / 2;
  const double cy = frame.height / 2;
  const std::array<Point, 4> corners{
      {{r.minX(), r.minY()}, {r.maxX(), r.minY()}, {r.minX(), r.maxY()}, {r.maxX(), r.maxY()}}};
  for (const Point& p : corners) {
    const double dx = p.x - cx;
    const double dy = p.y - cy;
    const double x = cx + c * dx + s * dy;
    const double y = cy - s * dx + c * dy;
    if (!(x >= -0.5 && x <= frame.width + 0.5 && y >= -0.5 && y <= frame.height + 0.5)) return false;
  }
  return true;
}

}  // namespace

// ---- Affine ----

Affine Affine::rotation(double angleRad) {
  const double c = std::cos(angleRad);
  const double s = std::sin(angleRad);
  return {c, s, -s, c, 0, 0};
}

Affine Affine::appending(const Affine& t) const {
  // Apply this, then t: substitute this transform's output into t.
  return {t.a * a + t.c * b, t.b * a + t.d * b,          t.a * c + t.c * d,
          t.b * c + t.d * d, t.a * tx + t.c * ty + t.tx, t.b * tx + t.d * ty + t.ty};
}

// ---- CropRect ----

bool CropRect::isFull() const {
  return std::abs(x) < tolerance && std::abs(y) < tolerance && std::abs(w - 1) < tolerance &&
         std::abs(h - 1) < tolerance;
}

CropRect CropRect::clamped() const {
  CropRect r;
  r.w = clampOr(w, smallestCropFraction, 1, smallestCropFraction);
  r.h = clampOr(h, smallestCropFraction, 1, smallestCropFraction);
  r.x = clampOr(x, 0, 1 - r.w, 0);
  r.y = clampOr(y, 0, 1 - r.h, 0);
  return r;
}

// ---- CropAspect ----

namespace CropAspect {

const std::vector<std::string>& names() {
  static const std::vector<std::string> list{"Free",  "Original", "1 : 1",  "4 : 5",   "5 : 7",
                                             "2 : 3", "3 : 4",    "16 : 9", "16 : 10", "3 : 2 (wide)"};
  return list;
}

std::optional<double> ratio(std::string_view name, Size frame) {
  if (name == "Free") return std::nullopt;
  if (name == "Original") return frame.width / std::max(frame.height, 1.0);
  if (name == "1 : 1") return 1.0;

  // Any other title: the first two runs of digits are width and height.
  std::vector<double> numbers;
  std::size_t i = 0;
  while (i < name.size() && numbers.size() < 2) {
    if (name[i] < '0' || name[i] > '9') {
      ++i;
      continue;
    }
    const std::size_t start = i;
    while (i < name.size() && name[i] >= '0' && name[i] <= '9') ++i;
    double v = 0;
    const auto result = std::from_chars(name.data() + start, name.data() + i, v);
    if (result.ec == std::errc()) numbers.push_back(v);
  }
  if (numbers.size() < 2 || !(numbers[1] > 0)) return std::nullopt;
  double r = numbers[0] / numbers[1];
  // The menu offers each aspect once; it turns with the frame, so "2 : 3"
  // and "3 : 2 (wide)" agree on a given photo.
  const bool landscape = frame.height <= frame.width;
  if ((landscape && r < 1) || (!landscape && r >= 1)) r = 1 / r;
  return r;
}

CropRect centered(std::string_view name, Size frame) {
  const auto r = ratio(name, frame);
  if (!r) return CropRect::full();
  const double f = frame.width / std::max(frame.height, 1.0);
  CropRect crop;
  if (f < *r) {
    crop.w = 1;
    crop.h = f / *r;
    crop.x = 0;
    crop.y = (1 - crop.h) / 2;
  } else {
    crop.h = 1;
    crop.w = *r / f;
    crop.y = 0;
    crop.x = (1 - crop.w) / 2;
  }
  return crop;
}

}  // namespace CropAspect

// ---- PhotoGeometry ----

PhotoGeometry::PhotoGeometry(const EditSettings& settings, Size sourceSize, bool ignoreCrop)
    : source(sourceSize),
      quarterTurns(static_cast<int>(settings.rotateQuarterTurns & 3)),
      flipH(settings.flipHorizontal),
      flipV(settings.flipVertical) {
  const bool odd = (settings.rotateQuarterTurns & 1) != 0;
  frame = odd ? Size{source.height, source.width} : source;

  const double degrees = settings.straighten;
  if (std::isnan(degrees) || degrees >= 45) {
    angle = std::numbers::pi / 4;
  } else {
    angle = std::max(degrees, -45.0) * std::numbers::pi / 180;
  }

  if (ignoreCrop) {
    crop = {0, 0, frame.width, frame.height};
    return;
  }
  const CropRect normalised = settings.crop.clamped();
  const Rect pixels{normalised.x * frame.width, normalised.y * frame.height, normalised.w * frame.width,
                    normalised.h * frame.height};
  crop = fit(pixels, frame, angle);
}

Rect PhotoGeometry::fit(Rect rect, Size frame, double angleRad) {
  const double w = frame.width;
  const double h = frame.height;
  if (std::abs(angleRad) < tolerance) {
    Rect r;
    r.x = std::max(0.0, std::min(rect.minX(), w - 1));
    r.y = std::max(0.0, std::min(rect.minY(), h - 1));
    r.width = std::max(1.0, std::min(w - r.x, rect.width));
    r.height = std::max(1.0, std::min(h - r.y, rect.height));
    return r;
  }
  const double c = std::cos(angleRad);
  const double s = std::sin(angleRad);
  if (insideRotatedFrame(rect, frame, c, s)) return rect;

  double lo = 0;
  double hi = 1;
  for (int step = 0; step < fitSteps; ++step) {
    const double mid = (lo + hi) / 2;
    if (insideRotatedFrame(scaledAboutCentre(rect, mid), frame, c, s)) {
      lo = mid;
    } else {
      hi = mid;
    }
  }
  return scaledAboutCentre(rect, std::max(lo, smallestCropFraction));
}

Size PhotoGeometry::outputSize() const {
  return {std::max(std::round(crop.width), 1.0), std::max(std::round(crop.height), 1.0)};
}

Rect PhotoGeometry::cropRectCI() const {
  return {crop.minX(), frame.height - crop.maxY(), crop.width, crop.height};
}

Affine PhotoGeometry::orientTransform() const {
  double w = source.width;
  double h = source.height;
  Affine t;
  if (flipH) t = t.appending({-1, 0, 0, 1, w, 0});
  if (flipV) t = t.appending({1, 0, 0, -1, 0, h});
  for (int turn = 0; turn < quarterTurns; ++turn) {
    t = t.appending({0, -1, 1, 0, 0, w});
    std::swap(w, h);
  }
  return t;
}

Affine PhotoGeometry::straightenTransform() const {
  return Affine::translation(-frame.width / 2, -frame.height / 2)
      .appending(Affine::rotation(-angle))
      .appending(Affine::translation(frame.width / 2, frame.height / 2));
}

Point PhotoGeometry::sourceToFrame(Point p) const {
  if (flipH) p.x = 1 - p.x;
  if (flipV) p.y = 1 - p.y;
  for (int turn = 0; turn < quarterTurns; ++turn) p = {1 - p.y, p.x};
  return p;
}

Point PhotoGeometry::frameToSource(Point p) const {
  for (int turn = 0; turn < quarterTurns; ++turn) p = {p.y, 1 - p.x};
  if (flipV) p.y = 1 - p.y;
  if (flipH) p.x = 1 - p.x;
  return p;
}

Point PhotoGeometry::viewToSource(Point p) const {
  const double c = std::cos(angle);
  const double s = std::sin(angle);
  const double w = frame.width;
  const double h = frame.height;
  const double dx = crop.minX() + crop.width * p.x - w / 2;
  const double dy = crop.minY() + crop.height * p.y - h / 2;
  return frameToSource({(w / 2 + c * dx + s * dy) / w, (h / 2 - s * dx + c * dy) / h});
}

Point PhotoGeometry::sourceToView(Point p) const {
  const double c = std::cos(angle);
  const double s = std::sin(angle);
  const double w = frame.width;
  const double h = frame.height;
  const Point f = sourceToFrame(p);
  const double dx = f.x * w - w / 2;
  const double dy = f.y * h - h / 2;
  const double x = w / 2 + c * dx - s * dy;
  const double y = h / 2 + s * dx + c * dy;
  return {(x - crop.minX()) / crop.width, (y - crop.minY()) / crop.height};
}

}  // namespace lumivale
