#include "diagnostics/snapshots.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <set>
#include <sstream>

#include "engine/media/bitmap.h"
#include "engine/media/image_decoder.h"
#include "engine/media/media_libraries.h"
#include "engine/render/segmentation_model.h"
#include "tests/support/temp_dir.h"

using namespace lumivale;
using namespace lumivale::diagnostics;

namespace {

const std::filesystem::path references = std::filesystem::path(LUMIVALE_TEST_DATA) / "snapshots";

// How far a snapshot may stray from its reference, in 8-bit sRGB levels:
// rounding and the last bits of float arithmetic move a sample by a level
// or two; a changed renderer moves whole areas by more.
constexpr int perChannelLevels = 2;     // a sample off by more counts as changed
constexpr double changedShare = 0.005;  // the share of samples allowed to change
constexpr int hardLimitLevels = 16;     // no sample may be off by more

struct Comparison {
  std::string problem;  // empty when the pictures match
};

// The 8-bit sRGB samples of a PNG file, read back through the engine's
// decoder (which converts them exactly back to the same levels).
Bitmap samples(const std::filesystem::path& file) {
  return toBitmap(ImageDecoder::decode(file, std::nullopt).image, ColorSpace::sRGB, 8);
}

Comparison compare(const std::filesystem::path& got, const std::filesystem::path& want) {
  const Bitmap a = samples(got), b = samples(want);
  if (a.width != b.width || a.height != b.height) {
    return {"size " + std::to_string(a.width) + "×" + std::to_string(a.height) + " instead of " +
            std::to_string(b.width) + "×" + std::to_string(b.height)};
  }
  const auto& x = a.bytes;
  const auto& y = b.bytes;
  std::size_t changed = 0;
  int worst = 0;
  for (std::size_t i = 0; i < x.size(); ++i) {
    const int d = std::abs(int(x[i]) - int(y[i]));
    worst = std::max(worst, d);
    changed += d > perChannelLevels;
  }
  const double share = double(changed) / double(x.size());
  if (worst > hardLimitLevels || share > changedShare) {
    std::ostringstream text;
    text << "largest difference " << worst << " levels, " << share * 100 << " % of samples off by more than "
         << perChannelLevels;
    return {text.str()};
  }
  return {};
}

bool modelPresent() { return SegmentationModel::find().has_value(); }

struct SnapshotsTest : testing::Test {
  void SetUp() override { initMediaLibraries(); }
  test::TempDir dir;
};

}  // namespace

TEST_F(SnapshotsTest, MatchTheReferencePicturesAndNameEveryOneInTheSheet) {
  const auto folder = dir / "new" / "shots";  // made when missing
  std::ostringstream out, err;
  ASSERT_EQ(writeSnapshots(folder, out, err), 0) << err.str();
  const std::string sheet = test::readFile(folder / "index.html");
  std::set<std::string> names;
  for (const SnapshotEntry& entry : snapshotSet()) {
    SCOPED_TRACE(entry.name);
    EXPECT_TRUE(names.insert(entry.name).second) << "two snapshots share a name";
    std::string caption;  // as HTML writes it ("B&amp;W")
    for (char ch : entry.caption) caption += ch == '&' ? std::string("&amp;") : std::string(1, ch);
    EXPECT_NE(sheet.find("<figcaption>" + caption + "</figcaption>"), std::string::npos);
    const auto shot = folder / (entry.name + ".png");
    const bool needsModel =
        !entry.settings.masks.empty() && (entry.settings.masks[0].kind == MaskKind::subject ||
                                          entry.settings.masks[0].kind == MaskKind::people);
    if (!std::filesystem::exists(shot) && needsModel && !modelPresent()) continue;  // left out, as it says
    ASSERT_TRUE(std::filesystem::exists(shot));
    EXPECT_NE(sheet.find("src=\"" + entry.name + ".png\""), std::string::npos);
    const auto reference = references / (entry.name + ".png");
    ASSERT_TRUE(std::filesystem::exists(reference))
        << "no reference picture; scripts/update-snapshot-references.sh makes it";
    EXPECT_EQ(compare(shot, reference).problem, "");
  }
  for (const auto& file : std::filesystem::directory_iterator(references)) {
    if (file.path().extension() == ".png") {
      EXPECT_TRUE(names.count(file.path().stem().string())) << "a reference of no snapshot: " << file.path();
    }
  }
}

TEST_F(SnapshotsTest, TheComparisonSeesAChangedPicture) {
  // A guard against a comparison that passes everything: the same scene
  // one setting apart must fail it.
  const SnapshotEntry& plain = snapshotSet().front();
  SnapshotEntry brighter = plain;
  brighter.settings.exposure = 0.3;
  test::writeFile(dir / "a.png", snapshotPng(*renderSnapshot(plain)));
  test::writeFile(dir / "b.png", snapshotPng(*renderSnapshot(brighter)));
  EXPECT_EQ(compare(dir / "a.png", dir / "a.png").problem, "");
  EXPECT_NE(compare(dir / "b.png", dir / "a.png").problem, "");
}

TEST_F(SnapshotsTest, ASecondRunAddsNumberedFilesAndReplacesNothing) {
  std::ostringstream out, err;
  test::writeFile(dir / "grey-ramp-default.png", "mine");
  ASSERT_EQ(writeSnapshots(dir.path(), out, err), 0) << err.str();
  const std::string firstSheet = test::readFile(dir / "index.html");
  ASSERT_EQ(writeSnapshots(dir.path(), out, err), 0) << err.str();
  EXPECT_EQ(test::readFile(dir / "grey-ramp-default.png"), "mine");
  EXPECT_TRUE(std::filesystem::exists(dir / "grey-ramp-default 3.png"));
  EXPECT_EQ(test::readFile(dir / "index.html"), firstSheet);
  const std::string secondSheet = test::readFile(dir / "index 2.html");
  EXPECT_NE(secondSheet.find("src=\"grey-ramp-default%203.png\""), std::string::npos);
  EXPECT_NE(firstSheet.find("src=\"grey-ramp-default%202.png\""), std::string::npos);
}

TEST_F(SnapshotsTest, AFolderThatCannotTakeThemFailsWithAMessage) {
  test::writeFile(dir / "file", "x");
  std::filesystem::create_directories(dir / "locked");
  std::filesystem::permissions(dir / "locked",
                               std::filesystem::perms::owner_read | std::filesystem::perms::owner_exec);
  struct Case {
    std::filesystem::path folder;
    std::string says;
  };
  std::vector<Case> cases = {{dir / "file", "it is not a folder"},
                             {dir / "file" / "below", "it cannot be made"}};
  if (geteuid() != 0) cases.push_back({dir / "locked", "it cannot be written"});
  for (const Case& c : cases) {
    std::ostringstream out, err;
    EXPECT_EQ(writeSnapshots(c.folder, out, err), 1) << c.folder;
    EXPECT_EQ(
        err.str().rfind("lumivale: cannot write snapshots into " + c.folder.string() + ": " + c.says, 0), 0u)
        << err.str();
    EXPECT_EQ(out.str(), "");
  }
  EXPECT_TRUE(std::filesystem::is_empty(dir / "locked"));
}
