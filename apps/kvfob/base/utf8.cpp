// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/base/utf8.h"

#include <locale.h>
#include <wchar.h>
#include <wctype.h>

#include <array>
#include <cstdio>

namespace kvfob {
namespace {

bool isShown(wchar_t character) {
  const bool turnsText = (character >= 0x200B && character <= 0x200F) ||
                         (character >= 0x2028 && character <= 0x202E) ||
                         (character >= 0x2060 && character <= 0x206F) || character == 0xFEFF;
  return wcwidth(character) >= 0 && !turnsText;
}

// How many bytes of plain text the first character has; 0 for none.
std::size_t plainBytes(std::string_view text) {
  wchar_t character = 0;
  mbstate_t state{};
  const auto size = mbrtowc(&character, text.data(), text.size(), &state);
  return size <= text.size() && isShown(character) ? size : 0;
}

// Calls `take` with each character and whether it is plain. The tables are those of UTF-8, whatever
// the user's locale is.
template <typename Take>
void eachCharacter(std::string_view text, Take take) {
  static const locale_t kUtf8 = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
  const locale_t before = uselocale(kUtf8);
  while (!text.empty()) {
    const auto size = plainBytes(text);
    take(text.substr(0, size == 0 ? 1 : size), size != 0);
    text.remove_prefix(size == 0 ? 1 : size);
  }
  uselocale(before);
}

}  // namespace

bool isPlainText(std::string_view text) {
  bool plain = true;
  eachCharacter(text, [&](std::string_view, bool good) { plain = plain && good; });
  return plain;
}

std::string plainText(std::string_view text) {
  std::string result;
  eachCharacter(text, [&](std::string_view character, bool good) {
    if (good) {
      result += character;
      return;
    }
    std::array<char, 8> escaped{};
    std::snprintf(escaped.data(), escaped.size(), "\\x%02x",
                  static_cast<unsigned>(static_cast<unsigned char>(character.front())));
    result += escaped.data();
  });
  return result;
}

}  // namespace kvfob
