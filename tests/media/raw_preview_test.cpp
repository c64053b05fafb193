// The RAW container reader on synthetic DNG and TIFF-based files that LibRaw
// reads, on the shared Canon CR2 and cut or damaged containers, and the
// ordering of embedded previews.

#include "engine/media/raw_preview.h"

#include <gtest/gtest.h>

#include <memory>
#include <tuple>

#include "tests/support/sample_photos.h"
#include "tests/support/temp_dir.h"

using namespace lumivale;

namespace {

void putLittle32(std::string& out, std::uint32_t v) {
  for (int i = 0; i < 4; ++i) out += static_cast<char>(v >> (8 * i));
}

// A Phase One file whose metadata directory claims four billion entries, as
// one flipped bit can make it: LibRaw 0.20 walks them all, for hours.
std::string endlessPhaseOneFile() {
  std::string bytes("IIII\0waR", 8);  // byte order, "Raw" magic
  putLittle32(bytes, 16);             // the directory
  putLittle32(bytes, 0);
  putLittle32(bytes, 1);  // one entry: the metadata block at 64
  putLittle32(bytes, 0);
  for (std::uint32_t v : {0x110u, 4u, 64u, 64u}) putLittle32(bytes, v);
  bytes.resize(64);
  bytes += std::string("II\0\0\0\0\0\0", 8);
  putLittle32(bytes, 16);  // its directory, at 64 + 16
  putLittle32(bytes, 0);
  putLittle32(bytes, 0xFFFFFFFF);
  bytes.resize(3000);
  return bytes;
}

std::tuple<std::string, std::string, int, int> cameraAndSize(const RawInfo& info) {
  return {info.make, info.model, info.width, info.height};
}

}  // namespace

TEST(RawPreviewTest, ReadsTheFactsTurnsTheSizeAndListsTheEmbeddedPreview) {
  test::TempDir dir;
  test::SampleDng dng{.width = 96, .height = 64, .make = "NIKON CORPORATION", .model = "NIKON Z 6"};
  dng.lens = "NIKKOR Z 24-70mm f/4 S", dng.exposure = {1, 250}, dng.fNumber = {4, 1}, dng.iso = 1600;
  dng.focal = {48, 1}, dng.dateTimeOriginal = "2022:12:24 18:30:05";
  test::writeDng(dir / "a.dng", dng);
  RawInfo expected{
      .make = "NIKON CORPORATION", .model = "NIKON Z 6", .lens = "NIKKOR Z 24-70mm f/4 S", .iso = 1600};
  expected.exposure = 0.004, expected.fNumber = 4, expected.focal = 48;
  expected.dateOriginal = "2022:12:24 18:30:05", expected.width = 96, expected.height = 64;
  EXPECT_EQ(RawPreview::info(dir / "a.dng"), expected);

  test::writeDng(dir / "b.dng",
                 {.width = 96, .height = 64, .orientation = 6, .previewWidth = 320, .previewHeight = 240});
  const auto info = RawPreview::info(dir / "b.dng");
  ASSERT_TRUE(info);
  EXPECT_EQ(std::tuple(info->orientation, info->width, info->height), std::tuple(6, 64, 96));
  ASSERT_EQ(info->previews.size(), 1u);  // both readers found it; listed once
  const EmbeddedPreview* preview = info->largestPreview();
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

// The maker and model as the file spells them (not LibRaw's vendor table),
// the size the camera records (a DNG's default crop, the EXIF pixel size,
// not LibRaw's visible area), turned by the orientation.
TEST(RawPreviewTest, TakesCameraAndSizeAsTheFileRecordsThem) {
  test::TempDir dir;
  const std::tuple<const char*, test::SampleDng, std::tuple<std::string, std::string, int, int>> cases[] = {
      {"canon.dng",
       {.width = 96,
        .height = 64,
        .make = "Canon",
        .model = "Canon EOS M50",
        .cropWidth = 90,
        .cropHeight = 60},
       {"Canon", "Canon EOS M50", 90, 60}},
      {"turned.dng",
       {.width = 96, .height = 64, .orientation = 6, .cropWidth = 90, .cropHeight = 60},
       {"Lumivale", "Test Camera", 60, 90}},
      {"IMGP0001.PEF",
       {.width = 96,
        .height = 64,
        .make = "PENTAX",
        .model = "PENTAX K-1",
        .orientation = 6,
        .dngTags = false,
        .exifWidth = 94,
        .exifHeight = 62},
       {"PENTAX", "PENTAX K-1", 62, 94}},
      // An EXIF size far below the picture's describes a preview.
      {"P1000001.RW2",
       {.width = 96,
        .height = 64,
        .make = "Panasonic",
        .model = "DC-G9",
        .dngTags = false,
        .exifWidth = 48,
        .exifHeight = 32},
       {"Panasonic", "DC-G9", 96, 64}},
      // IFD0 describes the preview; the camera is named beside the raw image.
      {"IMG_0001.CR2",
       {.width = 96,
        .height = 64,
        .make = "Canon",
        .model = "Canon EOS M50",
        .previewWidth = 64,
        .previewHeight = 48,
        .dngTags = false,
        .cameraInRawDirectory = true},
       {"Canon", "Canon EOS M50", 96, 64}},
  };
  for (const auto& [name, dng, expected] : cases) {
    test::writeDng(dir / name, dng);
    EXPECT_EQ(cameraAndSize(RawPreview::info(dir / name).value_or(RawInfo{})), expected) << name;
  }

  // As exiftool reports the shared Canon file: ExifImageWidth and Height.
  const auto cr2 = test::sharedPhoto("raw/IMG_5952.CR2");
  if (!cr2) GTEST_SKIP() << "the shared test photos are not there";
  EXPECT_EQ(cameraAndSize(RawPreview::info(*cr2).value_or(RawInfo{})),
            std::tuple("Canon", "Canon EOS 30D", 3504, 2336));
}

// LibRaw refuses a CR3 whose previews and raw track were removed and a CR2
// cut after its directories (where the camera's preview begins); exiv2
// reads their directories, which describe them as exiftool does.
TEST(RawPreviewTest, DescribesAContainerLibRawRefusesByItsOwnDirectory) {
  test::TempDir dir;
  test::writeFile(dir / "IMG_0001.CR3", test::cr3Bytes({.make = "Canon",
                                                        .model = "Canon EOS R6",
                                                        .exposure = {1, 500},
                                                        .fNumber = {4, 1},
                                                        .iso = 800,
                                                        .orientation = 6,
                                                        .exifWidth = 5472,
                                                        .exifHeight = 3648}));
  RawInfo cr3{
      .make = "Canon", .model = "Canon EOS R6", .lens = "Test 35mm F2", .iso = 800, .exposure = 0.002};
  cr3.fNumber = 4, cr3.focal = 35, cr3.dateOriginal = "2023:06:01 12:34:56";
  cr3.width = 3648, cr3.height = 5472, cr3.orientation = 6;
  EXPECT_EQ(RawPreview::info(dir / "IMG_0001.CR3"), cr3);

  const auto cr2 = test::sharedPhoto("raw/IMG_5952.CR2");
  if (!cr2) GTEST_SKIP() << "the shared test photos are not there";
  test::writeFile(dir / "cut.CR2", test::readFile(*cr2).substr(0, 83355));
  auto info = RawPreview::info(dir / "cut.CR2");
  ASSERT_TRUE(info);
  info->previews.clear();
  RawInfo expected{.make = "Canon", .model = "Canon EOS 30D", .iso = 640, .exposure = 0.0025, .fNumber = 22};
  expected.focal = 22, expected.dateOriginal = "2009:07:21 13:03:20", expected.width = 3504;
  expected.height = 2336;
  EXPECT_EQ(*info, expected);
}

// Every header read is bounded: a directory that never ends spends the
// file's read budget in a moment and the file counts as unreadable.
TEST(RawPreviewTest, GivesUpOnADirectoryThatNeverEnds) {
  test::TempDir dir;
  const auto file = dir / "P0001.IIQ";
  test::writeFile(file, endlessPhaseOneFile());
  auto result = std::make_shared<std::optional<RawInfo>>(RawInfo{});
  ASSERT_TRUE(test::finishesWithin(20, [file, result] { *result = RawPreview::info(file); }));
  EXPECT_FALSE(*result);
}

TEST(RawPreviewTest, GivesNothingForFilesThatAreNoRawContainers) {
  test::TempDir dir;
  test::writeFile(dir / "empty.nef", "");
  test::writeFile(dir / "text.cr2", "not a raw file at all\n");
  test::writeFile(dir / "jpeg.cr2", test::jpegBytes(32, 32));
  test::writeDng(dir / "whole.dng");
  test::writeFile(dir / "cut.dng", test::readFile(dir / "whole.dng").substr(0, 16));
  for (const char* name : {"empty.nef", "text.cr2", "cut.dng", "missing.arw"}) {
    EXPECT_FALSE(RawPreview::info(dir / name)) << name;
  }
  // LibRaw may recognise a JPEG, but it names no camera model then.
  auto jpeg = RawPreview::info(dir / "jpeg.cr2");
  EXPECT_TRUE(!jpeg || jpeg->model.empty());
}

TEST(RawPreviewOrderTest, PutsTheLargestFirstDropsRepeatsAndMapsFlips) {
  using P = EmbeddedPreview;
  std::vector<P> previews = {{P::Source::exiv2, P::Format::tiff, 16, "image/tiff", 160, 120, 57600, -1},
                             // the same picture as LibRaw's
                             {P::Source::exiv2, P::Format::tiff, 17, "image/tiff", 1616, 1080, 5000, -1},
                             {P::Source::libraw, P::Format::jpeg, -1, "image/jpeg", 1616, 1080, 4852, 143},
                             {P::Source::exiv2, P::Format::jpeg, 18, "image/jpeg", 640, 480, 30000, -1}};
  RawPreview::orderPreviews(previews);
  ASSERT_EQ(previews.size(), 3u);
  EXPECT_EQ(std::tuple(previews[0].source, previews[0].offset), std::tuple(P::Source::libraw, 143));
  EXPECT_EQ(std::tuple(previews[1].exiv2Id, previews[2].exiv2Id), std::tuple(18, 16));

  const int orientations[8] = {1, 2, 4, 3, 5, 8, 6, 7};
  for (int flip = 0; flip < 8; ++flip)
    EXPECT_EQ(RawPreview::orientationFromFlip(flip), orientations[flip]) << flip;
  EXPECT_EQ(RawPreview::orientationFromFlip(-1), 1);
  EXPECT_EQ(RawPreview::orientationFromFlip(99), 1);
}
