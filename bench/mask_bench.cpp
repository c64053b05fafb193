// The mask bitmap codec on 1024 × 1024 masks of three kinds: a soft radial
// gradient, brush strokes, and a noisy smart-mask-like selection. Reports
// bytes of mask per second and the stored size as a counter. Also brush
// painting: 1,000 dabs into the bitmap of a 3:2 photo, and mask PNG files.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <random>
#include <stdexcept>
#include <string>

#include "engine/util/lzfse.h"
#include "engine/render/mask_bitmap.h"
#include "engine/export/mask_export.h"
#include "engine/render/mask_renderer.h"

using namespace lumivale;

namespace {

constexpr int side = 1024;

MaskBitmap radialGradient() {
  MaskBitmap m(side, side);
  for (int y = 0; y < side; ++y)
    for (int x = 0; x < side; ++x) {
      const double d = std::hypot((x + 0.5) / side - 0.45, (y + 0.5) / side - 0.55) / 0.4;
      const double t = std::clamp((d - 0.3) / 0.7, 0.0, 1.0);
      m.bytes[std::size_t(y) * side + x] = std::uint8_t(std::lround(255 * (1 - t * t * (3 - 2 * t))));
    }
  return m;
}

MaskBitmap brushStrokes() {
  MaskBitmap m(side, side);
  std::mt19937 rng(7);
  for (int stroke = 0; stroke < 6; ++stroke) {
    double x = rng() % side, y = rng() % side;
    const double radius = 15 + rng() % 40;
    for (int dab = 0; dab < 150; ++dab) {
      x += std::cos(stroke + dab * 0.05) * radius * 0.25;
      y += std::sin(stroke * 2 + dab * 0.03) * radius * 0.25;
      for (int py = std::max(0, int(y - radius)); py < std::min(side, int(y + radius) + 1); ++py)
        for (int px = std::max(0, int(x - radius)); px < std::min(side, int(x + radius) + 1); ++px) {
          const double d = std::hypot(px + 0.5 - x, py + 0.5 - y) / radius;
          if (d > 1) continue;
          const double t = std::clamp((d - 0.5) / 0.5, 0.0, 1.0);
          const double a = 0.4 * (1 - t * t * (3 - 2 * t));
          std::uint8_t& b = m.bytes[std::size_t(py) * side + px];
          b = std::uint8_t(std::lround(255 * (b / 255.0 + a * (1 - b / 255.0))));
        }
    }
  }
  return m;
}

// A segmentation-like mask: a blobby subject with a ragged, noisy edge and
// low-level noise in the background, as a network's output looks.
MaskBitmap smartSelection() {
  MaskBitmap m(side, side);
  std::mt19937 rng(8);
  std::normal_distribution<double> noise(0, 6);
  for (int y = 0; y < side; ++y)
    for (int x = 0; x < side; ++x) {
      const double u = (x + 0.5) / side - 0.5, v = (y + 0.5) / side - 0.5;
      const double r = std::hypot(u, v * 1.3) + 0.03 * std::sin(17 * std::atan2(v, u));
      double c = 255 / (1 + std::exp((r - 0.3) * 60));
      c += noise(rng) * (c > 5 && c < 250 ? 3 : 0.3);
      m.bytes[std::size_t(y) * side + x] = std::uint8_t(std::clamp(std::lround(c), 0L, 255L));
    }
  return m;
}

const MaskBitmap& mask(int kind) {
  static const MaskBitmap masks[3] = {radialGradient(), brushStrokes(), smartSelection()};
  return masks[kind];
}

const char* kindName(int kind) { return kind == 0 ? "radial" : kind == 1 ? "brush" : "smart"; }

void encodeMask(benchmark::State& state) {
  const MaskBitmap& m = mask(int(state.range(0)));
  std::size_t stored = 0;
  for (auto _ : state) {
    const auto bytes = lzfse::encode(m.bytes);
    stored = bytes.size();
    benchmark::DoNotOptimize(bytes.data());
  }
  state.SetLabel(kindName(int(state.range(0))));
  state.SetBytesProcessed(std::int64_t(state.iterations()) * std::int64_t(m.bytes.size()));
  state.counters["stored"] = double(stored);
  state.counters["ratio"] = double(m.bytes.size()) / double(stored);
}

void decodeMask(benchmark::State& state) {
  const MaskBitmap& m = mask(int(state.range(0)));
  const auto stream = lzfse::encode(m.bytes);
  for (auto _ : state) {
    const auto bytes = lzfse::decode(stream, m.bytes.size());
    if (!bytes || *bytes != m.bytes) throw std::runtime_error("the mask does not decode back");
    benchmark::DoNotOptimize(bytes->data());
  }
  state.SetLabel(kindName(int(state.range(0))));
  state.SetBytesProcessed(std::int64_t(state.iterations()) * std::int64_t(m.bytes.size()));
}

void storedRoundTrip(benchmark::State& state) {
  const MaskBitmap& m = mask(int(state.range(0)));
  for (auto _ : state) {
    const auto back = MaskBitmap::decode(m.encoded());
    if (!back || back->bytes.size() != m.bytes.size())
      throw std::runtime_error("the mask does not round trip");
  }
  state.SetLabel(kindName(int(state.range(0))));
  state.SetBytesProcessed(std::int64_t(state.iterations()) * std::int64_t(m.bytes.size()));
}

// Strokes of dabs as a brush lays them while dragging: each a quarter radius
// from the last, with soft edges and partial flow, one stroke in ten erasing.
std::vector<BrushDab> strokeDabs(int count, double radius) {
  std::mt19937 rng(9);
  std::uniform_real_distribution<double> unit(0, 1);
  std::vector<BrushDab> dabs;
  double x = 0.5, y = 0.5, heading = 0;
  bool erase = false;
  for (int i = 0; i < count; ++i) {
    if (i % 100 == 0) {
      x = 0.1 + 0.8 * unit(rng), y = 0.1 + 0.8 * unit(rng);
      erase = rng() % 10 == 0;
    }
    heading += (unit(rng) - 0.5) * 0.6;
    x = std::clamp(x + std::cos(heading) * radius * 0.25, 0.0, 1.0);
    y = std::clamp(y + std::sin(heading) * radius * 0.25 * 1.5, 0.0, 1.0);
    dabs.push_back({x, y, radius, 0.5, 0.6, erase});
  }
  return dabs;
}

void paintDabs(benchmark::State& state) {
  const int count = int(state.range(0));
  const std::vector<BrushDab> dabs = strokeDabs(count, 0.02);
  std::size_t covered = 0;
  for (auto _ : state) {
    const MaskBitmap m = MaskRenderer::paint(dabs, 1024, 683);
    covered =
        std::size_t(std::count_if(m.bytes.begin(), m.bytes.end(), [](std::uint8_t b) { return b > 0; }));
    benchmark::DoNotOptimize(m.bytes.data());
  }
  if (covered == 0) throw std::runtime_error("the dabs painted nothing");
  state.SetItemsProcessed(std::int64_t(state.iterations()) * count);
  state.counters["covered"] = double(covered);
}

void maskPngFile(benchmark::State& state) {
  const MaskBitmap& m = mask(int(state.range(0)));
  const std::filesystem::path file =
      std::filesystem::temp_directory_path() / ("lumivale-mask-bench-" + std::to_string(::getpid()) + ".png");
  for (auto _ : state) {
    writeMaskPNG(m, file, true);
    if (MaskBitmap back = maskBitmapFromImageFile(file); back.bytes != m.bytes)
      throw std::runtime_error("the mask does not survive its PNG file");
  }
  std::filesystem::remove(file);
  state.SetLabel(kindName(int(state.range(0))));
  state.SetBytesProcessed(std::int64_t(state.iterations()) * std::int64_t(m.bytes.size()));
}

}  // namespace

BENCHMARK(paintDabs)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);
BENCHMARK(maskPngFile)->DenseRange(0, 2)->Unit(benchmark::kMillisecond);
BENCHMARK(encodeMask)->DenseRange(0, 2)->Unit(benchmark::kMillisecond);
BENCHMARK(decodeMask)->DenseRange(0, 2)->Unit(benchmark::kMillisecond);
BENCHMARK(storedRoundTrip)->DenseRange(0, 2)->Unit(benchmark::kMillisecond);
