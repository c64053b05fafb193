#include "engine/export/cube_file.h"

#include <charconv>

#include "engine/media/safe_file.h"

namespace lumivale::CubeFile {
namespace {

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

}  // namespace

std::string text(const std::vector<float>& cube, int n, LUTDomain domain, const std::string& source) {
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

void write(const std::filesystem::path& file, const std::string& text, bool replaceExisting) {
  writeFileSafely(file, text, replaceExisting);
}

}  // namespace lumivale::CubeFile
