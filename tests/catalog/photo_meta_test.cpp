// PhotoMeta on whole files: synthetic DNG and CRW files, images written with
// vips and exiv2, real photos, and files it must not read.

#include "engine/catalog/photo_meta.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>

#include "tests/catalog/meta_helpers.h"
#include "tests/support/sample_photos.h"
#include "tests/support/temp_dir.h"

using namespace lumivale;

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

// A CRW file stores the camera's clock reading as seconds since 1970: read
// in this computer's zone it would move by the zone's offset.
TEST(PhotoMetaTest, ReadsACrwCaptureTimeAsTheCameraClockShowedIt) {
  test::TimeZone tokyo("Asia/Tokyo");
  test::TempDir dir;
  test::writeCrw(dir / "CRW_0001.CRW", {.captureClock = 1083827289});  // 2004:05:06 07:08:09
  const auto meta = PhotoMeta::read(dir / "CRW_0001.CRW");
  ASSERT_TRUE(meta);
  EXPECT_EQ(std::tuple(meta->camera, meta->width, meta->height, meta->capture),
            std::tuple("Canon EOS D30", 96, 64, exifDate("2004:05:06 07:08:09")));
  EXPECT_EQ(test::valueOf(PhotoMeta::details(dir / "CRW_0001.CRW"), "Taken"), "2004:05:06 07:08:09");
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

// The info panel shows the pixel size as stored for a HEIC as for a JPEG;
// the catalogue keeps the size shown upright.
TEST(PhotoMetaTest, ShowsAHeicsStoredPixelSizeAndCataloguesItUpright) {
  const auto heic = test::sharedPhoto("heic/IMG_3578.heic");
  if (!heic) GTEST_SKIP() << "the shared test photos are not there";
  test::TempDir dir;
  std::string bytes = test::readFile(*heic);
  const std::size_t rotation = bytes.find("irot");
  ASSERT_NE(rotation, std::string::npos);
  bytes[rotation + 4] = 1;  // a quarter turn anticlockwise, as a portrait shot
  test::writeFile(dir / "portrait.heic", bytes);
  for (auto [name, width, height] : {std::tuple(*heic, 4032, 3024), {dir / "portrait.heic", 3024, 4032}}) {
    const auto meta = PhotoMeta::read(name);
    ASSERT_TRUE(meta) << name;
    EXPECT_EQ(std::pair(meta->width, meta->height), std::pair(width, height)) << name;
    EXPECT_EQ(test::valueOf(PhotoMeta::details(name), "Pixel size"), "4032 \u00d7 3024") << name;
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

// Unreadable files give nothing, at once: a FIFO in a photo's place is not
// waited on.
TEST(PhotoMetaTest, GivesNothingForUnreadableFiles) {
  test::TempDir dir;
  test::writeFile(dir / "empty.jpg", "");
  test::writeFile(dir / "text.jpg", "hello");
  test::writeFile(dir / "text.dng", "hello");
  test::makeFifo(dir / "fifo.jpg");
  test::makeFifo(dir / "fifo.nef");
  const auto root = dir.path();
  auto readable = std::make_shared<std::vector<std::string>>();
  ASSERT_TRUE(test::finishesWithin(10, [root, readable] {
    for (const char* name :
         {"empty.jpg", "text.jpg", "text.dng", "gone.jpg", "gone.nef", "fifo.jpg", "fifo.nef"}) {
      if (PhotoMeta::read(root / name) || !PhotoMeta::details(root / name).empty()) readable->push_back(name);
    }
  }));
  EXPECT_TRUE(readable->empty()) << readable->front();
}
