// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// The words that options take, and what they mean.
#ifndef APPS_KVFOB_CLI_WORDS_H
#define APPS_KVFOB_CLI_WORDS_H

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "apps/kvfob/cli/options.h"

namespace kvfob {

template <typename Value>
using Words = std::vector<std::pair<std::string, Value>>;

extern const Words<RadioKind> kRadios;
extern const Words<ColorMode> kColors;
extern const Words<LogLevel> kLogLevels;
extern const Words<SortBy> kOrders;
extern const Words<bool> kSwitch;
extern const Words<std::uint64_t> kLevels;
extern const Words<ShellKind> kShells;

/// The words with a separator between them.
template <typename Value>
std::string listOf(const Words<Value>& words, std::string_view separator) {
  std::string text;
  for (const auto& [word, value] : words) text.append(text.empty() ? "" : separator).append(word);
  return text;
}

template <typename Value>
std::optional<Value> valueOf(const Words<Value>& words, std::string_view text) {
  for (const auto& [word, value] : words) {
    if (word == text) return value;
  }
  return std::nullopt;
}

/// The reverse; empty for a value without a word.
template <typename Value>
std::string wordOf(const Words<Value>& words, Value wanted) {
  for (const auto& [word, value] : words) {
    if (value == wanted) return word;
  }
  return {};
}

/// Takes a word into `value`, or returns why not.
template <typename Value>
std::string takeWord(const Words<Value>& words, const std::string& text, Value& value) {
  const auto meant = valueOf(words, text);
  if (!meant) return "\"" + text + "\" is none of " + listOf(words, ", ");
  value = *meant;
  return {};
}

}  // namespace kvfob

#endif  // APPS_KVFOB_CLI_WORDS_H
