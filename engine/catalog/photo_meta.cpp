#include "engine/catalog/photo_meta.h"

#include <charconv>
#include <cmath>
#include <ctime>

#include "engine/media/image_properties.h"
#include "engine/media/photo_formats.h"
#include "engine/catalog/photo_record.h"
#include "engine/media/raw_preview.h"
#include "engine/util/text.h"

namespace lumivale {
namespace {

// Reads exactly `digits` decimal digits at `at`.
std::optional<int> digitsAt(std::string_view text, std::size_t at, std::size_t digits) {
  int value = 0;
  for (std::size_t i = at; i < at + digits; ++i) {
    if (text[i] < '0' || text[i] > '9') return std::nullopt;
    value = value * 10 + (text[i] - '0');
  }
  return value;
}

bool isLeapYear(int year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

int daysInMonth(int year, int month) {
  static const int days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return month == 2 && isLeapYear(year) ? 29 : days[month - 1];
}

std::string pixelSize(int width, int height) {
  return std::to_string(width) + " \u00d7 " + std::to_string(height);
}

std::int64_t fileSizeOf(const std::filesystem::path& file) {
  std::error_code error;
  auto size = std::filesystem::file_size(file, error);
  return error ? 0 : static_cast<std::int64_t>(size);
}

// The two row functions of the info panel: a row appears only when its value
// text is not empty.
class Rows {
 public:
  void add(const char* label, std::string value) {
    if (!value.empty()) rows.push_back({label, std::move(value)});
  }
  void add(const char* label, const std::optional<std::string>& value) {
    if (value) add(label, *value);
  }
  template <class Number>
  void addNumber(const char* label, const std::optional<Number>& value) {
    if (value) add(label, plainNumber(static_cast<double>(*value)));
  }
  std::vector<DetailRow> rows;
};

}  // namespace

std::string plainNumber(double value) {
  if (!std::isfinite(value)) return {};
  if (value == 0) return "0";  // also for -0
  char text[400];
  auto [end, error] = std::to_chars(text, text + sizeof text, value, std::chars_format::fixed);
  if (error != std::errc()) return {};
  return std::string(text, end);
}

std::optional<double> exifDate(std::string_view text) {
  const std::string owned = trimmed(text);
  text = owned;
  // "yyyy:MM:dd HH:mm:ss": every field has its fixed width and separator.
  if (text.size() != 19 || text[4] != ':' || text[7] != ':' || text[10] != ' ' || text[13] != ':' ||
      text[16] != ':') {
    return std::nullopt;
  }
  auto year = digitsAt(text, 0, 4), month = digitsAt(text, 5, 2), day = digitsAt(text, 8, 2);
  auto hour = digitsAt(text, 11, 2), minute = digitsAt(text, 14, 2), second = digitsAt(text, 17, 2);
  if (!year || !month || !day || !hour || !minute || !second) return std::nullopt;
  if (*year < 1 || *month < 1 || *month > 12 || *day < 1 || *day > daysInMonth(*year, *month) || *hour > 23 ||
      *minute > 59 || *second > 59) {
    return std::nullopt;
  }
  std::tm local{};
  local.tm_year = *year - 1900;
  local.tm_mon = *month - 1;
  local.tm_mday = *day;
  local.tm_hour = *hour;
  local.tm_min = *minute;
  local.tm_sec = *second;
  local.tm_isdst = -1;  // let the time zone rules decide
  std::time_t seconds = std::mktime(&local);
  if (seconds == static_cast<std::time_t>(-1) && (local.tm_year != *year - 1900 || local.tm_mday != *day)) {
    return std::nullopt;
  }
  return static_cast<double>(seconds);
}

std::string cameraName(std::string_view make, std::string_view model) {
  const std::string ownedMake = trimmed(make), ownedModel = trimmed(model);
  make = ownedMake;
  model = ownedModel;
  std::string_view firstWord = make.substr(0, make.find(' '));
  std::string lowerModel = asciiLowercased(model);
  if (lowerModel.rfind(asciiLowercased(firstWord), 0) == 0) return std::string(model);
  // Make, blank, model even when the model is missing: the catalog's camera
  // names follow one rule without exceptions.
  return std::string(make) + " " + std::string(model);
}

PhotoMeta photoMetaFrom(const RawInfo& info) {
  PhotoMeta meta;
  meta.width = info.width;
  meta.height = info.height;
  meta.capture = exifDate(info.dateOriginal);
  meta.camera = cameraName(info.make, info.model);
  meta.lens = info.lens;
  meta.iso = info.iso;
  meta.shutter = info.exposure;
  meta.aperture = info.fNumber;
  meta.focal = info.focal;
  return meta;
}

PhotoMeta photoMetaFrom(const ImageProperties& p) {
  PhotoMeta meta;
  meta.width = p.pixelWidth;
  meta.height = p.pixelHeight;
  if (p.orientation >= 5 && p.orientation <= 8) std::swap(meta.width, meta.height);
  if (p.dateTimeOriginal) meta.capture = exifDate(*p.dateTimeOriginal);
  if (!meta.capture && p.dateTime) meta.capture = exifDate(*p.dateTime);
  meta.camera = cameraName(p.make.value_or(""), p.model.value_or(""));
  meta.lens = p.lensModel.value_or("");
  if (p.iso && *p.iso > 0 && *p.iso <= 0x7fffffff) meta.iso = static_cast<int>(*p.iso);
  meta.shutter = p.exposureTime.value_or(0);
  meta.aperture = p.fNumber.value_or(0);
  meta.focal = p.focalLength.value_or(0);
  for (const std::string& keyword : p.keywords) {
    std::string word = trimmed(keyword);
    if (!word.empty()) meta.keywords.push_back(std::move(word));
  }
  return meta;
}

std::vector<DetailRow> detailRowsFrom(const RawInfo& info, const std::string& extension) {
  Rows rows;
  rows.add("Camera make", info.make);
  rows.add("Camera model", info.model);
  rows.add("Lens", info.lens);
  rows.add("Taken", info.dateOriginal);
  if (info.exposure > 0) rows.add("Shutter speed", formatShutter(info.exposure));
  if (info.fNumber > 0) rows.add("Aperture", "f/" + formatFixed(info.fNumber, 1));
  if (info.iso >= 1) rows.add("ISO", std::to_string(info.iso));
  if (info.focal > 0) rows.add("Focal length", formatMillimetres(info.focal));
  rows.add("Sensor size", pixelSize(info.width, info.height));
  rows.add("File type", "RAW (" + asciiUppercased(extension) + ")");
  return std::move(rows.rows);
}

std::vector<DetailRow> detailRowsFrom(const ImageProperties& p) {
  Rows rows;
  rows.add("Camera make", p.make);
  rows.add("Camera model", p.model);
  rows.add("Lens", p.lensModel);
  rows.add("Taken", p.dateTimeOriginal);
  if (p.exposureTime && *p.exposureTime > 0) rows.add("Shutter speed", formatShutter(*p.exposureTime));
  if (p.fNumber) rows.add("Aperture", "f/" + formatFixed(*p.fNumber, 1));
  rows.addNumber("ISO", p.iso);
  if (p.focalLength) rows.add("Focal length", formatMillimetres(*p.focalLength));
  if (p.focalLength35) rows.add("35 mm equivalent", plainNumber(*p.focalLength35) + " mm");
  if (p.exposureBias) rows.add("Exposure compensation", formatFixed(*p.exposureBias, 1, true) + " EV");
  if (p.flash) rows.add("Flash", std::string((*p.flash & 1) ? "Fired" : "Did not fire"));
  if (p.whiteBalance) rows.add("White balance", std::string(*p.whiteBalance == 0 ? "Auto" : "Manual"));
  rows.addNumber("Metering", p.meteringMode);
  if (p.pixelWidth > 0 && p.pixelHeight > 0) rows.add("Pixel size", pixelSize(p.pixelWidth, p.pixelHeight));
  rows.add("Color profile", p.profileName);
  rows.addNumber("Bit depth", p.depth);
  rows.add("Copyright", p.copyright);
  rows.add("Artist", p.artist);
  rows.add("Software", p.software);
  if (p.latitude && p.longitude) {
    std::string latRef = p.latitudeRef && !p.latitudeRef->empty() ? *p.latitudeRef : "N";
    std::string lonRef = p.longitudeRef && !p.longitudeRef->empty() ? *p.longitudeRef : "E";
    rows.add("GPS", formatFixed(*p.latitude, 5) + "\u00b0 " + latRef + ", " + formatFixed(*p.longitude, 5) +
                        "\u00b0 " + lonRef);
  }
  return std::move(rows.rows);
}

std::optional<PhotoMeta> PhotoMeta::read(const std::filesystem::path& file) {
  std::optional<PhotoMeta> meta;
  if (PhotoFormats::isRaw(file)) {
    auto info = RawPreview::info(file);
    if (info && !info->model.empty() && info->width >= 1) meta = photoMetaFrom(*info);
  }
  if (!meta) {
    auto properties = readImageProperties(file);
    if (!properties) return std::nullopt;
    meta = photoMetaFrom(*properties);
  }
  meta->fileSize = fileSizeOf(file);
  return meta;
}

std::vector<DetailRow> PhotoMeta::details(const std::filesystem::path& file) {
  if (PhotoFormats::isRaw(file)) {
    auto info = RawPreview::info(file);
    if (info && !info->model.empty()) return detailRowsFrom(*info, file.extension().string().substr(1));
  }
  auto properties = readImageProperties(file);
  if (!properties) return {};
  return detailRowsFrom(*properties);
}

}  // namespace lumivale
