#include "engine/media/icc_import.h"

#include <lcms2.h>

#include <array>
#include <cmath>
#include <memory>
#include <mutex>

#include "engine/media/color_space.h"
#include "engine/media/pixel_rows.h"

namespace lumivale::media_detail {
namespace {

struct ProfileCloser {
  void operator()(void* profile) const { cmsCloseProfile(profile); }
};
using Profile = std::unique_ptr<void, ProfileCloser>;

struct TransformDeleter {
  void operator()(void* transform) const { cmsDeleteTransform(transform); }
};

constexpr const char* unusableProfile =
    "the embedded colour profile cannot be used; the colours are read as sRGB";

// The working space as an lcms2 profile: sRGB primaries, D65, linear curves.
Profile workingProfile() {
  const Primaries p = primariesOf(ColorSpace::sRGB);
  const cmsCIExyY white{p.whiteX, p.whiteY, 1.0};
  const cmsCIExyYTRIPLE primaries{{p.redX, p.redY, 1.0}, {p.greenX, p.greenY, 1.0}, {p.blueX, p.blueY, 1.0}};
  cmsToneCurve* linear = cmsBuildGamma(nullptr, 1.0);
  cmsToneCurve* curves[3] = {linear, linear, linear};
  Profile profile(cmsCreateRGBProfile(&white, &primaries, curves));
  cmsFreeToneCurve(linear);
  if (!profile) throw vips::VError("cannot build the working colour space");
  return profile;
}

// The generic press profile libvips carries for CMYK files without one.
const std::vector<std::uint8_t>& fallbackCmykProfile() {
  static std::once_flag once;
  static std::vector<std::uint8_t> bytes;
  std::call_once(once, [] {
    VipsBlob* blob = nullptr;
    if (vips_profile_load("cmyk", &blob, nullptr) == 0 && blob) {
      std::size_t length = 0;
      const auto* data = static_cast<const std::uint8_t*>(vips_blob_get(blob, &length));
      bytes.assign(data, data + length);
      vips_area_unref(VIPS_AREA(blob));
    }
    vips_error_clear();
  });
  return bytes;
}

bool fits(cmsHPROFILE profile, SampleModel model) {
  const cmsProfileClassSignature kind = cmsGetDeviceClass(profile);
  if (kind == cmsSigLinkClass || kind == cmsSigAbstractClass || kind == cmsSigNamedColorClass) return false;
  switch (model) {
    case SampleModel::grey:
      return cmsGetColorSpace(profile) == cmsSigGrayData;
    case SampleModel::rgb:
      return cmsGetColorSpace(profile) == cmsSigRgbData;
    case SampleModel::cmyk:
      return cmsGetColorSpace(profile) == cmsSigCmykData;
  }
  return false;
}

// True when lcms2 itself would read the profile through its curves and
// colorants (no look-up table for the relative colorimetric intent).
bool isMatrixShaper(cmsHPROFILE profile) {
  return cmsIsMatrixShaper(profile) &&
         !cmsIsCLUT(profile, INTENT_RELATIVE_COLORIMETRIC, LCMS_USED_AS_INPUT) &&
         !cmsIsTag(profile, cmsSigDToB0Tag) && !cmsIsTag(profile, cmsSigDToB1Tag);
}

// ---- tone curves and a matrix ----

// One tone curve tabulated for every sample value of the format.
using CurveTable = std::shared_ptr<const std::vector<float>>;

template <class Curve>
CurveTable tabulate(int entries, Curve curve) {
  auto table = std::make_shared<std::vector<float>>(std::size_t(entries));
  for (int i = 0; i < entries; ++i) (*table)[std::size_t(i)] = float(curve(double(i) / (entries - 1)));
  return table;
}

struct ShaperMatrix {
  std::array<CurveTable, 3> curves;  // one per input channel (grey uses the first)
  std::array<float, 9> matrix{};
  bool identity = false;
};

template <class Sample>
PixelRowFn shaperRows(ShaperMatrix shaper, int bands) {
  if (bands == 1) {
    return [shaper](const void* in, void* out, int width) {
      const auto* s = static_cast<const Sample*>(in);
      auto* o = static_cast<float*>(out);
      const float* curve = shaper.curves[0]->data();
      for (int i = 0; i < width; ++i) o[3 * i] = o[3 * i + 1] = o[3 * i + 2] = curve[s[i]];
    };
  }
  return [shaper](const void* in, void* out, int width) {
    const auto* s = static_cast<const Sample*>(in);
    auto* o = static_cast<float*>(out);
    const float* cr = shaper.curves[0]->data();
    const float* cg = shaper.curves[1]->data();
    const float* cb = shaper.curves[2]->data();
    const std::array<float, 9> m = shaper.matrix;
    if (shaper.identity) {
      for (int i = 0; i < 3 * width; i += 3) {
        o[i] = cr[s[i]];
        o[i + 1] = cg[s[i + 1]];
        o[i + 2] = cb[s[i + 2]];
      }
      return;
    }
    for (int i = 0; i < 3 * width; i += 3) {
      const float r = cr[s[i]], g = cg[s[i + 1]], b = cb[s[i + 2]];
      o[i] = m[0] * r + m[1] * g + m[2] * b;
      o[i + 1] = m[3] * r + m[4] * g + m[5] * b;
      o[i + 2] = m[6] * r + m[7] * g + m[8] * b;
    }
  };
}

vips::VImage applyShaper(const vips::VImage& samples, const ShaperMatrix& shaper) {
  const PixelRowFn rows = samples.format() == VIPS_FORMAT_UCHAR
                              ? shaperRows<std::uint8_t>(shaper, samples.bands())
                              : shaperRows<std::uint16_t>(shaper, samples.bands());
  return mapPixelRows(samples, VIPS_FORMAT_FLOAT, 3, VIPS_INTERPRETATION_scRGB, rows);
}

int tableSize(const vips::VImage& samples) { return samples.format() == VIPS_FORMAT_UCHAR ? 256 : 65536; }

ShaperMatrix untaggedShaper(const vips::VImage& samples) {
  ShaperMatrix shaper;
  // Tables are shared between decodes: the sRGB curve never changes.
  static std::once_flag once;
  static CurveTable srgb8, srgb16;
  std::call_once(once, [] {
    auto curve = [](double v) { return decodeTransfer(ColorSpace::sRGB, v); };
    srgb8 = tabulate(256, curve);
    srgb16 = tabulate(65536, curve);
  });
  const CurveTable& table = tableSize(samples) == 256 ? srgb8 : srgb16;
  shaper.curves = {table, table, table};
  shaper.identity = true;
  return shaper;
}

Matrix3 colorants(cmsHPROFILE profile) {
  const cmsTagSignature tags[3] = {cmsSigRedColorantTag, cmsSigGreenColorantTag, cmsSigBlueColorantTag};
  Matrix3 m{};
  for (int c = 0; c < 3; ++c) {
    const auto* xyz = static_cast<const cmsCIEXYZ*>(cmsReadTag(profile, tags[c]));
    if (!xyz) throw vips::VError(unusableProfile);
    m[0 + c] = xyz->X;
    m[3 + c] = xyz->Y;
    m[6 + c] = xyz->Z;
  }
  return m;
}

// The profile's curves, tabulated, and its colorant matrix into the working
// space. Throws vips::VError when a curve or colorant is missing or the
// matrix is singular; the caller then reads the samples without a profile.
ShaperMatrix profileShaper(cmsHPROFILE profile, const vips::VImage& samples, SampleModel model) {
  ShaperMatrix shaper;
  const int entries = tableSize(samples);
  const cmsTagSignature trcTags[3] = {cmsSigRedTRCTag, cmsSigGreenTRCTag, cmsSigBlueTRCTag};
  const int channels = model == SampleModel::grey ? 1 : 3;
  std::array<const cmsToneCurve*, 3> seen{};
  for (int c = 0; c < channels; ++c) {
    const auto* curve = static_cast<const cmsToneCurve*>(
        cmsReadTag(profile, model == SampleModel::grey ? cmsSigGrayTRCTag : trcTags[c]));
    if (!curve) throw vips::VError(unusableProfile);
    seen[std::size_t(c)] = curve;
    // Channels whose tags share one curve (the usual case) share one table.
    for (int k = 0; k < c; ++k)
      if (seen[std::size_t(k)] == curve) shaper.curves[std::size_t(c)] = shaper.curves[std::size_t(k)];
    if (!shaper.curves[std::size_t(c)])
      shaper.curves[std::size_t(c)] =
          tabulate(entries, [curve](double v) { return cmsEvalToneCurveFloat(curve, float(v)); });
  }
  if (model == SampleModel::grey) return shaper;

  // Device RGB → PCS XYZ (D50) by the profile's colorants, PCS → working
  // RGB by the inverse of the working profile's colorants, as lcms2 builds
  // them.
  const Matrix3 toWorking = multiply(inverse(colorants(workingProfile().get())), colorants(profile));
  for (std::size_t i = 0; i < 9; ++i) {
    if (!std::isfinite(toWorking[i])) throw vips::VError(unusableProfile);
    shaper.matrix[i] = float(toWorking[i]);
  }
  return shaper;
}

// ---- lcms2 transforms ----

cmsUInt32Number lcmsFormat(const vips::VImage& samples, SampleModel model) {
  const int bytes = samples.format() == VIPS_FORMAT_UCHAR    ? 1
                    : samples.format() == VIPS_FORMAT_USHORT ? 2
                                                             : 4;
  const bool isFloat = samples.format() == VIPS_FORMAT_FLOAT;
  switch (model) {
    case SampleModel::grey:
      return isFloat ? TYPE_GRAY_FLT : bytes == 1 ? TYPE_GRAY_8 : TYPE_GRAY_16;
    case SampleModel::rgb:
      return isFloat ? TYPE_RGB_FLT : bytes == 1 ? TYPE_RGB_8 : TYPE_RGB_16;
    case SampleModel::cmyk:
      break;
  }
  return isFloat ? TYPE_CMYK_FLT : bytes == 1 ? TYPE_CMYK_8 : TYPE_CMYK_16;
}

std::shared_ptr<void> lcmsTransform(cmsHPROFILE profile, const vips::VImage& samples, SampleModel model) {
  Profile working = workingProfile();
  // No cache: the transform runs on several threads at once.
  std::shared_ptr<void> transform(
      cmsCreateTransform(profile, lcmsFormat(samples, model), working.get(), TYPE_RGB_FLT,
                         INTENT_RELATIVE_COLORIMETRIC, cmsFLAGS_NOCACHE),
      TransformDeleter());
  if (!transform.get()) throw vips::VError(unusableProfile);
  return transform;
}

vips::VImage applyTransform(const vips::VImage& samples, std::shared_ptr<void> transform) {
  return mapPixelRows(samples, VIPS_FORMAT_FLOAT, 3, VIPS_INTERPRETATION_scRGB,
                      [transform](const void* in, void* out, int width) {
                        cmsDoTransform(transform.get(), in, out, cmsUInt32Number(width));
                      });
}

Profile openProfile(const std::vector<std::uint8_t>& bytes) {
  if (bytes.empty()) return nullptr;
  return Profile(cmsOpenProfileFromMem(bytes.data(), cmsUInt32Number(bytes.size())));
}

// The samples through a profile known to fit them.
vips::VImage convert(const vips::VImage& samples, SampleModel model, cmsHPROFILE profile) {
  const bool integer = samples.format() == VIPS_FORMAT_UCHAR || samples.format() == VIPS_FORMAT_USHORT;
  if (integer && model != SampleModel::cmyk && isMatrixShaper(profile))
    return applyShaper(samples, profileShaper(profile, samples, model));
  return applyTransform(samples, lcmsTransform(profile, samples, model));
}

// Float samples without a profile are taken as linear sRGB, the convention
// of floating-point pictures (and of libvips' scRGB).
vips::VImage linearFloat(const vips::VImage& samples) {
  const int bands = samples.bands();
  return mapPixelRows(samples, VIPS_FORMAT_FLOAT, 3, VIPS_INTERPRETATION_scRGB,
                      [bands](const void* in, void* out, int width) {
                        const auto* s = static_cast<const float*>(in);
                        auto* o = static_cast<float*>(out);
                        for (int i = 0; i < width; ++i)
                          for (int c = 0; c < 3; ++c) o[3 * i + c] = s[bands * i + (bands == 1 ? 0 : c)];
                      });
}

vips::VImage convertUntagged(const vips::VImage& samples, SampleModel model) {
  if (model == SampleModel::cmyk) {
    Profile press = openProfile(fallbackCmykProfile());
    if (!press) throw vips::VError("no colour profile for CMYK pictures is available");
    return convert(samples, model, press.get());
  }
  if (samples.format() == VIPS_FORMAT_FLOAT) return linearFloat(samples);
  return applyShaper(samples, untaggedShaper(samples));
}

}  // namespace

vips::VImage importToWorking(const vips::VImage& samples, SampleModel model,
                             const std::vector<std::uint8_t>& profile, std::string& warning) {
  if (!profile.empty()) {
    Profile embedded = openProfile(profile);
    if (embedded && fits(embedded.get(), model)) {
      try {
        return convert(samples, model, embedded.get());
      } catch (const vips::VError&) {
        vips_error_clear();
      }
    }
    warning = unusableProfile;
  }
  return convertUntagged(samples, model);
}

}  // namespace lumivale::media_detail
