#include "engine/catalog/photo_formats.h"

#include <algorithm>

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
  ext.erase(0, 1);
  for (char& c : ext) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return ext;
}

bool isSupported(const std::filesystem::path& file) {
  std::string ext = extension(file);
  return contains(raw, ext) || contains(images, ext);
}

bool isRaw(const std::filesystem::path& file) { return contains(raw, extension(file)); }

}  // namespace lumivale::PhotoFormats
