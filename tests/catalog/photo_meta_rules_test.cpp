// The rules that turn header facts into catalog values and info panel rows,
// tested on constructed facts (no files).

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <ctime>

#include "engine/catalog/image_properties.h"
#include "engine/catalog/photo_meta.h"
#include "engine/catalog/raw_preview.h"
#include "tests/catalog/meta_helpers.h"

using namespace lumivale;

namespace {

// Sets the process time zone for one test and restores it afterwards.
class TimeZone {
 public:
  explicit TimeZone(const char* tz) {
    if (const char* old = std::getenv("TZ")) saved = old;
    setenv("TZ", tz, 1);
    tzset();
  }
  ~TimeZone() {
    if (saved) {
      setenv("TZ", saved->c_str(), 1);
    } else {
      unsetenv("TZ");
    }
    tzset();
  }

 private:
  std::optional<std::string> saved;
};

std::vector<std::string> labels(const std::vector<DetailRow>& rows) {
  std::vector<std::string> out;
  for (const auto& row : rows) out.push_back(row.label);
  return out;
}

}  // namespace

TEST(CameraNameTest, DoesNotRepeatTheMakerAlreadyInTheModel) {
  struct Case {
    const char* make;
    const char* model;
    const char* camera;
  };
  const Case cases[] = {
      {"Canon", "Canon EOS R5", "Canon EOS R5"},
      {"NIKON CORPORATION", "NIKON Z 6", "NIKON Z 6"},
      {"FUJIFILM", "X-T4", "FUJIFILM X-T4"},
      {"OLYMPUS IMAGING CORP.", "E-M5", "OLYMPUS IMAGING CORP. E-M5"},
      {"samsung", "SAMSUNG Galaxy S9", "SAMSUNG Galaxy S9"},  // case does not matter
      {"Apple", "iPhone 12", "Apple iPhone 12"},
      {"", "iPhone 12", "iPhone 12"},
      {"Leica", "", "Leica"},
      {"", "", ""},
      {"  Canon ", "Canon EOS R6 ", "Canon EOS R6"},
      {"Pentax", "PENTAXIAN K-1", "PENTAXIAN K-1"},  // a prefix test, as the rule says
  };
  for (const Case& c : cases) EXPECT_EQ(cameraName(c.make, c.model), c.camera) << c.make << " | " << c.model;
}

TEST(ExifDateTest, ReadsLocalTimeInThisComputersZone) {
  {
    TimeZone utc("UTC0");
    EXPECT_EQ(exifDate("2023:06:01 12:34:56"), 1685622896.0);
    EXPECT_EQ(exifDate("1970:01:01 00:00:00"), 0.0);
    EXPECT_EQ(exifDate("2024:02:29 23:59:59"), 1709251199.0);  // a leap day
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
}

TEST(ExifDateTest, RejectsWhatIsNotADate) {
  for (const char* text :
       {"", "0000:00:00 00:00:00", "    :  :     :  :  ", "2023:13:01 00:00:00", "2023:04:31 10:00:00",
        "2023:02:29 10:00:00", "2023:06:01 24:00:00", "2023:06:01 12:60:00", "2023:06:01 12:00:60",
        "2023-06-01 12:34:56", "2023:06:01T12:34:56", "2023:06:01 12:34", "2023:06:01 12:34:56.123",
        "2023:6:1 12:34:56", "abcd:ef:gh ij:kl:mn", "2023:06:01 12:34:5x"}) {
    EXPECT_FALSE(exifDate(text).has_value()) << text;
  }
  EXPECT_TRUE(exifDate(" 2023:06:01 12:34:56 ").has_value());  // padding as some cameras write it
}

TEST(PlainNumberTest, PrintsTheShortestDecimalForm) {
  EXPECT_EQ(plainNumber(8), "8");
  EXPECT_EQ(plainNumber(0), "0");
  EXPECT_EQ(plainNumber(-0.0), "0");
  EXPECT_EQ(plainNumber(0.5), "0.5");
  EXPECT_EQ(plainNumber(28.4), "28.4");
  EXPECT_EQ(plainNumber(-3), "-3");
  EXPECT_EQ(plainNumber(1e-7), "0.0000001");
  EXPECT_EQ(plainNumber(std::nan("")), "");
}

class OrientationTest : public ::testing::TestWithParam<int> {};

TEST_P(OrientationTest, QuarterTurnsSwapTheDisplayedSize) {
  ImageProperties p;
  p.pixelWidth = 600;
  p.pixelHeight = 450;
  p.orientation = GetParam();
  PhotoMeta meta = photoMetaFrom(p);
  bool turned = GetParam() >= 5;
  EXPECT_EQ(meta.width, turned ? 450 : 600);
  EXPECT_EQ(meta.height, turned ? 600 : 450);
  // The info panel shows the pixels as stored.
  EXPECT_EQ(test::valueOf(detailRowsFrom(p), "Pixel size"), "600 \u00d7 450");
}

INSTANTIATE_TEST_SUITE_P(AllEight, OrientationTest, ::testing::Range(1, 9));

TEST(PhotoMetaFromImageTest, TakesEachFactFromItsProperty) {
  TimeZone utc("UTC0");
  ImageProperties p{.pixelWidth = 30,
                    .pixelHeight = 20,
                    .make = "NIKON CORPORATION",
                    .model = "NIKON Z 6",
                    .dateTime = "2024:01:01 00:00:00",
                    .lensModel = "NIKKOR Z 24-70mm f/4 S",
                    .dateTimeOriginal = "2023:06:01 12:34:56",
                    .exposureTime = 0.004,
                    .fNumber = 4,
                    .focalLength = 24,
                    .iso = 800,
                    .keywords = {"  sky ", "", "   ", "sea\t", "sky"}};
  EXPECT_EQ(photoMetaFrom(p), (PhotoMeta{.width = 30,
                                         .height = 20,
                                         .capture = 1685622896.0,
                                         .camera = "NIKON Z 6",
                                         .lens = "NIKKOR Z 24-70mm f/4 S",
                                         .iso = 800,
                                         .shutter = 0.004,
                                         .aperture = 4,
                                         .focal = 24,
                                         .keywords = {"sky", "sea", "sky"}}));

  // The modification date stands in for a missing or unreadable original.
  p.dateTimeOriginal = "0000:00:00 00:00:00";
  EXPECT_EQ(photoMetaFrom(p).capture, 1704067200.0);
  p.dateTime.reset();
  EXPECT_FALSE(photoMetaFrom(p).capture.has_value());
  EXPECT_EQ(photoMetaFrom(ImageProperties{}), PhotoMeta{});
}

TEST(ImageDetailsTest, ListsEveryRowInOrderWithItsFormat) {
  const ImageProperties p{.pixelWidth = 6000,
                          .pixelHeight = 4000,
                          .depth = 8,
                          .profileName = "sRGB IEC61966-2.1",
                          .make = "Canon",
                          .model = "Canon EOS R5",
                          .copyright = "Ada",
                          .artist = "Ada L.",
                          .software = "Firmware 1.8",
                          .lensModel = "RF24-70mm F2.8 L IS USM",
                          .dateTimeOriginal = "2023:06:01 12:34:56",
                          .exposureTime = 0.0125,
                          .fNumber = 2.8,
                          .focalLength = 34.5,
                          .focalLength35 = 52,
                          .exposureBias = -1.0 / 3,
                          .iso = 100,
                          .flash = 16,
                          .whiteBalance = 1,
                          .meteringMode = 5,
                          .latitude = 37.7749,
                          .longitude = 122.4194,
                          .latitudeRef = "N",
                          .longitudeRef = "W"};
  std::vector<DetailRow> expected = {
      {"Camera make", "Canon"},
      {"Camera model", "Canon EOS R5"},
      {"Lens", "RF24-70mm F2.8 L IS USM"},
      {"Taken", "2023:06:01 12:34:56"},
      {"Shutter speed", "1/80 s"},
      {"Aperture", "f/2.8"},
      {"ISO", "100"},
      {"Focal length", "35 mm"},  // nearest, halves away from zero
      {"35 mm equivalent", "52 mm"},
      {"Exposure compensation", "-0.3 EV"},
      {"Flash", "Did not fire"},
      {"White balance", "Manual"},
      {"Metering", "5"},
      {"Pixel size", "6000 \u00d7 4000"},
      {"Color profile", "sRGB IEC61966-2.1"},
      {"Bit depth", "8"},
      {"Copyright", "Ada"},
      {"Artist", "Ada L."},
      {"Software", "Firmware 1.8"},
      {"GPS", "37.77490\u00b0 N, 122.41940\u00b0 W"},
  };
  EXPECT_EQ(detailRowsFrom(p), expected);
}

TEST(ImageDetailsTest, FormatsTheBoundaryValues) {
  ImageProperties p;
  p.exposureTime = 2.5;
  p.flash = 25;
  p.whiteBalance = 0;
  p.exposureBias = 0;
  p.focalLength35 = 28.5;
  auto rows = detailRowsFrom(p);
  EXPECT_EQ(test::valueOf(rows, "Shutter speed"), "2.5 s");
  EXPECT_EQ(test::valueOf(rows, "Flash"), "Fired");
  EXPECT_EQ(test::valueOf(rows, "White balance"), "Auto");
  EXPECT_EQ(test::valueOf(rows, "Exposure compensation"), "+0.0 EV");
  EXPECT_EQ(test::valueOf(rows, "35 mm equivalent"), "28.5 mm");

  p.exposureTime = 0;  // an exposure of zero is not shown
  p.exposureBias = 1.25;
  rows = detailRowsFrom(p);
  EXPECT_FALSE(test::valueOf(rows, "Shutter speed"));
  EXPECT_EQ(test::valueOf(rows, "Exposure compensation"), "+1.2 EV");
  p.exposureTime = 1;
  EXPECT_EQ(test::valueOf(detailRowsFrom(p), "Shutter speed"), "1.0 s");
  p.exposureTime = 1.0 / 3;
  EXPECT_EQ(test::valueOf(detailRowsFrom(p), "Shutter speed"), "1/3 s");
}

TEST(ImageDetailsTest, ShowsGpsOnlyWithBothCoordinates) {
  ImageProperties p;
  p.latitude = 50.1092416666667;
  EXPECT_FALSE(test::valueOf(detailRowsFrom(p), "GPS"));
  p.longitude = 8.652955;
  // Missing references read as north and east.
  EXPECT_EQ(test::valueOf(detailRowsFrom(p), "GPS"), "50.10924\u00b0 N, 8.65296\u00b0 E");
  p.latitudeRef = "S";
  p.longitudeRef = "";
  EXPECT_EQ(test::valueOf(detailRowsFrom(p), "GPS"), "50.10924\u00b0 S, 8.65296\u00b0 E");
  p.latitude.reset();
  EXPECT_FALSE(test::valueOf(detailRowsFrom(p), "GPS"));
}

TEST(ImageDetailsTest, LeavesOutEmptyAndMissingValues) {
  ImageProperties p;
  p.make = "";
  p.model = "X100V";
  p.software = "";
  EXPECT_EQ(labels(detailRowsFrom(p)), (std::vector<std::string>{"Camera model"}));
  EXPECT_TRUE(detailRowsFrom(ImageProperties{}).empty());
}

TEST(RawDetailsTest, ListsTheContainerFactsInOrder) {
  RawInfo info{.make = "NIKON CORPORATION",
               .model = "NIKON Z 6",
               .lens = "NIKKOR Z 50mm f/1.8 S",
               .iso = 100,
               .exposure = 1.0 / 250,
               .fNumber = 1.8,
               .focal = 50,
               .dateOriginal = "2023:06:01 12:34:56",
               .width = 6048,
               .height = 4024};
  std::vector<DetailRow> expected = {
      {"Camera make", "NIKON CORPORATION"},
      {"Camera model", "NIKON Z 6"},
      {"Lens", "NIKKOR Z 50mm f/1.8 S"},
      {"Taken", "2023:06:01 12:34:56"},
      {"Shutter speed", "1/250 s"},
      {"Aperture", "f/1.8"},
      {"ISO", "100"},
      {"Focal length", "50 mm"},
      {"Sensor size", "6048 \u00d7 4024"},
      {"File type", "RAW (NEF)"},
  };
  EXPECT_EQ(detailRowsFrom(info, "nef"), expected);

  // Unknown shooting facts leave their rows out.
  info = {.make = info.make, .model = info.model, .width = info.width, .height = info.height};
  EXPECT_EQ(labels(detailRowsFrom(info, "Nef")),
            (std::vector<std::string>{"Camera make", "Camera model", "Sensor size", "File type"}));
  EXPECT_EQ(detailRowsFrom(info, "Nef").back().value, "RAW (NEF)");
}

TEST(PhotoMetaFromRawTest, UsesTheCameraNameRuleAndTheLocalDate) {
  TimeZone utc("UTC0");
  const RawInfo info{.make = "FUJIFILM",
                     .model = "X-T4",
                     .lens = "XF23mmF1.4 R",
                     .iso = 160,
                     .exposure = 0.5,
                     .fNumber = 5.6,
                     .focal = 23,
                     .dateOriginal = "2023:06:01 12:34:56",
                     .width = 6240,
                     .height = 4160};
  EXPECT_EQ(photoMetaFrom(info), (PhotoMeta{.width = 6240,
                                            .height = 4160,
                                            .capture = 1685622896.0,
                                            .camera = "FUJIFILM X-T4",
                                            .lens = "XF23mmF1.4 R",
                                            .iso = 160,
                                            .shutter = 0.5,
                                            .aperture = 5.6,
                                            .focal = 23}));
}

TEST(RawPreviewOrderTest, PutsTheLargestFirstAndDropsRepeats) {
  using P = EmbeddedPreview;
  std::vector<P> previews = {
      {P::Source::exiv2, P::Format::tiff, 16, "image/tiff", 160, 120, 57600, -1},
      {P::Source::exiv2, P::Format::tiff, 17, "image/tiff", 1616, 1080, 5000,
       -1},  // same picture as LibRaw's
      {P::Source::libraw, P::Format::jpeg, -1, "image/jpeg", 1616, 1080, 4852, 143},
      {P::Source::exiv2, P::Format::jpeg, 18, "image/jpeg", 640, 480, 30000, -1},
  };
  RawPreview::orderPreviews(previews);
  ASSERT_EQ(previews.size(), 3u);
  EXPECT_EQ(previews[0].source, P::Source::libraw);
  EXPECT_EQ(previews[0].offset, 143);
  EXPECT_EQ(previews[1].exiv2Id, 18);
  EXPECT_EQ(previews[2].exiv2Id, 16);
}

TEST(RawPreviewOrderTest, MapsLibRawFlipsToExifOrientations) {
  const int expected[8] = {1, 2, 4, 3, 5, 8, 6, 7};
  for (int flip = 0; flip < 8; ++flip)
    EXPECT_EQ(RawPreview::orientationFromFlip(flip), expected[flip]) << flip;
  EXPECT_EQ(RawPreview::orientationFromFlip(-1), 1);
  EXPECT_EQ(RawPreview::orientationFromFlip(99), 1);
}
