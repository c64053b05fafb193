#include "engine/export/mask_export.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <mutex>
#include <random>
#include <vips/vips8>

#include "engine/render/mask_renderer.h"
#include "tests/support/errors.h"
#include "tests/support/sample_photos.h"
#include "tests/support/temp_dir.h"

using namespace lumivale;
namespace fs = std::filesystem;
using Bytes = std::vector<std::uint8_t>;
using Names = std::vector<std::string>;

namespace {

void startVips() {
  static std::once_flag once;
  std::call_once(once, [] {
    if (VIPS_INIT("lumivale-tests")) throw std::runtime_error("cannot start libvips");
    vips_cache_set_max(0);  // files are rewritten under the same names
  });
}

struct PngLayout {
  int bands = 1;     ///< 1 grey, 2 grey + alpha, 3 RGB, 4 RGBA
  int bitdepth = 8;  ///< 1, 4, 8 or 16
  bool interlace = false;
  bool palette = false;
};

// Writes samples (bands per pixel, 0 … 255 or 0 … 65535) as a PNG with libvips,
// so the files read by the engine come from another writer than its own.
void writeTestPng(const fs::path& file, int w, int h, const std::vector<int>& samples, PngLayout layout) {
  startVips();
  const bool wide = layout.bitdepth == 16;
  const std::vector<std::uint16_t> wideData(samples.begin(), samples.end());
  const Bytes narrowData(samples.begin(), samples.end());
  vips::VImage image =
      wide ? vips::VImage::new_from_memory(const_cast<std::uint16_t*>(wideData.data()), wideData.size() * 2,
                                           w, h, layout.bands, VIPS_FORMAT_USHORT)
           : vips::VImage::new_from_memory(const_cast<std::uint8_t*>(narrowData.data()), narrowData.size(), w,
                                           h, layout.bands, VIPS_FORMAT_UCHAR);
  const VipsInterpretation kind = layout.bands < 3
                                      ? (wide ? VIPS_INTERPRETATION_GREY16 : VIPS_INTERPRETATION_B_W)
                                      : (wide ? VIPS_INTERPRETATION_RGB16 : VIPS_INTERPRETATION_sRGB);
  image.copy(vips::VImage::option()->set("interpretation", kind))
      .pngsave(file.c_str(), vips::VImage::option()
                                 ->set("bitdepth", layout.bitdepth)
                                 ->set("interlace", layout.interlace)
                                 ->set("palette", layout.palette)
                                 ->set("dither", 0.0)
                                 ->set("Q", 100));
}

// The samples of a file as libvips decodes it to one 8-bit band; nothing
// when it is anything else.
std::optional<Bytes> greyBytesWithVips(const fs::path& file) {
  startVips();
  const vips::VImage image = vips::VImage::new_from_file(file.c_str());
  if (image.bands() != 1 || image.format() != VIPS_FORMAT_UCHAR) return std::nullopt;
  std::size_t size = 0;
  void* memory = image.write_to_memory(&size);
  const Bytes bytes(static_cast<std::uint8_t*>(memory), static_cast<std::uint8_t*>(memory) + size);
  g_free(memory);
  return bytes;
}

MaskBitmap patterned(int w, int h, unsigned seed) {
  MaskBitmap m(w, h);
  std::mt19937 rng(seed);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x)  // smooth ramps with noisy patches, as real masks have both
      m.bytes[std::size_t(y) * w + x] = (x / 64 + y / 64) % 3 ? std::uint8_t(x * 7 + y) : std::uint8_t(rng());
  return m;
}

Names namesIn(const fs::path& dir) {
  Names names;
  for (const auto& entry : fs::directory_iterator(dir)) names.push_back(entry.path().filename().string());
  std::sort(names.begin(), names.end());
  return names;
}

std::string goodPng() {
  test::TempDir dir;
  writeMaskPNG(patterned(64, 64, 3), dir / "good.png");
  return test::readFile(dir / "good.png");
}

// A valid PNG whose header claims another size (its CRC fixed up).
std::string claimingSize(std::uint32_t w, std::uint32_t h) {
  std::string png = goodPng();
  for (int i = 0; i < 4; ++i) png[16 + i] = char(w >> (24 - 8 * i)), png[20 + i] = char(h >> (24 - 8 * i));
  std::uint32_t crc = 0xFFFFFFFF;
  for (int i = 12; i < 29; ++i) {
    crc ^= std::uint8_t(png[i]);
    for (int k = 0; k < 8; ++k) crc = crc & 1 ? (crc >> 1) ^ 0xEDB88320 : crc >> 1;
  }
  for (int i = 0; i < 4; ++i) png[29 + i] = char(~crc >> (24 - 8 * i));
  return png;
}

}  // namespace

TEST(MaskPngTest, RoundTripSurvivesAFileBitForBit) {
  for (auto [w, h] : {std::pair{1, 1}, {3, 2}, {1, 700}, {1024, 683}, {4000, 3000}}) {
    SCOPED_TRACE(testing::Message() << w << " × " << h);
    const MaskBitmap m = patterned(w, h, unsigned(w * 31 + h));
    test::TempDir dir;
    writeMaskPNG(m, dir / "mask.png");
    EXPECT_EQ(maskBitmapFromImageFile(dir / "mask.png"), m);
    // Another reader sees one 8-bit grey channel with the same bytes.
    EXPECT_TRUE(greyBytesWithVips(dir / "mask.png") == m.bytes);
    EXPECT_EQ(namesIn(dir.path()), Names{"mask.png"});  // no temporary left
  }
}

TEST(MaskPngTest, ReadsTheChannelThatCarriesTheCoverage) {
  const struct {
    const char* name;
    PngLayout layout;
    int width;
    std::vector<int> samples;
    Bytes expected;
  } cases[] = {
      {"grey", {1}, 2, {0, 7, 128, 255}, {0, 7, 128, 255}},
      {"grey interlaced", {1, 8, true}, 3, {1, 2, 3, 4, 5, 6, 7, 8, 9}, {1, 2, 3, 4, 5, 6, 7, 8, 9}},
      {"translucent alpha wins", {2}, 3, {9, 255, 9, 100, 9, 0}, {255, 100, 0}},
      {"opaque alpha is ignored", {2}, 3, {10, 255, 20, 255, 30, 255}, {10, 20, 30}},
      {"RGB luma",
       {3},
       5,
       {255, 0, 0, 0, 255, 0, 0, 0, 255, 10, 10, 10, 255, 255, 255},
       {54, 182, 18, 10, 255}},
      {"opaque RGBA luma", {4}, 1, {0, 255, 0, 255}, {182}},
      {"translucent RGBA", {4}, 2, {0, 0, 0, 40, 255, 255, 255, 255}, {40, 255}},
      {"grey 16 rounded", {1, 16}, 5, {0, 65535, 32896, 128, 129 * 257 + 128}, {0, 255, 128, 0, 129}},
      {"RGB 16 luma", {3, 16}, 2, {65535, 0, 0, 514, 514, 514}, {54, 2}},
      // An alpha one step below full is translucent, though it rounds to 255.
      {"alpha 16 just below full", {2, 16}, 2, {0, 65534, 0, 65535}, {255, 255}},
      {"4-bit grey", {1, 4}, 3, {0, 136, 255}, {0, 136, 255}},
      {"1-bit grey", {1, 1}, 2, {0, 255}, {0, 255}},
      {"palette", {3, 8, false, true}, 2, {255, 0, 0, 0, 0, 255}, {54, 18}},
      {"the widest",
       {1},
       maxMaskImageSide,
       std::vector<int>(maxMaskImageSide, 77),
       Bytes(maxMaskImageSide, 77)}};
  test::TempDir dir;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const int height = int(c.expected.size()) / c.width;
    writeTestPng(dir / "in.png", c.width, height, c.samples, c.layout);
    const MaskBitmap m = maskBitmapFromImageFile(dir / "in.png");
    EXPECT_EQ(std::pair(m.width, m.height), std::pair(c.width, height));
    EXPECT_EQ(m.bytes, c.expected);
  }
}

TEST(MaskPngTest, BadFilesAreClearErrors) {
  const std::string good = goodPng();
  std::string garbled = good;
  for (std::size_t i = 60; i < garbled.size() - 20; i += 7) garbled[i] = char(~garbled[i]);
  const std::pair<std::string, const char*> cases[] = {
      {"", "empty file"},
      {"just some words\n", "not a PNG image"},
      {test::jpegBytes(16, 16), "not a PNG image"},
      {good.substr(0, 8), "damaged PNG"},
      {good.substr(0, 5), "not a PNG image"},
      {good.substr(0, 20), "damaged PNG"},  // cut in the header
      {good.substr(0, good.size() / 2), "damaged PNG"},
      {good.substr(0, good.size() - 12), "damaged PNG"},  // cut before the end chunk
      {garbled, "damaged PNG"},
      {claimingSize(0, 64), "damaged PNG"},
      {claimingSize(16385, 1), "too large"},
      {claimingSize(1, 16385), "too large"},
      {claimingSize(8193, 8193), "too large"},
      {claimingSize(0xFFFFFFFF, 1), "damaged PNG"}};  // beyond what PNG allows
  test::TempDir dir;
  for (std::size_t i = 0; i < std::size(cases); ++i) {
    test::writeFile(dir / "mask.png", cases[i].first);
    EXPECT_TRUE(
        test::throwsWith<MaskImageError>([&] { maskBitmapFromImageFile(dir / "mask.png"); }, cases[i].second))
        << i;
  }
  EXPECT_TRUE(
      test::throwsWith<MaskImageError>([&] { maskBitmapFromImageFile(dir / "none.png"); }, "cannot open"));
  EXPECT_TRUE(test::throwsWith<MaskImageError>([&] { maskBitmapFromImageFile(dir.path()); }, "cannot read"));

  // Random damage gives an error or a bitmap of the size it claims.
  std::mt19937 rng(12);
  int errors = 0;
  for (int trial = 0; trial < 300; ++trial) {
    std::string png = good;
    for (int k = 0, n = 1 + int(rng() % 4); k < n; ++k) png[8 + rng() % (png.size() - 8)] = char(rng());
    test::writeFile(dir / "damaged.png", png);
    try {
      const MaskBitmap m = maskBitmapFromImageFile(dir / "damaged.png");
      EXPECT_EQ(m.bytes.size(), std::size_t(m.width) * std::size_t(m.height));
    } catch (const MaskImageError&) {
      ++errors;
    }
  }
  EXPECT_GT(errors, 150);  // chunk checksums catch most damage
}

TEST(MaskPngTest, WritingNeverReplacesAFileUnlessAskedAndAFailureLeavesNothing) {
  test::TempDir dir;
  test::writeFile(dir / "taken.png", "keep me");
  fs::create_symlink(dir / "nowhere", dir / "link.png");
  for (const char* name : {"taken.png", "link.png"})
    EXPECT_TRUE(test::throwsWith<MaskImageError>([&] { writeMaskPNG(MaskBitmap(4, 4, 1), dir / name); },
                                                 "already exists"));
  EXPECT_EQ(test::readFile(dir / "taken.png"), "keep me");
  writeMaskPNG(MaskBitmap(4, 4, 1), dir / "taken.png", true);
  EXPECT_EQ(maskBitmapFromImageFile(dir / "taken.png"), MaskBitmap(4, 4, 1));

  MaskBitmap shortBytes(4, 4);
  shortBytes.bytes.pop_back();
  const std::tuple<MaskBitmap, fs::path, const char*> failures[] = {
      {MaskBitmap(4, 4), dir / "no" / "such.png", "cannot write"},
      {MaskBitmap(), dir / "empty.png", "empty"},
      {shortBytes, dir / "short.png", "do not match"}};
  for (const auto& [bitmap, file, message] : failures)
    EXPECT_TRUE(test::throwsWith<MaskImageError>([&] { writeMaskPNG(bitmap, file); }, message)) << file;
  EXPECT_EQ(namesIn(dir.path()), (Names{"link.png", "taken.png"}));
  if (::geteuid() != 0) {  // permissions do not bind root
    fs::create_directory(dir / "locked");
    fs::permissions(dir / "locked", fs::perms::owner_read | fs::perms::owner_exec);
    EXPECT_TRUE(test::throwsWith<MaskImageError>(
        [&] { writeMaskPNG(MaskBitmap(4, 4), dir / "locked" / "m.png"); }, "cannot write"));
    fs::permissions(dir / "locked", fs::perms::owner_all);
    EXPECT_TRUE(namesIn(dir / "locked").empty());
  }
}

TEST(MaskExportTest, GivesTheBitmapOfEachKindOrAClearError) {
  const MaskBitmap stored = patterned(30, 20, 4);
  const PhotoMask sky = smartMaskFromBitmap(stored, MaskKind::sky);
  EXPECT_EQ(sky.name, "Select Sky");
  EXPECT_EQ(maskBitmapForExport(sky, 6000, 4000), stored);
  EXPECT_EQ(storedBitmapSize(*sky.maskPNG), (std::pair{30, 20}));

  PhotoMask brush(MaskKind::brush);
  brush.dabs = {{0.3, 0.4, 0.05, 0.5, 0.8, false}, {0.32, 0.41, 0.02, 0, 1, true}};
  for (auto [w, h, bitmapW, bitmapH] :
       {std::tuple{6000, 4000, 1024, 682}, {4000, 6000, 682, 1024}, {0, 0, 1024, 1024}, {-1, 5, 1024, 1024}})
    EXPECT_EQ(maskBitmapForExport(brush, w, h), MaskRenderer::paint(brush.dabs, bitmapW, bitmapH))
        << w << " × " << h;
  EXPECT_EQ(maskBitmapForExport(PhotoMask(MaskKind::brush), 300, 100), MaskBitmap(1024, 341));

  PhotoMask damaged(MaskKind::subject);
  damaged.maskPNG = Bytes{'K', 'V', 'M', 'K', 9, 0, 0, 0, 9, 0, 0, 0, 1, 2};
  for (const auto& [mask, message] :
       {std::pair(PhotoMask(MaskKind::people), "no computed coverage"), std::pair(damaged, "damaged"),
        std::pair(PhotoMask(MaskKind::linear), "gradient masks have no bitmap"),
        std::pair(PhotoMask(MaskKind::radial), "gradient masks have no bitmap")})
    EXPECT_TRUE(test::throwsWith<MaskImageError>([&] { maskBitmapForExport(mask, 100, 100); }, message))
        << key(mask.kind);
  EXPECT_FALSE(storedBitmapSize(*damaged.maskPNG));  // a sound header is not enough
  EXPECT_FALSE(storedBitmapSize(Bytes{'K', 'V', 'M', 'X', 9, 0, 0, 0, 9, 0, 0, 0, 1}));
  EXPECT_FALSE(storedBitmapSize(Bytes{'K', 'V', 'M', 'K', 9, 0, 0, 0, 9, 0, 0, 0}));

  // Smart masks hold only usable bitmaps.
  EXPECT_EQ(smartMaskFromBitmap(MaskBitmap(2, 2), MaskKind::people, "Me").name, "Me");
  for (MaskKind kind : {MaskKind::brush, MaskKind::linear, MaskKind::radial})
    EXPECT_THROW(smartMaskFromBitmap(MaskBitmap(2, 2), kind), MaskImageError);
  EXPECT_THROW(smartMaskFromBitmap(MaskBitmap(), MaskKind::sky), MaskImageError);
}
