#include <gtest/gtest.h>

#include "cli/export_settings.h"
#include "engine/catalog/user_defaults.h"
#include "tests/support/cli_run.h"
#include "tests/support/environment.h"

using namespace lumivale;
using test::Args;

namespace {

class ExportOptionsCommandTest : public ::testing::Test {
 protected:
  test::TempDir config;
  test::Environment environment{"LUMIVALE_CONFIG", config.path().c_str()};
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
