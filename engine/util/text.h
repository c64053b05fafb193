#pragma once
// Text helpers shared by every layer: white space, case, and legacy
// encodings. All take UTF-8 that may not be well-formed (file names, tags
// written by cameras, typed search text) and never fail on it: bytes that are
// not valid UTF-8 are kept as they are.

#include <string>
#include <string_view>

namespace lumivale {

/// White space as people type it and files pad with it: ASCII blanks and
/// line breaks, NUL (fixed-size fields of file formats), and the Unicode
/// spaces a phone keyboard or a pasted text may bring along.
bool isWhiteSpace(char32_t c);

/// The text without white space (as `isWhiteSpace`) at either end.
std::string trimmed(std::string_view text);

/// Unicode lower-casing of UTF-8 text. Keywords are stored this way.
std::string lowercased(std::string_view text);

/// Lower-casing and upper-casing of ASCII letters only, for keys, file
/// extensions and other texts that are ASCII by definition.
std::string asciiLowercased(std::string_view text);
std::string asciiUppercased(std::string_view text);

/// True when `text` is well-formed UTF-8.
bool isUtf8(std::string_view text);

/// `text` as UTF-8: unchanged when it already is, else read as Latin-1
/// (how older IPTC records and ICC descriptions store accented letters).
std::string utf8FromLegacyText(std::string_view text);

}  // namespace lumivale
