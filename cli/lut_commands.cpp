// The `lut` command: a photo's tone cube written as a standard .cube 3D LUT
// text file, so a look made here can be used in video editors and other
// tools.
//
// The file holds exactly the renderer's cube: input coordinates are linear
// light in a plain 2.2 gamma (scaled by 1/4 first in the scene domain),
// output values are the mapped linear light raised to 1/2.2. Both are said
// in the file's comments, since .cube has no field for a transfer curve.

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

#include "cli/commands.h"
#include "cli/common.h"
#include "engine/catalog/photo_library.h"
#include "engine/edit/edit_settings.h"
#include "engine/render/tone_lut.h"
#include "engine/render/tone_params.h"

namespace lumivale::cli {
namespace {

namespace fs = std::filesystem;

constexpr int smallestSize = 2;
constexpr int largestSize = 129;

// A photo's current settings: its stored edit, or the settings it starts
// with when it was never edited.
EditSettings photoSettings(PhotoLibrary& library, std::int64_t id) {
  existingPhoto(library, id);
  return library.settings(id);
}

// Settings from a file in the stored form. Keys are read tolerantly, like a
// stored edit; a file that is not a JSON object at all is refused, since it
// is much more likely the wrong file than a damaged edit.
EditSettings fileSettings(const std::string& path) {
  std::error_code error;
  std::ifstream in(path, std::ios::binary);
  if (fs::is_directory(path, error) || !in) throw CommandError("cannot read settings from '" + path + "'");
  const std::string data{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  if (in.bad()) throw CommandError("cannot read settings from '" + path + "'");
  const auto json = nlohmann::json::parse(data, nullptr, false);
  if (json.is_discarded() || !json.is_object()) {
    throw CommandError("'" + path + "' does not hold develop settings (a JSON object)");
  }
  return EditSettings::decode(std::string_view(data));
}

// Text for the TITLE line: the quotes that delimit it and control characters
// cannot appear inside.
std::string titleText(std::string text) {
  for (char& c : text) {
    if (c == '"') c = '\'';
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f) c = ' ';
  }
  return text;
}

void appendNumber(std::string& out, float value) {
  char buffer[32];
  auto [end, ec] = std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::fixed, 6);
  out.append(buffer, ec == std::errc() ? end : buffer);
}

std::string cubeText(const std::vector<float>& cube, int n, LUTDomain domain, const std::string& source) {
  std::string out;
  out.reserve(std::size_t(n) * n * n * 27 + 1024);
  out += "# KUVO Lumivale tone cube of " + titleText(source) + ": white balance, light, curves,\n";
  out += "# colour mixer, vibrance, saturation, colour grading and black and white.\n";
  out += "# Exposure, masks, detail, lens, effects and geometry are not part of it.\n";
  if (domain == LUTDomain::display) {
    out += "# Input (display domain): linear light 0 to 1 raised to 1/2.2, a plain 2.2\n";
    out += "# gamma, not the sRGB curve.\n";
  } else {
    out += "# Input (scene domain): linear light 0 to 4, divided by 4 and raised to 1/2.2\n";
    out += "# (a plain 2.2 gamma, not the sRGB curve), so coordinate 1 is linear 4.\n";
  }
  out += "# Output: linear light 0 to 1 raised to 1/2.2; raise it to 2.2 for linear light.\n";
  out += "TITLE \"KUVO Lumivale tone, " + titleText(source) + ", output gamma 2.2\"\n";
  out += "LUT_3D_SIZE " + std::to_string(n) + "\n";
  out += "DOMAIN_MIN 0 0 0\n";
  out += "DOMAIN_MAX 1 1 1\n";
  // The cube's own entry order, red fastest, is the order .cube expects.
  for (std::size_t e = 0; e < cube.size(); e += 4) {
    appendNumber(out, cube[e]);
    out += ' ';
    appendNumber(out, cube[e + 1]);
    out += ' ';
    appendNumber(out, cube[e + 2]);
    out += '\n';
  }
  return out;
}

// Moves `from` to `to` unless `to` exists, in one step where the file
// system allows it, so a file that appears meanwhile is not replaced either.
// Returns false when `to` exists.
bool moveWithoutReplacing(const fs::path& from, const fs::path& to) {
  if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return true;
  const int error = errno;
  if (error == EEXIST) return false;
  if (error != EINVAL && error != ENOSYS && error != ENOTSUP) {
    throw std::system_error(error, std::generic_category());
  }
  // A file system without the atomic form: check, then move.
  if (fs::exists(to)) return false;
  fs::rename(from, to);
  return true;
}

// Writes the whole text next to its destination first, then moves it into
// place, so a full disk or a failed write never leaves half a file under
// the asked-for name.
void writeFile(const fs::path& path, const std::string& text, bool force) {
  std::error_code error;
  const auto status = fs::status(path, error);
  if (fs::is_directory(status)) throw CommandError("'" + path.string() + "' is a folder");
  if (fs::exists(status) && !force) {
    throw CommandError("'" + path.string() + "' already exists; use --force to replace it");
  }
  fs::path temporary = path;
  temporary += ".part-" + std::to_string(::getpid());
  try {
    {
      std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
      if (!out) throw CommandError("cannot create '" + path.string() + "'");
      out.write(text.data(), static_cast<std::streamsize>(text.size()));
      out.flush();
      if (!out) throw CommandError("cannot write '" + path.string() + "' (is the disk full?)");
    }
    if (force) {
      fs::rename(temporary, path);
    } else if (!moveWithoutReplacing(temporary, path)) {
      throw CommandError("'" + path.string() + "' already exists; use --force to replace it");
    }
  } catch (const CommandError&) {
    fs::remove(temporary, error);
    throw;
  } catch (const std::exception& e) {
    fs::remove(temporary, error);
    throw CommandError("cannot write '" + path.string() + "': " + e.what());
  }
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
    if (n < smallestSize || n > largestSize) {
      throw UsageError("the cube size is " + std::to_string(smallestSize) + " to " +
                       std::to_string(largestSize) + ", not " + *s);
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
    settings = fileSettings(*settingsFile);
    source = fs::path(*settingsFile).filename().string();
  } else {
    const std::int64_t id = parseId(args.positional[0]);
    settings = photoSettings(ctx.library(), id);
    source = "photo " + std::to_string(id);
  }

  const std::vector<float> cube = ToneLUT::cube(ToneParams(settings), domain, size);
  const std::string text = cubeText(cube, size, domain, source);
  const std::size_t entries = std::size_t(size) * size * size;

  if (!toFile) {
    ctx.out << text << std::flush;
    return 0;
  }
  writeFile(output, text, args.has("--force"));
  if (ctx.json) {
    ctx.printJson({{"size", size},
                   {"domain", domainKey(domain)},
                   {"file", jsonText(output)},
                   {"entries", entries},
                   {"source", jsonText(source)}});
  } else {
    const std::string n = std::to_string(size);
    ctx.out << "Wrote the tone cube of " << source << " (" << n << "x" << n << "x" << n << ", "
            << domainKey(domain) << " domain) to " << output << "\n";
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
