#include "toolkit/hex.h"

#include <array>
#include <cstdlib>

#include "KVFobLink/KVCommonTool.h"
#include "toolkit/utf16.h"

namespace kv {

std::uint8_t hexPair(char first, char second) {
  const std::array<char, 3> pair{first, second, '\0'};
  return static_cast<std::uint8_t>(std::strtol(pair.data(), nullptr, 16));
}

void removeSpaces(std::u16string& text) { std::erase(text, u' '); }

}  // namespace kv

KVData KVCommonTool::dataFromHexString(std::string_view text) {
  std::u16string units = kv::toUtf16(text);
  kv::removeSpaces(units);
  KVData bytes;
  bytes.reserve(units.size() / 2);
  for (std::size_t i = 0; i + 1 < units.size(); i += 2) {
    bytes.push_back(
        kv::hexPair(static_cast<char>(units[i] & 0xFFU), static_cast<char>(units[i + 1] & 0xFFU)));
  }
  return bytes;
}
