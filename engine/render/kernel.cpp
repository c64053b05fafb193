#include "engine/render/kernel.h"

#include <array>
#include <memory>

#include "engine/media/vips_glue.h"

namespace lumivale::kernel {
namespace {

constexpr int maxInputs = 8;

struct RowState {
  RowFn fn;
  int inputs = 0;
};

struct WindowState {
  WindowFn fn;
  int radius = 0;
};

template <class State>
void keepWith(VipsImage* image, State* state) {
  g_object_set_data_full(G_OBJECT(image), "lumivale-kernel", state,
                         [](gpointer p) { delete static_cast<State*>(p); });
}

int generateRows(VipsRegion* out, void* seq, void*, void* b, gboolean*) {
  auto** in = static_cast<VipsRegion**>(seq);
  const auto* state = static_cast<const RowState*>(b);
  VipsRect* r = &out->valid;
  if (state->inputs > 0 && vips_reorder_prepare_many(out->im, in, r)) return -1;
  std::array<const float*, maxInputs> rows{};
  for (int y = r->top; y < VIPS_RECT_BOTTOM(r); ++y) {
    for (int i = 0; i < state->inputs; ++i)
      rows[i] = reinterpret_cast<const float*>(VIPS_REGION_ADDR(in[i], r->left, y));
    state->fn(rows.data(), reinterpret_cast<float*>(VIPS_REGION_ADDR(out, r->left, y)), r->width, r->left, y);
  }
  return 0;
}

int generateWindow(VipsRegion* out, void* seq, void*, void* b, gboolean*) {
  auto* in = static_cast<VipsRegion*>(seq);
  const auto* state = static_cast<const WindowState*>(b);
  const VipsRect* r = &out->valid;
  const int radius = state->radius;
  // The input is the original embedded by `radius` on every side, so output
  // pixel (x, y) has its window at input (x … x + 2 radius, y … y + 2 radius).
  VipsRect need{r->left, r->top, r->width + 2 * radius, r->height + 2 * radius};
  if (vips_region_prepare(in, &need)) return -1;
  std::vector<const float*> rows(std::size_t(2 * radius + 1));
  for (int y = r->top; y < VIPS_RECT_BOTTOM(r); ++y) {
    for (int k = 0; k <= 2 * radius; ++k)
      rows[std::size_t(k)] = reinterpret_cast<const float*>(VIPS_REGION_ADDR(in, r->left, y + k));
    state->fn(rows.data(), reinterpret_cast<float*>(VIPS_REGION_ADDR(out, r->left, y)), r->width, r->left, y);
  }
  return 0;
}

vips::VImage asFloat(const Image& image) {
  vips::VImage v = vipsImage(image);
  return v.format() == VIPS_FORMAT_FLOAT ? v : v.cast(VIPS_FORMAT_FLOAT);
}

void describe(VipsImage* out, int width, int height, int bands) {
  vips_image_init_fields(out, width, height, bands, VIPS_FORMAT_FLOAT, VIPS_CODING_NONE,
                         bands >= 3 ? VIPS_INTERPRETATION_scRGB : VIPS_INTERPRETATION_B_W, 1.0, 1.0);
}

[[noreturn]] void failed(const char* what) {
  std::string message = vips_error_buffer();
  vips_error_clear();
  throw ImageError(std::string(what) + ": " + message);
}

}  // namespace

Image mapRows(const std::vector<Image>& inputs, int outBands, RowFn fn) {
  initImageLibraries();
  if (inputs.empty() || inputs.size() > std::size_t(maxInputs))
    throw ImageError("a kernel needs 1 to 8 inputs");
  std::vector<vips::VImage> floats;
  for (const Image& input : inputs) {
    floats.push_back(withVips("cannot prepare a kernel input", [&] { return asFloat(input); }));
    if (floats.back().width() != floats.front().width() || floats.back().height() != floats.front().height())
      throw ImageError("the inputs of a kernel differ in size");
  }
  VipsImage* out = vips_image_new();
  std::array<VipsImage*, maxInputs + 1> raw{};
  for (std::size_t i = 0; i < floats.size(); ++i) raw[i] = floats[i].get_image();
  // The array keeps a reference to each input until `out` closes.
  VipsImage** in = vips_allocate_input_array(out, raw[0], raw[1], raw[2], raw[3], raw[4], raw[5], raw[6],
                                             raw[7], nullptr);
  Image result = Image::adopt(out);
  if (!in || vips_image_pipeline_array(out, VIPS_DEMAND_STYLE_THINSTRIP, in)) failed("cannot build a kernel");
  describe(out, floats.front().width(), floats.front().height(), outBands);
  auto* state = new RowState{std::move(fn), int(floats.size())};
  keepWith(out, state);
  if (vips_image_generate(out, vips_start_many, generateRows, vips_stop_many, in, state))
    failed("cannot build a kernel");
  return result;
}

Image generate(int width, int height, int bands, RowFn fn) {
  initImageLibraries();
  if (width < 1 || height < 1) throw ImageError("a generated image needs a size");
  VipsImage* out = vips_image_new();
  Image result = Image::adopt(out);
  if (vips_image_pipelinev(out, VIPS_DEMAND_STYLE_ANY, nullptr)) failed("cannot build a generator");
  describe(out, width, height, bands);
  auto* state = new RowState{std::move(fn), 0};
  keepWith(out, state);
  if (vips_image_generate(out, nullptr, generateRows, nullptr, nullptr, state))
    failed("cannot build a generator");
  return result;
}

Image mapWindow(const Image& input, int radius, int outBands, WindowFn fn) {
  initImageLibraries();
  if (radius < 0) throw ImageError("a window needs a radius of 0 or more");
  vips::VImage source = withVips("cannot prepare a kernel input", [&] {
    vips::VImage f = asFloat(input);
    return radius == 0 ? f
                       : f.embed(radius, radius, f.width() + 2 * radius, f.height() + 2 * radius,
                                 vips::VImage::option()->set("extend", VIPS_EXTEND_COPY));
  });
  VipsImage* out = vips_image_new();
  Image result = Image::adopt(out);
  VipsImage** in = vips_allocate_input_array(out, source.get_image(), nullptr);
  if (!in || vips_image_pipeline_array(out, VIPS_DEMAND_STYLE_SMALLTILE, in)) failed("cannot build a kernel");
  describe(out, input.width(), input.height(), outBands);
  auto* state = new WindowState{std::move(fn), radius};
  keepWith(out, state);
  if (vips_image_generate(out, vips_start_one, generateWindow, vips_stop_one, in[0], state))
    failed("cannot build a kernel");
  return result;
}

}  // namespace lumivale::kernel
