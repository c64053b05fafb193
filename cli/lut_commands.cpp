// The `lut` command: a photo's tone cube written as a standard .cube 3D LUT
// text file (engine/export/cube_file.h).

#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

#include "cli/commands.h"
#include "cli/common.h"
#include "engine/catalog/photo_library.h"
#include "engine/edit/edit_settings.h"
#include "engine/export/cube_file.h"
#include "engine/media/safe_file.h"
#include "engine/render/tone_lut.h"
#include "engine/render/tone_params.h"

namespace lumivale::cli {
namespace {

namespace fs = std::filesystem;

// A photo's current settings: its stored edit, or the settings it starts
// with when it was never edited.
EditSettings photoSettings(PhotoLibrary& library, std::int64_t id) {
  existingPhoto(library, id);
  return library.settings(id);
}

const char* domainKey(LUTDomain d) { return d == LUTDomain::scene ? "scene" : "display"; }

int lutCommand(Context& ctx, const Arguments& args) {
  const std::optional<std::string> settingsFile = args.value("--settings");
  if (args.positional.size() > 1) throw UsageError("lut takes one photo id");
  if (settingsFile && !args.positional.empty()) {
    throw UsageError("give a photo id or --settings FILE, not both");
  }
  if (!settingsFile && args.positional.empty()) throw UsageError("lut needs a photo id or --settings FILE");

  LUTDomain domain = LUTDomain::display;
  if (auto d = args.value("--domain")) {
    if (*d == "scene") {
      domain = LUTDomain::scene;
    } else if (*d != "display") {
      throw UsageError("the domain is display or scene, not '" + *d + "'");
    }
  }
  int size = ToneLUT::dimension;
  if (auto s = args.value("--size")) {
    const std::int64_t n = parseInteger(*s, "cube size");
    if (n < CubeFile::smallestSize || n > CubeFile::largestSize) {
      throw UsageError("the cube size is " + std::to_string(CubeFile::smallestSize) + " to " +
                       std::to_string(CubeFile::largestSize) + ", not " + *s);
    }
    size = static_cast<int>(n);
  }
  // No -o, or "-o -": the cube goes to standard output.
  const std::string output = args.value("-o").value_or("-");
  const bool toFile = output != "-";
  if (output.empty()) throw UsageError("-o needs a file name");
  if (ctx.json && !toFile) throw UsageError("--json prints a summary and needs -o FILE for the cube");

  std::string source;
  EditSettings settings;
  if (settingsFile) {
    settings = settingsFromFile(*settingsFile);
    source = fs::path(*settingsFile).filename().string();
  } else {
    const std::int64_t id = parseId(args.positional[0]);
    settings = photoSettings(ctx.library(), id);
    source = "photo " + std::to_string(id);
  }

  const std::vector<float> cube = ToneLUT::cube(ToneParams(settings), domain, size);
  const std::string text = CubeFile::text(cube, size, domain, source);
  const std::size_t entries = std::size_t(size) * size * size;

  if (!toFile) {
    ctx.out << text << std::flush;
    return 0;
  }
  try {
    CubeFile::write(output, text, args.has("--force"));
  } catch (const FileExistsError&) {
    throw CommandError("'" + output + "' already exists; use --force to replace it");
  } catch (const MediaError& e) {
    throw CommandError(e.what());
  }
  if (ctx.json) {
    ctx.printJson({{"size", size},
                   {"domain", domainKey(domain)},
                   {"file", jsonText(output)},
                   {"entries", entries},
                   {"source", jsonText(source)}});
  } else {
    const std::string n = std::to_string(size);
    ctx.out << "Wrote the tone cube of " << printable(source) << " (" << n << "x" << n << "x" << n << ", "
            << domainKey(domain) << " domain) to " << printable(output) << "\n";
  }
  return 0;
}

}  // namespace

void addLutCommands(std::vector<Command>& table) {
  table.push_back(
      {"lut",
       "lut (ID | --settings FILE.json) [--domain display|scene] [--size N] [-o FILE.cube] [--force]",
       "Write a photo's tone and colour look as a .cube 3D LUT",
       "Samples the global tone and colour work of a photo's current settings (white balance,\n"
       "light, curves, colour mixer, vibrance, saturation, grading, black and white) into a\n"
       "3D LUT in the .cube text format, for video editors and other tools. Exposure, masks,\n"
       "detail, effects and geometry are not part of it.\n"
       "\n"
       "  ID                  the photo whose settings to use\n"
       "  --settings FILE     use develop settings from a JSON file in the stored form instead\n"
       "  --domain DOMAIN     display (default): input covers linear 0 to 1;\n"
       "                      scene: input covers linear 0 to 4 (headroom for RAW data)\n"
       "  --size N            points per axis, 2 to 129 (default 33)\n"
       "  -o FILE             write to FILE instead of standard output; an existing file is\n"
       "                      never replaced unless --force is given\n"
       "  --force             replace FILE if it exists\n"
       "\n"
       "Input coordinates and output values are linear light in a plain 2.2 gamma (the\n"
       "input divided by 4 first in the scene domain); the file's comments say so. With\n"
       "--json, prints a summary (size, domain, file, entries) and needs -o.",
       {{"--force"}, {"--settings", "--domain", "--size", "-o"}},
       lutCommand});
}

}  // namespace lumivale::cli
