#include "engine/edit/json.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>

#include "engine/util/utf8.h"

namespace lumivale {

namespace {

constexpr std::string_view replacementCharacter = "\xEF\xBF\xBD";  // U+FFFD

void writeString(std::string& out, std::string_view text) {
  static constexpr char hex[] = "0123456789abcdef";
  out += '"';
  std::size_t runStart = 0;
  std::size_t i = 0;
  while (i < text.size()) {
    const auto c = static_cast<unsigned char>(text[i]);
    if (c >= 0x20 && c != '"' && c != '\\' && c != '/' && c < 0x80) {
      ++i;
      continue;
    }
    if (c >= 0x80) {
      if (const Utf8Char u = decodeUtf8(text, i); u.valid) {
        i += u.length;
        continue;
      }
    }
    out.append(text, runStart, i - runStart);
    switch (c) {
      case '"':
        out += "\\\"";
        break;
      case '\\':
        out += "\\\\";
        break;
      case '/':  // "\/", as other writers of settings blobs put it, so the bytes agree
        out += "\\/";
        break;
      case '\b':
        out += "\\b";
        break;
      case '\f':
        out += "\\f";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\r':
        out += "\\r";
        break;
      case '\t':
        out += "\\t";
        break;
      default:
        if (c < 0x20) {
          out += "\\u00";
          out += hex[c >> 4];
          out += hex[c & 0xF];
        } else {
          out += replacementCharacter;
        }
    }
    ++i;
    runStart = i;
  }
  out.append(text, runStart, text.size() - runStart);
  out += '"';
}

bool isDigit(char c) { return c >= '0' && c <= '9'; }

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

// ---- JsonWriter ----

void JsonWriter::separate() {
  if (afterKey) {
    afterKey = false;
  } else if (needComma) {
    out += ',';
  }
}

void JsonWriter::beginObject() {
  separate();
  out += '{';
  needComma = false;
}

void JsonWriter::endObject() {
  out += '}';
  needComma = true;
}

void JsonWriter::beginArray() {
  separate();
  out += '[';
  needComma = false;
}

void JsonWriter::endArray() {
  out += ']';
  needComma = true;
}

void JsonWriter::key(std::string_view name) {
  if (needComma) out += ',';
  writeString(out, name);
  out += ':';
  afterKey = true;
  needComma = false;
}

// The shortest digits that read back as the same double, laid out the way
// common JSON writers do: plain decimal for magnitudes from 1e-4 up to 2^53,
// the range in which every whole number is a double of its own ("25",
// "0.0001", "123.5", "9007199254740992"), exponent form outside it ("1e-05",
// "9.1e+15", "1e+16"). Whole numbers carry no fraction.
static void appendShortestNumber(std::string& out, double v) {
  char buffer[40];
  auto result = std::to_chars(buffer, buffer + sizeof buffer, v, std::chars_format::scientific);
  std::string_view text(buffer, static_cast<std::size_t>(result.ptr - buffer));
  bool negative = false;
  if (!text.empty() && text.front() == '-') {
    negative = true;
    text.remove_prefix(1);
  }
  const std::size_t e = text.find('e');
  std::string digits;
  for (char c : text.substr(0, e)) {
    if (c != '.') digits += c;
  }
  int exponent = 0;
  std::from_chars(text.data() + e + 1 + (text[e + 1] == '+' ? 1 : 0), text.data() + text.size(), exponent);
  if (negative) out += '-';
  constexpr double largestPlain = 9007199254740992.0;  // 2^53
  if (exponent < -4 || std::abs(v) > largestPlain) {
    out += digits[0];
    if (digits.size() > 1) {
      out += '.';
      out.append(digits, 1);
    }
    char tail[16];
    std::snprintf(tail, sizeof tail, "e%c%02d", exponent < 0 ? '-' : '+', std::abs(exponent));
    out += tail;
  } else if (exponent < 0) {
    out += "0.";
    out.append(static_cast<std::size_t>(-exponent - 1), '0');
    out += digits;
  } else if (static_cast<std::size_t>(exponent) + 1 >= digits.size()) {
    out += digits;
    out.append(static_cast<std::size_t>(exponent) + 1 - digits.size(), '0');
  } else {
    out.append(digits, 0, static_cast<std::size_t>(exponent) + 1);
    out += '.';
    out.append(digits, static_cast<std::size_t>(exponent) + 1);
  }
}

void JsonWriter::value(double v) {
  separate();
  needComma = true;
  if (!std::isfinite(v)) {
    failed_ = true;
    out += '0';
    return;
  }
  // Records compare doubles by value, so −0 equals +0; writing both as "0"
  // keeps equal records byte-identical.
  if (v == 0) v = 0;
  appendShortestNumber(out, v);
}

void JsonWriter::value(std::int64_t v) {
  separate();
  needComma = true;
  char buffer[24];
  auto result = std::to_chars(buffer, buffer + sizeof buffer, v);
  out.append(buffer, result.ptr);
}

void JsonWriter::value(bool v) {
  separate();
  needComma = true;
  out += v ? "true" : "false";
}

void JsonWriter::value(std::string_view text) {
  separate();
  needComma = true;
  writeString(out, text);
}

// ---- JsonReader ----

void JsonReader::fail() { throw JsonSyntaxError(); }

void JsonReader::skipWhitespace() {
  while (pos < in.size()) {
    const char c = in[pos];
    if (c != ' ' && c != '\n' && c != '\r' && c != '\t') return;
    ++pos;
  }
}

void JsonReader::expect(char c) {
  skipWhitespace();
  if (pos >= in.size() || in[pos] != c) fail();
  ++pos;
}

void JsonReader::enter() {
  if (++depth > maxDepth) fail();
  first = true;
}

JsonReader::Kind JsonReader::peek() {
  skipWhitespace();
  if (pos >= in.size()) fail();
  switch (in[pos]) {
    case '{':
      return Kind::object;
    case '[':
      return Kind::array;
    case '"':
      return Kind::string;
    case 't':
    case 'f':
      return Kind::boolean;
    case 'n':
      return Kind::null;
    default:
      if (in[pos] == '-' || isDigit(in[pos])) return Kind::number;
      fail();
  }
}

void JsonReader::beginObject() {
  expect('{');
  enter();
}

bool JsonReader::nextItem(char close) {
  skipWhitespace();
  if (pos >= in.size()) fail();
  const bool atFirst = first;
  first = false;
  if (in[pos] == close) {
    ++pos;
    --depth;
    return false;
  }
  if (!atFirst) expect(',');
  return true;
}

bool JsonReader::nextKey(std::string& key) {
  if (!nextItem('}')) return false;
  skipWhitespace();
  if (pos >= in.size() || in[pos] != '"') fail();
  key.clear();
  readStringInto(&key);
  expect(':');
  return true;
}

void JsonReader::beginArray() {
  expect('[');
  enter();
}

bool JsonReader::nextElement() { return nextItem(']'); }

void JsonReader::readString(std::string& out) {
  skipWhitespace();
  if (pos >= in.size() || in[pos] != '"') fail();
  out.clear();
  readStringInto(&out);
}

// Reads the string whose opening quote is at `pos`, appending its content to
// `out` (or only checking it when `out` is null).
void JsonReader::readStringInto(std::string* out) {
  ++pos;
  std::size_t runStart = pos;
  auto flush = [&] {
    if (out) out->append(in, runStart, pos - runStart);
  };
  for (;;) {
    if (pos >= in.size()) fail();
    const auto c = static_cast<unsigned char>(in[pos]);
    if (c == '"') {
      flush();
      ++pos;
      return;
    }
    if (c < 0x20) fail();
    if (c < 0x80 && c != '\\') {
      ++pos;
      continue;
    }
    if (c >= 0x80) {
      if (const Utf8Char u = decodeUtf8(in, pos); u.valid) {
        pos += u.length;
        continue;
      }
      flush();
      if (out) *out += replacementCharacter;
      runStart = ++pos;
      continue;
    }
    // An escape.
    flush();
    if (++pos >= in.size()) fail();
    const char e = in[pos++];
    char plain = 0;
    switch (e) {
      case '"':
        plain = '"';
        break;
      case '\\':
        plain = '\\';
        break;
      case '/':
        plain = '/';
        break;
      case 'b':
        plain = '\b';
        break;
      case 'f':
        plain = '\f';
        break;
      case 'n':
        plain = '\n';
        break;
      case 'r':
        plain = '\r';
        break;
      case 't':
        plain = '\t';
        break;
      case 'u':
        break;
      default:
        fail();
    }
    if (e != 'u') {
      if (out) *out += plain;
      runStart = pos;
      continue;
    }
    auto hex4 = [&](std::size_t at) -> long {
      if (in.size() - at < 4) return -1;
      long v = 0;
      for (std::size_t k = 0; k < 4; ++k) {
        const int h = hexValue(in[at + k]);
        if (h < 0) return -1;
        v = v * 16 + h;
      }
      return v;
    };
    const long unit = hex4(pos);
    if (unit < 0) fail();
    pos += 4;
    std::uint32_t cp = static_cast<std::uint32_t>(unit);
    if (cp >= 0xD800 && cp <= 0xDBFF) {
      // A high surrogate takes a following low one; alone it is malformed
      // text, read as U+FFFD, and whatever follows is read on its own.
      long low = -1;
      if (in.size() - pos >= 6 && in[pos] == '\\' && in[pos + 1] == 'u') low = hex4(pos + 2);
      if (low >= 0xDC00 && low <= 0xDFFF) {
        cp = 0x10000 + ((cp - 0xD800) << 10) + (static_cast<std::uint32_t>(low) - 0xDC00);
        pos += 6;
      } else {
        cp = 0xFFFD;
      }
    } else if (cp >= 0xDC00 && cp <= 0xDFFF) {
      cp = 0xFFFD;
    }
    if (out) appendUtf8(*out, cp);
    runStart = pos;
  }
}

std::string_view JsonReader::readNumber() {
  skipWhitespace();
  const std::size_t start = pos;
  auto digits = [&] {
    const std::size_t from = pos;
    while (pos < in.size() && isDigit(in[pos])) ++pos;
    return pos - from;
  };
  if (pos < in.size() && in[pos] == '-') ++pos;
  if (pos >= in.size()) fail();
  if (in[pos] == '0') {
    ++pos;
  } else if (digits() == 0) {
    fail();
  }
  if (pos < in.size() && in[pos] == '.') {
    ++pos;
    if (digits() == 0) fail();
  }
  if (pos < in.size() && (in[pos] == 'e' || in[pos] == 'E')) {
    ++pos;
    if (pos < in.size() && (in[pos] == '+' || in[pos] == '-')) ++pos;
    if (digits() == 0) fail();
  }
  return in.substr(start, pos - start);
}

bool JsonReader::readBool() {
  skipWhitespace();
  if (in.substr(pos, 4) == "true") {
    pos += 4;
    return true;
  }
  if (in.substr(pos, 5) == "false") {
    pos += 5;
    return false;
  }
  fail();
}

void JsonReader::readNull() {
  skipWhitespace();
  if (in.substr(pos, 4) != "null") fail();
  pos += 4;
}

void JsonReader::skipValue() {
  switch (peek()) {
    case Kind::object:
      beginObject();
      while (nextKey(scratch)) skipValue();
      break;
    case Kind::array:
      beginArray();
      while (nextElement()) skipValue();
      break;
    case Kind::string:
      readStringInto(nullptr);
      break;
    case Kind::number:
      readNumber();
      break;
    case Kind::boolean:
      readBool();
      break;
    case Kind::null:
      readNull();
      break;
  }
}

void JsonReader::finish() {
  skipWhitespace();
  if (pos != in.size()) fail();
}

// ---- numbers ----

std::optional<double> jsonDouble(std::string_view number) {
  double v = 0;
  const auto result = std::from_chars(number.data(), number.data() + number.size(), v);
  if (result.ec == std::errc()) return v;
  if (result.ec != std::errc::result_out_of_range) return std::nullopt;

  // Out of range either way: find the decimal magnitude of the leading
  // significant digit to tell an overflow from an underflow.
  std::size_t i = 0;
  const bool negative = !number.empty() && number[0] == '-';
  if (negative) ++i;
  long long magnitude = 0;
  bool significant = false;
  std::size_t integerDigits = 0;
  while (i < number.size() && isDigit(number[i])) {
    if (number[i] != '0' || significant) {
      significant = true;
      ++integerDigits;
    }
    ++i;
  }
  if (significant) {
    magnitude = static_cast<long long>(integerDigits) - 1;
  } else if (i < number.size() && number[i] == '.') {
    ++i;
    long long zeros = 0;
    while (i < number.size() && number[i] == '0') ++zeros, ++i;
    magnitude = -(zeros + 1);
  }
  while (i < number.size() && number[i] != 'e' && number[i] != 'E') ++i;
  if (i < number.size()) {
    ++i;
    bool negativeExponent = false;
    if (i < number.size() && (number[i] == '+' || number[i] == '-')) negativeExponent = number[i++] == '-';
    long long exponent = 0;
    for (; i < number.size(); ++i)
      exponent = std::min(exponent * 10 + (number[i] - '0'), 1'000'000'000'000LL);
    magnitude += negativeExponent ? -exponent : exponent;
  }
  if (magnitude > 0) return std::nullopt;
  return negative ? -0.0 : 0.0;
}

std::optional<std::int64_t> jsonInteger(std::string_view number) {
  if (number.find_first_of(".eE") == std::string_view::npos) {
    std::int64_t v = 0;
    const auto result = std::from_chars(number.data(), number.data() + number.size(), v);
    if (result.ec != std::errc() || result.ptr != number.data() + number.size()) return std::nullopt;
    return v;
  }
  // Written with a fraction or an exponent: accepted when it is a whole
  // number (25.0, 2.5e1) that fits, refused otherwise (25.5).
  const auto v = jsonDouble(number);
  constexpr double limit = 9223372036854775808.0;  // 2^63
  if (!v || *v != std::trunc(*v) || *v < -limit || *v >= limit) return std::nullopt;
  return static_cast<std::int64_t>(*v);
}

}  // namespace lumivale
