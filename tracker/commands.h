// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// The commands of an application: what is sent, and whose completion an answer calls.
#ifndef TRACKER_COMMANDS_H
#define TRACKER_COMMANDS_H

#include <array>
#include <cstdint>
#include <memory>
#include <optional>

#include "KVFobLink/KVCallbackSlot.h"
#include "KVFobLink/KVTypes.h"
#include "protocol/commands.h"
#include "tracker/session.h"

namespace kv {

using ResultSlot = KVCallbackSlot<KVResultCallback>;

/// Calls a completion, if there is one, with success or with the command's refusal.
void report(const ResultSlot& slot, const Command& command, bool success);

/// One completion slot for each kind of command. A new command takes the slot over, and it stays in
/// place after it was called. Whoever calls keeps the tracker alive: the completion that is
/// replaced may hold the last reference to it.
class TrackerCommands {
 public:
  explicit TrackerCommands(TrackerSession& session) : session_(session) {}

  /// The slot of a command of `kCommands`.
  ResultSlot& slot(const Command& command) { return slots_[*commandIndex(command.code)]; }
  ResultSlot& distanceSlot() { return distance_; }

  /// Takes the completion, encrypts the command and writes it.
  void send(const Command& command, const KVData& payload, KVResultCallback completion);

  /// Takes the completion and writes the byte; the write's confirmation is the answer.
  void sendDistance(std::uint8_t byte, KVResultCallback completion);

  /// An answer with a code that may be none of a command's.
  void answered(std::uint8_t code, bool success);

  /// A confirmed write, of any characteristic.
  void written(const std::shared_ptr<KVCharacteristic>& characteristic,
               const std::optional<KVError>& error);

 private:
  TrackerSession& session_;
  std::array<ResultSlot, kCommands.size()> slots_;
  ResultSlot distance_;
};

}  // namespace kv

#endif  // TRACKER_COMMANDS_H
