#include "engine/export/export_options.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "engine/catalog/user_defaults.h"
#include "tests/support/temp_dir.h"

using namespace lumivale;

namespace {

using ordered_json = nlohmann::ordered_json;

template <class E>
std::vector<std::pair<std::string_view, std::string_view>> keysAndTitles() {
  std::vector<std::pair<std::string_view, std::string_view>> out;
  for (E value : allCases<E>()) {
    EXPECT_EQ(caseFromKey<E>(key(value)), value);
    out.emplace_back(key(value), title(value));
  }
  EXPECT_EQ(caseFromKey<E>("unknown"), std::nullopt);
  EXPECT_EQ(caseFromKey<E>(""), std::nullopt);
  return out;
}

using Pairs = std::vector<std::pair<std::string_view, std::string_view>>;

TEST(ExportEnumerations, ListTheirCasesInSheetOrderWithKeysAndTitles) {
  EXPECT_EQ(keysAndTitles<ExportFormat>(),
            (Pairs{{"jpeg", "JPEG"}, {"heic", "HEIC"}, {"tiff", "TIFF"}, {"png", "PNG"}}));
  EXPECT_EQ(keysAndTitles<ExportColorSpace>(), (Pairs{{"sRGB", "sRGB (web, phones, most printers)"},
                                                      {"displayP3", "Display P3 (wide-gamut screens)"},
                                                      {"adobeRGB", "Adobe RGB (1998) (print shops)"}}));
  EXPECT_EQ(keysAndTitles<SizeMode>(), (Pairs{{"original", "Full size"},
                                              {"longEdge", "Long edge"},
                                              {"shortEdge", "Short edge"},
                                              {"width", "Width"},
                                              {"height", "Height"},
                                              {"percent", "Percent"}}));
  EXPECT_EQ(keysAndTitles<OutputSharpening>(), (Pairs{{"none", "None"},
                                                      {"screen", "For screen"},
                                                      {"matte", "For matte paper"},
                                                      {"glossy", "For glossy paper"}}));
  EXPECT_EQ(keysAndTitles<SharpenLevel>(),
            (Pairs{{"low", "Low"}, {"standard", "Standard"}, {"high", "High"}}));
  EXPECT_EQ(keysAndTitles<WatermarkPosition>(), (Pairs{{"topLeft", "Top left"},
                                                       {"top", "Top"},
                                                       {"topRight", "Top right"},
                                                       {"left", "Left"},
                                                       {"center", "Center"},
                                                       {"right", "Right"},
                                                       {"bottomLeft", "Bottom left"},
                                                       {"bottom", "Bottom"},
                                                       {"bottomRight", "Bottom right"}}));
  EXPECT_EQ(keysAndTitles<MetadataPolicy>(), (Pairs{{"all", "All (camera details, keywords, location)"},
                                                    {"copyrightOnly", "Copyright and keywords only"},
                                                    {"none", "None (strip everything)"}}));
  EXPECT_EQ(keysAndTitles<NamingMode>(), (Pairs{{"original", "Same as the original"},
                                                {"originalSuffix", "Original + suffix"},
                                                {"custom", "Custom name + number"}}));
}

TEST(ExportEnumerations, NameTheEncodersFormatAndColourSpace) {
  std::vector<ImageFormat> formats;
  for (ExportFormat f : allCases<ExportFormat>()) formats.push_back(imageFormat(f));
  EXPECT_EQ(formats,
            (std::vector{ImageFormat::jpeg, ImageFormat::heif, ImageFormat::tiff, ImageFormat::png}));
  std::vector<ColorSpace> spaces;
  for (ExportColorSpace c : allCases<ExportColorSpace>()) spaces.push_back(space(c));
  EXPECT_EQ(spaces, (std::vector{ColorSpace::sRGB, ColorSpace::displayP3, ColorSpace::adobeRGB}));
}

TEST(ExportEnumerations, FormatsKnowTheirExtensionTypeAndCompression) {
  std::vector<std::tuple<std::string_view, std::string_view, bool>> facts;
  for (ExportFormat f : allCases<ExportFormat>()) facts.emplace_back(ext(f), uti(f), lossy(f));
  EXPECT_EQ(facts,
            (std::vector<std::tuple<std::string_view, std::string_view, bool>>{{"jpg", "image/jpeg", true},
                                                                               {"heic", "image/heic", true},
                                                                               {"tif", "image/tiff", false},
                                                                               {"png", "image/png", false}}));
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

const std::vector<std::string> storedKeys = {
    "format",           "quality",           "tiff16Bit",     "sizeMode",    "sizeValue",     "dontEnlarge",
    "colorSpace",       "sharpening",        "sharpenLevel",  "watermarkOn", "watermarkText", "watermarkSize",
    "watermarkOpacity", "watermarkPosition", "watermarkDark", "metadata",    "copyright",     "naming",
    "suffix",           "customName",        "folderPath"};

TEST(ExportOptionsStoredForm, IsOneObjectWithEveryFieldInDeclarationOrder) {
  const ordered_json stored = ordered_json::parse(*changed().encode());
  std::vector<std::string> keys;
  for (const auto& item : stored.items()) keys.push_back(item.key());
  EXPECT_EQ(keys, storedKeys);
  EXPECT_EQ(stored["format"], "tiff");
  EXPECT_EQ(stored["sizeValue"], 37.5);
  EXPECT_EQ(stored["tiff16Bit"], true);
  EXPECT_EQ(stored["watermarkPosition"], "topLeft");
  EXPECT_EQ(stored["watermarkText"], "Ünïcode \"quoted\" / ©");
  EXPECT_EQ(ExportOptions::decode(*changed().encode()), changed());
  EXPECT_EQ(ExportOptions::decode(*ExportOptions().encode()), ExportOptions());
}

char kindOf(const ordered_json& value) {
  return value.is_number() ? 'n' : value.is_string() ? 's' : value.is_boolean() ? 'b' : 'o';
}

// Decoding is all or nothing: one missing key, one value of the wrong type
// or one unknown enumeration key loses the whole record.
TEST(ExportOptionsStoredForm, DecodesOnlyACompleteRecordOfTheRightTypes) {
  const ordered_json complete = ordered_json::parse(*changed().encode());
  for (const std::string& key : storedKeys) {
    SCOPED_TRACE(key);
    ordered_json missing = complete;
    missing.erase(key);
    EXPECT_EQ(ExportOptions::decode(missing.dump()), std::nullopt);
    for (const ordered_json& wrong : {ordered_json(nullptr), ordered_json::array(), ordered_json("x"),
                                      ordered_json(2), ordered_json(true)}) {
      if (kindOf(wrong) == kindOf(complete[key])) continue;
      ordered_json mistyped = complete;
      mistyped[key] = wrong;
      EXPECT_EQ(ExportOptions::decode(mistyped.dump()), std::nullopt) << wrong.dump();
    }
  }
  for (const char* enumKey : {"format", "colorSpace", "sizeMode", "sharpening", "sharpenLevel",
                              "watermarkPosition", "metadata", "naming"}) {
    ordered_json unknown = complete;
    unknown[enumKey] = "webp";
    EXPECT_EQ(ExportOptions::decode(unknown.dump()), std::nullopt) << enumKey;
  }
  ordered_json extra = complete;
  extra["addedLater"] = {1, 2};
  EXPECT_EQ(ExportOptions::decode(extra.dump()), changed());
  for (const char* broken : {"", "null", "[]", "\"text\"", "{", "{} {}"}) {
    EXPECT_EQ(ExportOptions::decode(broken), std::nullopt) << broken;
  }
  EXPECT_EQ(ExportOptions::decode(complete.dump() + " x"), std::nullopt);
}

class ExportOptionsStoreTest : public ::testing::Test {
 protected:
  test::TempDir dir;
  UserDefaults store{dir.path()};
};

TEST_F(ExportOptionsStoreTest, LoadsTheDefaultsWhenNothingIsStored) {
  const ExportOptions o = ExportOptions::load(store);
  EXPECT_EQ(o, ExportOptions());
  EXPECT_EQ(o.format, ExportFormat::jpeg);
  EXPECT_EQ(o.quality, 0.9);
  EXPECT_FALSE(o.tiff16Bit);
  EXPECT_EQ(o.sizeMode, SizeMode::original);
  EXPECT_EQ(o.sizeValue, 2048);
  EXPECT_TRUE(o.dontEnlarge);
  EXPECT_EQ(o.colorSpace, ExportColorSpace::sRGB);
  EXPECT_EQ(o.sharpening, OutputSharpening::none);
  EXPECT_EQ(o.sharpenLevel, SharpenLevel::standard);
  EXPECT_FALSE(o.watermarkOn);
  EXPECT_EQ(o.watermarkText, "© Your Name");
  EXPECT_EQ(o.watermarkSize, 4.0);
  EXPECT_EQ(o.watermarkOpacity, 0.6);
  EXPECT_EQ(o.watermarkPosition, WatermarkPosition::bottomRight);
  EXPECT_FALSE(o.watermarkDark);
  EXPECT_EQ(o.metadata, MetadataPolicy::all);
  EXPECT_EQ(o.copyright, "");
  EXPECT_EQ(o.naming, NamingMode::original);
  EXPECT_EQ(o.suffix, "-edit");
  EXPECT_EQ(o.customName, "Photo");
  EXPECT_EQ(o.folderPath, "");
}

TEST_F(ExportOptionsStoreTest, SavedOptionsLoadEqualUnderTheirKey) {
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
