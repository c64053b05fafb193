#include "engine/catalog/photo_record.h"

#include <cmath>
#include <cstdio>
#include <vector>

namespace lumivale {

std::string formatShutter(double seconds) {
  if (!(seconds > 0)) return {};
  char text[64];
  if (seconds < 1) {
    double denominator = std::round(1.0 / seconds);  // halves away from zero
    std::snprintf(text, sizeof text, "1/%.0f s", denominator);
  } else {
    std::snprintf(text, sizeof text, "%.1f s", seconds);
  }
  return text;
}

std::string PhotoRecord::shutterText() const { return formatShutter(shutter); }

std::string PhotoRecord::summary() const {
  std::vector<std::string> parts;
  if (iso >= 1) parts.push_back("ISO " + std::to_string(iso));
  if (std::string s = shutterText(); !s.empty()) parts.push_back(s);
  char text[64];
  if (aperture > 0) {
    std::snprintf(text, sizeof text, "f/%.1f", aperture);
    parts.emplace_back(text);
  }
  if (focalLength > 0) {
    std::snprintf(text, sizeof text, "%.0f mm", std::round(focalLength));
    parts.emplace_back(text);
  }
  std::string joined;
  for (std::size_t i = 0; i < parts.size(); ++i) {
    if (i) joined += "  \u00b7  ";
    joined += parts[i];
  }
  return joined;
}

}  // namespace lumivale
