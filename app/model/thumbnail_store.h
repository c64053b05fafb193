#pragma once
// The grid's thumbnail files in the library's "Thumbnails" folder, as the
// model reads and writes them: "<id>.jpg" made once from the photo (its
// embedded camera preview for a RAW file), "<id>-e.jpg" made from its
// developed settings after edits. Also the one conversion of engine
// pictures into QImage. Every function is safe to call from any thread.

#include <QImage>
#include <cstdint>
#include <filesystem>

#include "engine/catalog/photo_library.h"
#include "engine/media/bitmap.h"
#include "engine/media/image.h"

namespace lumivale::app::ThumbnailStore {

std::filesystem::path plainFile(const PhotoLibrary& library, std::int64_t id);
std::filesystem::path editedFile(const PhotoLibrary& library, std::int64_t id);

/// The thumbnail the grid shows for `record`: the edited one when the
/// photo is edited and it exists, else the plain one, made from the photo
/// and stored when it is missing. A null image when none can be had (the
/// photo's file is gone or unreadable). Never throws.
QImage load(const PhotoLibrary& library, const PhotoRecord& record);

/// Stores `developed` (a working-space picture) as the photo's edited
/// thumbnail, JPEG at quality 0.82, in place of the one before. Throws
/// MediaError when it cannot be written.
void writeEdited(const PhotoLibrary& library, std::int64_t id, const Image& developed);

/// An 8-bit sRGB output picture (as `outputImage` makes it) as a QImage.
QImage toQImage(const Image& picture8);
/// A working-space picture in sRGB as a QImage.
QImage toQImageFromWorking(const Image& working);

}  // namespace lumivale::app::ThumbnailStore
