// RAW files as photo sources: the size after orientation, the decode plan,
// lens-correction support, the decoded base in the working space, and
// files that cannot be decoded.

#include "engine/render/raw/raw_source.h"

#include <gtest/gtest.h>

#include <cmath>

#include "engine/render/raw/raw_look.h"
#include "tests/support/sample_photos.h"
#include "tests/support/temp_dir.h"

using namespace lumivale;

namespace {

struct PlanCase {
  int width;
  int height;
  std::optional<int> maxSide;
  RawSource::Plan plan;
};

class RawSourcePlan : public ::testing::TestWithParam<PlanCase> {};

TEST_P(RawSourcePlan, DecodesAtTheScaleAskedAndHalfSizeUpToOneHalf) {
  const PlanCase c = GetParam();
  const RawSource::Plan plan = RawSource::plan(c.width, c.height, c.maxSide);
  EXPECT_NEAR(plan.scale, c.plan.scale, 1e-6);
  EXPECT_EQ(plan.halfSize, c.plan.halfSize);
  EXPECT_EQ(plan.width, c.plan.width);
  EXPECT_EQ(plan.height, c.plan.height);
}

INSTANTIATE_TEST_SUITE_P(Cases, RawSourcePlan,
                         ::testing::Values(PlanCase{6000, 4000, 1600, {1600.0 / 6000, true, 1600, 1067}},
                                           PlanCase{4000, 6000, 1600, {1600.0 / 6000, true, 1067, 1600}},
                                           PlanCase{6000, 4000, std::nullopt, {1, false, 6000, 4000}},
                                           PlanCase{6000, 4000, 3000, {0.5, true, 3000, 2000}},
                                           PlanCase{6000, 4000, 3001, {3001.0 / 6000, false, 3001, 2001}},
                                           PlanCase{
                                               6000, 4000, 9000, {1, false, 6000, 4000}},  // never enlarged
                                           PlanCase{3504, 2336, 1800, {1800.0 / 3504, false, 1800, 1200}}));

// A flat grey scene of `level`.
test::SampleDng greyDng(double level) {
  test::SampleDng dng;
  dng.samples = test::sceneGrey(dng, level);
  return dng;
}

class RawSourceTest : public ::testing::Test {
 protected:
  std::filesystem::path write(const test::SampleDng& dng, const std::string& name = "sample.dng") {
    test::writeDng(dir / name, dng);
    return dir / name;
  }
  test::TempDir dir;
};

TEST_F(RawSourceTest, OrientationSixSwapsTheFullSizeAndTheImage) {
  test::SampleDng dng = greyDng(0.2);
  dng.orientation = 6;
  const auto source = RawSource::open(write(dng));
  ASSERT_TRUE(source);
  EXPECT_EQ(source->fullSize(), (Size{48, 64}));
  const Image full = source->image(std::nullopt, EditSettings{});
  EXPECT_EQ(full.width(), 48);
  EXPECT_EQ(full.height(), 64);
  // At 20 pixels: a half-size decode of 20 x 15, turned upright.
  const Image small = source->image(20, EditSettings{});
  EXPECT_EQ(small.width(), 15);
  EXPECT_EQ(small.height(), 20);
}

TEST_F(RawSourceTest, TheBaseIsTheDefaultLookOfTheScene) {
  // Without a preview the exposure comes from the file's facts; a neutral
  // grey stays neutral and gets the look's brightness.
  const auto source = RawSource::open(write(greyDng(0.1)));
  ASSERT_TRUE(source);
  EditSettings settings;
  settings.noiseColor = 25;
  const FloatPixels p = source->image(std::nullopt, settings).readPixels(10, 10, 40, 20);
  const double expected = RawLook::fromFacts(source->facts()).map(0.1);
  for (float v : p.values) ASSERT_NEAR(v, expected, expected * 0.01);
}

TEST_F(RawSourceTest, LensCorrectionIsAvailableForKnownBodiesAndLenses) {
  test::SampleDng known = greyDng(0.2);
  known.make = "Canon";
  known.model = "Canon EOS 5D Mark II";
  known.lens = "EF24-105mm f/4L IS USM";
  known.focal = {24, 1};
  const auto source = RawSource::open(write(known, "known.dng"));
  ASSERT_TRUE(source);
  EXPECT_TRUE(source->lensCorrectionAvailable());
  // The correction runs and keeps the size; switched off, it does not run.
  EditSettings on, off;
  off.lensCorrection = false;
  const Image corrected = source->image(std::nullopt, on), plain = source->image(std::nullopt, off);
  ASSERT_EQ(corrected.width(), plain.width());
  EXPECT_GT(corrected.readPixels(0, 0, 1, 1).at(0, 0, 1), plain.readPixels(0, 0, 1, 1).at(0, 0, 1) * 1.1);

  EXPECT_FALSE(RawSource::open(write(greyDng(0.2), "unknown.dng"))->lensCorrectionAvailable());
}

TEST_F(RawSourceTest, FilesThatCannotBeDecoded) {
  test::writeFile(dir / "photo.cr2", test::jpegBytes(64, 48));
  test::writeFile(dir / "empty.nef", "");
  EXPECT_FALSE(RawSource::open(dir / "photo.cr2"));
  EXPECT_FALSE(RawSource::open(dir / "empty.nef"));
  EXPECT_FALSE(RawSource::open(dir / "missing.dng"));

  // Opened while whole, damaged before decoding: a clear error.
  const std::filesystem::path file = write(greyDng(0.2), "damaged.dng");
  const auto source = RawSource::open(file);
  ASSERT_TRUE(source);
  const std::string bytes = test::readFile(file);
  std::filesystem::remove(file);
  test::writeFile(file, bytes.substr(0, bytes.size() / 2));
  EXPECT_THROW(source->image(std::nullopt, EditSettings{}), ImageError);
}

}  // namespace
