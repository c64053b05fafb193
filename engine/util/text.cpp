#include "engine/util/text.h"

#include <locale.h>
#include <wctype.h>

#include "engine/util/utf8.h"

namespace lumivale {
namespace {

// The C.UTF-8 locale carries the full Unicode case tables; it is made once
// and only read afterwards, so it is safe to share between threads.
locale_t caseLocale() {
  static locale_t locale = newlocale(LC_CTYPE_MASK, "C.UTF-8", locale_t(nullptr));
  return locale;
}

char32_t lowerOf(char32_t c) {
  if (c < 0x80) return c >= U'A' && c <= U'Z' ? c + 32 : c;
  locale_t locale = caseLocale();
  if (!locale) return c;
  return static_cast<char32_t>(towlower_l(static_cast<wint_t>(c), locale));
}

}  // namespace

bool isWhiteSpace(char32_t c) {
  switch (c) {
    case 0:
    case U' ':
    case U'\t':
    case U'\n':
    case U'\v':
    case U'\f':
    case U'\r':
    case 0x85:
    case 0xA0:
    case 0x1680:
    case 0x2028:
    case 0x2029:
    case 0x202F:
    case 0x205F:
    case 0x3000:
      return true;
    default:
      return c >= 0x2000 && c <= 0x200A;
  }
}

std::string trimmed(std::string_view text) {
  std::size_t begin = 0;
  std::size_t end = text.size();
  while (begin < end) {
    Utf8Char c = decodeUtf8(text, begin);
    if (!c.valid || !isWhiteSpace(c.value)) break;
    begin += c.length;
  }
  // Walk back to the start of the last sequence: continuation bytes are
  // 10xxxxxx, so the lead byte is the last one that is not.
  while (end > begin) {
    std::size_t start = end - 1;
    while (start > begin && (static_cast<unsigned char>(text[start]) & 0xC0) == 0x80 && end - start < 4)
      --start;
    Utf8Char c = decodeUtf8(text, start);
    if (!c.valid || start + c.length != end || !isWhiteSpace(c.value)) break;
    end = start;
  }
  return std::string(text.substr(begin, end - begin));
}

std::string lowercased(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size();) {
    Utf8Char c = decodeUtf8(text, i);
    if (c.valid) {
      appendUtf8(out, lowerOf(c.value));
    } else {
      out += text[i];
    }
    i += c.length;
  }
  return out;
}

std::string asciiLowercased(std::string_view text) {
  std::string out(text);
  for (char& c : out) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return out;
}

std::string asciiUppercased(std::string_view text) {
  std::string out(text);
  for (char& c : out) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  }
  return out;
}

bool isUtf8(std::string_view text) {
  for (std::size_t i = 0; i < text.size();) {
    Utf8Char c = decodeUtf8(text, i);
    if (!c.valid) return false;
    i += c.length;
  }
  return true;
}

std::string utf8FromLegacyText(std::string_view text) {
  if (isUtf8(text)) return std::string(text);
  std::string out;
  for (unsigned char c : text) appendUtf8(out, c);
  return out;
}

}  // namespace lumivale
