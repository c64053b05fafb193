// The metadata an export writes, read back from each format with exiv2.

#include "engine/media/output_metadata.h"

#include <gtest/gtest.h>

#include <exiv2/exiv2.hpp>
#include <vips/vips8>

#include "engine/media/media_libraries.h"
#include "engine/media/safe_file.h"
#include "tests/support/errors.h"
#include "tests/support/sample_photos.h"
#include "tests/support/temp_dir.h"

using namespace lumivale;

namespace {

namespace fs = std::filesystem;

struct ReadBack {
  Exiv2::ExifData exif;
  Exiv2::IptcData iptc;
  Exiv2::XmpData xmp;

  std::string exifText(const char* key) const {
    const auto it = exif.findKey(Exiv2::ExifKey(key));
    return it == exif.end() ? "(none)" : it->toString();
  }
  std::vector<std::string> iptcTexts(const char* key) const {
    std::vector<std::string> texts;
    for (const Exiv2::Iptcdatum& d : iptc) {
      if (d.key() == key) texts.push_back(d.toString());
    }
    return texts;
  }
  std::string xmpText(const char* key) const {
    const auto it = xmp.findKey(Exiv2::XmpKey(key));
    return it == xmp.end() ? "(none)" : it->toString();
  }
};

ReadBack readBack(const std::string& file) {
  auto image =
      Exiv2::ImageFactory::open(reinterpret_cast<const Exiv2::byte*>(file.data()), long(file.size()));
  image->readMetadata();
  return {image->exifData(), image->iptcData(), image->xmpData()};
}

// The decoded pixels and the embedded profile.
struct Picture {
  std::vector<unsigned char> pixels;
  std::string icc;
  bool operator==(const Picture&) const = default;
};

Picture decoded(const std::string& file) {
  vips::VImage image = vips::VImage::new_from_buffer(file.data(), file.size(), "");
  std::size_t size = 0;
  void* memory = image.write_to_memory(&size);
  Picture picture{{static_cast<unsigned char*>(memory), static_cast<unsigned char*>(memory) + size}, {}};
  g_free(memory);
  std::size_t length = 0;
  const void* icc = image.get_blob(VIPS_META_ICC_NAME, &length);
  picture.icc.assign(static_cast<const char*>(icc), length);
  return picture;
}

struct Format {
  const char* ext;
  int bits;
};
void PrintTo(const Format& f, std::ostream* out) { *out << f.ext << f.bits; }

const char* const leftover = "left-by-the-encoder";

class OutputMetadataTest : public ::testing::TestWithParam<Format> {
 protected:
  void SetUp() override {
    initMediaLibraries();
    test::SampleTags tags{.make = "Lumivale",
                          .model = "Test Camera",
                          .lens = "Test 35mm F2",
                          .dateTimeOriginal = "2023:06:01 12:34:56",
                          .copyright = "Carried Copyright",
                          .artist = "Ann Artist",
                          .software = "Camera Firmware 1.0",
                          .fNumber = test::Rational{28, 10},
                          .iso = 400,
                          .orientation = 6,
                          .latitude = "37/1 46/1 3000/100",
                          .latitudeRef = "N",
                          .longitude = "122/1 25/1 0/1",
                          .longitudeRef = "W",
                          .keywords = {"carried", "caf\xe9"}};
    test::writePhoto(photo, 64, 48, tags);
    // What a camera adds and an export must not carry: the original's
    // pixel size, a maker note and a thumbnail.
    auto image = Exiv2::ImageFactory::open(photo.string());
    image->readMetadata();
    image->exifData()["Exif.Photo.PixelXDimension"] = std::uint32_t(6000);
    image->exifData()["Exif.Photo.PixelYDimension"] = std::uint32_t(4000);
    Exiv2::DataValue note(Exiv2::undefined);
    note.read(reinterpret_cast<const Exiv2::byte*>("private maker bytes"), 19);
    image->exifData().add(Exiv2::ExifKey("Exif.Photo.MakerNote"), &note);
    image->exifData()["Exif.Thumbnail.ImageWidth"] = std::uint32_t(160);
    image->writeMetadata();
  }

  std::string encoded() const {
    return test::encodedPicture(GetParam().ext, 64, 48, GetParam().bits, leftover);
  }
  bool heif() const { return std::string(GetParam().ext) == "heic"; }

  test::TempDir dir;
  fs::path photo = dir / "IMG_1.jpg";
};

TEST_P(OutputMetadataTest, CarriesThePhotosFactsWithTheExportsOwn) {
  const OutputMetadata metadata{
      readCarriedMetadata(photo), "KUVO Lumivale (KUVO)", "© 2024 Ann", {"sea", "Bäume"}};
  const std::string before = encoded();
  const std::string after = withOutputMetadata(before, metadata);
  const ReadBack r = readBack(after);

  EXPECT_EQ(r.exifText("Exif.Image.Orientation"), "1");
  EXPECT_EQ(r.exifText("Exif.Image.Software"), "KUVO Lumivale (KUVO)");
  EXPECT_EQ(r.exifText("Exif.Image.Copyright"), "© 2024 Ann");
  EXPECT_EQ(r.exifText("Exif.Image.Make"), "Lumivale");
  EXPECT_EQ(r.exifText("Exif.Image.Artist"), "Ann Artist");
  EXPECT_EQ(r.exifText("Exif.Photo.FNumber"), "28/10");
  EXPECT_EQ(r.exifText("Exif.Photo.LensModel"), "Test 35mm F2");
  EXPECT_EQ(r.exifText("Exif.GPSInfo.GPSLatitude"), "37/1 46/1 3000/100");
  EXPECT_EQ(r.exifText("Exif.GPSInfo.GPSLongitudeRef"), "W");
  for (const char* absent :
       {"Exif.Photo.PixelXDimension", "Exif.Photo.PixelYDimension", "Exif.Photo.MakerNote",
        "Exif.Thumbnail.ImageWidth", "Exif.Image.ImageDescription"}) {
    EXPECT_EQ(r.exifText(absent), "(none)") << absent;
  }
  if (heif()) {
    // HEIF has no IPTC: keywords and copyright go into XMP.
    EXPECT_TRUE(r.iptc.empty());
    EXPECT_EQ(r.xmpText("Xmp.dc.subject"), "sea, Bäume");
    EXPECT_EQ(r.xmpText("Xmp.dc.rights"), "lang=\"x-default\" © 2024 Ann");
  } else {
    EXPECT_EQ(r.iptcTexts("Iptc.Application2.Keywords"), (std::vector<std::string>{"sea", "Bäume"}));
    EXPECT_EQ(r.iptcTexts("Iptc.Application2.Copyright"), (std::vector<std::string>{"© 2024 Ann"}));
    EXPECT_EQ(r.iptcTexts("Iptc.Envelope.CharacterSet"), (std::vector<std::string>{"\x1b%G"}));
    EXPECT_TRUE(r.xmp.empty());
  }
  EXPECT_EQ(after.find(leftover), std::string::npos);
  EXPECT_EQ(decoded(after), decoded(before));
}

// Texts stay as they were when the options add none; Latin-1 IPTC texts
// of older files arrive as UTF-8.
TEST_P(OutputMetadataTest, KeepsTheCarriedCopyrightAndKeywordsWhenTheExportHasNone) {
  const ReadBack r = readBack(withOutputMetadata(encoded(), {readCarriedMetadata(photo), "", "", {}}));
  EXPECT_EQ(r.exifText("Exif.Image.Copyright"), "Carried Copyright");
  EXPECT_EQ(r.exifText("Exif.Image.Software"), "(none)");
  if (heif()) {
    EXPECT_EQ(r.xmpText("Xmp.dc.subject"), "carried, café");
  } else {
    EXPECT_EQ(r.iptcTexts("Iptc.Application2.Keywords"), (std::vector<std::string>{"carried", "café"}));
  }
}

TEST_P(OutputMetadataTest, NoMetadataLeavesOnlyTheUprightOrientation) {
  const std::string before = encoded();
  const std::string after = withOutputMetadata(before, {});
  const ReadBack r = readBack(after);
  for (const Exiv2::Exifdatum& d : r.exif) {
    // A TIFF's own entries say how it stores its pixels.
    if (d.key() == "Exif.Image.Orientation" ||
        (std::string(GetParam().ext) == "tif" && d.groupName() == "Image" &&
         d.key() != "Exif.Image.Software" && d.tag() < 0x8000)) {
      continue;
    }
    if (d.key() == "Exif.Image.InterColorProfile") continue;
    ADD_FAILURE() << d.key() << " = " << d.toString();
  }
  EXPECT_EQ(r.exifText("Exif.Image.Orientation"), "1");
  EXPECT_TRUE(r.iptc.empty());
  EXPECT_TRUE(r.xmp.empty());
  EXPECT_EQ(after.find(leftover), std::string::npos);
  EXPECT_EQ(decoded(after), decoded(before));
}

INSTANTIATE_TEST_SUITE_P(Formats, OutputMetadataTest,
                         ::testing::Values(Format{"jpg", 8}, Format{"png", 8}, Format{"tif", 8},
                                           Format{"tif", 16}, Format{"heic", 8}));

TEST(CarriedMetadata, LeavesOutTheCamerasPrivateAndStructuralEntries) {
  initMediaLibraries();
  // A PNG with a Nikon maker note and the pixel size of the camera's image.
  const CarriedMetadata png = readCarriedMetadata(test::realPhoto("Nikon-D300-12bit_srgb8_dt.png"));
  ASSERT_FALSE(png.exif.empty());
  Exiv2::ExifData exif;
  Exiv2::ExifParser::decode(exif, reinterpret_cast<const Exiv2::byte*>(png.exif.data()),
                            std::uint32_t(png.exif.size()));
  EXPECT_NE(exif.findKey(Exiv2::ExifKey("Exif.Image.Model")), exif.end());
  for (const Exiv2::Exifdatum& d : exif) {
    const std::string group = d.groupName();
    EXPECT_TRUE(group == "Image" || group == "Photo" || group == "GPSInfo") << d.key();
    EXPECT_NE(d.key(), "Exif.Photo.MakerNote");
    EXPECT_NE(d.key(), "Exif.Photo.PixelXDimension");
  }
}

TEST(CarriedMetadata, IsEmptyForAFileThatCannotBeRead) {
  test::TempDir dir;
  test::writeFile(dir / "noise.jpg", std::string("\xFF\xD8\xFF\xE1\x00\x10garbage", 14));
  test::makeFifo(dir / "fifo.jpg");
  for (const fs::path& file : {dir / "missing.jpg", dir / "noise.jpg", dir / "fifo.jpg", dir.path()}) {
    EXPECT_EQ(readCarriedMetadata(file), CarriedMetadata()) << file;
  }
}

TEST(OutputMetadataWriter, RefusesWhatIsNoImageOrIsCutShort) {
  const std::string jpeg = test::encodedPicture("jpg", 32, 32);
  for (const std::string& bad :
       {std::string(), std::string("GIF89a"), jpeg.substr(0, 3), jpeg.substr(0, 40)}) {
    EXPECT_TRUE(
        test::throwsWith<MediaError>([&] { withOutputMetadata(bad, {}); }, "cannot write the metadata"))
        << bad.size();
  }
}

}  // namespace
