#include "engine/media/image_encoder.h"

#include <gtest/gtest.h>

#include "engine/media/bitmap.h"
#include "engine/media/image_properties.h"
#include "engine/media/vips_glue.h"
#include "tests/support/color_check.h"
#include "tests/support/errors.h"
#include "tests/support/sample_photos.h"
#include "tests/support/temp_dir.h"

using namespace lumivale;

namespace {

// Linear working-space colours, 8 × 8 pixels each: neutrals, primaries,
// skin, and (for wide spaces) a red beyond sRGB.
Image workingPatches(bool beyondSrgb) {
  std::vector<float> colours = {0,     0,     0,     0.002f, 0.002f, 0.002f, 0.18f, 0.18f,
                                0.18f, 1,     1,     1,      0.8f,   0.05f,  0.03f, 0.04f,
                                0.6f,  0.05f, 0.03f, 0.05f,  0.7f,   0.45f,  0.25f, 0.16f};
  if (beyondSrgb) colours.insert(colours.end(), {1.1f, -0.03f, -0.015f});
  const Image row = Image::fromPixels({int(colours.size() / 3), 1, 3, colours});
  return fromVips(vipsImage(row).zoom(8, 8).copy_memory());
}

struct RoundTrip {
  ImageFormat format;
  ColorSpace space;
  int bits;
  double tolerance;  // mean CIEDE2000
};

class EncoderRoundTrip : public ::testing::TestWithParam<RoundTrip> {
 protected:
  test::TempDir dir;
};

// Written and read back, a picture gives its colours back, tagged with its
// space's profile at its depth.
TEST_P(EncoderRoundTrip, GivesTheColoursBack) {
  const RoundTrip& c = GetParam();
  const char* extension = c.format == ImageFormat::jpeg   ? "a.jpg"
                          : c.format == ImageFormat::png  ? "a.png"
                          : c.format == ImageFormat::heif ? "a.heic"
                                                          : "a.tif";
  const Image original = workingPatches(c.space == ColorSpace::displayP3);
  ImageEncoder::write(outputImage(original, c.space, c.bits), dir / extension,
                      {.format = c.format, .quality = 0.95});
  const Image decoded = ImageDecoder::decode(dir / extension, std::nullopt).image;
  const test::ColourDifference d = test::deltaE(decoded, original);
  EXPECT_LT(d.mean, c.tolerance);
  const auto properties = readImageProperties(dir / extension);
  ASSERT_TRUE(properties);
  EXPECT_EQ(properties->profileName, profileDescription(c.space));
  EXPECT_EQ(properties->depth, c.format == ImageFormat::jpeg || c.format == ImageFormat::heif ? 8 : c.bits);
}

INSTANTIATE_TEST_SUITE_P(FormatsSpacesDepths, EncoderRoundTrip,
                         ::testing::Values(RoundTrip{ImageFormat::png, ColorSpace::sRGB, 8, 0.3},
                                           RoundTrip{ImageFormat::png, ColorSpace::displayP3, 16, 0.01},
                                           RoundTrip{ImageFormat::png, ColorSpace::adobeRGB, 8, 0.3},
                                           RoundTrip{ImageFormat::tiff, ColorSpace::adobeRGB, 16, 0.01},
                                           RoundTrip{ImageFormat::tiff, ColorSpace::displayP3, 8, 0.3},
                                           RoundTrip{ImageFormat::tiff, ColorSpace::sRGB, 16, 0.01},
                                           RoundTrip{ImageFormat::jpeg, ColorSpace::sRGB, 8, 1.0},
                                           RoundTrip{ImageFormat::jpeg, ColorSpace::displayP3, 16, 1.0},
                                           RoundTrip{ImageFormat::jpeg, ColorSpace::adobeRGB, 8, 1.0},
                                           RoundTrip{ImageFormat::heif, ColorSpace::sRGB, 8, 1.5},
                                           RoundTrip{ImageFormat::heif, ColorSpace::displayP3, 16, 1.5}));

class EncoderTest : public ::testing::Test {
 protected:
  test::TempDir dir;
  Image picture = outputImage(Image::constant(16, 8, {0.2, 0.4, 0.6}), ColorSpace::sRGB, 8);
};

TEST_F(EncoderTest, NeverReplacesAFileUnlessAsked) {
  test::writeFile(dir / "taken.png", "precious");
  EXPECT_THROW(ImageEncoder::write(picture, dir / "taken.png", {.format = ImageFormat::png}),
               FileExistsError);
  EXPECT_EQ(test::readFile(dir / "taken.png"), "precious");
  ImageEncoder::write(picture, dir / "taken.png", {.format = ImageFormat::png, .replaceExisting = true});
  EXPECT_EQ(ImageDecoder::readHeader(dir / "taken.png").width, 16);
}

// Pixels from a loaded file carry its EXIF along; the written file must not,
// or its orientation would turn the upright pixels again. Nor may the
// HEIF saver's own EXIF block stay.
TEST_F(EncoderTest, WritesTheProfileAndNoOtherMetadata) {
  initImageLibraries();
  const vips::VImage turned = vips::VImage::jpegload(test::realPhoto("Portrait_8.jpg").c_str());
  ASSERT_EQ(vips_image_get_orientation(turned.get_image()), 8);
  for (const auto& [format, name] :
       {std::pair(ImageFormat::jpeg, "copy.jpg"), {ImageFormat::heif, "copy.heic"}}) {
    SCOPED_TRACE(name);
    ImageEncoder::write(fromVips(turned), dir / name, {.format = format});
    const auto properties = readImageProperties(dir / name);
    ASSERT_TRUE(properties);
    EXPECT_EQ(properties->orientation, 1);
    EXPECT_FALSE(properties->make);
    EXPECT_FALSE(properties->profileName.empty());
    if (format == ImageFormat::heif) {
      EXPECT_EQ(test::readFile(dir / name).find("Exif"), std::string::npos);
    }
  }
}

TEST_F(EncoderTest, EncodesInMemoryWhatItWouldWrite) {
  for (const auto& [format, name] : {std::pair(ImageFormat::jpeg, "a.jpg"),
                                     {ImageFormat::png, "a.png"},
                                     {ImageFormat::tiff, "a.tif"},
                                     {ImageFormat::heif, "a.heic"}}) {
    SCOPED_TRACE(name);
    EXPECT_TRUE(ImageEncoder::canWrite(format));
    ImageEncoder::write(picture, dir / name, {.format = format});
    EXPECT_TRUE(ImageEncoder::encode(picture, {.format = format}) == test::readFile(dir / name));
  }
}

// TIFF strips cut a picture at any row: a last strip cut short, a row wider
// than a strip, one pixel, grey and colour, 8 and 16 bits all give their
// samples back exactly (the differencing undone, nothing shifted).
TEST_F(EncoderTest, TiffStripsGiveEverySampleBack) {
  initImageLibraries();
  struct Case {
    int width, height, bands;
    VipsBandFormat format;
  };
  const Case cases[] = {{1, 1, 3, VIPS_FORMAT_UCHAR},
                        {3001, 71, 3, VIPS_FORMAT_USHORT},
                        {500, 333, 1, VIPS_FORMAT_UCHAR},
                        {50000, 3, 3, VIPS_FORMAT_USHORT},
                        {97, 1001, 3, VIPS_FORMAT_UCHAR}};
  for (const Case& c : cases) {
    SCOPED_TRACE(std::to_string(c.width) + "x" + std::to_string(c.height));
    // Noise, so that every difference between neighbours is tried.
    vips::VImage samples = vips::VImage::gaussnoise(c.width, c.height,
                                                    vips::VImage::option()->set(
                                                        "sigma", c.format == VIPS_FORMAT_UCHAR ? 80 : 20000))
                               .abs()
                               .cast(c.format);
    if (c.bands == 3)
      samples = vips::VImage::bandjoin(
          {samples, samples.rot180().flip(VIPS_DIRECTION_HORIZONTAL), samples.invert()});
    samples = samples.copy_memory();
    const std::string name = "strips" + std::to_string(c.width) + ".tif";
    ImageEncoder::write(fromVips(samples), dir / name, {.format = ImageFormat::tiff});
    const vips::VImage back = vips::VImage::tiffload((dir / name).c_str());
    ASSERT_EQ(back.width(), c.width);
    ASSERT_EQ(back.bands(), c.bands);
    ASSERT_EQ(back.format(), c.format);
    EXPECT_EQ((back - samples).abs().max(), 0);
  }
}

// A grey picture becomes RGB for the HEIF coder, which takes three bands.
TEST_F(EncoderTest, WritesAGreyPictureAsHeif) {
  const Image grey = outputImage(Image::constant(40, 24, {0.2, 0.2, 0.2}, 1), ColorSpace::sRGB, 8);
  const vips::VImage one = vipsImage(grey).extract_band(0);
  ASSERT_EQ(one.bands(), 1);
  ImageEncoder::write(fromVips(one), dir / "grey.heic", {.format = ImageFormat::heif, .quality = 1});
  const FloatPixels back = ImageDecoder::decode(dir / "grey.heic", std::nullopt).image.readPixels();
  ASSERT_EQ(back.width, 40);
  // Every row, the last third too: a coder that read two bands as three
  // would run past the samples there.
  for (int y = 0; y < 24; y += 23) {
    for (int c = 0; c < 3; ++c) EXPECT_NEAR(back.at(39, y, c), 0.2, 0.02) << y;
  }
}

TEST_F(EncoderTest, RefusesWhatItCannotWrite) {
  EXPECT_THROW(ImageEncoder::write(Image::constant(4, 4, {0.5, 0.5, 0.5}), dir / "float.png",
                                   {.format = ImageFormat::png}),
               ImageError);
  EXPECT_THROW(ImageEncoder::encode(Image::constant(4, 4, {0.5, 0.5, 0.5}), {.format = ImageFormat::heif}),
               ImageError);
  EXPECT_TRUE(
      test::throwsWith<MediaError>([&] { ImageEncoder::write(picture, dir / "no" / "folder.jpg", {}); },
                                   "cannot write " + quotedPath(dir / "no" / "folder.jpg")));
  EXPECT_TRUE(std::filesystem::is_empty(dir.path()));
}

}  // namespace
