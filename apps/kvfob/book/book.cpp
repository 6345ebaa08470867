// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/book/book.h"

#include <algorithm>
#include <utility>

#include "apps/kvfob/base/text.h"
#include "apps/kvfob/base/utf8.h"
#include "apps/kvfob/book/book_file.h"
#include "apps/kvfob/book/book_text.h"

namespace kvfob {
namespace {

constexpr std::size_t kNameMost = 32;

std::variant<BookText, Outcome> readText(const BookFile& file) {
  auto text = file.read();
  if (auto* failure = std::get_if<Outcome>(&text)) return std::move(*failure);
  return parseBook(std::get<Secret>(text), file.path());
}

}  // namespace

std::variant<Book, Outcome> Book::read() {
  auto text = readText(BookFile());
  if (auto* failure = std::get_if<Outcome>(&text)) return std::move(*failure);
  Book book;
  book.entries_ = std::move(std::get<BookText>(text).entries);
  book.remarks_ = std::move(std::get<BookText>(text).remarks);
  return book;
}

const BookEntry* Book::find(RadioKind radio, std::string_view tag) const {
  return findEntry(entries_, radio, tag);
}

std::string Book::nameOf(RadioKind radio, std::string_view address) const {
  const auto* entry = find(radio, address);
  return entry == nullptr ? std::string() : entry->name;
}

Outcome Book::update(const std::function<Outcome(std::vector<BookEntry>& entries)>& change) {
  const BookFile file;
  auto lock = file.lock();
  if (auto* failure = std::get_if<Outcome>(&lock)) return std::move(*failure);
  auto read = readText(file);
  if (auto* failure = std::get_if<Outcome>(&read)) return std::move(*failure);
  auto& text = std::get<BookText>(read);
  auto outcome = change(text.entries);
  if (outcome.code != kDone) return outcome;
  return file.replace(formatBook(text));
}

const BookEntry* findEntry(const std::vector<BookEntry>& entries, RadioKind radio,
                           std::string_view tag) {
  const auto address = parseAddress(tag);
  const BookEntry* begun = nullptr;
  for (const auto& entry : entries) {
    const bool meant = address ? entry.address == *address : entry.name == tag;
    if (entry.radio != radio || !meant) continue;
    if (entry.binding != Binding::Begun) return &entry;
    begun = &entry;
  }
  return begun;
}

std::optional<std::string> wrongName(std::string_view name) {
  if (name.empty() || name.size() > kNameMost) return "a name has 1 to 32 bytes";
  if (name.front() == '-') return "a name does not begin with \"-\"";
  if (parseAddress(name)) return "an address cannot be a name";
  if (!isPlainText(name)) return "a name is text in UTF-8, without control characters";
  return std::nullopt;
}

}  // namespace kvfob
