// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// What a terminal sends when something is typed or clicked.
#ifndef APPS_KVFOB_TERMINAL_KEYS_H
#define APPS_KVFOB_TERMINAL_KEYS_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace kvfob {

enum class KeyKind {
  Character,
  Enter,
  Escape,
  Erase,
  Up,
  Down,
  PageUp,
  PageDown,
  Home,
  End,
  Click,
  WheelUp,
  WheelDown
};

struct Key {
  KeyKind kind = KeyKind::Character;
  char character = '\0';  ///< Of `Character`: one byte of UTF-8.
  std::size_t row = 0;    ///< Of `Click`: counted from 0.

  bool operator==(const Key&) const = default;
};

/// Whether it is this character.
inline bool isCharacter(const Key& key, char character) {
  return key.kind == KeyKind::Character && key.character == character;
}

/// Tells keys apart in a stream of bytes that may be cut anywhere. What it does not know is no key.
class KeyReader {
 public:
  std::vector<Key> take(std::string_view bytes);

  /// Whether the last bytes may be the beginning of a key, or the Escape key itself.
  bool waits() const { return !pending_.empty(); }

  /// Nothing more came in time: what waits is Escape, or no key.
  std::vector<Key> giveUp();

 private:
  std::string pending_;
};

/// Takes one key into a text that is being typed: a character is added if no more than `most` bytes
/// come of it, and Erase takes the last character away.
void typeInto(std::string& text, const Key& key, std::size_t most);

}  // namespace kvfob

#endif  // APPS_KVFOB_TERMINAL_KEYS_H
