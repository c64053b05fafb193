#include "engine/export/exporter.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "engine/media/text_watermark.h"
#include "engine/render/filters/blur.h"

namespace lumivale {

ExportError ExportError::cannotOpen(std::string_view photoName) {
  return ExportError("Could not open " + std::string(photoName));
}
ExportError ExportError::cannotDecode(std::string_view photoName) {
  return ExportError("Could not decode " + std::string(photoName));
}
ExportError ExportError::cannotRender(std::string_view photoName) {
  return ExportError("Could not render " + std::string(photoName));
}
ExportError ExportError::noEncoder(ExportFormat format) {
  return ExportError("This computer cannot write " + std::string(title(format)) + " files");
}
ExportError ExportError::cannotWrite(std::string_view fileName) {
  return ExportError("Could not write " + std::string(fileName));
}

namespace Exporter {
namespace {

// Rounds halves away from zero, at least 1, within what an int holds.
int side(double pixels) {
  const double rounded = std::round(pixels);
  if (!(rounded >= 1)) return 1;
  return rounded >= 2147483647.0 ? 2147483647 : int(rounded);
}

// The name without its last extension: the part from the last dot of the
// last path component on, when that dot does not open the component.
std::string withoutExtension(const std::string& name) {
  const std::size_t slash = name.rfind('/');
  const std::size_t start = slash == std::string::npos ? 0 : slash + 1;
  const std::size_t dot = name.rfind('.');
  if (dot == std::string::npos || dot <= start || dot + 1 == name.size()) return name;
  return name.substr(0, dot);
}

}  // namespace

PixelSize outputSize(double width, double height, const ExportOptions& options) {
  const double w = width > 0 ? width : 1;
  const double h = height > 0 ? height : 1;
  double scale = 1;
  if (options.sizeMode != SizeMode::original) {
    double divisor = 100;
    switch (options.sizeMode) {
      case SizeMode::longEdge:
        divisor = std::max(w, h);
        break;
      case SizeMode::shortEdge:
        divisor = std::min(w, h);
        break;
      case SizeMode::width:
        divisor = w;
        break;
      case SizeMode::height:
        divisor = h;
        break;
      case SizeMode::percent:
      case SizeMode::original:
        break;
    }
    const double wanted = options.sizeValue / divisor;
    // NaN counts as the smallest scale.
    if (!(options.dontEnlarge && wanted >= 1)) scale = std::max(0.01, std::isnan(wanted) ? 0.0 : wanted);
  }
  return {side(w * scale), side(h * scale)};
}

std::optional<int> decodeMaxSide(double scale, int fullWidth, int fullHeight) {
  if (!(scale < 0.45)) return std::nullopt;
  return int(std::min(scale * 1.6, 1.0) * std::max(fullWidth, fullHeight));
}

int outputBits(const ExportOptions& options) {
  return options.format == ExportFormat::tiff && options.tiff16Bit ? 16 : 8;
}

std::string fileName(const PhotoRecord& record, const ExportOptions& options, int sequence) {
  std::string name;
  switch (options.naming) {
    case NamingMode::original:
      name = withoutExtension(record.name);
      break;
    case NamingMode::originalSuffix:
      name = withoutExtension(record.name) + options.suffix;
      break;
    case NamingMode::custom: {
      char number[24];
      std::snprintf(number, sizeof number, "-%03d", sequence);
      name = (options.customName.empty() ? std::string("Photo") : options.customName) + number;
      break;
    }
  }
  return name.empty() ? "Photo" : name;
}

std::string safeName(std::string_view name) {
  std::string safe(name);
  std::replace(safe.begin(), safe.end(), '/', '-');
  std::replace(safe.begin(), safe.end(), ':', '-');
  return safe;
}

std::string numberedName(std::string_view name, std::string_view ext, int n) {
  std::string file = safeName(name);
  if (n > 1) file += " " + std::to_string(n);
  return file + "." + std::string(ext);
}

std::filesystem::path uniqueURL(const std::filesystem::path& folder, std::string_view name,
                                std::string_view ext) {
  for (int n = 1;; ++n) {
    std::filesystem::path candidate = folder / numberedName(name, ext, n);
    if (!nameTaken(candidate)) return candidate;
  }
}

std::filesystem::path writeFile(const std::filesystem::path& folder, std::string_view name,
                                std::string_view ext, const FileFiller& fill) {
  try {
    return writeFileUnderFreeName([&](int n) { return folder / numberedName(name, ext, n); }, fill);
  } catch (const MediaError&) {
    throw ExportError::cannotWrite(numberedName(name, ext, 1));
  }
}

std::filesystem::path writeFile(const std::filesystem::path& folder, std::string_view name,
                                std::string_view ext, std::string_view bytes) {
  return writeFile(folder, name, ext, [&](int fd) { writeAll(fd, bytes.data(), bytes.size()); });
}

Image outputSharpen(const Image& image, const ExportOptions& options) {
  double radius = 0, base = 0;
  switch (options.sharpening) {
    case OutputSharpening::none:
      return image;
    case OutputSharpening::screen:
      radius = 0.6, base = 0.35;
      break;
    case OutputSharpening::matte:
      radius = 1.4, base = 0.7;
      break;
    case OutputSharpening::glossy:
      radius = 1.0, base = 0.5;
      break;
  }
  const double level = options.sharpenLevel == SharpenLevel::low    ? 0.6
                       : options.sharpenLevel == SharpenLevel::high ? 1.5
                                                                    : 1.0;
  return filters::unsharpMask(image, radius, base * level);
}

double watermarkFontSize(int width, int height, const ExportOptions& options) {
  const double size = options.watermarkSize * std::min(width, height) / 100;
  return std::isnan(size) ? 8.0 : std::max(8.0, size);
}

std::optional<Image> watermark(const Image& image, const ExportOptions& options) {
  const double f = watermarkFontSize(image.width(), image.height(), options);
  // The nine positions are a three-by-three grid read row by row.
  const int cell = static_cast<int>(options.watermarkPosition);
  const TextAlign lines[] = {TextAlign::start, TextAlign::middle, TextAlign::end};
  TextWatermark mark;
  mark.text = options.watermarkText;
  mark.fontSize = f;
  mark.column = lines[cell % 3];
  mark.row = lines[cell / 3];
  mark.margin = 0.8 * f;
  mark.grey = options.watermarkDark ? 0.05 : 1.0;
  mark.opacity = options.watermarkOpacity;
  mark.shadowGrey = options.watermarkDark ? 1.0 : 0.0;
  mark.shadowAlpha = 0.35 * options.watermarkOpacity;
  mark.shadowDrop = 0.04 * f;
  mark.shadowBlur = 0.12 * f;
  return drawTextWatermark(image, mark);
}

OutputMetadata metadata(const PhotoRecord& record, const ExportOptions& options,
                        const std::vector<std::string>& keywords) {
  OutputMetadata out;
  if (options.metadata == MetadataPolicy::none) return out;
  if (options.metadata == MetadataPolicy::all) out.carried = readCarriedMetadata(record.path);
  out.software = softwareName;
  out.copyright = options.copyright;
  out.keywords = keywords;
  return out;
}

}  // namespace Exporter
}  // namespace lumivale
