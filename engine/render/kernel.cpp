#include "engine/render/kernel.h"

#include <algorithm>
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

struct AreaState {
  NeedFn need;
  AreaFn fn;
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

// Clamps each edge of `need` into an image of `width` × `height`, so the
// clamped position of any point of `need` lies in the result (never empty).
PixelRect clampInto(const PixelRect& need, int width, int height) {
  const int left = std::clamp(need.left, 0, width - 1), top = std::clamp(need.top, 0, height - 1);
  const int right = std::clamp(need.right() - 1, 0, width - 1),
            bottom = std::clamp(need.bottom() - 1, 0, height - 1);
  return {left, top, std::max(right, left) - left + 1, std::max(bottom, top) - top + 1};
}

int generateArea(VipsRegion* out, void* seq, void*, void* b, gboolean*) {
  auto* in = static_cast<VipsRegion*>(seq);
  const auto* state = static_cast<const AreaState*>(b);
  const VipsRect* r = &out->valid;
  const PixelRect rect =
      clampInto(state->need({r->left, r->top, r->width, r->height}), in->im->Xsize, in->im->Ysize);
  VipsRect need{rect.left, rect.top, rect.width, rect.height};
  if (vips_region_prepare(in, &need)) return -1;
  const InputArea area{rect, in->im->Bands,
                       reinterpret_cast<const float*>(VIPS_REGION_ADDR(in, rect.left, rect.top)),
                       VIPS_REGION_LSKIP(in) / sizeof(float)};
  for (int y = r->top; y < VIPS_RECT_BOTTOM(r); ++y)
    state->fn(area, reinterpret_cast<float*>(VIPS_REGION_ADDR(out, r->left, y)), r->width, r->left, y);
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
  while (!message.empty() && (message.back() == '\n' || message.back() == ' ')) message.pop_back();
  throw ImageError(std::string(what) + ": " + message);
}

// A new image of `width` × `height` × `bands` floats made by `generate` from
// `inputs`. The image holds a reference to each input and owns `state` until
// it closes: a graph node must outlive every handle its caller had.
template <class State>
Image build(const std::vector<vips::VImage>& inputs, VipsDemandStyle demand, int width, int height, int bands,
            std::unique_ptr<State> state, VipsStartFn start, VipsGenerateFn generate, VipsStopFn stop) {
  VipsImage* out = vips_image_new();
  Image result = Image::adopt(out);
  State* kept = state.release();
  keepWith(out, kept);
  VipsImage** in = VIPS_ARRAY(out, inputs.size() + 1, VipsImage*);
  if (!in) failed("cannot build a kernel");
  for (std::size_t i = 0; i < inputs.size(); ++i) {
    in[i] = inputs[i].get_image();
    g_object_ref(in[i]);
    vips_object_local(out, in[i]);
  }
  in[inputs.size()] = nullptr;
  if (vips_image_pipeline_array(out, demand, in)) failed("cannot build a kernel");
  describe(out, width, height, bands);
  // vips_start_many takes the array, vips_start_one the one image.
  void* a = start == vips_start_many ? static_cast<void*>(in) : static_cast<void*>(in[0]);
  if (vips_image_generate(out, start, generate, stop, a, kept)) failed("cannot build a kernel");
  return result;
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
  auto state = std::make_unique<RowState>(RowState{std::move(fn), int(floats.size())});
  return build(floats, VIPS_DEMAND_STYLE_THINSTRIP, floats.front().width(), floats.front().height(), outBands,
               std::move(state), vips_start_many, generateRows, vips_stop_many);
}

Image generate(int width, int height, int bands, RowFn fn) {
  initImageLibraries();
  if (width < 1 || height < 1) throw ImageError("a generated image needs a size");
  return build({}, VIPS_DEMAND_STYLE_ANY, width, height, bands,
               std::make_unique<RowState>(RowState{std::move(fn), 0}), nullptr, generateRows, nullptr);
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
  return build({source}, VIPS_DEMAND_STYLE_SMALLTILE, input.width(), input.height(), outBands,
               std::make_unique<WindowState>(WindowState{std::move(fn), radius}), vips_start_one,
               generateWindow, vips_stop_one);
}

Image mapArea(const Image& input, int width, int height, int outBands, NeedFn need, AreaFn fn) {
  initImageLibraries();
  if (width < 1 || height < 1) throw ImageError("a kernel's result needs a size");
  vips::VImage source = withVips("cannot prepare a kernel input", [&] { return asFloat(input); });
  return build({source}, VIPS_DEMAND_STYLE_SMALLTILE, width, height, outBands,
               std::make_unique<AreaState>(AreaState{std::move(need), std::move(fn)}), vips_start_one,
               generateArea, vips_stop_one);
}

}  // namespace lumivale::kernel
