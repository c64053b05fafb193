// The stored JSON form of EditSettings and of the small records inside it.

#include <new>

#include "engine/edit/record_codec.h"

namespace lumivale {

namespace codec {

namespace {

constexpr auto curvePointFields = sortedByKey(std::array{
    field<&CurvePoint::x>("x"),
    field<&CurvePoint::y>("y"),
});

constexpr auto toneCurveFields = sortedByKey(std::array{
    field<&ToneCurve::points>("points"),
});

constexpr auto hslBandFields = sortedByKey(std::array{
    field<&HSLBand::hue>("hue"),
    field<&HSLBand::saturation>("saturation"),
    field<&HSLBand::luminance>("luminance"),
});

constexpr auto gradeWheelFields = sortedByKey(std::array{
    field<&GradeWheel::hue>("hue"),
    field<&GradeWheel::saturation>("saturation"),
    field<&GradeWheel::luminance>("luminance"),
});

constexpr auto cropRectFields = sortedByKey(std::array{
    field<&CropRect::x>("x"),
    field<&CropRect::y>("y"),
    field<&CropRect::w>("w"),
    field<&CropRect::h>("h"),
});

// The colour mixer always has eight bands once read: a short list is padded
// with neutral bands, a long one cut.
constexpr FieldSpec<EditSettings> hslField{
    "hsl",
    [](JsonReader& r, EditSettings& s) {
      if (!Codec<std::vector<HSLBand>>::read(r, s.hsl)) return false;
      s.hsl.resize(allColorBands().size());
      return true;
    },
    [](JsonWriter& w, std::string_view key, const EditSettings& s) { writeMember(w, key, s.hsl); },
    [](EditSettings& s) { s.hsl = EditSettings::blank().hsl; },
    true,
};

// Declaration order; the table is sorted for writing.
constexpr auto editSettingsFields = sortedByKey(std::array{
    field<&EditSettings::version>("version"),
    field<&EditSettings::temperature>("temperature"),
    field<&EditSettings::tint>("tint"),
    field<&EditSettings::exposure>("exposure"),
    field<&EditSettings::contrast>("contrast"),
    field<&EditSettings::highlights>("highlights"),
    field<&EditSettings::shadows>("shadows"),
    field<&EditSettings::whites>("whites"),
    field<&EditSettings::blacks>("blacks"),
    field<&EditSettings::vibrance>("vibrance"),
    field<&EditSettings::saturation>("saturation"),
    field<&EditSettings::blackAndWhite>("blackAndWhite"),
    field<&EditSettings::curveRGB>("curveRGB"),
    field<&EditSettings::curveRed>("curveRed"),
    field<&EditSettings::curveGreen>("curveGreen"),
    field<&EditSettings::curveBlue>("curveBlue"),
    hslField,
    field<&EditSettings::gradeShadows>("gradeShadows"),
    field<&EditSettings::gradeMidtones>("gradeMidtones"),
    field<&EditSettings::gradeHighlights>("gradeHighlights"),
    field<&EditSettings::gradeBlending>("gradeBlending"),
    field<&EditSettings::gradeBalance>("gradeBalance"),
    field<&EditSettings::sharpenAmount>("sharpenAmount"),
    field<&EditSettings::sharpenRadius>("sharpenRadius"),
    field<&EditSettings::noiseLuminance>("noiseLuminance"),
    field<&EditSettings::noiseColor>("noiseColor"),
    field<&EditSettings::lensCorrection>("lensCorrection"),
    field<&EditSettings::vignetteAmount>("vignetteAmount"),
    field<&EditSettings::vignetteMidpoint>("vignetteMidpoint"),
    field<&EditSettings::vignetteFeather>("vignetteFeather"),
    field<&EditSettings::grainAmount>("grainAmount"),
    field<&EditSettings::grainSize>("grainSize"),
    field<&EditSettings::rotateQuarterTurns>("rotateQuarterTurns"),
    field<&EditSettings::flipHorizontal>("flipHorizontal"),
    field<&EditSettings::flipVertical>("flipVertical"),
    field<&EditSettings::straighten>("straighten"),
    field<&EditSettings::crop>("crop"),
    field<&EditSettings::cropAspect>("cropAspect"),
    field<&EditSettings::masks>("masks"),
});
static_assert(editSettingsFields.size() == 39);
static_assert(keysAreUnique(editSettingsFields));

}  // namespace

bool Codec<CurvePoint>::read(JsonReader& r, CurvePoint& out) { return readRecord(r, out, curvePointFields); }
void Codec<CurvePoint>::write(JsonWriter& w, const CurvePoint& v) { writeRecord(w, v, curvePointFields); }

bool Codec<ToneCurve>::read(JsonReader& r, ToneCurve& out) { return readRecord(r, out, toneCurveFields); }
void Codec<ToneCurve>::write(JsonWriter& w, const ToneCurve& v) { writeRecord(w, v, toneCurveFields); }

bool Codec<HSLBand>::read(JsonReader& r, HSLBand& out) { return readRecord(r, out, hslBandFields); }
void Codec<HSLBand>::write(JsonWriter& w, const HSLBand& v) { writeRecord(w, v, hslBandFields); }

bool Codec<GradeWheel>::read(JsonReader& r, GradeWheel& out) { return readRecord(r, out, gradeWheelFields); }
void Codec<GradeWheel>::write(JsonWriter& w, const GradeWheel& v) { writeRecord(w, v, gradeWheelFields); }

bool Codec<CropRect>::read(JsonReader& r, CropRect& out) { return readRecord(r, out, cropRectFields); }
void Codec<CropRect>::write(JsonWriter& w, const CropRect& v) { writeRecord(w, v, cropRectFields); }

}  // namespace codec

std::optional<std::string> EditSettings::encoded() const {
  JsonWriter writer;
  codec::writeRecord(writer, *this, codec::editSettingsFields);
  if (writer.failed()) return std::nullopt;
  return writer.take();
}

EditSettings EditSettings::decode(std::optional<std::string_view> data) {
  if (!data) return blank();
  try {
    JsonReader reader(*data);
    if (reader.peek() != JsonReader::Kind::object) return blank();
    EditSettings settings = blank();
    codec::readRecordTolerantly(reader, settings, codec::editSettingsFields);
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
