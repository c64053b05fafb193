#include "engine/media/photo_formats.h"

#include <algorithm>

#include "engine/util/text.h"

namespace lumivale::PhotoFormats {
namespace {

template <std::size_t N>
bool contains(const std::array<std::string_view, N>& set, const std::string& ext) {
  return !ext.empty() && std::find(set.begin(), set.end(), ext) != set.end();
}

}  // namespace

std::string extension(const std::filesystem::path& file) {
  // path::extension() treats ".jpg" (a hidden file with no stem) as having no
  // extension, which is what we want as well.
  std::string ext = file.extension().string();
  if (ext.size() < 2) return {};
  return asciiLowercased(std::string_view(ext).substr(1));
}

bool isSupported(const std::filesystem::path& file) {
  std::string ext = extension(file);
  return contains(raw, ext) || contains(images, ext);
}

bool isRaw(const std::filesystem::path& file) { return contains(raw, extension(file)); }

}  // namespace lumivale::PhotoFormats
