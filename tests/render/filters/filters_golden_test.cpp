// Every filter against golden images computed by numpy from the filters'
// definitions (tests/data/golden/make_goldens.py). A case names its golden
// file, the filter call and how close the result must come.

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <set>

#include "engine/render/filters/blur.h"
#include "engine/render/filters/color_cube.h"
#include "engine/render/filters/composite.h"
#include "engine/render/filters/gradient.h"
#include "engine/render/filters/noise.h"
#include "engine/render/filters/point.h"
#include "engine/render/filters/random_generator.h"
#include "engine/render/filters/resample.h"
#include "tests/render/filters/golden.h"

using namespace lumivale;
using namespace lumivale::filters;
using test::Tolerance;

namespace {

// The goldens are float64 results rounded to float, so one float rounding
// (6e-8) is the least error; instruction sets with and without fused
// multiply–add round differently.
// A few float operations per value.
constexpr Tolerance arithmetic{1e-6, 0, 2e-6};
// exp and log of our vector maths, or a division.
constexpr Tolerance transcendental{2e-6, 0, 1e-5};
// Float sums over many taps, with float weights.
constexpr Tolerance convolution{2e-6, 0, 1e-5};
// Copies of pixels.
constexpr Tolerance exact{0, 0, 0};

struct Inputs {
  const test::Golden& golden;
  Image image(std::size_t i) const { return Image::fromPixels(golden.inputs.at(i)); }
  double param(std::size_t i) const { return golden.params.at(i); }
  int integer(std::size_t i) const { return int(param(i)); }
  Point point(std::size_t i) const { return {param(i), param(i + 1)}; }
};

struct Case {
  const char* golden;
  Tolerance tolerance;
  std::function<Image(const Inputs&)> run;
};

Image exposure(const Inputs& in) { return exposureAdjust(in.image(0), in.param(0)); }
Image matrix(const Inputs& in) {
  ColorMatrix m;
  for (std::size_t i = 0; i < 4; ++i) {
    m.r[i] = in.param(i), m.g[i] = in.param(4 + i), m.b[i] = in.param(8 + i);
    m.a[i] = in.param(12 + i), m.bias[i] = in.param(16 + i);
  }
  return colorMatrix(in.image(0), m);
}
Image clamp(const Inputs& in) {
  return colorClamp(in.image(0), {in.param(0), in.param(1), in.param(2), in.param(3)},
                    {in.param(4), in.param(5), in.param(6), in.param(7)});
}
Image gamma(const Inputs& in) { return gammaAdjust(in.image(0), in.param(0)); }
Image invert(const Inputs& in) { return colorInvert(in.image(0)); }
Image cube(const Inputs& in) { return colorCube(in.image(0), in.golden.inputs.at(1).values, in.integer(0)); }
Image gaussian(const Inputs& in) { return gaussianBlur(in.image(0), in.param(0)); }
Image unsharp(const Inputs& in) { return unsharpMask(in.image(0), in.param(0), in.param(1)); }
Image blend(const Inputs& in) { return blendWithMask(in.image(0), in.image(1), in.image(2)); }
Image multiply(const Inputs& in) { return multiplyCompositing(in.image(0), in.image(1)); }
Image dissolve(const Inputs& in) { return dissolveTransition(in.image(0), in.image(1), in.param(0)); }
Image luminosity(const Inputs& in) { return luminosityBlend(in.image(0), in.image(1)); }
Image linear(const Inputs& in) {
  return linearGradient(in.integer(0), in.integer(1), in.point(2), in.param(4), in.point(5), in.param(7));
}
Image radial(const Inputs& in) {
  return radialGradient(in.integer(0), in.integer(1), in.point(2), in.param(4), in.param(5), in.param(6),
                        in.param(7), in.param(8), in.param(9));
}
Image noise(const Inputs& in) {
  return randomGenerator(in.integer(0), in.integer(1), in.integer(2), in.integer(3));
}
Image smoothing(const Inputs& in) { return noiseReduction(in.image(0), in.param(0), in.param(1)); }
Image median(const Inputs& in) { return medianFilter(in.image(0)); }
Image lanczos(const Inputs& in) { return lanczosScale(in.image(0), in.param(0), in.param(1)); }
Image transform(const Inputs& in) {
  const Affine t{in.param(0), in.param(1), in.param(2), in.param(3), in.param(4), in.param(5)};
  return affine(in.image(0), t, {in.param(6), in.param(7), in.param(8), in.param(9)});
}
Image cropped(const Inputs& in) {
  return crop(in.image(0), in.integer(0), in.integer(1), in.integer(2), in.integer(3));
}
Image flipped(const Inputs& in) { return flip(in.image(0), in.param(0) != 0); }
Image turned(const Inputs& in) { return rotateQuarterTurns(in.image(0), in.integer(0)); }

const Case cases[] = {
    {"exposure_rgb", arithmetic, exposure},
    {"exposure_grey_1x1", arithmetic, exposure},
    {"color_matrix_rgb", arithmetic, matrix},
    {"color_matrix_grey_1xN", arithmetic, matrix},
    {"color_clamp_rgb", exact, clamp},
    {"color_clamp_grey_Nx1", exact, clamp},
    {"gamma_encode", transcendental, gamma},
    {"gamma_decode", transcendental, gamma},
    {"color_invert", arithmetic, invert},
    {"color_cube_5", arithmetic, cube},
    {"color_cube_2", arithmetic, cube},
    {"color_cube_grey_1xN", arithmetic, cube},
    {"gaussian_0.3", convolution, gaussian},
    {"gaussian_1", convolution, gaussian},
    {"gaussian_3.7", convolution, gaussian},
    {"gaussian_wider_than_image", convolution, gaussian},
    {"gaussian_1x1", convolution, gaussian},
    {"gaussian_1xN", convolution, gaussian},
    {"gaussian_identity", exact, gaussian},
    {"gaussian_grey", convolution, gaussian},
    {"unsharp_0.3", convolution, unsharp},
    {"unsharp_2.5", convolution, unsharp},
    {"unsharp_20", convolution, unsharp},
    {"blend_with_mask", arithmetic, blend},
    {"blend_grey_over_rgb_rgb_mask", arithmetic, blend},
    {"multiply", arithmetic, multiply},
    {"dissolve_0.3", arithmetic, dissolve},
    {"dissolve_clamped", exact, dissolve},
    {"luminosity", transcendental, luminosity},
    {"linear_gradient", convolution, linear},
    {"linear_gradient_no_length", exact, linear},
    {"radial_gradient", convolution, radial},
    {"radial_gradient_step", exact, radial},
    {"random_negative_window", exact, noise},
    {"random_far_window", exact, noise},
    {"noise_reduction", arithmetic, smoothing},
    {"noise_reduction_sharpness", arithmetic, smoothing},
    {"noise_reduction_nan", arithmetic, smoothing},
    {"noise_reduction_grey_1xN", arithmetic, smoothing},
    {"median", exact, median},
    {"median_1x1", exact, median},
    {"median_grey_2xN", exact, median},
    {"lanczos_down", convolution, lanczos},
    {"lanczos_up", convolution, lanczos},
    {"lanczos_1xN", convolution, lanczos},
    {"affine", convolution, transform},
    {"affine_grey_mirror", convolution, transform},
    {"crop_inside", exact, cropped},
    {"crop_overhanging", exact, cropped},
    {"crop_outside", exact, cropped},
    {"flip_horizontal", exact, flipped},
    {"flip_vertical", exact, flipped},
    {"rotate_1", exact, turned},
    {"rotate_2", exact, turned},
    {"rotate_3", exact, turned},
    {"rotate_minus1", exact, turned},
    {"rotate_6", exact, turned},
};

class FilterGolden : public ::testing::TestWithParam<Case> {};

}  // namespace

TEST_P(FilterGolden, MatchesTheReferenceComputation) {
  const Case& c = GetParam();
  const std::optional<test::Golden> golden = test::loadGolden(c.golden);
  ASSERT_TRUE(golden) << "golden " << c.golden << " is missing or damaged in " << test::goldenFolder()
                      << "; write it with " << test::goldenCommand;
  const FloatPixels got = c.run(Inputs{*golden}).readPixels();
  EXPECT_TRUE(test::matchesGolden(got, golden->expected, c.tolerance));
}

INSTANTIATE_TEST_SUITE_P(Filters, FilterGolden, ::testing::ValuesIn(cases),
                         [](const ::testing::TestParamInfo<Case>& info) {
                           std::string name = info.param.golden;
                           for (char& ch : name)
                             if (!std::isalnum(static_cast<unsigned char>(ch))) ch = '_';
                           return name;
                         });

// A golden that no case reads is a filter that went untested.
TEST(FilterGoldens, EveryGoldenHasItsCase) {
  std::set<std::string> named;
  for (const Case& c : cases) named.insert(c.golden);
  for (const auto& entry : std::filesystem::directory_iterator(test::goldenFolder()))
    if (entry.path().extension() == ".lvg") {
      EXPECT_TRUE(named.count(entry.path().stem().string())) << entry.path();
    }
}
