#include "engine/edit/edit_settings.h"

#include <cmath>

#include "engine/edit/json.h"

namespace lumivale {

namespace {

// Shortest round-trip text with at least one fractional digit: "0.0",
// "25.0", "12.5", "1000000.0". The layout is the stored form's (plain
// decimal from 1e-4 to 2^53), so exponent forms appear only outside that
// range and stay as they are ("1e-05", "1e+300").
std::string keyNumber(double v) {
  if (v == 0) return "0.0";  // −0 equals +0, so both give one key
  if (std::isnan(v)) return "nan";
  if (std::isinf(v)) return v < 0 ? "-inf" : "inf";
  JsonWriter writer;
  writer.value(v);
  std::string text = writer.take();
  if (text.find_first_of(".en") == std::string::npos) text += ".0";
  return text;
}

}  // namespace

const std::array<ColorBand, 8>& allColorBands() {
  static constexpr std::array<ColorBand, 8> bands{ColorBand::red,    ColorBand::orange, ColorBand::yellow,
                                                  ColorBand::green,  ColorBand::aqua,   ColorBand::blue,
                                                  ColorBand::purple, ColorBand::magenta};
  return bands;
}

const EditSettings& EditSettings::blank() {
  static const EditSettings defaults;
  return defaults;
}

bool EditSettings::isDefault() const { return *this == blank(); }

std::string EditSettings::sourceKey() const {
  return keyNumber(noiseLuminance) + "|" + keyNumber(noiseColor) + "|" + (lensCorrection ? "true" : "false");
}

std::size_t EditSettings::hash() const {
  Hasher h;
  hashInto(h, *this);
  return h.value();
}

}  // namespace lumivale
