#include "engine/export/mask_export.h"

#include "engine/media/png_file.h"
#include "engine/media/safe_file.h"
#include "engine/render/mask_renderer.h"

namespace lumivale {

MaskBitmap maskBitmapForExport(const PhotoMask& mask, int displayWidth, int displayHeight) {
  if (isSmart(mask.kind)) {
    if (!mask.maskPNG) throw MaskImageError("the mask \"" + mask.name + "\" has no computed coverage yet");
    auto bitmap = MaskBitmap::decode(*mask.maskPNG);
    if (!bitmap) throw MaskImageError("the stored bitmap of the mask \"" + mask.name + "\" is damaged");
    return std::move(*bitmap);
  }
  if (mask.kind == MaskKind::brush) {
    const double aspect =
        displayWidth > 0 && displayHeight > 0 ? double(displayWidth) / double(displayHeight) : 1.0;
    const MaskRenderer::PixelSize size = MaskRenderer::brushBitmapSize(aspect);
    return MaskRenderer::paint(mask.dabs, size.width, size.height);
  }
  throw MaskImageError("gradient masks have no bitmap");
}

void writeMaskPNG(const MaskBitmap& bitmap, const std::filesystem::path& file, bool replaceExisting) {
  if (bitmap.width <= 0 || bitmap.height <= 0)
    throw MaskImageError("cannot write " + quotedPath(file) + ": the mask bitmap is empty");
  if (bitmap.bytes.size() != std::size_t(bitmap.width) * std::size_t(bitmap.height))
    throw MaskImageError("cannot write " + quotedPath(file) + ": the mask bitmap's bytes do not match its size");
  try {
    PngFile::writeGrey({bitmap.width, bitmap.height, bitmap.bytes}, file, replaceExisting);
  } catch (const MediaError& e) {
    throw MaskImageError(e.what());
  }
}

}  // namespace lumivale
