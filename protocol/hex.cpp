// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "protocol/hex.h"

#include <array>
#include <cstdlib>

namespace kv {

std::uint8_t hexPair(char first, char second) {
  const std::array pair{first, second, '\0'};
  return static_cast<std::uint8_t>(std::strtol(pair.data(), nullptr, 16));
}

std::string hexText(KVBytes bytes) {
  std::string text(2 * bytes.size(), '0');
  char* at = text.data();
  for (const std::uint8_t byte : bytes) {
    writeHex(byte, at);
    at += 2;
  }
  return text;
}

}  // namespace kv
