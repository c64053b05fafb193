// Header reading of image files: the decoder's header and the embedded
// EXIF, GPS and IPTC facts, on files the tests write and on real photos.

#include "engine/catalog/image_properties.h"

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
  tag.append(4, '\0');
  put32(tag, 8, static_cast<std::uint32_t>(text.size() + 1));
  tag += text;
  tag += '\0';
  tag.append(80, '\0');  // the Unicode and Macintosh parts, left empty
  return tag;
}

std::string utf16(const std::u16string& text) {
  std::string out;
  for (char16_t c : text) {
    out += static_cast<char>(c >> 8);
    out += static_cast<char>(c & 0xFF);
  }
  return out;
}

std::string version4Description(const std::vector<std::pair<std::string, std::u16string>>& records) {
  std::string tag = "mluc";
  tag.append(4, '\0');
  put32(tag, 8, static_cast<std::uint32_t>(records.size()));
  put32(tag, 12, 12);
  std::string texts;
  std::size_t textStart = 16 + 12 * records.size();
  for (std::size_t i = 0; i < records.size(); ++i) {
    std::string record = records[i].first;  // language and country, 4 letters
    std::string encoded = utf16(records[i].second);
    record.resize(4);
    put32(record, 4, static_cast<std::uint32_t>(encoded.size()));
    put32(record, 8, static_cast<std::uint32_t>(textStart + texts.size()));
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
  std::string good = profileWithDescription(version2Description("Camera RGB"));
  EXPECT_EQ(description(""), "");
  EXPECT_EQ(description(good.substr(0, 100)), "");               // cut inside the header
  EXPECT_EQ(description(good.substr(0, good.size() - 60)), "");  // cut inside the tag
  std::string noSignature = good;
  noSignature.replace(36, 4, "xxxx");
  EXPECT_EQ(description(noSignature), "");
  std::string hugeCount = good;
  put32(hugeCount, 128, 0xFFFFFFFF);
  EXPECT_EQ(description(hugeCount), "");
  std::string hugeOffset = good;
  put32(hugeOffset, 136, 0xFFFFFFF0);
  EXPECT_EQ(description(hugeOffset), "");
  std::string lyingRecords = profileWithDescription(version4Description({{"enUS", u"P3"}}));
  put32(lyingRecords, 144 + 8, 1000000);  // more records than bytes
  EXPECT_EQ(description(lyingRecords), "");
  EXPECT_EQ(iccProfileDescription(nullptr, 500), "");
}

TEST(LegacyTextTest, KeepsUtf8AndConvertsLatin1) {
  EXPECT_EQ(utf8FromLegacyText("Z\u00fcrich"), "Z\u00fcrich");
  EXPECT_EQ(utf8FromLegacyText("Z\xfcrich"), "Z\u00fcrich");
  EXPECT_EQ(utf8FromLegacyText("caf\xe9"), "caf\u00e9");  // a lone lead byte at the end
  EXPECT_EQ(utf8FromLegacyText("\xc3("), "\u00c3(");      // a lead byte without its continuation
  EXPECT_EQ(utf8FromLegacyText(""), "");
}

TEST(ImagePropertiesTest, ReadsEveryFactWrittenIntoAJpeg) {
  test::TempDir dir;
  test::writePhoto(dir / "photo.jpg", 120, 80,
                   {.make = "Canon",
                    .model = "Canon EOS R5",
                    .lens = "RF24-70mm F2.8 L IS USM",
                    .dateTimeOriginal = "2023:06:01 12:34:56",
                    .dateTime = "2023:06:02 08:00:00",
                    .copyright = "\u00a9 Ada",
                    .artist = "Ada",
                    .software = "Firmware 1.8",
                    .exposure = {{1, 250}},
                    .fNumber = {{56, 10}},
                    .focal = {{35, 1}},
                    .exposureBias = {{-2, 3}},
                    .iso = 6400,
                    .focal35 = 35,
                    .flash = 25,
                    .whiteBalance = 0,
                    .metering = 3,
                    .orientation = 8,
                    .latitude = "37/1 46/1 2964/100",
                    .latitudeRef = "S",
                    .longitude = "122/1 25/1 984/100",
                    .longitudeRef = "W",
                    .keywords = {"Beach", " Sun "}});
  auto p = readImageProperties(dir / "photo.jpg");
  ASSERT_TRUE(p);
  EXPECT_NEAR(p->latitude.value_or(0), 37 + 46 / 60.0 + 29.64 / 3600, 1e-9);
  EXPECT_NEAR(p->longitude.value_or(0), 122 + 25 / 60.0 + 9.84 / 3600, 1e-9);
  EXPECT_DOUBLE_EQ(p->exposureBias.value_or(0), -2.0 / 3);
  const ImageProperties expected{.pixelWidth = 120,
                                 .pixelHeight = 80,
                                 .orientation = 8,
                                 .depth = 8,
                                 .make = "Canon",
                                 .model = "Canon EOS R5",
                                 .dateTime = "2023:06:02 08:00:00",
                                 .copyright = "\u00a9 Ada",
                                 .artist = "Ada",
                                 .software = "Firmware 1.8",
                                 .lensModel = "RF24-70mm F2.8 L IS USM",
                                 .dateTimeOriginal = "2023:06:01 12:34:56",
                                 .exposureTime = 0.004,
                                 .fNumber = 5.6,
                                 .focalLength = 35,
                                 .focalLength35 = 35,
                                 .exposureBias = p->exposureBias,
                                 .iso = 6400,
                                 .flash = 25,
                                 .whiteBalance = 0,
                                 .meteringMode = 3,
                                 .latitude = p->latitude,
                                 .longitude = p->longitude,
                                 .latitudeRef = "S",
                                 .longitudeRef = "W",
                                 .keywords = {"Beach", " Sun "}};
  EXPECT_EQ(*p, expected);
}

TEST(ImagePropertiesTest, ReadsTiffPngAndHeic) {
  test::TempDir dir;
  const test::SampleTags tags{.make = "FUJIFILM", .model = "X-T4", .iso = 160, .keywords = {"harbour"}};
  struct Case {
    const char* name;
    int bits;
    bool keywords;  // HEIF has no IPTC block
  };
  for (const Case& c : {Case{"a.tif", 8, true}, Case{"b.tiff", 16, true}, Case{"c.png", 8, true},
                        Case{"d.png", 16, true}, Case{"e.heic", 8, false}}) {
    auto file = dir / c.name;
    test::writePhoto(file, 40, 30, tags, c.bits);
    auto p = readImageProperties(file);
    ASSERT_TRUE(p) << c.name;
    EXPECT_EQ(p->pixelWidth, 40) << c.name;
    EXPECT_EQ(p->pixelHeight, 30) << c.name;
    EXPECT_EQ(p->depth, c.bits) << c.name;
    EXPECT_EQ(p->make, "FUJIFILM") << c.name;
    EXPECT_EQ(p->model, "X-T4") << c.name;
    EXPECT_EQ(p->iso, 160) << c.name;
    EXPECT_EQ(p->keywords.size(), c.keywords ? 1u : 0u) << c.name;
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

TEST(ImagePropertiesTest, RefusesFilesThatAreNoImages) {
  test::TempDir dir;
  test::writeFile(dir / "empty.jpg", "");
  test::writeFile(dir / "text.jpg", "This is a shopping list, not a photo.\n");
  std::string jpeg = test::jpegBytes(64, 48);
  test::writeFile(dir / "stub.jpg", jpeg.substr(0, 20));  // cut inside the header
  for (const char* name : {"empty.jpg", "text.jpg", "stub.jpg", "missing.jpg", ""}) {
    EXPECT_FALSE(readImageProperties(dir / name)) << name;  // "": the folder itself
  }
}

TEST(ImagePropertiesTest, ReadsTheHeaderOfAFileCutInItsPixels) {
  // The header is complete, so the photo is described as the decoders see
  // it; only decoding the pixels would find the damage.
  test::TempDir dir;
  std::string jpeg = test::jpegBytes(64, 48);
  test::writeFile(dir / "cut.jpg", jpeg.substr(0, jpeg.size() - 200));
  auto p = readImageProperties(dir / "cut.jpg");
  ASSERT_TRUE(p);
  EXPECT_EQ(p->pixelWidth, 64);

  test::writePhoto(dir / "whole.tif", 64, 48);
  std::string tiff = test::readFile(dir / "whole.tif");
  test::writeFile(dir / "cut.tif", tiff.substr(0, 64));
  EXPECT_FALSE(readImageProperties(dir / "cut.tif"));
}
