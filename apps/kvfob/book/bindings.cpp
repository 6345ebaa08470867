// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/book/bindings.h"

#include <algorithm>
#include <utility>

namespace kvfob {
namespace {

using Entries = std::vector<BookEntry>;

auto isTag(RadioKind radio, const std::string& address) {
  return [radio, address](const BookEntry& entry) {
    return entry.radio == radio && entry.address == address;
  };
}

auto isBegun(RadioKind radio, const std::string& address) {
  return [is = isTag(radio, address)](const BookEntry& entry) {
    return is(entry) && entry.binding == Binding::Begun;
  };
}

// A failure to write it down, once the tag has taken what it was told.
Outcome afterTheFact(Outcome outcome, const char* done) {
  if (outcome.code == kDone) return outcome;
  return {kNotRemembered, std::string(done) + ", but not remembered: " + outcome.message};
}

}  // namespace

Outcome beginBinding(RadioKind radio, const std::string& address, const std::string& name,
                     const Secret& password, bool save) {
  return Book::update([&](Entries& entries) -> Outcome {
    const auto* other = name.empty() ? nullptr : findEntry(entries, radio, name);
    if (other != nullptr && other->address != address) return nameTaken(name, *other);
    std::erase_if(entries, isBegun(radio, address));
    const auto* known = findEntry(entries, radio, address);
    BookEntry begun{.radio = radio,
                    .address = address,
                    .name = name,
                    .password = {},
                    .binding = Binding::Begun};
    if (known != nullptr && name.empty()) begun.name = known->name;
    if (save || (known != nullptr && !known->password.text().empty())) {
      begun.password = Secret(password.text());
    }
    entries.push_back(std::move(begun));
    return {};
  });
}

Outcome endBinding(RadioKind radio, const std::string& address, bool bound) {
  auto outcome = Book::update([&](Entries& entries) -> Outcome {
    if (!bound) {
      std::erase_if(entries, isBegun(radio, address));
      return {};
    }
    std::erase_if(entries, [&](const BookEntry& entry) {
      return isTag(radio, address)(entry) && entry.binding != Binding::Begun;
    });
    const auto begun = std::find_if(entries.begin(), entries.end(), isBegun(radio, address));
    if (begun != entries.end()) begun->binding = Binding::Bound;
    return {};
  });
  return bound ? afterTheFact(std::move(outcome), "the tag is bound") : outcome;
}

Outcome rememberUnbound(RadioKind radio, const std::string& address) {
  auto outcome = Book::update([&](Entries& entries) -> Outcome {
    for (auto& entry : entries) {
      if (!isTag(radio, address)(entry)) continue;
      entry.password = Secret();
      entry.binding = Binding::Unbound;
    }
    return {};
  });
  return afterTheFact(std::move(outcome), "the tag is unbound");
}

Outcome nameTaken(const std::string& name, const BookEntry& by) {
  return {kUnlisted, "\"" + name + "\" is the name of " + by.address + " already", "name-taken"};
}

}  // namespace kvfob
