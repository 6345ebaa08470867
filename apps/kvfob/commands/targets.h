// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// Which tags a command means, and whether it may act on them.
#ifndef APPS_KVFOB_COMMANDS_TARGETS_H
#define APPS_KVFOB_COMMANDS_TARGETS_H

#include <string>
#include <variant>
#include <vector>

#include "apps/kvfob/book/book.h"
#include "apps/kvfob/cli/options.h"

namespace kvfob {

struct Target {
  std::string word = {};             ///< As the user wrote it.
  std::string address = {};          ///< Empty if it is none's.
  const BookEntry* known = nullptr;  ///< In the book; null if it is not there.
  /// Why the command must not act on it; success if it may.
  Outcome refused = {};

  /// What to call it: the user's name for it, or else its address.
  const std::string& label() const;
};

/// The tags that the command line means, each once, in its order.
std::vector<Target> targetsOf(const Options& options, const Book& book);

/// What to say of a tag that is neither an address nor a name on this radio.
Outcome unknownTag(const Options& options, const Book& book, const std::string& tag);

}  // namespace kvfob

#endif  // APPS_KVFOB_COMMANDS_TARGETS_H
