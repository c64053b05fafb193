#pragma once
// Standard base64 (RFC 4648 alphabet, "=" padding, no line breaks), the form
// binary data takes inside stored settings.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace lumivale {

std::string base64Encode(const std::vector<std::uint8_t>& bytes);

/// The bytes of a padded base64 text, or nothing when the text has a length
/// that is not a multiple of four, a character outside the alphabet, or
/// padding anywhere but at the end. Whitespace is not skipped.
std::optional<std::vector<std::uint8_t>> base64Decode(std::string_view text);

}  // namespace lumivale
