#include "engine/render/tone_lut.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <limits>
#include <numbers>
#include <random>
#include <stdexcept>

#include "engine/render/tone_kernel.h"
#include "tests/render/reference_tone.h"
#include "tests/support/tone_settings.h"

using namespace lumivale;

namespace {

constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double inf = std::numeric_limits<double>::infinity();

// Settings with a random subset of the stages switched on, sliders anywhere
// in their offered ranges (and now and then at an end).
EditSettings randomSettings(std::mt19937& rng) {
  std::uniform_real_distribution<double> slider(-100, 100), unit(0, 1), hue(0, 360);
  std::bernoulli_distribution on(0.6), end(0.1);
  auto value = [&] { return end(rng) ? (on(rng) ? 100.0 : -100.0) : slider(rng); };
  auto curve = [&] {
    ToneCurve c;
    c.points.clear();
    int n = 2 + static_cast<int>(unit(rng) * 5);
    for (int i = 0; i < n; ++i) c.points.push_back({unit(rng), unit(rng)});
    return c;
  };
  EditSettings s;
  if (on(rng)) s.temperature = value(), s.tint = value();
  if (on(rng)) s.whites = value();
  if (on(rng)) s.blacks = value();
  if (on(rng)) s.highlights = value();
  if (on(rng)) s.shadows = value();
  if (on(rng)) s.contrast = value();
  if (on(rng)) s.curveRGB = curve();
  if (on(rng)) s.curveRed = curve();
  if (on(rng)) s.curveGreen = curve();
  if (on(rng)) s.curveBlue = curve();
  if (on(rng)) {
    for (HSLBand& b : s.hsl) b = {value(), value(), value()};
  }
  if (on(rng)) s.vibrance = value();
  if (on(rng)) s.saturation = value();
  if (on(rng)) {
    s.gradeShadows = {hue(rng), value(), value()};
    s.gradeMidtones = {hue(rng), value(), value()};
    s.gradeHighlights = {hue(rng), value(), value()};
    s.gradeBlending = unit(rng) * 100;
    s.gradeBalance = value();
  }
  s.blackAndWhite = unit(rng) < 0.15;
  return s;
}

std::string scientific(double v) {
  char text[32];
  std::snprintf(text, sizeof text, "%.3g", v);
  return text;
}

double maxChannelError(const RGB& a, const RGB& b) {
  return std::max({std::abs(a.r - b.r), std::abs(a.g - b.g), std::abs(a.b - b.b)});
}

// The linear colour whose sRGB encoding is `encoded`.
RGB linearOf(const RGB& encoded) {
  return {srgbDecode(encoded.r), srgbDecode(encoded.g), srgbDecode(encoded.b)};
}

void expectInUnitRange(const std::vector<float>& cube, const std::string& what) {
  for (std::size_t i = 0; i < cube.size(); ++i) {
    ASSERT_TRUE(std::isfinite(cube[i])) << what << " at " << i;
    ASSERT_GE(cube[i], 0.0f) << what << " at " << i;
    ASSERT_LE(cube[i], 1.0f) << what << " at " << i;
  }
}

TEST(ToneLUTCodingTest, EncodeAndDecodeRoundTripInBothDomains) {
  for (LUTDomain d : {LUTDomain::scene, LUTDomain::display}) {
    const double top = d == LUTDomain::scene ? 4 : 1;
    for (double x = 0; x <= top; x += top / 1000) {
      EXPECT_NEAR(ToneLUT::decode(ToneLUT::encode(x, d), d), x, 1e-12) << x;
    }
    EXPECT_EQ(ToneLUT::encode(-0.3, d), 0);
    EXPECT_EQ(ToneLUT::encode(nan, d), 0);
    EXPECT_EQ(ToneLUT::encode(top * 3, d), 1);
    EXPECT_EQ(ToneLUT::decode(-1, d), 0);
    EXPECT_EQ(ToneLUT::decode(7, d), top);
  }
  EXPECT_EQ(ToneLUT::decode(1, LUTDomain::scene), 4);
  EXPECT_NEAR(ToneLUT::encode(1, LUTDomain::scene), std::pow(0.25, 1 / 2.2), 1e-15);
  EXPECT_NEAR(ToneLUT::decode(0.5, LUTDomain::display), std::pow(0.5, 2.2), 1e-15);
}

TEST(ToneLUTMapTest, DefaultParametersClampTheInput) {
  ToneParams p;
  for (double v : {0.0, 1e-4, 0.0031308, 0.01, 0.18, 0.5, 0.99, 1.0}) {
    RGB out = ToneLUT::map({v, v / 2, 1 - v}, p);
    EXPECT_NEAR(out.r, v, 1e-12);
    EXPECT_NEAR(out.g, v / 2, 1e-12);
    EXPECT_NEAR(out.b, 1 - v, 1e-12);
  }
  EXPECT_EQ(ToneLUT::map({-0.5, 1.7, inf}, p), (RGB{0, 1, 1}));
  EXPECT_EQ(ToneLUT::map({nan, nan, nan}, p), (RGB{0, 0, 0}));
}

TEST(ToneLUTMapTest, ContrastTurnsAroundItsPivot) {
  ToneParams p;
  p.contrast = 1;
  RGB pivot = ToneLUT::map(linearOf({0.46, 0.46, 0.46}), p);
  EXPECT_NEAR(srgbEncode(pivot.r), 0.46, 1e-12);
  // 0.46 + 0.5 × 1.6 = 1.26, clamped.
  RGB bright = ToneLUT::map(linearOf({0.96, 0.96, 0.96}), p);
  EXPECT_NEAR(bright.r, 1, 1e-15);
  p.contrast = -1;  // factor 0.5: everything halfway to the pivot
  RGB flat = ToneLUT::map(linearOf({0.96, 0.2, 0.46}), p);
  EXPECT_NEAR(srgbEncode(flat.r), 0.71, 1e-12);
  EXPECT_NEAR(srgbEncode(flat.g), 0.33, 1e-12);
  EXPECT_NEAR(srgbEncode(flat.b), 0.46, 1e-12);
}

TEST(ToneLUTMapTest, VibranceSparesSkinHuesStrictlyInsideTenToFifty) {
  // Encoded colours with a hue of exactly 10 and exactly 30 degrees.
  struct Case {
    RGB encoded;
    double hue;
    double factor;
  };
  for (const Case& c : {Case{{0.875, 0.25, 0.125}, 10, 1.4}, Case{{0.75, 0.5, 0.25}, 30, 0.77}}) {
    HSL hsl = rgbToHSL(c.encoded.r, c.encoded.g, c.encoded.b);
    ASSERT_EQ(hsl.h, c.hue);
    ToneParams p;
    p.vibrance = 0.5;
    const tone_detail::CrossStages stages(p);
    RGB got = stages.apply(c.encoded);
    double s = test::refClamp01(hsl.s * ((1 - hsl.s) * 0.5 * c.factor + 1));
    RGB want = hslToRGB(hsl.h, s, hsl.l);
    EXPECT_NEAR(maxChannelError(got, want), 0, 1e-12) << c.hue;
    // And the other factor would have been visibly different.
    double other = test::refClamp01(hsl.s * ((1 - hsl.s) * 0.5 * (c.factor == 1.4 ? 0.77 : 1.4) + 1));
    ASSERT_NE(other, s);
    EXPECT_GT(maxChannelError(got, hslToRGB(hsl.h, other, hsl.l)), 1e-4) << c.hue;
  }
}

TEST(ToneLUTMapTest, GreyIgnoresTheColourMixerButNotItsRoundTrip) {
  EditSettings s;
  for (HSLBand& b : s.hsl) b = {100, 100, 100};
  s.saturation = 80;
  ToneParams p(s);
  for (double v : {0.0, 0.05, 0.3, 0.7, 1.0}) {
    RGB out = ToneLUT::map({v, v, v}, p);
    EXPECT_NEAR(out.r, v, 1e-12);
    EXPECT_EQ(out.r, out.g);
    EXPECT_EQ(out.g, out.b);
  }
  // A coloured pixel does move.
  RGB red = ToneLUT::map(linearOf({0.6, 0.3, 0.3}), p);
  EXPECT_GT(maxChannelError(red, linearOf({0.6, 0.3, 0.3})), 0.01);
}

TEST(ToneLUTMapTest, ColourMixerShiftsHueByAtMostThirtyDegrees) {
  EditSettings s;
  s.hsl[static_cast<int>(ColorBand::green)].hue = 100;
  ToneParams p(s);
  // Pure green sits on its band centre: weight 1, shift exactly +30 degrees.
  RGB out = ToneLUT::map({0, 1, 0}, p);
  EXPECT_NEAR(hueOf(out), 150, 1e-9);
  // Aqua (180) is 60 degrees away from green, out of reach; the aqua band is
  // neutral, so aqua stays.
  out = ToneLUT::map({0, 1, 1}, p);
  EXPECT_NEAR(hueOf(out), 180, 1e-9);
}

TEST(ToneLUTMapTest, GradingWithOnlyHuesIsSkipped) {
  EditSettings s;
  s.gradeShadows.hue = 200;
  s.gradeMidtones.hue = 40;
  s.gradeHighlights.hue = 300;
  s.gradeBlending = 10;
  ToneParams p(s);
  EXPECT_FALSE(tone_detail::CrossStages(p).active());
  for (double v : {0.05, 0.3, 0.8})
    EXPECT_EQ(ToneLUT::map({v, v / 2, v / 3}, p), ToneLUT::map({v, v / 2, v / 3}, ToneParams()));
}

TEST(ToneLUTMapTest, GradingTintsWithoutChangingLuminance) {
  EditSettings s;
  s.gradeMidtones = {220, 100, 0};
  ToneParams p(s);
  RGB in = linearOf({0.5, 0.5, 0.5});
  RGB out = ToneLUT::map(in, p);
  RGB e{srgbEncode(out.r), srgbEncode(out.g), srgbEncode(out.b)};
  EXPECT_GT(e.b, e.r);  // a blue tint
  EXPECT_NEAR(test::refY(e.r, e.g, e.b), 0.5, 1e-12);
}

TEST(ToneLUTMapTest, BlackAndWhiteOfPureRedIsItsEncodedLuminance) {
  ToneParams p;
  p.blackAndWhite = true;
  RGB out = ToneLUT::map({1, 0, 0}, p);
  const double grey = srgbDecode(0.2126);
  EXPECT_NEAR(out.r, grey, 1e-12);
  EXPECT_EQ(out.r, out.g);
  EXPECT_EQ(out.g, out.b);
}

TEST(ToneLUTMapTest, MatchesThePlainReferenceOverRandomSettingsAndColours) {
  std::mt19937 rng(2024);
  std::uniform_real_distribution<double> colour(0, 1.3);
  double worst = 0;
  for (int set = 0; set < 400; ++set) {
    const ToneParams p(randomSettings(rng));
    for (int i = 0; i < 250; ++i) {
      RGB in{colour(rng), colour(rng), colour(rng)};
      RGB got = ToneLUT::map(in, p);
      RGB want = test::referenceMap(in, p);
      worst = std::max(worst, maxChannelError(got, want));
      ASSERT_LE(maxChannelError(got, want), 1e-6) << "set " << set << " colour " << i;
    }
  }
  // Only rounding separates the two; report how much.
  RecordProperty("worstMapError", scientific(worst));
}

// The default parameters among the sets: in the display domain the cube is
// the identity, in the scene domain it clips above display white.
TEST(ToneLUTCubeTest, MatchesTheReferenceAtEveryGridPoint) {
  std::mt19937 rng(99);
  std::vector<ToneParams> sets{ToneParams(), ToneParams(test::everyToneStage())};
  for (int i = 0; i < 12; ++i) sets.emplace_back(randomSettings(rng));
  MaskAdjust mask;
  mask.exposure = 0.7, mask.contrast = 30, mask.saturation = -40, mask.temperature = -25;
  sets.emplace_back(mask);

  const int n = 17;
  double worstLinear = 0, worstStored = 0;
  for (std::size_t k = 0; k < sets.size(); ++k) {
    for (LUTDomain d : {LUTDomain::scene, LUTDomain::display}) {
      std::vector<float> cube = ToneLUT::cube(sets[k], d, n);
      ASSERT_EQ(cube.size(), std::size_t(n) * n * n * 4);
      for (int b = 0; b < n; ++b) {
        for (int g = 0; g < n; ++g) {
          for (int r = 0; r < n; ++r) {
            const std::size_t e = ((std::size_t(b) * n + g) * n + r) * 4;
            RGB in{ToneLUT::decode(double(r) / (n - 1), d), ToneLUT::decode(double(g) / (n - 1), d),
                   ToneLUT::decode(double(b) / (n - 1), d)};
            RGB want = test::referenceMap(in, sets[k]);
            const double stored[3] = {cube[e], cube[e + 1], cube[e + 2]};
            const double wanted[3] = {want.r, want.g, want.b};
            for (int c = 0; c < 3; ++c) {
              double linear = std::abs(std::pow(stored[c], 2.2) - wanted[c]);
              double gamma = std::abs(stored[c] - std::pow(wanted[c], 1 / 2.2));
              worstLinear = std::max(worstLinear, linear);
              worstStored = std::max(worstStored, gamma);
              ASSERT_LE(linear, 1e-6) << "set " << k << " entry " << r << "," << g << "," << b;
              ASSERT_LE(gamma, 1e-6) << "set " << k << " entry " << r << "," << g << "," << b;
            }
            ASSERT_EQ(cube[e + 3], 1.0f);
          }
        }
      }
    }
  }
  RecordProperty("worstLinearError", scientific(worstLinear));
  RecordProperty("worstStoredError", scientific(worstStored));
}

TEST(ToneLUTCubeTest, ParallelFillEqualsASerialOne) {
  for (const ToneParams& p : {ToneParams(), ToneParams(test::everyToneStage())}) {
    const int n = ToneLUT::dimension;
    std::vector<float> parallel = ToneLUT::cube(p, LUTDomain::scene, n);
    std::vector<float> serial(parallel.size(), -1.0f);
    const tone_detail::CubeBuilder builder(p, LUTDomain::scene, n);
    for (int b = 0; b < n; ++b) builder.fillSlab(b, serial.data());
    EXPECT_EQ(parallel, serial);
    // Building again gives the same bytes: nothing depends on scheduling.
    EXPECT_EQ(ToneLUT::cube(p, LUTDomain::scene, n), parallel);
  }
}

TEST(ToneLUTCubeTest, RefusesSizesItCannotBuild) {
  for (int size : {-3, 0, 1, ToneLUT::maximumDimension + 1}) {
    EXPECT_THROW(ToneLUT::cube(ToneParams(), LUTDomain::display, size), std::invalid_argument) << size;
  }
  EXPECT_EQ(ToneLUT::cube(ToneParams(), LUTDomain::display, 2).size(), 32u);
}

TEST(ToneLUTCubeTest, HostileSettingsStillGiveAFiniteUnitCube) {
  const int n = 9;
  std::vector<std::pair<std::string, EditSettings>> cases;
  auto add = [&](std::string what, auto change) {
    EditSettings s = test::everyToneStage();
    change(s);
    cases.emplace_back(std::move(what), s);
  };
  add("NaN sliders", [](EditSettings& s) {
    s.temperature = s.tint = s.contrast = s.highlights = s.shadows = s.whites = s.blacks = nan;
    s.vibrance = s.saturation = s.gradeBlending = s.gradeBalance = nan;
  });
  add("infinite sliders", [](EditSettings& s) {
    s.temperature = inf, s.tint = -inf, s.contrast = inf, s.highlights = -inf, s.shadows = inf;
    s.whites = inf, s.blacks = -inf, s.vibrance = inf, s.saturation = -inf;
    s.gradeBlending = inf, s.gradeBalance = -inf;
  });
  add("huge sliders", [](EditSettings& s) {
    s.temperature = 1e6, s.tint = -1e6, s.contrast = -1e300, s.shadows = 1e300, s.vibrance = -1e9;
  });
  add("NaN and infinite colour mixer", [](EditSettings& s) {
    s.hsl[0] = {inf, -inf, inf};
    s.hsl[4] = {nan, 1e300, nan};
  });
  add("grading hues off the circle", [](EditSettings& s) {
    s.gradeShadows = {-45, 60, 10};
    s.gradeMidtones = {720, 80, -20};
    s.gradeHighlights = {nan, 90, 30};
  });
  add("infinite grading", [](EditSettings& s) {
    s.gradeShadows = {inf, inf, -inf};
    s.gradeMidtones = {-inf, 50, 50};
    s.gradeHighlights = {1e308, -inf, inf};
  });
  add("one-point curves", [](EditSettings& s) {
    s.curveRGB.points = {{0.4, 0.9}};
    s.curveRed.points = {{nan, nan}};
    s.curveGreen.points = {{inf, -inf}};
  });
  add("a thousand-point curve", [](EditSettings& s) {
    std::mt19937 rng(5);
    std::uniform_real_distribution<double> v(-0.2, 1.2);
    s.curveRGB.points.clear();
    for (int i = 0; i < 1000; ++i) s.curveRGB.points.push_back({v(rng), v(rng)});
  });
  add("a short colour mixer", [](EditSettings& s) { s.hsl.resize(3); });
  add("a long colour mixer", [](EditSettings& s) { s.hsl.resize(12, HSLBand{50, 50, 50}); });

  for (const auto& [what, settings] : cases) {
    const ToneParams p(settings);
    for (LUTDomain d : {LUTDomain::scene, LUTDomain::display}) {
      expectInUnitRange(ToneLUT::cube(p, d, n), what);
      for (bool bw : {false, true}) {
        ToneParams q = p;
        q.blackAndWhite = bw;
        expectInUnitRange(ToneLUT::cube(q, d, n), what + " (black and white)");
      }
    }
  }

  // Parameters made by hand, past the constructors' NaN guard.
  ToneParams raw;
  raw.gain = {nan, inf, -inf};
  raw.contrast = nan, raw.whites = nan, raw.blacks = inf, raw.shadows = -inf;
  raw.vibrance = nan, raw.saturation = inf;
  raw.gradeS = {nan, nan, nan};
  raw.gradeBlending = nan;
  raw.hsl = {HSLBand{nan, nan, nan}};
  expectInUnitRange(ToneLUT::cube(raw, LUTDomain::scene, n), "hand-made NaN parameters");
  RGB out = ToneLUT::map({0.5, 0.5, 0.5}, raw);
  for (double v : {out.r, out.g, out.b}) {
    EXPECT_TRUE(std::isfinite(v));
    EXPECT_GE(v, 0);
    EXPECT_LE(v, 1);
  }
}

TEST(ToneLUTCubeTest, NaNTemperatureLeavesTheColoursAlone) {
  EditSettings s;
  s.temperature = nan;
  EXPECT_EQ(ToneLUT::cube(ToneParams(s), LUTDomain::display, 9),
            ToneLUT::cube(ToneParams(), LUTDomain::display, 9));
}

TEST(ToneKernelTest, DisplayGammaTableMatchesThePowerOverDenseInputs) {
  const auto& gamma = tone_detail::DisplayGamma::instance();
  double worst = 0;
  const int steps = 2'000'000;
  for (int i = 0; i <= steps; ++i) {
    const double v = double(i) / steps;
    const double exact = std::pow(test::refDecode(v), 1 / 2.2);
    worst = std::max(worst, std::abs(gamma(v) - exact));
  }
  EXPECT_LT(worst, 1e-8);
  EXPECT_EQ(gamma(0), 0);
  EXPECT_EQ(gamma(-1), 0);
  EXPECT_EQ(gamma(nan), 0);
  EXPECT_EQ(gamma(1), 1);
  EXPECT_NEAR(gamma(1.5), tone_detail::DisplayGamma::exact(1.5), 1e-15);
  // Just either side of the toe, where the two branches meet.
  for (double v : {0.04045, std::nextafter(0.04045, 1.0), 0.0405, 0.0404}) {
    EXPECT_NEAR(gamma(v), std::pow(test::refDecode(v), 1 / 2.2), 1e-8) << v;
  }
}

TEST(ToneKernelTest, BandWeightMatchesTheCosineSquared) {
  double worst = 0;
  for (int i = 0; i <= 500'000; ++i) {
    const double d = 50.0 * i / 500'000;
    const double c = std::cos(d / 50 * std::numbers::pi / 2);
    worst = std::max(worst, std::abs(tone_detail::bandWeight(d) - c * c));
  }
  EXPECT_LT(worst, 1e-12);
  EXPECT_EQ(tone_detail::bandWeight(0), 1);
}

}  // namespace
