// Commands for the local masks of a photo: list them, bring a coverage PNG
// made by another tool in as a smart mask, write a mask's bitmap out as a
// grey PNG, and delete a mask. Every change is one history step, so it can
// be undone like any edit.

#include <cstdio>
#include <filesystem>

#include "cli/commands.h"
#include "cli/common.h"
#include "engine/catalog/photo_library.h"
#include "engine/edit/photo_mask.h"
#include "engine/export/mask_export.h"

namespace lumivale::cli {
namespace {

std::string number(double v) {
  char text[32];
  std::snprintf(text, sizeof text, "%g", v);
  return text;
}

nlohmann::json maskJson(const PhotoMask& mask, std::size_t index) {
  nlohmann::json adjust = nlohmann::json::object();
  for (const auto& [name, value] : nonZeroAdjustments(mask.adjust)) adjust[std::string(name)] = value;
  nlohmann::json bitmap = nullptr;
  if (mask.maskPNG) {
    if (auto size = storedBitmapSize(*mask.maskPNG)) {
      bitmap = {{"width", size->first}, {"height", size->second}, {"bytes", mask.maskPNG->size()}};
    }
  }
  return {{"index", index},
          {"id", mask.id},
          {"name", mask.name},
          {"kind", std::string(key(mask.kind))},
          {"invert", mask.invert},
          {"opacity", mask.opacity},
          {"adjust", adjust},
          {"dabs", mask.dabs.size()},
          {"bitmap", bitmap}};
}

int listMasks(Context& ctx, const Arguments& args) {
  if (args.positional.size() != 2) throw UsageError("expected: mask list ID");
  PhotoLibrary& library = ctx.library();
  const std::int64_t id = parseId(args.positional[1]);
  existingPhoto(library, id);
  const EditSettings settings = library.settings(id);
  if (ctx.json) {
    nlohmann::json masks = nlohmann::json::array();
    for (std::size_t i = 0; i < settings.masks.size(); ++i) masks.push_back(maskJson(settings.masks[i], i));
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
    ctx.out << "\n";
  }
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
  std::optional<std::string> name = args.value("--name");
  if (name && name->empty()) throw UsageError("--name needs a name");
  existingPhoto(library, id);
  const MaskBitmap bitmap = maskBitmapFromImageFile(args.positional[2]);
  const PhotoMask mask = smartMaskFromBitmap(bitmap, kind, name);
  std::size_t index = 0;
  library.updateSettings(id, std::string("Import Mask"), [&](EditSettings& s) {
    s.masks.push_back(mask);
    index = s.masks.size() - 1;
  });
  if (ctx.json) {
    ctx.printJson({{"photo", id}, {"mask", maskJson(mask, index)}});
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
  const PhotoRecord record = existingPhoto(library, id);
  const EditSettings settings = library.settings(id);
  const PhotoMask& mask = settings.masks.at(findMask(settings.masks, args.positional[2]));
  const MaskBitmap bitmap = maskBitmapForExport(mask, record.width, record.height);
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
  if (args.positional.empty()) throw UsageError("mask needs list, import, export or delete");
  const std::string& action = args.positional[0];
  if (action == "list") return listMasks(ctx, args);
  if (action == "import") return importMask(ctx, args);
  if (action == "export") return exportMask(ctx, args);
  if (action == "delete") return deleteMask(ctx, args);
  throw UsageError("unknown mask action '" + action + "'");
}

}  // namespace

void addMaskCommands(std::vector<Command>& table) {
  table.push_back(
      {"mask", "mask list|import|export|delete ...", "List, import, export and delete a photo's local masks",
       "  mask list ID                     the masks of a photo: index, id, name, kind, invert,\n"
       "                                   opacity, adjustments and the stored bitmap's size\n"
       "  mask import ID FILE.png [--kind subject|sky|people] [--name NAME]\n"
       "                                   a PNG's coverage (its alpha where it has transparency,\n"
       "                                   else its grey value) becomes a new smart mask\n"
       "                                   (history step \"Import Mask\")\n"
       "  mask export ID MASK_ID -o FILE.png [--force]\n"
       "                                   the mask's bitmap as an 8-bit grey PNG; a brush mask is\n"
       "                                   painted at 1024 on the long side; an existing file is\n"
       "                                   only replaced with --force\n"
       "  mask delete ID MASK_ID           remove a mask (history step \"Delete Mask\")\n"
       "MASK_ID is a mask's id, a unique start of it, or its index in `mask list` (from 0).",
       {{"--force"}, {"--kind", "--name", "-o"}},
       mask});
}

}  // namespace lumivale::cli
