#include "engine/edit/presets.h"

#include <functional>

namespace lumivale {

namespace {

BuiltInPreset look(std::string name, std::string category, std::string note,
                   const std::function<void(EditSettings&)>& change) {
  BuiltInPreset preset{std::move(name), std::move(category), std::move(note), EditSettings{}};
  change(preset.settings);
  return preset;
}

HSLBand& band(EditSettings& s, ColorBand b) { return s.hsl.at(static_cast<std::size_t>(b)); }

std::vector<BuiltInPreset> makeLooks() {
  using B = ColorBand;
  std::vector<BuiltInPreset> looks;
  looks.push_back(look("Natural Boost", "Color",
                       "A gentle all-round lift: a little contrast, vibrance and shadow detail.",
                       [](EditSettings& s) {
                         s.contrast = 12;
                         s.highlights = -10;
                         s.shadows = 15;
                         s.vibrance = 18;
                       }));
  looks.push_back(look("Grand Mesa Pop", "Color", "Punchy landscape color with deep skies and crisp detail.",
                       [](EditSettings& s) {
                         s.contrast = 22;
                         s.highlights = -35;
                         s.shadows = 25;
                         s.whites = 10;
                         s.blacks = -10;
                         s.vibrance = 30;
                         s.saturation = 6;
                         s.sharpenAmount = 35;
                         band(s, B::blue) = {-5, 20, -18};
                       }));
  // Mixer: richer, slightly deeper oranges and golden yellows, a touch more red.
  looks.push_back(
      look("Bookcliff Sunset", "Color", "Warm golden-hour glow with rich oranges.", [](EditSettings& s) {
        s.temperature = 22;
        s.tint = 6;
        s.contrast = 10;
        s.highlights = -20;
        s.vibrance = 20;
        s.gradeHighlights = {40, 25, 0};
        band(s, B::red) = {0, 8, 0};
        band(s, B::orange) = {0, 15, 5};
        band(s, B::yellow) = {-6, 10, 0};
      }));
  // Shadow wheel saturation 20: a clear but not heavy blue cast in the shadows.
  looks.push_back(
      look("Colorado Blue Hour", "Color", "Cool twilight blues with soft highlights.", [](EditSettings& s) {
        s.temperature = -25;
        s.tint = 8;
        s.contrast = 8;
        s.highlights = -25;
        s.shadows = 10;
        s.gradeShadows = {220, 20, 0};
      }));
  // Highlight wheel saturation 12: a faint peach warmth on skin highlights.
  looks.push_back(
      look("Palisade Peach", "Portrait", "Soft, warm skin tones for portraits.", [](EditSettings& s) {
        s.temperature = 8;
        s.contrast = -8;
        s.highlights = -15;
        s.shadows = 12;
        s.vibrance = 10;
        s.gradeHighlights = {30, 12, 0};
        band(s, B::orange) = {3, -8, 10};
      }));
  // Mixer: lighter, slightly calmer oranges and reds, the skin-tone bands.
  looks.push_back(
      look("Soft Skin Glow", "Portrait", "Brighter skin and a light, airy finish.", [](EditSettings& s) {
        s.exposure = 0.15;
        s.contrast = -12;
        s.highlights = -10;
        s.shadows = 18;
        s.whites = 6;
        s.vibrance = 6;
        band(s, B::red) = {0, -4, 6};
        band(s, B::orange) = {0, -6, 12};
      }));
  // Mixer: aquas pushed toward teal, blues calmed, ambers richer, greens muted.
  looks.push_back(look("Teal Canyon", "Cinematic", "Teal shadows and amber highlights, a movie-poster look.",
                       [](EditSettings& s) {
                         s.contrast = 18;
                         s.highlights = -20;
                         s.saturation = -8;
                         s.gradeShadows = {190, 35, -4};
                         s.gradeHighlights = {38, 30, 0};
                         band(s, B::orange) = {0, 12, 0};
                         band(s, B::green) = {0, -20, 0};
                         band(s, B::aqua) = {-10, 15, 0};
                         band(s, B::blue) = {-12, -10, 0};
                       }));
  // Shadow wheel saturation 10: a faint cool cast in the lifted blacks.
  looks.push_back(look("Monument Matte", "Film", "Faded film: lifted blacks, softened whites, muted color.",
                       [](EditSettings& s) {
                         s.contrast = -10;
                         s.saturation = -18;
                         s.grainAmount = 18;
                         s.grainSize = 30;
                         s.gradeShadows = {210, 10, 0};
                         s.curveRGB.points = {{0, 0.09}, {0.25, 0.26}, {0.75, 0.76}, {1, 0.93}};
                       }));
  looks.push_back(
      look("Faded Postcard", "Film", "A sun-faded vintage print with warm paper tones.", [](EditSettings& s) {
        s.temperature = 12;
        s.contrast = -15;
        s.saturation = -25;
        s.vignetteAmount = -15;
        s.grainAmount = 25;
        s.gradeHighlights = {45, 18, 0};
        s.curveRGB.points = {{0, 0.12}, {0.5, 0.52}, {1, 0.9}};
      }));
  looks.push_back(look("Night Lights", "Night",
                       "Cleaner night photos: richer blacks, cooler tone, less noise.", [](EditSettings& s) {
                         s.temperature = -10;
                         s.contrast = 15;
                         s.highlights = -30;
                         s.blacks = -15;
                         s.vibrance = 12;
                         s.noiseLuminance = 35;
                         s.noiseColor = 40;
                       }));
  looks.push_back(look("High Country Clarity", "Landscape", "Clear mountain air: open shadows, crisp detail.",
                       [](EditSettings& s) {
                         s.contrast = 15;
                         s.highlights = -40;
                         s.shadows = 35;
                         s.blacks = -12;
                         s.vibrance = 22;
                         s.sharpenAmount = 45;
                         s.sharpenRadius = 1.2;
                       }));
  looks.push_back(
      look("High Key", "Light", "Bright and airy, almost white backgrounds.", [](EditSettings& s) {
        s.exposure = 0.6;
        s.contrast = -15;
        s.highlights = -20;
        s.shadows = 30;
        s.whites = 15;
        s.saturation = -10;
      }));
  looks.push_back(look("Low Key Drama", "Light", "Dark, moody and contrasty.", [](EditSettings& s) {
    s.exposure = -0.5;
    s.contrast = 30;
    s.highlights = -25;
    s.shadows = -15;
    s.blacks = -20;
    s.vibrance = -5;
    s.vignetteAmount = -35;
  }));
  looks.push_back(look("Silver Gelatin B&W", "Black & White", "Classic black and white with deep blacks.",
                       [](EditSettings& s) {
                         s.blackAndWhite = true;
                         s.contrast = 25;
                         s.highlights = -15;
                         s.shadows = 10;
                         s.blacks = -12;
                         s.grainAmount = 12;
                       }));
  looks.push_back(
      look("Soft Gray B&W", "Black & White", "Gentle, low-contrast black and white.", [](EditSettings& s) {
        s.blackAndWhite = true;
        s.contrast = -15;
        s.shadows = 20;
        s.curveRGB.points = {{0, 0.06}, {1, 0.95}};
      }));
  // Wheels: shadows a clear cool blue (saturation 20), highlights barely warm (8).
  looks.push_back(look("Selenium Mesa", "Black & White", "Black and white with a cool selenium-like tone.",
                       [](EditSettings& s) {
                         s.blackAndWhite = true;
                         s.contrast = 18;
                         s.gradeShadows = {255, 20, 0};
                         s.gradeHighlights = {40, 8, 0};
                       }));
  // Mixer: golden yellows and oranges, dusty pale blue sky, dry muted greens.
  looks.push_back(look("Desert Gold", "Color", "Warm, dusty desert color.", [](EditSettings& s) {
    s.temperature = 18;
    s.contrast = 12;
    s.vibrance = 10;
    s.saturation = -5;
    band(s, B::orange) = {0, 10, 4};
    band(s, B::yellow) = {-8, 12, 0};
    band(s, B::green) = {-10, -15, 0};
    band(s, B::blue) = {0, -25, 10};
  }));
  looks.push_back(
      look("Clean Product", "Studio", "Neutral, bright and crisp for product photos.", [](EditSettings& s) {
        s.exposure = 0.2;
        s.contrast = 10;
        s.whites = 15;
        s.blacks = -5;
        s.vibrance = 5;
        s.sharpenAmount = 40;
      }));
  return looks;
}

}  // namespace

namespace BuiltInPresets {

const std::vector<BuiltInPreset>& all() {
  static const std::vector<BuiltInPreset> looks = makeLooks();
  return looks;
}

}  // namespace BuiltInPresets

EditSettings applyPreset(const EditSettings& photo, const EditSettings& preset,
                         const std::set<SettingsGroup>& groups) {
  const EditSettings reset = photo.merging(EditSettings::blank(), allButLocal());
  return reset.merging(preset, groups);
}

}  // namespace lumivale
