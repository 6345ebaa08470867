/// Hexadecimal text.
#ifndef TOOLKIT_HEX_H
#define TOOLKIT_HEX_H

#include <cstdint>
#include <string>

namespace kv {

/// The value of two characters as `strtol` reads them in base 16, kept to 8 bits: reading stops at
/// the first character that is no digit, and a sign counts.
std::uint8_t hexPair(char first, char second);

/// Removes every U+0020.
void removeSpaces(std::u16string& text);

}  // namespace kv

#endif  // TOOLKIT_HEX_H
