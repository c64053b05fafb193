#include "engine/edit/photo_mask.h"

#include <gtest/gtest.h>

#include <set>
#include <unordered_set>

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

  // Masks differing only in id, or in an empty against an absent bitmap,
  // differ.
  PhotoMask a(MaskKind::brush), b = a;
  EXPECT_EQ(a, b);
  EXPECT_EQ(std::hash<PhotoMask>{}(a), std::hash<PhotoMask>{}(b));
  b.id = PhotoMask(MaskKind::brush).id;
  EXPECT_NE(a, b);
  b = a;
  b.maskPNG = std::vector<std::uint8_t>{};
  EXPECT_NE(a, b);
  EXPECT_NE(std::hash<PhotoMask>{}(a), std::hash<PhotoMask>{}(b));
}

TEST(MaskAdjustTest, HashAgreesWithEqualityAndSeparatesFields) {
  std::unordered_set<std::size_t> hashes;
  double MaskAdjust::*fields[] = {&MaskAdjust::exposure,   &MaskAdjust::contrast,    &MaskAdjust::highlights,
                                  &MaskAdjust::shadows,    &MaskAdjust::temperature, &MaskAdjust::tint,
                                  &MaskAdjust::saturation, &MaskAdjust::sharpness};
  hashes.insert(std::hash<MaskAdjust>{}(MaskAdjust{}));
  for (auto field : fields) {
    MaskAdjust a;
    a.*field = 10;
    EXPECT_NE(a, MaskAdjust{});
    hashes.insert(std::hash<MaskAdjust>{}(a));
    MaskAdjust negativeZero;
    negativeZero.*field = -0.0;
    EXPECT_EQ(negativeZero, MaskAdjust{});
    EXPECT_EQ(std::hash<MaskAdjust>{}(negativeZero), std::hash<MaskAdjust>{}(MaskAdjust{}));
  }
  // The same value in different fields must not collide.
  EXPECT_EQ(hashes.size(), std::size(fields) + 1);
}

}  // namespace
