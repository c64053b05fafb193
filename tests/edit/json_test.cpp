#include "engine/edit/json.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <regex>
#include <set>

#include "engine/edit/base64.h"
#include "engine/edit/uuid.h"

using namespace lumivale;

namespace {

std::string written(double v) {
  JsonWriter w;
  w.value(v);
  return w.text();
}

std::string writtenString(std::string_view s) {
  JsonWriter w;
  w.value(s);
  return w.text();
}

// Reads one string value back with our own reader.
std::string readBack(const std::string& json) {
  JsonReader r(json);
  std::string out;
  r.readString(out);
  r.finish();
  return out;
}

TEST(JsonWriterTest, NumbersUseShortestRoundTripText) {
  const std::pair<double, const char*> cases[] = {
      {25.0, "25"},
      {0.0, "0"},
      {-0.0, "0"},
      {0.1, "0.1"},
      {12.5, "12.5"},
      {-35.0, "-35"},
      {1e300, "1e+300"},
      {1.2, "1.2"},
      {0.15, "0.15"},
      {1e-7, "1e-07"},
      {123456.789, "123456.789"},
      {0.0001, "0.0001"},
      {0.00012, "0.00012"},
      {1e-5, "1e-05"},
      {-2.5e-5, "-2.5e-05"},
      {1e15, "1000000000000000"},
      {1234567890123456.0, "1234567890123456"},
      {1e16, "1e+16"},
      {1.5e17, "1.5e+17"},
      {100.0, "100"},
      {5e-324, "5e-324"},
      {std::numeric_limits<double>::max(), "1.7976931348623157e+308"},
  };
  for (const auto& [v, text] : cases) {
    EXPECT_EQ(written(v), text) << v;
    // Whatever the form, it reads back as the very same double.
    const auto back = jsonDouble(written(v));
    ASSERT_TRUE(back.has_value()) << text;
    EXPECT_EQ(std::signbit(*back), std::signbit(v) && v != 0);
    EXPECT_EQ(*back, v);
  }
}

TEST(JsonWriterTest, NonFiniteNumbersMarkTheWriterFailed) {
  for (double v :
       {std::nan(""), std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity()}) {
    JsonWriter w;
    w.beginArray();
    w.value(1.0);
    EXPECT_FALSE(w.failed());
    w.value(v);
    w.endArray();
    EXPECT_TRUE(w.failed()) << v;
  }
}

TEST(JsonWriterTest, ObjectsAndArraysAreSeparatedWithoutWhitespace) {
  JsonWriter w;
  w.beginObject();
  w.key("a");
  w.beginArray();
  w.value(std::int64_t{1});
  w.beginObject();
  w.endObject();
  w.beginArray();
  w.endArray();
  w.value(true);
  w.endArray();
  w.key("b");
  w.value(false);
  w.key("c");
  w.value(std::int64_t{-9223372036854775807 - 1});
  w.endObject();
  EXPECT_EQ(w.text(), R"({"a":[1,{},[],true],"b":false,"c":-9223372036854775808})");
}

TEST(JsonWriterTest, StringsEscapeOnlyWhatJsonRequires) {
  const std::pair<std::string, std::string> cases[] = {
      {"plain", R"("plain")"},
      {"a\"b\\c", R"("a\"b\\c")"},
      {"a/b", R"("a/b")"},
      {"\n\r\t\b\f", R"("\n\r\t\b\f")"},
      {std::string("\x00\x01\x1f", 3), R"("\u0000\u0001\u001f")"},
      {"\x7f", "\"\x7f\""},
      {"Crop \u2192 \u00e9 \U0001F600", "\"Crop \u2192 \u00e9 \U0001F600\""},
  };
  for (const auto& [in, out] : cases) {
    EXPECT_EQ(writtenString(in), out);
    EXPECT_EQ(readBack(writtenString(in)), in);
  }
}

TEST(JsonWriterTest, MalformedUtf8IsWrittenAsReplacementCharacters) {
  const std::string fffd = "\xEF\xBF\xBD";
  const std::pair<std::string, std::string> cases[] = {
      {"a\xff"
       "b",
       "a" + fffd + "b"},
      {"\xc3", fffd},                                   // truncated two-byte sequence
      {"\xc0\xaf", fffd + fffd},                        // overlong "/"
      {"\xed\xa0\x80", fffd + fffd + fffd},             // encoded surrogate
      {"\xf4\x90\x80\x80", fffd + fffd + fffd + fffd},  // above U+10FFFF
      {"\xe2\x86", fffd + fffd},                        // truncated arrow
  };
  for (const auto& [in, expected] : cases) {
    EXPECT_EQ(writtenString(in), "\"" + expected + "\"");
    // The reader treats raw malformed bytes the same way.
    EXPECT_EQ(readBack("\"" + in + "\""), expected);
  }
}

TEST(JsonReaderTest, EscapesAndSurrogatePairs) {
  const std::pair<std::string, std::string> cases[] = {
      {R"("\u00e9\u2192")", "\u00e9\u2192"},
      {R"("\ud83d\ude00")", "\U0001F600"},
      {R"("\uD83D\uDE00")", "\U0001F600"},
      {R"("\ud83d")", "\xEF\xBF\xBD"},    // lone high surrogate
      {R"("\ude00x")", "\xEF\xBF\xBDx"},  // lone low surrogate
      {R"("\ud83d\u0041")",
       "\xEF\xBF\xBD"
       "A"},  // high surrogate then a plain escape
      {R"("\/\"\\\b\f\n\r\t")", "/\"\\\b\f\n\r\t"},
      {R"("\u0000")", std::string(1, '\0')},
  };
  for (const auto& [json, expected] : cases) EXPECT_EQ(readBack(json), expected) << json;
}

TEST(JsonReaderTest, SyntaxErrorsThrow) {
  const char* bad[] = {
      "",
      "{",
      "}",
      "[1,]",
      "{\"a\":1,}",
      "{\"a\" 1}",
      "{\"a\":}",
      "{a:1}",
      "[01]",
      "[1.]",
      "[.5]",
      "[1e]",
      "[-]",
      "[+1]",
      "[tru]",
      "[nul]",
      "[\"abc]",
      "[\"\\x\"]",
      "[\"\\u12G4\"]",
      "[\"a\nb\"]",
      "[1 2]",
      "[NaN]",
      "[Infinity]",
      "{} {}",
      "[1]x",
      "{\"a\":1 \"b\":2}",
      "[,1]",
      "\"\\",
      "[\"\\u12\"]",
  };
  for (const char* text : bad) {
    EXPECT_THROW(
        {
          JsonReader r(text);
          r.skipValue();
          r.finish();
        },
        JsonSyntaxError)
        << text;
  }
}

TEST(JsonReaderTest, ValidDocumentsAreSkippedWhole) {
  const char* good[] = {
      "{}", " [ ] ", "[1,-0,0.5e-3,2E+2,true,false,null,\"x\"]", "{\"a\":{\"b\":[{}]},\"a\":3}", "\t\r\n42\n",
  };
  for (const char* text : good) {
    JsonReader r(text);
    EXPECT_NO_THROW({
      r.skipValue();
      r.finish();
    }) << text;
  }
}

TEST(JsonReaderTest, NestingBeyondTheLimitIsASyntaxError) {
  auto nested = [](int depth) { return std::string(depth, '[') + std::string(depth, ']'); };
  {
    const std::string text = nested(JsonReader::maxDepth);
    JsonReader r(text);
    EXPECT_NO_THROW(r.skipValue());
  }
  {
    const std::string text = nested(JsonReader::maxDepth + 1);
    JsonReader r(text);
    EXPECT_THROW(r.skipValue(), JsonSyntaxError);
  }
  {
    // Far deeper than any stack could take by recursion.
    const std::string text = nested(5'000'000);
    JsonReader r(text);
    EXPECT_THROW(r.skipValue(), JsonSyntaxError);
  }
}

TEST(JsonNumberTest, DoublesReadAsTheNearestValue) {
  const std::pair<const char*, std::optional<double>> cases[] = {
      {"25", 25.0},
      {"25.0", 25.0},
      {"-0", -0.0},
      {"2.5e1", 25.0},
      {"1E2", 100.0},
      {"1e-400", 0.0},
      {"-1e-400", -0.0},
      {"0.000001e-330", 0.0},
      {"1e999", std::nullopt},
      {"-1e999", std::nullopt},
      {"123456789e301", std::nullopt},
      {"0e999999999999999999999", 0.0},
      {"1e-99999999999999999999", 0.0},
      {"1.7976931348623157e308", std::numeric_limits<double>::max()},
      {"1.8e308", std::nullopt},
  };
  for (const auto& [text, expected] : cases) {
    const auto v = jsonDouble(text);
    EXPECT_EQ(v, expected) << text;
    if (v && expected) {
      EXPECT_EQ(std::signbit(*v), std::signbit(*expected)) << text;
    }
  }
}

TEST(JsonNumberTest, IntegersAcceptWholeNumbersOnly) {
  const std::pair<const char*, std::optional<std::int64_t>> cases[] = {
      {"7", 7},
      {"-3", -3},
      {"25.0", 25},
      {"2.5e1", 25},
      {"25.5", std::nullopt},
      {"1e-400", 0},
      {"9223372036854775807", std::numeric_limits<std::int64_t>::max()},
      {"-9223372036854775808", std::numeric_limits<std::int64_t>::min()},
      {"9223372036854775808", std::nullopt},
      {"9.3e18", std::nullopt},
      {"-9.223372036854775808e18", std::numeric_limits<std::int64_t>::min()},
      {"1e999", std::nullopt},
  };
  for (const auto& [text, expected] : cases) EXPECT_EQ(jsonInteger(text), expected) << text;
}

TEST(Base64Test, RoundTripsEveryLength) {
  std::vector<std::uint8_t> bytes;
  for (int n = 0; n < 70; ++n) {
    const std::string text = base64Encode(bytes);
    EXPECT_EQ(text.size() % 4, 0u);
    EXPECT_EQ(base64Decode(text), bytes) << n;
    bytes.push_back(static_cast<std::uint8_t>(n * 37 + 11));
  }
}

TEST(Base64Test, KnownVectorsAndMalformedText) {
  auto bytes = [](std::string_view s) { return std::vector<std::uint8_t>(s.begin(), s.end()); };
  EXPECT_EQ(base64Encode(bytes("")), "");
  EXPECT_EQ(base64Encode(bytes("f")), "Zg==");
  EXPECT_EQ(base64Encode(bytes("fo")), "Zm8=");
  EXPECT_EQ(base64Encode(bytes("foo")), "Zm9v");
  EXPECT_EQ(base64Encode(bytes("foob")), "Zm9vYg==");
  EXPECT_EQ(base64Encode({0xfb, 0xff}), "+/8=");
  for (const char* bad :
       {"Zg", "Zg=", "Zm9", "Z===", "====", "Zg==Zg==", "Zm 9v", "Zm9v\n", "Zm-v", "Z=g="}) {
    EXPECT_EQ(base64Decode(bad), std::nullopt) << bad;
  }
}

TEST(UUIDTest, StandardUpperCaseVersion4Text) {
  const std::regex form("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}");
  std::set<std::string> seen;
  for (int i = 0; i < 1000; ++i) {
    const std::string id = newUUID();
    EXPECT_TRUE(std::regex_match(id, form)) << id;
    seen.insert(id);
  }
  EXPECT_EQ(seen.size(), 1000u);
}

}  // namespace
