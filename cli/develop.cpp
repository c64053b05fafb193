#include "cli/develop.h"

#include "cli/common.h"
#include "engine/catalog/photo_library.h"
#include "engine/edit/field_path.h"
#include "engine/media/photo_formats.h"
#include "engine/render/photo_source.h"

namespace lumivale::cli {

namespace fs = std::filesystem;

DevelopInput developInput(Context& ctx, const Arguments& args) {
  const std::string& what = args.positional.at(0);
  DevelopInput input;
  std::error_code error;
  const bool digits = !what.empty() && what.find_first_not_of("0123456789") == std::string::npos;
  if (digits && !fs::exists(what, error)) {
    const std::int64_t id = parseId(what);
    const PhotoRecord record = existingPhoto(ctx.library(), id);
    input = {record.path, ctx.library().settings(id), "photo " + what};
  } else {
    input = {what, PhotoLibrary::initialSettings(PhotoFormats::isRaw(what)), fs::path(what).filename().string()};
  }
  if (auto file = args.value("--settings")) input.settings = settingsFromFile(*file);
  std::vector<FieldEdit> edits;
  try {
    for (const std::string& e : args.all("--edit")) edits.push_back(parseFieldEdit(e));
    input.settings = applyFieldEdits(input.settings, edits);
  } catch (const FieldPathError& e) {
    throw UsageError(e.what());
  }
  return input;
}

std::optional<int> requestedSide(const Arguments& args) {
  if (args.has("--full")) {
    if (args.value("--size")) throw UsageError("--size and --full exclude each other");
    return std::nullopt;
  }
  if (auto size = args.value("--size")) {
    const std::int64_t n = parseInteger(*size, "size");
    if (n < 1 || n > 65535) throw UsageError("the size is 1 to 65535 pixels, not " + *size);
    return int(n);
  }
  return previewSide;
}

Developed develop(Context& ctx, const DevelopInput& input, std::optional<int> side,
                  const PhotoRenderer::Options& options) {
  try {
    const PhotoSource source = PhotoSource::open(input.file);
    DecodedImage decoded = source.image(side, input.settings);
    if (!decoded.warning.empty()) ctx.err << "warning: " << printable(decoded.warning) << "\n";
    PhotoRenderer renderer;
    Image base = side ? decoded.image.materialize() : decoded.image;
    return {renderer.render(base, source.fullSize(), input.settings, options), source.fullSize()};
  } catch (const ImageError& e) {
    throw CommandError(std::string("Could not decode ") + printable(input.name) + ": " + e.what());
  }
}

PhotoRenderer::Options renderOptions(const Arguments& args, const EditSettings& settings) {
  PhotoRenderer::Options options;
  options.cropEditing = args.has("--crop-editing");
  options.outputEffects = !args.has("--no-effects");
  if (auto mask = args.value("--mask-overlay")) {
    try {
      options.maskOverlay = settings.masks.at(findMask(settings.masks, *mask)).id;
    } catch (const MaskLookupError& e) {
      throw CommandError(e.what());
    }
  }
  return options;
}

}  // namespace lumivale::cli
