#include "engine/edit/photo_mask.h"

#include <algorithm>
#include <cctype>

#include "engine/edit/record_fields.h"
#include "engine/edit/uuid.h"

namespace lumivale {

namespace {

struct KindInfo {
  std::string_view key;
  std::string_view title;
  std::string_view symbol;
  bool smart;
};

// Indexed by the enumeration's value.
constexpr std::array<KindInfo, 6> kindInfo{{
    {"brush", "Brush", "paintbrush.fill", false},
    {"linear", "Linear Gradient", "rectangle.split.1x2", false},
    {"radial", "Radial Gradient", "circle.dashed", false},
    {"subject", "Select Subject", "person.and.background.dotted", true},
    {"sky", "Select Sky", "cloud.sun.fill", true},
    {"people", "Select People", "figure.stand", true},
}};

const KindInfo& info(MaskKind kind) { return kindInfo.at(static_cast<std::size_t>(kind)); }

bool equalIgnoringCase(std::string_view a, std::string_view b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
           return std::tolower(static_cast<unsigned char>(x)) == std::tolower(static_cast<unsigned char>(y));
         });
}

bool allDigits(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

}  // namespace

const std::array<MaskKind, 6>& allMaskKinds() {
  static constexpr std::array<MaskKind, 6> kinds{MaskKind::brush,   MaskKind::linear, MaskKind::radial,
                                                 MaskKind::subject, MaskKind::sky,    MaskKind::people};
  return kinds;
}

std::string_view key(MaskKind kind) { return info(kind).key; }
std::string_view title(MaskKind kind) { return info(kind).title; }
std::string_view symbol(MaskKind kind) { return info(kind).symbol; }
bool isSmart(MaskKind kind) { return info(kind).smart; }

std::optional<MaskKind> maskKindFromKey(std::string_view text) {
  for (MaskKind kind : allMaskKinds()) {
    if (key(kind) == text) return kind;
  }
  return std::nullopt;
}

PhotoMask::PhotoMask(MaskKind kind, std::optional<std::string> name)
    : id(newUUID()), name(name ? std::move(*name) : std::string(title(kind))), kind(kind) {}

std::size_t findMask(std::span<const PhotoMask> masks, std::string_view reference) {
  if (reference.empty()) throw MaskLookupError("no mask given");
  const std::string shown(reference);
  for (std::size_t i = 0; i < masks.size(); ++i)
    if (equalIgnoringCase(masks[i].id, reference)) return i;

  if (allDigits(reference) && reference.size() <= 9) {
    const std::size_t index = std::stoul(shown);
    if (index < masks.size()) return index;
  }

  std::optional<std::size_t> found;
  int matches = 0;
  for (std::size_t i = 0; i < masks.size(); ++i) {
    const std::string_view id = masks[i].id;
    if (id.size() >= reference.size() && equalIgnoringCase(id.substr(0, reference.size()), reference)) {
      found = i;
      ++matches;
    }
  }
  if (matches == 1) return *found;
  if (matches > 1)
    throw MaskLookupError("\"" + shown + "\" is the start of " + std::to_string(matches) +
                          " mask ids; give more of the id");
  if (masks.empty()) throw MaskLookupError("the photo has no masks");
  throw MaskLookupError("no mask \"" + shown +
                        "\": give its id, the start of its id, or its position from 0 to " +
                        std::to_string(masks.size() - 1));
}

namespace codec {

namespace {

constexpr auto maskAdjustFields = recordTable(std::array{
    field<&MaskAdjust::exposure>("exposure"),
    field<&MaskAdjust::contrast>("contrast"),
    field<&MaskAdjust::highlights>("highlights"),
    field<&MaskAdjust::shadows>("shadows"),
    field<&MaskAdjust::temperature>("temperature"),
    field<&MaskAdjust::tint>("tint"),
    field<&MaskAdjust::saturation>("saturation"),
    field<&MaskAdjust::sharpness>("sharpness"),
});

constexpr auto brushDabFields = recordTable(std::array{
    field<&BrushDab::x>("x"),
    field<&BrushDab::y>("y"),
    field<&BrushDab::radius>("radius"),
    field<&BrushDab::feather>("feather"),
    field<&BrushDab::flow>("flow"),
    field<&BrushDab::erase>("erase"),
});

// Every key is required except `maskPNG`, which is written only when present.
constexpr auto photoMaskFields = recordTable(std::array{
    field<&PhotoMask::id>("id"),
    field<&PhotoMask::name>("name"),
    field<&PhotoMask::kind>("kind"),
    field<&PhotoMask::invert>("invert"),
    field<&PhotoMask::opacity>("opacity"),
    field<&PhotoMask::adjust>("adjust"),
    field<&PhotoMask::x0>("x0"),
    field<&PhotoMask::y0>("y0"),
    field<&PhotoMask::x1>("x1"),
    field<&PhotoMask::y1>("y1"),
    field<&PhotoMask::cx>("cx"),
    field<&PhotoMask::cy>("cy"),
    field<&PhotoMask::rx>("rx"),
    field<&PhotoMask::ry>("ry"),
    field<&PhotoMask::feather>("feather"),
    field<&PhotoMask::dabs>("dabs"),
    field<&PhotoMask::maskPNG>("maskPNG"),
});

}  // namespace

bool Codec<MaskKind>::read(JsonReader& r, MaskKind& out) {
  std::string text;
  if (!Codec<std::string>::read(r, text)) return false;
  const auto kind = maskKindFromKey(text);
  if (!kind) return false;
  out = *kind;
  return true;
}
void Codec<MaskKind>::write(JsonWriter& w, const MaskKind& v) { w.value(key(v)); }

LUMIVALE_FIELDS_OF(MaskAdjust, maskAdjustFields)
LUMIVALE_FIELDS_OF(BrushDab, brushDabFields)
LUMIVALE_FIELDS_OF(PhotoMask, photoMaskFields)

}  // namespace codec

void hashInto(Hasher& h, const MaskAdjust& a) { codec::hashRecord(h, a); }
void hashInto(Hasher& h, const BrushDab& d) { codec::hashRecord(h, d); }
void hashInto(Hasher& h, const PhotoMask& m) { codec::hashRecord(h, m); }

}  // namespace lumivale
