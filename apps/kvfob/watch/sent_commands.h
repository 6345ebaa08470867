// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// What becomes of the commands that a tag is given.
#ifndef APPS_KVFOB_WATCH_SENT_COMMANDS_H
#define APPS_KVFOB_WATCH_SENT_COMMANDS_H

#include <array>
#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace kvfob {

/// The library has one completion for each.
enum class CommandKind { Bell, Alert, Delay, Distance };

/// Follows each command until its answer, in words. One of a kind at a time, as the answer to a
/// second would be taken for that to the first.
class SentCommands {
 public:
  using Time = std::chrono::milliseconds;

  /// Whether one of the kind waits for its answer, and may still get it.
  bool waits(CommandKind kind) const;

  /// @return "→ what: sent".
  std::string sent(CommandKind kind, const std::string& what, Time now);

  /// @param refusal  Absent for a yes.
  /// @return "← what: answered after 24 ms".
  std::string answered(CommandKind kind, const std::optional<std::string>& refusal, Time now);

  /// Those that have waited for too long; each is told once.
  std::vector<std::string> overdue(Time now);

  /// The link is lost, and with it every answer.
  std::vector<std::string> lost();

 private:
  struct Sent {
    std::string what;
    Time at;
    bool overdue = false;
  };

  std::optional<Sent>& of(CommandKind kind) { return sent_[static_cast<std::size_t>(kind)]; }

  std::array<std::optional<Sent>, 4> sent_;
};

}  // namespace kvfob

#endif  // APPS_KVFOB_WATCH_SENT_COMMANDS_H
