// Header reading of image files: the container's header and the embedded
// EXIF, GPS and IPTC facts, on files the tests write and on real photos.

#include "engine/media/image_properties.h"

#include <gtest/gtest.h>
#include <vips/vips.h>

#include <string>
#include <tuple>

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

TEST(IccProfileTest, ReadsVersion2AndVersion4DescriptionsAndNothingFromDamagedOnes) {
  EXPECT_EQ(description(profileWithDescription(version2Description("sRGB IEC61966-2.1"))),
            "sRGB IEC61966-2.1");
  EXPECT_EQ(description(profileWithDescription(version4Description(
                {{"deDE", u"Anzeige"}, {"enUS", u"Display P3"}, {"frFR", u"\u00c9cran"}}))),
            "Display P3");
  // Without English the first record is used, non-ASCII letters included.
  EXPECT_EQ(description(profileWithDescription(version4Description({{"frFR", u"\u00c9cran \U0001F4F7"}}))),
            "\u00c9cran \U0001F4F7");

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

TEST(ImagePropertiesTest, ReadsEveryFactWrittenIntoAJpeg) {
  test::TempDir dir;
  test::SampleTags tags{.make = "Canon", .model = "Canon EOS R5", .lens = "RF24-70mm F2.8 L IS USM"};
  tags.dateTimeOriginal = "2023:06:01 12:34:56", tags.dateTime = "2023:06:02 08:00:00";
  tags.copyright = "\u00a9 Ada", tags.artist = "Ada", tags.software = "Firmware 1.8";
  tags.exposure = {{1, 250}}, tags.fNumber = {{56, 10}}, tags.focal = {{35, 1}},
  tags.exposureBias = {{-2, 3}};
  tags.iso = 6400, tags.focal35 = 35, tags.flash = 25, tags.whiteBalance = 0, tags.metering = 3;
  tags.orientation = 8, tags.latitude = "37/1 46/1 2964/100", tags.latitudeRef = "S";
  tags.longitude = "122/1 25/1 984/100", tags.longitudeRef = "W", tags.keywords = {"Beach", " Sun "};
  test::writePhoto(dir / "photo.jpg", 120, 80, tags);
  const auto p = readImageProperties(dir / "photo.jpg");
  ASSERT_TRUE(p);
  EXPECT_NEAR(p->latitude.value_or(0), 37 + 46 / 60.0 + 29.64 / 3600, 1e-9);
  EXPECT_NEAR(p->longitude.value_or(0), 122 + 25 / 60.0 + 9.84 / 3600, 1e-9);
  EXPECT_DOUBLE_EQ(p->exposureBias.value_or(0), -2.0 / 3);
  ImageProperties expected{.pixelWidth = 120, .pixelHeight = 80, .orientation = 8, .depth = 8};
  expected.make = "Canon", expected.model = "Canon EOS R5", expected.dateTime = "2023:06:02 08:00:00";
  expected.copyright = "\u00a9 Ada", expected.artist = "Ada", expected.software = "Firmware 1.8";
  expected.lensModel = "RF24-70mm F2.8 L IS USM", expected.dateTimeOriginal = "2023:06:01 12:34:56";
  expected.exposureTime = 0.004, expected.fNumber = 5.6, expected.focalLength = 35,
  expected.focalLength35 = 35;
  expected.exposureBias = p->exposureBias, expected.iso = 6400, expected.flash = 25,
  expected.whiteBalance = 0;
  expected.meteringMode = 3, expected.latitude = p->latitude, expected.longitude = p->longitude;
  expected.latitudeRef = "S", expected.longitudeRef = "W", expected.keywords = {"Beach", " Sun "};
  EXPECT_EQ(*p, expected);
}

// The bit depth is the file's own: 1, 2 and 4-bit files do not decode to
// 8 bits here, and a 10-bit HEIF is not its 16-bit decoding.
TEST(ImagePropertiesTest, ReadsTheSizeDepthAndFactsOfEveryFormatAsStored) {
  test::TempDir dir;
  const test::SampleTags tags{.make = "FUJIFILM", .model = "X-T4", .iso = 160, .keywords = {"harbour"}};
  // HEIF has no IPTC block, so no keywords.
  for (auto [name, bits, keywords] : {std::tuple("a.tif", 8, 1u),
                                      {"b.tiff", 16, 1u},
                                      {"c.tif", 1, 1u},
                                      {"d.tif", 2, 1u},
                                      {"e.tif", 4, 1u},
                                      {"f.png", 8, 1u},
                                      {"g.png", 16, 1u},
                                      {"h.png", 1, 1u},
                                      {"i.png", 2, 1u},
                                      {"j.png", 4, 1u},
                                      {"k.heic", 8, 0u},
                                      {"l.heic", 10, 0u},
                                      {"m.jpg", 8, 1u}}) {
    test::writePhoto(dir / name, 40, 30, tags, bits);
    const auto p = readImageProperties(dir / name);
    ASSERT_TRUE(p) << name;
    EXPECT_EQ(
        std::tuple(p->pixelWidth, p->pixelHeight, p->depth, p->make, p->model, p->iso, p->keywords.size()),
        std::tuple(40, 30, bits, "FUJIFILM", "X-T4", 160, keywords))
        << name;
  }
}

// A HEIF image is stored unturned and carries its rotation and mirroring as
// properties, which decoders apply: the pixel size is the stored one and
// the orientation says how to turn it, whatever order the steps come in.
TEST(ImagePropertiesTest, ReadsAHeifImagesStoredSizeAndItsTransforms) {
  test::TempDir dir;
  using Steps = std::vector<std::pair<char, int>>;
  const std::pair<Steps, int> cases[] = {
      {{}, 1},
      {{{'r', 1}}, 8},  // a quarter turn anticlockwise
      {{{'r', 2}}, 3},
      {{{'r', 3}}, 6},
      {{{'m', 0}}, 2},  // about the vertical axis
      {{{'m', 1}}, 4},  // about the horizontal axis
      {{{'r', 1}, {'m', 0}}, 7},
      {{{'m', 0}, {'r', 1}}, 5},
      {{{'r', 1}, {'m', 1}}, 5},
      {{{'r', 2}, {'m', 1}}, 2},
  };
  for (const auto& [steps, orientation] : cases) {
    test::writeFile(dir / "header.heic",
                    test::heifHeaderBytes({.width = 64, .height = 48, .depth = 10, .transforms = steps}));
    const auto p = readImageProperties(dir / "header.heic");
    ASSERT_TRUE(p) << orientation;
    EXPECT_EQ(std::tuple(p->pixelWidth, p->pixelHeight, p->orientation, p->depth),
              std::tuple(64, 48, orientation, 10))
        << orientation;
  }
}

TEST(ImagePropertiesTest, ReadsRealCameraFilesAsExiftoolDoes) {
  // Values as `exiftool -n` prints them for these files.
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
  EXPECT_EQ(std::tuple(landscape->orientation, landscape->pixelWidth, landscape->profileName),
            std::tuple(6, 450, "Generic RGB Profile"));

  // A version 4 profile in a PNG, and EXIF in a PNG's eXIf chunk.
  auto dji = readImageProperties(test::realPhoto("DJI-FC6310-16bit_srgb8_v4_krita.png"));
  ASSERT_TRUE(dji);
  EXPECT_EQ(dji->profileName, "sRGB-elle-V4-srgbtrc.icc");
  auto exifPng = readImageProperties(test::realPhoto("exif2c08.png"));
  ASSERT_TRUE(exifPng);
  EXPECT_EQ(exifPng->copyright, "2017 Willem van Schaik");
}

// Opening a decoder costs more than reading the rest of a header: JPEG,
// PNG and TIFF headers are read from their own bytes, so they are read even
// with every image loader of vips out of reach.
TEST(ImagePropertiesTest, ReadsJpegPngAndTiffHeadersWithoutADecoder) {
  test::TempDir dir;
  for (const char* name : {"a.jpg", "b.png", "c.tif"})
    test::writePhoto(dir / name, 36, 24, {.model = "X100V"});
  ASSERT_TRUE(readImageProperties(dir / "a.jpg"));  // sets up the libraries first
  vips_operation_block_set("VipsForeignLoad", TRUE);
  for (const char* name : {"a.jpg", "b.png", "c.tif"}) {
    const auto p = readImageProperties(dir / name);
    EXPECT_TRUE(p && std::tuple(p->pixelWidth, p->pixelHeight, p->model) == std::tuple(36, 24, "X100V"))
        << name;
  }
  for (const char* loader :
       {"VipsForeignLoadJpeg", "VipsForeignLoadPng", "VipsForeignLoadTiff", "VipsForeignLoadHeif"}) {
    vips_operation_block_set(loader, FALSE);
  }
}

// Whatever the name says, only JPEG, PNG, TIFF and HEIF content is read,
// and only whole headers: a file cut in its pixels still has one.
TEST(ImagePropertiesTest, RefusesFilesThatAreNoneOfOurImagesButReadsAHeaderBeforeDamage) {
  test::TempDir dir;
  const std::string jpeg = test::jpegBytes(64, 48);
  test::writePhoto(dir / "whole.tif", 64, 48);
  const std::pair<const char*, std::string> files[] = {
      {"empty.jpg", ""},
      {"text.jpg", "This is a shopping list, not a photo.\n"},
      {"stub.jpg", jpeg.substr(0, 20)},  // cut inside the header
      {"cut.tif", test::readFile(dir / "whole.tif").substr(0, 64)},
      {"bitmap.jpg", "P1\n2 2\n0 1\n1 0\n"},  // a PBM image, which vips' ppm loader reads
      {"vector.png", "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"8\" height=\"8\"/>"},
      {"table.tif", "1,2,3\n4,5,6\n"},     // CSV, which vips reads as a one-band image
      {"matrix.heic", "2 2\n1 2\n3 4\n"},  // a vips matrix file
      {"gif.jpeg", "GIF89a\x01\x00\x01\x00\x00\x00\x00;"},
  };
  for (const auto& [name, content] : files) {
    test::writeFile(dir / name, content);
    EXPECT_FALSE(readImageProperties(dir / name)) << name;
  }
  EXPECT_FALSE(readImageProperties(dir / "missing.jpg"));
  EXPECT_FALSE(readImageProperties(dir.path()));
  test::writeFile(dir / "cut.jpg", jpeg.substr(0, jpeg.size() - 200));
  EXPECT_EQ(readImageProperties(dir / "cut.jpg").value_or(ImageProperties{}).pixelWidth, 64);
}
