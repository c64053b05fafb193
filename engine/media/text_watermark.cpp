#include "engine/media/text_watermark.h"

#include <cairo.h>
#include <lcms2.h>
#include <pango/pangocairo.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <vector>

#include "engine/media/vips_glue.h"
#include "engine/util/utf8.h"

namespace lumivale {
namespace {

// Limits that keep pango's and cairo's fixed-point coordinates (1/1024 and
// 1/256 of a pixel in 32 bits) far from overflowing.
constexpr double largestFontSize = 1e6;
constexpr double longestLine = 1.5e6;
constexpr std::size_t longestText = 64 * 1024;
constexpr int widestSurface = 32767;
// The size the text is measured at before it is laid out at its own size.
constexpr double measuringSize = 8;

struct Rgb {
  double r = 0, g = 0, b = 0;
};

struct Release {
  void operator()(PangoLayout* p) const { g_object_unref(p); }
  void operator()(PangoContext* p) const { g_object_unref(p); }
  void operator()(PangoFontDescription* p) const { pango_font_description_free(p); }
  void operator()(cairo_surface_t* p) const { cairo_surface_destroy(p); }
  void operator()(cairo_t* p) const { cairo_destroy(p); }
  void operator()(cairo_font_options_t* p) const { cairo_font_options_destroy(p); }
};
using LayoutPtr = std::unique_ptr<PangoLayout, Release>;
using ContextPtr = std::unique_ptr<PangoContext, Release>;
using FontPtr = std::unique_ptr<PangoFontDescription, Release>;
using SurfacePtr = std::unique_ptr<cairo_surface_t, Release>;
using CairoPtr = std::unique_ptr<cairo_t, Release>;
using OptionsPtr = std::unique_ptr<cairo_font_options_t, Release>;

// One line: controls (line and paragraph breaks among them) become spaces,
// bytes that are not UTF-8 become U+FFFD, as pango takes only UTF-8.
std::string oneLine(const std::string& text) {
  std::string line;
  for (std::size_t i = 0; i < text.size();) {
    const Utf8Char c = decodeUtf8(text, i);
    i += c.length;
    if (!c.valid) {
      appendUtf8(line, 0xFFFD);
    } else if (c.value < 0x20 || (c.value >= 0x7F && c.value < 0xA0) || c.value == 0x2028 ||
               c.value == 0x2029) {
      line.push_back(' ');
    } else {
      appendUtf8(line, c.value);
    }
  }
  return line;
}

// sRGB grey levels as the image's colour space encodes them.
std::optional<std::vector<Rgb>> greysIn(const std::string& icc, std::initializer_list<double> greys) {
  cmsHPROFILE srgb = cmsCreate_sRGBProfile();
  cmsHPROFILE target = cmsOpenProfileFromMem(icc.data(), cmsUInt32Number(icc.size()));
  cmsHTRANSFORM transform = nullptr;
  if (srgb && target) {
    transform = cmsCreateTransform(srgb, TYPE_RGB_DBL, target, TYPE_RGB_DBL, INTENT_RELATIVE_COLORIMETRIC, 0);
  }
  std::optional<std::vector<Rgb>> result;
  if (transform) {
    result.emplace();
    for (double grey : greys) {
      const double in[3] = {grey, grey, grey};
      double out[3];
      cmsDoTransform(transform, in, out, 1);
      result->push_back(
          {std::clamp(out[0], 0.0, 1.0), std::clamp(out[1], 0.0, 1.0), std::clamp(out[2], 0.0, 1.0)});
    }
    cmsDeleteTransform(transform);
  }
  if (target) cmsCloseProfile(target);
  if (srgb) cmsCloseProfile(srgb);
  return result;
}

std::string iccProfileOf(const vips::VImage& image) {
  if (image.get_typeof(VIPS_META_ICC_NAME) == 0) return {};
  std::size_t length = 0;
  const void* data = image.get_blob(VIPS_META_ICC_NAME, &length);
  return std::string(static_cast<const char*>(data), length);
}

// A layout of `text` on pango's cairo font map for this thread, with
// unhinted outlines so that its size scales exactly with the font size.
LayoutPtr makeLayout(const std::string& text) {
  ContextPtr context(pango_font_map_create_context(pango_cairo_font_map_get_default()));
  OptionsPtr options(cairo_font_options_create());
  cairo_font_options_set_hint_style(options.get(), CAIRO_HINT_STYLE_NONE);
  cairo_font_options_set_hint_metrics(options.get(), CAIRO_HINT_METRICS_OFF);
  cairo_font_options_set_antialias(options.get(), CAIRO_ANTIALIAS_GRAY);
  pango_cairo_context_set_font_options(context.get(), options.get());
  LayoutPtr layout(pango_layout_new(context.get()));
  pango_layout_set_single_paragraph_mode(layout.get(), TRUE);
  pango_layout_set_text(layout.get(), text.data(), int(text.size()));
  return layout;
}

void setSize(PangoLayout* layout, double pixels) {
  FontPtr font(pango_font_description_from_string(watermarkFont));
  pango_font_description_set_absolute_size(font.get(), pixels * PANGO_SCALE);
  pango_layout_set_font_description(layout, font.get());
}

struct Box {
  double x = 0, y = 0, width = 0, height = 0;
};

Box inkOf(PangoLayout* layout) {
  PangoRectangle ink;
  pango_layout_get_extents(layout, &ink, nullptr);
  return {double(ink.x) / PANGO_SCALE, double(ink.y) / PANGO_SCALE, double(ink.width) / PANGO_SCALE,
          double(ink.height) / PANGO_SCALE};
}

double placed(TextAlign align, double extent, double length, double margin) {
  switch (align) {
    case TextAlign::start:
      return margin;
    case TextAlign::middle:
      return (extent - length) / 2;
    case TextAlign::end:
      break;
  }
  return extent - length - margin;
}

// Draws the layout with its origin at (x, y) into a surface covering
// `area` and returns the surface's pixels as an image: premultiplied BGRA
// bytes in memory order for ARGB32, the coverage alone for A8.
vips::VImage drawn(PangoLayout* layout, cairo_format_t format, const VipsRect& area, double x, double y,
                   Rgb colour) {
  SurfacePtr surface(cairo_image_surface_create(format, area.width, area.height));
  if (cairo_surface_status(surface.get()) != CAIRO_STATUS_SUCCESS) throw ImageError("no surface to draw on");
  CairoPtr cr(cairo_create(surface.get()));
  cairo_translate(cr.get(), -area.left, -area.top);
  cairo_move_to(cr.get(), x, y);
  cairo_set_source_rgba(cr.get(), colour.r, colour.g, colour.b, 1);
  pango_cairo_show_layout(cr.get(), layout);
  cairo_surface_flush(surface.get());
  if (cairo_status(cr.get()) != CAIRO_STATUS_SUCCESS) throw ImageError("the text could not be drawn");

  const int bands = format == CAIRO_FORMAT_ARGB32 ? 4 : 1;
  const int stride = cairo_image_surface_get_stride(surface.get());
  const unsigned char* data = cairo_image_surface_get_data(surface.get());
  std::vector<unsigned char> pixels(std::size_t(area.width) * area.height * bands);
  for (int row = 0; row < area.height; ++row) {
    std::copy_n(data + std::size_t(row) * stride, std::size_t(area.width) * bands,
                pixels.begin() + std::ptrdiff_t(std::size_t(row) * area.width * bands));
  }
  VipsImage* copy = vips_image_new_from_memory_copy(pixels.data(), pixels.size(), area.width, area.height,
                                                    bands, VIPS_FORMAT_UCHAR);
  if (!copy) throw vips::VError();
  return vips::VImage(copy);
}

}  // namespace

std::optional<Image> drawTextWatermark(const Image& image, const TextWatermark& mark) {
  initImageLibraries();
  if (image.empty()) return std::nullopt;
  const vips::VImage base = vipsImage(image);
  const VipsBandFormat format = base.format();
  if (base.bands() != 3 || (format != VIPS_FORMAT_UCHAR && format != VIPS_FORMAT_USHORT)) return std::nullopt;
  const auto colours = greysIn(iccProfileOf(base), {mark.grey, mark.shadowGrey});
  if (!colours) return std::nullopt;
  const std::string text = oneLine(mark.text);
  if (text.size() > longestText || !(mark.fontSize > 0) || mark.fontSize > largestFontSize)
    return std::nullopt;
  const double opacity = std::clamp(mark.opacity, 0.0, 1.0);
  if (text.empty() || !(opacity > 0)) return image;

  try {
    // Measured small first: a line too long for pango's coordinates at its
    // own size is refused before it is laid out at that size.
    LayoutPtr layout = makeLayout(text);
    setSize(layout.get(), measuringSize);
    const Box small = inkOf(layout.get());
    if (small.width / measuringSize * mark.fontSize > longestLine) return std::nullopt;
    setSize(layout.get(), mark.fontSize);
    const Box ink = inkOf(layout.get());
    if (ink.width <= 0 || ink.height <= 0) return image;

    const int width = base.width(), height = base.height();
    const double left = placed(mark.column, width, ink.width, mark.margin);
    const double top = placed(mark.row, height, ink.height, mark.margin);
    const double originX = left - ink.x, originY = top - ink.y;

    // The part of the image the text and its shadow touch.
    const double sigma = std::max(0.0, mark.shadowBlur) / 2;
    const double reach = sigma > 0 ? 3 * sigma + 1 : 0;
    const double shadowTop = top + mark.shadowDrop;
    const double x0 = std::max(0.0, std::floor(left - reach));
    const double y0 = std::max(0.0, std::floor(std::min(top, shadowTop - reach)));
    const double x1 = std::min(double(width), std::ceil(left + ink.width + reach));
    const double y1 =
        std::min(double(height), std::ceil(std::max(top + ink.height, shadowTop + ink.height + reach)));
    if (x1 <= x0 || y1 <= y0) return image;
    const VipsRect area{int(x0), int(y0), int(x1 - x0), int(y1 - y0)};
    if (area.width > widestSurface || area.height > widestSurface) return std::nullopt;

    return withVips("cannot draw the watermark", [&] {
      const Rgb textColour = (*colours)[0], shadowColour = (*colours)[1];
      const double scale = format == VIPS_FORMAT_UCHAR ? 255.0 : 65535.0;
      // The text in its colour (colour glyphs keep their own), premultiplied.
      const vips::VImage bgra = drawn(layout.get(), CAIRO_FORMAT_ARGB32, area, originX, originY, textColour)
                                    .cast(VIPS_FORMAT_FLOAT) /
                                255.0;
      const vips::VImage textRgb = bgra[2].bandjoin(bgra[1]).bandjoin(bgra[0]) * opacity;
      const vips::VImage textAlpha = bgra[3] * opacity;
      // The shadow takes the drawn text's coverage (its opacity included)
      // times its own colour's alpha, as a drawing context's shadow does.
      vips::VImage shadow = drawn(layout.get(), CAIRO_FORMAT_A8, area, originX, originY + mark.shadowDrop, {})
                                .cast(VIPS_FORMAT_FLOAT) /
                            255.0;
      if (sigma > 0.05) {
        shadow = shadow.gaussblur(sigma, vips::VImage::option()->set("precision", VIPS_PRECISION_FLOAT));
      }
      shadow = shadow * (opacity * std::clamp(mark.shadowAlpha, 0.0, 1.0));

      const vips::VImage under =
          base.extract_area(area.left, area.top, area.width, area.height).cast(VIPS_FORMAT_FLOAT) / scale;
      const std::vector<double> shade{shadowColour.r, shadowColour.g, shadowColour.b};
      const vips::VImage shaded = under * (1 - shadow) + shadow.linear(shade, {0, 0, 0});
      const vips::VImage over = shaded * (1 - textAlpha) + textRgb;
      const vips::VImage pixels = (over * scale + 0.5).cast(format);
      return fromVips(base.insert(pixels, area.left, area.top));
    });
  } catch (const ImageError&) {
    return std::nullopt;
  }
}

}  // namespace lumivale
