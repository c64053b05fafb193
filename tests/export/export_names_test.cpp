// Output sizes, file names and the never-replace rule of exports.

#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <thread>

#include "engine/export/exporter.h"
#include "tests/support/errors.h"
#include "tests/support/temp_dir.h"

using namespace lumivale;

namespace {

namespace fs = std::filesystem;
using Exporter::PixelSize;

struct SizeCase {
  double width, height;
  SizeMode mode;
  double value;
  bool dontEnlarge;
  PixelSize expected;
};

TEST(ExportOutputSize, ScalesByTheModesEdgeWithinItsLimits) {
  const SizeCase cases[] = {
      {6000, 4000, SizeMode::longEdge, 2048, true, {2048, 1365}},
      {6000, 4000, SizeMode::percent, 50, true, {3000, 2000}},
      {6000, 4000, SizeMode::percent, 200, false, {12000, 8000}},
      {6000, 4000, SizeMode::percent, 200, true, {6000, 4000}},
      {6000, 4000, SizeMode::original, 10, false, {6000, 4000}},
      {3000, 2000, SizeMode::longEdge, 4000, true, {3000, 2000}},
      {3000, 2000, SizeMode::longEdge, 4000, false, {4000, 2667}},
      {3000, 2000, SizeMode::shortEdge, 1000, true, {1500, 1000}},
      {2000, 3000, SizeMode::width, 1000, true, {1000, 1500}},
      {2000, 3000, SizeMode::height, 600, true, {400, 600}},
      {2000, 3000, SizeMode::longEdge, 1500, true, {1000, 1500}},
      // Halves round away from zero: 5 × 0.5 = 2.5 → 3.
      {5, 3, SizeMode::percent, 50, true, {3, 2}},
      // The scale never drops below 0.01, and no side below 1 pixel.
      {6000, 4000, SizeMode::longEdge, 0, true, {60, 40}},
      {50, 50, SizeMode::longEdge, 0, true, {1, 1}},
      {50, 50, SizeMode::percent, -30, false, {1, 1}},
      {1, 1, SizeMode::original, 2048, true, {1, 1}},
  };
  for (const SizeCase& c : cases) {
    const ExportOptions options{.sizeMode = c.mode, .sizeValue = c.value, .dontEnlarge = c.dontEnlarge};
    const PixelSize size = Exporter::outputSize(c.width, c.height, options);
    EXPECT_EQ(size, c.expected) << c.width << "x" << c.height << " " << key(c.mode) << " " << c.value
                                << " -> " << size.width << "x" << size.height;
  }
}

TEST(ExportDecodeSize, DecodesSmallerOnlyForAStrongReduction) {
  EXPECT_EQ(Exporter::decodeMaxSide(1.0, 6000, 4000), std::nullopt);
  EXPECT_EQ(Exporter::decodeMaxSide(0.45, 6000, 4000), std::nullopt);
  EXPECT_EQ(Exporter::decodeMaxSide(0.449, 6000, 4000), 4310);  // 0.7184 × 6000
  EXPECT_EQ(Exporter::decodeMaxSide(0.1, 4000, 6000), 960);
  EXPECT_EQ(Exporter::decodeMaxSide(0.01, 100, 50), 1);
}

TEST(ExportBits, SixteenOnlyForTiffThatAsksForThem) {
  for (const ExportFormat format : allCases<ExportFormat>()) {
    for (const bool sixteen : {false, true}) {
      const int expected = format == ExportFormat::tiff && sixteen ? 16 : 8;
      EXPECT_EQ(Exporter::outputBits({.format = format, .tiff16Bit = sixteen}), expected) << key(format);
    }
  }
}

TEST(ExportFileName, FollowsTheNamingMode) {
  struct Case {
    std::string photo;
    NamingMode naming;
    std::string suffix, customName;
    int sequence;
    std::string expected;
  };
  const Case cases[] = {
      {"IMG_1.CR3", NamingMode::original, "-edit", "Photo", 1, "IMG_1"},
      {"IMG_1.tar.jpg", NamingMode::original, "-edit", "Photo", 1, "IMG_1.tar"},
      {"README", NamingMode::original, "-edit", "Photo", 1, "README"},
      {"IMG_1.CR3", NamingMode::originalSuffix, "-edit", "Photo", 1, "IMG_1-edit"},
      {"IMG_1.CR3", NamingMode::originalSuffix, "", "Photo", 1, "IMG_1"},
      {"IMG_1.CR3", NamingMode::custom, "-edit", "Photo", 1, "Photo-001"},
      {"IMG_1.CR3", NamingMode::custom, "-edit", "Trip", 12, "Trip-012"},
      {"IMG_1.CR3", NamingMode::custom, "-edit", "Trip", 1234, "Trip-1234"},
      {"IMG_1.CR3", NamingMode::custom, "-edit", "", 1, "Photo-001"},
      {"a/b:c.jpg", NamingMode::original, "-edit", "Photo", 1, "a/b:c"},
      {"", NamingMode::original, "-edit", "Photo", 1, "Photo"},
  };
  for (const Case& c : cases) {
    const ExportOptions options{.naming = c.naming, .suffix = c.suffix, .customName = c.customName};
    EXPECT_EQ(Exporter::fileName(PhotoRecord{.name = c.photo}, options, c.sequence), c.expected) << c.photo;
  }
}

class ExportFolderTest : public ::testing::Test {
 protected:
  test::TempDir dir;
  std::set<std::string> files() const {
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(dir.path())) names.insert(entry.path().filename());
    return names;
  }
  fs::path write(std::string_view name, const std::string& bytes) {
    return Exporter::writeFile(dir.path(), name, "jpg", bytes);
  }
};

TEST_F(ExportFolderTest, UniqueURLNumbersAfterTheNamesAlreadyTaken) {
  EXPECT_EQ(Exporter::uniqueURL(dir.path(), "IMG_1", "jpg"), dir / "IMG_1.jpg");
  test::writeFile(dir / "IMG_1.jpg", "1");
  test::writeFile(dir / "IMG_1 2.jpg", "2");
  EXPECT_EQ(Exporter::uniqueURL(dir.path(), "IMG_1", "jpg"), dir / "IMG_1 3.jpg");
  EXPECT_EQ(Exporter::uniqueURL(dir.path(), "IMG_1", "png"), dir / "IMG_1.png");
  EXPECT_EQ(Exporter::uniqueURL(dir.path(), "a/b:c", "jpg"), dir / "a-b-c.jpg");
}

TEST_F(ExportFolderTest, RepeatedExportsGetTheNextNumberAndReplaceNothing) {
  EXPECT_EQ(write("IMG_1", "first"), dir / "IMG_1.jpg");
  EXPECT_EQ(write("IMG_1", "second"), dir / "IMG_1 2.jpg");
  EXPECT_EQ(write("IMG_1", "third"), dir / "IMG_1 3.jpg");
  EXPECT_EQ(test::readFile(dir / "IMG_1.jpg"), "first");
  EXPECT_EQ(test::readFile(dir / "IMG_1 3.jpg"), "third");
  EXPECT_EQ(write("a/b:c", "x"), dir / "a-b-c.jpg");
  // A folder taking a name is passed over like a file.
  fs::create_directory(dir / "Photo.jpg");
  EXPECT_EQ(write("Photo", "y"), dir / "Photo 2.jpg");
}

// A name as long as the file system allows (255 bytes) is written; the
// temporary file beside it must not need a longer one.
TEST_F(ExportFolderTest, TheLongestNameAFolderTakesIsWritten) {
  const std::string longest(251, 'n');
  EXPECT_EQ(write(longest, "a"), dir / (longest + ".jpg"));
  EXPECT_EQ(test::errorMessage<ExportError>([&] { write(longest + "n", "b"); }),
            "Could not write " + longest + "n.jpg");
  EXPECT_EQ(files(), std::set<std::string>{longest + ".jpg"});
}

TEST_F(ExportFolderTest, NumbersGoOnPastNineHundredAndNinetyNine) {
  test::writeFile(dir / "IMG_1.jpg", "");
  for (int n = 2; n <= 998; ++n) test::writeFile(dir / ("IMG_1 " + std::to_string(n) + ".jpg"), "");
  EXPECT_EQ(write("IMG_1", "a"), dir / "IMG_1 999.jpg");
  EXPECT_EQ(write("IMG_1", "b"), dir / "IMG_1 1000.jpg");
}

// A name taken while the file is being written (another program exporting
// the same photo) is passed over, and the other file stays as it is.
TEST_F(ExportFolderTest, ANameTakenWhileWritingIsPassedOver) {
  const fs::path written = Exporter::writeFile(dir.path(), "IMG_1", "jpg", [&](int fd) {
    test::writeFile(dir / "IMG_1.jpg", "theirs");
    writeAll(fd, "ours", 4);
  });
  EXPECT_EQ(written, dir / "IMG_1 2.jpg");
  EXPECT_EQ(test::readFile(dir / "IMG_1.jpg"), "theirs");
  EXPECT_EQ(test::readFile(written), "ours");
}

TEST_F(ExportFolderTest, TwoWritersRacingIntoOneFolderNeverShareAName) {
  constexpr int writers = 8;
  const std::string content(256 * 1024, 'x');
  std::vector<fs::path> written(writers);
  std::atomic<int> ready{0};
  std::vector<std::thread> threads;
  for (int w = 0; w < writers; ++w) {
    threads.emplace_back([&, w] {
      ++ready;
      while (ready < writers) std::this_thread::yield();
      written[w] = write("IMG_1", content + std::to_string(w));
    });
  }
  for (std::thread& t : threads) t.join();
  std::set<std::string> expected{"IMG_1.jpg"};
  for (int n = 2; n <= writers; ++n) expected.insert("IMG_1 " + std::to_string(n) + ".jpg");
  EXPECT_EQ(files(), expected);
  for (int w = 0; w < writers; ++w) EXPECT_EQ(test::readFile(written[w]), content + std::to_string(w));
}

TEST_F(ExportFolderTest, AFailedWriteSaysWhichFileAndLeavesNothing) {
  const auto fill = [](int fd) { writeAll(fd, "abc", 3); };
  for (const fs::path& folder : {dir / "missing", fs::path("/proc"), dir / "IMG_1.jpg" / "sub"}) {
    SCOPED_TRACE(folder);
    if (folder.filename() == "sub") test::writeFile(dir / "IMG_1.jpg", "a file, not a folder");
    EXPECT_EQ(test::errorMessage<ExportError>([&] { Exporter::writeFile(folder, "a/b", "tif", fill); }),
              "Could not write a-b.tif");
  }
  // A full disk shows itself as a failing write of the bytes.
  EXPECT_EQ(test::errorMessage<ExportError>([&] {
              Exporter::writeFile(dir.path(), "IMG_2", "jpg",
                                  [](int) { throw MediaError("No space left on device"); });
            }),
            "Could not write IMG_2.jpg");
  EXPECT_EQ(files(), std::set<std::string>{"IMG_1.jpg"});
}

TEST(ExportError, SaysWhichStepFailed) {
  EXPECT_EQ(ExportError::cannotOpen("IMG_1.CR3").description(), "Could not open IMG_1.CR3");
  EXPECT_EQ(ExportError::cannotDecode("IMG_1.CR3").description(), "Could not decode IMG_1.CR3");
  EXPECT_EQ(ExportError::cannotRender("IMG_1.CR3").description(), "Could not render IMG_1.CR3");
  EXPECT_EQ(ExportError::noEncoder(ExportFormat::heic).description(),
            "This computer cannot write HEIC files");
  EXPECT_EQ(ExportError::cannotWrite("IMG_1 2.jpg").description(), "Could not write IMG_1 2.jpg");
}

}  // namespace
