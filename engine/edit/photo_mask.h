#pragma once
// Local adjustments: where a mask applies (a brush, a linear or radial
// gradient, or a smart selection computed once from the photo's pixels), how
// strongly, and what it changes there.
//
// All positions and sizes are unit coordinates of the source image (0 … 1,
// origin top-left), so a mask keeps its place at every preview size. Every
// mask carries every field whatever its kind; unused ones keep their
// defaults. Masks are plain values that travel inside the stored settings.

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "engine/edit/value_hash.h"

namespace lumivale {

/// What defines a mask's coverage; stored by its key (the case name).
enum class MaskKind { brush, linear, radial, subject, sky, people };

/// Every kind, in menu order.
const std::array<MaskKind, 6>& allMaskKinds();
/// The stored key: "brush", "linear", "radial", "subject", "sky", "people".
std::string_view key(MaskKind kind);
/// The kind stored under `key`, or nothing for an unknown key.
std::optional<MaskKind> maskKindFromKey(std::string_view key);
/// The user-visible title, e.g. "Linear Gradient", "Select Sky".
std::string_view title(MaskKind kind);
/// The name of the icon shown beside the title, e.g. "circle.dashed".
std::string_view symbol(MaskKind kind);
/// Subject, sky and people: coverage computed from the pixels and stored as
/// a bitmap in the mask.
bool isSmart(MaskKind kind);

/// What a mask changes where it applies. All zero means no change. Also the
/// key of the renderer's per-mask tone cache, hence hashable.
struct MaskAdjust {
  double exposure = 0;     ///< stops: linear light times 2^exposure
  double contrast = 0;     ///< slider, −100 … 100, as the global one
  double highlights = 0;   ///< slider
  double shadows = 0;      ///< slider
  double temperature = 0;  ///< slider, white-balance shift
  double tint = 0;         ///< slider
  double saturation = 0;   ///< slider
  double sharpness = 0;    ///< slider: positive sharpens, negative softens

  bool operator==(const MaskAdjust&) const = default;
};

/// One stamp of the brush.
struct BrushDab {
  double x = 0;        ///< centre, fraction of the image width
  double y = 0;        ///< centre, fraction of the image height (bitmap row order)
  double radius = 0;   ///< fraction of the image's longer side
  double feather = 0;  ///< 0 … 1: fraction of the radius over which the dab fades
  double flow = 0;     ///< 0 … 1: strength of one dab
  bool erase = false;  ///< removes coverage instead of adding it

  bool operator==(const BrushDab&) const = default;
};

struct PhotoMask {
  std::string id;    ///< identity within the photo: a UUID text
  std::string name;  ///< user-visible name
  MaskKind kind = MaskKind::brush;
  bool invert = false;   ///< use 1 − coverage
  double opacity = 1.0;  ///< 0 … 1 multiplier on coverage; 0 disables the mask
  MaskAdjust adjust;
  double x0 = 0.5, y0 = 0.0;    ///< linear gradient start
  double x1 = 0.5, y1 = 0.5;    ///< linear gradient end
  double cx = 0.5, cy = 0.5;    ///< radial gradient centre
  double rx = 0.25, ry = 0.25;  ///< radial radii, fractions of width and height
  double feather = 0.5;         ///< gradient softness
  std::vector<BrushDab> dabs;   ///< brush strokes in painting order
  /// Stored coverage bitmap of a smart mask; absent until computed.
  std::optional<std::vector<std::uint8_t>> maskPNG;

  /// An empty record (no id, no name); the starting point of decoding. Use
  /// the other constructor for a new mask.
  PhotoMask() = default;
  /// A new mask of `kind` with a fresh random id, named `name` or, when none
  /// is given, the kind's title.
  explicit PhotoMask(MaskKind kind, std::optional<std::string> name = std::nullopt);

  bool operator==(const PhotoMask&) const = default;
};

/// No mask of a list matches what the user typed. The message is one line,
/// fit to show to the user.
class MaskLookupError : public std::runtime_error {
 public:
  explicit MaskLookupError(const std::string& description) : std::runtime_error(description) {}
};

/// The mask the user means by `reference`, as an index into `masks`:
/// 1. a mask whose id equals the reference (ignoring case);
/// 2. else, when the reference is decimal digits only, the mask at that
///    0-based position in the list, if there is one;
/// 3. else the one mask whose id starts with the reference (ignoring case).
/// Throws MaskLookupError when the reference is empty, matches no mask, or
/// is a prefix of several ids.
std::size_t findMask(std::span<const PhotoMask> masks, std::string_view reference);

void hashInto(Hasher& h, const MaskAdjust& a);
void hashInto(Hasher& h, const BrushDab& d);
void hashInto(Hasher& h, const PhotoMask& m);

}  // namespace lumivale

template <>
struct std::hash<lumivale::MaskAdjust> {
  std::size_t operator()(const lumivale::MaskAdjust& a) const noexcept {
    lumivale::Hasher h;
    hashInto(h, a);
    return h.value();
  }
};

template <>
struct std::hash<lumivale::PhotoMask> {
  std::size_t operator()(const lumivale::PhotoMask& m) const noexcept {
    lumivale::Hasher h;
    hashInto(h, m);
    return h.value();
  }
};
