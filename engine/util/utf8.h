#pragma once
// UTF-8 sequences one at a time, for code that walks text that may not be
// well-formed (file names, stored records, typed search text).

#include <cstddef>
#include <string>
#include <string_view>

namespace lumivale {

/// One sequence read from a text.
struct Utf8Char {
  char32_t value;      ///< the code point, or the lone byte when not valid
  std::size_t length;  ///< bytes taken from the text, at least 1
  bool valid;
};

/// Decodes the sequence that starts at `text[i]` (`i` < size). Anything but a
/// well-formed sequence (overlong forms, surrogates, code points above
/// U+10FFFF, a truncated sequence, a stray continuation byte) reads as the
/// one byte at `i`, not valid, so callers can copy or replace it and go on.
Utf8Char decodeUtf8(std::string_view text, std::size_t i);

/// Appends the encoding of code point `c` (at most U+10FFFF).
void appendUtf8(std::string& out, char32_t c);

}  // namespace lumivale
