// Developing photos from the command line: `render` writes the developed
// picture, `histogram` prints its histogram, `sample` the mean linear colour
// around a point (what the white-balance picker reads).
//
// Each takes a catalog photo by id (its stored settings) or a photo file
// (the settings a new photo of its kind starts with), then a settings file
// and field edits on top.

#include <cmath>
#include <filesystem>
#include <sstream>

#include "cli/commands.h"
#include "cli/common.h"
#include "cli/develop.h"
#include "engine/catalog/photo_library.h"
#include "engine/edit/field_path.h"
#include "engine/media/bitmap.h"
#include "engine/media/image_encoder.h"
#include "engine/media/photo_formats.h"
#include "engine/media/safe_file.h"
#include "engine/render/histogram.h"
#include "engine/render/photo_renderer.h"
#include "engine/render/photo_source.h"

namespace lumivale::cli {
namespace {

namespace fs = std::filesystem;

ColorSpace colorSpaceArgument(const Arguments& args) {
  const std::string name = args.value("--color-space").value_or("sRGB");
  if (name == "sRGB") return ColorSpace::sRGB;
  if (name == "displayP3") return ColorSpace::displayP3;
  if (name == "adobeRGB") return ColorSpace::adobeRGB;
  throw UsageError("the colour space is sRGB, displayP3 or adobeRGB, not '" + name + "'");
}

ImageFormat formatOf(const fs::path& file) {
  const std::string ext = PhotoFormats::extension(file);
  if (ext == "png") return ImageFormat::png;
  if (ext == "jpg" || ext == "jpeg") return ImageFormat::jpeg;
  if (ext == "tif" || ext == "tiff") return ImageFormat::tiff;
  throw UsageError("the output file must end in .png, .jpg or .tif");
}

int renderCommand(Context& ctx, const Arguments& args) {
  requireCount(args, 1, "render (ID | FILE) [options] -o OUT.png|.jpg|.tif");
  const auto output = args.value("-o");
  if (!output || output->empty()) throw UsageError("render needs -o OUT.png, OUT.jpg or OUT.tif");
  const ImageFormat format = formatOf(*output);
  const int bits = args.has("--16bit") ? 16 : 8;
  if (bits == 16 && format == ImageFormat::jpeg) throw UsageError("--16bit needs a .png or .tif file");
  const ColorSpace space = colorSpaceArgument(args);
  const bool force = args.has("--force");
  // Refuse before the work, not after it.
  if (!force && nameTaken(*output))
    throw CommandError("'" + *output + "' already exists; use --force to replace it");

  const DevelopInput input = developInput(ctx, args);
  Developed developed = develop(ctx, input, requestedSide(args), renderOptions(args, input.settings));
  if (args.has("--clipping")) developed.image = clippingOverlay(developed.image);
  try {
    ImageEncoder::write(outputImage(developed.image, space, bits), *output, {format, 0.9, force});
  } catch (const FileExistsError&) {
    throw CommandError("'" + *output + "' already exists; use --force to replace it");
  } catch (const MediaError& e) {
    throw CommandError(e.what());
  }
  const int w = developed.image.width(), h = developed.image.height();
  if (ctx.json) {
    ctx.printJson({{"file", jsonText(fs::absolute(*output).string())},
                   {"width", w},
                   {"height", h},
                   {"bits", bits},
                   {"colorSpace", args.value("--color-space").value_or("sRGB")}});
  } else {
    ctx.out << "Wrote " << printable(*output) << " (" << w << " \u00d7 " << h << ", "
            << args.value("--color-space").value_or("sRGB") << ", " << bits << "-bit)\n";
  }
  return 0;
}

// One line of bars, a block per bin, as high as the bin.
std::string barLine(const std::array<double, 64>& bins) {
  static const char* const blocks[] = {" ", "\u2581", "\u2582", "\u2583", "\u2584", "\u2585", "\u2586", "\u2587", "\u2588"};
  std::string line;
  for (double v : bins) line += blocks[std::clamp(int(std::lround(v * 8)), 0, 8)];
  return line;
}

int histogramCommand(Context& ctx, const Arguments& args) {
  requireCount(args, 1, "histogram (ID | FILE) [options]");
  const DevelopInput input = developInput(ctx, args);
  Developed developed = develop(ctx, input, requestedSide(args), renderOptions(args, input.settings));
  if (args.has("--clipping")) developed.image = clippingOverlay(developed.image);
  std::optional<Histogram> h;
  try {
    h = Histogram::of(outputImage(developed.image, ColorSpace::sRGB, 8));
  } catch (const ImageError& e) {
    throw CommandError(std::string("Could not decode ") + printable(input.name) + ": " + e.what());
  }
  if (!h) throw CommandError("Could not measure " + printable(input.name));
  const std::pair<const char*, const std::array<double, 64>*> lists[] = {
      {"r", &h->r}, {"g", &h->g}, {"b", &h->b}, {"l", &h->l}};
  if (ctx.json) {
    nlohmann::json document;
    for (const auto& [key, bins] : lists) document[key] = *bins;
    ctx.printJson(document);
  } else if (ctx.stdoutIsTerminal) {
    for (const auto& [key, bins] : lists) ctx.out << key << " " << barLine(*bins) << "\n";
  } else {
    for (const auto& [key, bins] : lists) {
      ctx.out << key;
      for (double v : *bins) ctx.out << " " << formatFixed(v, 4);
      ctx.out << "\n";
    }
  }
  return 0;
}

int sampleCommand(Context& ctx, const Arguments& args) {
  requireCount(args, 3, "sample (ID | FILE) X Y [--radius R]");
  auto unit = [](const std::string& text, const char* what) {
    std::istringstream in(text);
    double v = 0;
    in.imbue(std::locale::classic());
    if (!(in >> v) || !in.eof() || !std::isfinite(v) || v < 0 || v > 1)
      throw UsageError(std::string(what) + " is a number from 0 to 1, not '" + text + "'");
    return v;
  };
  const double x = unit(args.positional[1], "X"), y = unit(args.positional[2], "Y");
  int radius = 3;
  if (auto r = args.value("--radius")) {
    const std::int64_t n = parseInteger(*r, "radius");
    if (n < 0 || n > 500) throw UsageError("the radius is 0 to 500 pixels, not " + *r);
    radius = int(n);
  }
  const DevelopInput input = developInput(ctx, args);
  const Developed developed = develop(ctx, input, requestedSide(args), renderOptions(args, input.settings));
  LinearRGB mean;
  try {
    mean = PhotoRenderer::sample(developed.image, {x, y}, radius);
  } catch (const ImageError& e) {
    throw CommandError(std::string("Could not decode ") + printable(input.name) + ": " + e.what());
  }
  if (ctx.json) {
    ctx.printJson({{"r", mean.r}, {"g", mean.g}, {"b", mean.b}, {"radius", radius}});
  } else {
    ctx.out << formatFixed(mean.r, 6) << " " << formatFixed(mean.g, 6) << " " << formatFixed(mean.b, 6) << "\n";
  }
  return 0;
}

}  // namespace

void addRenderCommands(std::vector<Command>& table) {
  const std::string sources =
      "ID is a catalog photo (its stored settings); FILE a photo file (the settings a new photo of\n"
      "its kind starts with). On top of them:\n"
      "  --settings FILE.json  develop settings in the stored form\n"
      "  --edit FIELD=VALUE    a field edit, as `edit` takes it (repeatable)\n"
      "  --size N | --full     the long side to develop at (default 1800), or the full size\n"
      "  --crop-editing        as the crop tool shows it: no crop, no effects\n"
      "  --no-effects          without sharpening, vignette and grain\n"
      "  --mask-overlay MASK   tint the coverage of a mask (id, start of an id or index)\n"
      "  --clipping            mark clipped highlights red and crushed shadows blue\n";
  table.push_back({"render",
                   "render (ID | FILE) [options] [--color-space S] [--16bit] -o OUT.png|.jpg|.tif [--force]",
                   "Develop a photo and write the picture",
                   sources +
                       "  --color-space S       sRGB (default), displayP3 or adobeRGB; its profile is embedded\n"
                       "  --16bit               16 bits per channel (PNG and TIFF)\n"
                       "  -o FILE               the picture to write; never replaced without --force",
                   {{"--crop-editing", "--no-effects", "--clipping", "--full", "--16bit", "--force"},
                    {"--settings", "--edit", "--size", "--mask-overlay", "--color-space", "-o"}},
                   renderCommand});
  table.push_back({"histogram",
                   "histogram (ID | FILE) [options]",
                   "Print the histogram of a developed photo",
                   sources +
                       "Prints four lists of 64 bins (red, green, blue, luminance), normalised to 0 ... 1; a\n"
                       "small chart on a terminal.",
                   {{"--crop-editing", "--no-effects", "--clipping", "--full"},
                    {"--settings", "--edit", "--size", "--mask-overlay"}},
                   histogramCommand});
  table.push_back({"sample",
                   "sample (ID | FILE) X Y [--radius R] [options]",
                   "Print the mean linear colour around a point of a developed photo",
                   "X and Y are unit coordinates of the developed picture (0 to 1, Y from the top); the\n"
                   "mean is taken over the square of 2R + 1 pixels (default R 3) of the preview.\n" + sources,
                   {{"--crop-editing", "--no-effects", "--full"}, {"--settings", "--edit", "--size", "--mask-overlay", "--radius"}},
                   sampleCommand});
}

}  // namespace lumivale::cli
