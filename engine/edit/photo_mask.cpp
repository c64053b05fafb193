#include "engine/edit/photo_mask.h"

#include "engine/edit/record_codec.h"
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

void hashInto(Hasher& h, const MaskAdjust& a) {
  for (double v :
       {a.exposure, a.contrast, a.highlights, a.shadows, a.temperature, a.tint, a.saturation, a.sharpness}) {
    h.add(v);
  }
}

void hashInto(Hasher& h, const BrushDab& d) {
  for (double v : {d.x, d.y, d.radius, d.feather, d.flow}) h.add(v);
  h.add(d.erase);
}

void hashInto(Hasher& h, const PhotoMask& m) {
  h.add(std::string_view(m.id));
  h.add(std::string_view(m.name));
  h.add(static_cast<std::int64_t>(m.kind));
  h.add(m.invert);
  h.add(m.opacity);
  hashInto(h, m.adjust);
  for (double v : {m.x0, m.y0, m.x1, m.y1, m.cx, m.cy, m.rx, m.ry, m.feather}) h.add(v);
  h.addCount(m.dabs.size());
  for (const BrushDab& dab : m.dabs) hashInto(h, dab);
  h.add(m.maskPNG.has_value());
  if (m.maskPNG) h.add(std::string_view(reinterpret_cast<const char*>(m.maskPNG->data()), m.maskPNG->size()));
}

namespace codec {

namespace {

constexpr auto maskAdjustFields = sortedByKey(std::array{
    field<&MaskAdjust::exposure>("exposure"),
    field<&MaskAdjust::contrast>("contrast"),
    field<&MaskAdjust::highlights>("highlights"),
    field<&MaskAdjust::shadows>("shadows"),
    field<&MaskAdjust::temperature>("temperature"),
    field<&MaskAdjust::tint>("tint"),
    field<&MaskAdjust::saturation>("saturation"),
    field<&MaskAdjust::sharpness>("sharpness"),
});

constexpr auto brushDabFields = sortedByKey(std::array{
    field<&BrushDab::x>("x"),
    field<&BrushDab::y>("y"),
    field<&BrushDab::radius>("radius"),
    field<&BrushDab::feather>("feather"),
    field<&BrushDab::flow>("flow"),
    field<&BrushDab::erase>("erase"),
});

// Every key is required except `maskPNG`, which is written only when present.
constexpr auto photoMaskFields = sortedByKey(std::array{
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
static_assert(keysAreUnique(photoMaskFields));

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

bool Codec<MaskAdjust>::read(JsonReader& r, MaskAdjust& out) { return readRecord(r, out, maskAdjustFields); }
void Codec<MaskAdjust>::write(JsonWriter& w, const MaskAdjust& v) { writeRecord(w, v, maskAdjustFields); }

bool Codec<BrushDab>::read(JsonReader& r, BrushDab& out) { return readRecord(r, out, brushDabFields); }
void Codec<BrushDab>::write(JsonWriter& w, const BrushDab& v) { writeRecord(w, v, brushDabFields); }

bool Codec<PhotoMask>::read(JsonReader& r, PhotoMask& out) { return readRecord(r, out, photoMaskFields); }
void Codec<PhotoMask>::write(JsonWriter& w, const PhotoMask& v) { writeRecord(w, v, photoMaskFields); }

}  // namespace codec

}  // namespace lumivale
