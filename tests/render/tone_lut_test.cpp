#include "engine/render/tone_lut.h"

#include <gtest/gtest.h>

#include <cmath>
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
  EditSettings s;
  if (on(rng)) s.temperature = value(), s.tint = value();
  for (double* slider : {&s.whites, &s.blacks, &s.highlights, &s.shadows, &s.contrast})
    if (on(rng)) *slider = value();
  for (ToneCurve* c : {&s.curveRGB, &s.curveRed, &s.curveGreen, &s.curveBlue}) {
    if (!on(rng)) continue;
    c->points.resize(2 + static_cast<int>(unit(rng) * 5));
    for (CurvePoint& p : c->points) p = {unit(rng), unit(rng)};
  }
  if (on(rng))
    for (HSLBand& b : s.hsl) b = {value(), value(), value()};
  for (double* slider : {&s.vibrance, &s.saturation})
    if (on(rng)) *slider = value();
  if (on(rng)) {
    for (GradeWheel* w : {&s.gradeShadows, &s.gradeMidtones, &s.gradeHighlights})
      *w = {hue(rng), value(), value()};
    s.gradeBlending = unit(rng) * 100, s.gradeBalance = value();
  }
  s.blackAndWhite = unit(rng) < 0.15;
  return s;
}

double maxChannelError(const RGB& a, const RGB& b) {
  return std::max({std::abs(a.r - b.r), std::abs(a.g - b.g), std::abs(a.b - b.b)});
}

// The linear colour whose sRGB encoding is `encoded`, and back.
RGB linearOf(const RGB& e) { return {srgbDecode(e.r), srgbDecode(e.g), srgbDecode(e.b)}; }
RGB encodedOf(const RGB& c) { return {srgbEncode(c.r), srgbEncode(c.g), srgbEncode(c.b)}; }

void expectInUnitRange(const std::vector<float>& cube, const std::string& what) {
  for (std::size_t i = 0; i < cube.size(); ++i)
    ASSERT_TRUE(cube[i] >= 0.0f && cube[i] <= 1.0f) << what << " at " << i << ": " << cube[i];
}

TEST(ToneLUTCodingTest, EncodeAndDecodeRoundTripInBothDomains) {
  for (LUTDomain d : {LUTDomain::scene, LUTDomain::display}) {
    const double top = d == LUTDomain::scene ? 4 : 1;
    for (double x = 0; x <= top; x += top / 1000)
      EXPECT_NEAR(ToneLUT::decode(ToneLUT::encode(x, d), d), x, 1e-12);
    EXPECT_EQ(ToneLUT::encode(-0.3, d), 0);
    EXPECT_EQ(ToneLUT::encode(nan, d), 0);
    EXPECT_EQ(ToneLUT::encode(top * 3, d), 1);
    EXPECT_EQ(ToneLUT::decode(-1, d), 0);
    EXPECT_EQ(ToneLUT::decode(7, d), top);
  }
  EXPECT_NEAR(ToneLUT::encode(1, LUTDomain::scene), std::pow(0.25, 1 / 2.2), 1e-15);
  EXPECT_NEAR(ToneLUT::decode(0.5, LUTDomain::display), std::pow(0.5, 2.2), 1e-15);
}

TEST(ToneLUTMapTest, DefaultParametersClampTheInput) {
  for (double v : {0.0, 1e-4, 0.0031308, 0.01, 0.18, 0.5, 0.99, 1.0})
    EXPECT_LE(maxChannelError(ToneLUT::map({v, v / 2, 1 - v}, ToneParams()), {v, v / 2, 1 - v}), 1e-12) << v;
  EXPECT_EQ(ToneLUT::map({-0.5, 1.7, inf}, ToneParams()), (RGB{0, 1, 1}));
  EXPECT_EQ(ToneLUT::map({nan, nan, nan}, ToneParams()), (RGB{0, 0, 0}));
}

// Values worked out by hand, which hold the plain reference to the rules too.
TEST(ToneLUTMapTest, HandWorkedValues) {
  ToneParams p;
  p.contrast = 1;  // the pivot stays; 0.46 + 0.5 × 1.6 = 1.26, clamped
  EXPECT_NEAR(encodedOf(ToneLUT::map(linearOf({0.46, 0.46, 0.46}), p)).r, 0.46, 1e-12);
  EXPECT_NEAR(ToneLUT::map(linearOf({0.96, 0.96, 0.96}), p).r, 1, 1e-15);
  p.contrast = -1;  // factor 0.5: everything halfway to the pivot
  EXPECT_LE(maxChannelError(encodedOf(ToneLUT::map(linearOf({0.96, 0.2, 0.46}), p)), {0.71, 0.33, 0.46}),
            1e-12);

  // Pure green sits on its band centre: weight 1, shift exactly +30 degrees.
  // Aqua (180) is 60 degrees away, out of reach, and its band is neutral.
  EditSettings mixer;
  mixer.hsl[static_cast<int>(ColorBand::green)].hue = 100;
  EXPECT_NEAR(hueOf(ToneLUT::map({0, 1, 0}, ToneParams(mixer))), 150, 1e-9);
  EXPECT_NEAR(hueOf(ToneLUT::map({0, 1, 1}, ToneParams(mixer))), 180, 1e-9);
}

TEST(ToneLUTMapTest, VibranceSparesSkinHuesStrictlyInsideTenToFifty) {
  // Encoded colours with a hue of exactly 10 and exactly 30 degrees.
  for (auto [encoded, hue, factor] :
       {std::tuple(RGB{0.875, 0.25, 0.125}, 10.0, 1.4), std::tuple(RGB{0.75, 0.5, 0.25}, 30.0, 0.77)}) {
    const HSL hsl = rgbToHSL(encoded.r, encoded.g, encoded.b);
    ASSERT_EQ(hsl.h, hue);
    ToneParams p;
    p.vibrance = 0.5;
    const RGB got = tone_detail::CrossStages(p).apply(encoded);
    const auto vibrant = [&](double k) { return test::refClamp01(hsl.s * ((1 - hsl.s) * 0.5 * k + 1)); };
    EXPECT_NEAR(maxChannelError(got, hslToRGB(hsl.h, vibrant(factor), hsl.l)), 0, 1e-12) << hue;
    // And the other factor would have been visibly different.
    EXPECT_GT(maxChannelError(got, hslToRGB(hsl.h, vibrant(factor == 1.4 ? 0.77 : 1.4), hsl.l)), 1e-4) << hue;
  }
}

TEST(ToneLUTMapTest, StagesWithNothingToDoLeaveColoursAlone) {
  // Grey ignores the colour mixer and saturation; a coloured pixel moves.
  EditSettings s;
  for (HSLBand& b : s.hsl) b = {100, 100, 100};
  s.saturation = 80;
  for (double v : {0.0, 0.05, 0.3, 0.7, 1.0}) {
    const RGB out = ToneLUT::map({v, v, v}, ToneParams(s));
    EXPECT_NEAR(out.r, v, 1e-12);
    EXPECT_TRUE(out.r == out.g && out.g == out.b) << v;
  }
  EXPECT_GT(
      maxChannelError(ToneLUT::map(linearOf({0.6, 0.3, 0.3}), ToneParams(s)), linearOf({0.6, 0.3, 0.3})),
      0.01);

  // Grading wheels with only hues are skipped.
  EditSettings hues;
  hues.gradeShadows.hue = 200, hues.gradeMidtones.hue = 40, hues.gradeHighlights.hue = 300,
  hues.gradeBlending = 10;
  EXPECT_FALSE(tone_detail::CrossStages(ToneParams(hues)).active());
  for (double v : {0.05, 0.3, 0.8})
    EXPECT_EQ(ToneLUT::map({v, v / 2, v / 3}, ToneParams(hues)),
              ToneLUT::map({v, v / 2, v / 3}, ToneParams()));

  // A NaN temperature leaves the colours alone.
  EditSettings warm;
  warm.temperature = nan;
  EXPECT_EQ(ToneLUT::cube(ToneParams(warm), LUTDomain::display, 9),
            ToneLUT::cube(ToneParams(), LUTDomain::display, 9));
}

TEST(ToneLUTMapTest, MatchesThePlainReferenceOverRandomSettingsAndColours) {
  std::mt19937 rng(2024);
  std::uniform_real_distribution<double> colour(0, 1.3);
  for (int set = 0; set < 400; ++set) {
    const ToneParams p(randomSettings(rng));
    for (int i = 0; i < 250; ++i) {
      const RGB in{colour(rng), colour(rng), colour(rng)};
      ASSERT_LE(maxChannelError(ToneLUT::map(in, p), test::referenceMap(in, p)), 1e-6)
          << "set " << set << " colour " << i;
    }
  }
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
  for (std::size_t k = 0; k < sets.size(); ++k) {
    for (LUTDomain d : {LUTDomain::scene, LUTDomain::display}) {
      const std::vector<float> cube = ToneLUT::cube(sets[k], d, n);
      ASSERT_EQ(cube.size(), std::size_t(n) * n * n * 4);
      for (int i = 0; i < n * n * n; ++i) {
        const int r = i % n, g = i / n % n, b = i / n / n;
        const auto level = [&](int at) { return ToneLUT::decode(double(at) / (n - 1), d); };
        const RGB want = test::referenceMap({level(r), level(g), level(b)}, sets[k]);
        const double wanted[3] = {want.r, want.g, want.b};
        for (int c = 0; c < 3; ++c) {
          const double linear = std::abs(std::pow(cube[4 * i + c], 2.2) - wanted[c]);
          const double stored = std::abs(cube[4 * i + c] - std::pow(wanted[c], 1 / 2.2));
          ASSERT_TRUE(linear <= 1e-6 && stored <= 1e-6)
              << "set " << k << " entry " << r << "," << g << "," << b << ": " << linear << ", " << stored;
        }
        ASSERT_EQ(cube[4 * i + 3], 1.0f);
      }
    }
  }
}

TEST(ToneLUTCubeTest, ParallelFillEqualsASerialOne) {
  for (const ToneParams& p : {ToneParams(), ToneParams(test::everyToneStage())}) {
    const int n = ToneLUT::dimension;
    const std::vector<float> parallel = ToneLUT::cube(p, LUTDomain::scene, n);
    std::vector<float> serial(parallel.size(), -1.0f);
    const tone_detail::CubeBuilder builder(p, LUTDomain::scene, n);
    for (int b = 0; b < n; ++b) builder.fillSlab(b, serial.data());
    EXPECT_EQ(parallel, serial);
    // Building again gives the same bytes: nothing depends on scheduling.
    EXPECT_EQ(ToneLUT::cube(p, LUTDomain::scene, n), parallel);
  }
}

TEST(ToneLUTCubeTest, RefusesSizesItCannotBuild) {
  for (int size : {-3, 0, 1, ToneLUT::maximumDimension + 1})
    EXPECT_THROW(ToneLUT::cube(ToneParams(), LUTDomain::display, size), std::invalid_argument) << size;
  EXPECT_EQ(ToneLUT::cube(ToneParams(), LUTDomain::display, 2).size(), 32u);
}

TEST(ToneLUTCubeTest, HostileSettingsStillGiveAFiniteUnitCube) {
  const auto check = [](EditSettings s, const std::string& what) {
    for (bool bw : {false, true}) {
      s.blackAndWhite = bw;
      for (LUTDomain d : {LUTDomain::scene, LUTDomain::display})
        expectInUnitRange(ToneLUT::cube(ToneParams(s), d, 9), what + (bw ? " (black and white)" : ""));
    }
  };
  const EditSettings base = test::everyToneStage();
  EditSettings s = base;
  s.temperature = s.tint = s.contrast = s.highlights = s.shadows = s.whites = s.blacks = nan;
  s.vibrance = s.saturation = s.gradeBlending = s.gradeBalance = nan;
  check(s, "NaN sliders");
  s = base;
  s.temperature = inf, s.tint = -inf, s.contrast = inf, s.highlights = -inf, s.shadows = inf, s.whites = inf;
  s.blacks = -inf, s.vibrance = inf, s.saturation = -inf, s.gradeBlending = inf, s.gradeBalance = -inf;
  check(s, "infinite sliders");
  s = base;
  s.temperature = 1e6, s.tint = -1e6, s.contrast = -1e300, s.shadows = 1e300, s.vibrance = -1e9;
  check(s, "huge sliders");
  s = base;
  s.hsl[0] = {inf, -inf, inf}, s.hsl[4] = {nan, 1e300, nan};
  check(s, "NaN and infinite colour mixer");
  s = base;
  s.gradeShadows = {-45, 60, 10}, s.gradeMidtones = {720, 80, -20}, s.gradeHighlights = {nan, 90, 30};
  check(s, "grading hues off the circle");
  s = base;
  s.gradeShadows = {inf, inf, -inf}, s.gradeMidtones = {-inf, 50, 50}, s.gradeHighlights = {1e308, -inf, inf};
  check(s, "infinite grading");
  s = base;
  s.curveRGB.points = {{0.4, 0.9}}, s.curveRed.points = {{nan, nan}}, s.curveGreen.points = {{inf, -inf}};
  check(s, "one-point curves");
  s = base;
  std::mt19937 rng(5);
  std::uniform_real_distribution<double> v(-0.2, 1.2);
  s.curveRGB.points.resize(1000);
  for (CurvePoint& p : s.curveRGB.points) p = {v(rng), v(rng)};
  check(s, "a thousand-point curve");
  for (std::size_t bands : {3, 12}) {
    s = base;
    s.hsl.resize(bands, HSLBand{50, 50, 50});
    check(s, std::to_string(bands) + " colour mixer bands");
  }

  // Parameters made by hand, past the constructors' NaN guard.
  ToneParams raw;
  raw.gain = {nan, inf, -inf};
  raw.contrast = nan, raw.whites = nan, raw.blacks = inf, raw.shadows = -inf;
  raw.vibrance = nan, raw.saturation = inf, raw.gradeS = {nan, nan, nan}, raw.gradeBlending = nan;
  raw.hsl = {HSLBand{nan, nan, nan}};
  expectInUnitRange(ToneLUT::cube(raw, LUTDomain::scene, 9), "hand-made NaN parameters");
  const RGB out = ToneLUT::map({0.5, 0.5, 0.5}, raw);
  expectInUnitRange({float(out.r), float(out.g), float(out.b)}, "hand-made NaN parameters, one colour");
}

TEST(ToneKernelTest, TablesMatchTheFunctionsTheyStandFor) {
  const auto& gamma = tone_detail::DisplayGamma::instance();
  double worst = 0;
  for (int i = 0, steps = 2'000'000; i <= steps; ++i)
    worst = std::max(
        worst, std::abs(gamma(double(i) / steps) - std::pow(test::refDecode(double(i) / steps), 1 / 2.2)));
  EXPECT_LT(worst, 1e-8);
  for (double v : {0.0, -1.0, nan}) EXPECT_EQ(gamma(v), 0) << v;
  EXPECT_EQ(gamma(1), 1);
  EXPECT_NEAR(gamma(1.5), tone_detail::DisplayGamma::exact(1.5), 1e-15);
  // Just either side of the toe, where the two branches meet.
  for (double v : {0.04045, std::nextafter(0.04045, 1.0), 0.0405, 0.0404})
    EXPECT_NEAR(gamma(v), std::pow(test::refDecode(v), 1 / 2.2), 1e-8) << v;

  worst = 0;
  for (int i = 0; i <= 500'000; ++i) {
    const double d = 50.0 * i / 500'000, c = std::cos(d / 50 * std::numbers::pi / 2);
    worst = std::max(worst, std::abs(tone_detail::bandWeight(d) - c * c));
  }
  EXPECT_LT(worst, 1e-12);
  EXPECT_EQ(tone_detail::bandWeight(0), 1);
}

}  // namespace
