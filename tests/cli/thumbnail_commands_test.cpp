#include <gtest/gtest.h>

#include "engine/catalog/thumbnails.h"
#include "tests/support/cli_run.h"
#include "tests/support/sample_photos.h"

using namespace lumivale;
using Json = nlohmann::json;

namespace {

class ThumbnailCommandsTest : public test::CliLibraryTest {
 protected:
  void SetUp() override {
    test::writePhoto(dir / "a.jpg", 64, 48);
    test::writePhoto(dir / "b.png", 48, 64);
    a = addPhoto((dir / "a.jpg").string());
    b = addPhoto((dir / "b.png").string());
    addPhoto((dir / "gone.jpg").string());
  }
  std::tuple<Json, Json, Json> counts(const std::vector<std::string>& args) {
    std::vector<std::string> all = {"--json", "thumbnails"};
    all.insert(all.end(), args.begin(), args.end());
    const Json doc = ok(all).json();
    EXPECT_EQ(doc["unsaved"], 0);
    return {doc["made"], doc["present"], doc["failed"]};
  }
  std::int64_t a = 0, b = 0;
};

}  // namespace

TEST_F(ThumbnailCommandsTest, MakesWhatIsMissingAndCountsTheRest) {
  const test::CliResult r = ok({"thumbnails"});
  EXPECT_EQ(r.out, "Made 2 thumbnails, 1 photo could not be read\n");
  EXPECT_EQ(r.err, "");  // no progress bar when stderr is not a terminal
  EXPECT_TRUE(Thumbnails::load(library.thumbnailURL(a, false)));
  EXPECT_TRUE(Thumbnails::load(library.thumbnailURL(b, false)));

  EXPECT_EQ(counts({}), std::tuple(Json(0), Json(2), Json(1)));
  test::writeFile(library.thumbnailURL(b, false), "damaged");
  EXPECT_EQ(counts({}), std::tuple(Json(1), Json(1), Json(1)));
  EXPECT_EQ(counts({std::to_string(a), "--force"}), std::tuple(Json(1), Json(0), Json(0)));
  EXPECT_EQ(counts({std::to_string(a) + "," + std::to_string(b)}), std::tuple(Json(0), Json(2), Json(0)));
}

TEST_F(ThumbnailCommandsTest, RefusesUnknownPhotosAndBadArguments) {
  expectError(run({"thumbnails", "99"}), 1, "no photo with id 99");
  expectRefused(2, {{"thumbnails", "x"}, {"thumbnails", "1", "2"}, {"thumbnails", "--size"}});
  EXPECT_TRUE(std::filesystem::is_empty(library.thumbFolder()));
}
