// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/commands/book_commands.h"

#include <algorithm>
#include <utility>

#include "apps/kvfob/base/text.h"

namespace kvfob {
namespace {

using Entries = std::vector<BookEntry>;

bool means(const BookEntry& entry, const Options& options) {
  const auto address = parseAddress(options.tag);
  return entry.radio == options.radio &&
         (address ? entry.address == *address : entry.name == options.tag);
}

const BookEntry* named(const Entries& entries, RadioKind radio, const std::string& name) {
  const auto found = std::find_if(entries.begin(), entries.end(), [&](const BookEntry& entry) {
    return entry.radio == radio && entry.name == name;
  });
  return found == entries.end() ? nullptr : &*found;
}

std::string padded(std::string text, std::size_t width) {
  // Counted in characters: a continuation byte of UTF-8 takes no room.
  const auto shown = static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char c) {
    return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
  }));
  if (shown < width) text.append(width - shown, ' ');
  return text;
}

std::string toJson(const BookEntry& entry) {
  std::string json = "{\"address\":\"";
  json.append(entry.address).append("\",\"name\":");
  json.append(entry.name.empty() ? "null" : jsonText(entry.name)).append(",\"radio\":\"");
  json.append(radioName(entry.radio)).append("\",\"password\":");
  return json.append(entry.password.text().empty() ? "false}" : "true}");
}

Outcome list(const Options& options, Console& console) {
  auto read = Book::read();
  if (auto* failure = std::get_if<Outcome>(&read)) return std::move(*failure);
  const auto& entries = std::get<Book>(read).entries();
  if (entries.empty() && !options.json && !options.names) {
    console.note("no tag was bound from here yet; try \"kvfob scan\" and \"kvfob bind\"");
  } else if (!options.json && !options.names) {
    console.line(console.styled(
        Style::Bold, padded("NAME", 34) + padded("ADDRESS", 14) + padded("RADIO", 7) + "PASSWORD"));
  }
  // A name serves on its own radio alone; a table shows all unless one was asked for.
  const bool all = !options.names && !options.radioGiven;
  for (const auto& entry : entries) {
    if (!all && entry.radio != options.radio) continue;
    if (options.json) {
      console.line(toJson(entry));
    } else if (options.names) {
      console.line(entry.name.empty() ? entry.address : entry.name);
    } else {
      console.line(padded(entry.name.empty() ? "-" : entry.name, 34) + padded(entry.address, 14) +
                   padded(std::string(radioName(entry.radio)), 7) +
                   (entry.password.text().empty() ? "asked for" : "saved"));
    }
  }
  return {};
}

Outcome rename(const Options& options) {
  return Book::update([&](Entries& entries) -> Outcome {
    const auto entry = std::find_if(entries.begin(), entries.end(),
                                    [&](const BookEntry& each) { return means(each, options); });
    if (entry == entries.end()) return unknownTag(options);
    const auto* other =
        options.name.empty() ? nullptr : named(entries, options.radio, options.name);
    if (other != nullptr && other != &*entry) return nameTaken(options.name, *other);
    entry->name = options.name;
    return {};
  });
}

Outcome forget(const Options& options) {
  return Book::update([&](Entries& entries) -> Outcome {
    const auto gone =
        std::erase_if(entries, [&](const BookEntry& entry) { return means(entry, options); });
    return gone == 0 ? unknownTag(options) : Outcome();
  });
}

}  // namespace

Outcome nameTaken(const std::string& name, const BookEntry& by) {
  return {kUsage, "\"" + name + "\" is the name of " + by.address + " already"};
}

Outcome unknownTag(const Options& options) {
  return {kUsage,
          "there is no tag \"" + options.tag + "\" on the radio " +
              std::string(radioName(options.radio)) +
              "; a tag is an address such as 0a1b2c3d4e5f, or a name that \"kvfob list\" shows"};
}

Outcome runOnBook(const Options& options, Console& console) {
  switch (options.command) {
    case Command::Rename:
      return rename(options);
    case Command::Forget:
      return forget(options);
    default:
      return list(options, console);
  }
}

Outcome rememberBound(const Options& options, const std::string& address, const Secret& password) {
  auto outcome = Book::update([&](Entries& entries) -> Outcome {
    auto entry = std::find_if(entries.begin(), entries.end(), [&](const BookEntry& each) {
      return each.radio == options.radio && each.address == address;
    });
    if (entry == entries.end()) {
      entries.push_back({.radio = options.radio, .address = address, .name = {}, .password = {}});
      entry = std::prev(entries.end());
    }
    if (!options.name.empty()) entry->name = options.name;
    const bool kept = options.savePassword || !entry->password.text().empty();
    entry->password = kept ? Secret(password.text()) : Secret();
    return {};
  });
  if (outcome.code != kDone) outcome.message.insert(0, "the tag is bound, but not remembered: ");
  return outcome;
}

Outcome rememberUnbound(const Options& options, const std::string& address) {
  return Book::update([&](Entries& entries) -> Outcome {
    for (auto& entry : entries) {
      if (entry.radio == options.radio && entry.address == address) entry.password = Secret();
    }
    return {};
  });
}

}  // namespace kvfob
