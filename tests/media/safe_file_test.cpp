// A file written first and named later: nothing under a final name until it
// is placed, nothing left behind when it is dropped, never a replaced file.

#include "engine/media/safe_file.h"

#include <gtest/gtest.h>

#include "tests/support/temp_dir.h"

using namespace lumivale;

namespace {

namespace fs = std::filesystem;

std::size_t entries(const fs::path& folder) {
  return std::size_t(std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
}

FileFiller bytes(const std::string& text) {
  return [text](int fd) { writeAll(fd, text.data(), text.size()); };
}

class PendingFileTest : public ::testing::Test {
 protected:
  test::TempDir dir;
  NameCandidate numbered = [this](int n) { return dir / ("a" + std::to_string(n) + ".txt"); };
};

TEST_F(PendingFileTest, TakesTheFirstFreeNameOnlyWhenPlaced) {
  test::writeFile(dir / "a1.txt", "first");
  test::writeFile(dir / "a2.txt", "second");
  PendingFile pending(dir / "a1.txt", bytes("third"));
  EXPECT_FALSE(nameTaken(dir / "a3.txt"));
  EXPECT_EQ(pending.placeUnderFreeName(numbered), dir / "a3.txt");
  EXPECT_EQ(test::readFile(dir / "a1.txt"), "first");
  EXPECT_EQ(test::readFile(dir / "a3.txt"), "third");
  EXPECT_EQ(entries(dir.path()), 3u);
  // Placed once, it is nobody's to place again.
  EXPECT_THROW(pending.placeUnderFreeName(numbered), MediaError);
}

TEST_F(PendingFileTest, LeavesNothingWhenDroppedOrRefused) {
  { PendingFile dropped(dir / "a1.txt", bytes("x")); }
  EXPECT_EQ(entries(dir.path()), 0u);

  test::writeFile(dir / "a1.txt", "kept");
  {
    PendingFile refused(dir / "a1.txt", bytes("new"));
    EXPECT_THROW(refused.place(dir / "a1.txt"), FileExistsError);
    EXPECT_THROW(refused.placeUnderFreeName(numbered, 1), MediaError);
  }
  EXPECT_EQ(test::readFile(dir / "a1.txt"), "kept");
  EXPECT_EQ(entries(dir.path()), 1u);
}

TEST_F(PendingFileTest, AFailedWriteLeavesNothing) {
  EXPECT_THROW(PendingFile(dir / "missing" / "a.txt", bytes("x")), MediaError);
  EXPECT_THROW(PendingFile(dir / "a.txt", [](int) { throw MediaError("disk full"); }), MediaError);
  EXPECT_EQ(entries(dir.path()), 0u);
}

TEST_F(PendingFileTest, MovesKeepOneOwner) {
  PendingFile first(dir / "a1.txt", bytes("one"));
  PendingFile second(dir / "a1.txt", bytes("two"));
  second = std::move(first);  // "two" is dropped, "one" goes on
  EXPECT_EQ(entries(dir.path()), 1u);
  EXPECT_EQ(second.placeUnderFreeName(numbered), dir / "a1.txt");
  EXPECT_EQ(test::readFile(dir / "a1.txt"), "one");
}

}  // namespace
