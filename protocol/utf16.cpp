// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "protocol/utf16.h"

#include <cstdint>

namespace kv {
namespace {

constexpr char16_t kReplacement = 0xFFFD;

// What a lead byte announces: how many bytes follow, and which range the first of them must lie
// in. The ranges keep out overlong forms, surrogates and what lies beyond U+10FFFF (The Unicode
// Standard, table 3-7).
struct Lead {
  int following;
  unsigned low = 0x80;
  unsigned high = 0xBF;
};

Lead leadOf(unsigned byte) {
  if (byte < 0x80) return {0};
  if (byte >= 0xC2 && byte <= 0xDF) return {1};
  if (byte == 0xE0) return {2, 0xA0};
  if (byte == 0xED) return {2, 0x80, 0x9F};
  if (byte >= 0xE1 && byte <= 0xEF) return {2};
  if (byte == 0xF0) return {3, 0x90};
  if (byte >= 0xF1 && byte <= 0xF3) return {3};
  if (byte == 0xF4) return {3, 0x80, 0x8F};
  return {-1};
}

void append(std::u16string& units, char32_t character) {
  if (character < 0x10000) {
    units += static_cast<char16_t>(character);
    return;
  }
  units += static_cast<char16_t>(0xD800 + ((character - 0x10000) >> 10U));
  units += static_cast<char16_t>(0xDC00 + (character & 0x3FFU));
}

}  // namespace

std::u16string toUtf16(std::string_view text) {
  std::u16string units;
  units.reserve(text.size());
  for (std::size_t i = 0; i < text.size();) {
    const unsigned first = static_cast<std::uint8_t>(text[i++]);
    const Lead lead = leadOf(first);
    char32_t character = lead.following > 0 ? first & (0x3FU >> lead.following) : first;
    int missing = lead.following;
    for (; missing > 0 && i < text.size(); --missing) {
      const unsigned next = static_cast<std::uint8_t>(text[i]);
      const bool second = missing == lead.following;
      if (next < (second ? lead.low : 0x80U) || next > (second ? lead.high : 0xBFU)) break;
      character = (character << 6U) | (next & 0x3FU);
      ++i;
    }
    append(units, missing == 0 ? character : kReplacement);
  }
  return units;
}

}  // namespace kv
