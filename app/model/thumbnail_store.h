#pragma once
// Engine pictures as QImage, and the edited thumbnail the model writes
// after edits. Every function is safe to call from any thread.

#include <QImage>
#include <cstdint>

#include "engine/catalog/photo_library.h"
#include "engine/media/bitmap.h"
#include "engine/media/image.h"

namespace lumivale::app::ThumbnailStore {

/// Stores `developed` (a working-space picture) as the photo's edited
/// thumbnail in place of the one before; false when it cannot be written.
bool writeEdited(const PhotoLibrary& library, std::int64_t id, const Image& developed);

/// 8-bit RGB samples as a QImage tagged sRGB; a null image for any other
/// form.
QImage toQImage(const Bitmap& bitmap);
/// An 8-bit sRGB output picture (as `outputImage` makes it) as a QImage.
QImage toQImage(const Image& picture8);
/// A working-space picture in sRGB as a QImage.
QImage toQImageFromWorking(const Image& working);

}  // namespace lumivale::app::ThumbnailStore
