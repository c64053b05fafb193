// Whole exports: photo files in, new files out, read back with exiv2 and the
// decoder; batches with failures, cancellation and racing exports.

#include "engine/export/export_pipeline.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <set>
#include <stop_token>
#include <thread>

#include "engine/media/image_decoder.h"
#include "engine/media/image_encoder.h"
#include "engine/media/image_properties.h"
#include "tests/support/errors.h"
#include "tests/support/sample_photos.h"
#include "tests/support/temp_dir.h"

using namespace lumivale;

namespace {

namespace fs = std::filesystem;
using Exporter::PixelSize;

TEST(ExportPlan, DecodesReducedOnlyBelowAScaleOfPointFourFive) {
  struct Case {
    Size full;
    CropRect crop;
    SizeMode mode;
    double value;
    Exporter::ExportPlan expected;
  };
  const Case cases[] = {
      // Full size: no scaling at all.
      {{6000, 4000}, {}, SizeMode::original, 0, {{6000, 4000}, {6000, 4000}, std::nullopt}},
      // Exactly 0.45 decodes at full size, just below it reduced (1.6 times).
      {{6000, 4000}, {}, SizeMode::percent, 45, {{6000, 4000}, {2700, 1800}, std::nullopt}},
      {{6000, 4000}, {}, SizeMode::width, 2694, {{6000, 4000}, {2694, 1796}, 4310}},
      {{6000, 4000}, {}, SizeMode::longEdge, 2048, {{6000, 4000}, {2048, 1365}, 3276}},
      // A crop is what is scaled; the decode still covers the whole photo.
      {{6000, 4000}, {0, 0, 0.5, 0.5}, SizeMode::longEdge, 1200, {{3000, 2000}, {1200, 800}, 3840}},
      {{6000, 4000},
       {0.25, 0.25, 0.5, 0.5},
       SizeMode::original,
       0,
       {{3000, 2000}, {3000, 2000}, std::nullopt}},
      // The smallest output of a tiny photo is one pixel, decoded whole.
      {{3, 2}, {}, SizeMode::longEdge, 0, {{3, 2}, {1, 1}, 1}},
  };
  for (const Case& c : cases) {
    EditSettings settings;
    settings.crop = c.crop;
    const ExportOptions options{.sizeMode = c.mode, .sizeValue = c.value};
    const Exporter::ExportPlan plan = Exporter::plan(c.full, settings, options);
    EXPECT_EQ(plan.developed, c.expected.developed) << key(c.mode) << " " << c.value;
    EXPECT_EQ(plan.output, c.expected.output) << key(c.mode) << " " << c.value;
    EXPECT_EQ(plan.decodeMaxSide, c.expected.decodeMaxSide) << key(c.mode) << " " << c.value;
  }
}

// A folder of small photos and the jobs that export them.
class ExportPipelineTest : public ::testing::Test {
 protected:
  test::TempDir dir;
  fs::path out = dir / "out";
  PhotoRenderer renderer;

  void SetUp() override { fs::create_directory(out); }

  ExportJob photo(const std::string& name, int width = 90, int height = 60,
                  const test::SampleTags& tags = {}) {
    const fs::path file = dir / "photos" / name;
    fs::create_directories(file.parent_path());
    test::writePhoto(file, width, height, tags);
    return {.record = {.path = file.string(), .name = name}, .keywords = {"sea", "sky"}};
  }

  std::set<std::string> written() const {
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(out)) names.insert(entry.path().filename());
    return names;
  }
};

TEST_F(ExportPipelineTest, WritesExactlyTheOutputSize) {
  ExportJob job = photo("IMG_1.jpg", 300, 200);
  struct Case {
    CropRect crop;
    SizeMode mode;
    double value;
    bool dontEnlarge;
    PixelSize expected;
  };
  const Case cases[] = {
      {{}, SizeMode::original, 0, true, {300, 200}},
      {{}, SizeMode::longEdge, 101, true, {101, 67}},
      {{}, SizeMode::percent, 10, true, {30, 20}},
      {{}, SizeMode::height, 7, true, {11, 7}},
      {{}, SizeMode::width, 450, false, {450, 300}},
      {{0.1, 0.2, 0.5, 0.3}, SizeMode::original, 0, true, {150, 60}},
      {{0.1, 0.2, 0.5, 0.3}, SizeMode::shortEdge, 25, true, {63, 25}},
  };
  for (const Case& c : cases) {
    job.settings.crop = c.crop;
    const ExportOptions options{
        .format = ExportFormat::png, .sizeMode = c.mode, .sizeValue = c.value, .dontEnlarge = c.dontEnlarge};
    const fs::path file = Exporter::exportPhoto(job, options, renderer, out);
    const ImageDecoder::Header header = ImageDecoder::readHeader(file);
    EXPECT_EQ((PixelSize{header.width, header.height}), c.expected) << key(c.mode) << " " << c.value;
  }
}

struct FileCase {
  ExportFormat format;
  ExportColorSpace space;
  MetadataPolicy policy;
};

class ExportFileTest : public ExportPipelineTest, public ::testing::WithParamInterface<FileCase> {};

// Each format read back: the depth, the profile of the space, and the
// metadata the policy promises (HEIC keeps keywords in XMP, which this
// reader does not list as keywords).
TEST_P(ExportFileTest, HoldsTheProfileDepthAndMetadataPromised) {
  const FileCase c = GetParam();
  const ExportJob job = photo("IMG_1.jpg", 64, 48,
                              {.make = "Lumivale",
                               .copyright = "carried",
                               .latitude = "1/1 0/1 0/1",
                               .latitudeRef = "N",
                               .keywords = {"carried"}});
  const ExportOptions options{.format = c.format,
                              .tiff16Bit = true,
                              .colorSpace = c.space,
                              .watermarkOn = true,
                              .metadata = c.policy,
                              .copyright = "© Ann"};
  const fs::path file = Exporter::exportPhoto(job, options, renderer, out);
  EXPECT_EQ(file, out / ("IMG_1." + std::string(ext(c.format))));
  const auto properties = readImageProperties(file);
  ASSERT_TRUE(properties);
  EXPECT_EQ(properties->profileName, profileDescription(space(c.space)));
  EXPECT_EQ(properties->depth, c.format == ExportFormat::tiff ? 16 : 8);
  EXPECT_EQ(properties->orientation, 1);
  const bool any = c.policy != MetadataPolicy::none;
  EXPECT_EQ(properties->software.value_or(""), any ? "KUVO Lumivale (KUVO)" : "");
  EXPECT_EQ(properties->copyright.value_or(""), any ? "© Ann" : "");
  EXPECT_EQ(properties->make.value_or(""), c.policy == MetadataPolicy::all ? "Lumivale" : "");
  EXPECT_EQ(properties->latitude.has_value(), c.policy == MetadataPolicy::all);
  if (c.format != ExportFormat::heic) {
    EXPECT_EQ(properties->keywords, any ? job.keywords : std::vector<std::string>{});
  }
}

INSTANTIATE_TEST_SUITE_P(
    FormatsSpacesPolicies, ExportFileTest,
    ::testing::Values(FileCase{ExportFormat::jpeg, ExportColorSpace::sRGB, MetadataPolicy::all},
                      FileCase{ExportFormat::jpeg, ExportColorSpace::adobeRGB, MetadataPolicy::none},
                      FileCase{ExportFormat::heic, ExportColorSpace::displayP3, MetadataPolicy::all},
                      FileCase{ExportFormat::heic, ExportColorSpace::sRGB, MetadataPolicy::none},
                      FileCase{ExportFormat::tiff, ExportColorSpace::adobeRGB, MetadataPolicy::all},
                      FileCase{ExportFormat::tiff, ExportColorSpace::displayP3,
                               MetadataPolicy::copyrightOnly},
                      FileCase{ExportFormat::png, ExportColorSpace::displayP3, MetadataPolicy::all},
                      FileCase{ExportFormat::png, ExportColorSpace::sRGB, MetadataPolicy::copyrightOnly}),
    [](const auto& info) {
      return std::string(key(info.param.format)) + "_" + std::string(key(info.param.space)) + "_" +
             std::string(key(info.param.policy));
    });

TEST_F(ExportPipelineTest, EachFailingStepSaysWhatFailedAndWritesNothing) {
  const ExportJob good = photo("IMG_1.jpg");
  ExportJob missing = good;
  missing.record = {.path = (dir / "gone.jpg").string(), .name = "gone.jpg"};
  ExportJob notAPhoto = photo("text.jpg");
  test::writeFile(notAPhoto.record.path, "just some text, not a JPEG");
  test::writeFile(dir / "read-only" / "keep", "");
  fs::permissions(dir / "read-only", fs::perms::owner_read | fs::perms::owner_exec);

  struct Case {
    const ExportJob& job;
    fs::path folder;
    const char* message;
  };
  const Case cases[] = {
      {missing, out, "Could not open gone.jpg"},
      {notAPhoto, out, "Could not open text.jpg"},
      {good, dir / "missing", "Could not write IMG_1.jpg"},
      {good, dir / "photos" / "IMG_1.jpg", "Could not write IMG_1.jpg"},
      // A folder no one may add files to, root included.
      {good, "/proc", "Could not write IMG_1.jpg"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(test::errorMessage<ExportError>([&] { Exporter::exportPhoto(c.job, {}, renderer, c.folder); }),
              c.message);
  }
  // Root may write anywhere; the check only means something for others.
  if (::geteuid() != 0) {
    EXPECT_EQ(test::errorMessage<ExportError>(
                  [&] { Exporter::exportPhoto(good, {}, renderer, dir / "read-only"); }),
              "Could not write IMG_1.jpg");
  }
  EXPECT_TRUE(written().empty());
  EXPECT_EQ(test::readFile(notAPhoto.record.path), "just some text, not a JPEG");
  fs::permissions(dir / "read-only", fs::perms::owner_all);
}

TEST_F(ExportPipelineTest, ABatchGoesOnPastAFailedPhotoKeepsItsOrderAndStops) {
  std::vector<ExportJob> jobs = {photo("a/IMG_1.jpg"), photo("broken.jpg"), photo("b/IMG_1.jpg"),
                                 photo("IMG_2.png")};
  test::writeFile(jobs[1].record.path, test::jpegBytes(40, 30).substr(0, 20));
  // Two photos of one name: the first in the batch gets the plain name.
  jobs[0].record.name = jobs[2].record.name = "IMG_1.jpg";
  jobs[2].settings.exposure = 1;
  std::vector<int> progress;
  const auto results = Exporter::exportBatch(jobs, {}, renderer, out, [&](int done, int total) {
    EXPECT_EQ(total, 4);
    progress.push_back(done);
  });
  ASSERT_EQ(results.size(), 4u);
  EXPECT_EQ(results[0].file, out / "IMG_1.jpg");
  EXPECT_FALSE(results[1].written());
  ASSERT_TRUE(results[1].error);
  EXPECT_EQ(results[1].error->description(), "Could not open broken.jpg");
  EXPECT_EQ(results[2].file, out / "IMG_1 2.jpg");
  EXPECT_EQ(results[3].file, out / "IMG_2.jpg");
  EXPECT_EQ(progress, (std::vector<int>{1, 2, 3, 4}));
  EXPECT_EQ(written(), (std::set<std::string>{"IMG_1.jpg", "IMG_1 2.jpg", "IMG_2.jpg"}));
  // The brighter photo is the second file, whichever finished first.
  const auto mean = [](const fs::path& file) {
    return ImageDecoder::decode(file, std::nullopt).image.readPixels(45, 30, 1, 1).at(0, 0, 1);
  };
  EXPECT_GT(mean(out / "IMG_1 2.jpg"), mean(out / "IMG_1.jpg") + 0.05);

  // A stopped batch starts nothing more.
  std::stop_source stop;
  stop.request_stop();
  for (const ExportResult& r : Exporter::exportBatch(jobs, {}, renderer, out, {}, stop.get_token()))
    EXPECT_TRUE(!r.written() && !r.error);
  EXPECT_EQ(written().size(), 3u);
}

// Two exports of the same photos into one folder at once (two windows, or
// the app and the command line): every file is written under its own
// name, and a file already there is never replaced.
TEST_F(ExportPipelineTest, TwoExportsRacingIntoOneFolderReplaceNothing) {
  test::writeFile(out / "IMG_1.jpg", "already here");
  const std::vector<ExportJob> jobs = {photo("IMG_1.jpg"), photo("IMG_1.png"), photo("IMG_1.tif")};
  std::vector<ExportResult> first, second;
  {
    std::jthread other([&] { first = Exporter::exportBatch(jobs, {}, renderer, out); });
    PhotoRenderer own;
    second = Exporter::exportBatch(jobs, {}, own, out);
  }
  std::set<fs::path> files;
  for (const auto* results : {&first, &second}) {
    for (const ExportResult& r : *results) {
      ASSERT_TRUE(r.written()) << r.error->description();
      files.insert(r.file);
    }
  }
  EXPECT_EQ(files.size(), 6u);
  EXPECT_EQ(written().size(), 7u);
  EXPECT_EQ(test::readFile(out / "IMG_1.jpg"), "already here");
  for (const fs::path& file : files) EXPECT_EQ(ImageDecoder::readHeader(file).width, 90);
}

}  // namespace
