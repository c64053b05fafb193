#include "engine/media/photo_formats.h"

#include <gtest/gtest.h>

using namespace lumivale;

TEST(PhotoFormatsTest, AcceptsEveryListedExtensionInAnyCase) {
  EXPECT_EQ(PhotoFormats::raw.size(), 24u);
  EXPECT_EQ(PhotoFormats::images.size(), 7u);
  for (auto ext : PhotoFormats::raw) {
    std::string upper(ext);
    for (char& c : upper) c = static_cast<char>(std::toupper(c));
    EXPECT_TRUE(PhotoFormats::isRaw("/p/a." + upper)) << upper;
    EXPECT_TRUE(PhotoFormats::isSupported("/p/a." + std::string(ext))) << ext;
  }
  for (auto ext : PhotoFormats::images) {
    EXPECT_TRUE(PhotoFormats::isSupported("/p/a." + std::string(ext))) << ext;
    EXPECT_FALSE(PhotoFormats::isRaw("/p/a." + std::string(ext))) << ext;
  }
}

TEST(PhotoFormatsTest, LooksOnlyAtTheLastExtensionOfTheName) {
  EXPECT_EQ(PhotoFormats::extension("/p/IMG_1.JPG"), "jpg");
  EXPECT_EQ(PhotoFormats::extension("/p.jpg/notes"), "");
  EXPECT_EQ(PhotoFormats::extension("/p/archive.jpg.gz"), "gz");
  EXPECT_EQ(PhotoFormats::extension("/p/.jpg"), "");  // a hidden file with no extension
  EXPECT_EQ(PhotoFormats::extension("/p/trailing."), "");
  for (const char* name : {"/p/a.txt", "/p/a.jpg.gz", "/p/jpg", "/p/a.jp", "/p/a.jpgg", "/p/.jpg", ""}) {
    EXPECT_FALSE(PhotoFormats::isSupported(name)) << name;
  }
  EXPECT_TRUE(PhotoFormats::isSupported("/p/Über Foto 'a'.HeIc"));
}
