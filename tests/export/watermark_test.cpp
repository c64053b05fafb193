// The text watermark, found again in the pixels it changed.

#include <gtest/gtest.h>

#include "engine/export/exporter.h"
#include "engine/media/bitmap.h"
#include "engine/media/vips_glue.h"
#include "tests/support/temp_dir.h"

using namespace lumivale;

namespace {

// A flat output picture of grey 128 (of 255) in `space`, at 8 or 16 bits.
Image flatPicture(int width, int height, int bits, ColorSpace space = ColorSpace::sRGB) {
  const double linear = decodeTransfer(space, 128 / 255.0);
  return outputImage(Image::constant(width, height, {linear, linear, linear}), space, bits);
}

// Where pixels moved away from the flat grey: the text (lighter for light
// text) and its shadow (the other way).
struct Changes {
  int left = 1 << 30, top = 1 << 30, right = -1, bottom = -1;  ///< of the text's ink, inclusive
  float brightest = 0, darkest = 1e9;
  bool shadowBelow = false;  ///< the shadow's side of the grey seen under the text's ink
  bool any() const { return right >= 0; }
  int width() const { return right - left + 1; }
  int height() const { return bottom - top + 1; }
};

Changes changes(const Image& image, bool lightText, float grey, float threshold) {
  const FloatPixels p = image.readPixels();
  Changes c;
  for (int y = 0; y < p.height; ++y) {
    for (int x = 0; x < p.width; ++x) {
      const float v = p.at(x, y, 0);
      c.brightest = std::max(c.brightest, v);
      c.darkest = std::min(c.darkest, v);
      if (lightText ? v > grey + threshold : v < grey - threshold) {
        c.left = std::min(c.left, x), c.right = std::max(c.right, x);
        c.top = std::min(c.top, y), c.bottom = std::max(c.bottom, y);
      }
    }
  }
  if (c.any() && c.bottom + 1 < p.height) {
    for (int x = c.left; x <= c.right; ++x) {
      const float below = p.at(x, c.bottom + 1, 0);
      c.shadowBelow = c.shadowBelow || (lightText ? below < grey - 1 : below > grey + 1);
    }
  }
  return c;
}

ExportOptions watermarked(WatermarkPosition position, double size = 8, double opacity = 1) {
  return {.watermarkOn = true,
          .watermarkText = "© Your Name",
          .watermarkSize = size,
          .watermarkOpacity = opacity,
          .watermarkPosition = position};
}

TEST(ExportWatermark, SitsInTheCellOfItsPositionAtTheMargin) {
  const int width = 400, height = 300;
  const Image picture = flatPicture(width, height, 8);
  const double f = 24, margin = 0.8 * f;  // 8 % of 300
  constexpr double tolerance = 2;
  for (const WatermarkPosition position : allCases<WatermarkPosition>()) {
    SCOPED_TRACE(key(position));
    const auto drawn = Exporter::watermark(picture, watermarked(position));
    ASSERT_TRUE(drawn);
    const Changes c = changes(*drawn, true, 128, 20);
    ASSERT_TRUE(c.any());
    EXPECT_NEAR(c.height(), 0.9 * f, 0.25 * f);  // cap height and the descender of "Y"-less text
    const int column = int(position) % 3, row = int(position) / 3;
    if (column == 0) {
      EXPECT_NEAR(c.left, margin, tolerance);
    }
    if (column == 1) {
      EXPECT_NEAR((c.left + c.right + 1) / 2.0, width / 2.0, tolerance);
    }
    if (column == 2) {
      EXPECT_NEAR(c.right + 1, width - margin, tolerance);
    }
    if (row == 0) {
      EXPECT_NEAR(c.top, margin, tolerance);
    }
    if (row == 1) {
      EXPECT_NEAR((c.top + c.bottom + 1) / 2.0, height / 2.0, tolerance);
    }
    if (row == 2) {
      EXPECT_NEAR(c.bottom + 1, height - margin, tolerance);
    }
  }
}

TEST(ExportWatermark, LightOrDarkTextAtItsOpacityOverAShadowOfTheOtherKind) {
  const Image picture = flatPicture(300, 200, 8);
  for (const bool dark : {false, true}) {
    for (const double opacity : {1.0, 0.6}) {
      SCOPED_TRACE(std::string(dark ? "dark " : "light ") + std::to_string(opacity));
      ExportOptions options = watermarked(WatermarkPosition::center, 10, opacity);
      options.watermarkDark = dark;
      const Changes c = changes(*Exporter::watermark(picture, options), !dark, 128, 10);
      ASSERT_TRUE(c.any());
      EXPECT_TRUE(c.shadowBelow);
      // Full opacity reaches the text's grey (0.05 or 1 in sRGB); less
      // lets the picture and the shadow under it show through.
      const float ink = dark ? c.darkest : c.brightest;
      const float full = dark ? 13 : 255, mixed = 128 + float(opacity) * (full - 128);
      EXPECT_NEAR(ink, opacity == 1 ? full : mixed, opacity == 1 ? 1 : 10);
    }
  }
}

TEST(ExportWatermark, DrawsTheSameOnSixteenBits) {
  const ExportOptions options = watermarked(WatermarkPosition::bottomLeft);
  const Changes eight = changes(*Exporter::watermark(flatPicture(300, 200, 8), options), true, 128, 20);
  const Changes sixteen =
      changes(*Exporter::watermark(flatPicture(300, 200, 16), options), true, 128 * 257, 20 * 257);
  EXPECT_NEAR(sixteen.left, eight.left, 1);
  EXPECT_NEAR(sixteen.right, eight.right, 1);
  EXPECT_NEAR(sixteen.bottom, eight.bottom, 1);
  EXPECT_EQ(sixteen.brightest, 65535);
}

// The text's grey is an sRGB grey: Display P3 has sRGB's white and curve,
// so the same numbers; Adobe RGB's plain gamma encodes it higher (0.05 in
// sRGB is 0.0806 there).
TEST(ExportWatermark, ConvertsItsGreyIntoThePicturesOwnSpace) {
  ExportOptions dark = watermarked(WatermarkPosition::center);
  dark.watermarkDark = true;
  for (const auto& [space, expected] :
       {std::pair(ColorSpace::sRGB, 13.0f), {ColorSpace::displayP3, 13.0f}, {ColorSpace::adobeRGB, 20.5f}}) {
    EXPECT_NEAR(changes(*Exporter::watermark(flatPicture(400, 300, 8, space), dark), false, 128, 20).darkest,
                expected, 1)
        << profileDescription(space);
  }
}

TEST(ExportWatermark, FontSizeIsAShareOfTheShorterSideAndAtLeastEightPixels) {
  EXPECT_EQ(Exporter::watermarkFontSize(6000, 4000, ExportOptions()), 160);
  EXPECT_EQ(Exporter::watermarkFontSize(100, 50, ExportOptions{.watermarkSize = 0.5}), 8);
  EXPECT_EQ(Exporter::watermarkFontSize(100, 50, ExportOptions{.watermarkSize = -3}), 8);
  const Changes small =
      changes(*Exporter::watermark(flatPicture(100, 50, 8), watermarked(WatermarkPosition::bottomRight, 0.5)),
              true, 128, 20);
  ASSERT_TRUE(small.any());
  EXPECT_NEAR(small.height(), 7, 2);
}

// Whatever the text, the watermark is drawn on one line or left out, and
// never takes the export down with it.
TEST(ExportWatermark, DrawsLongMixedAndBrokenTextOnOneLine) {
  struct Case {
    const char* name;
    std::string text;
  };
  std::string long10k;
  for (int i = 0; i < 1000; ++i) long10k += "Lumivale ";
  long10k += "0";
  const Case cases[] = {
      {"10,000 characters", long10k},
      {"emoji", "📷✨ 👍🏽 👩‍👩‍👧"},
      {"Hebrew", "שלום עולם"},
      {"Arabic", "مرحبا بالعالم ١٢٣"},
      {"mixed directions", "KUVO שלום 2024"},
      {"line breaks and controls", "first\nsecond\r\nthird\tfourth\x1b[2J"},
      {"not UTF-8", "caf\xe9 \xff\xfe"},
      {"markup", "<b>&amp;</b>"},
  };
  const Image picture = flatPicture(400, 300, 8);
  const double f = 24;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ExportOptions options = watermarked(WatermarkPosition::bottomRight);
    options.watermarkText = c.text;
    std::optional<Image> drawn;
    ASSERT_TRUE(test::finishesWithin(
        30, [&drawn, picture, options] { drawn = Exporter::watermark(picture, options); }));
    ASSERT_TRUE(drawn);
    const Changes ink = changes(*drawn, true, 128, 20);
    ASSERT_TRUE(ink.any());
    EXPECT_LT(ink.height(), 1.6 * f);
    EXPECT_NEAR(ink.right + 1, 400 - 0.8 * f, 2);
  }
}

TEST(ExportWatermark, IsLeftOutWhenItCannotBeDrawn) {
  const ExportOptions options = watermarked(WatermarkPosition::center);
  vips::VImage unprofiled = vipsImage(flatPicture(64, 64, 8)).copy();
  unprofiled.remove(VIPS_META_ICC_NAME);
  EXPECT_FALSE(Exporter::watermark(fromVips(unprofiled), options)) << "no colour profile";
  EXPECT_FALSE(Exporter::watermark(Image::constant(64, 64, {0.5, 0.5, 0.5}), options)) << "float pixels";
  ExportOptions tooLong = options;
  tooLong.watermarkText = std::string(100000, 'x');
  EXPECT_FALSE(Exporter::watermark(flatPicture(64, 64, 8), tooLong));
  ExportOptions huge = options;
  huge.watermarkSize = 1e9;
  EXPECT_FALSE(Exporter::watermark(flatPicture(64, 64, 8), huge));
}

TEST(ExportWatermark, LeavesThePictureAsItIsWhenNothingShows) {
  const Image picture = flatPicture(64, 64, 8);
  const auto unchanged = [](const Image& image) {
    const Changes c = changes(image, true, 128, 0);
    return !c.any() && c.darkest == 128;
  };
  for (const std::string& text : {std::string(), std::string("   ")}) {
    ExportOptions options = watermarked(WatermarkPosition::center);
    options.watermarkText = text;
    EXPECT_TRUE(unchanged(*Exporter::watermark(picture, options))) << "'" << text << "'";
  }
  EXPECT_TRUE(unchanged(*Exporter::watermark(picture, watermarked(WatermarkPosition::center, 8, 0))));
  // Text pushed wholly outside the picture by a margin larger than it.
  EXPECT_TRUE(unchanged(*Exporter::watermark(picture, watermarked(WatermarkPosition::bottomRight, 200))));
}

}  // namespace
