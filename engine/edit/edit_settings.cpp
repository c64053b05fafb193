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

void hashInto(Hasher& h, const HSLBand& b) {
  h.add(b.hue);
  h.add(b.saturation);
  h.add(b.luminance);
}

void hashInto(Hasher& h, const GradeWheel& w) {
  h.add(w.hue);
  h.add(w.saturation);
  h.add(w.luminance);
}

void hashInto(Hasher& h, const EditSettings& s) {
  h.add(s.version);
  for (double v : {s.temperature, s.tint, s.exposure, s.contrast, s.highlights, s.shadows, s.whites, s.blacks,
                   s.vibrance, s.saturation}) {
    h.add(v);
  }
  h.add(s.blackAndWhite);
  for (const ToneCurve* curve : {&s.curveRGB, &s.curveRed, &s.curveGreen, &s.curveBlue}) hashInto(h, *curve);
  h.addCount(s.hsl.size());
  for (const HSLBand& band : s.hsl) hashInto(h, band);
  hashInto(h, s.gradeShadows);
  hashInto(h, s.gradeMidtones);
  hashInto(h, s.gradeHighlights);
  for (double v :
       {s.gradeBlending, s.gradeBalance, s.sharpenAmount, s.sharpenRadius, s.noiseLuminance, s.noiseColor}) {
    h.add(v);
  }
  h.add(s.lensCorrection);
  for (double v : {s.vignetteAmount, s.vignetteMidpoint, s.vignetteFeather, s.grainAmount, s.grainSize})
    h.add(v);
  h.add(s.rotateQuarterTurns);
  h.add(s.flipHorizontal);
  h.add(s.flipVertical);
  h.add(s.straighten);
  hashInto(h, s.crop);
  h.add(std::string_view(s.cropAspect));
  h.addCount(s.masks.size());
  for (const PhotoMask& mask : s.masks) hashInto(h, mask);
}

}  // namespace lumivale
