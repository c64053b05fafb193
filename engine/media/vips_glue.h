#pragma once
// libvips on our side of the fence: conversions between `Image` and
// `vips::VImage`, and libvips failures as ImageError. Included by .cpp files
// of engine/media and engine/render only; headers never see libvips.

#include <vips/vips8>

#include <string>

#include "engine/media/image.h"

namespace lumivale {

/// The image as a libvips C++ handle (shares the node).
inline vips::VImage vipsImage(const Image& image) {
  if (image.empty()) throw ImageError("an image was missing in the render chain");
  return vips::VImage(image.get(), vips::NOSTEAL);
}

/// A libvips C++ handle as our image (shares the node).
inline Image fromVips(const vips::VImage& image) {
  _VipsImage* raw = image.get_image();
  if (raw) g_object_ref(raw);
  return Image::adopt(raw);
}

/// Runs `body`, turning a libvips failure (vips::VError) into ImageError
/// "<what>: <libvips' message>" and clearing libvips' error buffer.
template <class Body>
auto withVips(const char* what, Body body) -> decltype(body()) {
  try {
    return body();
  } catch (const vips::VError& e) {
    std::string message = e.what();
    vips_error_clear();
    while (!message.empty() && (message.back() == '\n' || message.back() == ' ')) message.pop_back();
    throw ImageError(std::string(what) + ": " + message);
  }
}

/// The first line of libvips' message for `e` ("unknown error" when it has
/// none), clearing libvips' error buffer: for messages that name a file.
inline std::string vipsErrorLine(const vips::VError& e) {
  std::string message = e.what();
  vips_error_clear();
  message = message.substr(0, message.find('\n'));
  while (!message.empty() && message.back() == ' ') message.pop_back();
  return message.empty() ? "unknown error" : message;
}

/// Starts libvips for decoding, rendering and encoding (idempotent,
/// thread-safe): the loaders of ours only, warnings silenced, the operation
/// cache off.
void initImageLibraries();

}  // namespace lumivale
