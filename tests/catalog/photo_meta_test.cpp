// PhotoMeta and RawPreview on whole files: synthetic DNGs that LibRaw reads,
// images written with vips and exiv2, real photos, and damaged files.

#include "engine/catalog/photo_meta.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "engine/media/raw_preview.h"
#include "tests/catalog/meta_helpers.h"
#include "tests/support/sample_photos.h"
#include "tests/support/temp_dir.h"

using namespace lumivale;

TEST(RawPreviewTest, ReadsTheFactsTurnsTheSizeAndListsTheEmbeddedPreview) {
  test::TempDir dir;
  test::SampleDng dng{.width = 96, .height = 64, .make = "NIKON CORPORATION", .model = "NIKON Z 6"};
  dng.lens = "NIKKOR Z 24-70mm f/4 S", dng.exposure = {1, 250}, dng.fNumber = {4, 1}, dng.iso = 1600;
  dng.focal = {48, 1}, dng.dateTimeOriginal = "2022:12:24 18:30:05";
  test::writeDng(dir / "a.dng", dng);
  // The maker and model as the file spells them, not LibRaw's short forms.
  RawInfo expected{
      .make = "NIKON CORPORATION", .model = "NIKON Z 6", .lens = "NIKKOR Z 24-70mm f/4 S", .iso = 1600};
  expected.exposure = 0.004, expected.fNumber = 4, expected.focal = 48,
  expected.dateOriginal = "2022:12:24 18:30:05";
  expected.width = 96, expected.height = 64;
  EXPECT_EQ(RawPreview::info(dir / "a.dng"), expected);

  test::writeDng(dir / "b.dng",
                 {.width = 96, .height = 64, .orientation = 6, .previewWidth = 320, .previewHeight = 240});
  const auto info = RawPreview::info(dir / "b.dng");
  ASSERT_TRUE(info);
  EXPECT_EQ(std::tuple(info->orientation, info->width, info->height), std::tuple(6, 64, 96));
  ASSERT_EQ(info->previews.size(), 1u);  // both readers found it; listed once
  const EmbeddedPreview* preview = info->largestPreview();
  ASSERT_NE(preview, nullptr);
  EXPECT_EQ(std::tuple(preview->format, preview->width, preview->height),
            std::tuple(EmbeddedPreview::Format::jpeg, 320, 240));
  // The offset and length locate a whole JPEG stream inside the file.
  const std::string bytes = test::readFile(dir / "b.dng");
  ASSERT_GT(preview->offset, 0);
  ASSERT_LE(preview->offset + preview->length, static_cast<std::int64_t>(bytes.size()));
  EXPECT_EQ(bytes.substr(preview->offset, 2), "\xff\xd8");
  EXPECT_EQ(bytes.substr(preview->offset + preview->length - 2, 2), "\xff\xd9");

  // The date text as the file stores it, even an hour that the local clock
  // skipped when summer time began.
  test::TimeZone berlin("CET-1CEST,M3.5.0,M10.5.0/3");
  test::writeDng(dir / "c.dng", {.dateTimeOriginal = "2023:03:26 02:30:00"});
  EXPECT_EQ(RawPreview::info(dir / "c.dng").value_or(RawInfo{}).dateOriginal, "2023:03:26 02:30:00");
}

TEST(RawPreviewTest, ReadsATiffBasedRawWithoutDngTags) {
  // exiftool reports this file as PENTAX / PENTAX K-1, 96x64, Rotate 90 CW.
  test::TempDir dir;
  test::SampleDng pef{
      .width = 96, .height = 64, .make = "PENTAX", .model = "PENTAX K-1", .exposure = {1, 320}};
  pef.fNumber = {71, 10}, pef.orientation = 6, pef.dngTags = false;
  test::writeDng(dir / "IMGP0001.PEF", pef);
  const auto info = RawPreview::info(dir / "IMGP0001.PEF");
  ASSERT_TRUE(info);
  EXPECT_EQ(std::tuple(info->make, info->model, info->width, info->height),
            std::tuple("PENTAX", "PENTAX K-1", 64, 96));
  EXPECT_DOUBLE_EQ(info->exposure, 1.0 / 320);
  EXPECT_DOUBLE_EQ(info->fNumber, 7.1);
  EXPECT_EQ(PhotoMeta::read(dir / "IMGP0001.PEF").value_or(PhotoMeta{}).camera, "PENTAX K-1");
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

TEST(PhotoMetaTest, ReadsADngFromItsContainerAndARawNamedJpegAsAnImage) {
  test::TempDir dir;
  test::writeDng(dir / "IMG_0001.DNG",
                 {.width = 80, .height = 60, .make = "Canon", .model = "Canon EOS R5", .orientation = 8});
  const auto meta = PhotoMeta::read(dir / "IMG_0001.DNG");
  ASSERT_TRUE(meta);
  EXPECT_EQ(std::tuple(meta->camera, meta->width, meta->height, meta->iso),
            std::tuple("Canon EOS R5", 60, 80, 400));
  EXPECT_EQ(meta->capture, exifDate("2023:06:01 12:34:56"));
  EXPECT_EQ(meta->fileSize, static_cast<std::int64_t>(std::filesystem::file_size(dir / "IMG_0001.DNG")));
  const auto rows = PhotoMeta::details(dir / "IMG_0001.DNG");
  ASSERT_FALSE(rows.empty());
  EXPECT_EQ(rows.front(), (DetailRow{"Camera make", "Canon"}));
  EXPECT_EQ(test::valueOf(rows, "Sensor size"), "60 \u00d7 80");
  EXPECT_EQ(rows.back(), (DetailRow{"File type", "RAW (DNG)"}));

  // A .cr2 that holds a JPEG: the RAW reader fails, the image reader works.
  test::writePhoto(dir / "fake.jpg", 48, 32, {.make = "Canon", .model = "Canon EOS 5D"});
  std::filesystem::rename(dir / "fake.jpg", dir / "fake.cr2");
  const auto fake = PhotoMeta::read(dir / "fake.cr2");
  ASSERT_TRUE(fake);
  EXPECT_EQ(std::pair(fake->camera, fake->width), std::pair(std::string("Canon EOS 5D"), 48));
  EXPECT_EQ(test::valueOf(PhotoMeta::details(dir / "fake.cr2"), "Pixel size"), "48 \u00d7 32");
  EXPECT_FALSE(test::valueOf(PhotoMeta::details(dir / "fake.cr2"), "File type"));
}

TEST(PhotoMetaTest, ShowsTurnedPhotosTheWayTheyLookUpright) {
  test::TempDir dir;
  test::writePhoto(dir / "turned.jpg", 120, 80, {.orientation = 6, .keywords = {"  Egret ", "", "Marsh"}});
  const auto meta = PhotoMeta::read(dir / "turned.jpg");
  ASSERT_TRUE(meta);
  EXPECT_EQ(std::pair(meta->width, meta->height), std::pair(80, 120));
  EXPECT_EQ(meta->keywords, (std::vector<std::string>{"Egret", "Marsh"}));
  // Real files: each looks upright once turned.
  for (auto [name, width, height] : {std::tuple("Landscape_1.jpg", 600, 450),
                                     {"Landscape_6.jpg", 600, 450},
                                     {"Portrait_8.jpg", 450, 600}}) {
    const auto real = PhotoMeta::read(test::realPhoto(name));
    ASSERT_TRUE(real) << name;
    EXPECT_EQ(std::pair(real->width, real->height), std::pair(width, height)) << name;
  }
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
    const auto meta = PhotoMeta::read(test::realPhoto(c.name));
    ASSERT_TRUE(meta) << c.name;
    EXPECT_EQ(std::tuple(meta->camera, meta->lens, meta->iso, meta->capture, meta->width, meta->height),
              std::tuple(c.camera, c.lens, c.iso, exifDate(c.taken), c.width, c.height))
        << c.name;
    EXPECT_NEAR(meta->shutter, c.shutter, 1e-9) << c.name;
    EXPECT_NEAR(meta->aperture, c.aperture, 1e-9) << c.name;
    EXPECT_NEAR(meta->focal, c.focal, 1e-9) << c.name;
  }
  auto egret = PhotoMeta::read(test::realPhoto("npm-node-iptc-test5.jpeg"));
  ASSERT_TRUE(egret);
  EXPECT_EQ(egret->keywords.size(), 13u);
  EXPECT_EQ(egret->keywords.back(), "waders");
}

TEST(PhotoMetaTest, DetailsOfARealPhotoFollowTheTable) {
  auto rows = PhotoMeta::details(test::realPhoto("npm-node-iptc-test2.jpeg"));
  EXPECT_EQ(test::joined(rows),
            "Camera make: NIKON CORPORATION; Camera model: NIKON D800; Lens: 50.0 mm f/1.8; "
            "Taken: 2014:01:01 17:13:12; Shutter speed: 13.0 s; Aperture: f/9.0; ISO: 125; "
            "Focal length: 50 mm; 35 mm equivalent: 50 mm; Exposure compensation: +0.0 EV; "
            "Flash: Did not fire; White balance: Auto; Metering: 5; Pixel size: 100 \u00d7 188; "
            "Color profile: sRGB IEC61966-2.1; Bit depth: 8; "
            "Copyright: Norbert Nagel / Wikimedia Commons; Artist: Norbert Nagel; "
            "GPS: 50.10924\u00b0 N, 8.65296\u00b0 E");
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
