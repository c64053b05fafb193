// `lumivale-cli preview`: the camera's preview of a RAW file, by photo id or
// file, as a JPEG of at most the asked size; files it cannot decode.

#include <gtest/gtest.h>

#include "engine/media/image_properties.h"
#include "tests/support/cli_run.h"
#include "tests/support/sample_photos.h"

using namespace lumivale;

namespace {

class PreviewCommandTest : public test::CliLibraryTest {
 protected:
  void SetUp() override {
    const auto cr2 = test::sharedPhoto("raw/IMG_5952.CR2");
    if (!cr2) GTEST_SKIP() << "the shared test photos are not there";
    sharedCr2 = cr2->string();
  }
  std::string sharedCr2;
  std::pair<int, int> sizeOf(const std::filesystem::path& file) {
    const auto properties = readImageProperties(file);
    EXPECT_TRUE(properties) << file;
    return properties ? std::pair(properties->pixelWidth, properties->pixelHeight) : std::pair(0, 0);
  }
};

TEST_F(PreviewCommandTest, WritesTheCamerasPreviewOfAFile) {
  const auto out = dir / "small.jpg";
  const test::CliResult r = ok({"preview", sharedCr2, "--size", "420", "-o", out.string()});
  EXPECT_EQ(r.out, "Wrote " + out.string() + " (420 \u00d7 280)\n");
  EXPECT_EQ(sizeOf(out), std::pair(420, 280));

  // Without --size, the preview as the camera stored it.
  const auto whole = dir / "whole.jpg";
  const auto doc = ok({"--json", "preview", sharedCr2, "-o", whole.string()}).json();
  EXPECT_EQ(doc, (nlohmann::json{{"file", whole.string()}, {"width", 1728}, {"height", 1152}}));
  EXPECT_EQ(sizeOf(whole), std::pair(1728, 1152));
}

TEST_F(PreviewCommandTest, FindsThePhotoOfALibraryByItsId) {
  test::SampleDng dng;
  dng.previewWidth = 200;
  dng.previewHeight = 150;
  dng.orientation = 6;
  test::writeDng(dir / "photos" / "turned.dng", dng);
  const std::int64_t id = addPhoto((dir / "photos" / "turned.dng").string());
  const auto out = dir / "turned.jpg";
  ok({"preview", std::to_string(id), "--size", "100", "-o", out.string()});
  EXPECT_EQ(sizeOf(out), std::pair(75, 100));
}

TEST_F(PreviewCommandTest, SaysWhatItCouldNotDecode) {
  test::writeFile(dir / "photo.cr2", test::jpegBytes(64, 48));
  test::writeDng(dir / "bare.dng", test::SampleDng{});
  const auto out = dir / "out.jpg";
  for (const std::string name : {"photo.cr2", "bare.dng", "missing.nef"}) {
    test::expectError(run({"preview", (dir / name).string(), "-o", out.string()}), 1,
                      "Could not decode " + name);
  }
  EXPECT_FALSE(std::filesystem::exists(out));
  test::expectError(run({"preview", "999", "-o", out.string()}), 1, "no photo with id 999");
}

TEST_F(PreviewCommandTest, NeverReplacesAFileAndChecksItsArguments) {
  const auto out = dir / "taken.jpg";
  test::writeFile(out, "mine");
  test::expectError(run({"preview", sharedCr2, "-o", out.string()}), 1, "already exists");
  EXPECT_EQ(test::readFile(out), "mine");
  expectRefused(2, {{"preview", sharedCr2},
                    {"preview", "-o", out.string()},
                    {"preview", sharedCr2, "--size", "0", "-o", out.string()},
                    {"preview", sharedCr2, "--size", "big", "-o", out.string()}});
}

}  // namespace
