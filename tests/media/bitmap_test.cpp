#include "engine/media/bitmap.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>

#include "engine/media/vips_glue.h"

using namespace lumivale;

namespace {

Image pixelsImage(const std::vector<float>& rgb) {
  return Image::fromPixels({int(rgb.size() / 3), 1, 3, rgb});
}

// The exact sample by the definition, in double precision.
double exactSample(ColorSpace space, const std::array<double, 3>& linear, int channel, int bits) {
  const Matrix3 m = linearFromWorking(space);
  auto finite = [](double x) { return std::isnan(x) ? 0 : std::clamp(x, -65504.0, 65504.0); };
  const std::array<double, 3> in{finite(linear[0]), finite(linear[1]), finite(linear[2])};
  double v =
      std::clamp(m[channel * 3] * in[0] + m[channel * 3 + 1] * in[1] + m[channel * 3 + 2] * in[2], 0.0, 1.0);
  return encodeTransfer(space, v) * ((1 << bits) - 1);
}

// Published conversions of the sRGB primaries.
TEST(ColorSpaceProfiles, SrgbPrimariesLandWhereTheyShould) {
  struct Case {
    ColorSpace space;
    std::array<double, 3> linear;
    std::array<int, 3> expected;
  };
  const Case cases[] = {{ColorSpace::displayP3, {1, 0, 0}, {234, 51, 35}},
                        {ColorSpace::displayP3, {0, 1, 0}, {117, 251, 76}},
                        {ColorSpace::adobeRGB, {1, 0, 0}, {219, 0, 0}},
                        {ColorSpace::adobeRGB, {0, 1, 0}, {144, 255, 60}},
                        {ColorSpace::sRGB, {0.214041, 0.214041, 0.214041}, {128, 128, 128}},
                        {ColorSpace::adobeRGB, {1, 1, 1}, {255, 255, 255}}};
  for (const Case& c : cases) {
    const Bitmap b =
        toBitmap(pixelsImage({float(c.linear[0]), float(c.linear[1]), float(c.linear[2])}), c.space, 8);
    for (int channel = 0; channel < 3; ++channel)
      EXPECT_NEAR(b.sample(0, 0, channel), c.expected[channel], 1);
  }
}

class BitmapRounding : public ::testing::TestWithParam<std::tuple<ColorSpace, int>> {};

// Every sample is the nearest step of the exact value, clipped: checked
// against double precision over values across and beyond 0 … 1, where only
// a value within a hair of a half step may round either way.
TEST_P(BitmapRounding, GivesTheNearestSampleOfTheClippedValue) {
  const auto [space, bits] = GetParam();
  std::mt19937 random(7);
  std::uniform_real_distribution<double> value(-0.1, 1.1);
  std::vector<std::array<double, 3>> colours = {{0, 0, 0},
                                                {1, 1, 1},
                                                {2, 0.5, -1},
                                                {1e-12, 1e-6, 0.0031308},
                                                {std::numeric_limits<double>::quiet_NaN(), 0.5, 0.5},
                                                {std::numeric_limits<double>::infinity(), -1e30, 0.25}};
  while (colours.size() < 60000) {
    const double v = value(random);
    colours.push_back({v, v * v, 1 - v});
  }
  std::vector<float> values;
  for (const auto& c : colours) values.insert(values.end(), {float(c[0]), float(c[1]), float(c[2])});
  const Bitmap bitmap = toBitmap(pixelsImage(values), space, bits);
  ASSERT_EQ(bitmap.bits, bits);
  ASSERT_EQ(bitmap.bytes.size(), colours.size() * 3 * (bits / 8));
  EXPECT_EQ(bitmap.iccProfile, iccProfile(space));
  int ties = 0;
  for (std::size_t i = 0; i < colours.size(); ++i) {
    std::array<double, 3> asFloat{values[3 * i], values[3 * i + 1], values[3 * i + 2]};
    for (int c = 0; c < 3; ++c) {
      const double exact = exactSample(space, asFloat, c, bits);
      const int got = bitmap.sample(int(i), 0, c);
      if (got == int(std::lround(exact))) continue;
      // Only a value a hair from a half step may round either way.
      ASSERT_LT(std::abs(exact - std::floor(exact) - 0.5), 0.01)
          << i << " " << c << " " << exact << " " << got;
      ++ties;
    }
  }
  // Float arithmetic leaves about 0.002 of a step: a few in a thousand.
  EXPECT_LT(ties, int(colours.size() * 3 / 500));
}

INSTANTIATE_TEST_SUITE_P(SpacesAndDepths, BitmapRounding,
                         ::testing::Combine(::testing::ValuesIn(allColorSpaces), ::testing::Values(8, 16)));

TEST(OutputImage, IsThreeBandsWithTheProfileAttached) {
  const Image grey = Image::constant(3, 2, {0.5, 0.5, 0.5}, 1);
  for (int bits : {8, 16}) {
    const Image out = outputImage(grey, ColorSpace::displayP3, bits);
    const vips::VImage v = vipsImage(out);
    EXPECT_EQ(v.bands(), 3);
    EXPECT_EQ(v.format(), bits == 8 ? VIPS_FORMAT_UCHAR : VIPS_FORMAT_USHORT);
    std::size_t length = 0;
    const void* data = v.get_blob(VIPS_META_ICC_NAME, &length);
    EXPECT_EQ(std::vector<std::uint8_t>(static_cast<const std::uint8_t*>(data),
                                        static_cast<const std::uint8_t*>(data) + length),
              iccProfile(ColorSpace::displayP3));
    const Bitmap b = toBitmap(grey, ColorSpace::displayP3, bits);
    EXPECT_EQ(b.sample(2, 1, 0), b.sample(2, 1, 2));  // grey stays grey in every space
  }
  EXPECT_THROW(outputImage(grey, ColorSpace::sRGB, 12), ImageError);
}

// A bitmap goes back to the encoders as the same samples and profile; one
// whose samples do not fill its size is refused, never read past its end.
TEST(PictureOf, GivesTheBitmapsSamplesBack) {
  for (int bits : {8, 16}) {
    const Bitmap b = toBitmap(Image::constant(5, 3, {0.2, 0.5, 0.9}), ColorSpace::adobeRGB, bits);
    const vips::VImage v = vipsImage(pictureOf(b));
    std::size_t length = 0;
    void* memory = v.write_to_memory(&length);
    EXPECT_EQ(std::vector<std::uint8_t>(static_cast<std::uint8_t*>(memory),
                                        static_cast<std::uint8_t*>(memory) + length),
              b.bytes);
    g_free(memory);
    const void* profile = v.get_blob(VIPS_META_ICC_NAME, &length);
    EXPECT_EQ(length, b.iccProfile.size());
    EXPECT_EQ(std::memcmp(profile, b.iccProfile.data(), length), 0);
    Bitmap cut = b;
    cut.bytes.pop_back();
    EXPECT_THROW(pictureOf(cut), ImageError);
  }
}

}  // namespace
