// Lanczos scaling is separable: a pass over columns (every output row a
// weighted sum of whole input rows, run flat over their values) and then one
// along rows. Each output coordinate has its own taps: the input pixels
// within the kernel's support around the point it maps to, their weights
// normalised to 1 and their positions clamped into the image (clamp to
// extent). The image is mapped edge to edge onto the result, and a
// reduction widens the kernel by the reduction factor so that it filters
// what it leaves out.

#include "engine/render/filters/resample.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "engine/render/filters/resample.cpp"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include <algorithm>
#include <cmath>

#include "engine/render/kernel.h"

HWY_BEFORE_NAMESPACE();
namespace lumivale::filters::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// out[i] = Σ w[k] rows[k][i] over `taps` rows.
void WeightedRows(const float* const* rows, const float* w, int taps, float* out, std::size_t count) {
  const hn::ScalableTag<float> d;
  using V = hn::Vec<decltype(d)>;
  const std::size_t lanes = hn::Lanes(d);
  std::size_t i = 0;
  for (; i + lanes <= count; i += lanes) {
    V sum = hn::Mul(hn::Set(d, w[0]), hn::LoadU(d, rows[0] + i));
    for (int k = 1; k < taps; ++k) sum = hn::MulAdd(hn::Set(d, w[k]), hn::LoadU(d, rows[k] + i), sum);
    hn::StoreU(sum, d, out + i);
  }
  for (; i < count; ++i) {
    float sum = w[0] * rows[0][i];
    for (int k = 1; k < taps; ++k) sum += w[k] * rows[k][i];
    out[i] = sum;
  }
}

// Stores the first three floats of `v` at o; `spare` says o[3] may be
// written too.
#if HWY_TARGET != HWY_SCALAR
template <class V4>
HWY_INLINE void StoreRgb(V4 v, float* o, bool spare) {
  const hn::FixedTag<float, 4> d4;
  if (spare) return hn::StoreU(v, d4, o);
  HWY_ALIGN float rgba[4];
  hn::Store(v, d4, rgba);
  o[0] = rgba[0], o[1] = rgba[1], o[2] = rgba[2];
}
#endif

// Output pixels x … x + width − 1 of row y along the row: pixel i reads
// count[i] input pixels from first[i] on, with weights[i × stride …]. RGB
// pixels are read as 4-float vectors, whose fourth lane (the next pixel's
// red) falls away, wherever that fourth float lies inside the area.
void ResampleRow(const kernel::InputArea& in, int y, const int* first, const int* count, const float* weights,
                 int stride, float* out, int width) {
  const int bands = in.bands;
  [[maybe_unused]] const float* end = in.at(in.rect.right() - 1, y) + bands;
  for (int i = 0; i < width; ++i) {
    const float* w = weights + std::size_t(i) * stride;
    const float* p = in.at(first[i], y);
    const int n = count[i];
#if HWY_TARGET != HWY_SCALAR
    if (bands == 3 && p + 3 * n < end) {
      const hn::FixedTag<float, 4> d4;
      auto sum = hn::Mul(hn::Set(d4, w[0]), hn::LoadU(d4, p));
      for (int k = 1; k < n; ++k) sum = hn::MulAdd(hn::Set(d4, w[k]), hn::LoadU(d4, p + 3 * k), sum);
      StoreRgb(sum, out + 3 * i, i + 1 < width);
      continue;
    }
#endif
    for (int c = 0; c < bands; ++c) {
      float sum = 0;
      for (int k = 0; k < n; ++k) sum += w[k] * p[k * bands + c];
      out[i * bands + c] = sum;
    }
  }
}

// Bilinear samples of the input (w × h, edges repeated) at (u0 + i du,
// v0 + i dv) for i = 0 … width − 1, in pixel-centre coordinates (pixel j
// is centred at j).
void AffineRow(const kernel::InputArea& in, int w, int h, double u0, double v0, double du, double dv,
               float* out, int width) {
  const int bands = in.bands;
  [[maybe_unused]] const float* end = in.at(in.rect.right() - 1, in.rect.bottom() - 1) + bands;
  for (int i = 0; i < width; ++i) {
    const double u = u0 + i * du, v = v0 + i * dv;
    const double fu = std::floor(u), fv = std::floor(v);
    const float tx = float(u - fu), ty = float(v - fv);
    const int x0 = int(std::clamp(fu, -1.0, double(w))), y0 = int(std::clamp(fv, -1.0, double(h)));
    const int xa = std::clamp(x0, 0, w - 1), xb = std::clamp(x0 + 1, 0, w - 1);
    const int ya = std::clamp(y0, 0, h - 1), yb = std::clamp(y0 + 1, 0, h - 1);
    const float *p00 = in.at(xa, ya), *p10 = in.at(xb, ya), *p01 = in.at(xa, yb), *p11 = in.at(xb, yb);
#if HWY_TARGET != HWY_SCALAR
    if (bands == 3 && std::max({p00, p10, p01, p11}) + 3 < end) {
      const hn::FixedTag<float, 4> d4;
      const auto lerp = [&](auto a, auto b, float t) { return hn::MulAdd(hn::Set(d4, t), hn::Sub(b, a), a); };
      const auto top = lerp(hn::LoadU(d4, p00), hn::LoadU(d4, p10), tx);
      const auto bottom = lerp(hn::LoadU(d4, p01), hn::LoadU(d4, p11), tx);
      StoreRgb(lerp(top, bottom, ty), out + 3 * i, i + 1 < width);
      continue;
    }
#endif
    for (int c = 0; c < bands; ++c) {
      const float top = p00[c] + tx * (p10[c] - p00[c]), bottom = p01[c] + tx * (p11[c] - p01[c]);
      out[i * bands + c] = top + ty * (bottom - top);
    }
  }
}

}  // namespace lumivale::filters::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE

#include <algorithm>
#include <cmath>
#include <memory>
#include <numbers>
#include <string>
#include <vector>

#include "engine/media/vips_glue.h"
#include "engine/render/kernel.h"

namespace lumivale::filters {

HWY_EXPORT(WeightedRows);
HWY_EXPORT(ResampleRow);
HWY_EXPORT(AffineRow);

namespace {

constexpr double lanczosLobes = 3;

double lanczos(double x) {
  if (x == 0) return 1;
  if (!(std::abs(x) < lanczosLobes)) return 0;
  const double px = std::numbers::pi * x;
  return lanczosLobes * std::sin(px) * std::sin(px / lanczosLobes) / (px * px);
}

// For each output coordinate, the first input coordinate it reads, how many
// it reads and their weights (`stride` per output, unused ones zero).
struct Taps {
  std::vector<int> first;
  std::vector<int> count;
  std::vector<float> weights;
  int stride = 0;

  const float* at(int o) const { return &weights[std::size_t(o) * stride]; }
  int last(int o) const { return first[std::size_t(o)] + count[std::size_t(o)] - 1; }
};

Taps lanczosTaps(int inSize, int outSize) {
  const double scale = double(outSize) / inSize, stretch = std::min(scale, 1.0);
  const double support = lanczosLobes / stretch;
  Taps taps;
  taps.stride = int(std::ceil(2 * support)) + 2;
  std::vector<double> folded;
  for (int o = 0; o < outSize; ++o) {
    const double centre = (o + 0.5) / scale - 0.5;
    const int lo = int(std::ceil(centre - support)), hi = int(std::floor(centre + support));
    const int first = std::clamp(lo, 0, inSize - 1), last = std::clamp(hi, 0, inSize - 1);
    folded.assign(std::size_t(last - first + 1), 0.0);
    double total = 0;
    for (int i = lo; i <= hi; ++i) {
      const double w = lanczos((i - centre) * stretch);
      folded[std::size_t(std::clamp(i, 0, inSize - 1) - first)] += w;
      total += w;
    }
    taps.first.push_back(first);
    taps.count.push_back(last - first + 1);
    for (int k = 0; k < taps.stride; ++k)
      taps.weights.push_back(k < int(folded.size()) ? float(folded[std::size_t(k)] / total) : 0.0f);
  }
  return taps;
}

Image scaleColumns(const Image& input, int outHeight) {
  auto taps = std::make_shared<const Taps>(lanczosTaps(input.height(), outHeight));
  const int bands = input.bands();
  return kernel::mapArea(
      input, input.width(), outHeight, bands,
      [taps](const kernel::PixelRect& r) {
        const int top = taps->first[std::size_t(r.top)];
        return kernel::PixelRect{r.left, top, r.width, taps->last(r.bottom() - 1) - top + 1};
      },
      [taps, bands](const kernel::InputArea& in, float* out, int width, int x, int y) {
        const int first = taps->first[std::size_t(y)], count = taps->count[std::size_t(y)];
        std::vector<const float*> rows(static_cast<std::size_t>(count));
        for (int k = 0; k < count; ++k) rows[std::size_t(k)] = in.at(x, first + k);
        HWY_DYNAMIC_DISPATCH(WeightedRows)(rows.data(), taps->at(y), count, out, std::size_t(width) * bands);
      });
}

Image scaleRows(const Image& input, int outWidth) {
  auto taps = std::make_shared<const Taps>(lanczosTaps(input.width(), outWidth));
  const int bands = input.bands();
  return kernel::mapArea(
      input, outWidth, input.height(), bands,
      [taps](const kernel::PixelRect& r) {
        const int left = taps->first[std::size_t(r.left)];
        return kernel::PixelRect{left, r.top, taps->last(r.right() - 1) - left + 1, r.height};
      },
      [taps](const kernel::InputArea& in, float* out, int width, int x, int y) {
        HWY_DYNAMIC_DISPATCH(ResampleRow)
        (in, y, &taps->first[std::size_t(x)], &taps->count[std::size_t(x)], taps->at(x), taps->stride, out,
         width);
      });
}

int scaledSize(double size) {
  if (!std::isfinite(size) || size > 10'000'000)
    throw ImageError("the scaled image would have no usable size");
  return std::max(1, int(std::lround(size)));
}

}  // namespace

Image lanczosScale(const Image& input, double scale, double aspect) {
  if (input.empty()) throw ImageError("Lanczos scale: an image was missing in the render chain");
  if (!(scale > 0) || !(aspect > 0)) throw ImageError("Lanczos scale needs a scale and an aspect above 0");
  const int width = scaledSize(input.width() * scale * aspect), height = scaledSize(input.height() * scale);
  const Image columns = height == input.height() ? input : scaleColumns(input, height);
  return width == input.width() ? columns : scaleRows(columns, width);
}

Image affine(const Image& input, const Affine& t, const Rect& area) {
  if (input.empty()) throw ImageError("affine: an image was missing in the render chain");
  const double det = t.a * t.d - t.b * t.c;
  if (!std::isfinite(det) || det == 0 || !std::isfinite(t.tx) || !std::isfinite(t.ty))
    throw ImageError("the transform cannot be inverted");
  const double left = std::floor(area.minX()), top = std::floor(area.minY());
  const double right = std::ceil(area.maxX()), bottom = std::ceil(area.maxY());
  if (!std::isfinite(left + top + right + bottom) || right - left > 10'000'000 || bottom - top > 10'000'000)
    throw ImageError("the transformed area has no usable size");
  // Output point q maps back to the input point inverse(q).
  const Affine inv{t.d / det,
                   -t.b / det,
                   -t.c / det,
                   t.a / det,
                   (t.c * t.ty - t.d * t.tx) / det,
                   (t.b * t.tx - t.a * t.ty) / det};
  const int w = input.width(), h = input.height();
  const double ox = left, oy = top;
  return kernel::mapArea(
      input, std::max(int(right - left), 1), std::max(int(bottom - top), 1), input.bands(),
      [=](const kernel::PixelRect& r) {
        double minX = HUGE_VAL, minY = HUGE_VAL, maxX = -HUGE_VAL, maxY = -HUGE_VAL;
        for (double x : {ox + r.left, ox + r.right()})
          for (double y : {oy + r.top, oy + r.bottom()}) {
            const Point p = inv.apply({x, y});
            minX = std::min(minX, p.x), maxX = std::max(maxX, p.x);
            minY = std::min(minY, p.y), maxY = std::max(maxY, p.y);
          }
        // Margins for the second tap of the bilinear pair and for rounding.
        const auto lo = [](double v) { return int(std::clamp(std::floor(v) - 2, -1e7, 1e7)); };
        const auto hi = [](double v) { return int(std::clamp(std::ceil(v) + 2, -1e7, 1e7)); };
        return kernel::PixelRect{lo(minX), lo(minY), hi(maxX) - lo(minX), hi(maxY) - lo(minY)};
      },
      [=](const kernel::InputArea& in, float* out, int width, int x, int y) {
        // Input pixel j is centred at j + ½.
        const Point start = inv.apply({ox + x + 0.5, oy + y + 0.5});
        HWY_DYNAMIC_DISPATCH(AffineRow)(in, w, h, start.x - 0.5, start.y - 0.5, inv.a, inv.b, out, width);
      });
}

Affine topLeftTransform(const Affine& m, double inputHeight, double outputHeight) {
  // Flip the input into bottom-left space, apply m, flip the result back.
  return {m.a, -m.b, -m.c, m.d, m.c * inputHeight + m.tx, outputHeight - m.d * inputHeight - m.ty};
}

Image flip(const Image& input, bool horizontal) {
  return withVips("cannot flip the image", [&] {
    return fromVips(vipsImage(input).flip(horizontal ? VIPS_DIRECTION_HORIZONTAL : VIPS_DIRECTION_VERTICAL));
  });
}

Image rotateQuarterTurns(const Image& input, int turns) {
  static constexpr VipsAngle angles[] = {VIPS_ANGLE_D0, VIPS_ANGLE_D90, VIPS_ANGLE_D180, VIPS_ANGLE_D270};
  const int quarter = ((turns % 4) + 4) % 4;
  if (quarter == 0) {
    vipsImage(input);  // refuses a missing image
    return input;
  }
  return withVips("cannot turn the image", [&] { return fromVips(vipsImage(input).rot(angles[quarter])); });
}

Image crop(const Image& input, int left, int top, int width, int height) {
  return withVips("cannot crop the image", [&] {
    const vips::VImage v = vipsImage(input);
    // The rectangle clipped to the image; the nearest edge pixel when nothing is left.
    const auto clip = [](long long start, long long size, int extent, int& first, int& count) {
      long long lo = std::max(start, 0LL), hi = std::min(start + std::max(size, 0LL), (long long)extent);
      if (hi <= lo) lo = std::clamp(start, 0LL, (long long)extent - 1), hi = lo + 1;
      first = int(lo), count = int(hi - lo);
    };
    int x = 0, y = 0, w = 0, h = 0;
    clip(left, width, v.width(), x, w);
    clip(top, height, v.height(), y, h);
    if (x == 0 && y == 0 && w == v.width() && h == v.height()) return input;
    return fromVips(v.extract_area(x, y, w, h));
  });
}

}  // namespace lumivale::filters

#endif  // HWY_ONCE
