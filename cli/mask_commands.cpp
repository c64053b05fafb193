// Commands for the local masks of a photo: list them, add one of any kind
// (gradients and brush strokes as given, subject, sky and people computed
// from the photo's preview), recompute a smart mask, bring a coverage PNG
// made by another tool in as a smart mask, write a mask's bitmap out as a
// grey PNG, and delete a mask. Every change is one history step, so it can
// be undone like any edit.

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <set>

#include "cli/commands.h"
#include "cli/common.h"
#include "cli/develop.h"
#include "engine/catalog/photo_library.h"
#include "engine/edit/field_path.h"
#include "engine/edit/photo_mask.h"
#include "engine/export/mask_export.h"
#include "engine/media/bitmap.h"
#include "engine/render/photo_renderer.h"
#include "engine/render/smart_masks.h"

namespace lumivale::cli {
namespace {

std::string number(double v) {
  char text[32];
  std::snprintf(text, sizeof text, "%g", v);
  return text;
}

nlohmann::json coverageJson(const PhotoMask& mask, const PhotoRecord& photo) {
  const std::optional<double> share = meanCoverage(mask, photo.width, photo.height);
  return share ? nlohmann::json(*share) : nlohmann::json(nullptr);
}

std::string kindList() {
  std::vector<std::string> keys;
  for (MaskKind kind : allMaskKinds()) keys.emplace_back(key(kind));
  return joined(keys, ", ");
}

std::string percent(double share) {
  char text[32];
  std::snprintf(text, sizeof text, "%.1f%%", share * 100);
  return text;
}

nlohmann::json maskJson(const PhotoMask& mask, std::size_t index, const PhotoRecord& photo) {
  nlohmann::json adjust = nlohmann::json::object();
  for (const auto& [name, value] : nonZeroAdjustments(mask.adjust)) adjust[std::string(name)] = value;
  nlohmann::json bitmap = nullptr;
  if (mask.maskPNG) {
    if (auto size = storedBitmapSize(*mask.maskPNG)) {
      bitmap = {{"width", size->first}, {"height", size->second}, {"bytes", mask.maskPNG->size()}};
    }
  }
  return {{"index", index},        {"id", mask.id},
          {"name", mask.name},     {"kind", std::string(key(mask.kind))},
          {"invert", mask.invert}, {"opacity", mask.opacity},
          {"adjust", adjust},      {"dabs", mask.dabs.size()},
          {"bitmap", bitmap},      {"coverage", coverageJson(mask, photo)}};
}

int listMasks(Context& ctx, const Arguments& args) {
  if (args.positional.size() != 2) throw UsageError("expected: mask list ID");
  PhotoLibrary& library = ctx.library();
  const std::int64_t id = parseId(args.positional[1]);
  const PhotoRecord photo = existingPhoto(library, id);
  const EditSettings settings = library.settings(id);
  if (ctx.json) {
    nlohmann::json masks = nlohmann::json::array();
    for (std::size_t i = 0; i < settings.masks.size(); ++i)
      masks.push_back(maskJson(settings.masks[i], i, photo));
    ctx.printJson({{"photo", id}, {"masks", masks}});
    return 0;
  }
  if (settings.masks.empty()) {
    ctx.out << "Photo " << id << " has no masks.\n";
    return 0;
  }
  for (std::size_t i = 0; i < settings.masks.size(); ++i) {
    const PhotoMask& m = settings.masks[i];
    ctx.out << i << "  " << printable(m.id) << "  " << printable(m.name) << "  (" << key(m.kind) << ")";
    if (m.invert) ctx.out << "  inverted";
    if (m.opacity != 1) ctx.out << "  opacity " << number(m.opacity);
    std::string adjustments;
    for (const auto& [name, value] : nonZeroAdjustments(m.adjust)) {
      adjustments += (adjustments.empty() ? "" : ", ") + std::string(name) + " " + number(value);
    }
    ctx.out << "  " << (adjustments.empty() ? "no adjustments" : adjustments);
    if (m.kind == MaskKind::brush) ctx.out << "  " << m.dabs.size() << " dabs";
    if (isSmart(m.kind)) {
      auto size = m.maskPNG ? storedBitmapSize(*m.maskPNG) : std::nullopt;
      if (size) {
        ctx.out << "  bitmap " << size->first << " \u00d7 " << size->second;
      } else {
        ctx.out << "  no bitmap";
      }
    }
    if (auto share = meanCoverage(m, photo.width, photo.height)) ctx.out << "  coverage " << percent(*share);
    ctx.out << "\n";
  }
  return 0;
}

// ---- add and refresh -------------------------------------------------------------

// A finite decimal number; anything else is a usage error naming `what`.
double parseNumber(const std::string& text, const std::string& what) {
  char* end = nullptr;
  const double value = std::strtod(text.c_str(), &end);
  if (text.empty() || end != text.c_str() + text.size() || !std::isfinite(value))
    throw UsageError(what + " must be a number, not '" + text + "'");
  return value;
}

double parseShare(const std::string& text, const std::string& what) {
  const double value = parseNumber(text, what);
  if (value < 0 || value > 1) throw UsageError(what + " must lie between 0 and 1");
  return value;
}

// Applies one edit to `mask` through the stored form, so that a value is
// checked as strictly as stored settings are; false when it does not fit.
bool editMask(PhotoMask& mask, const std::string& field, const std::string& value) {
  EditSettings holder;
  holder.masks.push_back(mask);
  try {
    mask = applyFieldEdits(holder, {{"masks.0." + field, value}}).masks[0];
    return true;
  } catch (const FieldPathError&) {
    return false;
  }
}

// The options every kind takes: --name, --invert, --opacity and --adjust
// FIELD=VALUE (a field of the mask's adjustments), and a brush's --dabs.
PhotoMask applyCommonOptions(PhotoMask mask, const Arguments& args) {
  if (auto name = args.value("--name")) mask.name = requireName(*name, "--name");
  mask.invert = args.has("--invert");
  if (auto opacity = args.value("--opacity")) mask.opacity = parseShare(*opacity, "--opacity");
  for (const std::string& assignment : args.all("--adjust")) {
    const std::size_t equals = assignment.find('=');
    const std::string field = assignment.substr(0, equals);
    if (equals == std::string::npos || field.find('.') != std::string::npos ||
        !editMask(mask, "adjust." + field, assignment.substr(equals + 1))) {
      throw UsageError("--adjust " + assignment +
                       ": expected FIELD=NUMBER with FIELD one of exposure, contrast, highlights, shadows, "
                       "temperature, tint, saturation, sharpness");
    }
  }
  if (auto dabs = args.value("--dabs")) {
    if (!editMask(mask, "dabs", readInputFile(*dabs, "brush dabs"))) {
      throw CommandError("'" + *dabs +
                         "' does not hold brush dabs (a JSON list of objects with x, y, radius, feather, "
                         "flow and erase)");
    }
  }
  return mask;
}

// The photo developed with `settings` as the smart masks take it: a preview
// without effects (grain would read as texture), in 8-bit sRGB.
Bitmap maskPreview(Context& ctx, const PhotoRecord& photo, const EditSettings& settings) {
  PhotoRenderer::Options options;
  options.outputEffects = false;
  const DevelopInput input{photo.path, settings, "photo " + std::to_string(photo.id)};
  return toBitmap(develop(ctx, input, previewSide, options).image, ColorSpace::sRGB, 8);
}

// The coverage of a smart mask computed from the photo's preview, developed
// from the settings that are current but for the geometry (masks live in the
// coordinates of the whole, unturned photo) and the mask being computed.
MaskBitmap computeSmartMask(Context& ctx, const PhotoRecord& photo, EditSettings settings, MaskKind kind,
                            const std::string& leaveOut) {
  std::erase_if(settings.masks, [&](const PhotoMask& m) { return m.id == leaveOut; });
  settings = settings.merging(EditSettings(), {SettingsGroup::geometry});
  const Bitmap preview = maskPreview(ctx, photo, settings);
  std::string why;
  std::optional<MaskBitmap> mask;
  switch (kind) {
    case MaskKind::subject:
      mask = SmartMasks::subject(preview, &why);
      break;
    case MaskKind::people:
      mask = SmartMasks::people(preview, &why);
      break;
    default:
      // The sky leaves the subject out where the model can tell it; without
      // the model the sky alone is still worth having.
      mask = SmartMasks::sky(preview, SmartMasks::subject(preview));
      if (!mask) why = "the photo's preview is empty";
      break;
  }
  if (!mask) throw CommandError(why);
  return std::move(*mask);
}

// Adds `mask` at the end of the photo's masks as one history step; its index.
std::size_t appendMask(PhotoLibrary& library, std::int64_t id, const std::string& step,
                       const PhotoMask& mask) {
  std::size_t index = 0;
  library.updateSettings(id, step, [&](EditSettings& s) {
    s.masks.push_back(mask);
    index = s.masks.size() - 1;
  });
  return index;
}

// The mask a command added or changed: {"photo", "mask"} in JSON, else one
// line, "<done> <id> (<name>) for photo <id>, coverage <share>".
void printMask(Context& ctx, const std::string& done, const PhotoMask& mask, std::size_t index,
               const PhotoRecord& photo) {
  if (ctx.json) {
    ctx.printJson({{"photo", photo.id}, {"mask", maskJson(mask, index, photo)}});
    return;
  }
  ctx.out << done << " " << printable(mask.id) << " (" << printable(mask.name) << ") for photo " << photo.id;
  if (auto share = meanCoverage(mask, photo.width, photo.height)) ctx.out << ", coverage " << percent(*share);
  ctx.out << "\n";
}

int addMask(Context& ctx, const Arguments& args) {
  const std::string usage =
      "mask add ID sky|subject|people|linear X0 Y0 X1 Y1|radial CX CY RX RY|brush [options]";
  if (args.positional.size() < 3) throw UsageError("expected: " + usage);
  const std::int64_t id = parseId(args.positional[1]);
  const std::optional<MaskKind> kind = maskKindFromKey(args.positional[2]);
  if (!kind) throw UsageError("unknown mask kind '" + args.positional[2] + "' (one of " + kindList() + ")");
  const std::vector<std::string> numbers(args.positional.begin() + 3, args.positional.end());
  const std::size_t expected = *kind == MaskKind::linear || *kind == MaskKind::radial ? 4 : 0;
  if (numbers.size() != expected) {
    throw UsageError(*kind == MaskKind::linear   ? "expected: mask add ID linear X0 Y0 X1 Y1"
                     : *kind == MaskKind::radial ? "expected: mask add ID radial CX CY RX RY"
                                                 : "expected: mask add ID " + std::string(key(*kind)));
  }
  if (args.value("--feather") && *kind != MaskKind::radial) throw UsageError("--feather is for radial masks");
  if (args.value("--dabs").has_value() != (*kind == MaskKind::brush))
    throw UsageError("--dabs FILE.json is needed for brush masks, and only there");

  PhotoMask mask(*kind);
  if (*kind == MaskKind::linear) {
    mask.x0 = parseNumber(numbers[0], "X0"), mask.y0 = parseNumber(numbers[1], "Y0");
    mask.x1 = parseNumber(numbers[2], "X1"), mask.y1 = parseNumber(numbers[3], "Y1");
  } else if (*kind == MaskKind::radial) {
    mask.cx = parseNumber(numbers[0], "CX"), mask.cy = parseNumber(numbers[1], "CY");
    mask.rx = parseNumber(numbers[2], "RX"), mask.ry = parseNumber(numbers[3], "RY");
    if (mask.rx <= 0 || mask.ry <= 0) throw UsageError("RX and RY must be above 0");
    if (auto feather = args.value("--feather")) mask.feather = parseShare(*feather, "--feather");
  }
  mask = applyCommonOptions(std::move(mask), args);

  PhotoLibrary& library = ctx.library();
  const PhotoRecord photo = existingPhoto(library, id);
  if (isSmart(*kind)) {
    const MaskBitmap coverage = computeSmartMask(ctx, photo, library.settings(id), *kind, "");
    mask.maskPNG = coverage.encoded();
  }
  printMask(ctx, "Added mask", mask, appendMask(library, id, "Add Mask", mask), photo);
  return 0;
}

int refreshMask(Context& ctx, const Arguments& args) {
  if (args.positional.size() != 3) throw UsageError("expected: mask refresh ID MASK_ID");
  PhotoLibrary& library = ctx.library();
  const std::int64_t id = parseId(args.positional[1]);
  const PhotoRecord photo = existingPhoto(library, id);
  const EditSettings before = library.settings(id);
  const PhotoMask& named = before.masks.at(findMask(before.masks, args.positional[2]));
  if (!isSmart(named.kind)) {
    throw CommandError("the mask " + printable(named.name) + " is a " + std::string(title(named.kind)) +
                       ": only subject, sky and people masks are computed");
  }
  const std::string maskId = named.id;
  const MaskBitmap coverage = computeSmartMask(ctx, photo, before, named.kind, maskId);
  // The coverage goes to the mask of that id in the settings the write
  // itself reads, so a change made meanwhile by another program is kept.
  PhotoMask refreshed;
  std::size_t index = 0;
  library.updateSettings(id, std::string("Refresh Mask"), [&](EditSettings& s) {
    auto found =
        std::find_if(s.masks.begin(), s.masks.end(), [&](const PhotoMask& m) { return m.id == maskId; });
    if (found == s.masks.end()) throw CommandError("the mask was deleted while it was being computed");
    found->maskPNG = coverage.encoded();
    refreshed = *found;
    index = std::size_t(found - s.masks.begin());
  });
  printMask(ctx, "Refreshed mask", refreshed, index, photo);
  return 0;
}

int importMask(Context& ctx, const Arguments& args) {
  if (args.positional.size() != 3) throw UsageError("expected: mask import ID FILE.png");
  PhotoLibrary& library = ctx.writableLibrary();
  const std::int64_t id = parseId(args.positional[1]);
  MaskKind kind = MaskKind::subject;
  if (auto text = args.value("--kind")) {
    auto parsed = maskKindFromKey(*text);
    if (!parsed || !isSmart(*parsed)) throw UsageError("--kind must be subject, sky or people");
    kind = *parsed;
  }
  const PhotoRecord photo = existingPhoto(library, id);
  const MaskBitmap bitmap = maskBitmapFromImageFile(args.positional[2]);
  const PhotoMask mask = applyCommonOptions(smartMaskFromBitmap(bitmap, kind), args);
  const std::size_t index = appendMask(library, id, "Import Mask", mask);
  if (ctx.json) {
    ctx.printJson({{"photo", id}, {"mask", maskJson(mask, index, photo)}});
  } else {
    ctx.out << "Imported mask " << printable(mask.id) << " (" << printable(mask.name) << ", " << bitmap.width
            << " \u00d7 " << bitmap.height << ") into photo " << id << "\n";
  }
  return 0;
}

int exportMask(Context& ctx, const Arguments& args) {
  if (args.positional.size() != 3) throw UsageError("expected: mask export ID MASK_ID -o FILE.png");
  auto output = args.value("-o");
  if (!output || output->empty()) throw UsageError("mask export needs -o FILE.png");
  PhotoLibrary& library = ctx.library();
  const std::int64_t id = parseId(args.positional[1]);
  const PhotoRecord photo = existingPhoto(library, id);
  const EditSettings settings = library.settings(id);
  const PhotoMask& mask = settings.masks.at(findMask(settings.masks, args.positional[2]));
  const MaskBitmap bitmap = maskBitmapForExport(mask, photo.width, photo.height);
  writeMaskPNG(bitmap, *output, args.has("--force"));
  if (ctx.json) {
    ctx.printJson({{"photo", id},
                   {"mask", mask.id},
                   {"file", std::filesystem::absolute(*output).string()},
                   {"width", bitmap.width},
                   {"height", bitmap.height}});
  } else {
    ctx.out << "Wrote " << printable(*output) << " (" << bitmap.width << " \u00d7 " << bitmap.height << ")\n";
  }
  return 0;
}

int deleteMask(Context& ctx, const Arguments& args) {
  if (args.positional.size() != 3) throw UsageError("expected: mask delete ID MASK_ID");
  PhotoLibrary& library = ctx.writableLibrary();
  const std::int64_t id = parseId(args.positional[1]);
  existingPhoto(library, id);
  // The mask is looked up in the settings the deletion itself reads, so it
  // is the one the user named even if another program changed the masks.
  PhotoMask removed;
  const SettingsCommit commit = library.updateSettings(id, std::string("Delete Mask"), [&](EditSettings& s) {
    const std::size_t index = findMask(s.masks, args.positional[2]);
    removed = s.masks[index];
    s.masks.erase(s.masks.begin() + static_cast<std::ptrdiff_t>(index));
  });
  if (ctx.json) {
    ctx.printJson({{"photo", id}, {"deleted", removed.id}, {"masks", commit.settings.masks.size()}});
  } else {
    ctx.out << "Deleted mask " << printable(removed.id) << " (" << printable(removed.name) << ") from photo "
            << id << "\n";
  }
  return 0;
}

int mask(Context& ctx, const Arguments& args) {
  if (args.positional.empty()) throw UsageError("mask needs list, add, refresh, import, export or delete");
  const std::string& action = args.positional[0];
  // The options of one action given to another are refused, not ignored.
  static const std::map<std::string, std::set<std::string>> accepted = {
      {"add", {"--name", "--invert", "--opacity", "--adjust", "--feather", "--dabs"}},
      {"import", {"--kind", "--name", "--invert", "--opacity", "--adjust"}},
      {"export", {"-o", "--force"}}};
  const auto allowed = accepted.find(action);
  std::vector<std::string> given(args.flags.begin(), args.flags.end());
  for (const auto& [option, values] : args.values) given.push_back(option);
  for (const std::string& option : given) {
    if (allowed == accepted.end() || !allowed->second.count(option))
      throw UsageError("mask " + action + " does not take " + option);
  }
  if (action == "list") return listMasks(ctx, args);
  if (action == "add") return addMask(ctx, args);
  if (action == "refresh") return refreshMask(ctx, args);
  if (action == "import") return importMask(ctx, args);
  if (action == "export") return exportMask(ctx, args);
  if (action == "delete") return deleteMask(ctx, args);
  throw UsageError("unknown mask action '" + action + "'");
}

}  // namespace

void addMaskCommands(std::vector<Command>& table) {
  table.push_back(
      {"mask",
       "mask list|add|refresh|import|export|delete ...",
       "List, add, compute, import, export and delete a photo's local masks",
       "  mask list ID                     the masks of a photo: index, id, name, kind, invert,\n"
       "                                   opacity, adjustments, the stored bitmap's size and the\n"
       "                                   coverage (share of the photo selected, after --invert)\n"
       "  mask add ID sky|subject|people [options]\n"
       "                                   a smart mask computed from the photo's preview (1800\n"
       "                                   pixels, current settings; the sky leaves out the subject\n"
       "                                   when the segmentation model is installed)\n"
       "  mask add ID linear X0 Y0 X1 Y1 [options]\n"
       "                                   full effect at (X0, Y0), none from (X1, Y1) on\n"
       "  mask add ID radial CX CY RX RY [--feather F] [options]\n"
       "                                   an ellipse around (CX, CY) with radii RX, RY (fractions\n"
       "                                   of width and height), fading over the outer F (0.5)\n"
       "  mask add ID brush --dabs FILE.json [options]\n"
       "                                   brush dabs as stored: a JSON list of {\"x\", \"y\",\n"
       "                                   \"radius\", \"feather\", \"flow\", \"erase\"}\n"
       "      options: --name NAME  --invert  --opacity Q (0 to 1)  --adjust FIELD=VALUE...\n"
       "      (FIELD: exposure, contrast, highlights, shadows, temperature, tint, saturation,\n"
       "      sharpness); positions are fractions of the photo (0 to 1, from the top left);\n"
       "      one history step \"Add Mask\"\n"
       "  mask refresh ID MASK_ID          compute a smart mask again from the current preview\n"
       "                                   (history step \"Refresh Mask\")\n"
       "  mask import ID FILE.png [--kind subject|sky|people] [--name NAME]\n"
       "                                   a PNG's coverage (its alpha where it has transparency,\n"
       "                                   else its grey value) becomes a new smart mask\n"
       "                                   (history step \"Import Mask\")\n"
       "  mask export ID MASK_ID -o FILE.png [--force]\n"
       "                                   the mask's bitmap as an 8-bit grey PNG; a brush mask is\n"
       "                                   painted at 1024 on the long side; an existing file is\n"
       "                                   only replaced with --force\n"
       "  mask delete ID MASK_ID           remove a mask (history step \"Delete Mask\")\n"
       "MASK_ID is a mask's id, a unique start of it, or its index in `mask list` (from 0).\n"
       "Subject and people masks need the segmentation model (scripts/install-model.sh).",
       {{"--force", "--invert"}, {"--kind", "--name", "-o", "--opacity", "--adjust", "--feather", "--dabs"}},
       mask});
}

}  // namespace lumivale::cli
