#include "cli/common.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "engine/catalog/library_query.h"
#include "engine/catalog/photo_library.h"
#include "engine/util/utf8.h"

namespace lumivale::cli {

std::string printable(std::string_view text) {
  static const char hex[] = "0123456789abcdef";
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size();) {
    const Utf8Char c = decodeUtf8(text, i);
    const std::string_view sequence = text.substr(i, c.length);
    i += c.length;
    if (c.valid && c.value >= 0x20 && (c.value < 0x7F || c.value >= 0xA0)) {
      out += sequence;
    } else if (c.value == '\n' || c.value == '\r' || c.value == '\t' || c.value == 0x1B) {
      out += c.value == '\n' ? "\\n" : c.value == '\r' ? "\\r" : c.value == '\t' ? "\\t" : "\\e";
    } else {
      // A C1 code point (two bytes in UTF-8) as \u00NN; C0, DEL and a byte
      // that is not UTF-8 as \xNN.
      out += c.valid && c.value >= 0x80 ? "\\u00" : "\\x";
      out += hex[c.value >> 4 & 0xF];
      out += hex[c.value & 0xF];
    }
  }
  return out;
}

std::size_t columns(const std::string& text) {
  return static_cast<std::size_t>(std::count_if(
      text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

std::string padded(const std::string& text, std::size_t width) {
  std::size_t w = columns(text);
  return w >= width ? text : text + std::string(width - w, ' ');
}

std::string joined(const std::vector<std::string>& parts, const std::string& separator) {
  std::string text;
  for (const std::string& p : parts) text += (text.empty() ? "" : separator) + p;
  return text;
}

std::string plural(std::size_t n, const std::string& one, const std::string& many) {
  return std::to_string(n) + " " + (n == 1 ? one : many);
}

std::string photoCount(std::size_t n) { return plural(n, "photo", "photos"); }

std::string byteText(std::uintmax_t bytes) {
  const char* units[] = {"bytes", "KB", "MB", "GB", "TB"};
  double value = static_cast<double>(bytes);
  int unit = 0;
  while (value >= 1000 && unit < 4) {
    value /= 1000;
    ++unit;
  }
  char text[64];
  if (unit == 0) {
    std::snprintf(text, sizeof text, "%ju bytes", bytes);
  } else {
    std::snprintf(text, sizeof text, "%.1f %s", value, units[unit]);
  }
  return text;
}

void requireCount(const Arguments& args, std::size_t count, const std::string& usage) {
  if (args.positional.size() != count) throw UsageError("expected: " + usage);
}

std::string textFrom(const Arguments& args, std::size_t index) {
  std::vector<std::string> rest;
  for (std::size_t i = index; i < args.positional.size(); ++i) rest.push_back(args.positional[i]);
  return joined(rest, " ");
}

std::string requireName(const std::string& name, const std::string& what) {
  if (trimmed(name).empty()) throw UsageError(what + " needs a name");
  return name;
}

std::int64_t parseRowId(const std::string& text, const std::string& what) {
  std::int64_t id = parseInteger(text, what);
  if (id < 1) throw UsageError("'" + text + "' is not a valid " + what);
  return id;
}

void requirePhotos(PhotoLibrary& library, const Ids& ids, bool writing) {
  Ids missing = library.missingPhotos(ids);
  if (missing.empty()) return;
  std::string list;
  const std::size_t shown = std::min<std::size_t>(missing.size(), 10);
  for (std::size_t i = 0; i < shown; ++i) list += (i ? ", " : "") + std::to_string(missing[i]);
  if (missing.size() > shown) list += " and " + std::to_string(missing.size() - shown) + " more";
  throw CommandError((missing.size() == 1 ? "no photo with id " : "no photos with ids ") + list +
                     (writing ? "; nothing was changed" : ""));
}

PhotoRecord existingPhoto(PhotoLibrary& library, std::int64_t id) {
  auto record = library.photo(id);
  if (!record) throw CommandError("no photo with id " + std::to_string(id));
  return *record;
}

std::string readInputFile(const std::string& path, const std::string& what) {
  std::error_code error;
  std::ifstream in(path, std::ios::binary);
  if (std::filesystem::is_directory(path, error) || !in)
    throw CommandError("cannot read " + what + " from '" + printable(path) + "'");
  std::string data{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  if (in.bad()) throw CommandError("cannot read " + what + " from '" + printable(path) + "'");
  return data;
}

EditSettings settingsFromFile(const std::string& path) {
  const std::string data = readInputFile(path, "settings");
  const auto json = nlohmann::json::parse(data, nullptr, false);
  if (json.is_discarded() || !json.is_object()) {
    throw CommandError("'" + printable(path) + "' does not hold develop settings (a JSON object)");
  }
  return EditSettings::decode(std::string_view(data));
}

}  // namespace lumivale::cli
