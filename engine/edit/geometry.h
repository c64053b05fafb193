#pragma once
// Crop, aspect and straighten geometry.
//
// Three coordinate spaces meet here:
//  - source: the decoded image, before any orientation change;
//  - frame:  the source after flips (applied first) and clockwise quarter
//            turns; stored crops are normalised to the frame;
//  - view:   the straightened frame cropped to the crop rectangle.
// Normalised points (0 … 1 on both axes) and pixel rectangles have their
// origin at the top-left corner. The only exceptions are `cropRectCI`,
// `orientTransform` and `straightenTransform`, which are meant for the image
// pipeline and use a bottom-left origin in pixels.

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "engine/edit/value_hash.h"

namespace lumivale {

struct EditSettings;

struct Point {
  double x = 0;
  double y = 0;
  bool operator==(const Point&) const = default;
};

struct Size {
  double width = 0;
  double height = 0;
  bool operator==(const Size&) const = default;
};

/// A rectangle in pixels: origin and extent (width and height not negative).
struct Rect {
  double x = 0;
  double y = 0;
  double width = 0;
  double height = 0;

  double minX() const { return x; }
  double minY() const { return y; }
  double maxX() const { return x + width; }
  double maxY() const { return y + height; }
  double midX() const { return x + width / 2; }
  double midY() const { return y + height / 2; }

  bool operator==(const Rect&) const = default;
};

/// A 2-D affine transform mapping (x, y) to (a·x + c·y + tx, b·x + d·y + ty).
struct Affine {
  double a = 1, b = 0, c = 0, d = 1, tx = 0, ty = 0;

  static Affine translation(double dx, double dy) { return {1, 0, 0, 1, dx, dy}; }
  /// Rotation by `angleRad`, counter-clockwise when y points up.
  static Affine rotation(double angleRad);

  /// The transform that applies this one first, then `then`.
  Affine appending(const Affine& then) const;
  Point apply(Point p) const { return {a * p.x + c * p.y + tx, b * p.x + d * p.y + ty}; }

  bool operator==(const Affine&) const = default;
};

/// The stored crop, normalised to the oriented frame (after turns and flips,
/// before straightening), origin top-left: x and w are fractions of the
/// frame's width, y and h of its height.
struct CropRect {
  double x = 0;
  double y = 0;
  double w = 1;
  double h = 1;

  /// The whole frame, (0, 0, 1, 1).
  static constexpr CropRect full() { return {}; }
  /// True when the rectangle is the whole frame within 1e-9.
  bool isFull() const;
  /// w and h clamped to 0.02 … 1 (NaN as 0.02), then x to 0 … 1 − w and y to
  /// 0 … 1 − h (a negative or NaN position as 0).
  CropRect clamped() const;

  bool operator==(const CropRect&) const = default;
};

void hashInto(Hasher& h, const CropRect& r);

/// The crop aspect choices, identified by their titles (the text stored in
/// `EditSettings::cropAspect`).
namespace CropAspect {

/// The titles in menu order: "Free", "Original", "1 : 1", "4 : 5", "5 : 7",
/// "2 : 3", "3 : 4", "16 : 9", "16 : 10", "3 : 2 (wide)".
const std::vector<std::string>& names();

/// Width ÷ height of the aspect on this frame, turned to follow the frame's
/// orientation (a landscape frame gets a ratio ≥ 1, a portrait one below 1);
/// nothing for "Free" or a title that holds no usable pair of numbers.
std::optional<double> ratio(std::string_view name, Size frame);

/// The largest crop of that aspect centred in the frame; the full frame when
/// the aspect has no ratio.
CropRect centered(std::string_view name, Size frame);

}  // namespace CropAspect

/// The geometry of one photo at one source size: oriented frame, straighten
/// angle and a crop in frame pixels that lies inside the straightened image.
struct PhotoGeometry {
  Size source;           ///< pixel size of the decoded source
  Size frame;            ///< size after quarter turns
  int quarterTurns = 0;  ///< clockwise 90° turns, 0 … 3
  bool flipH = false;    ///< mirror left–right, before the turns
  bool flipV = false;    ///< mirror top–bottom, before the turns
  double angle = 0;      ///< straighten angle in radians, −π/4 … π/4
  Rect crop;             ///< crop in frame pixels, origin top-left

  PhotoGeometry() = default;
  /// The geometry of `settings` on a source of `sourceSize` pixels. With
  /// `ignoreCrop` the crop is the whole frame (used while editing the crop).
  PhotoGeometry(const EditSettings& settings, Size sourceSize, bool ignoreCrop = false);

  /// Shrinks `rect` (frame pixels) about its own centre until it lies inside
  /// the frame rotated by `angleRad`, within half a pixel; never moves it and
  /// never scales below 0.02. With no angle it is clamped to the frame.
  static Rect fit(Rect rect, Size frame, double angleRad);

  /// Output pixel size: the crop's size rounded half away from zero, at least 1.
  Size outputSize() const;
  /// The crop with a bottom-left origin.
  Rect cropRectCI() const;
  /// Flips then quarter turns, in bottom-left-origin source pixels, mapping
  /// the source onto the frame.
  Affine orientTransform() const;
  /// Rotation by −angle about the frame's centre, bottom-left-origin pixels.
  Affine straightenTransform() const;

  /// Normalised point mappings between source, frame and view.
  Point sourceToFrame(Point p) const;
  Point frameToSource(Point p) const;
  Point viewToSource(Point p) const;
  Point sourceToView(Point p) const;

  bool operator==(const PhotoGeometry&) const = default;
};

}  // namespace lumivale
