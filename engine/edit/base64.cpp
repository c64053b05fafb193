#include "engine/edit/base64.h"

#include <array>

namespace lumivale {

namespace {

constexpr char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

constexpr std::array<std::int8_t, 256> makeDecodeTable() {
  std::array<std::int8_t, 256> table{};
  for (auto& entry : table) entry = -1;
  for (int i = 0; i < 64; ++i) table[static_cast<unsigned char>(alphabet[i])] = static_cast<std::int8_t>(i);
  return table;
}

constexpr auto decodeTable = makeDecodeTable();

}  // namespace

std::string base64Encode(const std::vector<std::uint8_t>& bytes) {
  std::string out;
  out.reserve((bytes.size() + 2) / 3 * 4);
  std::size_t i = 0;
  for (; i + 3 <= bytes.size(); i += 3) {
    const std::uint32_t group = (bytes[i] << 16) | (bytes[i + 1] << 8) | bytes[i + 2];
    out += alphabet[group >> 18];
    out += alphabet[(group >> 12) & 63];
    out += alphabet[(group >> 6) & 63];
    out += alphabet[group & 63];
  }
  const std::size_t rest = bytes.size() - i;
  if (rest > 0) {
    const std::uint32_t group = (bytes[i] << 16) | (rest == 2 ? bytes[i + 1] << 8 : 0);
    out += alphabet[group >> 18];
    out += alphabet[(group >> 12) & 63];
    out += rest == 2 ? alphabet[(group >> 6) & 63] : '=';
    out += '=';
  }
  return out;
}

std::optional<std::vector<std::uint8_t>> base64Decode(std::string_view text) {
  if (text.size() % 4 != 0) return std::nullopt;
  std::size_t padding = 0;
  if (!text.empty() && text.back() == '=') ++padding;
  if (text.size() >= 2 && text[text.size() - 2] == '=') ++padding;
  std::vector<std::uint8_t> out;
  out.reserve(text.size() / 4 * 3);
  for (std::size_t i = 0; i < text.size(); i += 4) {
    const bool last = i + 4 == text.size();
    const std::size_t used = last ? 4 - padding : 4;
    std::uint32_t group = 0;
    for (std::size_t k = 0; k < 4; ++k) {
      std::int8_t v = 0;
      if (k < used) {
        v = decodeTable[static_cast<unsigned char>(text[i + k])];
        if (v < 0) return std::nullopt;
      }
      group = (group << 6) | static_cast<std::uint32_t>(v);
    }
    out.push_back(static_cast<std::uint8_t>(group >> 16));
    if (used > 2) out.push_back(static_cast<std::uint8_t>(group >> 8));
    if (used > 3) out.push_back(static_cast<std::uint8_t>(group));
  }
  return out;
}

}  // namespace lumivale
