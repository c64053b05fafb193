#pragma once
// Developing a photo for a command: which photo and settings the command
// line names, and the developed picture. Shared by `render`, `histogram`,
// `sample` and the commands that compute masks from the preview.

#include <filesystem>
#include <optional>
#include <string>

#include "cli/cli.h"
#include "engine/edit/edit_settings.h"
#include "engine/edit/geometry.h"
#include "engine/media/image.h"
#include "engine/render/photo_renderer.h"

namespace lumivale::cli {

/// The long side of a preview, as Develop shows it.
inline constexpr int previewSide = 1800;

/// What is developed: the file, its settings and how to name it.
struct DevelopInput {
  std::filesystem::path file;
  EditSettings settings;
  std::string name;  ///< "photo 7" or the file name
};

/// The first positional argument as a catalog photo (a number that names no
/// file here: its stored settings) or a photo file (the settings a new
/// photo of its kind starts with), then `--settings FILE` and every
/// `--edit FIELD=VALUE` on top.
DevelopInput developInput(Context& ctx, const Arguments& args);

/// `--full` (nothing: full size), `--size N` or the preview side.
std::optional<int> requestedSide(const Arguments& args);

/// `--crop-editing`, `--no-effects` and `--mask-overlay MASK` (an id, the
/// start of one or an index).
PhotoRenderer::Options renderOptions(const Arguments& args, const EditSettings& settings);

/// The developed picture in the working space.
struct Developed {
  Image image;
  Size fullSize;
};

/// Decodes and renders; a warning of the decoder (a file read only in part)
/// goes to stderr. "Could not decode NAME: ..." when the photo cannot be
/// opened or decoded.
Developed develop(Context& ctx, const DevelopInput& input, std::optional<int> side,
                  const PhotoRenderer::Options& options);

}  // namespace lumivale::cli
