// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/book/book.h"

#include <algorithm>
#include <sstream>
#include <utility>

#include "apps/kvfob/base/text.h"
#include "apps/kvfob/book/book_file.h"

namespace kvfob {
namespace {

constexpr std::size_t kNameMost = 32;
constexpr std::string_view kHeading =
    "# kvfob's tags: radio, address, name, password in hexadecimal\n";

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

// The fields between the tabs of a line.
std::vector<std::string> fieldsOf(const std::string& line) {
  std::vector<std::string> fields(1);
  for (const char c : line) {
    if (c == '\t') {
      fields.emplace_back();
    } else {
      fields.back() += c;
    }
  }
  return fields;
}

std::optional<BookEntry> parseEntry(const std::string& line) {
  const auto fields = fieldsOf(line);
  if (fields.size() != 4) return std::nullopt;
  BookEntry entry;
  if (fields[0] == "sim") {
    entry.radio = RadioKind::Sim;
  } else if (fields[0] != "bluez") {
    return std::nullopt;
  }
  const auto address = parseAddress(fields[1]);
  auto password = fromHex(fields[3]);
  if (!address || !password || password->size() > kPasswordMost) return std::nullopt;
  if (!fields[2].empty() && wrongName(fields[2])) return std::nullopt;
  entry.address = *address;
  entry.name = fields[2];
  entry.password = Secret(std::move(*password));
  return entry;
}

std::variant<std::vector<BookEntry>, Outcome> parse(const Secret& text, const std::string& path) {
  std::vector<BookEntry> entries;
  std::istringstream lines(text.text());
  std::string line;
  for (int number = 1; std::getline(lines, line); ++number) {
    if (line.empty() || line.front() == '#') continue;
    auto entry = parseEntry(line);
    if (!entry) {
      return Outcome{kUsage, path + ", line " + std::to_string(number) +
                                 ": not a tag; mend the line or remove it"};
    }
    entries.push_back(std::move(*entry));
  }
  return entries;
}

Secret toText(const std::vector<BookEntry>& entries) {
  std::string text(kHeading);
  for (const auto& entry : entries) {
    const auto& password = entry.password.text();
    text.append(radioName(entry.radio)).append("\t").append(entry.address).append("\t");
    text.append(entry.name).append("\t");
    text.append(hex({reinterpret_cast<const std::uint8_t*>(password.data()), password.size()}));
    text += '\n';
  }
  return Secret(std::move(text));
}

std::variant<std::vector<BookEntry>, Outcome> readEntries(const BookFile& file) {
  auto text = file.read();
  if (auto* failure = std::get_if<Outcome>(&text)) return std::move(*failure);
  return parse(std::get<Secret>(text), file.path());
}

}  // namespace

std::variant<Book, Outcome> Book::read() {
  auto entries = readEntries(BookFile());
  if (auto* failure = std::get_if<Outcome>(&entries)) return std::move(*failure);
  Book book;
  book.entries_ = std::move(std::get<std::vector<BookEntry>>(entries));
  return book;
}

const BookEntry* Book::find(RadioKind radio, std::string_view tag) const {
  const auto address = parseAddress(tag);
  const auto found = std::find_if(entries_.begin(), entries_.end(), [&](const BookEntry& entry) {
    return entry.radio == radio && (address ? entry.address == *address : entry.name == tag);
  });
  return found == entries_.end() ? nullptr : &*found;
}

std::string Book::nameOf(RadioKind radio, std::string_view address) const {
  const auto* entry = find(radio, address);
  return entry == nullptr ? std::string() : entry->name;
}

Outcome Book::update(const std::function<Outcome(std::vector<BookEntry>& entries)>& change) {
  const BookFile file;
  auto lock = file.lock();
  if (auto* failure = std::get_if<Outcome>(&lock)) return std::move(*failure);
  auto read = readEntries(file);
  if (auto* failure = std::get_if<Outcome>(&read)) return std::move(*failure);
  auto& entries = std::get<std::vector<BookEntry>>(read);
  auto outcome = change(entries);
  if (outcome.code != kDone) return outcome;
  return file.replace(toText(entries));
}

std::string_view radioName(RadioKind radio) { return radio == RadioKind::Sim ? "sim" : "bluez"; }

std::optional<std::string> wrongName(std::string_view name) {
  if (name.empty() || name.size() > kNameMost) return "a name has 1 to 32 bytes";
  if (name.front() == '-') return "a name does not begin with \"-\"";
  if (parseAddress(name)) return "an address cannot be a name";
  const bool control = std::any_of(name.begin(), name.end(), [](char c) {
    return static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
  });
  if (control) return "a name has no control characters";
  return std::nullopt;
}

}  // namespace kvfob
