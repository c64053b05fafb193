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
  EXPECT_NEAR(got.r, want.r, tolerance);
  EXPECT_NEAR(got.g, want.g, tolerance);
  EXPECT_NEAR(got.b, want.b, tolerance);
}

struct HSLCase {
  RGB rgb;
  HSL hsl;
};

class RgbToHSLTest : public ::testing::TestWithParam<HSLCase> {};

TEST_P(RgbToHSLTest, GivesHueSaturationAndLightness) {
  const HSLCase& c = GetParam();
  HSL got = rgbToHSL(c.rgb.r, c.rgb.g, c.rgb.b);
  EXPECT_NEAR(got.h, c.hsl.h, 1e-9);
  EXPECT_NEAR(got.s, c.hsl.s, 1e-12);
  EXPECT_NEAR(got.l, c.hsl.l, 1e-12);
}

INSTANTIATE_TEST_SUITE_P(Colours, RgbToHSLTest,
                         ::testing::Values(HSLCase{{1, 1, 1}, {0, 0, 1}}, HSLCase{{0, 0, 1}, {240, 1, 0.5}},
                                           HSLCase{{0, 0, 0}, {0, 0, 0}}, HSLCase{{1, 0, 0}, {0, 1, 0.5}},
                                           HSLCase{{0, 1, 0}, {120, 1, 0.5}},
                                           HSLCase{{1, 0, 1}, {300, 1, 0.5}},
                                           // Red is the largest and green below blue: the hue wraps past 360.
                                           HSLCase{{0.8, 0.2, 0.4}, {340, 0.6, 0.5}},
                                           // Lightness above one half uses the other saturation formula.
                                           HSLCase{{1, 0.8, 0.6}, {30, 1, 0.8}},
                                           // Red and green share the maximum.
                                           HSLCase{{0.6, 0.6, 0.2}, {60, 0.5, 0.4}},
                                           // A difference below 1e-9 is grey.
                                           HSLCase{{0.5, 0.5 + 5e-10, 0.5}, {0, 0, 0.5 + 2.5e-10}},
                                           // Out-of-range inputs are not clamped; saturation is capped at 1.
                                           HSLCase{{1.5, 0.5, 0.5}, {0, 1, 1}}));

TEST(HslToRGBTest, KnownColoursAndGrey) {
  expectRGB(hslToRGB(120, 1, 0.5), {0, 1, 0});
  expectRGB(hslToRGB(0, 1, 0.5), {1, 0, 0});
  expectRGB(hslToRGB(240, 1, 0.25), {0, 0, 0.5});
  expectRGB(hslToRGB(200, 0, 0.3), {0.3, 0.3, 0.3});
  expectRGB(hslToRGB(200, -1, 0.3), {0.3, 0.3, 0.3});
  expectRGB(hslToRGB(30, 1, 0.75), {1, 0.75, 0.5});
}

TEST(HslToRGBTest, RoundTripsThroughRgbToHSL) {
  std::mt19937 rng(7);
  std::uniform_real_distribution<double> unit(0, 1);
  for (int i = 0; i < 20000; ++i) {
    RGB c{unit(rng), unit(rng), unit(rng)};
    HSL hsl = rgbToHSL(c.r, c.g, c.b);
    ASSERT_GE(hsl.h, 0);
    ASSERT_LT(hsl.h, 360);
    expectRGB(hslToRGB(hsl.h, hsl.s, hsl.l), c, 1e-9);
  }
}

TEST(HslToRGBTest, WrapsTheHueOnce) {
  // Each channel is wrapped by one turn, so these stay proper colours.
  for (double h : {-239.0, -30.0, 360.0, 599.0, 1e9, nan, inf}) {
    RGB c = hslToRGB(h, 1, 0.5);
    for (double v : {c.r, c.g, c.b}) {
      EXPECT_TRUE(std::isfinite(v)) << h;
      EXPECT_GE(v, 0) << h;
      EXPECT_LE(v, 1) << h;
    }
  }
  expectRGB(hslToRGB(-30, 1, 0.5), hslToRGB(330, 1, 0.5));
  expectRGB(hslToRGB(400, 1, 0.5), hslToRGB(40, 1, 0.5));
  // Further out the single wrap is not enough and a channel leaves 0 … 1;
  // the tone mapping clamps after using it.
  RGB far = hslToRGB(-400, 1, 0.5);
  EXPECT_LT(std::min({far.r, far.g, far.b}), 0);
}

TEST(SrgbCurveTest, EncodeAndDecodeAreInverseAndFollowBothBranches) {
  EXPECT_EQ(srgbEncode(0), 0);
  EXPECT_EQ(srgbEncode(-0.5), 0);
  EXPECT_EQ(srgbEncode(nan), 0);
  EXPECT_DOUBLE_EQ(srgbEncode(0.002), 12.92 * 0.002);
  EXPECT_NEAR(srgbEncode(0.18), 0.4613561295, 1e-9);
  EXPECT_NEAR(srgbEncode(1), 1, 1e-15);
  EXPECT_GT(srgbEncode(4), 1.5);  // no upper clamp
  EXPECT_EQ(srgbDecode(-1), 0);
  EXPECT_EQ(srgbDecode(nan), 0);
  EXPECT_DOUBLE_EQ(srgbDecode(0.04), 0.04 / 12.92);
  for (double v = 0; v <= 2; v += 0.001) EXPECT_NEAR(srgbDecode(srgbEncode(v)), v, 1e-12) << v;
}

TEST(HueOfTest, EncodesBeforeMeasuring) {
  // Linear (0.18, 0.18, 0) is yellow whatever the curve; (1, 0.18, 0) is an
  // orange whose hue depends on the encoding of the green channel.
  EXPECT_NEAR(hueOf({0.18, 0.18, 0}), 60, 1e-9);
  EXPECT_NEAR(hueOf({1, 0.18, 0}), srgbEncode(0.18) * 60, 1e-9);
  EXPECT_NEAR(saturationOf({1, 0.18, 0}), 1, 1e-12);
  EXPECT_EQ(saturationOf({0.3, 0.3, 0.3}), 0);
  // A dark grey with a touch of blue: saturation from encoded values.
  double lo = srgbEncode(0.1), hi = srgbEncode(0.12);
  ASSERT_LT(hi + lo, 1);
  EXPECT_NEAR(saturationOf({0.1, 0.1, 0.12}), (hi - lo) / (hi + lo), 1e-12);
}

TEST(WhiteBalanceGainTest, NeutralIsExactlyOne) {
  EXPECT_EQ(ToneParams::whiteBalanceGain(0, 0), (RGB{1, 1, 1}));
}

TEST(WhiteBalanceGainTest, KeepsGreyLuminanceAndMovesTheRightWay) {
  RGB warm = ToneParams::whiteBalanceGain(100, 0);
  double l = 0.2126 * std::pow(2, 0.55) + 0.7152 + 0.0722 * std::pow(2, -0.55);
  expectRGB(warm, {std::pow(2, 0.55) / l, 1 / l, std::pow(2, -0.55) / l});
  for (auto [t, n] : {std::pair{100.0, 0.0}, {-100.0, 0.0}, {0.0, 100.0}, {-37.0, 64.0}, {55.0, -80.0}}) {
    RGB g = ToneParams::whiteBalanceGain(t, n);
    EXPECT_NEAR(0.2126 * g.r + 0.7152 * g.g + 0.0722 * g.b, 1, 1e-15) << t << " " << n;
  }
  EXPECT_GT(warm.r, warm.b);
  RGB magenta = ToneParams::whiteBalanceGain(0, 50);
  EXPECT_LT(magenta.g, 1);
  EXPECT_GT(magenta.r, magenta.g);
  EXPECT_GT(magenta.b, magenta.g);
}

TEST(NeutralizingTest, GreyAndBlackNeedNoCorrection) {
  EXPECT_EQ(ToneParams::neutralizing({0.4, 0.4, 0.4}), (WhiteBalance{0, 0}));
  EXPECT_EQ(ToneParams::neutralizing({0, 0, 0}), (WhiteBalance{0, 0}));
  EXPECT_EQ(ToneParams::neutralizing({-1, -2, -3}), (WhiteBalance{0, 0}));
}

TEST(NeutralizingTest, InvertsTheGainModel) {
  // A grey lit so that it reads as 1 / gain comes out neutral under the gain.
  for (double t = -100; t <= 100; t += 12.5) {
    for (double n = -100; n <= 100; n += 12.5) {
      RGB g = ToneParams::whiteBalanceGain(t, n);
      WhiteBalance wb = ToneParams::neutralizing({0.3 / g.r, 0.3 / g.g, 0.3 / g.b});
      EXPECT_NEAR(wb.temperature, t, 1e-9) << t << " " << n;
      EXPECT_NEAR(wb.tint, n, 1e-9) << t << " " << n;
    }
  }
}

TEST(NeutralizingTest, ClampsAndNeverReturnsNaN) {
  WhiteBalance blue = ToneParams::neutralizing({0.001, 0.2, 1});
  EXPECT_EQ(blue.temperature, 100);
  WhiteBalance red = ToneParams::neutralizing({1, 0.2, 0.001});
  EXPECT_EQ(red.temperature, -100);
  for (RGB odd : {RGB{nan, 0.5, 0.5}, RGB{inf, 0.5, 0.5}, RGB{inf, inf, inf}, RGB{nan, nan, nan}}) {
    WhiteBalance wb = ToneParams::neutralizing(odd);
    EXPECT_FALSE(std::isnan(wb.temperature));
    EXPECT_FALSE(std::isnan(wb.tint));
    EXPECT_LE(std::abs(wb.temperature), 100);
    EXPECT_LE(std::abs(wb.tint), 100);
  }
}

TEST(ToneParamsTest, DefaultIsIdentity) {
  ToneParams p;
  EXPECT_EQ(p.gain, (RGB{1, 1, 1}));
  EXPECT_EQ(p.gradeBlending, 0.5);
  EXPECT_FALSE(p.curveMaster || p.curveR || p.curveG || p.curveB);
  EXPECT_TRUE(p.hsl.empty());
  // Default settings give the same parameters.
  ToneParams s{EditSettings{}};
  EXPECT_EQ(s.gain, p.gain);
  EXPECT_EQ(s.gradeBlending, 0.5);
  EXPECT_TRUE(s.hsl.empty());
  EXPECT_FALSE(s.curveMaster || s.curveR || s.curveG || s.curveB);
}

TEST(ToneParamsTest, ScalesSlidersAndCopiesWheels) {
  EditSettings s;
  s.temperature = 30, s.tint = -20;
  s.exposure = 2;  // not part of the tone parameters
  s.contrast = 40, s.highlights = -60, s.shadows = 25, s.whites = 10, s.blacks = -5;
  s.vibrance = 70, s.saturation = -30;
  s.gradeShadows = {200, 40, -10};
  s.gradeMidtones = {30, 5, 2};
  s.gradeHighlights = {410, 15, 0};
  s.gradeBlending = 80, s.gradeBalance = -40;
  s.blackAndWhite = true;
  ToneParams p(s);
  expectRGB(p.gain, ToneParams::whiteBalanceGain(30, -20), 0);
  EXPECT_DOUBLE_EQ(p.contrast, 0.4);
  EXPECT_DOUBLE_EQ(p.highlights, -0.6);
  EXPECT_DOUBLE_EQ(p.shadows, 0.25);
  EXPECT_DOUBLE_EQ(p.whites, 0.1);
  EXPECT_DOUBLE_EQ(p.blacks, -0.05);
  EXPECT_DOUBLE_EQ(p.vibrance, 0.7);
  EXPECT_DOUBLE_EQ(p.saturation, -0.3);
  EXPECT_EQ(p.gradeS, s.gradeShadows);
  EXPECT_EQ(p.gradeM, s.gradeMidtones);
  EXPECT_EQ(p.gradeH, s.gradeHighlights);
  EXPECT_DOUBLE_EQ(p.gradeBlending, 0.8);
  EXPECT_DOUBLE_EQ(p.gradeBalance, -0.4);
  EXPECT_TRUE(p.blackAndWhite);
}

TEST(ToneParamsTest, CurvesOnTheDiagonalAreAbsent) {
  EditSettings s;
  s.curveRGB.points = {{0, 0}, {0.5, 0.5}, {1, 1}};
  s.curveRed.points = {};
  s.curveGreen.points = {{0, 0}, {0.5, 0.5 + 1e-6}, {1, 1}};
  s.curveBlue.points = {{0.25, 0.25}, {0.75, 0.75}, {0.9, 0.4}};
  ToneParams p(s);
  EXPECT_FALSE(p.curveMaster);
  EXPECT_FALSE(p.curveR);
  ASSERT_TRUE(p.curveG);
  EXPECT_NEAR((*p.curveG)(0.5), 0.5 + 1e-6, 1e-15);
  ASSERT_TRUE(p.curveB);
  EXPECT_NEAR((*p.curveB)(0.9), 0.4, 1e-15);
}

TEST(ToneParamsTest, ColourMixerIsAllOrNothing) {
  EditSettings s;
  s.hsl[3].luminance = 0.01;
  ToneParams p(s);
  ASSERT_EQ(p.hsl.size(), 8u);
  EXPECT_EQ(p.hsl[3].luminance, 0.01);
  EXPECT_EQ(p.hsl[0], HSLBand{});
  s.hsl[3].luminance = 0;
  EXPECT_TRUE(ToneParams(s).hsl.empty());
}

TEST(ToneParamsTest, MaskFoldsExposureIntoGain) {
  MaskAdjust a;
  a.exposure = 1;
  ToneParams p(a);
  EXPECT_EQ(p.gain, (RGB{2, 2, 2}));

  a = {};
  a.exposure = -0.5, a.temperature = 40, a.tint = 10;
  a.contrast = 20, a.highlights = -30, a.shadows = 15, a.saturation = 50, a.sharpness = 80;
  p = ToneParams(a);
  RGB wb = ToneParams::whiteBalanceGain(40, 10);
  double e = std::pow(2, -0.5);
  expectRGB(p.gain, {e * wb.r, e * wb.g, e * wb.b}, 1e-15);
  EXPECT_DOUBLE_EQ(p.contrast, 0.2);
  EXPECT_DOUBLE_EQ(p.highlights, -0.3);
  EXPECT_DOUBLE_EQ(p.shadows, 0.15);
  EXPECT_DOUBLE_EQ(p.saturation, 0.5);
  EXPECT_EQ(p.whites, 0);
  EXPECT_EQ(p.blacks, 0);
  EXPECT_EQ(p.vibrance, 0);
  EXPECT_EQ(p.gradeBlending, 0.5);
  EXPECT_FALSE(p.blackAndWhite);
}

TEST(ToneParamsTest, NaNSettingsReadAsTheirDefaults) {
  EditSettings s;
  s.temperature = nan, s.tint = nan, s.contrast = nan, s.gradeBlending = nan;
  s.hsl[2] = {nan, nan, nan};
  s.gradeMidtones = {nan, 20, nan};
  ToneParams p(s);
  EXPECT_EQ(p.gain, (RGB{1, 1, 1}));
  EXPECT_EQ(p.contrast, 0);
  EXPECT_EQ(p.gradeBlending, 0.5);
  EXPECT_TRUE(p.hsl.empty());  // a band of NaNs is a neutral band
  EXPECT_EQ(p.gradeM, (GradeWheel{0, 20, 0}));

  MaskAdjust a;
  a.exposure = nan, a.saturation = nan;
  ToneParams m(a);
  EXPECT_EQ(m.gain, (RGB{1, 1, 1}));
  EXPECT_EQ(m.saturation, 0);
}

}  // namespace
