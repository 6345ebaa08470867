#include "protocol/hex.h"

#include <array>
#include <cstdlib>

namespace kv {

std::uint8_t hexPair(char first, char second) {
  const std::array<char, 3> pair{first, second, '\0'};
  return static_cast<std::uint8_t>(std::strtol(pair.data(), nullptr, 16));
}

std::string hexText(KVBytes bytes) {
  std::string text(2 * bytes.size(), '0');
  for (std::size_t i = 0; i < bytes.size(); ++i) writeHex(bytes[i], text.data() + 2 * i);
  return text;
}

}  // namespace kv
