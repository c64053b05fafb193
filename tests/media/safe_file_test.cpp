// A file written first and named later: nothing under a final name until it
// is placed, nothing left behind when it is dropped, never a replaced file.

#include "engine/media/safe_file.h"

#include <gtest/gtest.h>

#include "tests/support/temp_dir.h"

using namespace lumivale;

namespace {

namespace fs = std::filesystem;

class PendingFileTest : public ::testing::Test {
 protected:
  test::TempDir dir;
  NameCandidate numbered = [this](int n) { return dir / ("a" + std::to_string(n) + ".txt"); };
  std::size_t entries() const {
    return std::size_t(std::distance(fs::directory_iterator(dir.path()), fs::directory_iterator()));
  }
  static FileFiller bytes(const std::string& text) {
    return [text](int fd) { writeAll(fd, text.data(), text.size()); };
  }
};

TEST_F(PendingFileTest, TakesTheFirstFreeNameOnlyWhenPlaced) {
  test::writeFile(dir / "a1.txt", "first");
  PendingFile pending(dir / "a1.txt", bytes("second"));
  PendingFile moved(dir / "a1.txt", bytes("dropped when replaced by a move"));
  moved = std::move(pending);
  EXPECT_EQ(entries(), 2u);
  EXPECT_THROW(moved.place(dir / "a1.txt"), FileExistsError);
  EXPECT_EQ(moved.placeUnderFreeName(numbered), dir / "a2.txt");
  EXPECT_EQ(test::readFile(dir / "a1.txt"), "first");
  EXPECT_EQ(test::readFile(dir / "a2.txt"), "second");
  // Placed once, it is nobody's to place again.
  EXPECT_THROW(moved.placeUnderFreeName(numbered), MediaError);
  EXPECT_EQ(entries(), 2u);
}

TEST_F(PendingFileTest, LeavesNothingWhenItFailsOrIsDropped) {
  { PendingFile dropped(dir / "a1.txt", bytes("x")); }
  EXPECT_THROW(PendingFile(dir / "missing" / "a.txt", bytes("x")), MediaError);
  EXPECT_THROW(PendingFile(dir / "a.txt", [](int) { throw MediaError("disk full"); }), MediaError);
  test::writeFile(dir / "a1.txt", "kept");
  EXPECT_THROW(PendingFile(dir / "a1.txt", bytes("new")).placeUnderFreeName(numbered, 1), MediaError);
  EXPECT_EQ(test::readFile(dir / "a1.txt"), "kept");
  EXPECT_EQ(entries(), 1u);
}

}  // namespace
