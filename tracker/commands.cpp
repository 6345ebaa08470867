// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "tracker/commands.h"

#include <string>
#include <utility>

namespace kv {

void report(const ResultSlot& slot, const Command& command, bool success) {
  if (success) {
    slot(true, std::nullopt);
  } else {
    slot(false, KVError{std::string(command.refusal), command.refusalCode, std::nullopt});
  }
}

void TrackerCommands::send(const Command& command, const KVData& payload,
                           KVResultCallback completion) {
  slot(command).set(std::move(completion));
  session_.send(command, payload);
}

void TrackerCommands::sendDistance(std::uint8_t byte, KVResultCallback completion) {
  distance_.set(std::move(completion));
  session_.write(KVData{byte}, session_.distanceCharacteristic);
}

void TrackerCommands::answered(std::uint8_t code, bool success) {
  if (const auto index = commandIndex(code)) report(slots_[*index], kCommands[*index], success);
}

void TrackerCommands::written(const std::shared_ptr<KVCharacteristic>& characteristic,
                              const std::optional<KVError>& error) {
  if (characteristic && characteristic == session_.distanceCharacteristic) distance_(!error, error);
}

}  // namespace kv
