// PhotoMeta and RawPreview on whole files: synthetic DNGs that LibRaw reads,
// images written with vips and exiv2, real photos, and damaged files.

#include "engine/catalog/photo_meta.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "engine/catalog/raw_preview.h"
#include "tests/catalog/meta_helpers.h"
#include "tests/support/sample_photos.h"
#include "tests/support/temp_dir.h"

using namespace lumivale;

TEST(RawPreviewTest, ReadsTheFactsOfASyntheticDng) {
  test::TempDir dir;
  test::writeDng(dir / "a.dng", {.width = 96,
                                 .height = 64,
                                 .make = "NIKON CORPORATION",
                                 .model = "NIKON Z 6",
                                 .lens = "NIKKOR Z 24-70mm f/4 S",
                                 .exposure = {1, 250},
                                 .fNumber = {4, 1},
                                 .iso = 1600,
                                 .focal = {48, 1},
                                 .dateTimeOriginal = "2022:12:24 18:30:05"});
  // The maker and model as the file spells them, not LibRaw's short forms.
  EXPECT_EQ(RawPreview::info(dir / "a.dng"), (RawInfo{.make = "NIKON CORPORATION",
                                                      .model = "NIKON Z 6",
                                                      .lens = "NIKKOR Z 24-70mm f/4 S",
                                                      .iso = 1600,
                                                      .exposure = 0.004,
                                                      .fNumber = 4,
                                                      .focal = 48,
                                                      .dateOriginal = "2022:12:24 18:30:05",
                                                      .width = 96,
                                                      .height = 64}));
}

TEST(RawPreviewTest, TurnsTheSizeAndListsTheEmbeddedPreview) {
  test::TempDir dir;
  test::writeDng(dir / "b.dng",
                 {.width = 96, .height = 64, .orientation = 6, .previewWidth = 320, .previewHeight = 240});

  auto info = RawPreview::info(dir / "b.dng");
  ASSERT_TRUE(info);
  EXPECT_EQ(info->orientation, 6);
  EXPECT_EQ(info->width, 64);
  EXPECT_EQ(info->height, 96);
  ASSERT_EQ(info->previews.size(), 1u);  // both readers found it; listed once
  const EmbeddedPreview* preview = info->largestPreview();
  ASSERT_NE(preview, nullptr);
  EXPECT_EQ(preview->format, EmbeddedPreview::Format::jpeg);
  EXPECT_EQ(preview->width, 320);
  EXPECT_EQ(preview->height, 240);
  // The offset and length locate a whole JPEG stream inside the file.
  std::string bytes = test::readFile(dir / "b.dng");
  ASSERT_GT(preview->offset, 0);
  ASSERT_LE(preview->offset + preview->length, static_cast<std::int64_t>(bytes.size()));
  EXPECT_EQ(bytes.substr(preview->offset, 2), "\xff\xd8");
  EXPECT_EQ(bytes.substr(preview->offset + preview->length - 2, 2), "\xff\xd9");
}

TEST(RawPreviewTest, ReadsATiffBasedRawWithoutDngTags) {
  // exiftool reports this file as PENTAX / PENTAX K-1, 96x64, Rotate 90 CW.
  test::TempDir dir;
  test::writeDng(dir / "IMGP0001.PEF", {.width = 96,
                                        .height = 64,
                                        .make = "PENTAX",
                                        .model = "PENTAX K-1",
                                        .exposure = {1, 320},
                                        .fNumber = {71, 10},
                                        .orientation = 6,
                                        .dngTags = false});
  auto info = RawPreview::info(dir / "IMGP0001.PEF");
  ASSERT_TRUE(info);
  EXPECT_EQ(info->make, "PENTAX");
  EXPECT_EQ(info->model, "PENTAX K-1");
  EXPECT_EQ(info->width, 64);
  EXPECT_EQ(info->height, 96);
  EXPECT_DOUBLE_EQ(info->exposure, 1.0 / 320);
  EXPECT_DOUBLE_EQ(info->fNumber, 7.1);
  auto meta = PhotoMeta::read(dir / "IMGP0001.PEF");
  ASSERT_TRUE(meta);
  EXPECT_EQ(meta->camera, "PENTAX K-1");
}

TEST(RawPreviewTest, GivesNothingForFilesThatAreNoRawContainers) {
  test::TempDir dir;
  test::writeFile(dir / "empty.nef", "");
  test::writeFile(dir / "text.cr2", "not a raw file at all\n");
  test::writeFile(dir / "jpeg.cr2", test::jpegBytes(32, 32));
  test::writeDng(dir / "whole.dng");
  std::string whole = test::readFile(dir / "whole.dng");
  test::writeFile(dir / "cut.dng", whole.substr(0, 16));
  for (const char* name : {"empty.nef", "text.cr2", "cut.dng", "missing.arw"}) {
    EXPECT_FALSE(RawPreview::info(dir / name)) << name;
  }
  // LibRaw may recognise a JPEG, but it names no camera model then.
  auto jpeg = RawPreview::info(dir / "jpeg.cr2");
  EXPECT_TRUE(!jpeg || jpeg->model.empty());
}

TEST(PhotoMetaTest, ReadsADngFromItsContainer) {
  test::TempDir dir;
  test::writeDng(dir / "IMG_0001.DNG",
                 {.width = 80, .height = 60, .make = "Canon", .model = "Canon EOS R5", .orientation = 8});

  auto meta = PhotoMeta::read(dir / "IMG_0001.DNG");
  ASSERT_TRUE(meta);
  EXPECT_EQ(meta->camera, "Canon EOS R5");
  EXPECT_EQ(meta->width, 60);
  EXPECT_EQ(meta->height, 80);
  EXPECT_EQ(meta->iso, 400);
  EXPECT_EQ(meta->capture, exifDate("2023:06:01 12:34:56"));
  EXPECT_EQ(meta->fileSize, static_cast<std::int64_t>(std::filesystem::file_size(dir / "IMG_0001.DNG")));

  auto rows = PhotoMeta::details(dir / "IMG_0001.DNG");
  ASSERT_FALSE(rows.empty());
  EXPECT_EQ(rows.front(), (DetailRow{"Camera make", "Canon"}));
  EXPECT_EQ(test::valueOf(rows, "Sensor size"), "60 \u00d7 80");
  EXPECT_EQ(rows.back(), (DetailRow{"File type", "RAW (DNG)"}));
}

TEST(PhotoMetaTest, DescribesARawNamedJpegAsAnImage) {
  // A .cr2 that holds a JPEG: the RAW reader fails, the image reader works.
  test::TempDir dir;
  test::writePhoto(dir / "fake.jpg", 48, 32, {.make = "Canon", .model = "Canon EOS 5D"});
  std::filesystem::rename(dir / "fake.jpg", dir / "fake.cr2");
  auto meta = PhotoMeta::read(dir / "fake.cr2");
  ASSERT_TRUE(meta);
  EXPECT_EQ(meta->camera, "Canon EOS 5D");
  EXPECT_EQ(meta->width, 48);
  auto rows = PhotoMeta::details(dir / "fake.cr2");
  EXPECT_EQ(test::valueOf(rows, "Pixel size"), "48 \u00d7 32");
  EXPECT_FALSE(test::valueOf(rows, "File type"));
}

TEST(PhotoMetaTest, ReadsAPortraitStoredLandscape) {
  test::TempDir dir;
  test::writePhoto(dir / "turned.jpg", 120, 80, {.orientation = 6, .keywords = {"  Egret ", "", "Marsh"}});
  auto meta = PhotoMeta::read(dir / "turned.jpg");
  ASSERT_TRUE(meta);
  EXPECT_EQ(meta->width, 80);
  EXPECT_EQ(meta->height, 120);
  EXPECT_EQ(meta->keywords, (std::vector<std::string>{"Egret", "Marsh"}));

  // Real files: each looks upright once turned, so all are shown landscape.
  for (const char* name : {"Landscape_1.jpg", "Landscape_6.jpg"}) {
    auto real = PhotoMeta::read(test::realPhoto(name));
    ASSERT_TRUE(real) << name;
    EXPECT_EQ(real->width, 600) << name;
    EXPECT_EQ(real->height, 450) << name;
  }
  auto portrait = PhotoMeta::read(test::realPhoto("Portrait_8.jpg"));
  ASSERT_TRUE(portrait);
  EXPECT_EQ(portrait->width, 450);
  EXPECT_EQ(portrait->height, 600);
}

TEST(PhotoMetaTest, MatchesExiftoolOnRealCameraFiles) {
  // Expected values from exiftool for the same files.
  struct Case {
    const char* name;
    const char* camera;
    const char* lens;
    int iso;
    double shutter, aperture, focal;
    const char* taken;
    int width, height;
  };
  const Case cases[] = {
      {"npm-node-iptc-test1.jpeg", "NIKON D300S", "50.0 mm f/1.4", 200, 1.0 / 60, 14, 50,
       "2011:11:19 19:55:44", 100, 151},
      {"npm-node-iptc-test3.jpeg", "NIKON D90", "18.0-105.0 mm f/3.5-5.6", 200, 1.0 / 800, 8, 32,
       "2011:08:15 12:24:54", 100, 71},
      {"npm-node-iptc-test4.jpeg", "Canon EOS-1D X", "EF70-200mm f/2.8L IS II USM", 3200, 1.0 / 500, 4, 110,
       "2016:02:13 20:50:25", 100, 56},
      {"npm-node-iptc-test_no_iptc.jpeg", "Canon EOS 500D", "", 1600, 1.0 / 30, 5, 41, "2012:10:29 14:28:42",
       100, 134},
      {"Nikon-D300-12bit_srgb8_dt.png", "NIKON D300", "", 200, 0.1, 7.1, 50, "2017:01:17 21:27:20", 64, 64},
  };
  for (const Case& c : cases) {
    auto meta = PhotoMeta::read(test::realPhoto(c.name));
    ASSERT_TRUE(meta) << c.name;
    EXPECT_EQ(meta->camera, c.camera) << c.name;
    EXPECT_EQ(meta->lens, c.lens) << c.name;
    EXPECT_EQ(meta->iso, c.iso) << c.name;
    EXPECT_NEAR(meta->shutter, c.shutter, 1e-9) << c.name;
    EXPECT_NEAR(meta->aperture, c.aperture, 1e-9) << c.name;
    EXPECT_NEAR(meta->focal, c.focal, 1e-9) << c.name;
    EXPECT_EQ(meta->capture, exifDate(c.taken)) << c.name;
    EXPECT_EQ(meta->width, c.width) << c.name;
    EXPECT_EQ(meta->height, c.height) << c.name;
  }
  auto egret = PhotoMeta::read(test::realPhoto("npm-node-iptc-test5.jpeg"));
  ASSERT_TRUE(egret);
  EXPECT_EQ(egret->keywords.size(), 13u);
  EXPECT_EQ(egret->keywords.back(), "waders");
}

TEST(PhotoMetaTest, DetailsOfARealPhotoFollowTheTable) {
  auto rows = PhotoMeta::details(test::realPhoto("npm-node-iptc-test2.jpeg"));
  std::vector<DetailRow> expected = {
      {"Camera make", "NIKON CORPORATION"},
      {"Camera model", "NIKON D800"},
      {"Lens", "50.0 mm f/1.8"},
      {"Taken", "2014:01:01 17:13:12"},
      {"Shutter speed", "13.0 s"},
      {"Aperture", "f/9.0"},
      {"ISO", "125"},
      {"Focal length", "50 mm"},
      {"35 mm equivalent", "50 mm"},
      {"Exposure compensation", "+0.0 EV"},
      {"Flash", "Did not fire"},
      {"White balance", "Auto"},
      {"Metering", "5"},
      {"Pixel size", "100 \u00d7 188"},
      {"Color profile", "sRGB IEC61966-2.1"},
      {"Bit depth", "8"},
      {"Copyright", "Norbert Nagel / Wikimedia Commons"},
      {"Artist", "Norbert Nagel"},
      {"GPS", "50.10924\u00b0 N, 8.65296\u00b0 E"},
  };
  EXPECT_EQ(rows, expected);
}

TEST(PhotoMetaTest, GivesNothingForUnreadableFiles) {
  test::TempDir dir;
  test::writeFile(dir / "empty.jpg", "");
  test::writeFile(dir / "text.jpg", "hello");
  test::writeFile(dir / "text.dng", "hello");
  for (const char* name : {"empty.jpg", "text.jpg", "text.dng", "gone.jpg", "gone.nef"}) {
    EXPECT_FALSE(PhotoMeta::read(dir / name)) << name;
    EXPECT_TRUE(PhotoMeta::details(dir / name).empty()) << name;
  }
}
