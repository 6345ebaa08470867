// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/commands/targets.h"

#include <algorithm>
#include <utility>

#include "apps/kvfob/base/text.h"
#include "apps/kvfob/base/utf8.h"

namespace kvfob {
namespace {

// A command of ours for the user to type.
std::string commandLine(const Options& options, const std::string& command) {
  return "\"kvfob " + command + (options.radio == RadioKind::Sim ? " --radio sim\"" : "\"");
}

Outcome unlisted(const Options& options, const std::string& address) {
  return {kUnlisted,
          address + " is not a tag of yours, and nothing was sent to it: " +
              commandLine(options, "bind " + address) +
              " makes it one; if it was bound elsewhere, give the password that it was bound with" +
              (options.command == Command::Unbind
                   ? std::string()
                   : "; --unlisted acts on it all the same, and binds it if nobody has")};
}

Outcome notBound(const Options& options, const BookEntry& entry) {
  const auto& label = entry.name.empty() ? entry.address : entry.name;
  const auto bind = commandLine(options, "bind " + label);
  if (entry.binding == Binding::Unbound) {
    return {kUnlisted,
            label + " is not bound: it was unbound from here; " + bind + " binds it anew",
            "unbound"};
  }
  return {kUnlisted,
          "binding " + label + " was begun and not seen to end; " + bind +
              " with the same password ends it",
          "unbound"};
}

Outcome mayAct(const Options& options, const Target& target) {
  if (options.command == Command::Bind || options.unlisted) return {};
  if (target.known == nullptr) return unlisted(options, target.address);
  if (target.known->binding != Binding::Bound) return notBound(options, *target.known);
  return {};
}

Target targetOf(const Options& options, const Book& book, const std::string& word) {
  Target target{.word = word, .known = book.find(options.radio, word)};
  if (target.known != nullptr) {
    target.address = target.known->address;
  } else if (const auto address = parseAddress(word)) {
    target.address = *address;
  } else {
    target.refused = unknownTag(options, book, word);
    return target;
  }
  target.refused = mayAct(options, target);
  return target;
}

}  // namespace

const std::string& Target::label() const {
  if (known != nullptr && !known->name.empty()) return known->name;
  return address.empty() ? word : address;
}

std::vector<Target> targetsOf(const Options& options, const Book& book) {
  std::vector<Target> targets;
  const auto add = [&](const std::string& word) {
    auto target = targetOf(options, book, word);
    const bool twice = std::any_of(targets.begin(), targets.end(), [&](const Target& other) {
      return !target.address.empty() && other.address == target.address;
    });
    if (!twice) targets.push_back(std::move(target));
  };
  for (const auto& word : options.tags) add(word);
  for (const auto& entry : book.entries()) {
    const bool meant = options.all && entry.radio == options.radio;
    if (meant && entry.binding == Binding::Bound) add(entry.address);
  }
  return targets;
}

Outcome unknownTag(const Options& options, const Book& book, const std::string& tag) {
  const auto elsewhere = options.radio == RadioKind::Sim ? RadioKind::BlueZ : RadioKind::Sim;
  const auto shown = plainText(tag);
  if (book.find(elsewhere, tag) != nullptr) {
    const auto radio = std::string(radioName(elsewhere));
    return {kUnlisted, shown + " is on the radio " + radio + ": add --radio " + radio};
  }
  return {kUnlisted,
          "there is no tag \"" + shown + "\" on the radio " +
              std::string(radioName(options.radio)) +
              "; a tag is an address such as 0a1b2c3d4e5f, or a name that \"kvfob list\" "
              "shows"};
}

}  // namespace kvfob
