// The default look against the camera's own rendering: the untouched RAW
// file of the shared Canon test photo, developed with the initial settings
// of a RAW photo and rendered, must look like the JPEG the camera stored in
// it (mean CIEDE2000 over all pixels at the JPEG's size).
//
// scripts/measure-raw-look.sh prints the same figure for any RAW file.

#include <gtest/gtest.h>

#include <cstdio>
#include <vips/vips8>

#include "engine/media/embedded_preview.h"
#include "engine/render/photo_renderer.h"
#include "engine/render/raw/raw_source.h"
#include "tests/support/sample_photos.h"

using namespace lumivale;

namespace {

vips::VImage lab(const Image& image) {
  vips::VImage v(image.get(), vips::NOSTEAL);
  return v.colourspace(VIPS_INTERPRETATION_sRGB).cast(VIPS_FORMAT_UCHAR).colourspace(VIPS_INTERPRETATION_LAB);
}

TEST(RawLookCamera, UntouchedRenderLooksLikeTheCamerasJpeg) {
#if defined(__SANITIZE_THREAD__)
  // Every tile libvips hands between its threads is a report ThreadSanitizer
  // must match against the suppressions: a whole photo takes half an hour.
  // This test measures colour; the smaller ones cover the threads.
  GTEST_SKIP() << "too slow under ThreadSanitizer";
#endif
  const auto cr2 = test::sharedPhoto("raw/IMG_5952.CR2");
  if (!cr2) GTEST_SKIP() << "the shared test photos are not there";
  const auto source = RawSource::open(*cr2);
  ASSERT_TRUE(source);
  // A RAW photo's initial settings: sharpening 25, colour noise 25.
  EditSettings settings;
  settings.sharpenAmount = 25;
  settings.noiseColor = 25;
  const Image camera = EmbeddedPreviews::largest(*cr2, 100000);
  ASSERT_EQ(camera.width(), 1728);
  const Image base = source->image(camera.width(), settings).materialize();
  PhotoRenderer renderer;
  const Image rendered = renderer.render(base, source->fullSize(), settings);
  ASSERT_EQ(rendered.width(), camera.width());
  ASSERT_EQ(rendered.height(), camera.height());
  const double meanDeltaE = lab(rendered).dE00(lab(camera)).avg();
  std::printf("mean CIEDE2000 against the camera's JPEG: %.2f\n", meanDeltaE);
  EXPECT_LE(meanDeltaE, 4.0);
}

}  // namespace
