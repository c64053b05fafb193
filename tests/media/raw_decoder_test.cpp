// Developing RAW sensor data: the header's facts, white balance as shot,
// black and white levels, demosaicing, highlights, LibRaw's processing as
// the reference, and damaged files.

#include "engine/media/raw_decoder.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cmath>
#include <functional>

#include "tests/support/sample_photos.h"
#include "tests/support/temp_dir.h"

using namespace lumivale;
using test::SampleDng;

namespace {

// The camera's neutral as the sample DNGs state it (red, green, blue).
constexpr double neutral[3] = {0.5, 1.0, 0.7};

SampleDng flatGrey(double level) {
  SampleDng dng;
  dng.blackLevel = 256;
  dng.samples = test::sceneGrey(dng, level);
  return dng;
}

struct Stats {
  double mean[3] = {0, 0, 0};
  double spread = 0;  // largest difference between channel means
};

// Channel means over the image without a border of `margin` pixels.
Stats stats(const Image& image, int margin = 3) {
  const FloatPixels p =
      image.readPixels(margin, margin, image.width() - 2 * margin, image.height() - 2 * margin);
  Stats s;
  const double n = double(p.width) * p.height;
  for (int y = 0; y < p.height; ++y) {
    for (int x = 0; x < p.width; ++x) {
      for (int c = 0; c < 3; ++c) s.mean[c] += p.at(x, y, c) / n;
    }
  }
  s.spread = std::max({s.mean[0], s.mean[1], s.mean[2]}) - std::min({s.mean[0], s.mean[1], s.mean[2]});
  return s;
}

class RawDecoderTest : public ::testing::Test {
 protected:
  std::filesystem::path write(const SampleDng& dng, const std::string& name = "sample.dng") {
    const std::filesystem::path file = dir / name;
    test::writeDng(file, dng);
    return file;
  }
  test::TempDir dir;
};

TEST_F(RawDecoderTest, FactsComeFromTheHeader) {
  SampleDng dng;
  dng.orientation = 6;
  dng.make = "Canon";
  dng.model = "Canon EOS 5D Mark II";
  dng.lens = "EF24-105mm f/4L IS USM";
  dng.baselineExposure = 0.5;
  dng.subjectDistance = 3.5;
  const auto facts = RawDecoder::facts(write(dng));
  ASSERT_TRUE(facts);
  EXPECT_EQ(facts->width, 64);  // as stored: the orientation is reported, not applied
  EXPECT_EQ(facts->height, 48);
  EXPECT_EQ(facts->orientation, 6);
  EXPECT_NE(std::find(facts->lensNames.begin(), facts->lensNames.end(), dng.lens), facts->lensNames.end());
  const std::pair<std::string, std::string> camera{"Canon", "Canon EOS 5D Mark II"};
  EXPECT_NE(std::find(facts->cameraNames.begin(), facts->cameraNames.end(), camera),
            facts->cameraNames.end());
  EXPECT_DOUBLE_EQ(facts->focal, 35);
  EXPECT_NEAR(facts->fNumber, 2.8, 1e-6);
  EXPECT_NEAR(facts->focusDistance, 3.5, 1e-6);
  ASSERT_TRUE(facts->baselineExposure);
  EXPECT_NEAR(*facts->baselineExposure, 0.5, 1e-6);

  dng.baselineExposure.reset();
  dng.subjectDistance.reset();
  const auto plain = RawDecoder::facts(write(dng, "plain.dng"));
  EXPECT_FALSE(plain->baselineExposure);
  EXPECT_EQ(plain->focusDistance, 0);
}

TEST_F(RawDecoderTest, WhiteBalanceAsShotMakesAGreyPatchGrey) {
  // The camera records a neutral grey of 0.3 as 0.15, 0.3 and 0.21 above
  // black; the decoder's black level, white level, multipliers and matrix
  // must bring it back to 0.3 in every channel.
  const std::filesystem::path file = write(flatGrey(0.3));
  for (bool half : {false, true}) {
    SCOPED_TRACE(half ? "half size" : "full size");
    const Image developed = RawDecoder::develop(file, {.halfSize = half});
    EXPECT_EQ(developed.width(), half ? 32 : 64);
    EXPECT_EQ(developed.height(), half ? 24 : 48);
    for (double m : stats(developed).mean) EXPECT_NEAR(m, 0.3, 0.003);
  }
}

TEST_F(RawDecoderTest, LinearRawGoesThroughLibRawWithTheSameScale) {
  // A demosaiced DNG is not ours to interpolate: LibRaw develops it, and
  // its output must be scaled like ours.
  SampleDng dng = flatGrey(0.3);
  dng.linearRaw = true;
  dng.samples.clear();
  for (int i = 0; i < dng.width * dng.height; ++i) {
    for (double n : neutral)
      dng.samples.push_back(std::uint16_t(std::lround(dng.blackLevel + 0.3 * n * (4095 - 256))));
  }
  const std::filesystem::path file = write(dng);
  const Image developed = RawDecoder::develop(file, {});
  EXPECT_EQ(developed.width(), 64);
  EXPECT_EQ(developed.height(), 48);
  for (double m : stats(developed).mean) EXPECT_NEAR(m, 0.3, 0.005);
}

TEST_F(RawDecoderTest, InterpolationFollowsASmoothRampExactly) {
  // Bilinear estimates are exact on a linear ramp and its Laplacian is 0,
  // so the interpolated frame is the ramp itself, neutral everywhere.
  SampleDng dng;
  dng.width = 40;
  dng.height = 32;
  dng.blackLevel = 256;
  dng.whiteLevel = 65535;
  auto ramp = [](int x, int y) { return 0.05 + 0.01 * x + 0.004 * y; };
  dng.samples = test::cfaSamples(dng, [&](int x, int y, int colour) { return ramp(x, y) * neutral[colour]; });
  const FloatPixels p = RawDecoder::develop(write(dng), {}).readPixels();
  for (int y = 3; y < p.height - 3; ++y) {
    for (int x = 3; x < p.width - 3; ++x) {
      for (int c = 0; c < 3; ++c)
        ASSERT_NEAR(p.at(x, y, c), ramp(x, y), 2e-4) << x << "," << y << " channel " << c;
    }
  }
}

TEST_F(RawDecoderTest, ClippedGreenTurnsWhiteNotMagenta) {
  // Green at its clipping point, red and blue below theirs: left alone the
  // white-balanced pixel would be (1.6, 1.0, 1.14), a clear magenta.
  SampleDng dng;
  dng.samples = test::cfaSamples(dng, [](int, int, int colour) { return colour == 1 ? 1.0 : 0.8; });
  const Stats s = stats(RawDecoder::develop(write(dng), {}));
  EXPECT_GT(s.mean[1], 0.99);
  EXPECT_LT(s.spread / s.mean[1], 0.02);
}

TEST_F(RawDecoderTest, ASensorThatClipsBelowTheStatedWhiteStillClipsToWhite) {
  // The file says 4095, but the sensor stopped at 3500: a bright sky with
  // green piled up at 3500 and red and blue below it. Taken at its word,
  // green would end at 0.85 and the sky would turn pink.
  SampleDng dng;
  dng.samples = test::cfaSamples(dng, [](int, int, int colour) { return colour == 1 ? 1.0 : 0.8; });
  for (std::uint16_t& v : dng.samples) v = std::uint16_t(std::min<int>(v, 3500));
  const Stats s = stats(RawDecoder::develop(write(dng), {}));
  EXPECT_GT(s.mean[1], 0.99);
  EXPECT_LT(s.spread / s.mean[1], 0.02);
}

TEST_F(RawDecoderTest, AFifoNamedAsARawFileIsNotWaitedOn) {
  const std::filesystem::path fifo = dir / "waiting.cr2";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  EXPECT_FALSE(RawDecoder::facts(fifo));
  EXPECT_THROW(RawDecoder::develop(fifo, {}), ImageError);
}

TEST(RawDecoderCamera, OursAgreesWithLibRawsOwnProcessing) {
  const auto cr2 = test::sharedPhoto("raw/IMG_5952.CR2");
  if (!cr2) GTEST_SKIP() << "the shared test photos are not there";
  // The shared Canon file: our development and LibRaw's must agree on the
  // frame, the brightness and the colour of each part of the picture.
  const auto facts = RawDecoder::facts(*cr2);
  ASSERT_TRUE(facts);
  EXPECT_EQ(facts->width, 3504);  // the camera's own frame, as its JPEG shows it
  EXPECT_EQ(facts->height, 2336);
  EXPECT_EQ(facts->orientation, 1);
  EXPECT_NE(std::find(facts->lensNames.begin(), facts->lensNames.end(), "EF-S 18-55mm f/3.5-5.6"),
            facts->lensNames.end());

  const Image ours = RawDecoder::develop(*cr2, {.halfSize = true});
  const Image theirs = RawDecoder::develop(*cr2, {.halfSize = true, .libRawProcessing = true});
  ASSERT_EQ(ours.width(), 1752);
  ASSERT_EQ(theirs.width(), 1752);
  ASSERT_EQ(ours.height(), theirs.height());
  // Sky, forest and wall, each 100 pixels square.
  for (auto [x, y] : {std::pair(1000, 80), std::pair(400, 900), std::pair(400, 1120)}) {
    const FloatPixels a = ours.readPixels(x, y, 100, 40), b = theirs.readPixels(x, y, 100, 40);
    double sa[3] = {0, 0, 0}, sb[3] = {0, 0, 0};
    for (std::size_t i = 0; i < a.values.size(); ++i) {
      sa[i % 3] += a.values[i];
      sb[i % 3] += b.values[i];
    }
    for (int c = 0; c < 3; ++c)
      EXPECT_NEAR(sa[c] / sb[c], 1.0, 0.03) << "area " << x << "," << y << " channel " << c;
  }
}

TEST_F(RawDecoderTest, DamagedFilesAreRefusedNeverCrash) {
  SampleDng whole = flatGrey(0.3);
  whole.width = 256;
  whole.height = 192;
  whole.samples = test::sceneGrey(whole, 0.3);
  const std::string bytes = test::readFile(write(whole, "whole.dng"));
  SampleDng absurd = flatGrey(0.3);
  absurd.statedSize = std::pair(60000u, 60000u);
  SampleDng tiny = flatGrey(0.3);
  tiny.statedSize = std::pair(2u, 2u);
  std::string flipped = bytes;
  for (std::size_t i = bytes.size() / 3; i < bytes.size(); i += 97) flipped[i] = char(~flipped[i]);
  // The camera's file holds compressed data: cut or damaged, its decoder
  // runs out of data or meets codes that mean nothing.
  const auto cr2 = test::sharedPhoto("raw/IMG_5952.CR2");
  const std::string camera = cr2 ? test::readFile(*cr2) : std::string();
  std::string cameraFlipped = camera;
  for (std::size_t i = camera.size() / 2; i < camera.size(); i += 4099)
    cameraFlipped[i] = char(~cameraFlipped[i]);

  struct Case {
    std::string name;
    std::string content;
    bool mayDevelop;  // the damage leaves a readable (if wrong) picture
  } cases[] = {
      {"cut in the sensor data", bytes.substr(0, bytes.size() * 2 / 3), false},
      {"cut in the header", bytes.substr(0, 200), false},
      {"a JPEG named as a RAW file", test::jpegBytes(64, 48), false},
      {"empty", "", false},
      {"stating 60000 x 60000", test::readFile(write(absurd, "absurd.dng")), false},
      {"stating 2 x 2", test::readFile(write(tiny, "tiny.dng")), true},
      {"bits flipped in the sensor data", flipped, true},
      {"a camera file cut in its sensor data", camera.substr(0, camera.size() * 3 / 4), false},
      {"a camera file with bits flipped", cameraFlipped, true},
  };
  for (const Case& c : cases) {
    if (c.content.empty() && c.name != "empty") continue;  // the shared photos are not there
    SCOPED_TRACE(c.name);
    const std::filesystem::path file = dir / "damaged.dng";
    std::filesystem::remove(file);
    test::writeFile(file, c.content);
    const auto facts = RawDecoder::facts(file);
    try {
      const Image image = RawDecoder::develop(file, {});
      EXPECT_TRUE(c.mayDevelop) << "developed " << image.width() << " x " << image.height();
      ASSERT_TRUE(facts);
      EXPECT_EQ(image.width(), facts->width);
      EXPECT_EQ(image.height(), facts->height);
    } catch (const ImageError&) {
      // A clear refusal is what damaged input gets.
    }
  }
}

}  // namespace
