#include "engine/render/tone_lut.h"

#include <cmath>
#include <stdexcept>
#include <string>

#include "engine/render/tone_kernel.h"
#include "engine/util/parallel.h"

namespace lumivale::ToneLUT {

using tone_detail::clamp01;

double encode(double linear, LUTDomain domain) {
  if (domain == LUTDomain::scene) linear *= 0.25;
  return std::pow(clamp01(linear), 1 / 2.2);
}

double decode(double coordinate, LUTDomain domain) {
  const double linear = std::pow(clamp01(coordinate), 2.2);
  return domain == LUTDomain::scene ? linear * 4 : linear;
}

RGB map(const RGB& linear, const ToneParams& p) {
  using tone_detail::channelCurves;
  using tone_detail::channelTone;
  RGB e{channelCurves(channelTone(linear.r * p.gain.r, p), p.curveMaster, p.curveR),
        channelCurves(channelTone(linear.g * p.gain.g, p), p.curveMaster, p.curveG),
        channelCurves(channelTone(linear.b * p.gain.b, p), p.curveMaster, p.curveB)};
  const tone_detail::CrossStages cross(p);
  if (cross.active()) e = cross.apply(e);
  return {srgbDecode(e.r), srgbDecode(e.g), srgbDecode(e.b)};
}

std::vector<float> cube(const ToneParams& params, LUTDomain domain, int size) {
  const tone_detail::CubeBuilder builder(params, domain, size);
  const std::size_t n = static_cast<std::size_t>(size);
  std::vector<float> data(n * n * n * 4, 1.0f);
  // One job per blue slab; the slabs are disjoint, so no lock is needed.
  parallelFor(n, [&](std::size_t blue) { builder.fillSlab(static_cast<int>(blue), data.data()); });
  return data;
}

}  // namespace lumivale::ToneLUT
