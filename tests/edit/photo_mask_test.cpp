#include "engine/edit/photo_mask.h"

#include <gtest/gtest.h>

#include <set>
#include <unordered_set>

using namespace lumivale;

namespace {

TEST(MaskKindTest, KeysTitlesSymbolsAndSmartness) {
  struct Case {
    MaskKind kind;
    const char* key;
    const char* title;
    const char* symbol;
    bool smart;
  };
  const Case cases[] = {
      {MaskKind::brush, "brush", "Brush", "paintbrush.fill", false},
      {MaskKind::linear, "linear", "Linear Gradient", "rectangle.split.1x2", false},
      {MaskKind::radial, "radial", "Radial Gradient", "circle.dashed", false},
      {MaskKind::subject, "subject", "Select Subject", "person.and.background.dotted", true},
      {MaskKind::sky, "sky", "Select Sky", "cloud.sun.fill", true},
      {MaskKind::people, "people", "Select People", "figure.stand", true},
  };
  ASSERT_EQ(allMaskKinds().size(), std::size(cases));
  for (std::size_t i = 0; i < std::size(cases); ++i) {
    const Case& c = cases[i];
    EXPECT_EQ(allMaskKinds()[i], c.kind);
    EXPECT_EQ(key(c.kind), c.key);
    EXPECT_EQ(title(c.kind), c.title);
    EXPECT_EQ(symbol(c.kind), c.symbol);
    EXPECT_EQ(isSmart(c.kind), c.smart);
    EXPECT_EQ(maskKindFromKey(c.key), c.kind);
  }
  for (const char* unknown : {"", "Brush", "lasso", "sky "})
    EXPECT_EQ(maskKindFromKey(unknown), std::nullopt);
}

TEST(PhotoMaskTest, NewMasksHaveTheirDefaults) {
  const PhotoMask radial(MaskKind::radial);
  EXPECT_EQ(radial.name, "Radial Gradient");
  EXPECT_EQ(radial.cx, 0.5);
  EXPECT_EQ(radial.cy, 0.5);
  EXPECT_EQ(radial.rx, 0.25);
  EXPECT_EQ(radial.ry, 0.25);
  EXPECT_EQ(radial.feather, 0.5);
  EXPECT_EQ(radial.opacity, 1.0);
  EXPECT_FALSE(radial.invert);
  EXPECT_EQ(radial.adjust, MaskAdjust{});
  EXPECT_TRUE(radial.dabs.empty());
  EXPECT_FALSE(radial.maskPNG.has_value());

  // A linear gradient runs from the top edge's middle to the centre.
  const PhotoMask linear(MaskKind::linear);
  EXPECT_EQ((std::array{linear.x0, linear.y0, linear.x1, linear.y1}), (std::array{0.5, 0.0, 0.5, 0.5}));

  EXPECT_EQ(PhotoMask(MaskKind::sky).name, "Select Sky");
  EXPECT_EQ(PhotoMask(MaskKind::sky, "Evening sky").name, "Evening sky");
  EXPECT_EQ(PhotoMask(MaskKind::sky, "").name, "");
  EXPECT_EQ(PhotoMask(MaskKind::people).kind, MaskKind::people);
}

TEST(PhotoMaskTest, EveryMaskGetsItsOwnId) {
  std::set<std::string> ids;
  for (int i = 0; i < 200; ++i) ids.insert(PhotoMask(MaskKind::brush).id);
  EXPECT_EQ(ids.size(), 200u);
  EXPECT_EQ(PhotoMask(MaskKind::brush).id.size(), 36u);
}

TEST(PhotoMaskTest, MasksDifferingOnlyInIdAreNotEqual) {
  PhotoMask a(MaskKind::brush);
  PhotoMask b = a;
  EXPECT_EQ(a, b);
  EXPECT_EQ(std::hash<PhotoMask>{}(a), std::hash<PhotoMask>{}(b));
  b.id = PhotoMask(MaskKind::brush).id;
  EXPECT_NE(a, b);
  b = a;
  b.maskPNG = std::vector<std::uint8_t>{};
  EXPECT_NE(a, b);  // an empty bitmap is not an absent one
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
