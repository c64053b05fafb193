#include "engine/media/image.h"

#include <algorithm>
#include <cstring>
#include <mutex>

#include "engine/media/media_libraries.h"
#include "engine/media/vips_glue.h"

namespace lumivale {

void initImageLibraries() {
  static std::once_flag once;
  std::call_once(once, [] {
    initMediaLibraries();
    // Render graphs are rebuilt for every render; cached operations would
    // only hold memory (and files) for nothing.
    vips_cache_set_max(0);
  });
}

Image::~Image() {
  if (image_) g_object_unref(image_);
}

Image::Image(const Image& other) : image_(other.image_) {
  if (image_) g_object_ref(image_);
}

Image::Image(Image&& other) noexcept : image_(other.image_) { other.image_ = nullptr; }

Image& Image::operator=(const Image& other) {
  if (this != &other) {
    if (other.image_) g_object_ref(other.image_);
    if (image_) g_object_unref(image_);
    image_ = other.image_;
  }
  return *this;
}

Image& Image::operator=(Image&& other) noexcept {
  if (this != &other) {
    if (image_) g_object_unref(image_);
    image_ = other.image_;
    other.image_ = nullptr;
  }
  return *this;
}

Image Image::adopt(_VipsImage* image) {
  Image result;
  result.image_ = image;
  return result;
}

int Image::width() const { return image_ ? vips_image_get_width(image_) : 0; }
int Image::height() const { return image_ ? vips_image_get_height(image_) : 0; }
int Image::bands() const { return image_ ? vips_image_get_bands(image_) : 0; }

Image Image::constant(int width, int height, LinearRGB colour, int bands) {
  initImageLibraries();
  return withVips("cannot make a constant image", [&] {
    vips::VImage black = vips::VImage::black(std::max(width, 1), std::max(height, 1),
                                             vips::VImage::option()->set("bands", bands));
    std::vector<double> values = bands == 1 ? std::vector<double>{colour.r}
                                            : std::vector<double>{colour.r, colour.g, colour.b};
    values.resize(std::size_t(bands), values.back());
    vips::VImage image = black.cast(VIPS_FORMAT_FLOAT).linear(std::vector<double>(values.size(), 0.0), values);
    return fromVips(image.copy(vips::VImage::option()->set(
        "interpretation", bands == 1 ? VIPS_INTERPRETATION_B_W : VIPS_INTERPRETATION_scRGB)));
  });
}

Image Image::fromPixels(const FloatPixels& pixels) {
  initImageLibraries();
  if (pixels.width < 1 || pixels.height < 1 || pixels.bands < 1 ||
      pixels.values.size() != std::size_t(pixels.width) * pixels.height * pixels.bands) {
    throw ImageError("pixels do not match their size");
  }
  return withVips("cannot wrap pixels", [&] {
    // The image gets a copy of the pixels: the caller's buffer may change
    // or go away while the image lives. (copy_memory would not do: on an
    // image over borrowed memory it only adds a reference.)
    VipsImage* raw =
        vips_image_new_from_memory_copy(pixels.values.data(), pixels.values.size() * sizeof(float),
                                        pixels.width, pixels.height, pixels.bands, VIPS_FORMAT_FLOAT);
    if (!raw) throw vips::VError();
    const vips::VImage image(raw);
    return fromVips(image.copy(vips::VImage::option()->set(
        "interpretation", pixels.bands >= 3 ? VIPS_INTERPRETATION_scRGB : VIPS_INTERPRETATION_B_W)));
  });
}

Image Image::materialize() const {
  return withVips("cannot render the image", [&] { return fromVips(vipsImage(*this).copy_memory()); });
}

FloatPixels Image::readPixels(int left, int top, int w, int h) const {
  return withVips("cannot render the image", [&] {
    vips::VImage image = vipsImage(*this);
    const int left0 = std::clamp(left, 0, image.width()), top0 = std::clamp(top, 0, image.height());
    const int right = std::clamp(left + std::max(w, 0), left0, image.width());
    const int bottom = std::clamp(top + std::max(h, 0), top0, image.height());
    FloatPixels out;
    out.width = right - left0;
    out.height = bottom - top0;
    out.bands = image.bands();
    if (out.width == 0 || out.height == 0) return out;
    if (image.format() != VIPS_FORMAT_FLOAT) image = image.cast(VIPS_FORMAT_FLOAT);
    vips::VImage area = image.extract_area(left0, top0, out.width, out.height);
    std::size_t size = 0;
    void* memory = area.write_to_memory(&size);
    out.values.resize(size / sizeof(float));
    std::memcpy(out.values.data(), memory, out.values.size() * sizeof(float));
    g_free(memory);
    return out;
  });
}

Image shrunkToFit(const Image& image, int maxSide) {
  return withVips("cannot scale the image", [&] {
    vips::VImage in = vipsImage(image);
    const int longSide = std::max(in.width(), in.height());
    if (longSide <= std::max(maxSide, 1)) return image;
    return fromVips(in.resize(double(std::max(maxSide, 1)) / longSide));
  });
}

}  // namespace lumivale
