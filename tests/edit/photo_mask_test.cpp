#include "engine/edit/photo_mask.h"

#include <gtest/gtest.h>

#include <set>

#include "tests/support/errors.h"

using namespace lumivale;

namespace {

// Keys are stored; titles are the names new masks get.
TEST(MaskKindTest, KeysParseBackAndOnlySelectionsAreSmart) {
  std::string keys;
  for (MaskKind kind : allMaskKinds()) {
    keys += std::string(key(kind)) + (isSmart(kind) ? "* " : " ");
    EXPECT_EQ(maskKindFromKey(key(kind)), kind);
  }
  EXPECT_EQ(keys, "brush linear radial subject* sky* people* ");
  for (const char* unknown : {"", "Brush", "lasso", "sky "})
    EXPECT_EQ(maskKindFromKey(unknown), std::nullopt);
}

TEST(PhotoMaskTest, NewMasksAreNamedAfterTheirKindAndGetTheirOwnIds) {
  EXPECT_EQ(PhotoMask(MaskKind::radial).name, "Radial Gradient");
  EXPECT_EQ(PhotoMask(MaskKind::sky).name, "Select Sky");
  EXPECT_EQ(PhotoMask(MaskKind::sky, "Evening sky").name, "Evening sky");
  EXPECT_EQ(PhotoMask(MaskKind::sky, "").name, "");
  std::set<std::string> ids;
  for (int i = 0; i < 200; ++i) ids.insert(PhotoMask(MaskKind::brush).id);
  EXPECT_EQ(ids.size(), 200u);
  EXPECT_EQ(ids.begin()->size(), 36u);

  // An empty bitmap is not an absent one.
  PhotoMask a(MaskKind::brush), b = a;
  EXPECT_EQ(std::hash<PhotoMask>{}(a), std::hash<PhotoMask>{}(b));
  b.maskPNG = std::vector<std::uint8_t>{};
  EXPECT_NE(a, b);
  EXPECT_NE(std::hash<PhotoMask>{}(a), std::hash<PhotoMask>{}(b));
}

TEST(MaskLookupTest, FindsByIdIndexOrUniquePrefix) {
  std::vector<PhotoMask> masks(4);
  const char* ids[] = {"1A2B0000-0000-4000-8000-000000000000", "1A2C0000-0000-4000-8000-000000000000",
                       "70000000-0000-4000-8000-000000000000", "3"};
  for (int i = 0; i < 4; ++i) masks[i].id = ids[i];
  for (auto [reference, index] : {std::pair{"1a2b0000-0000-4000-8000-000000000000", 0},
                                  {"1A2C", 1},
                                  {"0", 0},
                                  {"2", 2},
                                  {"7", 2},
                                  {"3", 3},
                                  {"1a2b", 0}})
    EXPECT_EQ(findMask(masks, reference), std::size_t(index)) << reference;
  for (auto [reference, message] :
       {std::pair{"1A2", "\"1A2\" is the start of 2 mask ids; give more of the id"},
        {"", "no mask given"},
        {"9", "no mask \"9\": give its id, the start of its id, or its position from 0 to 3"},
        {"123456789012", "no mask \"123456789012\""}})
    EXPECT_TRUE(test::throwsWith<MaskLookupError>([&] { findMask(masks, reference); }, message)) << reference;
  EXPECT_TRUE(test::throwsWith<MaskLookupError>([&] { findMask({}, "0"); }, "the photo has no masks"));
}

}  // namespace
