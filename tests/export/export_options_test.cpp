#include "engine/export/export_options.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <set>

#include "engine/catalog/user_defaults.h"
#include "tests/support/temp_dir.h"

using namespace lumivale;

namespace {

using ordered_json = nlohmann::ordered_json;

// "key=Title" of every case in order; each key must find its case again.
template <class E>
std::vector<std::string> cases() {
  std::vector<std::string> out;
  for (E value : allCases<E>()) {
    EXPECT_EQ(caseFromKey<E>(key(value)), value);
    out.push_back(std::string(key(value)) + "=" + std::string(title(value)));
  }
  EXPECT_EQ(caseFromKey<E>("unknown"), std::nullopt);
  EXPECT_EQ(caseFromKey<E>(""), std::nullopt);
  return out;
}

using Texts = std::vector<std::string>;

TEST(ExportEnumerations, ListTheirCasesInSheetOrderWithKeysAndTitles) {
  EXPECT_EQ(cases<ExportFormat>(), (Texts{"jpeg=JPEG", "heic=HEIC", "tiff=TIFF", "png=PNG"}));
  EXPECT_EQ(cases<ExportColorSpace>(),
            (Texts{"sRGB=sRGB (web, phones, most printers)", "displayP3=Display P3 (wide-gamut screens)",
                   "adobeRGB=Adobe RGB (1998) (print shops)"}));
  EXPECT_EQ(cases<SizeMode>(), (Texts{"original=Full size", "longEdge=Long edge", "shortEdge=Short edge",
                                      "width=Width", "height=Height", "percent=Percent"}));
  EXPECT_EQ(cases<OutputSharpening>(),
            (Texts{"none=None", "screen=For screen", "matte=For matte paper", "glossy=For glossy paper"}));
  EXPECT_EQ(cases<SharpenLevel>(), (Texts{"low=Low", "standard=Standard", "high=High"}));
  EXPECT_EQ(cases<WatermarkPosition>(),
            (Texts{"topLeft=Top left", "top=Top", "topRight=Top right", "left=Left", "center=Center",
                   "right=Right", "bottomLeft=Bottom left", "bottom=Bottom", "bottomRight=Bottom right"}));
  EXPECT_EQ(cases<MetadataPolicy>(),
            (Texts{"all=All (camera details, keywords, location)",
                   "copyrightOnly=Copyright and keywords only", "none=None (strip everything)"}));
  EXPECT_EQ(cases<NamingMode>(), (Texts{"original=Same as the original", "originalSuffix=Original + suffix",
                                        "custom=Custom name + number"}));
}

TEST(ExportEnumerations, FormatsAndSpacesNameTheirFilesAndEncoders) {
  Texts formats;
  for (ExportFormat f : allCases<ExportFormat>()) {
    formats.push_back(std::string(ext(f)) + " " + std::string(uti(f)) + (lossy(f) ? " lossy" : ""));
  }
  EXPECT_EQ(formats,
            (Texts{"jpg image/jpeg lossy", "heic image/heic lossy", "tif image/tiff", "png image/png"}));
  std::vector<ImageFormat> encoders;
  for (ExportFormat f : allCases<ExportFormat>()) encoders.push_back(imageFormat(f));
  EXPECT_EQ(encoders,
            (std::vector{ImageFormat::jpeg, ImageFormat::heif, ImageFormat::tiff, ImageFormat::png}));
  std::vector<ColorSpace> spaces;
  for (ExportColorSpace c : allCases<ExportColorSpace>()) spaces.push_back(space(c));
  EXPECT_EQ(spaces, (std::vector{ColorSpace::sRGB, ColorSpace::displayP3, ColorSpace::adobeRGB}));
}

// The defaults in their stored form: every field under its name, in
// declaration order, enumerations by key.
const char* const storedDefaults =
    R"({"format":"jpeg","quality":0.9,"tiff16Bit":false,"sizeMode":"original","sizeValue":2048,)"
    R"("dontEnlarge":true,"colorSpace":"sRGB","sharpening":"none","sharpenLevel":"standard",)"
    R"("watermarkOn":false,"watermarkText":"© Your Name","watermarkSize":4,"watermarkOpacity":0.6,)"
    R"("watermarkPosition":"bottomRight","watermarkDark":false,"metadata":"all","copyright":"",)"
    R"("naming":"original","suffix":"-edit","customName":"Photo","folderPath":""})";

TEST(ExportOptionsStoredForm, HoldsEveryFieldInDeclarationOrder) {
  EXPECT_EQ(ordered_json::parse(*ExportOptions().encode()), ordered_json::parse(storedDefaults));
  EXPECT_EQ(ExportOptions::decode(storedDefaults), ExportOptions());
}

// A record with every field away from its default.
ExportOptions changed() {
  return {.format = ExportFormat::tiff,
          .quality = 0.55,
          .tiff16Bit = true,
          .sizeMode = SizeMode::percent,
          .sizeValue = 37.5,
          .dontEnlarge = false,
          .colorSpace = ExportColorSpace::adobeRGB,
          .sharpening = OutputSharpening::glossy,
          .sharpenLevel = SharpenLevel::high,
          .watermarkOn = true,
          .watermarkText = "Ünïcode \"quoted\" / ©",
          .watermarkSize = 12.25,
          .watermarkOpacity = 0.3,
          .watermarkPosition = WatermarkPosition::topLeft,
          .watermarkDark = true,
          .metadata = MetadataPolicy::copyrightOnly,
          .copyright = "© 2024 Someone",
          .naming = NamingMode::custom,
          .suffix = "_x",
          .customName = "Holiday",
          .folderPath = "/home/someone/Exports"};
}

char kindOf(const ordered_json& value) {
  return value.is_number() ? 'n' : value.is_string() ? 's' : value.is_boolean() ? 'b' : 'o';
}

const std::set<std::string> choices = {"format",       "sizeMode",          "colorSpace", "sharpening",
                                       "sharpenLevel", "watermarkPosition", "metadata",   "naming"};

// Decoding is all or nothing: one missing key, one value of the wrong type
// or one unknown enumeration key loses the whole record.
TEST(ExportOptionsStoredForm, DecodesOnlyACompleteRecordOfTheRightTypes) {
  const ordered_json complete = ordered_json::parse(*changed().encode());
  EXPECT_EQ(ExportOptions::decode(complete.dump()), changed());
  for (const auto& item : complete.items()) {
    const std::string& key = item.key();
    SCOPED_TRACE(key);
    ordered_json missing = complete;
    missing.erase(key);
    EXPECT_EQ(ExportOptions::decode(missing.dump()), std::nullopt);
    for (const ordered_json& wrong : {ordered_json(nullptr), ordered_json::array(), ordered_json("webp"),
                                      ordered_json(2), ordered_json(true)}) {
      // Any string is right for a text field; an enumeration takes its keys only.
      const bool text = !choices.count(key);
      if (kindOf(wrong) == kindOf(item.value()) && (!wrong.is_string() || text)) continue;
      ordered_json mistyped = complete;
      mistyped[key] = wrong;
      EXPECT_EQ(ExportOptions::decode(mistyped.dump()), std::nullopt) << wrong.dump();
    }
  }
  ordered_json extra = complete;
  extra["addedLater"] = {1, 2};
  EXPECT_EQ(ExportOptions::decode(extra.dump()), changed());
  for (const std::string& broken : {std::string(), std::string("null"), std::string("[]"), std::string("{"),
                                    std::string("{} {}"), complete.dump() + " x"}) {
    EXPECT_EQ(ExportOptions::decode(broken), std::nullopt) << broken;
  }
}

class ExportOptionsStoreTest : public ::testing::Test {
 protected:
  test::TempDir dir;
  UserDefaults store{dir.path()};
};

TEST_F(ExportOptionsStoreTest, SavedOptionsLoadEqualUnderTheirKey) {
  EXPECT_EQ(ExportOptions::load(store), ExportOptions());
  ASSERT_TRUE(changed().save(store));
  EXPECT_EQ(ExportOptions::load(store), changed());
  EXPECT_EQ(store.data("kuvo.ph.exportOptions"), changed().encode());
}

TEST_F(ExportOptionsStoreTest, AnOlderOrDamagedRecordLoadsAsTheDefaultsAsAWhole) {
  ordered_json older = ordered_json::parse(*changed().encode());
  older.erase("folderPath");
  for (const std::string& stored : {older.dump(), std::string("{\"format\":"), std::string("\xff\xfe")}) {
    store.set(ExportOptions::key, stored);
    EXPECT_EQ(ExportOptions::load(store), ExportOptions());
  }
}

TEST_F(ExportOptionsStoreTest, OptionsThatCannotBeEncodedLeaveTheStoredOnes) {
  ASSERT_TRUE(changed().save(store));
  ExportOptions broken = changed();
  broken.quality = std::numeric_limits<double>::quiet_NaN();
  EXPECT_EQ(broken.encode(), std::nullopt);
  EXPECT_FALSE(broken.save(store));
  EXPECT_EQ(ExportOptions::load(store), changed());
}

}  // namespace
