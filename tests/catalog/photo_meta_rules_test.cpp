// The rules that turn header facts into catalog values and info panel rows,
// tested on constructed facts (no files).

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <ctime>

#include "engine/catalog/image_properties.h"
#include "engine/catalog/photo_meta.h"
#include "engine/catalog/raw_preview.h"

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

std::optional<std::string> valueOf(const std::vector<DetailRow>& rows, const std::string& label) {
  for (const auto& row : rows) {
    if (row.label == label) return row.value;
  }
  return std::nullopt;
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
  for (const char* text : {"", "0000:00:00 00:00:00", "    :  :     :  :  ", "2023:13:01 00:00:00",
                           "2023:04:31 10:00:00", "2023:02:29 10:00:00", "2023:06:01 24:00:00",
                           "2023:06:01 12:60:00", "2023:06:01 12:00:60", "2023-06-01 12:34:56",
                           "2023:06:01T12:34:56", "2023:06:01 12:34", "2023:06:01 12:34:56.123",
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
  EXPECT_EQ(valueOf(detailRowsFrom(p), "Pixel size"), "600 \u00d7 450");
}

INSTANTIATE_TEST_SUITE_P(AllEight, OrientationTest, ::testing::Range(1, 9));

TEST(PhotoMetaFromImageTest, TakesEachFactFromItsProperty) {
  TimeZone utc("UTC0");
  ImageProperties p;
  p.pixelWidth = 30;
  p.pixelHeight = 20;
  p.make = "NIKON CORPORATION";
  p.model = "NIKON Z 6";
  p.lensModel = "NIKKOR Z 24-70mm f/4 S";
  p.iso = 800;
  p.exposureTime = 0.004;
  p.fNumber = 4;
  p.focalLength = 24;
  p.dateTimeOriginal = "2023:06:01 12:34:56";
  p.dateTime = "2024:01:01 00:00:00";
  p.keywords = {"  sky ", "", "   ", "sea\t", "sky"};
  PhotoMeta m = photoMetaFrom(p);
  EXPECT_EQ(m.camera, "NIKON Z 6");
  EXPECT_EQ(m.lens, "NIKKOR Z 24-70mm f/4 S");
  EXPECT_EQ(m.iso, 800);
  EXPECT_DOUBLE_EQ(m.shutter, 0.004);
  EXPECT_DOUBLE_EQ(m.aperture, 4);
  EXPECT_DOUBLE_EQ(m.focal, 24);
  EXPECT_EQ(m.capture, 1685622896.0);
  EXPECT_EQ(m.keywords, (std::vector<std::string>{"sky", "sea", "sky"}));

  // The modification date stands in for a missing or unreadable original.
  p.dateTimeOriginal = "0000:00:00 00:00:00";
  EXPECT_EQ(photoMetaFrom(p).capture, 1704067200.0);
  p.dateTime.reset();
  EXPECT_FALSE(photoMetaFrom(p).capture.has_value());

  PhotoMeta empty = photoMetaFrom(ImageProperties{});
  EXPECT_EQ(empty.camera, "");
  EXPECT_EQ(empty.iso, 0);
  EXPECT_TRUE(empty.keywords.empty());
}

TEST(ImageDetailsTest, ListsEveryRowInOrderWithItsFormat) {
  ImageProperties p;
  p.pixelWidth = 6000;
  p.pixelHeight = 4000;
  p.depth = 8;
  p.profileName = "sRGB IEC61966-2.1";
  p.make = "Canon";
  p.model = "Canon EOS R5";
  p.lensModel = "RF24-70mm F2.8 L IS USM";
  p.dateTimeOriginal = "2023:06:01 12:34:56";
  p.exposureTime = 0.0125;
  p.fNumber = 2.8;
  p.iso = 100;
  p.focalLength = 34.5;
  p.focalLength35 = 52;
  p.exposureBias = -1.0 / 3;
  p.flash = 16;
  p.whiteBalance = 1;
  p.meteringMode = 5;
  p.copyright = "Ada";
  p.artist = "Ada L.";
  p.software = "Firmware 1.8";
  p.latitude = 37.7749;
  p.latitudeRef = "N";
  p.longitude = 122.4194;
  p.longitudeRef = "W";
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
  EXPECT_EQ(valueOf(rows, "Shutter speed"), "2.5 s");
  EXPECT_EQ(valueOf(rows, "Flash"), "Fired");
  EXPECT_EQ(valueOf(rows, "White balance"), "Auto");
  EXPECT_EQ(valueOf(rows, "Exposure compensation"), "+0.0 EV");
  EXPECT_EQ(valueOf(rows, "35 mm equivalent"), "28.5 mm");

  p.exposureTime = 0;  // an exposure of zero is not shown
  p.exposureBias = 1.25;
  rows = detailRowsFrom(p);
  EXPECT_FALSE(valueOf(rows, "Shutter speed"));
  EXPECT_EQ(valueOf(rows, "Exposure compensation"), "+1.2 EV");
  p.exposureTime = 1;
  EXPECT_EQ(valueOf(detailRowsFrom(p), "Shutter speed"), "1.0 s");
  p.exposureTime = 1.0 / 3;
  EXPECT_EQ(valueOf(detailRowsFrom(p), "Shutter speed"), "1/3 s");
}

TEST(ImageDetailsTest, ShowsGpsOnlyWithBothCoordinates) {
  ImageProperties p;
  p.latitude = 50.1092416666667;
  EXPECT_FALSE(valueOf(detailRowsFrom(p), "GPS"));
  p.longitude = 8.652955;
  // Missing references read as north and east.
  EXPECT_EQ(valueOf(detailRowsFrom(p), "GPS"), "50.10924\u00b0 N, 8.65296\u00b0 E");
  p.latitudeRef = "S";
  p.longitudeRef = "";
  EXPECT_EQ(valueOf(detailRowsFrom(p), "GPS"), "50.10924\u00b0 S, 8.65296\u00b0 E");
  p.latitude.reset();
  EXPECT_FALSE(valueOf(detailRowsFrom(p), "GPS"));
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
  RawInfo info;
  info.make = "NIKON CORPORATION";
  info.model = "NIKON Z 6";
  info.lens = "NIKKOR Z 50mm f/1.8 S";
  info.dateOriginal = "2023:06:01 12:34:56";
  info.exposure = 1.0 / 250;
  info.fNumber = 1.8;
  info.iso = 100;
  info.focal = 50;
  info.width = 6048;
  info.height = 4024;
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
  info.lens.clear();
  info.dateOriginal.clear();
  info.exposure = 0;
  info.fNumber = 0;
  info.iso = 0;
  info.focal = 0;
  EXPECT_EQ(labels(detailRowsFrom(info, "Nef")),
            (std::vector<std::string>{"Camera make", "Camera model", "Sensor size", "File type"}));
  EXPECT_EQ(detailRowsFrom(info, "Nef").back().value, "RAW (NEF)");
}

TEST(PhotoMetaFromRawTest, UsesTheCameraNameRuleAndTheLocalDate) {
  TimeZone utc("UTC0");
  RawInfo info;
  info.make = "FUJIFILM";
  info.model = "X-T4";
  info.dateOriginal = "2023:06:01 12:34:56";
  info.width = 6240;
  info.height = 4160;
  info.iso = 160;
  info.exposure = 0.5;
  info.fNumber = 5.6;
  info.focal = 23;
  info.lens = "XF23mmF1.4 R";
  PhotoMeta m = photoMetaFrom(info);
  EXPECT_EQ(m.camera, "FUJIFILM X-T4");
  EXPECT_EQ(m.capture, 1685622896.0);
  EXPECT_EQ(m.width, 6240);
  EXPECT_EQ(m.height, 4160);
  EXPECT_EQ(m.lens, "XF23mmF1.4 R");
  EXPECT_EQ(m.iso, 160);
  EXPECT_DOUBLE_EQ(m.shutter, 0.5);
  EXPECT_DOUBLE_EQ(m.aperture, 5.6);
  EXPECT_DOUBLE_EQ(m.focal, 23);
  EXPECT_TRUE(m.keywords.empty());
}

TEST(RawPreviewOrderTest, PutsTheLargestFirstAndDropsRepeats) {
  using P = EmbeddedPreview;
  std::vector<P> previews = {
      {P::Source::exiv2, P::Format::tiff, 16, "image/tiff", 160, 120, 57600, -1},
      {P::Source::exiv2, P::Format::tiff, 17, "image/tiff", 1616, 1080, 5000, -1},  // same picture as LibRaw's
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
  for (int flip = 0; flip < 8; ++flip) EXPECT_EQ(RawPreview::orientationFromFlip(flip), expected[flip]) << flip;
  EXPECT_EQ(RawPreview::orientationFromFlip(-1), 1);
  EXPECT_EQ(RawPreview::orientationFromFlip(99), 1);
}
