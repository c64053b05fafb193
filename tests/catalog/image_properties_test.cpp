// Header reading of image files: the decoder's header and the embedded
// EXIF, GPS and IPTC facts, on files the tests write and on real photos.

#include "engine/catalog/image_properties.h"

#include <gtest/gtest.h>

#include <string>

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

std::string photo(const std::string& name) { return std::string(LUMIVALE_TEST_DATA) + "/photos/" + name; }

}  // namespace

TEST(IccProfileTest, ReadsVersion2AndVersion4Descriptions) {
  EXPECT_EQ(description(profileWithDescription(version2Description("sRGB IEC61966-2.1"))), "sRGB IEC61966-2.1");
  EXPECT_EQ(description(profileWithDescription(
                version4Description({{"deDE", u"Anzeige"}, {"enUS", u"Display P3"}, {"frFR", u"\u00c9cran"}}))),
            "Display P3");
  // Without English the first record is used, non-ASCII letters included.
  EXPECT_EQ(description(profileWithDescription(version4Description({{"frFR", u"\u00c9cran \U0001F4F7"}}))),
            "\u00c9cran \U0001F4F7");
}

TEST(IccProfileTest, GivesNothingForDamagedProfiles) {
  std::string good = profileWithDescription(version2Description("Camera RGB"));
  EXPECT_EQ(description(""), "");
  EXPECT_EQ(description(good.substr(0, 100)), "");  // cut inside the header
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
  EXPECT_EQ(utf8FromLegacyText("\xc3("), "\u00c3(");  // a lead byte without its continuation
  EXPECT_EQ(utf8FromLegacyText(""), "");
}

TEST(ImagePropertiesTest, ReadsEveryFactWrittenIntoAJpeg) {
  test::TempDir dir;
  test::SampleTags tags;
  tags.make = "Canon";
  tags.model = "Canon EOS R5";
  tags.lens = "RF24-70mm F2.8 L IS USM";
  tags.dateTimeOriginal = "2023:06:01 12:34:56";
  tags.dateTime = "2023:06:02 08:00:00";
  tags.exposure = test::Rational{1, 250};
  tags.fNumber = test::Rational{56, 10};
  tags.focal = test::Rational{35, 1};
  tags.exposureBias = test::Rational{-2, 3};
  tags.iso = 6400;
  tags.focal35 = 35;
  tags.flash = 25;
  tags.whiteBalance = 0;
  tags.metering = 3;
  tags.orientation = 8;
  tags.copyright = "\u00a9 Ada";
  tags.artist = "Ada";
  tags.software = "Firmware 1.8";
  tags.latitude = "37/1 46/1 2964/100";
  tags.latitudeRef = "S";
  tags.longitude = "122/1 25/1 984/100";
  tags.longitudeRef = "W";
  tags.keywords = {"Beach", " Sun "};
  auto file = dir / "photo.jpg";
  test::writePhoto(file, 120, 80, tags);

  auto p = readImageProperties(file);
  ASSERT_TRUE(p);
  EXPECT_EQ(p->pixelWidth, 120);
  EXPECT_EQ(p->pixelHeight, 80);
  EXPECT_EQ(p->orientation, 8);
  EXPECT_EQ(p->depth, 8);
  EXPECT_EQ(p->make, "Canon");
  EXPECT_EQ(p->model, "Canon EOS R5");
  EXPECT_EQ(p->lensModel, "RF24-70mm F2.8 L IS USM");
  EXPECT_EQ(p->dateTimeOriginal, "2023:06:01 12:34:56");
  EXPECT_EQ(p->dateTime, "2023:06:02 08:00:00");
  EXPECT_DOUBLE_EQ(p->exposureTime.value_or(0), 0.004);
  EXPECT_DOUBLE_EQ(p->fNumber.value_or(0), 5.6);
  EXPECT_DOUBLE_EQ(p->focalLength.value_or(0), 35);
  EXPECT_DOUBLE_EQ(p->exposureBias.value_or(0), -2.0 / 3);
  EXPECT_EQ(p->iso, 6400);
  EXPECT_EQ(p->focalLength35, 35);
  EXPECT_EQ(p->flash, 25);
  EXPECT_EQ(p->whiteBalance, 0);
  EXPECT_EQ(p->meteringMode, 3);
  EXPECT_EQ(p->copyright, "\u00a9 Ada");
  EXPECT_EQ(p->artist, "Ada");
  EXPECT_EQ(p->software, "Firmware 1.8");
  EXPECT_NEAR(p->latitude.value_or(0), 37 + 46 / 60.0 + 29.64 / 3600, 1e-9);
  EXPECT_NEAR(p->longitude.value_or(0), 122 + 25 / 60.0 + 9.84 / 3600, 1e-9);
  EXPECT_EQ(p->latitudeRef, "S");
  EXPECT_EQ(p->longitudeRef, "W");
  EXPECT_EQ(p->keywords, (std::vector<std::string>{"Beach", " Sun "}));
}

TEST(ImagePropertiesTest, ReadsTiffPngAndHeic) {
  test::TempDir dir;
  test::SampleTags tags;
  tags.make = "FUJIFILM";
  tags.model = "X-T4";
  tags.iso = 160;
  tags.keywords = {"harbour"};
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
  auto d800 = readImageProperties(photo("npm-node-iptc-test2.jpeg"));
  ASSERT_TRUE(d800);
  EXPECT_EQ(d800->make, "NIKON CORPORATION");
  EXPECT_EQ(d800->model, "NIKON D800");
  EXPECT_EQ(d800->lensModel, "50.0 mm f/1.8");
  EXPECT_DOUBLE_EQ(d800->exposureTime.value_or(0), 13);
  EXPECT_DOUBLE_EQ(d800->fNumber.value_or(0), 9);
  EXPECT_EQ(d800->iso, 125);
  EXPECT_EQ(d800->dateTimeOriginal, "2014:01:01 17:13:12");
  EXPECT_EQ(d800->profileName, "sRGB IEC61966-2.1");
  EXPECT_EQ(d800->pixelWidth, 100);
  EXPECT_EQ(d800->pixelHeight, 188);
  EXPECT_NEAR(d800->latitude.value_or(0), 50.1092416666667, 1e-9);
  EXPECT_NEAR(d800->longitude.value_or(0), 8.652955, 1e-9);

  auto egret = readImageProperties(photo("npm-node-iptc-test5.jpeg"));
  ASSERT_TRUE(egret);
  EXPECT_EQ(egret->keywords.size(), 13u);
  EXPECT_EQ(egret->keywords.front(), "Ardea alba");

  auto landscape = readImageProperties(photo("Landscape_6.jpg"));
  ASSERT_TRUE(landscape);
  EXPECT_EQ(landscape->orientation, 6);
  EXPECT_EQ(landscape->pixelWidth, 450);
  EXPECT_EQ(landscape->profileName, "Generic RGB Profile");

  // A version 4 profile in a PNG, and EXIF in a PNG's eXIf chunk.
  auto dji = readImageProperties(photo("DJI-FC6310-16bit_srgb8_v4_krita.png"));
  ASSERT_TRUE(dji);
  EXPECT_EQ(dji->profileName, "sRGB-elle-V4-srgbtrc.icc");
  auto exifPng = readImageProperties(photo("exif2c08.png"));
  ASSERT_TRUE(exifPng);
  EXPECT_EQ(exifPng->copyright, "2017 Willem van Schaik");
}

TEST(ImagePropertiesTest, RefusesFilesThatAreNoImages) {
  test::TempDir dir;
  test::writeFile(dir / "empty.jpg", "");
  test::writeFile(dir / "text.jpg", "This is a shopping list, not a photo.\n");
  std::string jpeg = test::jpegBytes(64, 48);
  test::writeFile(dir / "stub.jpg", jpeg.substr(0, 20));  // cut inside the header
  EXPECT_FALSE(readImageProperties(dir / "empty.jpg"));
  EXPECT_FALSE(readImageProperties(dir / "text.jpg"));
  EXPECT_FALSE(readImageProperties(dir / "stub.jpg"));
  EXPECT_FALSE(readImageProperties(dir / "missing.jpg"));
  EXPECT_FALSE(readImageProperties(dir.path()));  // a folder
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
