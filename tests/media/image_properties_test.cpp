// Header reading of image files: the decoder's header and the embedded
// EXIF, GPS and IPTC facts, on files the tests write and on real photos.

#include "engine/media/image_properties.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/catalog/meta_helpers.h"
#include "tests/support/sample_photos.h"
#include "tests/support/temp_dir.h"

using namespace lumivale;

namespace {

void put32(std::string& s, std::size_t at, std::uint32_t v) {
  if (s.size() < at + 4) s.resize(at + 4);
  for (int i = 0; i < 4; ++i) s[at + i] = static_cast<char>(v >> (24 - 8 * i));
}

// An ICC profile with nothing but a header and one 'desc' tag.
std::string profileWithDescription(const std::string& tag) {
  std::string p(128, '\0');
  p.replace(36, 4, "acsp");
  put32(p, 128, 1);  // one tag
  p.append("desc");
  put32(p, 136, 144);  // at offset 144
  put32(p, 140, static_cast<std::uint32_t>(tag.size()));
  p += tag;
  put32(p, 0, static_cast<std::uint32_t>(p.size()));
  return p;
}

std::string version2Description(const std::string& text) {
  std::string tag = "desc";
  put32(tag, 8, static_cast<std::uint32_t>(text.size() + 1));
  return tag + text + std::string(81, '\0');  // its end, then the Unicode and Macintosh parts, left empty
}

// A version 4 description: (language and country, text) records.
std::string version4Description(const std::vector<std::pair<std::string, std::u16string>>& records) {
  std::string tag = "mluc", texts;
  put32(tag, 8, static_cast<std::uint32_t>(records.size()));
  put32(tag, 12, 12);
  for (const auto& [language, text] : records) {
    std::string record = language, encoded;
    for (char16_t c : text) encoded += {static_cast<char>(c >> 8), static_cast<char>(c & 0xFF)};
    put32(record, 4, static_cast<std::uint32_t>(encoded.size()));
    put32(record, 8, static_cast<std::uint32_t>(16 + 12 * records.size() + texts.size()));
    tag += record;
    texts += encoded;
  }
  return tag + texts;
}

std::string description(const std::string& profile) {
  return iccProfileDescription(reinterpret_cast<const unsigned char*>(profile.data()), profile.size());
}

}  // namespace

TEST(IccProfileTest, ReadsVersion2AndVersion4Descriptions) {
  EXPECT_EQ(description(profileWithDescription(version2Description("sRGB IEC61966-2.1"))),
            "sRGB IEC61966-2.1");
  EXPECT_EQ(description(profileWithDescription(version4Description(
                {{"deDE", u"Anzeige"}, {"enUS", u"Display P3"}, {"frFR", u"\u00c9cran"}}))),
            "Display P3");
  // Without English the first record is used, non-ASCII letters included.
  EXPECT_EQ(description(profileWithDescription(version4Description({{"frFR", u"\u00c9cran \U0001F4F7"}}))),
            "\u00c9cran \U0001F4F7");
}

TEST(IccProfileTest, GivesNothingForDamagedProfiles) {
  const std::string good = profileWithDescription(version2Description("Camera RGB"));
  std::string noSignature = good, hugeCount = good, hugeOffset = good;
  noSignature.replace(36, 4, "xxxx");
  put32(hugeCount, 128, 0xFFFFFFFF);
  put32(hugeOffset, 136, 0xFFFFFFF0);
  std::string lyingRecords = profileWithDescription(version4Description({{"enUS", u"P3"}}));
  put32(lyingRecords, 144 + 8, 1000000);  // more records than bytes
  for (const std::string& profile : {std::string(), good.substr(0, 100) /* cut inside the header */,
                                     good.substr(0, good.size() - 60) /* cut inside the tag */, noSignature,
                                     hugeCount, hugeOffset, lyingRecords})
    EXPECT_EQ(description(profile), "") << profile.size();
  EXPECT_EQ(iccProfileDescription(nullptr, 500), "");
}


TEST(ImagePropertiesTest, ReadsEveryFactWrittenIntoAJpegTiffPngAndHeic) {
  test::TempDir dir;
  test::SampleTags tags{.make = "Canon", .model = "Canon EOS R5", .lens = "RF24-70mm F2.8 L IS USM"};
  tags.dateTimeOriginal = "2023:06:01 12:34:56", tags.dateTime = "2023:06:02 08:00:00",
  tags.copyright = "\u00a9 Ada";
  tags.artist = "Ada", tags.software = "Firmware 1.8", tags.exposure = {{1, 250}}, tags.fNumber = {{56, 10}};
  tags.focal = {{35, 1}}, tags.exposureBias = {{-2, 3}}, tags.iso = 6400, tags.focal35 = 35, tags.flash = 25;
  tags.whiteBalance = 0, tags.metering = 3, tags.orientation = 8, tags.latitude = "37/1 46/1 2964/100";
  tags.latitudeRef = "S", tags.longitude = "122/1 25/1 984/100", tags.longitudeRef = "W";
  tags.keywords = {"Beach", " Sun "};
  test::writePhoto(dir / "photo.jpg", 120, 80, tags);
  const auto p = readImageProperties(dir / "photo.jpg");
  ASSERT_TRUE(p);
  EXPECT_NEAR(p->latitude.value_or(0), 37 + 46 / 60.0 + 29.64 / 3600, 1e-9);
  EXPECT_NEAR(p->longitude.value_or(0), 122 + 25 / 60.0 + 9.84 / 3600, 1e-9);
  EXPECT_DOUBLE_EQ(p->exposureBias.value_or(0), -2.0 / 3);
  ImageProperties expected{
      .pixelWidth = 120, .pixelHeight = 80, .orientation = 8, .depth = 8, .make = "Canon"};
  expected.model = "Canon EOS R5", expected.dateTime = "2023:06:02 08:00:00",
  expected.copyright = "\u00a9 Ada";
  expected.artist = "Ada", expected.software = "Firmware 1.8", expected.lensModel = "RF24-70mm F2.8 L IS USM";
  expected.dateTimeOriginal = "2023:06:01 12:34:56", expected.exposureTime = 0.004, expected.fNumber = 5.6;
  expected.focalLength = 35, expected.focalLength35 = 35, expected.exposureBias = p->exposureBias,
  expected.iso = 6400;
  expected.flash = 25, expected.whiteBalance = 0, expected.meteringMode = 3, expected.latitude = p->latitude;
  expected.longitude = p->longitude, expected.latitudeRef = "S", expected.longitudeRef = "W";
  expected.keywords = {"Beach", " Sun "};
  EXPECT_EQ(*p, expected);

  // HEIF has no IPTC block, so no keywords.
  const test::SampleTags some{.make = "FUJIFILM", .model = "X-T4", .iso = 160, .keywords = {"harbour"}};
  for (auto [name, bits, keywords] : {std::tuple("a.tif", 8, 1u),
                                      {"b.tiff", 16, 1u},
                                      {"c.png", 8, 1u},
                                      {"d.png", 16, 1u},
                                      {"e.heic", 8, 0u},
                                      {"f.heic", 10, 0u}}) {
    test::writePhoto(dir / name, 40, 30, some, bits);
    const auto q = readImageProperties(dir / name);
    ASSERT_TRUE(q) << name;
    EXPECT_EQ(
        std::tuple(q->pixelWidth, q->pixelHeight, q->depth, q->make, q->model, q->iso, q->keywords.size()),
        std::tuple(40, 30, bits, "FUJIFILM", "X-T4", 160, keywords))
        << name;
  }
}

TEST(ImagePropertiesTest, ReadsRealCameraFilesAsExiftoolDoes) {
  // Values as `exiftool -n` prints them for these files.
  // The info panel test shows the rest of this file's facts.
  auto d800 = readImageProperties(test::realPhoto("npm-node-iptc-test2.jpeg"));
  ASSERT_TRUE(d800);
  EXPECT_DOUBLE_EQ(d800->exposureTime.value_or(0), 13);
  EXPECT_DOUBLE_EQ(d800->fNumber.value_or(0), 9);
  EXPECT_NEAR(d800->latitude.value_or(0), 50.1092416666667, 1e-9);
  EXPECT_NEAR(d800->longitude.value_or(0), 8.652955, 1e-9);

  auto egret = readImageProperties(test::realPhoto("npm-node-iptc-test5.jpeg"));
  ASSERT_TRUE(egret);
  EXPECT_EQ(egret->keywords.size(), 13u);
  EXPECT_EQ(egret->keywords.front(), "Ardea alba");

  auto landscape = readImageProperties(test::realPhoto("Landscape_6.jpg"));
  ASSERT_TRUE(landscape);
  EXPECT_EQ(landscape->orientation, 6);
  EXPECT_EQ(landscape->pixelWidth, 450);
  EXPECT_EQ(landscape->profileName, "Generic RGB Profile");

  // A version 4 profile in a PNG, and EXIF in a PNG's eXIf chunk.
  auto dji = readImageProperties(test::realPhoto("DJI-FC6310-16bit_srgb8_v4_krita.png"));
  ASSERT_TRUE(dji);
  EXPECT_EQ(dji->profileName, "sRGB-elle-V4-srgbtrc.icc");
  auto exifPng = readImageProperties(test::realPhoto("exif2c08.png"));
  ASSERT_TRUE(exifPng);
  EXPECT_EQ(exifPng->copyright, "2017 Willem van Schaik");
}

// A file cut in its pixels still has a complete header, so it is described
// as the decoders see it; only decoding the pixels would find the damage.
TEST(ImagePropertiesTest, RefusesFilesThatAreNoImagesButReadsAHeaderBeforeDamage) {
  test::TempDir dir;
  const std::string jpeg = test::jpegBytes(64, 48);
  test::writeFile(dir / "empty.jpg", "");
  test::writeFile(dir / "text.jpg", "This is a shopping list, not a photo.\n");
  test::writeFile(dir / "stub.jpg", jpeg.substr(0, 20));  // cut inside the header
  test::writePhoto(dir / "whole.tif", 64, 48);
  test::writeFile(dir / "cut.tif", test::readFile(dir / "whole.tif").substr(0, 64));
  for (const char* name : {"empty.jpg", "text.jpg", "stub.jpg", "cut.tif", "missing.jpg", ""})
    EXPECT_FALSE(readImageProperties(dir / name)) << name;  // "": the folder itself
  test::writeFile(dir / "cut.jpg", jpeg.substr(0, jpeg.size() - 200));
  const auto p = readImageProperties(dir / "cut.jpg");
  ASSERT_TRUE(p);
  EXPECT_EQ(p->pixelWidth, 64);
}
