#pragma once
// A photo's local mask written out as a grey PNG for other tools.

#include <filesystem>

#include "engine/edit/photo_mask.h"
#include "engine/render/mask_bitmap.h"
#include "engine/render/mask_files.h"

namespace lumivale {

/// The bitmap of `mask` to write out, for a photo displayed at
/// `displayWidth` × `displayHeight` (its size after orientation):
/// - a smart mask (subject, sky, people): its stored bitmap at its stored size;
/// - a brush mask: its dabs painted at the size a render of the photo's
///   displayed aspect uses (1024 on the long side). Crop and straighten are
///   not applied: dabs live in the coordinates of the whole image. A photo
///   whose size is unknown (zero or negative) is taken as square. A brush
///   mask without dabs gives an empty-coverage bitmap.
/// Throws MaskImageError for a smart mask whose bitmap is not computed yet or
/// does not decode, and for linear and radial gradients, whose coverage is
/// made at each render size and has no bitmap of its own.
MaskBitmap maskBitmapForExport(const PhotoMask& mask, int displayWidth, int displayHeight);


/// Writes `bitmap` as an 8-bit grey PNG without colour information, complete
/// or not at all, never over an existing file unless `replaceExisting`.
/// Throws MaskImageError when `file` exists and may not be replaced, when the
/// bitmap is empty or its bytes do not match its size, or when the file
/// cannot be written (missing folder, no permission, full disk); `file` is
/// then as it was.
void writeMaskPNG(const MaskBitmap& bitmap, const std::filesystem::path& file, bool replaceExisting = false);

}  // namespace lumivale
