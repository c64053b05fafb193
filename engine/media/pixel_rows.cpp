#include "engine/media/pixel_rows.h"

#include <string>

namespace lumivale::media_detail {
namespace {

struct RowState {
  PixelRowFn fn;
  // A reference of our own to the input: libvips expects an image it makes
  // regions on to be held by someone besides the output's input array.
  vips::VImage input;
};

int generateRows(VipsRegion* out, void* seq, void*, void* state, gboolean*) {
  auto* in = static_cast<VipsRegion*>(seq);
  const auto* rows = static_cast<const RowState*>(state);
  const VipsRect* r = &out->valid;
  if (vips_region_prepare(in, r)) return -1;
  for (int y = r->top; y < VIPS_RECT_BOTTOM(r); ++y)
    rows->fn(VIPS_REGION_ADDR(in, r->left, y), VIPS_REGION_ADDR(out, r->left, y), r->width);
  return 0;
}

[[noreturn]] void failed() { throw vips::VError(); }

}  // namespace

void clearMetadata(VipsImage* image) {
  gchar** names = vips_image_get_fields(image);
  for (gchar** name = names; *name; ++name) vips_image_remove(image, *name);
  g_strfreev(names);
}

vips::VImage mapPixelRows(const vips::VImage& in, VipsBandFormat format, int bands,
                          VipsInterpretation interpretation, PixelRowFn fn) {
  VipsImage* out = vips_image_new();
  // The C++ handle owns `out` from here on, also when building fails.
  vips::VImage result(out);
  VipsImage** inputs = vips_allocate_input_array(out, in.get_image(), nullptr);
  if (!inputs || vips_image_pipeline_array(out, VIPS_DEMAND_STYLE_THINSTRIP, inputs)) failed();
  clearMetadata(out);
  vips_image_init_fields(out, in.width(), in.height(), bands, format, VIPS_CODING_NONE, interpretation,
                         in.xres(), in.yres());
  auto* state = new RowState{std::move(fn), in};
  g_object_set_data_full(G_OBJECT(out), "lumivale-pixel-rows", state,
                         [](gpointer p) { delete static_cast<RowState*>(p); });
  if (vips_image_generate(out, vips_start_one, generateRows, vips_stop_one, inputs[0], state)) failed();
  return result;
}

}  // namespace lumivale::media_detail
