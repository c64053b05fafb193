#include "engine/util/text.h"

#include <gtest/gtest.h>

#include <string_view>
#include <utility>

using namespace lumivale;

TEST(TextTest, LowercasesAndTrimsUnicodeAndKeepsBrokenBytes) {
  EXPECT_EQ(lowercased("Sky"), "sky");
  EXPECT_EQ(lowercased("\u00c9T\u00c9 \u041c\u041e\u0421\u041a\u0412\u0410"),
            "\u00e9t\u00e9 \u043c\u043e\u0441\u043a\u0432\u0430");
  EXPECT_EQ(lowercased("A\xff\xc3"), "a\xff\xc3");
  EXPECT_EQ(lowercased("\xe6\x97\xa5"), "\xe6\x97\xa5");
  for (auto [text, trim] : std::initializer_list<std::pair<std::string_view, std::string_view>>{
           {"  sky \n", "sky"},
                            {"\u00a0\u3000blue sky\u2003\r\n", "blue sky"},
                            {" \t ", ""},
                            {{"\0 tag\0\0", 8}, "tag"},  // padded fixed-size fields
                            {"", ""},
                            {"\u00e9", "\u00e9"},
                            {" \xff ", "\xff"},
                            {"x\xa0", "x\xa0"}})  // a lone continuation byte is not a space
    EXPECT_EQ(trimmed(text), trim) << text;
}

TEST(LegacyTextTest, KeepsUtf8AndConvertsLatin1) {
  EXPECT_EQ(utf8FromLegacyText("Z\u00fcrich"), "Z\u00fcrich");
  EXPECT_EQ(utf8FromLegacyText("Z\xfcrich"), "Z\u00fcrich");
  EXPECT_EQ(utf8FromLegacyText("caf\xe9"), "caf\u00e9");  // a lone lead byte at the end
  EXPECT_EQ(utf8FromLegacyText("\xc3("), "\u00c3(");      // a lead byte without its continuation
  EXPECT_EQ(utf8FromLegacyText(""), "");
}
