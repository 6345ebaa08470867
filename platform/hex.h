// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// How a byte is written in hexadecimal digits.
#ifndef PLATFORM_HEX_H
#define PLATFORM_HEX_H

#include <array>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace kv {

/// Writes a byte as two lower-case digits to `to`. By table, because every advertisement of every
/// tag has its address written.
inline void writeHex(std::uint8_t byte, char* to) {
  static constexpr auto kPairs = [] {
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::array<std::array<char, 2>, 256> pairs{};
    for (std::size_t value = 0; value < pairs.size(); ++value) {
      pairs[value] = {kDigits[value / 16], kDigits[value % 16]};
    }
    return pairs;
  }();
  std::memcpy(to, kPairs[byte].data(), 2);
}

}  // namespace kv

#endif  // PLATFORM_HEX_H
