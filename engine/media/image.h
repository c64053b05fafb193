#pragma once
// The image handle of decoders, the renderer and encoders: a node of a lazy
// libvips graph (see engine/render/how_it_works.md). Copying a handle shares
// the node; nothing is computed until pixels are asked for. Thread-safe to
// share and read.

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "engine/media/safe_file.h"

struct _VipsImage;

namespace lumivale {

/// A decode, a render step or an encode failed; the message is one line.
class ImageError : public MediaError {
 public:
  explicit ImageError(const std::string& message) : MediaError(message) {}
};

/// Linear RGB, the working space's unit.
struct LinearRGB {
  double r = 0;
  double g = 0;
  double b = 0;
  bool operator==(const LinearRGB&) const = default;
};

/// Float pixels read back from an image: `bands` values per pixel, row by row
/// from the top.
struct FloatPixels {
  int width = 0;
  int height = 0;
  int bands = 0;
  std::vector<float> values;

  float at(int x, int y, int band) const {
    return values[(std::size_t(y) * width + x) * bands + band];
  }
};

class Image {
 public:
  /// An empty handle (no image).
  Image() = default;
  ~Image();
  Image(const Image& other);
  Image(Image&& other) noexcept;
  Image& operator=(const Image& other);
  Image& operator=(Image&& other) noexcept;

  /// Takes over one reference to `image` (may be null).
  static Image adopt(_VipsImage* image);

  /// A `width` × `height` image of one colour (3-band float) or, with
  /// `bands` 1, of one grey value (the colour's red).
  static Image constant(int width, int height, LinearRGB colour, int bands = 3);

  /// An image made from float pixels (copied).
  static Image fromPixels(const FloatPixels& pixels);

  bool empty() const { return image_ == nullptr; }
  explicit operator bool() const { return !empty(); }
  int width() const;
  int height() const;
  int bands() const;

  /// Computes every pixel once into memory and returns an image backed by
  /// them, so later steps start from pixels instead of re-running the chain.
  /// Throws ImageError.
  Image materialize() const;

  /// Computes the pixels of the rectangle (clipped to the image) as float.
  /// Throws ImageError.
  FloatPixels readPixels(int left, int top, int width, int height) const;
  FloatPixels readPixels() const { return readPixels(0, 0, width(), height()); }

  /// The underlying libvips image; for glue code (vips_glue.h) only.
  _VipsImage* get() const { return image_; }

 private:
  _VipsImage* image_ = nullptr;
};

/// `image` scaled down (Lanczos 3), never up, so that its longer side is at
/// most `maxSide` (at least 1). Lazy; throws ImageError for an empty image.
Image shrunkToFit(const Image& image, int maxSide);

}  // namespace lumivale
