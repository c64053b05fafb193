#include "engine/util/natural_order.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

using namespace lumivale;

TEST(NaturalOrderTest, ComparesDigitRunsByValueAndLettersWithoutCase) {
  struct Case {
    const char* a;
    const char* b;
    int expected;
  };
  const Case cases[] = {
      {"IMG_2.jpg", "IMG_10.jpg", -1},
      {"IMG_10.jpg", "IMG_9.jpg", 1},
      {"img_2.JPG", "IMG_2.jpg", 0},
      {"IMG_002", "IMG_2", 0},  // leading zeros do not count
      {"IMG_0", "IMG_00", 0},
      {"a", "B", -1},
      {"B", "a", 1},
      {"abc", "abcd", -1},
      {"", "a", -1},
      {"", "", 0},
      {"x2y", "x2", 1},
      {"99999999999999999999999", "100000000000000000000000", -1},  // beyond 64 bits
      {"/p/2/a.jpg", "/p/10/a.jpg", -1},
      {"v1.10", "v1.9", 1},
  };
  for (const Case& c : cases) {
    int got = naturalCompare(c.a, c.b);
    EXPECT_EQ((got > 0) - (got < 0), c.expected) << c.a << " vs " << c.b;
    int back = naturalCompare(c.b, c.a);
    EXPECT_EQ((back > 0) - (back < 0), -c.expected) << c.b << " vs " << c.a;
  }
}

TEST(NaturalOrderTest, SortingIsTotalAndDeterministic) {
  std::vector<std::string> names = {"IMG_10.jpg", "img_2.jpg", "IMG_2.jpg", "IMG_02.jpg", "IMG_1.jpg",
                                    "Beach.png", "apple.png"};
  std::vector<std::string> shuffled = names;
  std::reverse(shuffled.begin(), shuffled.end());
  auto less = [](const std::string& a, const std::string& b) { return naturalLess(a, b); };
  std::sort(names.begin(), names.end(), less);
  std::sort(shuffled.begin(), shuffled.end(), less);
  EXPECT_EQ(names, shuffled);
  EXPECT_EQ(names, (std::vector<std::string>{"apple.png", "Beach.png", "IMG_1.jpg", "IMG_02.jpg", "IMG_2.jpg",
                                             "img_2.jpg", "IMG_10.jpg"}));
}
