#include "engine/util/natural_order.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

using namespace lumivale;

TEST(NaturalOrderTest, ComparesDigitRunsByValueAndLettersWithoutCase) {
  // Leading zeros do not count; digit runs may go beyond 64 bits.
  using C = std::tuple<const char*, const char*, int>;
  for (auto [a, b, expected] :
       {C{"IMG_2.jpg", "IMG_10.jpg", -1}, C{"IMG_10.jpg", "IMG_9.jpg", 1}, C{"img_2.JPG", "IMG_2.jpg", 0},
        C{"IMG_002", "IMG_2", 0}, C{"IMG_0", "IMG_00", 0}, C{"a", "B", -1}, C{"B", "a", 1},
        C{"abc", "abcd", -1}, C{"", "a", -1}, C{"", "", 0}, C{"x2y", "x2", 1},
        C{"99999999999999999999999", "100000000000000000000000", -1}, C{"/p/2/a.jpg", "/p/10/a.jpg", -1},
        C{"v1.10", "v1.9", 1},
        // Punctuation before digits before letters; accents beside their base letter.
        C{"a_1", "a1", -1}, C{"_z", "0", -1}, C{"Canon_EOS.cr2", "Canon-R5.cr3", -1}, C{"a-b", "a.b", -1},
        C{"a.b", "a/b", -1}, C{"\u00e9lan.jpg", "zoo.jpg", -1}, C{"e", "\u00e9", -1}, C{"\u00c9a", "eb", -1},
        C{"a\xff", "a", 1}}) {
    const int got = naturalCompare(a, b), back = naturalCompare(b, a);
    EXPECT_EQ((got > 0) - (got < 0), expected) << a << " vs " << b;
    EXPECT_EQ((back > 0) - (back < 0), -expected) << b << " vs " << a;
  }
}

TEST(NaturalOrderTest, SortingIsTotalAndDeterministic) {
  std::vector<std::string> names = {"IMG_10.jpg", "img_2.jpg", "IMG_2.jpg", "IMG_02.jpg",
                                    "IMG_1.jpg",  "Beach.png", "apple.png"};
  std::vector<std::string> shuffled = names;
  std::reverse(shuffled.begin(), shuffled.end());
  auto less = [](const std::string& a, const std::string& b) { return naturalLess(a, b); };
  std::sort(names.begin(), names.end(), less);
  std::sort(shuffled.begin(), shuffled.end(), less);
  EXPECT_EQ(names, shuffled);
  // Ties of case and leading zeros: lower case first, then byte order.
  EXPECT_EQ(names, (std::vector<std::string>{"apple.png", "Beach.png", "IMG_1.jpg", "img_2.jpg", "IMG_02.jpg",
                                             "IMG_2.jpg", "IMG_10.jpg"}));
}
