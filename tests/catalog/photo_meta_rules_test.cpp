// The rules that turn header facts into catalog values and info panel rows,
// tested on constructed facts (no files).

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <ctime>

#include "engine/catalog/photo_meta.h"
#include "engine/media/image_properties.h"
#include "engine/media/raw_preview.h"
#include "tests/catalog/meta_helpers.h"
#include "tests/support/sample_photos.h"

using namespace lumivale;
using Rows = std::vector<DetailRow>;
using Labels = std::vector<std::string>;

namespace {

using test::TimeZone;

Labels labels(const Rows& rows) {
  Labels out;
  for (const auto& row : rows) out.push_back(row.label);
  return out;
}

}  // namespace

TEST(CameraNameTest, DoesNotRepeatTheMakerAlreadyInTheModel) {
  const std::tuple<const char*, const char*, const char*> cases[] = {
      {"Canon", "Canon EOS R5", "Canon EOS R5"},
      {"NIKON CORPORATION", "NIKON Z 6", "NIKON Z 6"},
      {"FUJIFILM", "X-T4", "FUJIFILM X-T4"},
      {"OLYMPUS IMAGING CORP.", "E-M5", "OLYMPUS IMAGING CORP. E-M5"},
      {"samsung", "SAMSUNG Galaxy S9", "SAMSUNG Galaxy S9"},  // case does not matter
      {"", "iPhone 12", "iPhone 12"},
      {"Leica", "", "Leica "},  // make, blank, model even without a model
      {"", "", ""},
      {"  Canon ", "Canon EOS R6 ", "Canon EOS R6"},
      {"Pentax", "PENTAXIAN K-1", "PENTAXIAN K-1"}};  // a prefix test, as the rule says
  for (auto [make, model, camera] : cases)
    EXPECT_EQ(cameraName(make, model), camera) << make << " | " << model;
}

TEST(ExifDateTest, ReadsLocalTimeInThisComputersZoneAndRejectsWhatIsNotADate) {
  {
    TimeZone utc("UTC0");
    EXPECT_EQ(exifDate("2023:06:01 12:34:56"), 1685622896.0);
    EXPECT_EQ(exifDate("1970:01:01 00:00:00"), 0.0);
    EXPECT_EQ(exifDate("2024:02:29 23:59:59"), 1709251199.0);    // a leap day
    EXPECT_EQ(exifDate(" 2023:06:01 12:34:56 "), 1685622896.0);  // padding as some cameras write it
  }
  {
    TimeZone tokyo("JST-9");
    EXPECT_EQ(exifDate("2023:06:01 12:34:56"), 1685622896.0 - 9 * 3600);
  }
  {
    TimeZone newYork("EST5EDT,M3.2.0,M11.1.0");
    EXPECT_EQ(exifDate("2023:06:01 12:34:56"), 1685622896.0 + 4 * 3600);  // summer time
    EXPECT_EQ(exifDate("2023:01:01 00:00:00"), 1672531200.0 + 5 * 3600);
  }
  for (const char* text :
       {"", "0000:00:00 00:00:00", "    :  :     :  :  ", "2023:13:01 00:00:00", "2023:04:31 10:00:00",
        "2023:02:29 10:00:00", "2023:06:01 24:00:00", "2023:06:01 12:60:00", "2023:06:01 12:00:60",
        "2023-06-01 12:34:56", "2023:06:01T12:34:56", "2023:06:01 12:34", "2023:06:01 12:34:56.123",
        "2023:6:1 12:34:56", "abcd:ef:gh ij:kl:mn", "2023:06:01 12:34:5x"})
    EXPECT_FALSE(exifDate(text).has_value()) << text;
}

TEST(PlainNumberTest, PrintsTheShortestDecimalForm) {
  for (auto [number, text] : {std::pair(8.0, "8"),
                              {0, "0"},
                              {-0.0, "0"},
                              {0.5, "0.5"},
                              {28.4, "28.4"},
                              {-3, "-3"},
                              {1e-7, "0.0000001"},
                              {std::nan(""), ""}})
    EXPECT_EQ(plainNumber(number), text) << number;
}

TEST(PhotoMetaFromImageTest, QuarterTurnsSwapTheDisplayedSizeNotThePixelSize) {
  for (int orientation = 1; orientation <= 8; ++orientation) {
    const ImageProperties p{.pixelWidth = 600, .pixelHeight = 450, .orientation = orientation};
    const bool turned = orientation >= 5;
    EXPECT_EQ(std::pair(photoMetaFrom(p).width, photoMetaFrom(p).height),
              turned ? std::pair(450, 600) : std::pair(600, 450))
        << orientation;
    EXPECT_EQ(test::valueOf(detailRowsFrom(p), "Pixel size"), "600 \u00d7 450");  // as stored
  }
}

TEST(PhotoMetaFromImageTest, TakesEachFactFromItsProperty) {
  TimeZone utc("UTC0");
  ImageProperties p;
  p.pixelWidth = 30, p.pixelHeight = 20, p.make = "NIKON CORPORATION", p.model = "NIKON Z 6";
  p.dateTime = "2024:01:01 00:00:00", p.lensModel = "NIKKOR Z 24-70mm f/4 S",
  p.dateTimeOriginal = "2023:06:01 12:34:56";
  p.exposureTime = 0.004, p.fNumber = 4, p.focalLength = 24, p.iso = 800;
  p.keywords = {"  sky ", "", "   ", "sea\t", "sky"};
  PhotoMeta expected;
  expected.width = 30, expected.height = 20, expected.capture = 1685622896.0, expected.camera = "NIKON Z 6";
  expected.lens = "NIKKOR Z 24-70mm f/4 S", expected.iso = 800, expected.shutter = 0.004,
  expected.aperture = 4;
  expected.focal = 24, expected.keywords = {"sky", "sea", "sky"};
  EXPECT_EQ(photoMetaFrom(p), expected);

  // The modification date stands in for a missing or unreadable original.
  p.dateTimeOriginal = "0000:00:00 00:00:00";
  EXPECT_EQ(photoMetaFrom(p).capture, 1704067200.0);
  p.dateTime.reset();
  EXPECT_FALSE(photoMetaFrom(p).capture.has_value());
  EXPECT_EQ(photoMetaFrom(ImageProperties{}), PhotoMeta{});
}

TEST(ImageDetailsTest, ListsEveryRowInOrderWithItsFormat) {
  ImageProperties p;
  p.pixelWidth = 6000, p.pixelHeight = 4000, p.depth = 8, p.profileName = "sRGB IEC61966-2.1";
  p.make = "Canon", p.model = "Canon EOS R5", p.copyright = "Ada", p.artist = "Ada L.",
  p.software = "Firmware 1.8";
  p.lensModel = "RF24-70mm F2.8 L IS USM", p.dateTimeOriginal = "2023:06:01 12:34:56",
  p.exposureTime = 0.0125;
  p.fNumber = 2.8, p.focalLength = 34.5, p.focalLength35 = 52, p.exposureBias = -1.0 / 3, p.iso = 100;
  p.flash = 16, p.whiteBalance = 1, p.meteringMode = 5, p.latitude = 37.7749, p.longitude = 122.4194;
  p.latitudeRef = "N", p.longitudeRef = "W";
  // The focal length to the nearest millimetre, halves away from zero.
  EXPECT_EQ(test::joined(detailRowsFrom(p)),
            "Camera make: Canon; Camera model: Canon EOS R5; Lens: RF24-70mm F2.8 L IS USM; "
            "Taken: 2023:06:01 12:34:56; Shutter speed: 1/80 s; Aperture: f/2.8; ISO: 100; "
            "Focal length: 35 mm; 35 mm equivalent: 52 mm; Exposure compensation: -0.3 EV; "
            "Flash: Did not fire; White balance: Manual; Metering: 5; Pixel size: 6000 \u00d7 4000; "
            "Color profile: sRGB IEC61966-2.1; Bit depth: 8; Copyright: Ada; Artist: Ada L.; "
            "Software: Firmware 1.8; GPS: 37.77490\u00b0 N, 122.41940\u00b0 W");
  // Empty and missing values leave their rows out.
  EXPECT_EQ(labels(detailRowsFrom({.make = "", .model = "X100V", .software = ""})), Labels{"Camera model"});
  EXPECT_TRUE(detailRowsFrom(ImageProperties{}).empty());
}

TEST(ImageDetailsTest, FormatsTheBoundaryValues) {
  const double lat = 50.1092416666667, lon = 8.652955;
  const std::tuple<ImageProperties, const char*, std::optional<std::string>> cases[] = {
      {{.exposureTime = 2.5}, "Shutter speed", "2.5 s"},
      {{.exposureTime = 1}, "Shutter speed", "1.0 s"},
      {{.exposureTime = 1.0 / 3}, "Shutter speed", "1/3 s"},
      {{.exposureTime = 0}, "Shutter speed", std::nullopt},  // an exposure of zero is not shown
      {{.flash = 25}, "Flash", "Fired"},
      {{.whiteBalance = 0}, "White balance", "Auto"},
      {{.exposureBias = 0}, "Exposure compensation", "+0.0 EV"},
      {{.exposureBias = 1.25}, "Exposure compensation", "+1.2 EV"},
      {{.focalLength35 = 28.5}, "35 mm equivalent", "28.5 mm"},
      // GPS only with both coordinates; missing references read as north and east.
      {{.latitude = lat}, "GPS", std::nullopt},
      {{.longitude = lon, .longitudeRef = "W"}, "GPS", std::nullopt},
      {{.latitude = lat, .longitude = lon}, "GPS", "50.10924\u00b0 N, 8.65296\u00b0 E"},
      {{.latitude = lat, .longitude = lon, .latitudeRef = "S", .longitudeRef = ""},
       "GPS",
       "50.10924\u00b0 S, 8.65296\u00b0 E"},
  };
  for (const auto& [properties, label, value] : cases)
    EXPECT_EQ(test::valueOf(detailRowsFrom(properties), label), value)
        << label << " " << test::joined(detailRowsFrom(properties));
}

TEST(RawDetailsTest, ListsTheContainerFactsAndMakesTheMetaByTheSameRules) {
  RawInfo info;
  info.make = "NIKON CORPORATION", info.model = "NIKON Z 6", info.lens = "NIKKOR Z 50mm f/1.8 S",
  info.iso = 100;
  info.exposure = 1.0 / 250, info.fNumber = 1.8, info.focal = 50, info.dateOriginal = "2023:06:01 12:34:56";
  info.width = 6048, info.height = 4024;
  EXPECT_EQ(
      test::joined(detailRowsFrom(info, "nef")),
      "Camera make: NIKON CORPORATION; Camera model: NIKON Z 6; Lens: NIKKOR Z 50mm f/1.8 S; "
      "Taken: 2023:06:01 12:34:56; Shutter speed: 1/250 s; Aperture: f/1.8; ISO: 100; Focal length: 50 mm; "
      "Sensor size: 6048 \u00d7 4024; File type: RAW (NEF)");
  {
    TimeZone utc("UTC0");
    PhotoMeta expected;
    expected.width = 6048, expected.height = 4024, expected.capture = 1685622896.0, expected.lens = info.lens;
    expected.camera = "NIKON Z 6", expected.iso = 100, expected.shutter = 1.0 / 250, expected.aperture = 1.8;
    expected.focal = 50;
    EXPECT_EQ(photoMetaFrom(info), expected);
    info.make = "FUJIFILM", info.model = "X-T4";
    EXPECT_EQ(photoMetaFrom(info).camera, "FUJIFILM X-T4");
  }
  // Unknown shooting facts leave their rows out.
  info = {.make = info.make, .model = info.model, .width = info.width, .height = info.height};
  EXPECT_EQ(labels(detailRowsFrom(info, "Nef")),
            (Labels{"Camera make", "Camera model", "Sensor size", "File type"}));
  EXPECT_EQ(detailRowsFrom(info, "Nef").back().value, "RAW (NEF)");
}
