// Output sharpening and the metadata policy of exports.

#include <gtest/gtest.h>

#include "engine/export/exporter.h"
#include "engine/media/bitmap.h"
#include "engine/media/image_decoder.h"
#include "engine/media/image_encoder.h"
#include "engine/media/image_properties.h"
#include "engine/render/filters/blur.h"
#include "tests/support/sample_photos.h"
#include "tests/support/temp_dir.h"

using namespace lumivale;

namespace {

TEST(ExportSharpening, UsesTheMediumsRadiusAndTheLevelsStrength) {
  FloatPixels stripes{16, 8, 3, {}};
  for (int i = 0; i < 16 * 8; ++i) {
    const float v = (i % 16) < 8 ? 0.2f : 0.7f;
    stripes.values.insert(stripes.values.end(), {v, v, v});
  }
  const Image image = Image::fromPixels(stripes);
  EXPECT_EQ(Exporter::outputSharpen(image, ExportOptions()).readPixels().values, stripes.values);

  struct Case {
    OutputSharpening medium;
    SharpenLevel level;
    double radius, intensity;
  };
  const Case cases[] = {
      {OutputSharpening::screen, SharpenLevel::standard, 0.6, 0.35},
      {OutputSharpening::matte, SharpenLevel::low, 1.4, 0.7 * 0.6},
      {OutputSharpening::glossy, SharpenLevel::high, 1.0, 0.5 * 1.5},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(key(c.medium));
    const ExportOptions options{.sharpening = c.medium, .sharpenLevel = c.level};
    const FloatPixels sharpened = Exporter::outputSharpen(image, options).readPixels();
    EXPECT_EQ(sharpened.values, filters::unsharpMask(image, c.radius, c.intensity).readPixels().values);
    EXPECT_NE(sharpened.values, stripes.values);
  }
}

class ExportMetadataPolicyTest : public ::testing::Test {
 protected:
  void SetUp() override {
    test::writePhoto(
        photo, 32, 24,
        {.make = "Lumivale", .latitude = "1/1 0/1 0/1", .latitudeRef = "N", .keywords = {"carried"}});
  }
  test::TempDir dir;
  std::filesystem::path photo = dir / "IMG_1.jpg";
  PhotoRecord record{.path = photo.string(), .name = "IMG_1.jpg"};
  const std::vector<std::string> keywords{"sea", "sky"};
  ExportOptions options(MetadataPolicy policy) const { return {.metadata = policy, .copyright = "© Ann"}; }
};

TEST_F(ExportMetadataPolicyTest, NoneWritesNeitherCopyrightNorKeywords) {
  EXPECT_EQ(Exporter::metadata(record, options(MetadataPolicy::none), keywords), OutputMetadata());
}

TEST_F(ExportMetadataPolicyTest, CopyrightOnlyReadsNothingFromThePhoto) {
  const OutputMetadata expected{{}, "KUVO Lumivale (KUVO)", "© Ann", keywords};
  EXPECT_EQ(Exporter::metadata(record, options(MetadataPolicy::copyrightOnly), keywords), expected);
}

TEST_F(ExportMetadataPolicyTest, AllCarriesWhatThePhotosFileHoldsIfItCanBeRead) {
  const OutputMetadata all = Exporter::metadata(record, options(MetadataPolicy::all), keywords);
  EXPECT_EQ(all.carried, readCarriedMetadata(photo));
  EXPECT_FALSE(all.carried.exif.empty());
  EXPECT_FALSE(all.carried.iptc.empty());
  EXPECT_EQ(all.copyright, "© Ann");
  EXPECT_EQ(all.keywords, keywords);

  std::filesystem::remove(photo);
  const OutputMetadata unreadable = Exporter::metadata(record, options(MetadataPolicy::all), {});
  EXPECT_EQ(unreadable, (OutputMetadata{{}, "KUVO Lumivale (KUVO)", "© Ann", {}}));
}

}  // namespace
