// Subject and people masks: where the model is looked for, what happens
// without a usable one, how people are told apart from other subjects, and
// the masks of real photos checked against hand-drawn boxes. The tests that
// need the installed model (scripts/install-model.sh) skip without it.

#include "engine/render/smart_masks.h"

#include <gtest/gtest.h>

#include <fstream>
#include <optional>
#include <string>
#include <thread>

#include "engine/media/bitmap.h"
#include "engine/media/image_decoder.h"
#include "engine/render/person_finder.h"
#include "engine/render/segmentation_model.h"
#include "tests/support/sample_photos.h"
#include "tests/support/temp_dir.h"

using namespace lumivale;
namespace fs = std::filesystem;

namespace {

// A photo as the smart masks get it: 8-bit sRGB, `side` pixels on its long side.
Bitmap picture(const fs::path& file, int side = 1800) {
  return toBitmap(ImageDecoder::decode(file, side).image, ColorSpace::sRGB, 8);
}

Bitmap grey(int width, int height, std::uint8_t value) {
  Bitmap b;
  b.width = width, b.height = height;
  b.bytes.assign(std::size_t(width) * height * 3, value);
  return b;
}

// A unit rectangle: left, top, width, height.
struct Box {
  double x, y, w, h;
};

double coverage(const MaskBitmap& m, Box b) { return m.mean(b.x, b.y, b.w, b.h); }

bool modelInstalled() { return SegmentationModel::find().has_value(); }

#define SKIP_WITHOUT_MODEL()                                                                        \
  if (!modelInstalled())                                                                            \
  GTEST_SKIP() << "the segmentation model is not installed (scripts/install-model.sh installs it; " \
                  "LUMIVALE_MODELS names its folder)"

}  // namespace

TEST(SegmentationModelFolders, FollowTheEnvironment) {
  struct Case {
    const char* models;
    const char* dataHome;
    const char* dataDirs;
    std::vector<std::string> expected;
  };
  const Case cases[] = {
      {"/srv/models", "/data", "/a:/b", {"/srv/models"}},
      {nullptr,
       "/data",
       "/a:/b",
       {"/data/kuvo-lumivale/models", "/a/kuvo-lumivale/models", "/b/kuvo-lumivale/models"}},
      {nullptr,
       "relative",
       "relative:/b::",
       {"/home/u/.local/share/kuvo-lumivale/models", "/b/kuvo-lumivale/models"}},
      {"",
       nullptr,
       nullptr,
       {"/home/u/.local/share/kuvo-lumivale/models", "/usr/local/share/kuvo-lumivale/models",
        "/usr/share/kuvo-lumivale/models"}},
  };
  const test::ScopedEnv home("HOME", "/home/u");
  for (const Case& c : cases) {
    const test::ScopedEnv models("LUMIVALE_MODELS", c.models), dataHome("XDG_DATA_HOME", c.dataHome),
        dataDirs("XDG_DATA_DIRS", c.dataDirs);
    std::vector<std::string> folders;
    for (const fs::path& folder : SegmentationModel::folders()) folders.push_back(folder.string());
    EXPECT_EQ(folders, c.expected) << (c.models ? c.models : "(unset)");
  }
}

TEST(SmartMasksWithoutModel, SubjectAndPeopleSayWhyWhileTheSkyStillWorks) {
  test::TempDir empty;
  const test::ScopedEnv models("LUMIVALE_MODELS", empty.path().c_str());
  const Bitmap white = grey(64, 48, 255);
  std::string why;
  EXPECT_FALSE(SmartMasks::subject(white, &why));
  EXPECT_EQ(why.rfind(SmartMasks::unavailableMessage, 0), 0u) << why;
  why.clear();
  EXPECT_FALSE(SmartMasks::people(white, &why));
  EXPECT_EQ(why.rfind(SmartMasks::unavailableMessage, 0), 0u) << why;
  EXPECT_TRUE(SmartMasks::sky(white));
}

TEST(SmartMasksWithoutModel, UnusableModelFilesGiveNothingAndNeverCrash) {
  struct Case {
    const char* what;
    std::string bytes;
  };
  std::vector<Case> cases = {
      {"empty file", ""},
      {"not a model", "KUVO Lumivale is not a neural network\n"},
      {"another network (three channels out)",
       test::readFile(fs::path(LUMIVALE_TEST_DATA) / "models/relu-three-channels.onnx")},
      {"another network (four channels in)",
       test::readFile(fs::path(LUMIVALE_TEST_DATA) / "models/conv-four-channels.onnx")},
  };
  if (auto real = SegmentationModel::find()) {
    std::ifstream in(*real, std::ios::binary);
    std::string start(4 << 20, '\0');
    in.read(start.data(), std::streamsize(start.size()));
    cases.push_back({"truncated model", start});
  }
  for (const Case& c : cases) {
    ASSERT_FALSE(c.bytes.empty() && std::string(c.what) != "empty file") << c.what << ": fixture missing";
    test::TempDir folder;
    test::writeFile(folder / SegmentationModel::fileName, c.bytes);
    const test::ScopedEnv models("LUMIVALE_MODELS", folder.path().c_str());
    std::string why;
    EXPECT_FALSE(SmartMasks::subject(grey(64, 48, 128), &why)) << c.what;
    EXPECT_EQ(why.rfind(SmartMasks::unavailableMessage, 0), 0u) << c.what << ": " << why;
  }
}

TEST(KeepPeople, KeepsTheSubjectRegionsThatHoldAPerson) {
  // Two subjects on a 100 × 100 mask, soft at their rims: a person on the
  // left (rows 20 … 79, columns 10 … 39) and a dog on the right.
  MaskBitmap subject(100, 100);
  auto blob = [&](int x0, int x1) {
    for (int y = 20; y < 80; ++y)
      for (int x = x0 - 1; x <= x1; ++x)
        subject.bytes[std::size_t(y) * 100 + x] = x < x0 || x == x1 ? 100 : 255;
  };
  blob(10, 40), blob(60, 90);
  const PersonBox faceOnLeft{0.15, 0.2, 0.2, 0.15, PersonBox::Kind::face};
  const PersonBox figureOnLeft{0.05, 0.1, 0.4, 0.8, PersonBox::Kind::figure};  // about 56 % covered
  const PersonBox faceBetween{0.35, 0.2, 0.3, 0.2, PersonBox::Kind::face};     // a sixth on each blob
  const PersonBox figureInSky{0.1, 0.0, 0.3, 0.2, PersonBox::Kind::figure};

  struct Case {
    const char* what;
    std::vector<PersonBox> people;
    bool left, right;
  };
  const Case cases[] = {
      {"nobody", {}, false, false},
      {"a face on the left", {faceOnLeft}, true, false},
      {"a figure on the left", {figureOnLeft}, true, false},
      {"a face box mostly off both", {faceBetween}, false, false},
      {"a figure where no subject is", {figureInSky}, false, false},
  };
  for (const Case& c : cases) {
    const MaskBitmap kept = keepPeople(subject, c.people);
    ASSERT_EQ(kept.width, 100);
    ASSERT_EQ(kept.height, 100);
    const std::size_t leftCore = 50 * 100 + 25, leftRim = 50 * 100 + 9, rightCore = 50 * 100 + 75;
    EXPECT_EQ(kept.bytes[leftCore], c.left ? 255 : 0) << c.what;
    EXPECT_EQ(kept.bytes[leftRim], c.left ? 100 : 0) << c.what << ": the soft rim goes with its region";
    EXPECT_EQ(kept.bytes[rightCore], c.right ? 255 : 0) << c.what;
  }
  EXPECT_EQ(keepPeople(MaskBitmap(), std::vector<PersonBox>{faceOnLeft}), MaskBitmap());
}

TEST(FindPeople, FindsTheFaceOfAPortraitAndNoneOnDogs) {
  const std::vector<PersonBox> portrait = findPeople(picture(test::realPhoto("npm-node-iptc-test1.jpeg")));
  ASSERT_FALSE(portrait.empty());
  for (const PersonBox& p : portrait) {
    // The face lies around (0.5, 0.4) of the portrait.
    EXPECT_NEAR(p.x + p.width / 2, 0.5, 0.12);
    EXPECT_NEAR(p.y + p.height / 2, 0.42, 0.12);
  }
  // Only the area asked about is searched.
  EXPECT_FALSE(
      findPeople(picture(test::realPhoto("npm-node-iptc-test1.jpeg")), {0.2, 0.1, 0.7, 0.7}).empty());
  EXPECT_TRUE(findPeople(picture(test::realPhoto("npm-node-iptc-test1.jpeg")), {0, 0.7, 1, 0.3}).empty());
  EXPECT_TRUE(findPeople(picture(test::realPhoto("npm-node-iptc-test1.jpeg")), {0.5, 0.5, 0, 0}).empty());
  auto dogs = test::sharedPhoto("phone/IMG_20200608_111614.jpg");
  if (!dogs) GTEST_SKIP() << "the shared test photos are not there";
  EXPECT_TRUE(findPeople(picture(*dogs)).empty());
  EXPECT_TRUE(findPeople(Bitmap()).empty());
}

TEST(SubjectBounds, FramesTheHalfCoveredPixelsWithAMargin) {
  MaskBitmap subject(100, 50);
  EXPECT_FALSE(subjectBounds(subject, 0.1));
  for (int y = 10; y < 20; ++y)
    for (int x = 2; x < 40; ++x) subject.bytes[std::size_t(y) * 100 + x] = x < 30 ? 128 : 127;
  const std::optional<UnitRect> bounds = subjectBounds(subject, 0.1);
  ASSERT_TRUE(bounds);
  EXPECT_DOUBLE_EQ(bounds->x, 0.0);  // 0.02 − 0.1, kept inside
  EXPECT_DOUBLE_EQ(bounds->y, 0.1);
  EXPECT_DOUBLE_EQ(bounds->width, 0.4);
  EXPECT_DOUBLE_EQ(bounds->height, 0.4);
}

TEST(SmartMasksOnPhotos, SubjectCoversTheSubjectAndNotTheBackground) {
  SKIP_WITHOUT_MODEL();
  // Boxes drawn by hand on each photo: one inside the subject, one on the
  // background beside it.
  struct Case {
    const char* photo;
    Box subject, background;
  };
  const Case cases[] = {
      {"phone/IMG_20200608_111614.jpg", {0.37, 0.27, 0.38, 0.3}, {0, 0.8, 1, 0.2}},   // two dogs on grass
      {"iptc/npm-node-iptc-test5.jpeg", {0.21, 0.52, 0.07, 0.14}, {0.4, 0, 0.6, 1}},  // a heron in a field
      {"iptc/npm-node-iptc-test1.jpeg", {0.3, 0.15, 0.45, 0.7}, {0, 0, 0.12, 0.45}},  // a portrait
  };
  for (const Case& c : cases) {
    const std::string name = c.photo;
    const std::optional<fs::path> file = name.starts_with("iptc/")
                                             ? std::optional(test::realPhoto(fs::path(name).filename()))
                                             : test::sharedPhoto(name);
    if (!file) continue;
    std::string why;
    const std::optional<MaskBitmap> mask = SmartMasks::subject(picture(*file), &why);
    ASSERT_TRUE(mask) << name << ": " << why;
    EXPECT_EQ(mask->width, SegmentationModel::inputSide);
    EXPECT_GE(coverage(*mask, c.subject), 0.75) << name;
    EXPECT_LE(coverage(*mask, c.background), 0.02) << name;
  }
}

TEST(SmartMasksOnPhotos, PeopleKeepsThePersonAndDropsTheDogs) {
  SKIP_WITHOUT_MODEL();
  const std::optional<MaskBitmap> portrait =
      SmartMasks::people(picture(test::realPhoto("npm-node-iptc-test1.jpeg")));
  ASSERT_TRUE(portrait);
  EXPECT_GE(coverage(*portrait, {0.3, 0.15, 0.45, 0.7}), 0.9);
  auto dogs = test::sharedPhoto("phone/IMG_20200608_111614.jpg");
  if (!dogs) GTEST_SKIP() << "the shared test photos are not there";
  const std::optional<MaskBitmap> noOne = SmartMasks::people(picture(*dogs));
  ASSERT_TRUE(noOne);
  EXPECT_EQ(coverage(*noOne, {0, 0, 1, 1}), 0.0);
}

TEST(SmartMasksOnPhotos, OddPicturesGiveAMaskOrNothingButNeverFail) {
  SKIP_WITHOUT_MODEL();
  Bitmap transparent;
  transparent.width = 20, transparent.height = 20, transparent.channels = 4;
  transparent.bytes.assign(20 * 20 * 4, 0);
  for (const Bitmap& odd :
       {grey(1, 1, 0), grey(10000, 10, 255), grey(300, 200, 0), grey(300, 200, 255), transparent}) {
    const std::optional<MaskBitmap> mask = SmartMasks::people(odd);
    ASSERT_TRUE(mask) << odd.width << " x " << odd.height;
    EXPECT_EQ(mask->width * mask->height, SegmentationModel::inputSide * SegmentationModel::inputSide);
  }
  std::string why;
  EXPECT_FALSE(SmartMasks::subject(Bitmap(), &why));
  EXPECT_FALSE(why.empty());
}

TEST(SmartMasksOnPhotos, GiveTheSameMasksFromSeveralThreads) {
  SKIP_WITHOUT_MODEL();
  const Bitmap portrait = picture(test::realPhoto("npm-node-iptc-test1.jpeg"));
  const std::optional<MaskBitmap> alone = SmartMasks::people(portrait);
  ASSERT_TRUE(alone);
  std::optional<MaskBitmap> together[2];
  {
    std::vector<std::jthread> threads;
    for (auto& result : together) threads.emplace_back([&] { result = SmartMasks::people(portrait); });
  }
  for (const auto& result : together) EXPECT_EQ(result, alone);
}
