// Any bytes handed to the settings decoder give a record; that record must
// store and read back exactly, and everything derived from it (curves,
// geometry, groups) must stay well-behaved. A broken property aborts.

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "engine/edit/edit_settings.h"
#include "engine/edit/geometry.h"
#include "engine/edit/settings_group.h"

using namespace lumivale;

namespace {

void require(bool condition) {
  if (!condition) std::abort();
}

// Between neighbouring cleaned points the evaluator stays within their outputs.
void checkCurve(const ToneCurve& curve) {
  if (curve.points.size() > 256) return;  // keep each run fast
  const auto points = curve.cleaned();
  const CurveEvaluator e = curve.evaluator();
  if (e.isIdentity()) return;
  for (std::size_t i = 0; i + 1 < points.size(); ++i) {
    const double low = std::min(points[i].y, points[i + 1].y) - 1e-9;
    const double high = std::max(points[i].y, points[i + 1].y) + 1e-9;
    for (int k = 0; k <= 8; ++k) {
      const double y = e(points[i].x + (points[i + 1].x - points[i].x) * k / 8.0);
      require(y >= low && y <= high);
    }
  }
}

void checkGeometry(const EditSettings& s) {
  for (Size source : {Size{6000, 4000}, Size{1, 1}}) {
    const PhotoGeometry g(s, source);
    require(std::isfinite(g.crop.x) && std::isfinite(g.crop.y) && std::isfinite(g.crop.width) &&
            std::isfinite(g.crop.height));
    const Size out = g.outputSize();
    require(out.width >= 1 && out.height >= 1);
    const Point p{0.3, 0.7};
    const Point back = g.frameToSource(g.sourceToFrame(p));
    require(std::abs(back.x - p.x) < 1e-12 && std::abs(back.y - p.y) < 1e-12);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const EditSettings s = EditSettings::decode(text);
  require(s.hsl.size() == 8);

  const auto blob = s.encoded();
  require(blob.has_value());
  const EditSettings again = EditSettings::decode(*blob);
  require(again == s);
  require(again.hash() == s.hash());
  require(again.encoded() == blob);

  for (const ToneCurve* curve : {&s.curveRGB, &s.curveRed, &s.curveGreen, &s.curveBlue}) checkCurve(*curve);
  checkGeometry(s);
  const auto changed = s.changedGroups();
  require(EditSettings{}.merging(s, changed).changedGroups() == changed);
  require(!s.sourceKey().empty());
  require(groupsFromText(groupsText(groupsFromText(text))) == groupsFromText(text));
  return 0;
}
