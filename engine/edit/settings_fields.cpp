// The tables of EditSettings and of the small records inside it, with the
// stored JSON form and the hashes made through them.

#include <new>

#include "engine/edit/record_fields.h"
#include "engine/edit/uuid.h"

namespace lumivale {

namespace codec {

namespace {

using E = EditSettings;
using G = SettingsGroup;

constexpr auto curvePointFields = recordTable(std::array{
    field<&CurvePoint::x>("x"),
    field<&CurvePoint::y>("y"),
});

constexpr auto toneCurveFields = recordTable(std::array{
    field<&ToneCurve::points>("points"),
});

constexpr auto hslBandFields = recordTable(std::array{
    field<&HSLBand::hue>("hue"),
    field<&HSLBand::saturation>("saturation"),
    field<&HSLBand::luminance>("luminance"),
});

constexpr auto gradeWheelFields = recordTable(std::array{
    field<&GradeWheel::hue>("hue"),
    field<&GradeWheel::saturation>("saturation"),
    field<&GradeWheel::luminance>("luminance"),
});

constexpr auto cropRectFields = recordTable(std::array{
    field<&CropRect::x>("x"),
    field<&CropRect::y>("y"),
    field<&CropRect::w>("w"),
    field<&CropRect::h>("h"),
});

constexpr std::size_t bandCount = 8;

// The colour mixer always has eight bands once read: a short list is padded
// with neutral bands, a long one cut. An edit that gives another count is
// refused, since it would not be kept as given.
constexpr FieldSpec<E> hslField = [] {
  FieldSpec<E> f = field<&E::hsl>("hsl", G::colorMixer);
  f.read = [](JsonReader& r, E& s) {
    if (!Codec<std::vector<HSLBand>>::read(r, s.hsl)) return false;
    s.hsl.resize(bandCount);
    return true;
  };
  f.edit = [](E& s, PathWalk& walk) {
    editValue(s.hsl, walk);
    if (s.hsl.size() != bandCount) walk.refuse(false);
  };
  return f;
}();

// Masks taken into another record must never share ids with their source:
// every copy gets a fresh one.
constexpr FieldSpec<E> masksField = [] {
  FieldSpec<E> f = field<&E::masks>("masks", G::masks);
  f.transfer = [](const E& from, E& to) {
    to.masks = from.masks;
    for (PhotoMask& mask : to.masks) mask.id = newUUID();
  };
  return f;
}();

// Declaration order, each field with its settings group; `version` is in
// none, so it is never transferred.
constexpr auto editSettingsFields = recordTable(std::array{
    field<&E::version>("version"),
    field<&E::temperature>("temperature", G::whiteBalance),
    field<&E::tint>("tint", G::whiteBalance),
    field<&E::exposure>("exposure", G::light),
    field<&E::contrast>("contrast", G::light),
    field<&E::highlights>("highlights", G::light),
    field<&E::shadows>("shadows", G::light),
    field<&E::whites>("whites", G::light),
    field<&E::blacks>("blacks", G::light),
    field<&E::vibrance>("vibrance", G::presence),
    field<&E::saturation>("saturation", G::presence),
    field<&E::blackAndWhite>("blackAndWhite", G::treatment),
    field<&E::curveRGB>("curveRGB", G::toneCurve),
    field<&E::curveRed>("curveRed", G::toneCurve),
    field<&E::curveGreen>("curveGreen", G::toneCurve),
    field<&E::curveBlue>("curveBlue", G::toneCurve),
    hslField,
    field<&E::gradeShadows>("gradeShadows", G::colorGrading),
    field<&E::gradeMidtones>("gradeMidtones", G::colorGrading),
    field<&E::gradeHighlights>("gradeHighlights", G::colorGrading),
    field<&E::gradeBlending>("gradeBlending", G::colorGrading),
    field<&E::gradeBalance>("gradeBalance", G::colorGrading),
    field<&E::sharpenAmount>("sharpenAmount", G::detail),
    field<&E::sharpenRadius>("sharpenRadius", G::detail),
    field<&E::noiseLuminance>("noiseLuminance", G::detail),
    field<&E::noiseColor>("noiseColor", G::detail),
    field<&E::lensCorrection>("lensCorrection", G::lens),
    field<&E::vignetteAmount>("vignetteAmount", G::effects),
    field<&E::vignetteMidpoint>("vignetteMidpoint", G::effects),
    field<&E::vignetteFeather>("vignetteFeather", G::effects),
    field<&E::grainAmount>("grainAmount", G::effects),
    field<&E::grainSize>("grainSize", G::effects),
    field<&E::rotateQuarterTurns>("rotateQuarterTurns", G::geometry),
    field<&E::flipHorizontal>("flipHorizontal", G::geometry),
    field<&E::flipVertical>("flipVertical", G::geometry),
    field<&E::straighten>("straighten", G::geometry),
    field<&E::crop>("crop", G::geometry),
    field<&E::cropAspect>("cropAspect", G::geometry),
    masksField,
});
static_assert(editSettingsFields.fields.size() == 39);

}  // namespace

LUMIVALE_FIELDS_OF(CurvePoint, curvePointFields)
LUMIVALE_FIELDS_OF(ToneCurve, toneCurveFields)
LUMIVALE_FIELDS_OF(HSLBand, hslBandFields)
LUMIVALE_FIELDS_OF(GradeWheel, gradeWheelFields)
LUMIVALE_FIELDS_OF(CropRect, cropRectFields)
LUMIVALE_FIELDS_OF(EditSettings, editSettingsFields)

}  // namespace codec

void hashInto(Hasher& h, const CurvePoint& p) { codec::hashRecord(h, p); }
void hashInto(Hasher& h, const ToneCurve& c) { codec::hashRecord(h, c); }
void hashInto(Hasher& h, const HSLBand& b) { codec::hashRecord(h, b); }
void hashInto(Hasher& h, const GradeWheel& w) { codec::hashRecord(h, w); }
void hashInto(Hasher& h, const CropRect& r) { codec::hashRecord(h, r); }
void hashInto(Hasher& h, const EditSettings& s) { codec::hashRecord(h, s); }

std::optional<std::string> EditSettings::encoded() const {
  JsonWriter writer;
  codec::writeRecord(writer, *this, codec::fieldsOf<EditSettings>());
  if (writer.failed()) return std::nullopt;
  return writer.take();
}

EditSettings EditSettings::decode(std::optional<std::string_view> data) {
  if (!data) return blank();
  try {
    JsonReader reader(*data);
    if (reader.peek() != JsonReader::Kind::object) return blank();
    EditSettings settings = blank();
    codec::readRecordTolerantly(reader, settings, codec::fieldsOf<EditSettings>());
    reader.finish();
    return settings;
  } catch (const JsonSyntaxError&) {
    return blank();
  } catch (const std::bad_alloc&) {
    // A blob whose content cannot be held in memory is as unreadable as a
    // malformed one.
    return blank();
  }
}

EditSettings EditSettings::decode(const std::vector<std::uint8_t>& data) {
  return decode(std::string_view(reinterpret_cast<const char*>(data.data()), data.size()));
}

}  // namespace lumivale
