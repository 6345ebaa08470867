// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// The runs of the program against a radio, one for each tag.
#ifndef APPS_KVFOB_RADIO_LINKS_H
#define APPS_KVFOB_RADIO_LINKS_H

#include <map>
#include <memory>
#include <string>

#include "apps/kvfob/radio/session.h"

namespace kvfob {

/// Hands out the session for a tag: a new one each time, which ends with its link; or the same one
/// again, so that a link serves one command after the other.
class Links {
 public:
  Links(const Radio& radio, Loop& loop, Console& console, bool kept)
      : radio_(radio), loop_(loop), console_(console), kept_(kept) {}

  Loop& loop() const { return loop_; }
  Console& console() const { return console_; }

  /// Valid until the next call for this tag.
  Session& to(const std::string& address);

  /// Ends the link to a tag, if there is one.
  void drop(const std::string& address) { sessions_.erase(address); }

 private:
  const Radio& radio_;
  Loop& loop_;
  Console& console_;
  const bool kept_;
  std::map<std::string, std::unique_ptr<Session>> sessions_;
};

}  // namespace kvfob

#endif  // APPS_KVFOB_RADIO_LINKS_H
