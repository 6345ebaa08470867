// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/book/book_text.h"

#include <algorithm>
#include <array>
#include <utility>
#include <variant>

#include "apps/kvfob/base/text.h"

namespace kvfob {
namespace {

constexpr std::string_view kHeading =
    "# kvfob's tags: radio, address, name, password in hexadecimal, state unless bound";
constexpr std::size_t kFields = 4;  // and one more for the state

constexpr std::array<std::pair<std::string_view, Binding>, 2> kStates{
    {{"begun", Binding::Begun}, {"unbound", Binding::Unbound}}};

std::optional<std::string> fromHex(std::string_view digits) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  if (digits.size() % 2 != 0) return std::nullopt;
  std::string bytes;
  for (std::size_t i = 0; i < digits.size(); i += 2) {
    const auto high = kDigits.find(digits[i]);
    const auto low = kDigits.find(digits[i + 1]);
    if (high == std::string_view::npos || low == std::string_view::npos) return std::nullopt;
    bytes += static_cast<char>(high * 16 + low);
  }
  return bytes;
}

std::vector<std::string_view> split(std::string_view text, char separator) {
  std::vector<std::string_view> parts;
  for (auto at = text.find(separator); at != std::string_view::npos; at = text.find(separator)) {
    parts.push_back(text.substr(0, at));
    text.remove_prefix(at + 1);
  }
  parts.push_back(text);
  return parts;
}

bool isWord(std::string_view text) {
  return !text.empty() && text.size() <= 16 &&
         std::all_of(text.begin(), text.end(), [](char c) { return c >= 'a' && c <= 'z'; });
}

// Why a line is no tag's.
struct Wrong {
  std::string why;
  bool foreign = false;
};

std::variant<BookEntry, Wrong> parseEntry(std::string_view line) {
  const auto fields = split(line, '\t');
  if (fields.size() < kFields) return Wrong{"a tag has four fields with tabs between them"};
  BookEntry entry;
  if (fields[0] == "sim") {
    entry.radio = RadioKind::Sim;
  } else if (isWord(fields[0]) && fields[0] != "bluez") {
    return Wrong{"the radio \"" + std::string(fields[0]) + "\" is not known here", true};
  } else if (fields[0] != "bluez") {
    return Wrong{"it does not begin with a radio"};
  }
  if (fields.size() > kFields + 1) return Wrong{"it has more fields than this version knows", true};
  const auto address = parseAddress(fields[1]);
  if (!address) return Wrong{"its address is not one"};
  if (!fields[2].empty() && wrongName(fields[2])) return Wrong{*wrongName(fields[2])};
  auto password = fromHex(fields[3]);
  if (!password || password->size() > kPasswordMost) return Wrong{"its password is not one"};
  entry.password = Secret(std::move(*password));
  if (fields.size() > kFields) {
    const auto* state = std::find_if(kStates.begin(), kStates.end(),
                                     [&](const auto& each) { return each.first == fields.back(); });
    if (state == kStates.end()) {
      return Wrong{"it has a state that this version does not know", true};
    }
    entry.binding = state->second;
  }
  entry.address = *address;
  entry.name = fields[2];
  return entry;
}

}  // namespace

BookText parseBook(const Secret& text, const std::string& path) {
  BookText book;
  int number = 0;
  for (const auto line : split(text.text(), '\n')) {
    ++number;
    if (line.empty() || line == kHeading) continue;
    if (line.front() == '#') {
      book.kept.emplace_back(std::string(line));
      continue;
    }
    auto entry = parseEntry(line);
    if (auto* wrong = std::get_if<Wrong>(&entry)) {
      book.kept.emplace_back(std::string(line));
      book.remarks.push_back({path + ", line " + std::to_string(number) + ": " + wrong->why +
                                  "; the line is kept, and not used",
                              wrong->foreign});
    } else {
      book.entries.push_back(std::move(std::get<BookEntry>(entry)));
    }
  }
  return book;
}

Secret formatBook(const BookText& book) {
  std::string text(kHeading);
  text += '\n';
  for (const auto& line : book.kept) text.append(line.text()).append("\n");
  for (const auto& entry : book.entries) {
    const auto& password = entry.password.text();
    text.append(radioName(entry.radio)).append("\t").append(entry.address).append("\t");
    text.append(entry.name).append("\t");
    text.append(hex({reinterpret_cast<const std::uint8_t*>(password.data()), password.size()}));
    for (const auto& [word, binding] : kStates) {
      if (entry.binding == binding) text.append("\t").append(word);
    }
    text += '\n';
  }
  return Secret(std::move(text));
}

}  // namespace kvfob
