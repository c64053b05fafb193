#include "engine/render/photo_renderer.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numeric>
#include <random>

#include "engine/render/filters/blur.h"
#include "engine/render/filters/color_cube.h"
#include "engine/render/filters/composite.h"
#include "engine/render/filters/gradient.h"
#include "engine/render/filters/random_generator.h"
#include "engine/render/filters/resample.h"
#include "engine/render/filters/point.h"
#include "engine/render/histogram.h"
#include "engine/render/mask_bitmap.h"
#include "engine/render/mask_renderer.h"
#include "engine/render/tone_pass.h"

using namespace lumivale;

namespace {

// A textured base: smooth ramps, noise and a few values outside 0 … 1.
Image texturedBase(int width, int height, unsigned seed = 3) {
  FloatPixels p{width, height, 3, {}};
  std::mt19937 random(seed);
  std::uniform_real_distribution<float> noise(-0.05f, 0.05f);
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x)
      for (int c = 0; c < 3; ++c) p.values.push_back(float(x + c * y) / float(width + height) * 1.3f + noise(random));
  return Image::fromPixels(p);
}

double maxDifference(const Image& a, const Image& b) {
  const FloatPixels pa = a.readPixels(), pb = b.readPixels();
  EXPECT_EQ(std::tuple(pa.width, pa.height, pa.bands), std::tuple(pb.width, pb.height, pb.bands));
  double worst = 0;
  for (std::size_t i = 0; i < std::min(pa.values.size(), pb.values.size()); ++i)
    worst = std::max(worst, double(std::abs(pa.values[i] - pb.values[i])));
  return worst;
}

// A mask that covers the whole image: an empty brush, inverted.
PhotoMask everywhere(MaskAdjust adjust) {
  PhotoMask mask(MaskKind::brush);
  mask.invert = true;
  mask.adjust = adjust;
  return mask;
}

struct RendererTest : testing::Test {
  PhotoRenderer renderer;
  Image base = texturedBase(64, 40).materialize();
  Size full{64, 40};
};

}  // namespace

TEST_F(RendererTest, DefaultSettingsAndInertMasksLeaveTheBaseUntouched) {
  EXPECT_EQ(maxDifference(renderer.render(base, full, {}), base), 0);
  EditSettings inert;
  PhotoMask transparent = everywhere({.exposure = 2});
  transparent.opacity = 0;
  inert.masks = {transparent, everywhere({})};
  EXPECT_EQ(maxDifference(renderer.render(base, full, inert), base), 0);
  EXPECT_EQ(renderer.cachedLUTs(), 0u);
  EXPECT_EQ(renderer.cachedMaskLUTs(), 0u);
}

TEST_F(RendererTest, ExposureDoublesLinearValuesAndSharesTheCube) {
  EXPECT_LT(maxDifference(renderer.render(base, full, {.exposure = 1}), filters::colorMatrix(base, filters::ColorMatrix::scale(2))), 1e-6);
  renderer.render(base, full, {.exposure = 0.5, .contrast = 20});
  renderer.render(base, full, {.exposure = -1, .contrast = 20, .sharpenAmount = 40});
  EXPECT_EQ(renderer.cachedLUTs(), 1u);
}

TEST_F(RendererTest, TheThirteenthCubeEvictsTheFirstEvenIfJustUsed) {
  const SharedCube first = renderer.lut({.contrast = 1});
  for (int i = 2; i <= 12; ++i) renderer.lut({.contrast = double(i)});
  EXPECT_EQ(renderer.lut({.contrast = 1}), first);  // a hit does not refresh its place
  renderer.lut({.contrast = 13});
  EXPECT_EQ(renderer.cachedLUTs(), PhotoRenderer::lutCacheLimit);
  EXPECT_NE(renderer.lut({.contrast = 1}), first);  // built again
  EXPECT_GE(renderer.lastLUTBuildMS(), 0);
}

TEST_F(RendererTest, MaskCubesAreFlushedWhenTheCacheIsFull) {
  for (int i = 0; i < 25; ++i) renderer.maskLUT({.contrast = double(i)}, ToneParams(MaskAdjust{.contrast = double(i)}));
  EXPECT_EQ(renderer.cachedMaskLUTs(), 25u);
  renderer.maskLUT({.contrast = 99}, ToneParams(MaskAdjust{.contrast = 99}));
  EXPECT_EQ(renderer.cachedMaskLUTs(), 1u);
}

TEST_F(RendererTest, TheFusedToneStagesEqualThePlainFilterChain) {
  const Image wide = texturedBase(97, 31, 9);
  const SharedCube cube = renderer.lut({.contrast = 40, .shadows = 30, .saturation = -20});
  for (LUTDomain domain : {LUTDomain::scene, LUTDomain::display}) {
    const double s = domain == LUTDomain::scene ? 0.25 : 1.0;
    Image chain = filters::exposureAdjust(wide, 0.7);
    chain = filters::colorMatrix(chain, filters::ColorMatrix::scale(s));
    chain = filters::colorClamp(chain, {0, 0, 0, 0}, {1, 1, 1, 1});
    chain = filters::gammaAdjust(chain, 1 / 2.2);
    chain = filters::colorCube(chain, *cube, ToneLUT::dimension);
    chain = filters::gammaAdjust(chain, 2.2);
    const Image fused = applyTonePass(wide, {float(std::exp2(0.7)), cube, ToneLUT::dimension, domain});
    EXPECT_LT(maxDifference(fused, chain), 1e-4);
  }
}

TEST_F(RendererTest, MaskSharpnessBlursWithItsScaledSigma) {
  EditSettings soft;
  soft.masks = {everywhere({.sharpness = -50})};
  // At full size sigma = max(2, 0.15) × 0.5 × 6 = 6; at 1/20 of it 0.15 × 3 = 0.45.
  EXPECT_LT(maxDifference(renderer.render(base, full, soft), filters::gaussianBlur(base, 6)), 1e-5);
  EXPECT_LT(maxDifference(renderer.render(base, {64 * 20, 40 * 20}, soft), filters::gaussianBlur(base, 0.45)), 1e-5);
}

TEST_F(RendererTest, CropEditingIgnoresTheCropAndSkipsEffects) {
  EditSettings s{.vignetteAmount = -60, .grainAmount = 30, .crop = {0.25, 0.25, 0.5, 0.5}};
  const Image cropped = renderer.render(base, full, s);
  EXPECT_EQ(std::pair(cropped.width(), cropped.height()), std::pair(32, 20));
  PhotoRenderer::Options editing{.cropEditing = true};
  EXPECT_EQ(maxDifference(renderer.render(base, full, s, editing), base), 0);

  // Straightened, the crop tool shows the frame with a backdrop in its corners.
  s.straighten = 10;
  const FloatPixels shown = renderer.render(base, full, s, editing).readPixels();
  EXPECT_EQ(std::pair(shown.width, shown.height), std::pair(64, 40));
  EXPECT_NEAR(shown.at(0, 0, 2), 0.09, 1e-6);
  const Image straightened = renderer.render(base, full, s);
  EXPECT_LT(straightened.width(), 32 + 1);
}

TEST_F(RendererTest, EffectsChangeTheImageOnlyWhenAsked) {
  const std::vector<EditSettings> each = {{.sharpenAmount = 50}, {.vignetteAmount = -50}, {.grainAmount = 40}};
  for (const EditSettings& s : each) {
    const Image out = renderer.render(base, full, s);
    EXPECT_GT(maxDifference(out, base), 1e-3);
    EXPECT_EQ(maxDifference(renderer.render(base, full, s, {.outputEffects = false}), base), 0);
  }
  // Grain is a pure function of position: two renders agree.
  EXPECT_EQ(maxDifference(renderer.render(base, full, each[2]), renderer.render(base, full, each[2])), 0);
}

TEST_F(RendererTest, FusedVignetteAndGrainEqualTheirFilterChains) {
  const int w = base.width(), h = base.height();
  // Vignette −40, midpoint 30, feather 70: r0 = 0.57, r1 = 0.57 + 0.56 + 0.08.
  const double r0 = 0.3 * 0.9 + 0.3, r1 = 0.7 * 0.8 + r0 + 0.08;
  const Image ramp = filters::radialGradient(w, h, {w / 2.0, h / 2.0}, w / 2.0, h / 2.0, r0, 0, r1, 1);
  const Image vignetted = filters::blendWithMask(filters::exposureAdjust(base, -0.4 * 2.2), base, ramp);
  EXPECT_LT(maxDifference(PhotoRenderer::effects(base, {.vignetteAmount = -40, .vignetteMidpoint = 30,
                                                        .vignetteFeather = 70}, 1),
                          vignetted),
            1e-5);

  // Grain 50, size 25 on a 64-pixel image: k = 0.35 × 1.75, a = 0.175.
  const double k = 0.35 * 1.75, a = 0.175;
  const int cx = int(std::ceil(w / k)) + 64, cy = int(std::ceil(h / k)) + 64, m = int(std::ceil(3 * 0.45 * k)) + 1;
  Image noise = filters::affine(filters::randomGenerator(-32, -32, cx, cy),
                                Affine::translation(-32, -32).appending({k, 0, 0, k, double(m), double(m)}),
                                {0, 0, double(w + 2 * m), double(h + 2 * m)});
  noise = filters::crop(filters::gaussianBlur(noise, 0.45 * k), m, m, w, h);
  filters::ColorMatrix grey;
  grey.r = grey.g = grey.b = {0, 6 * a, 0, 0};
  grey.a = {0, 0, 0, 0};
  grey.bias = {1 - 3 * a, 1 - 3 * a, 1 - 3 * a, 1};
  noise = filters::colorClamp(filters::colorMatrix(noise, grey), {1 - a, 1 - a, 1 - a, 1}, {1 + a, 1 + a, 1 + a, 1});
  EXPECT_LT(maxDifference(PhotoRenderer::effects(base, {.grainAmount = 50}, 1),
                          filters::multiplyCompositing(noise, base)),
            1e-5);
}

TEST_F(RendererTest, SampleAveragesOnlyPixelsInsideTheImage) {
  const FloatPixels p = base.readPixels();
  double want[3] = {0, 0, 0};
  for (int y = 0; y < 4; ++y)
    for (int x = 0; x < 4; ++x)
      for (int c = 0; c < 3; ++c) want[c] += p.at(x, y, c) / 16;
  const LinearRGB got = PhotoRenderer::sample(base, {0, 0}, 3);
  EXPECT_NEAR(got.r, want[0], 1e-6);
  EXPECT_NEAR(got.b, want[2], 1e-6);
  EXPECT_EQ(PhotoRenderer::sample(base, {5, 5}, 2), LinearRGB{});
}

TEST(MaskImageTest, KindsGiveTheirCoverage) {
  PhotoMask radial(MaskKind::radial);
  radial.cx = radial.cy = 0.5;
  radial.rx = radial.ry = 0.5;
  radial.feather = 0;
  const FloatPixels r = MaskRenderer::image(radial, 100, 100).readPixels();
  EXPECT_FLOAT_EQ(r.at(50, 50, 0), 1);
  EXPECT_FLOAT_EQ(r.at(84, 84, 0), 1);  // at 0.976 of the radius: inside the inner 0.999
  EXPECT_FLOAT_EQ(r.at(85, 85, 0), 0);  // at 1.004: outside, a nearly hard edge

  PhotoMask sky(MaskKind::sky);
  EXPECT_EQ(MaskRenderer::image(sky, 10, 8).readPixels().values, std::vector<float>(80, 0));
  sky.maskPNG = std::vector<std::uint8_t>{'K', 'V', 'M', 'K', 2, 0, 0, 0, 2, 0, 0, 0, 1};
  EXPECT_EQ(MaskRenderer::image(sky, 10, 8).readPixels().values, std::vector<float>(80, 0));
  sky.maskPNG = MaskBitmap(4, 2, 255).encoded();
  EXPECT_EQ(MaskRenderer::image(sky, 10, 8).readPixels().values, std::vector<float>(80, 1));

  MaskRenderer::clearImageCaches();
  PhotoMask brush(MaskKind::brush);
  brush.dabs = {{0.5, 0.5, 0.1, 0, 1, false}};
  for (int i = 0; i < 3; ++i) MaskRenderer::image(brush, 300, 100);
  EXPECT_EQ(MaskRenderer::cachedBrushImages(), 1u);
  EXPECT_FLOAT_EQ(MaskRenderer::image(brush, 300, 100).readPixels().at(150, 50, 0), 1);
}

TEST(HistogramTest, WhiteFillsTheLastBinAndOverlayMarksTheEnds) {
  const Image white = Image::constant(2000, 10, {255, 255, 255});
  const auto h = Histogram::of(white);
  ASSERT_TRUE(h);
  for (const auto* bins : {&h->r, &h->g, &h->b, &h->l}) {
    EXPECT_EQ((*bins)[63], 1);
    EXPECT_EQ(std::accumulate(bins->begin(), bins->end(), 0.0), 1);
  }
  EXPECT_FALSE(Histogram::of(Image()));

  FloatPixels grey{4, 1, 3, {0.986f, 0.986f, 0.986f, 0.99f, 0.99f, 0.99f, 0, 0, 0, 0.5f, 0.5f, 0.5f}};
  const FloatPixels marked = clippingOverlay(Image::fromPixels(grey)).readPixels();
  EXPECT_NEAR(marked.at(0, 0, 0), 0.986 + 0.2 * (1 - 0.986), 1e-3);  // slightly red
  EXPECT_NEAR(marked.at(0, 0, 1), 0.986 * 0.8, 1e-3);
  const float red[] = {1, 0, 0}, blue[] = {0, 0.3f, 1};
  for (int c = 0; c < 3; ++c) {
    EXPECT_NEAR(marked.at(1, 0, c), red[c], 1e-5);  // 0.99: fully red
    EXPECT_EQ(marked.at(2, 0, c), blue[c]);         // 0: fully blue
  }
  EXPECT_EQ(marked.at(3, 0, 1), 0.5f);
}
