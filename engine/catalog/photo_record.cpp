#include "engine/catalog/photo_record.h"

#include <charconv>
#include <cmath>
#include <vector>

namespace lumivale {

std::string formatFixed(double value, int decimals, bool withSign) {
  if (!std::isfinite(value)) return {};
  char text[400];
  auto [end, error] = std::to_chars(text, text + sizeof text, value, std::chars_format::fixed, decimals);
  if (error != std::errc()) return {};
  std::string out(text, end);
  if (withSign && out[0] != '-') out.insert(0, "+");
  return out;
}

std::string formatShutter(double seconds) {
  if (!(seconds > 0)) return {};
  if (seconds < 1) return "1/" + formatFixed(std::round(1.0 / seconds), 0) + " s";  // halves away from zero
  return formatFixed(seconds, 1) + " s";
}

std::string formatMillimetres(double focalLength) { return formatFixed(std::round(focalLength), 0) + " mm"; }

std::string PhotoRecord::shutterText() const { return formatShutter(shutter); }

std::string PhotoRecord::summary() const {
  std::vector<std::string> parts;
  if (iso >= 1) parts.push_back("ISO " + std::to_string(iso));
  if (std::string s = shutterText(); !s.empty()) parts.push_back(s);
  if (aperture > 0) parts.push_back("f/" + formatFixed(aperture, 1));
  if (focalLength > 0) parts.push_back(formatMillimetres(focalLength));
  std::string joined;
  for (std::size_t i = 0; i < parts.size(); ++i) {
    if (i) joined += "  \u00b7  ";
    joined += parts[i];
  }
  return joined;
}

}  // namespace lumivale
