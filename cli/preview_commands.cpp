// The camera's own preview of a RAW file, written out as a JPEG: what
// thumbnails and the first moments of Develop show.

#include <climits>
#include <filesystem>

#include "cli/commands.h"
#include "cli/common.h"
#include "engine/catalog/photo_library.h"
#include "engine/media/bitmap.h"
#include "engine/media/embedded_preview.h"
#include "engine/media/image_encoder.h"

namespace lumivale::cli {
namespace {

constexpr const char* previewUsage = "preview (ID | FILE) [--size N] -o OUT.jpg";

// Quality of the written JPEG, as the library's thumbnails use.
constexpr double jpegQuality = 0.82;

bool allDigits(const std::string& text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

int previewCommand(Context& ctx, const Arguments& args) {
  requireCount(args, 1, previewUsage);
  const std::optional<std::string> output = args.value("-o");
  if (!output) throw UsageError("preview needs -o OUT.jpg");
  int maxSide = INT_MAX;
  if (auto size = args.value("--size")) {
    const std::int64_t side = parseInteger(*size, "size");
    if (side < 1 || side > 100000) throw UsageError("--size must be 1 to 100000 pixels");
    maxSide = int(side);
  }

  // A number is a photo of the library; anything else a file.
  const std::string& which = args.positional[0];
  const std::filesystem::path file =
      allDigits(which) ? std::filesystem::path(existingPhoto(ctx.library(), parseId(which)).path)
                       : std::filesystem::path(which);
  const Image preview = EmbeddedPreviews::largest(file, maxSide);
  if (preview.empty()) throw CommandError("Could not decode " + file.filename().string());
  ImageEncoder::write(outputImage(preview, ColorSpace::sRGB, 8), *output,
                      {.format = ImageFormat::jpeg, .quality = jpegQuality});

  if (ctx.json) {
    ctx.printJson({{"file", jsonText(*output)}, {"width", preview.width()}, {"height", preview.height()}});
  } else {
    ctx.out << "Wrote " << *output << " (" << preview.width() << " \u00d7 " << preview.height() << ")\n";
  }
  return 0;
}

}  // namespace

void addPreviewCommands(std::vector<Command>& table) {
  table.push_back({"preview",
                   previewUsage,
                   "Write the camera's own preview of a RAW file as a JPEG",
                   "The largest preview the camera stored in the RAW file, turned upright and, with\n"
                   "--size, scaled down so that its longer side is at most N pixels. ID is a photo\n"
                   "of the library, FILE any RAW file. An existing OUT.jpg is never replaced.",
                   {{}, {"--size", "-o"}},
                   previewCommand});
}

}  // namespace lumivale::cli
