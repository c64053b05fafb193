#include "engine/media/image_decoder.h"

#include <gtest/gtest.h>
#include <lcms2.h>
#include <sys/stat.h>

#include <cmath>

#include "engine/media/color_space.h"
#include "engine/media/vips_glue.h"
#include "tests/support/color_check.h"
#include "tests/support/errors.h"
#include "tests/support/sample_photos.h"
#include "tests/support/temp_dir.h"

using namespace lumivale;
using test::Area;

namespace {

vips::VImage withProfile(vips::VImage image, const std::vector<std::uint8_t>& profile) {
  image = image.copy();
  vips_image_set_blob_copy(image.get_image(), VIPS_META_ICC_NAME, profile.data(), profile.size());
  return image;
}

// Saturated and neutral patches in 8-bit sRGB, side by side.
vips::VImage patches() {
  initImageLibraries();
  const std::vector<std::vector<double>> colours = {{230, 20, 30},  {20, 200, 40},   {30, 40, 220},
                                                    {250, 220, 10}, {128, 128, 128}, {250, 250, 250},
                                                    {5, 5, 5},      {180, 120, 90}};
  vips::VImage row;
  for (const auto& c : colours) {
    vips::VImage patch =
        vips::VImage::black(16, 16, vips::VImage::option()->set("bands", 3)).new_from_image(c);
    row = row.is_null() ? patch : row.join(patch, VIPS_DIRECTION_HORIZONTAL);
  }
  return row.cast(VIPS_FORMAT_UCHAR)
      .copy(vips::VImage::option()->set("interpretation", VIPS_INTERPRETATION_sRGB));
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

std::uint32_t crc32(const std::string& bytes) {
  std::uint32_t crc = 0xFFFFFFFF;
  for (unsigned char b : bytes) {
    crc ^= b;
    for (int k = 0; k < 8; ++k) crc = crc & 1 ? (crc >> 1) ^ 0xEDB88320 : crc >> 1;
  }
  return ~crc;
}

class DecoderTest : public ::testing::Test {
 protected:
  test::TempDir dir;
};

// ---- colours ----

struct RealPhoto {
  const char* file;
  std::optional<Area> area;  // a centre crop of the large ones
};

class RealPhotoColours : public ::testing::TestWithParam<RealPhoto> {};

// Every shared photo decodes to the colours an independent colour-managed
// decode gives: Display P3 HEIC, tagged and untagged JPEGs, 16-bit PNGs.
TEST_P(RealPhotoColours, MatchAnIndependentColourManagedDecode) {
  const auto file = test::sharedPhoto(GetParam().file);
  if (!file) GTEST_SKIP() << "the shared test photos are not there";
  const Image ours = ImageDecoder::decode(*file, std::nullopt).image;
  const Area area = GetParam().area.value_or(Area{0, 0, ours.width(), ours.height()});
  const test::ColourDifference d =
      test::deltaE(test::cropped(ours, area), test::referenceDecode(*file, area));
  EXPECT_LT(d.mean, 0.5);
  EXPECT_LT(d.max, 3.0);
}

INSTANTIATE_TEST_SUITE_P(
    SharedPhotos, RealPhotoColours,
    ::testing::Values(RealPhoto{"heic/IMG_3578.heic", Area{1700, 1200, 512, 512}},
                      RealPhoto{"camera/sony-a6000-6000x4000.jpg", Area{2700, 1800, 512, 512}},
                      RealPhoto{"phone/IMG_20200608_111614.jpg", Area{1700, 1200, 512, 512}},
                      RealPhoto{"iptc/npm-node-iptc-test1.jpeg"}, RealPhoto{"iptc/npm-node-iptc-test5.jpeg"},
                      RealPhoto{"orientation/Landscape_1.jpg"}, RealPhoto{"orientation/Portrait_6.jpg"},
                      RealPhoto{"png/DJI-FC6310-16bit_srgb8_v4_krita.png"},
                      RealPhoto{"png/HUAWEI-EVA-L09-16bit_srgb8_dt.png"}, RealPhoto{"png/exif2c08.png"}));

// The P3 photo keeps colours outside sRGB instead of clipping them.
TEST(DecoderColours, DisplayP3PhotoKeepsColoursOutsideSrgb) {
  const auto heic = test::sharedPhoto("heic/IMG_3578.heic");
  if (!heic) GTEST_SKIP() << "the shared test photos are not there";
  const Image image = ImageDecoder::decode(*heic, 400).image;
  const FloatPixels pixels = image.readPixels();
  const bool outside =
      std::any_of(pixels.values.begin(), pixels.values.end(), [](float v) { return v < -0.001f; });
  EXPECT_TRUE(outside);
}

// Files made here in the colour models photos come in; each must decode as
// libvips' own colour management reads it.
struct MadeFile {
  const char* name;
  std::function<void(const std::filesystem::path&)> write;
};

class MadeFileColours : public DecoderTest, public ::testing::WithParamInterface<MadeFile> {};

TEST_P(MadeFileColours, MatchAnIndependentColourManagedDecode) {
  const auto file = dir / GetParam().name;
  GetParam().write(file);
  const Image ours = ImageDecoder::decode(file, std::nullopt).image;
  const test::ColourDifference d = test::deltaE(ours, test::referenceDecode(file));
  EXPECT_LT(d.mean, 0.5);
  EXPECT_LT(d.max, 2.0);
}

INSTANTIATE_TEST_SUITE_P(
    ColourModels, MadeFileColours,
    ::testing::Values(
        MadeFile{"adobe.jpg",
                 [](const auto& f) {
                   const auto& adobe = iccProfile(ColorSpace::adobeRGB);
                   test::TempDir profiles;
                   test::writeFile(profiles / "adobe.icc", std::string(adobe.begin(), adobe.end()));
                   patches()
                       .icc_transform((profiles / "adobe.icc").c_str(),
                                      vips::VImage::option()->set("input_profile", "srgb"))
                       .jpegsave(f.c_str(), vips::VImage::option()->set("Q", 95));
                 }},
        MadeFile{"cmyk.jpg",
                 [](const auto& f) {
                   patches()
                       .icc_transform("cmyk", vips::VImage::option()->set("input_profile", "srgb"))
                       .jpegsave(f.c_str(), vips::VImage::option()->set("Q", 95));
                 }},
        MadeFile{"cmyk-untagged.jpg",
                 [](const auto& f) {
                   patches()
                       .icc_transform("cmyk", vips::VImage::option()->set("input_profile", "srgb"))
                       .jpegsave(f.c_str(), vips::VImage::option()->set("Q", 95)->set("strip", true));
                 }},
        MadeFile{"grey.jpg",
                 [](const auto& f) {
                   patches()
                       .colourspace(VIPS_INTERPRETATION_B_W)
                       .jpegsave(f.c_str(), vips::VImage::option()->set("strip", true));
                 }},
        MadeFile{"grey-gamma18.png",
                 [](const auto& f) {
                   withProfile(patches().colourspace(VIPS_INTERPRETATION_B_W), greyGamma18Profile())
                       .pngsave(f.c_str());
                 }},
        MadeFile{"p3-16bit.tif",
                 [](const auto& f) {
                   withProfile(
                       (patches().cast(VIPS_FORMAT_USHORT) * 257)
                           .cast(VIPS_FORMAT_USHORT)
                           .copy(vips::VImage::option()->set("interpretation", VIPS_INTERPRETATION_RGB16)),
                       iccProfile(ColorSpace::displayP3))
                       .tiffsave(f.c_str());
                 }}),
    [](const auto& info) {
      std::string name = info.param.name;
      for (char& c : name)
        if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
      return name;
    });

// A profile that is damaged or describes other samples is passed over: the
// picture reads as sRGB, and the decode says so.
TEST_F(DecoderTest, UnusableProfileReadsAsSrgbWithAWarning) {
  // The TIFF saver writes any profile it is given.
  patches().tiffsave((dir / "plain.tif").c_str());
  std::vector<std::uint8_t> damaged = iccProfile(ColorSpace::displayP3);
  damaged.resize(damaged.size() / 3);
  withProfile(patches(), damaged).tiffsave((dir / "damaged.tif").c_str());
  withProfile(patches(), greyGamma18Profile()).tiffsave((dir / "grey-profile.tif").c_str());
  const Image plain = ImageDecoder::decode(dir / "plain.tif", std::nullopt).image;
  EXPECT_EQ(ImageDecoder::decode(dir / "plain.tif", std::nullopt).warning, "");
  for (const char* name : {"damaged.tif", "grey-profile.tif"}) {
    const DecodedImage decoded = ImageDecoder::decode(dir / name, std::nullopt);
    EXPECT_EQ(decoded.warning, "the embedded colour profile cannot be used; the colours are read as sRGB")
        << name;
    EXPECT_LT(test::deltaE(decoded.image, plain).max, 1e-3) << name;
  }
}

// 16-bit samples keep their precision: neighbouring values stay apart, and
// each is the sRGB curve of its value exactly.
TEST_F(DecoderTest, SixteenBitSamplesKeepTheirPrecision) {
  for (const char* name : {"ramp.png", "ramp.tif"}) {
    SCOPED_TRACE(name);
    std::vector<std::uint16_t> ramp(256 * 4 * 3);
    for (std::size_t i = 0; i < ramp.size(); ++i) ramp[i] = std::uint16_t(30000 + i / 3);
    vips::VImage image =
        vips::VImage::new_from_memory(ramp.data(), ramp.size() * 2, 256, 4, 3, VIPS_FORMAT_USHORT)
            .copy(vips::VImage::option()->set("interpretation", VIPS_INTERPRETATION_RGB16));
    image.write_to_file((dir / name).c_str());
    const FloatPixels pixels = ImageDecoder::decode(dir / name, std::nullopt).image.readPixels();
    for (int x = 0; x < 256 * 4; ++x) {
      const double expected = decodeTransfer(ColorSpace::sRGB, (30000 + x) / 65535.0);
      ASSERT_NEAR(pixels.values[std::size_t(x) * 3], expected, 2e-7) << x;
    }
  }
}

TEST_F(DecoderTest, AlphaIsFlattenedOntoWhite) {
  // Opaque black, transparent black, half-covered black.
  const std::uint8_t rgba[] = {0, 0, 0, 255, 0, 0, 0, 0, 0, 0, 0, 128};
  vips::VImage(
      vips::VImage::new_from_memory(const_cast<std::uint8_t*>(rgba), sizeof rgba, 3, 1, 4, VIPS_FORMAT_UCHAR))
      .copy(vips::VImage::option()->set("interpretation", VIPS_INTERPRETATION_sRGB))
      .pngsave((dir / "rgba.png").c_str());
  const std::uint16_t greyAlpha[] = {65535, 0};  // white under full transparency
  vips::VImage::new_from_memory(const_cast<std::uint16_t*>(greyAlpha), sizeof greyAlpha, 1, 1, 2,
                                VIPS_FORMAT_USHORT)
      .copy(vips::VImage::option()->set("interpretation", VIPS_INTERPRETATION_GREY16))
      .pngsave((dir / "grey-alpha.png").c_str());

  const FloatPixels rgbaPixels = ImageDecoder::decode(dir / "rgba.png", std::nullopt).image.readPixels();
  EXPECT_NEAR(rgbaPixels.at(0, 0, 1), 0, 1e-6);
  EXPECT_NEAR(rgbaPixels.at(1, 0, 1), 1, 1e-6);
  EXPECT_NEAR(rgbaPixels.at(2, 0, 1), decodeTransfer(ColorSpace::sRGB, 127 / 255.0), 0.005);
  EXPECT_EQ(rgbaPixels.bands, 3);
  const FloatPixels grey = ImageDecoder::decode(dir / "grey-alpha.png", std::nullopt).image.readPixels();
  EXPECT_NEAR(grey.at(0, 0, 0), 1, 1e-6);
  EXPECT_NEAR(grey.at(0, 0, 2), 1, 1e-6);
}

// ---- geometry ----

// The shared orientation set stores each picture so that it looks upright
// once its orientation is applied: every one must match number 1.
TEST(DecoderOrientation, EveryOrientationLooksUpright) {
  if (!test::sharedPhoto("orientation/Landscape_1.jpg"))
    GTEST_SKIP() << "the shared test photos are not there";
  for (const std::string shape : {"Landscape", "Portrait"}) {
    const Image upright =
        ImageDecoder::decode(*test::sharedPhoto("orientation/" + shape + "_1.jpg"), 60).image;
    for (int orientation = 1; orientation <= 8; ++orientation) {
      SCOPED_TRACE(shape + " " + std::to_string(orientation));
      const auto file =
          *test::sharedPhoto("orientation/" + shape + "_" + std::to_string(orientation) + ".jpg");
      EXPECT_EQ(ImageDecoder::readHeader(file).orientation, orientation);
      const Image image = ImageDecoder::decode(file, 60).image;
      ASSERT_EQ(image.width(), upright.width());
      ASSERT_EQ(image.height(), upright.height());
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
  const auto file = dir / c.name;
  test::writePhoto(file, c.width, c.height,
                   {.orientation = c.orientation > 1 ? std::optional(c.orientation) : std::nullopt});
  const ImageDecoder::Header header = ImageDecoder::readHeader(file);
  EXPECT_EQ(header.orientedWidth(), c.orientation >= 5 ? c.height : c.width);
  const DecodedImage decoded = ImageDecoder::decode(file, c.maxSide);
  EXPECT_EQ(decoded.image.width(), c.expectedWidth);
  EXPECT_EQ(decoded.image.height(), c.expectedHeight);
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
  if (!file) GTEST_SKIP() << "the shared test photos are not there";
  const Image reduced = ImageDecoder::decode(*file, 400).image;
  const Image full = ImageDecoder::decode(*file, std::nullopt).image;
  const Image scaled = fromVips(vipsImage(full).resize(double(reduced.width()) / full.width()).copy_memory());
  ASSERT_EQ(scaled.width(), reduced.width());
  ASSERT_EQ(scaled.height(), reduced.height());
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

TEST_F(DecoderTest, AbsurdHeaderIsRefusedBeforeAnyPixel) {
  // A PNG that claims 100000 × 100000 pixels and holds two bytes of them.
  auto be32 = [](std::uint32_t v) {
    return std::string{char(v >> 24), char(v >> 16 & 0xFF), char(v >> 8 & 0xFF), char(v & 0xFF)};
  };
  auto chunk = [&](const std::string& type, const std::string& data) {
    return be32(std::uint32_t(data.size())) + type + data + be32(crc32(type + data));
  };
  const std::string png =
      "\x89PNG\r\n\x1A\n" +
      chunk("IHDR", be32(100000) + be32(100000) + std::string("\x08\x02\x00\x00\x00", 5)) +
      chunk("IDAT", "\x78\x9C") + chunk("IEND", "");
  test::writeFile(dir / "huge.png", png);
  EXPECT_TRUE(test::throwsWith<ImageError>([&] { ImageDecoder::decode(dir / "huge.png", 100); },
                                           "too large (100000 × 100000 pixels)"));
  test::writePhoto(dir / "small.jpg", 300, 200);
  EXPECT_TRUE(test::throwsWith<ImageError>(
      [&] { ImageDecoder::readHeader(dir / "small.jpg", {.maxSide = 250}); }, "too large"));
}

// A JPEG cut short shows what it has, as photo viewers do, and says so.
TEST_F(DecoderTest, TruncatedJpegIsShownAsFarAsItGoesWithAWarning) {
  const auto phone = test::sharedPhoto("phone/IMG_20200608_111614.jpg");
  if (!phone) GTEST_SKIP() << "the shared test photos are not there";
  const std::filesystem::path whole = *phone;
  const std::string bytes = test::readFile(whole);
  test::writeFile(dir / "cut.jpg", bytes.substr(0, bytes.size() / 2));
  for (std::optional<int> maxSide : {std::optional<int>(), std::optional<int>(600)}) {
    const DecodedImage cut = ImageDecoder::decode(dir / "cut.jpg", maxSide);
    const Image complete = ImageDecoder::decode(whole, maxSide).image;
    EXPECT_EQ(cut.warning, "the file is cut short: only the part that could be read is shown");
    // The top rows are the picture's own; the bottom ones are not.
    const Area top{0, 0, complete.width(), complete.height() / 5};
    const Area bottom{0, complete.height() * 4 / 5, complete.width(), complete.height() / 5};
    EXPECT_LT(test::deltaE(test::cropped(cut.image, top), test::cropped(complete, top)).mean, 0.5);
    EXPECT_GT(test::deltaE(test::cropped(cut.image, bottom), test::cropped(complete, bottom)).mean, 5);
  }
  EXPECT_EQ(ImageDecoder::decode(whole, 600).warning, "");
}

TEST_F(DecoderTest, TrailingBytesAfterACompleteJpegAreNoDamage) {
  test::writeFile(dir / "trailer.jpg", test::jpegBytes(64, 48) + std::string(1000, '\0') + "\xFF\xD8 more");
  EXPECT_EQ(ImageDecoder::decode(dir / "trailer.jpg", std::nullopt).warning, "");
}

TEST_F(DecoderTest, DamagedFilesFailCleanly) {
  test::writePhoto(dir / "whole.png", 400, 300);
  const std::string png = test::readFile(dir / "whole.png");
  test::writeFile(dir / "cut.png", png.substr(0, png.size() / 2));
  EXPECT_TRUE(test::throwsWith<ImageError>([&] { ImageDecoder::decode(dir / "cut.png", 100); },
                                           "cannot decode " + quotedPath(dir / "cut.png")));
  test::writeFile(dir / "header.jpg", "\xFF\xD8\xFF\xE0 garbage");
  EXPECT_TRUE(test::throwsWith<ImageError>([&] { ImageDecoder::readHeader(dir / "header.jpg"); },
                                           "not a readable JPEG, PNG, TIFF or HEIF image"));
  // Noise in the middle of the compressed data: some picture, no crash.
  std::string jpeg = test::jpegBytes(256, 256);
  for (std::size_t i = jpeg.size() / 2; i < jpeg.size() / 2 + 200; ++i) jpeg[i] = char(i * 131);
  test::writeFile(dir / "noise.jpg", jpeg);
  try {
    EXPECT_EQ(ImageDecoder::decode(dir / "noise.jpg", 64).image.width(), 64);
  } catch (const ImageError&) {
  }
}

}  // namespace
