// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#ifndef APPS_KVFOB_SCAN_SCAN_H
#define APPS_KVFOB_SCAN_SCAN_H

#include <functional>
#include <optional>
#include <string>

#include "apps/kvfob/base/secret.h"
#include "apps/kvfob/cli/options.h"
#include "apps/kvfob/radio/session.h"

namespace kvfob {

/// What is remembered of the user's tags.
struct ScanMemory {
  struct Tag {
    std::string name;
    bool bound;
    bool saved;  ///< Its password is.
  };

  /// What the book has of a tag; absent for nothing.
  std::function<std::optional<Tag>(const std::string& address)> find;

  /// The saved password; empty for none.
  std::function<Secret(const std::string& address)> password;

  /// Writes down that the tag is about to be bound, so that no password is ever lost.
  std::function<Outcome(const std::string& address, const Secret& password, bool save)> begin;

  /// Writes down what came of it, as far as that is known; from then on `find` knows it.
  std::function<Outcome(const std::string& address, bool bound)> end;
};

/// Listens for tags and lists them. Where the output is a terminal that is a screen, on which they
/// can also be rung, bound and watched, until the user ends it; else a table in the end. Or one
/// JSON object for each event.
Outcome runScan(Session& session, const Options& options, ScanMemory memory);

}  // namespace kvfob

#endif  // APPS_KVFOB_SCAN_SCAN_H
