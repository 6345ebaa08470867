// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// Hexadecimal text.
#ifndef PROTOCOL_HEX_H
#define PROTOCOL_HEX_H

#include <cstdint>
#include <string>

#include "KVFobLink/KVTypes.h"
#include "platform/hex.h"

namespace kv {

/// The value of two characters as `strtol` reads them in base 16, kept to 8 bits: reading stops at
/// the first character that is no digit, and a sign counts.
std::uint8_t hexPair(char first, char second);

/// The bytes of a text, two 16-bit units each, after its spaces (U+0020) have been removed; an odd
/// last unit is dropped. `charOf` tells which character stands for a unit.
template <typename CharOf>
KVData bytesOfHex(std::u16string text, CharOf charOf) {
  std::erase(text, u' ');
  KVData bytes;
  bytes.reserve(text.size() / 2);
  for (std::size_t i = 0; i + 1 < text.size(); i += 2) {
    bytes.push_back(hexPair(charOf(text[i]), charOf(text[i + 1])));
  }
  return bytes;
}

/// The bytes as lower-case digits, two each.
std::string hexText(KVBytes bytes);

}  // namespace kv

#endif  // PROTOCOL_HEX_H
