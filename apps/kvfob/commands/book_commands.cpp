// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/commands/book_commands.h"

#include <algorithm>
#include <utility>

#include "apps/kvfob/base/json.h"
#include "apps/kvfob/book/bindings.h"
#include "apps/kvfob/commands/targets.h"
#include "apps/kvfob/terminal/canvas.h"
#include "apps/kvfob/terminal/password.h"

namespace kvfob {
namespace {

using Entries = std::vector<BookEntry>;

std::string padded(std::string text, std::size_t width) {
  const auto columns = columnsOf(text);
  if (columns < width) text.append(width - columns, ' ');
  return text;
}

std::string_view bindingWord(Binding binding) {
  switch (binding) {
    case Binding::Begun:
      return "begun";
    case Binding::Unbound:
      return "unbound";
    case Binding::Bound:
      break;
  }
  return "bound";
}

std::string labelOf(const BookEntry& entry) {
  return entry.name.empty() ? entry.address : entry.name;
}

Json toJson(const BookEntry& entry) {
  return {{"event", "listed"},
          {"address", entry.address},
          {"name", entry.name.empty() ? Json() : Json(entry.name)},
          {"radio", radioName(entry.radio)},
          {"binding", bindingWord(entry.binding)},
          {"password_saved", !entry.password.text().empty()}};
}

std::string rowOf(const std::string& name, const std::string& address, const std::string& radio,
                  const std::string& binding, const std::string& password) {
  return padded(name, 34) + padded(address, 14) + padded(radio, 7) + padded(binding, 9) + password;
}

void printTable(const std::vector<const BookEntry*>& entries, Console& console) {
  if (entries.empty()) {
    return console.note("no tag was bound from here yet; try \"kvfob scan\" and \"kvfob bind\"");
  }
  console.line(console.styled(Style::Bold, rowOf("NAME", "ADDRESS", "RADIO", "STATE", "PASSWORD")));
  for (const auto* entry : entries) {
    console.line(rowOf(entry->name.empty() ? "-" : entry->name, entry->address,
                       std::string(radioName(entry->radio)),
                       std::string(bindingWord(entry->binding)),
                       entry->password.text().empty() ? "asked for" : "saved"));
  }
}

Outcome list(const Options& options, const Book& book, Console& console) {
  for (const auto& remark : book.remarks()) console.note(remark.text);
  // A name serves on its own radio alone; a table shows all unless one was asked for.
  const bool all = !options.names && !options.radioGiven;
  std::vector<const BookEntry*> entries;
  for (const auto& entry : book.entries()) {
    if (all || entry.radio == options.radio) entries.push_back(&entry);
  }
  if (!options.json && !options.names) printTable(entries, console);
  for (const auto* entry : entries) {
    if (options.json) console.line(jsonLine(toJson(*entry)));
    if (options.names) console.line(labelOf(*entry));
  }
  return {};
}

// What becomes of the tag that is meant, and what is said then.
using Change = std::function<Outcome(Entries& entries, BookEntry& entry, std::string& done)>;

Outcome change(const Options& options, const Book& book, Console& console, const Change& apply) {
  std::string done;
  auto outcome = Book::update([&](Entries& entries) -> Outcome {
    const auto* meant = findEntry(entries, options.radio, options.tags.front());
    if (meant == nullptr) return unknownTag(options, book, options.tags.front());
    return apply(entries, entries[static_cast<std::size_t>(meant - entries.data())], done);
  });
  if (outcome.code == kDone) console.line(done);
  return outcome;
}

Outcome rename(const Options& options, const Book& book, Console& console) {
  return change(options, book, console,
                [&](Entries& entries, BookEntry& entry, std::string& done) -> Outcome {
                  const auto* other = options.name.empty()
                                          ? nullptr
                                          : findEntry(entries, options.radio, options.name);
                  if (other != nullptr && other != &entry) return nameTaken(options.name, *other);
                  const auto before = labelOf(entry);
                  entry.name = options.name;
                  done = before + " is called " + labelOf(entry) + " now";
                  return {};
                });
}

Outcome forget(const Options& options, const Book& book, Console& console) {
  const auto* known = book.find(options.radio, options.tags.front());
  if (known != nullptr && !options.sure && !known->password.text().empty()) {
    const auto question = "Forget " + labelOf(*known) + " and its password? The tag stays bound.";
    if (auto outcome = confirm(question); outcome.code != kDone) return outcome;
  }
  return change(options, book, console,
                [&](Entries& entries, BookEntry& entry, std::string& done) -> Outcome {
                  done = labelOf(entry) + " is forgotten";
                  std::erase_if(entries, [address = entry.address, &options](const auto& each) {
                    return each.radio == options.radio && each.address == address;
                  });
                  return {};
                });
}

}  // namespace

Outcome runOnBook(const Options& options, Console& console) {
  const auto read = Book::read();
  if (const auto* failure = std::get_if<Outcome>(&read)) return *failure;
  const auto& book = std::get<Book>(read);
  switch (options.command) {
    case Command::Rename:
      return rename(options, book, console);
    case Command::Forget:
      return forget(options, book, console);
    default:
      return list(options, book, console);
  }
}

}  // namespace kvfob
