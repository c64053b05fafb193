#pragma once
// Finding people, for the people mask until a person-segmentation model can
// be had: OpenCV's Haar cascades for frontal and profile faces (Debian's
// opencv-data, /usr/share/opencv4/haarcascades) and its HOG detector of
// standing people. Each finds boxes; the subject mask then supplies the
// shape, kept only in its regions that hold one of them.
//
// The detectors are loaded once per process and shared; calls from several
// threads run one at a time.

#include <optional>
#include <span>
#include <vector>

#include "engine/media/bitmap.h"
#include "engine/render/mask_bitmap.h"

namespace lumivale {

/// Where a person was found, in unit coordinates of the picture (origin
/// top-left).
struct PersonBox {
  enum class Kind { face, figure };

  double x = 0;
  double y = 0;
  double width = 0;
  double height = 0;
  Kind kind = Kind::face;

  bool operator==(const PersonBox&) const = default;
};

/// The long side, in pixels, of the copies of the picture the face and the
/// figure detectors see: a face of 5 % of it (24 pixels) is the least found;
/// a figure must be 128 pixels tall.
inline constexpr int faceSearchSide = 480;
inline constexpr int figureSearchSide = 640;

/// A rectangle in unit coordinates of a picture (origin top-left).
struct UnitRect {
  double x = 0;
  double y = 0;
  double width = 1;
  double height = 1;
};

/// The faces and standing figures in `area` of `image` (any picture
/// smart_masks.h takes), as boxes in unit coordinates of the whole picture.
/// Nothing found, or no detector installed, gives an empty list; so does a
/// malformed picture or an empty area. The time taken follows the area's size.
std::vector<PersonBox> findPeople(const Bitmap& image, const UnitRect& area = {});

/// The unit rectangle around the pixels of `subject` of at least half
/// coverage, widened by `margin` on each side and kept inside the picture;
/// nothing when there are none. People are only looked for there.
std::optional<UnitRect> subjectBounds(const MaskBitmap& subject, double margin);

/// `subject` kept only where it belongs to a person: the subject's pixels of
/// at least half coverage form connected regions (8 neighbours); a region is
/// a person's when it covers at least 40 % of a face box or 20 % of a figure
/// box. The subject's own values are kept in those regions and a band of 2 %
/// of the long side around them (so soft edges stay soft); 0 everywhere else.
MaskBitmap keepPeople(const MaskBitmap& subject, std::span<const PersonBox> people);

}  // namespace lumivale
