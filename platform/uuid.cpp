// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "KVFobLink/KVUUID.h"

#include "platform/hex.h"

namespace {

// 00000000-0000-1000-8000-00805F9B34FB; a 16-bit UUID stands in bytes 2 and 3.
constexpr std::array<std::uint8_t, 16> kBase = {0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x10, 0x00,
                                                0x80, 0x00, 0x00, 0x80, 0x5F, 0x9B, 0x34, 0xFB};
constexpr std::size_t kShortText = 4;
constexpr std::size_t kLongText = 36;

int digitValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

bool isDashBefore(std::size_t byte) { return byte == 4 || byte == 6 || byte == 8 || byte == 10; }

// Reads the two digits at `at`; negative if they are not that.
int byteAt(std::string_view text, std::size_t at) {
  const int high = digitValue(text[at]);
  const int low = digitValue(text[at + 1]);
  return high < 0 || low < 0 ? -1 : high * 16 + low;
}

void appendByte(std::string& text, std::uint8_t byte) {
  std::array<char, 2> digits{};
  kv::writeHex(byte, digits.data());
  for (const char digit : digits) {
    text += digit >= 'a' ? static_cast<char>(digit - 'a' + 'A') : digit;
  }
}

}  // namespace

KVUUID::KVUUID(std::uint16_t value) : bytes_(kBase) {
  bytes_[2] = static_cast<std::uint8_t>(value >> 8);
  bytes_[3] = static_cast<std::uint8_t>(value & 0xFF);
}

std::optional<KVUUID> KVUUID::fromString(std::string_view text) {
  if (text.size() != kShortText && text.size() != kLongText) return std::nullopt;
  const bool isShort = text.size() == kShortText;
  std::array<std::uint8_t, 16> bytes = kBase;
  std::size_t at = 0;
  for (std::size_t i = isShort ? 2 : 0; i < (isShort ? 4 : bytes.size()); ++i) {
    if (!isShort && isDashBefore(i) && text[at++] != '-') return std::nullopt;
    const int value = byteAt(text, at);
    if (value < 0) return std::nullopt;
    bytes[i] = static_cast<std::uint8_t>(value);
    at += 2;
  }
  return KVUUID(bytes);
}

std::string KVUUID::string() const {
  std::array<std::uint8_t, 16> base = bytes_;
  base[2] = base[3] = 0;
  const bool isShort = base == kBase;
  std::string text;
  text.reserve(isShort ? kShortText : kLongText);
  for (std::size_t i = isShort ? 2 : 0; i < (isShort ? 4 : bytes_.size()); ++i) {
    if (!isShort && isDashBefore(i)) text += '-';
    appendByte(text, bytes_[i]);
  }
  return text;
}
