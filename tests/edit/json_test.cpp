#include "engine/edit/json.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <regex>
#include <set>

#include "engine/edit/base64.h"
#include "engine/edit/uuid.h"

using namespace lumivale;

namespace {

constexpr double largest = std::numeric_limits<double>::max();
constexpr auto minInt = std::numeric_limits<std::int64_t>::min();
const std::string fffd = "\xEF\xBF\xBD";

template <class T>
std::string written(T v) {
  JsonWriter w;
  w.value(v);
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

// Reads one whole document, throwing JsonSyntaxError when it is malformed.
void skipWhole(std::string_view text) {
  JsonReader r(text);
  r.skipValue();
  r.finish();
}

TEST(JsonWriterTest, NumbersUseShortestRoundTripText) {
  const auto check = [](double v, const char* text) {
    EXPECT_EQ(written(v), text) << v;
    // Whatever the form, it reads back as the very same double.
    const auto back = jsonDouble(written(v));
    ASSERT_TRUE(back.has_value()) << text;
    EXPECT_EQ(std::signbit(*back), std::signbit(v) && v != 0);
    EXPECT_EQ(*back, v);
  };
  using C = std::pair<double, const char*>;
  for (auto [v, text] :
       {C{25.0, "25"}, C{0.0, "0"}, C{-0.0, "0"}, C{0.1, "0.1"}, C{12.5, "12.5"}, C{-35.0, "-35"},
        C{1e300, "1e+300"}, C{1.2, "1.2"}, C{0.15, "0.15"}, C{1e-7, "1e-07"}, C{0.0001, "0.0001"},
        C{1e-5, "1e-05"}, C{1e16, "1e+16"}, C{1.5e17, "1.5e+17"}, C{100.0, "100"}, C{5e-324, "5e-324"},
        C{0.00012, "0.00012"}, C{-2.5e-5, "-2.5e-05"}, C{123456.789, "123456.789"}})
    check(v, text);
  check(1e15, "1000000000000000");
  // Plain decimal reaches up to 2^53 exactly; anything larger takes an exponent.
  check(9007199254740992.0, "9007199254740992");
  check(-9007199254740992.0, "-9007199254740992");
  check(9007199254740994.0, "9.007199254740994e+15");
  check(9.1e15, "9.1e+15");
  check(-9.5e15, "-9.5e+15");
  check(1234567890123456.0, "1234567890123456");
  check(largest, "1.7976931348623157e+308");
}

TEST(JsonWriterTest, DocumentsHaveNoWhitespaceAndNonFiniteNumbersFailThem) {
  JsonWriter w;
  w.beginObject(), w.key("a"), w.beginArray(), w.value(std::int64_t{1}), w.beginObject(), w.endObject();
  w.beginArray(), w.endArray(), w.value(true), w.endArray(), w.key("b"), w.value(false), w.key("c");
  w.value(minInt), w.endObject();
  EXPECT_EQ(w.text(), R"({"a":[1,{},[],true],"b":false,"c":-9223372036854775808})");
  EXPECT_FALSE(w.failed());

  for (double v :
       {std::nan(""), std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity()}) {
    JsonWriter w;
    w.beginArray(), w.value(1.0);
    EXPECT_FALSE(w.failed());
    w.value(v), w.endArray();
    EXPECT_TRUE(w.failed()) << v;
  }
}

TEST(JsonWriterTest, StringsEscapeQuotesSlashesAndControlsAndReplaceMalformedText) {
  const std::pair<std::string, std::string> cases[] = {
      {"plain", R"("plain")"},
      {"a\"b\\c", R"("a\"b\\c")"},
      {"a/b", R"("a\/b")"},
      {"\n\r\t\b\f", R"("\n\r\t\b\f")"},
      {std::string("\x00\x01\x1f", 3), R"("\u0000\u0001\u001f")"},
      {"\x7f", "\"\x7f\""},
      {"Crop \u2192 \u00e9 \U0001F600", "\"Crop \u2192 \u00e9 \U0001F600\""}};
  for (const auto& [in, out] : cases) {
    EXPECT_EQ(written(std::string_view(in)), out);
    EXPECT_EQ(readBack(out), in);
  }
  // The reader treats raw malformed bytes as the writer does.
  const std::pair<std::string, std::string> malformed[] = {
      {"a\xff"
       "b",
       "a" + fffd + "b"},
      {"\xc3", fffd},                                   // truncated two-byte sequence
      {"\xc0\xaf", fffd + fffd},                        // overlong "/"
      {"\xed\xa0\x80", fffd + fffd + fffd},             // encoded surrogate
      {"\xf4\x90\x80\x80", fffd + fffd + fffd + fffd},  // above U+10FFFF
      {"\xe2\x86", fffd + fffd}};                       // truncated arrow
  for (const auto& [in, expected] : malformed) {
    EXPECT_EQ(written(std::string_view(in)), "\"" + expected + "\"");
    EXPECT_EQ(readBack("\"" + in + "\""), expected);
  }
}

TEST(JsonReaderTest, EscapesAndSurrogatePairs) {
  const std::pair<std::string, std::string> cases[] = {
      {R"("\u00e9\u2192")", "\u00e9\u2192"},
      {R"("\ud83d\ude00")", "\U0001F600"},
      {R"("\uD83D\uDE00")", "\U0001F600"},
      {R"("\ud83d")", fffd},              // lone high surrogate
      {R"("\ude00x")", fffd + "x"},       // lone low surrogate
      {R"("\ud83d\u0041")", fffd + "A"},  // high surrogate then a plain escape
      {R"("\/\"\\\b\f\n\r\t")", "/\"\\\b\f\n\r\t"},
      {R"("\u0000")", std::string(1, '\0')}};
  for (const auto& [json, expected] : cases) EXPECT_EQ(readBack(json), expected) << json;
}

TEST(JsonReaderTest, SyntaxErrorsThrowAndValidDocumentsAreSkippedWhole) {
  for (const char* text :
       {"",      "{",          "}",       "[1,]",      "{\"a\":1,}",    "{\"a\" 1}",  "{\"a\":}",
        "{a:1}", "[01]",       "[1.]",    "[.5]",      "[1e]",          "[-]",        "[+1]",
        "[tru]", "[nul]",      "[\"abc]", "[\"\\x\"]", "[\"\\u12G4\"]", "[\"a\nb\"]", "[1 2]",
        "[NaN]", "[Infinity]", "{} {}",   "[1]x",      "[,1]",          "\"\\"})
    EXPECT_THROW(skipWhole(text), JsonSyntaxError) << text;
  for (const char* text : {"{\"a\":1 \"b\":2}", "[\"\\u12\"]"})
    EXPECT_THROW(skipWhole(text), JsonSyntaxError) << text;
  for (const char* text : {"{}", " [ ] ", "[1,-0,0.5e-3,2E+2,true,false,null,\"x\"]",
                           "{\"a\":{\"b\":[{}]},\"a\":3}", "\t\r\n42\n"})
    EXPECT_NO_THROW(skipWhole(text)) << text;

  // Nesting beyond the limit is an error, even far deeper than any stack
  // could take by recursion.
  const auto nested = [](int depth) { return std::string(depth, '[') + std::string(depth, ']'); };
  EXPECT_NO_THROW(skipWhole(nested(JsonReader::maxDepth)));
  EXPECT_THROW(skipWhole(nested(JsonReader::maxDepth + 1)), JsonSyntaxError);
  EXPECT_THROW(skipWhole(nested(5'000'000)), JsonSyntaxError);
}

TEST(JsonNumberTest, DoublesReadAsTheNearestValueAndIntegersAsWholeNumbersOnly) {
  const std::optional<double> none;
  using D = std::pair<const char*, std::optional<double>>;
  for (auto [text, expected] :
       {D{"25", 25.0}, D{"25.0", 25.0}, D{"-0", -0.0}, D{"2.5e1", 25.0}, D{"1E2", 100.0}, D{"1e-400", 0.0},
        D{"-1e-400", -0.0}, D{"0.000001e-330", 0.0}, D{"1e999", none}, D{"-1e999", none},
        D{"123456789e301", none}, D{"1.8e308", none}, D{"0e999999999999999999999", 0.0},
        D{"1e-99999999999999999999", 0.0}, D{"1.7976931348623157e308", largest}}) {
    const auto v = jsonDouble(text);
    EXPECT_EQ(v, expected) << text;
    EXPECT_EQ(v && std::signbit(*v), expected && std::signbit(*expected)) << text;
  }
  const std::optional<std::int64_t> no;
  using I = std::pair<const char*, std::optional<std::int64_t>>;
  for (auto [text, expected] :
       {I{"7", 7}, I{"-3", -3}, I{"25.0", 25}, I{"2.5e1", 25}, I{"25.5", no}, I{"1e-400", 0}, I{"9.3e18", no},
        I{"1e999", no}, I{"9223372036854775807", std::numeric_limits<std::int64_t>::max()},
        I{"-9223372036854775808", minInt}, I{"9223372036854775808", no},
        I{"-9.223372036854775808e18", minInt}})
    EXPECT_EQ(jsonInteger(text), expected) << text;
}

TEST(Base64Test, RoundTripsEveryLengthKnownVectorsAndRefusesMalformedText) {
  std::vector<std::uint8_t> bytes;
  for (int n = 0; n < 70; ++n) {
    const std::string text = base64Encode(bytes);
    EXPECT_EQ(text.size() % 4, 0u);
    EXPECT_EQ(base64Decode(text), bytes) << n;
    bytes.push_back(static_cast<std::uint8_t>(n * 37 + 11));
  }
  for (auto [raw, text] :
       {std::pair("", ""), {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"}, {"foob", "Zm9vYg=="}})
    EXPECT_EQ(base64Encode(std::vector<std::uint8_t>(raw, raw + std::strlen(raw))), text);
  EXPECT_EQ(base64Encode({0xfb, 0xff}), "+/8=");
  for (const char* bad : {"Zg", "Zg=", "Zm9", "Z===", "====", "Zg==Zg==", "Zm 9v", "Zm9v\n", "Zm-v", "Z=g="})
    EXPECT_EQ(base64Decode(bad), std::nullopt) << bad;
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
