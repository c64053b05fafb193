#include "engine/media/image_decoder.h"

#include <gtest/gtest.h>
#include <lcms2.h>
#include <sys/stat.h>

#include "engine/media/color_space.h"
#include "engine/media/vips_glue.h"
#include "tests/support/color_check.h"
#include "tests/support/errors.h"
#include "tests/support/sample_photos.h"
#include "tests/support/temp_dir.h"

using namespace lumivale;
using test::Area;

namespace {

const auto noShared = "the shared test photos are not there";

vips::VImage tagged(vips::VImage image, const std::vector<std::uint8_t>& profile) {
  image = image.copy();
  vips_image_set_blob_copy(image.get_image(), VIPS_META_ICC_NAME, profile.data(), profile.size());
  return image;
}

vips::VImage samples(const void* data, int width, int bands, VipsBandFormat format, VipsInterpretation kind) {
  const std::size_t bytes = std::size_t(width) * bands * (format == VIPS_FORMAT_USHORT ? 2 : 1);
  return vips::VImage(vips_image_new_from_memory_copy(data, bytes, width, 1, bands, format))
      .copy(vips::VImage::option()->set("interpretation", kind));
}

// Saturated and neutral patches in 8-bit RGB, side by side.
vips::VImage patches() {
  initImageLibraries();
  const std::uint8_t colours[] = {230, 20,  30,  20,  200, 40,  30, 40, 220, 250, 220, 10,
                                  128, 128, 128, 250, 250, 250, 5,  5,  5,   180, 120, 90};
  return samples(colours, 8, 3, VIPS_FORMAT_UCHAR, VIPS_INTERPRETATION_sRGB).zoom(16, 16);
}

std::vector<std::uint8_t> greyGamma18Profile() {
  cmsToneCurve* curve = cmsBuildGamma(nullptr, 1.8);
  cmsHPROFILE profile = cmsCreateGrayProfile(cmsD50_xyY(), curve);
  cmsUInt32Number size = 0;
  cmsSaveProfileToMem(profile, nullptr, &size);
  std::vector<std::uint8_t> bytes(size);
  cmsSaveProfileToMem(profile, bytes.data(), &size);
  cmsCloseProfile(profile);
  cmsFreeToneCurve(curve);
  return bytes;
}

class DecoderTest : public ::testing::Test {
 protected:
  test::TempDir dir;
};

// ---- colours ----

struct RealPhoto {
  const char* file;
  std::optional<Area> area;  // a crop of the large ones
  bool widerThanSrgb = false;
};

class RealPhotoColours : public ::testing::TestWithParam<RealPhoto> {};

// Every shared photo decodes to the colours an independent colour-managed
// decode gives; the Display P3 one keeps its colours beyond sRGB.
TEST_P(RealPhotoColours, MatchAnIndependentColourManagedDecode) {
  const auto file = test::sharedPhoto(GetParam().file);
  if (!file) GTEST_SKIP() << noShared;
  const Image ours = ImageDecoder::decode(*file, std::nullopt).image;
  const Area area = GetParam().area.value_or(Area{0, 0, ours.width(), ours.height()});
  const Image crop = test::cropped(ours, area);
  const test::ColourDifference d = test::deltaE(crop, test::referenceDecode(*file, area));
  EXPECT_LT(d.mean, 0.5);
  EXPECT_LT(d.max, 3.0);
  const FloatPixels pixels = crop.readPixels();
  EXPECT_EQ(*std::min_element(pixels.values.begin(), pixels.values.end()) < -0.001f,
            GetParam().widerThanSrgb);
}

INSTANTIATE_TEST_SUITE_P(
    SharedPhotos, RealPhotoColours,
    ::testing::Values(RealPhoto{"heic/IMG_3578.heic", Area{1700, 1200, 512, 512}, true},
                      RealPhoto{"camera/sony-a6000-6000x4000.jpg", Area{2700, 1800, 512, 512}},
                      RealPhoto{"phone/IMG_20200608_111614.jpg", Area{1700, 1200, 512, 512}},
                      RealPhoto{"iptc/npm-node-iptc-test1.jpeg"}, RealPhoto{"iptc/npm-node-iptc-test5.jpeg"},
                      RealPhoto{"orientation/Landscape_1.jpg"}, RealPhoto{"orientation/Portrait_6.jpg"},
                      RealPhoto{"png/DJI-FC6310-16bit_srgb8_v4_krita.png"},
                      RealPhoto{"png/HUAWEI-EVA-L09-16bit_srgb8_dt.png"}, RealPhoto{"png/exif2c08.png"}));

// Files in the colour models photos come in, each decoded as libvips' own
// colour management reads it. Names carry libvips' save options.
TEST_F(DecoderTest, ColourModelsMatchAnIndependentColourManagedDecode) {
  const vips::VImage cmyk =
      patches().icc_transform("cmyk", vips::VImage::option()->set("input_profile", "srgb"));
  const vips::VImage grey = patches().colourspace(VIPS_INTERPRETATION_B_W);
  const vips::VImage rgb16 =
      (patches() * 257)
          .cast(VIPS_FORMAT_USHORT)
          .copy(vips::VImage::option()->set("interpretation", VIPS_INTERPRETATION_RGB16));
  const std::pair<std::string, vips::VImage> files[] = {
      {"adobe.jpg[Q=95]", tagged(patches(), iccProfile(ColorSpace::adobeRGB))},
      {"cmyk.jpg[Q=95]", cmyk},
      {"cmyk-untagged.jpg[Q=95,strip]", cmyk},
      {"grey.jpg[strip]", grey},
      {"grey-gamma18.png", tagged(grey, greyGamma18Profile())},
      {"p3-16bit.tif", tagged(rgb16, iccProfile(ColorSpace::displayP3))}};
  for (const auto& [name, image] : files) {
    const auto file = dir / name.substr(0, name.find('['));
    image.write_to_file((dir / name).c_str());
    const test::ColourDifference d =
        test::deltaE(ImageDecoder::decode(file, std::nullopt).image, test::referenceDecode(file));
    EXPECT_LT(d.mean, 0.5) << name;
    EXPECT_LT(d.max, 2.0) << name;
  }
}

// A profile that is damaged or describes other samples is passed over: the
// picture reads as sRGB, and the decode says so.
TEST_F(DecoderTest, UnusableProfileReadsAsSrgbWithAWarning) {
  std::vector<std::uint8_t> damaged = iccProfile(ColorSpace::displayP3);
  damaged.resize(damaged.size() / 3);
  // The TIFF saver writes any profile it is given.
  patches().tiffsave((dir / "plain.tif").c_str());
  tagged(patches(), damaged).tiffsave((dir / "damaged.tif").c_str());
  tagged(patches(), greyGamma18Profile()).tiffsave((dir / "grey-profile.tif").c_str());
  const DecodedImage plain = ImageDecoder::decode(dir / "plain.tif", std::nullopt);
  EXPECT_EQ(plain.warning, "");
  for (const char* name : {"damaged.tif", "grey-profile.tif"}) {
    const DecodedImage decoded = ImageDecoder::decode(dir / name, std::nullopt);
    EXPECT_EQ(decoded.warning, "the embedded colour profile cannot be used; the colours are read as sRGB");
    EXPECT_LT(test::deltaE(decoded.image, plain.image).max, 1e-3) << name;
  }
}

// Neighbouring 16-bit values stay apart: each is exactly the sRGB curve of
// its own value.
TEST_F(DecoderTest, SixteenBitSamplesKeepTheirPrecision) {
  std::vector<std::uint16_t> ramp(1024 * 3);
  for (std::size_t i = 0; i < ramp.size(); ++i) ramp[i] = std::uint16_t(30000 + i / 3);
  for (const char* name : {"ramp.png", "ramp.tif"}) {
    samples(ramp.data(), 1024, 3, VIPS_FORMAT_USHORT, VIPS_INTERPRETATION_RGB16)
        .write_to_file((dir / name).c_str());
    const FloatPixels pixels = ImageDecoder::decode(dir / name, std::nullopt).image.readPixels();
    for (int x = 0; x < 1024; ++x)
      ASSERT_NEAR(pixels.at(x, 0, 0), decodeTransfer(ColorSpace::sRGB, (30000 + x) / 65535.0), 2e-7) << name;
  }
}

TEST_F(DecoderTest, AlphaIsFlattenedOntoWhite) {
  const std::uint8_t rgba[] = {0, 0, 0, 255, 0, 0, 0, 0, 0, 0, 0, 128};  // black: opaque, clear, half
  samples(rgba, 3, 4, VIPS_FORMAT_UCHAR, VIPS_INTERPRETATION_sRGB).pngsave((dir / "rgba.png").c_str());
  const std::uint16_t greyAlpha[] = {0, 0};  // 16-bit black, fully clear
  samples(greyAlpha, 1, 2, VIPS_FORMAT_USHORT, VIPS_INTERPRETATION_GREY16).pngsave((dir / "ga.png").c_str());
  const FloatPixels rgb = ImageDecoder::decode(dir / "rgba.png", std::nullopt).image.readPixels();
  ASSERT_EQ(rgb.bands, 3);
  EXPECT_NEAR(rgb.at(0, 0, 1), 0, 1e-6);
  EXPECT_NEAR(rgb.at(1, 0, 1), 1, 1e-6);
  EXPECT_NEAR(rgb.at(2, 0, 1), decodeTransfer(ColorSpace::sRGB, 127 / 255.0), 0.005);
  EXPECT_NEAR(ImageDecoder::decode(dir / "ga.png", std::nullopt).image.readPixels().at(0, 0, 2), 1, 1e-6);
}

// ---- geometry ----

// The shared orientation set stores each picture so that it looks upright
// once its orientation is applied: every one must match number 1.
TEST(DecoderOrientation, EveryOrientationLooksUpright) {
  if (!test::sharedPhoto("orientation/Landscape_1.jpg")) GTEST_SKIP() << noShared;
  for (const std::string shape : {"Landscape", "Portrait"}) {
    const Image upright =
        ImageDecoder::decode(*test::sharedPhoto("orientation/" + shape + "_1.jpg"), 60).image;
    for (int orientation = 1; orientation <= 8; ++orientation) {
      SCOPED_TRACE(shape + " " + std::to_string(orientation));
      const auto file =
          *test::sharedPhoto("orientation/" + shape + "_" + std::to_string(orientation) + ".jpg");
      EXPECT_EQ(ImageDecoder::readHeader(file).orientation, orientation);
      const Image image = ImageDecoder::decode(file, 60).image;
      ASSERT_EQ(std::pair(image.width(), image.height()), std::pair(upright.width(), upright.height()));
      // Their profiles differ a little; a wrong turn differs a lot.
      EXPECT_LT(test::deltaE(image, upright).mean, 4.0);
    }
  }
}

struct SizeCase {
  const char* name;
  int width, height, orientation;
  std::optional<int> maxSide;
  int expectedWidth, expectedHeight;
};

class DecodedSizes : public DecoderTest, public ::testing::WithParamInterface<SizeCase> {};

TEST_P(DecodedSizes, AreReducedToMaxSideNeverEnlarged) {
  const SizeCase& c = GetParam();
  test::writePhoto(dir / c.name, c.width, c.height,
                   {.orientation = c.orientation > 1 ? std::optional(c.orientation) : std::nullopt});
  EXPECT_EQ(ImageDecoder::readHeader(dir / c.name).orientedWidth(), c.orientation >= 5 ? c.height : c.width);
  const DecodedImage decoded = ImageDecoder::decode(dir / c.name, c.maxSide);
  EXPECT_EQ(std::pair(decoded.image.width(), decoded.image.height()),
            std::pair(c.expectedWidth, c.expectedHeight));
  EXPECT_EQ(decoded.image.bands(), 3);
  EXPECT_EQ(decoded.warning, "");
}

INSTANTIATE_TEST_SUITE_P(
    Sizes, DecodedSizes,
    ::testing::Values(SizeCase{"a.jpg", 2000, 1000, 1, 500, 500, 250},     // DCT scaling by 4
                      SizeCase{"b.jpg", 2000, 1000, 1, 1990, 1990, 995},   // just below full size
                      SizeCase{"c.jpg", 2000, 1000, 1, 1999, 2000, 1000},  // within 0.1 %: full size
                      SizeCase{"c.jpg", 2000, 1000, 1, 4000, 2000, 1000},  // never enlarged
                      SizeCase{"d.jpg", 2000, 1000, 1, std::nullopt, 2000, 1000},
                      SizeCase{"e.jpg", 2000, 1000, 6, 300, 150, 300},  // turned upright
                      SizeCase{"f.jpg", 301, 7, 1, 100, 100, 2},
                      SizeCase{"g.jpg", 300, 3, 1, 10, 10, 1},  // never below one pixel
                      SizeCase{"h.png", 640, 480, 1, 200, 200, 150},
                      SizeCase{"i.tif", 480, 640, 8, 320, 320, 240},
                      SizeCase{"j.heic", 640, 480, 1, 100, 100, 75},
                      SizeCase{"k.heic", 640, 480, 1, 0, 1, 1}));

// A reduced decode shows the same picture as the full one, scaled. They
// differ in fine detail (DCT scaling, and resampling of the stored, encoded
// samples instead of linear light: about 1.4 on this photo at a tenth of
// its size); a shifted, mirrored or wrongly scaled picture differs by far
// more.
TEST(DecoderSizes, ReducedDecodeMatchesTheFullDecodeScaled) {
  const auto file = test::sharedPhoto("phone/IMG_20200608_111614.jpg");
  if (!file) GTEST_SKIP() << noShared;
  const Image reduced = ImageDecoder::decode(*file, 400).image;
  const vips::VImage full = vipsImage(ImageDecoder::decode(*file, std::nullopt).image);
  const Image scaled = fromVips(full.resize(double(reduced.width()) / full.width()).copy_memory());
  EXPECT_LT(test::deltaE(reduced, scaled).mean, 2.5);
}

// ---- files that are not what they should be ----

TEST_F(DecoderTest, ContentDecidesTheFormatNotTheName) {
  test::writePhoto(dir / "real.png", 40, 30);
  std::filesystem::copy_file(dir / "real.png", dir / "named.jpg");
  EXPECT_EQ(ImageDecoder::readHeader(dir / "named.jpg").format, ImageFormat::png);
  EXPECT_EQ(ImageDecoder::decode(dir / "named.jpg", std::nullopt).image.width(), 40);
}

TEST_F(DecoderTest, UnreadableFilesAreClearErrors) {
  test::writeFile(dir / "text.jpg", "hello, this is not a photo\n");
  test::writeFile(dir / "empty.png", "");
  std::filesystem::create_directory(dir / "folder.jpg");
  ASSERT_EQ(::mkfifo((dir / "fifo.jpg").c_str(), 0600), 0);
  const std::pair<const char*, const char*> cases[] = {
      {"missing.jpg", "cannot open {}: No such file or directory"},
      {"text.jpg", "cannot read {}: not a readable JPEG, PNG, TIFF or HEIF image"},
      {"empty.png", "cannot read {}: empty file"},
      {"folder.jpg", "cannot read {}: not a regular file"},
      {"fifo.jpg", "cannot read {}: not a regular file"}};
  for (const auto& [name, reason] : cases) {
    std::string message = reason;
    message.replace(message.find("{}"), 2, quotedPath(dir / name));
    EXPECT_TRUE(test::throwsWith<ImageError>([&] { ImageDecoder::decode(dir / name, 100); }, message));
  }
}

TEST_F(DecoderTest, AbsurdSizeIsRefusedBeforeAnyPixel) {
  // A PNG whose header claims 100000 × 100000 pixels: its size and CRC
  // patched into a real one.
  test::writePhoto(dir / "small.png", 30, 20);
  std::string png = test::readFile(dir / "small.png");
  for (std::size_t at : {16, 20}) png.replace(at, 4, std::string("\x00\x01\x86\xA0", 4));
  std::uint32_t crc = 0xFFFFFFFF;
  for (std::size_t i = 12; i < 29; ++i) {
    crc ^= std::uint8_t(png[i]);
    for (int k = 0; k < 8; ++k) crc = crc & 1 ? (crc >> 1) ^ 0xEDB88320 : crc >> 1;
  }
  for (int k = 0; k < 4; ++k) png[29 + k] = char(~crc >> (24 - 8 * k));
  test::writeFile(dir / "huge.png", png);
  EXPECT_TRUE(test::throwsWith<ImageError>([&] { ImageDecoder::decode(dir / "huge.png", 100); },
                                           "too large (100000 × 100000 pixels)"));
  EXPECT_TRUE(test::throwsWith<ImageError>(
      [&] { ImageDecoder::readHeader(dir / "small.png", {.maxSide = 25}); }, "too large (30 × 20 pixels)"));
}

// A JPEG cut short shows what it has, as photo viewers do, and says so;
// bytes after a complete one are no damage.
TEST_F(DecoderTest, TruncatedJpegIsShownAsFarAsItGoesWithAWarning) {
  const auto whole = test::sharedPhoto("phone/IMG_20200608_111614.jpg");
  if (!whole) GTEST_SKIP() << noShared;
  const std::string bytes = test::readFile(*whole);
  test::writeFile(dir / "cut.jpg", bytes.substr(0, bytes.size() / 2));
  test::writeFile(dir / "trailer.jpg", bytes + std::string(1000, '\0') + "\xFF\xD8 more");
  for (std::optional<int> maxSide : {std::optional<int>(), std::optional<int>(600)}) {
    const DecodedImage cut = ImageDecoder::decode(dir / "cut.jpg", maxSide);
    const Image complete = ImageDecoder::decode(*whole, maxSide).image;
    EXPECT_EQ(cut.warning, "the file is cut short: only the part that could be read is shown");
    const Area top{0, 0, complete.width(), complete.height() / 5};
    const Area bottom{0, complete.height() * 4 / 5, complete.width(), complete.height() / 5};
    EXPECT_LT(test::deltaE(test::cropped(cut.image, top), test::cropped(complete, top)).mean, 0.5);
    EXPECT_GT(test::deltaE(test::cropped(cut.image, bottom), test::cropped(complete, bottom)).mean, 5);
    EXPECT_EQ(ImageDecoder::decode(dir / "trailer.jpg", maxSide).warning, "");
  }
}

TEST_F(DecoderTest, DamagedFilesFailCleanly) {
  test::writePhoto(dir / "whole.png", 400, 300);
  const std::string png = test::readFile(dir / "whole.png");
  test::writeFile(dir / "cut.png", png.substr(0, png.size() / 2));
  EXPECT_TRUE(test::throwsWith<ImageError>([&] { ImageDecoder::decode(dir / "cut.png", 100); },
                                           "cannot decode " + quotedPath(dir / "cut.png")));
  // Noise in the middle of the compressed data: some picture or an error.
  std::string jpeg = test::jpegBytes(256, 256);
  for (std::size_t i = jpeg.size() / 2; i < jpeg.size() / 2 + 200; ++i) jpeg[i] = char(i * 131);
  test::writeFile(dir / "noise.jpg", jpeg);
  try {
    EXPECT_EQ(ImageDecoder::decode(dir / "noise.jpg", 64).image.width(), 64);
  } catch (const ImageError&) {
  }
}

}  // namespace
