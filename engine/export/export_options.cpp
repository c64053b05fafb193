#include "engine/export/export_options.h"

#include <array>
#include <bitset>
#include <variant>

#include "engine/catalog/user_defaults.h"
#include "engine/edit/json.h"

namespace lumivale {
namespace {

template <class E>
struct Case {
  E value;
  std::string_view key;
  std::string_view title;
};

// Each table lists its enumeration's cases in declaration order.
constexpr Case<ExportFormat> formats[] = {
    {ExportFormat::jpeg, "jpeg", "JPEG"},
    {ExportFormat::heic, "heic", "HEIC"},
    {ExportFormat::tiff, "tiff", "TIFF"},
    {ExportFormat::png, "png", "PNG"},
};
constexpr Case<ExportColorSpace> colorSpaces[] = {
    {ExportColorSpace::sRGB, "sRGB", "sRGB (web, phones, most printers)"},
    {ExportColorSpace::displayP3, "displayP3", "Display P3 (wide-gamut screens)"},
    {ExportColorSpace::adobeRGB, "adobeRGB", "Adobe RGB (1998) (print shops)"},
};
constexpr Case<SizeMode> sizeModes[] = {
    {SizeMode::original, "original", "Full size"},    {SizeMode::longEdge, "longEdge", "Long edge"},
    {SizeMode::shortEdge, "shortEdge", "Short edge"}, {SizeMode::width, "width", "Width"},
    {SizeMode::height, "height", "Height"},           {SizeMode::percent, "percent", "Percent"},
};
constexpr Case<OutputSharpening> sharpenings[] = {
    {OutputSharpening::none, "none", "None"},
    {OutputSharpening::screen, "screen", "For screen"},
    {OutputSharpening::matte, "matte", "For matte paper"},
    {OutputSharpening::glossy, "glossy", "For glossy paper"},
};
constexpr Case<SharpenLevel> sharpenLevels[] = {
    {SharpenLevel::low, "low", "Low"},
    {SharpenLevel::standard, "standard", "Standard"},
    {SharpenLevel::high, "high", "High"},
};
constexpr Case<WatermarkPosition> positions[] = {
    {WatermarkPosition::topLeft, "topLeft", "Top left"},
    {WatermarkPosition::top, "top", "Top"},
    {WatermarkPosition::topRight, "topRight", "Top right"},
    {WatermarkPosition::left, "left", "Left"},
    {WatermarkPosition::center, "center", "Center"},
    {WatermarkPosition::right, "right", "Right"},
    {WatermarkPosition::bottomLeft, "bottomLeft", "Bottom left"},
    {WatermarkPosition::bottom, "bottom", "Bottom"},
    {WatermarkPosition::bottomRight, "bottomRight", "Bottom right"},
};
constexpr Case<MetadataPolicy> policies[] = {
    {MetadataPolicy::all, "all", "All (camera details, keywords, location)"},
    {MetadataPolicy::copyrightOnly, "copyrightOnly", "Copyright and keywords only"},
    {MetadataPolicy::none, "none", "None (strip everything)"},
};
constexpr Case<NamingMode> namings[] = {
    {NamingMode::original, "original", "Same as the original"},
    {NamingMode::originalSuffix, "originalSuffix", "Original + suffix"},
    {NamingMode::custom, "custom", "Custom name + number"},
};

template <class E>
constexpr std::span<const Case<E>> table();
template <>
constexpr std::span<const Case<ExportFormat>> table() {
  return formats;
}
template <>
constexpr std::span<const Case<ExportColorSpace>> table() {
  return colorSpaces;
}
template <>
constexpr std::span<const Case<SizeMode>> table() {
  return sizeModes;
}
template <>
constexpr std::span<const Case<OutputSharpening>> table() {
  return sharpenings;
}
template <>
constexpr std::span<const Case<SharpenLevel>> table() {
  return sharpenLevels;
}
template <>
constexpr std::span<const Case<WatermarkPosition>> table() {
  return positions;
}
template <>
constexpr std::span<const Case<MetadataPolicy>> table() {
  return policies;
}
template <>
constexpr std::span<const Case<NamingMode>> table() {
  return namings;
}

template <class E>
const Case<E>& caseOf(E value) {
  return table<E>()[static_cast<std::size_t>(value)];
}

template <class E>
struct CaseList {
  static constexpr std::size_t size = table<E>().size();
  std::array<E, size> values{};
  constexpr CaseList() {
    for (std::size_t i = 0; i < size; ++i) values[i] = table<E>()[i].value;
  }
};

// ---- the stored form ----

template <class T>
using Member = T ExportOptions::*;
using Field =
    std::variant<Member<double>, Member<bool>, Member<std::string>, Member<ExportFormat>,
                 Member<ExportColorSpace>, Member<SizeMode>, Member<OutputSharpening>, Member<SharpenLevel>,
                 Member<WatermarkPosition>, Member<MetadataPolicy>, Member<NamingMode>>;
struct Entry {
  std::string_view name;
  Field member;
};

// Declaration order, which is also the order of the stored keys.
const Entry entries[] = {
    {"format", &ExportOptions::format},
    {"quality", &ExportOptions::quality},
    {"tiff16Bit", &ExportOptions::tiff16Bit},
    {"sizeMode", &ExportOptions::sizeMode},
    {"sizeValue", &ExportOptions::sizeValue},
    {"dontEnlarge", &ExportOptions::dontEnlarge},
    {"colorSpace", &ExportOptions::colorSpace},
    {"sharpening", &ExportOptions::sharpening},
    {"sharpenLevel", &ExportOptions::sharpenLevel},
    {"watermarkOn", &ExportOptions::watermarkOn},
    {"watermarkText", &ExportOptions::watermarkText},
    {"watermarkSize", &ExportOptions::watermarkSize},
    {"watermarkOpacity", &ExportOptions::watermarkOpacity},
    {"watermarkPosition", &ExportOptions::watermarkPosition},
    {"watermarkDark", &ExportOptions::watermarkDark},
    {"metadata", &ExportOptions::metadata},
    {"copyright", &ExportOptions::copyright},
    {"naming", &ExportOptions::naming},
    {"suffix", &ExportOptions::suffix},
    {"customName", &ExportOptions::customName},
    {"folderPath", &ExportOptions::folderPath},
};
constexpr std::size_t fieldCount = std::size(entries);

void write(JsonWriter& out, double v) { out.value(v); }
void write(JsonWriter& out, bool v) { out.value(v); }
void write(JsonWriter& out, const std::string& v) { out.value(std::string_view(v)); }
template <class E>
void write(JsonWriter& out, E v) {
  out.value(key(v));
}

// Each reader checks the value's JSON kind first: a wrong kind fails the
// whole record.
void read(JsonReader& in, double& v) {
  if (in.peek() != JsonReader::Kind::number) throw JsonSyntaxError();
  const auto number = jsonDouble(in.readNumber());
  if (!number) throw JsonSyntaxError();
  v = *number;
}
void read(JsonReader& in, bool& v) {
  if (in.peek() != JsonReader::Kind::boolean) throw JsonSyntaxError();
  v = in.readBool();
}
void read(JsonReader& in, std::string& v) {
  if (in.peek() != JsonReader::Kind::string) throw JsonSyntaxError();
  in.readString(v);
}
template <class E>
void read(JsonReader& in, E& v) {
  std::string text;
  read(in, text);
  const auto value = caseFromKey<E>(text);
  if (!value) throw JsonSyntaxError();
  v = *value;
}

}  // namespace

template <class E>
std::span<const E> allCases() {
  static constexpr CaseList<E> list;
  return list.values;
}

template <class E>
std::optional<E> caseFromKey(std::string_view text) {
  for (const Case<E>& c : table<E>()) {
    if (c.key == text) return c.value;
  }
  return std::nullopt;
}

#define LUMIVALE_EXPORT_ENUM(E)                               \
  template std::span<const E> allCases<E>();                  \
  template std::optional<E> caseFromKey<E>(std::string_view); \
  std::string_view key(E value) { return caseOf(value).key; } \
  std::string_view title(E value) { return caseOf(value).title; }

LUMIVALE_EXPORT_ENUM(ExportFormat)
LUMIVALE_EXPORT_ENUM(ExportColorSpace)
LUMIVALE_EXPORT_ENUM(SizeMode)
LUMIVALE_EXPORT_ENUM(OutputSharpening)
LUMIVALE_EXPORT_ENUM(SharpenLevel)
LUMIVALE_EXPORT_ENUM(WatermarkPosition)
LUMIVALE_EXPORT_ENUM(MetadataPolicy)
LUMIVALE_EXPORT_ENUM(NamingMode)
#undef LUMIVALE_EXPORT_ENUM

std::string_view ext(ExportFormat format) {
  constexpr std::string_view exts[] = {"jpg", "heic", "tif", "png"};
  return exts[static_cast<std::size_t>(format)];
}

std::string_view uti(ExportFormat format) {
  constexpr std::string_view types[] = {"image/jpeg", "image/heic", "image/tiff", "image/png"};
  return types[static_cast<std::size_t>(format)];
}

bool lossy(ExportFormat format) { return format == ExportFormat::jpeg || format == ExportFormat::heic; }

ImageFormat imageFormat(ExportFormat format) {
  constexpr ImageFormat formats[] = {ImageFormat::jpeg, ImageFormat::heif, ImageFormat::tiff,
                                     ImageFormat::png};
  return formats[static_cast<std::size_t>(format)];
}

ColorSpace space(ExportColorSpace colorSpace) {
  constexpr ColorSpace spaces[] = {ColorSpace::sRGB, ColorSpace::displayP3, ColorSpace::adobeRGB};
  return spaces[static_cast<std::size_t>(colorSpace)];
}

std::optional<std::string> ExportOptions::encode() const {
  JsonWriter out;
  out.beginObject();
  for (const Entry& entry : entries) {
    out.key(entry.name);
    std::visit([&](auto member) { write(out, this->*member); }, entry.member);
  }
  out.endObject();
  if (out.failed()) return std::nullopt;
  return out.take();
}

std::optional<ExportOptions> ExportOptions::decode(std::string_view json) {
  ExportOptions options;
  std::bitset<fieldCount> seen;
  try {
    JsonReader in(json);
    if (in.peek() != JsonReader::Kind::object) return std::nullopt;
    in.beginObject();
    std::string name;
    while (in.nextKey(name)) {
      std::size_t i = 0;
      while (i < fieldCount && entries[i].name != name) ++i;
      if (i == fieldCount) {
        in.skipValue();
        continue;
      }
      std::visit([&](auto member) { read(in, options.*member); }, entries[i].member);
      seen.set(i);
    }
    in.finish();
  } catch (const JsonSyntaxError&) {
    return std::nullopt;
  }
  if (!seen.all()) return std::nullopt;
  return options;
}

ExportOptions ExportOptions::load() { return load(UserDefaults::standard()); }

ExportOptions ExportOptions::load(const UserDefaults& defaults) {
  const auto stored = defaults.data(key);
  if (!stored) return {};
  return decode(*stored).value_or(ExportOptions{});
}

bool ExportOptions::save() const { return save(UserDefaults::standard()); }

bool ExportOptions::save(const UserDefaults& defaults) const {
  const auto text = encode();
  if (!text) return false;
  defaults.set(key, *text);
  return true;
}

}  // namespace lumivale
