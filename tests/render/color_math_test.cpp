#include "engine/render/color_math.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

#include "engine/render/tone_params.h"

using namespace lumivale;

namespace {

constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double inf = std::numeric_limits<double>::infinity();

void expectRGB(const RGB& got, const RGB& want, double tolerance = 1e-12) {
  EXPECT_TRUE(std::abs(got.r - want.r) <= tolerance && std::abs(got.g - want.g) <= tolerance &&
              std::abs(got.b - want.b) <= tolerance)
      << got.r << ", " << got.g << ", " << got.b << " is not " << want.r << ", " << want.g << ", " << want.b;
}

// Each scaled value against what it should be.
using S = std::pair<double, double>;
void expectScaled(std::initializer_list<S> values) {
  for (const auto& [got, want] : values) EXPECT_DOUBLE_EQ(got, want);
}

TEST(HSLTest, ConvertsBothWaysAndRoundTrips) {
  using C = std::pair<RGB, HSL>;
  // Red the largest and green below blue: the hue wraps past 360. Lightness
  // above one half: the other saturation formula. Red and green sharing the
  // maximum. A difference below 1e-9 is grey. Out of range: not clamped,
  // saturation capped at 1.
  for (auto [rgb, hsl] : {C{{1, 1, 1}, {0, 0, 1}}, C{{0, 0, 1}, {240, 1, 0.5}}, C{{0, 0, 0}, {0, 0, 0}},
                          C{{1, 0, 0}, {0, 1, 0.5}}, C{{0, 1, 0}, {120, 1, 0.5}}, C{{1, 0, 1}, {300, 1, 0.5}},
                          C{{0.8, 0.2, 0.4}, {340, 0.6, 0.5}}, C{{1, 0.8, 0.6}, {30, 1, 0.8}},
                          C{{0.6, 0.6, 0.2}, {60, 0.5, 0.4}},
                          C{{0.5, 0.5 + 5e-10, 0.5}, {0, 0, 0.5 + 2.5e-10}}, C{{1.5, 0.5, 0.5}, {0, 1, 1}}}) {
    const HSL got = rgbToHSL(rgb.r, rgb.g, rgb.b);
    EXPECT_TRUE(std::abs(got.h - hsl.h) <= 1e-9 && std::abs(got.s - hsl.s) <= 1e-12 &&
                std::abs(got.l - hsl.l) <= 1e-12)
        << rgb.r << ", " << rgb.g << ", " << rgb.b;
  }
  using D = std::tuple<double, double, double, RGB>;
  for (auto [h, s, l, rgb] :
       {D{120, 1, 0.5, {0, 1, 0}}, D{0, 1, 0.5, {1, 0, 0}}, D{240, 1, 0.25, {0, 0, 0.5}},
        D{200, 0, 0.3, {0.3, 0.3, 0.3}}, D{200, -1, 0.3, {0.3, 0.3, 0.3}}, D{30, 1, 0.75, {1, 0.75, 0.5}}})
    expectRGB(hslToRGB(h, s, l), rgb);

  std::mt19937 rng(7);
  std::uniform_real_distribution<double> unit(0, 1);
  for (int i = 0; i < 20000; ++i) {
    const RGB c{unit(rng), unit(rng), unit(rng)};
    const HSL hsl = rgbToHSL(c.r, c.g, c.b);
    ASSERT_TRUE(hsl.h >= 0 && hsl.h < 360) << hsl.h;
    expectRGB(hslToRGB(hsl.h, hsl.s, hsl.l), c, 1e-9);
  }
}

TEST(HSLTest, WrapsTheHueOnce) {
  // Each channel is wrapped by one turn, so these stay proper colours.
  for (double h : {-239.0, -30.0, 360.0, 599.0, 1e9, nan, inf}) {
    const RGB c = hslToRGB(h, 1, 0.5);
    for (double v : {c.r, c.g, c.b}) EXPECT_TRUE(v >= 0 && v <= 1) << h << ": " << v;
  }
  expectRGB(hslToRGB(-30, 1, 0.5), hslToRGB(330, 1, 0.5));
  expectRGB(hslToRGB(400, 1, 0.5), hslToRGB(40, 1, 0.5));
  // Further out the single wrap is not enough and a channel leaves 0 … 1;
  // the tone mapping clamps after using it.
  const RGB far = hslToRGB(-400, 1, 0.5);
  EXPECT_LT(std::min({far.r, far.g, far.b}), 0);
}

TEST(SrgbCurveTest, EncodeAndDecodeAreInverseAndFollowBothBranches) {
  for (double v : {0.0, -0.5, nan}) EXPECT_EQ(srgbEncode(v), 0) << v;
  EXPECT_DOUBLE_EQ(srgbEncode(0.002), 12.92 * 0.002);
  EXPECT_NEAR(srgbEncode(0.18), 0.4613561295, 1e-9);
  EXPECT_NEAR(srgbEncode(1), 1, 1e-15);
  EXPECT_GT(srgbEncode(4), 1.5);  // no upper clamp
  EXPECT_EQ(srgbDecode(-1), 0);
  EXPECT_EQ(srgbDecode(nan), 0);
  EXPECT_DOUBLE_EQ(srgbDecode(0.04), 0.04 / 12.92);
  for (double v = 0; v <= 2; v += 0.001) EXPECT_NEAR(srgbDecode(srgbEncode(v)), v, 1e-12) << v;

  // Hue and saturation are measured on encoded values: linear (0.18, 0.18,
  // 0) is yellow whatever the curve; (1, 0.18, 0) is an orange whose hue
  // depends on the encoding of the green channel.
  EXPECT_NEAR(hueOf({0.18, 0.18, 0}), 60, 1e-9);
  EXPECT_NEAR(hueOf({1, 0.18, 0}), srgbEncode(0.18) * 60, 1e-9);
  EXPECT_NEAR(saturationOf({1, 0.18, 0}), 1, 1e-12);
  EXPECT_EQ(saturationOf({0.3, 0.3, 0.3}), 0);
  const double lo = srgbEncode(0.1), hi = srgbEncode(0.12);  // a dark grey with a touch of blue
  ASSERT_LT(hi + lo, 1);
  EXPECT_NEAR(saturationOf({0.1, 0.1, 0.12}), (hi - lo) / (hi + lo), 1e-12);
}

TEST(WhiteBalanceTest, GainKeepsGreyLuminanceAndMovesTheRightWay) {
  EXPECT_EQ(ToneParams::whiteBalanceGain(0, 0), (RGB{1, 1, 1}));
  const RGB warm = ToneParams::whiteBalanceGain(100, 0);
  const double l = 0.2126 * std::pow(2, 0.55) + 0.7152 + 0.0722 * std::pow(2, -0.55);
  expectRGB(warm, {std::pow(2, 0.55) / l, 1 / l, std::pow(2, -0.55) / l});
  for (auto [t, n] : {std::pair{100.0, 0.0}, {-100.0, 0.0}, {0.0, 100.0}, {-37.0, 64.0}, {55.0, -80.0}}) {
    const RGB g = ToneParams::whiteBalanceGain(t, n);
    EXPECT_NEAR(0.2126 * g.r + 0.7152 * g.g + 0.0722 * g.b, 1, 1e-15) << t << " " << n;
  }
  const RGB magenta = ToneParams::whiteBalanceGain(0, 50);
  EXPECT_TRUE(magenta.g < 1 && magenta.r > magenta.g && magenta.b > magenta.g);
}

TEST(WhiteBalanceTest, NeutralizingInvertsTheGainModelClampsAndNeverGivesNaN) {
  for (RGB grey : {RGB{0.4, 0.4, 0.4}, RGB{0, 0, 0}, RGB{-1, -2, -3}})
    EXPECT_EQ(ToneParams::neutralizing(grey), (WhiteBalance{0, 0}));
  // A grey lit so that it reads as 1 / gain comes out neutral under the gain.
  for (double t = -100; t <= 100; t += 12.5) {
    for (double n = -100; n <= 100; n += 12.5) {
      const RGB g = ToneParams::whiteBalanceGain(t, n);
      const WhiteBalance wb = ToneParams::neutralizing({0.3 / g.r, 0.3 / g.g, 0.3 / g.b});
      EXPECT_TRUE(std::abs(wb.temperature - t) <= 1e-9 && std::abs(wb.tint - n) <= 1e-9) << t << " " << n;
    }
  }
  EXPECT_EQ(ToneParams::neutralizing({0.001, 0.2, 1}).temperature, 100);
  EXPECT_EQ(ToneParams::neutralizing({1, 0.2, 0.001}).temperature, -100);
  for (RGB odd : {RGB{nan, 0.5, 0.5}, RGB{inf, 0.5, 0.5}, RGB{inf, inf, inf}, RGB{nan, nan, nan}}) {
    const WhiteBalance wb = ToneParams::neutralizing(odd);
    EXPECT_TRUE(std::abs(wb.temperature) <= 100 && std::abs(wb.tint) <= 100)
        << wb.temperature << ", " << wb.tint;
  }
}

TEST(ToneParamsTest, ScalesSlidersCopiesWheelsAndLeavesNeutralStagesOut) {
  for (const ToneParams& p : {ToneParams(), ToneParams(EditSettings{})}) {
    EXPECT_EQ(p.gain, (RGB{1, 1, 1}));
    EXPECT_EQ(p.gradeBlending, 0.5);
    EXPECT_FALSE(p.curveMaster || p.curveR || p.curveG || p.curveB);
    EXPECT_TRUE(p.hsl.empty());
  }
  EditSettings s;
  s.temperature = 30, s.tint = -20, s.exposure = 2;  // exposure is not part of the tone parameters
  s.contrast = 40, s.highlights = -60, s.shadows = 25, s.whites = 10, s.blacks = -5, s.vibrance = 70;
  s.saturation = -30, s.gradeShadows = {200, 40, -10}, s.gradeMidtones = {30, 5, 2};
  s.gradeHighlights = {410, 15, 0}, s.gradeBlending = 80, s.gradeBalance = -40, s.blackAndWhite = true;
  const ToneParams p(s);
  expectRGB(p.gain, ToneParams::whiteBalanceGain(30, -20), 0);
  expectScaled({S(p.contrast, 0.4), S(p.highlights, -0.6), S(p.shadows, 0.25), S(p.whites, 0.1),
                S(p.blacks, -0.05), S(p.vibrance, 0.7), S(p.saturation, -0.3), S(p.gradeBlending, 0.8),
                S(p.gradeBalance, -0.4)});
  EXPECT_EQ(std::tuple(p.gradeS, p.gradeM, p.gradeH),
            std::tuple(s.gradeShadows, s.gradeMidtones, s.gradeHighlights));
  EXPECT_TRUE(p.blackAndWhite);

  // Curves on the diagonal are absent; the colour mixer is all or nothing.
  s = {};
  s.curveRGB.points = {{0, 0}, {0.5, 0.5}, {1, 1}};
  s.curveRed.points = {};
  s.curveGreen.points = {{0, 0}, {0.5, 0.5 + 1e-6}, {1, 1}};
  s.curveBlue.points = {{0.25, 0.25}, {0.75, 0.75}, {0.9, 0.4}};
  s.hsl[3].luminance = 0.01;
  const ToneParams c(s);
  EXPECT_FALSE(c.curveMaster || c.curveR);
  ASSERT_TRUE(c.curveG && c.curveB);
  EXPECT_NEAR((*c.curveG)(0.5), 0.5 + 1e-6, 1e-15);
  EXPECT_NEAR((*c.curveB)(0.9), 0.4, 1e-15);
  ASSERT_EQ(c.hsl.size(), 8u);
  EXPECT_EQ(c.hsl[3].luminance, 0.01);
  EXPECT_EQ(c.hsl[0], HSLBand{});
  s.hsl[3].luminance = 0;
  EXPECT_TRUE(ToneParams(s).hsl.empty());
}

TEST(ToneParamsTest, MaskFoldsExposureIntoGain) {
  EXPECT_EQ(ToneParams(MaskAdjust{.exposure = 1}).gain, (RGB{2, 2, 2}));
  MaskAdjust a;
  a.exposure = -0.5, a.temperature = 40, a.tint = 10, a.contrast = 20, a.highlights = -30, a.shadows = 15;
  a.saturation = 50, a.sharpness = 80;
  const ToneParams p(a);
  const RGB wb = ToneParams::whiteBalanceGain(40, 10);
  const double e = std::pow(2, -0.5);
  expectRGB(p.gain, {e * wb.r, e * wb.g, e * wb.b}, 1e-15);
  expectScaled({S(p.contrast, 0.2), S(p.highlights, -0.3), S(p.shadows, 0.15), S(p.saturation, 0.5)});
  EXPECT_EQ(std::tuple(p.whites, p.blacks, p.vibrance, p.gradeBlending, p.blackAndWhite),
            std::tuple(0, 0, 0, 0.5, false));
}

TEST(ToneParamsTest, NaNSettingsReadAsTheirDefaults) {
  EditSettings s;
  s.temperature = nan, s.tint = nan, s.contrast = nan, s.gradeBlending = nan;
  s.hsl[2] = {nan, nan, nan};
  s.gradeMidtones = {nan, 20, nan};
  const ToneParams p(s);
  EXPECT_EQ(p.gain, (RGB{1, 1, 1}));
  EXPECT_EQ(p.contrast, 0);
  EXPECT_EQ(p.gradeBlending, 0.5);
  EXPECT_TRUE(p.hsl.empty());  // a band of NaNs is a neutral band
  EXPECT_EQ(p.gradeM, (GradeWheel{0, 20, 0}));
  const ToneParams m(MaskAdjust{.exposure = nan, .saturation = nan});
  EXPECT_EQ(m.gain, (RGB{1, 1, 1}));
  EXPECT_EQ(m.saturation, 0);
}

}  // namespace
