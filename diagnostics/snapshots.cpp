#include "diagnostics/snapshots.h"

#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstring>
#include <functional>
#include <ostream>
#include <system_error>

#include "engine/edit/presets.h"
#include "engine/export/exporter.h"
#include "engine/media/bitmap.h"
#include "engine/media/image_encoder.h"
#include "engine/render/photo_renderer.h"
#include "engine/render/smart_masks.h"

namespace lumivale::diagnostics {
namespace {

// "Black & White: High Contrast" as "black-white-high-contrast".
std::string slug(std::string_view text) {
  std::string out;
  for (unsigned char c : text) {
    if (std::isalnum(c)) {
      out += char(std::tolower(c));
    } else if (!out.empty() && out.back() != '-') {
      out += '-';
    }
  }
  while (!out.empty() && out.back() == '-') out.pop_back();
  return out;
}

std::string sceneTitle(Scene scene) {
  switch (scene) {
    case Scene::greyRamp:
      return "Grey ramp";
    case Scene::colorPatches:
      return "Colour patches";
    case Scene::skyOverGround:
      return "Sky over ground";
    case Scene::portrait:
      return "Portrait";
  }
  return "Scene";
}

// What a mask does where it applies in the snapshots: darker and without
// colour, so its coverage is plain to see.
PhotoMask snapshotMask(MaskKind kind) {
  PhotoMask mask(kind);
  mask.id = "snapshot-" + std::string(key(kind));  // fixed, so the settings are the same every run
  mask.adjust = {.exposure = -1, .saturation = -100};
  if (kind == MaskKind::brush) {
    for (int i = 0; i <= 12; ++i) {
      const double t = i / 12.0;
      mask.dabs.push_back(
          {.x = 0.2 + 0.6 * t, .y = 0.3 + 0.4 * t, .radius = 0.07, .feather = 0.5, .flow = 0.8});
    }
  }
  return mask;
}

std::vector<SnapshotEntry> makeSet() {
  std::vector<SnapshotEntry> set;
  for (Scene scene : allScenes) {
    set.push_back({std::string(key(scene)) + "-default", "Default settings", sceneTitle(scene), scene, {}});
  }
  const Scene lookScene = Scene::colorPatches;
  for (const BuiltInPreset& look : BuiltInPresets::all()) {
    set.push_back({std::string(key(lookScene)) + "-look-" + slug(look.name), "Looks",
                   sceneTitle(lookScene) + ", " + look.name, lookScene,
                   applyPreset(EditSettings(), look.settings, look.groups())});
  }
  struct Strong {
    Scene scene;
    const char* name;
    const char* caption;
    std::function<void(EditSettings&)> set;
  };
  const Strong strong[] = {
      {Scene::greyRamp, "exposure-plus-2", "Exposure +2", [](EditSettings& s) { s.exposure = 2; }},
      {Scene::greyRamp, "contrast-plus-100", "Contrast +100", [](EditSettings& s) { s.contrast = 100; }},
      {Scene::greyRamp, "highlights-minus-100", "Highlights −100",
       [](EditSettings& s) { s.highlights = -100; }},
      {Scene::greyRamp, "shadows-plus-100", "Shadows +100", [](EditSettings& s) { s.shadows = 100; }},
      {Scene::colorPatches, "temperature-plus-100", "Temperature +100",
       [](EditSettings& s) { s.temperature = 100; }},
      {Scene::colorPatches, "vibrance-plus-100", "Vibrance +100", [](EditSettings& s) { s.vibrance = 100; }},
      {Scene::colorPatches, "saturation-minus-100", "Saturation −100",
       [](EditSettings& s) { s.saturation = -100; }},
      {Scene::skyOverGround, "vignette-minus-100", "Vignette −100",
       [](EditSettings& s) { s.vignetteAmount = -100; }},
      {Scene::skyOverGround, "straighten-10", "Straighten 10°", [](EditSettings& s) { s.straighten = 10; }},
  };
  for (const Strong& s : strong) {
    EditSettings settings;
    s.set(settings);
    set.push_back({std::string(key(s.scene)) + "-" + s.name, "Strong settings",
                   sceneTitle(s.scene) + ", " + s.caption, s.scene, settings});
  }
  for (MaskKind kind : allMaskKinds()) {
    const Scene scene =
        kind == MaskKind::subject || kind == MaskKind::people ? Scene::portrait : Scene::skyOverGround;
    EditSettings settings;
    settings.masks = {snapshotMask(kind)};
    set.push_back({std::string(key(scene)) + "-mask-" + std::string(key(kind)), "Masks",
                   sceneTitle(scene) + ", " + std::string(title(kind)), scene, settings});
  }
  return set;
}

// Text for HTML, and a file name as a link.
std::string html(std::string_view text) {
  std::string out;
  for (char c : text) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      default:
        out += c;
    }
  }
  return out;
}

std::string link(std::string_view fileName) {
  static const char hex[] = "0123456789ABCDEF";
  std::string out;
  for (unsigned char c : fileName) {
    if (std::isalnum(c) || c == '-' || c == '_' || c == '.') {
      out += char(c);
    } else {
      out += '%';
      out += hex[c >> 4];
      out += hex[c & 15];
    }
  }
  return out;
}

struct SheetItem {
  const SnapshotEntry* entry;
  std::optional<std::string> file;  ///< the name written, or nothing when left out
  std::string why;
};

std::string contactSheet(const std::vector<SheetItem>& items) {
  std::string page =
      "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
      "<title>KUVO Lumivale snapshots</title>\n<style>\n"
      "body { background: #222; color: #ddd; font: 14px sans-serif; margin: 2em; }\n"
      "section { display: flex; flex-wrap: wrap; gap: 1em; }\n"
      "figure { margin: 0; width: " +
      std::to_string(snapshotWidth) +
      "px; }\n"
      "figcaption { margin-top: 0.3em; }\n"
      ".missing { height: " +
      std::to_string(snapshotHeight) +
      "px; border: 1px dashed #777; display: flex; align-items: center; justify-content: center; text-align: "
      "center; }\n"
      "</style>\n</head>\n<body>\n<h1>KUVO Lumivale snapshots</h1>\n";
  std::string section;
  for (const SheetItem& item : items) {
    if (item.entry->section != section) {
      if (!section.empty()) page += "</section>\n";
      section = item.entry->section;
      page += "<h2>" + html(section) + "</h2>\n<section>\n";
    }
    page += "<figure>";
    if (item.file) {
      page += "<a href=\"" + link(*item.file) + "\"><img src=\"" + link(*item.file) + "\" width=\"" +
              std::to_string(snapshotWidth) + "\" height=\"" + std::to_string(snapshotHeight) + "\" alt=\"" +
              html(item.entry->caption) + "\"></a>";
    } else {
      page += "<div class=\"missing\">" + html(item.why) + "</div>";
    }
    page += "<figcaption>" + html(item.entry->caption) + "</figcaption></figure>\n";
  }
  if (!section.empty()) page += "</section>\n";
  page += "</body>\n</html>\n";
  return page;
}

// Why `folder` cannot take the snapshots, or nothing when it can (made now
// when it was missing).
std::optional<std::string> unusable(const std::filesystem::path& folder) {
  std::error_code error;
  const auto status = std::filesystem::status(folder, error);
  if (std::filesystem::exists(status)) {
    if (!std::filesystem::is_directory(status)) return "it is not a folder";
  } else {
    std::filesystem::create_directories(folder, error);
    if (error) return "it cannot be made: " + error.message();
  }
  if (access(folder.c_str(), W_OK | X_OK) != 0)
    return std::string("it cannot be written: ") + std::strerror(errno);
  return std::nullopt;
}

}  // namespace

const std::vector<SnapshotEntry>& snapshotSet() {
  static const std::vector<SnapshotEntry> set = makeSet();
  return set;
}

std::optional<Image> renderSnapshot(const SnapshotEntry& entry, std::string* why) {
  EditSettings settings = entry.settings;
  for (PhotoMask& mask : settings.masks) {
    if (!isSmart(mask.kind) || mask.maskPNG) continue;
    const Bitmap picture = sceneBitmap(entry.scene, snapshotWidth, snapshotHeight);
    std::string reason;
    std::optional<MaskBitmap> coverage = mask.kind == MaskKind::sky ? SmartMasks::sky(picture)
                                         : mask.kind == MaskKind::subject
                                             ? SmartMasks::subject(picture, &reason)
                                             : SmartMasks::people(picture, &reason);
    if (!coverage) {
      if (why) *why = reason.empty() ? std::string(title(mask.kind)) + " found nothing" : reason;
      return std::nullopt;
    }
    mask.maskPNG = coverage->encoded();
  }
  PhotoRenderer renderer;
  return renderer.render(sceneImage(entry.scene, snapshotWidth, snapshotHeight),
                         {double(snapshotWidth), double(snapshotHeight)}, settings);
}

std::string snapshotPng(const Image& developed) {
  return ImageEncoder::encode(outputImage(developed, ColorSpace::sRGB, 8), {.format = ImageFormat::png});
}

int writeSnapshots(const std::filesystem::path& folder, std::ostream& out, std::ostream& err) {
  if (const auto why = unusable(folder)) {
    err << "lumivale: cannot write snapshots into " << folder.string() << ": " << *why << "\n";
    return 1;
  }
  const auto& set = snapshotSet();
  std::vector<SheetItem> items;
  int index = 0;
  std::string doing;
  try {
    for (const SnapshotEntry& entry : set) {
      ++index;
      doing = "snapshot " + entry.name;
      SheetItem item{&entry, std::nullopt, {}};
      if (const auto developed = renderSnapshot(entry, &item.why)) {
        const auto file = Exporter::writeFile(folder, entry.name, "png", snapshotPng(*developed));
        item.file = file.filename().string();
        out << "[" << index << "/" << set.size() << "] " << file.string() << "\n";
      } else {
        err << "lumivale: left out " << entry.name << ": " << item.why << "\n";
      }
      out.flush();
      items.push_back(std::move(item));
    }
    doing = "the contact sheet";
    const auto sheet = Exporter::writeFile(folder, "index", "html", contactSheet(items));
    out << "Contact sheet: " << sheet.string() << "\n";
  } catch (const std::exception& e) {
    err << "lumivale: " << doing << " failed: " << e.what() << "\n";
    return 1;
  }
  return 0;
}

}  // namespace lumivale::diagnostics
