#pragma once
// Our own per-pixel kernels as libvips operations (through
// vips_image_generate): the way a filter runs code of ours on every tile,
// on libvips' worker threads. Internal to engine/render.
//
// A kernel fills one output row at a time. It is called from several threads
// at once, for rows in any order, so it must be a pure function of its
// arguments (captured values are read only) and must not throw.

#include <cstddef>
#include <functional>
#include <vector>

#include "engine/media/image.h"

namespace lumivale::kernel {

/// Fills `width` pixels of output row `y` starting at column `x`, from the
/// same pixels of each input (float, `bands` values per pixel as the input
/// has them). `inputs[i]` points at input i's pixel (x, y).
using RowFn = std::function<void(const float* const* inputs, float* out, int width, int x, int y)>;

/// An image of the inputs' size (they must all have one size) whose pixels
/// `fn` computes, with `outBands` float bands. Inputs that are not float are
/// cast to float first. Throws ImageError for no inputs or unequal sizes.
Image mapRows(const std::vector<Image>& inputs, int outBands, RowFn fn);

/// A `width` × `height` image of `bands` float bands made by `fn` from the
/// position alone (its `inputs` is empty).
Image generate(int width, int height, int bands, RowFn fn);

/// Fills `width` output pixels of row `y` from the neighbourhood rows of the
/// input: `rows[k]` (k = 0 … 2 radius) points at input pixel (x − radius,
/// y − radius + k), so pixel x + i of row y + dy is rows[dy + radius][(i + dx
/// + radius) × bands + band] for dx, dy in −radius … radius. Beyond the
/// input's edges its edge pixels repeat (clamp to extent).
using WindowFn = std::function<void(const float* const* rows, float* out, int width, int x, int y)>;

/// An image of the input's size whose pixels `fn` computes from the
/// (2 radius + 1)² window around each input pixel; `outBands` float bands.
Image mapWindow(const Image& input, int radius, int outBands, WindowFn fn);

/// Columns left … left + width − 1, rows top … top + height − 1.
struct PixelRect {
  int left = 0;
  int top = 0;
  int width = 0;
  int height = 0;
  int right() const { return left + width; }
  int bottom() const { return top + height; }
  bool operator==(const PixelRect&) const = default;
};

/// The input pixels an area kernel may read: every pixel of `rect`, which
/// lies inside the input.
struct InputArea {
  PixelRect rect;
  int bands = 0;
  const float* origin = nullptr;  ///< pixel (rect.left, rect.top)
  std::size_t rowStride = 0;      ///< floats from one row to the next

  /// Pixel (x, y); x and y must lie inside `rect`.
  const float* at(int x, int y) const {
    return origin + std::size_t(y - rect.top) * rowStride + std::size_t(x - rect.left) * bands;
  }
};

/// The input rectangle that output rectangle `out` reads.
using NeedFn = std::function<PixelRect(const PixelRect& out)>;

/// Fills `width` pixels of output row `y` starting at column `x` from `in`.
using AreaFn = std::function<void(const InputArea& in, float* out, int width, int x, int y)>;

/// A `width` × `height` image of `outBands` float bands computed from any
/// input pixels: for each output rectangle, `need` says which input
/// rectangle it reads, and `fn` is called for its rows with those pixels
/// ready. The rectangle is clamped into the input coordinate by coordinate
/// (a column left of the input becomes column 0, and so on), so a kernel that
/// reads the clamped position of any point of its rectangle reads the input
/// as if its edge pixels went on for ever (clamp to extent).
Image mapArea(const Image& input, int width, int height, int outBands, NeedFn need, AreaFn fn);

}  // namespace lumivale::kernel
