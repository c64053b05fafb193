#include "engine/media/heif_metadata.h"

#include <gtest/gtest.h>

#include <exiv2/exiv2.hpp>
#include <random>
#include <vips/vips8>

#include "engine/media/media_libraries.h"
#include "engine/media/safe_file.h"
#include "tests/support/sample_photos.h"
#include "tests/support/temp_dir.h"

using namespace lumivale;

namespace {

std::vector<unsigned char> pixelsOf(const std::string& file, const char* options = "") {
  vips::VImage image = vips::VImage::new_from_buffer(file.data(), file.size(), options);
  std::size_t size = 0;
  void* memory = image.write_to_memory(&size);
  std::vector<unsigned char> pixels(static_cast<unsigned char*>(memory),
                                    static_cast<unsigned char*>(memory) + size);
  g_free(memory);
  return pixels;
}

std::size_t count(const std::string& text, std::string_view part) {
  std::size_t n = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++n;
  return n;
}

// A camera's HEIC: a grid of 512 × 512 tiles, a thumbnail, a depth map of
// its own and Apple's EXIF, all of which but the EXIF must come through.
TEST(HeifMetadata, KeepsEveryImageOfACamerasFileAndReplacesItsExif) {
  initMediaLibraries();
  const auto photo = test::sharedPhoto("heic/IMG_3578.heic");
  if (!photo) GTEST_SKIP() << "the shared test photos are not there";
  const std::string before = test::readFile(*photo);
  Exiv2::ExifData ours;
  ours["Exif.Image.Model"] = "ours";
  Exiv2::Blob exif;
  Exiv2::ExifParser::encode(exif, Exiv2::littleEndian, ours);
  const std::string after = replaceHeifMetadata(
      before, std::string_view(reinterpret_cast<const char*>(exif.data()), exif.size()), "");
  EXPECT_TRUE(pixelsOf(after, "thumbnail") == pixelsOf(before, "thumbnail"));
  EXPECT_TRUE(pixelsOf(after) == pixelsOf(before));

  test::TempDir dir;
  test::writeFile(dir / "after.heic", after);
  const auto image = Exiv2::ImageFactory::open((dir / "after.heic").string());
  image->readMetadata();
  std::vector<std::string> keys;
  for (const Exiv2::Exifdatum& d : image->exifData()) keys.push_back(d.key() + "=" + d.toString());
  EXPECT_EQ(keys, std::vector<std::string>{"Exif.Image.Model=ours"});
}

TEST(HeifMetadata, ReplacingAgainGivesTheSameFile) {
  const std::string encoded = test::encodedPicture("heic", 96, 64, 8, "leftover");
  const std::string once = replaceHeifMetadata(encoded, "II*\0\x08\0\0\0\0\0\0\0", "<x:xmpmeta/>");
  EXPECT_TRUE(replaceHeifMetadata(once, "II*\0\x08\0\0\0\0\0\0\0", "<x:xmpmeta/>") == once);
  EXPECT_EQ(count(once, "leftover"), 0u);
  const std::string bare = replaceHeifMetadata(once, "", "");
  EXPECT_EQ(count(bare, "Exif"), 0u);
  EXPECT_EQ(count(bare, "xmpmeta"), 0u);
  EXPECT_TRUE(pixelsOf(bare) == pixelsOf(encoded));
}

// Damaged files are refused with the writer's error; none is read past its
// end (the address sanitizer build watches that).
TEST(HeifMetadata, RefusesDamagedFilesWithoutReadingPastThem) {
  const std::string encoded = test::encodedPicture("heic", 32, 32);
  int refused = 0;
  for (std::size_t cut = 0; cut < encoded.size(); ++cut) {
    try {
      replaceHeifMetadata(encoded.substr(0, cut), "II*\0", "");
    } catch (const MediaError&) {
      ++refused;
    }
  }
  EXPECT_GT(refused, int(encoded.size()) / 2);
  std::mt19937 random(7);
  const std::size_t mdat = encoded.find("mdat");
  for (int trial = 0; trial < 2000; ++trial) {
    std::string damaged = encoded;
    for (int k = 0; k < 3; ++k) damaged[random() % mdat] = char(random());
    try {
      replaceHeifMetadata(damaged, "II*\0", "<x/>");
    } catch (const MediaError&) {
    }
  }
}

// Big-endian fields and boxes, for files made by hand.
std::string be(std::uint64_t v, int bytes) {
  std::string out;
  for (int i = bytes - 1; i >= 0; --i) out.push_back(char(v >> (8 * i)));
  return out;
}
std::string box(const char* type, const std::string& body) { return be(body.size() + 8, 4) + type + body; }
std::string fullBox(const char* type, int version, const std::string& body) {
  return box(type, be(std::uint32_t(version) << 24, 4) + body);
}

// A file whose location table sends `count` items to the same bytes: each
// kept item's bytes are copied, and they must not add up to more than the
// file holds.
std::string sharedBytesFile(int count) {
  const std::string data(1000, 'd');
  std::string locations = be(0x44, 1) + be(0, 1) + be(count, 2);
  for (int id = 1; id <= count; ++id)
    locations += be(id, 2) + be(0, 2) + be(0, 2) + be(1, 2) + be(0, 4) + be(1000, 4);
  const std::string infos =
      be(1, 2) + fullBox("infe", 2, be(1, 2) + be(0, 2) + "hvc1" + std::string(1, '\0'));
  const std::string meta =
      fullBox("meta", 0,
              fullBox("hdlr", 0, be(0, 4) + "pict" + std::string(13, '\0')) + fullBox("pitm", 0, be(1, 2)) +
                  fullBox("iloc", 1, locations) + fullBox("iinf", 0, infos));
  const std::string ftyp = box("ftyp", "heic" + be(0, 4) + "mif1heic");
  std::string file = ftyp + meta + box("mdat", data);
  // Every extent starts at the media data.
  const std::string offset = be(ftyp.size() + meta.size() + 8, 4);
  for (std::size_t at = file.find(be(1000, 4)); at != std::string::npos && at < ftyp.size() + meta.size();
       at = file.find(be(1000, 4), at + 8)) {
    file.replace(at - 4, 4, offset);
  }
  return file;
}

TEST(HeifMetadata, RefusesItemsThatClaimMoreBytesThanTheFileHas) {
  EXPECT_NO_THROW(replaceHeifMetadata(sharedBytesFile(1), "II*\0", ""));
  EXPECT_THROW(replaceHeifMetadata(sharedBytesFile(100), "II*\0", ""), MediaError);
}

}  // namespace
