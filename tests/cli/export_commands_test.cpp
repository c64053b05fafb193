#include <gtest/gtest.h>

#include "cli/export_settings.h"
#include "engine/catalog/user_defaults.h"
#include "engine/media/image_decoder.h"
#include "tests/support/cli_run.h"
#include "tests/support/temp_dir.h"
#include "tests/support/sample_photos.h"

using namespace lumivale;
using test::Args;

namespace {

class ExportOptionsCommandTest : public ::testing::Test {
 protected:
  test::TempDir config;
  test::ScopedEnv environment{"LUMIVALE_CONFIG", config.path().c_str()};
  ExportOptions stored() const { return ExportOptions::load(UserDefaults(config.path())); }
};

TEST_F(ExportOptionsCommandTest, ShowsEveryOptionWithItsValueAndTitle) {
  const test::CliResult r = test::runCli({"export-options"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.out.find("format             jpeg  (JPEG)\n"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("watermarkText      \"© Your Name\"\n"), std::string::npos) << r.out;
  EXPECT_EQ(std::count(r.out.begin(), r.out.end(), '\n'), 21);
  const nlohmann::json json = test::runCli({"--json", "export-options", "show"}).json();
  EXPECT_EQ(json.size(), 21u);
  EXPECT_EQ(json["colorSpace"], "sRGB");
}

TEST_F(ExportOptionsCommandTest, SetChangesTheStoredOptionsAndResetForgetsThem) {
  const test::CliResult r =
      test::runCli({"export-options", "set", "format=tiff", "tiff16Bit=yes", "quality=0.75",
                    "watermarkPosition=topLeft", "copyright=© Ann / Bob: 2024", "suffix="});
  ASSERT_EQ(r.status, 0) << r.err;
  ExportOptions expected;
  expected.format = ExportFormat::tiff;
  expected.tiff16Bit = true;
  expected.quality = 0.75;
  expected.watermarkPosition = WatermarkPosition::topLeft;
  expected.copyright = "© Ann / Bob: 2024";
  expected.suffix = "";
  EXPECT_EQ(stored(), expected);
  EXPECT_NE(r.out.find("copyright          \"© Ann / Bob: 2024\""), std::string::npos) << r.out;

  ASSERT_EQ(test::runCli({"export-options", "reset"}).status, 0);
  EXPECT_EQ(stored(), ExportOptions());
  EXPECT_EQ(UserDefaults(config.path()).data(ExportOptions::key), std::nullopt);
}

// One bad assignment changes nothing, not even the good ones before it.
TEST_F(ExportOptionsCommandTest, RefusesBadAssignmentsAndKeepsTheStoredOptions) {
  ASSERT_EQ(test::runCli({"export-options", "set", "quality=0.5"}).status, 0);
  const struct {
    Args args;
    const char* message;
  } cases[] = {
      {{"export-options", "set", "format=png", "quality=1.5"},
       "quality takes a number from 0 to 1, not '1.5'"},
      {{"export-options", "set", "format=webp"}, "format takes one of jpeg, heic, tiff, png, not 'webp'"},
      {{"export-options", "set", "tiff16Bit=maybe"}, "tiff16Bit takes true or false"},
      {{"export-options", "set", "watermarkSize=0"}, "watermarkSize takes a number"},
      {{"export-options", "set", "sizeValue=nan"}, "sizeValue takes a number"},
      {{"export-options", "set", "Format=png"}, "there is no export option 'Format'"},
      {{"export-options", "set", "format"}, "'format' is not FIELD=VALUE"},
      {{"export-options", "set"}, "needs FIELD=VALUE"},
      {{"export-options", "show", "format"}, "expected: export-options show"},
      {{"export-options", "clear"}, "takes show, set or reset"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.message);
    test::expectError(test::runCli(c.args), 2, c.message);
  }
  EXPECT_EQ(stored(), ExportOptions{.quality = 0.5});
}

TEST_F(ExportOptionsCommandTest, ADamagedStoreShowsTheDefaultsAndIsReplacedOnSet) {
  UserDefaults(config.path()).set(ExportOptions::key, "{\"format\":\"jpeg\"}");
  const test::CliResult shown = test::runCli({"export-options"});
  EXPECT_EQ(shown.status, 0);
  EXPECT_NE(shown.err.find("could not be read; the defaults apply"), std::string::npos);
  ASSERT_EQ(test::runCli({"export-options", "set", "naming=custom"}).status, 0);
  EXPECT_EQ(stored(), ExportOptions{.naming = NamingMode::custom});
}

TEST(ExportSetting, TakesEachKindOfField) {
  ExportOptions options;
  for (const char* assignment : {"sizeMode=longEdge", "sizeValue=4000", "dontEnlarge=off", "watermarkOn=1",
                                 "watermarkText=a=b", "watermarkOpacity=0", "metadata=copyrightOnly"}) {
    cli::applyExportSetting(options, assignment);
  }
  EXPECT_EQ(options, (ExportOptions{.sizeMode = SizeMode::longEdge,
                                    .sizeValue = 4000,
                                    .dontEnlarge = false,
                                    .watermarkOn = true,
                                    .watermarkText = "a=b",
                                    .watermarkOpacity = 0,
                                    .metadata = MetadataPolicy::copyrightOnly}));
}

}  // namespace

namespace {

namespace fs = std::filesystem;

// Photos in the catalog, the stored options in a folder of their own, and a
// destination folder.
class ExportCommandTest : public test::CliLibraryTest {
 protected:
  test::TempDir config;
  test::ScopedEnv environment{"LUMIVALE_CONFIG", config.path().c_str()};
  fs::path out = dir / "out";

  void SetUp() override {
    fs::create_directory(out);
    for (const char* name : {"IMG_1.jpg", "IMG_2.png"}) {
      test::writePhoto(dir / "photos" / name, 60, 40, {.make = "Lumivale"});
      addPhoto((dir / "photos" / name).string());
    }
  }
  std::string to() const { return out.string(); }
  ExportOptions stored() const { return ExportOptions::load(UserDefaults(config.path())); }
};

TEST_F(ExportCommandTest, StartsFromTheStoredOptionsAndSavesOnlyWhenAsked) {
  ASSERT_EQ(test::runCli({"export-options", "set", "format=png", "naming=custom", "customName=Trip"}).status,
            0);
  const ExportOptions before = stored();
  const test::CliResult r = ok({"export", "1,2", "--to", to(), "--size-mode", "width", "--size", "30"});
  EXPECT_EQ(r.out, (out / "Trip-001.png").string() + "\n" + (out / "Trip-002.png").string() + "\n");
  EXPECT_EQ(ImageDecoder::readHeader(out / "Trip-002.png").width, 30);
  EXPECT_EQ(stored(), before);

  const nlohmann::json json = ok({"--json", "export", "2", "--to", to(), "--format", "tiff", "--16bit",
                                  "--color-space", "adobeRGB", "--save"})
                                  .json();
  EXPECT_EQ(json["written"], nlohmann::json::array({(out / "Trip-001.tif").string()}));
  EXPECT_TRUE(json["failed"].empty());
  ExportOptions expected = before;
  expected.format = ExportFormat::tiff;
  expected.tiff16Bit = true;
  expected.colorSpace = ExportColorSpace::adobeRGB;
  expected.folderPath = to();
  EXPECT_EQ(stored(), expected);
}

TEST_F(ExportCommandTest, AFailedPhotoIsReportedAndTheOthersAreWritten) {
  test::writeFile(dir / "photos" / "IMG_1.jpg", "no longer a photo");
  const test::CliResult r = run({"export", "1-2", "--to", to()});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out, (out / "IMG_2.jpg").string() + "\n");
  EXPECT_EQ(r.err, "error: Could not open IMG_1.jpg\n");
  const nlohmann::json json = test::runCliOn(folder, {"--json", "export", "1-2", "--to", to()}).json();
  EXPECT_EQ(json["failed"], nlohmann::json::parse(R"([{"id": 1, "error": "Could not open IMG_1.jpg"}])"));
  EXPECT_EQ(json["written"].size(), 1u);
}

TEST_F(ExportCommandTest, RefusesWhatItCannotDoBeforeWritingAnything) {
  expectRefused(2, {{"export", "1"},
                    {"export", "--to", to()},
                    {"export", "x", "--to", to()},
                    {"export", "1", "--to", to(), "--format", "webp"},
                    {"export", "1", "--to", to(), "--quality", "2"},
                    {"export", "1", "--to", to(), "--16bit"},
                    {"export", "1", "--to", to(), "--size", "100"},
                    {"export", "1", "--to", to(), "--size-mode", "longEdge", "--size", "-1"},
                    {"export", "1", "--to", to(), "--watermark-position", "middle"},
                    {"export", "1", "--to", to(), "--naming", "numbered"},
                    {"export", "1", "--to", to(), "--sharpen", "extra"}});
  expectRefused(1, {{"export", "1", "--to", (dir / "missing").string()},
                    {"export", "1", "--to", (dir / "photos" / "IMG_1.jpg").string()},
                    {"export", "1,7", "--to", to()}});
  EXPECT_TRUE(fs::is_empty(out));
  EXPECT_EQ(stored(), ExportOptions());
}

}  // namespace
