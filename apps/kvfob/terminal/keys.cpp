// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/terminal/keys.h"

#include <array>
#include <charconv>
#include <optional>

namespace kvfob {
namespace {

constexpr char kEscape = '\033';
// Longer than any sequence that means something here.
constexpr std::size_t kSequenceMost = 32;

std::optional<Key> plainKey(char byte) {
  if (byte == '\n' || byte == '\r') return Key{.kind = KeyKind::Enter};
  if (byte == '\b' || byte == '\177') return Key{.kind = KeyKind::Erase};
  if (static_cast<unsigned char>(byte) < 0x20 && byte != '\t') return std::nullopt;
  return Key{.kind = KeyKind::Character, .character = byte};
}

// The numbers between the beginning of a sequence and its last byte.
std::array<unsigned, 3> numbersOf(std::string_view text) {
  std::array<unsigned, 3> numbers{};
  for (auto& number : numbers) {
    const auto* end = text.data() + text.size();
    const auto* after = std::from_chars(text.data(), end, number).ptr;
    if (after == end) break;
    text.remove_prefix(static_cast<std::size_t>(after - text.data()) + 1);
  }
  return numbers;
}

// The mouse as mode 1006 tells of it: button, column and row, which count from 1.
std::optional<Key> mouseKey(std::string_view text) {
  const auto [button, column, row] = numbersOf(text);
  constexpr unsigned kModifiers = 4 | 8 | 16;
  switch (button & ~kModifiers) {
    case 0:
      if (row == 0) return std::nullopt;
      return Key{.kind = KeyKind::Click, .row = row - 1};
    case 64:
      return Key{.kind = KeyKind::WheelUp};
    case 65:
      return Key{.kind = KeyKind::WheelDown};
    default:
      return std::nullopt;
  }
}

std::optional<Key> numberedKey(unsigned number) {
  switch (number) {
    case 1:
    case 7:
      return Key{.kind = KeyKind::Home};
    case 4:
    case 8:
      return Key{.kind = KeyKind::End};
    case 5:
      return Key{.kind = KeyKind::PageUp};
    case 6:
      return Key{.kind = KeyKind::PageDown};
    default:
      return std::nullopt;
  }
}

// `inner` is what stands between the beginning and the last byte.
std::optional<Key> sequenceKey(std::string_view inner, char last) {
  switch (last) {
    case 'A':
      return Key{.kind = KeyKind::Up};
    case 'B':
      return Key{.kind = KeyKind::Down};
    case 'H':
      return Key{.kind = KeyKind::Home};
    case 'F':
      return Key{.kind = KeyKind::End};
    case '~':
      return numberedKey(numbersOf(inner)[0]);
    case 'M':
      return inner.starts_with('<') ? mouseKey(inner.substr(1)) : std::nullopt;
    default:
      return std::nullopt;
  }
}

// How long the sequence is that begins with Escape; 0 while that is not known.
std::size_t sequenceLength(std::string_view bytes) {
  if (bytes.size() < 2) return 0;
  if (bytes[1] == kEscape) return 1;
  if (bytes[1] == 'O') return bytes.size() < 3 ? 0 : 3;
  if (bytes[1] != '[') return 2;
  for (std::size_t i = 2; i < bytes.size(); ++i) {
    if (bytes[i] >= '@' && bytes[i] <= '~') return i + 1;
  }
  return bytes.size() > kSequenceMost ? bytes.size() : 0;
}

}  // namespace

std::vector<Key> KeyReader::take(std::string_view bytes) {
  pending_ += bytes;
  std::vector<Key> keys;
  std::string_view rest = pending_;
  while (!rest.empty()) {
    std::optional<Key> key;
    std::size_t length = 1;
    if (rest.front() != kEscape) {
      key = plainKey(rest.front());
    } else {
      length = sequenceLength(rest);
      if (length == 0) break;
      if (length == 1) key = Key{.kind = KeyKind::Escape};
      if (length > 2) key = sequenceKey(rest.substr(2, length - 3), rest[length - 1]);
    }
    if (key) keys.push_back(*key);
    rest.remove_prefix(length);
  }
  pending_ = std::string(rest);
  return keys;
}

std::vector<Key> KeyReader::giveUp() {
  const bool escape = pending_.size() == 1;
  pending_.clear();
  return escape ? std::vector{Key{.kind = KeyKind::Escape}} : std::vector<Key>();
}

void typeInto(std::string& text, const Key& key, std::size_t most) {
  if (key.kind == KeyKind::Character && text.size() < most) text += key.character;
  if (key.kind != KeyKind::Erase) return;
  // A character of UTF-8 goes as a whole.
  bool more = true;
  while (more && !text.empty()) {
    more = (static_cast<unsigned char>(text.back()) & 0xC0) == 0x80;
    text.pop_back();
  }
}

}  // namespace kvfob
