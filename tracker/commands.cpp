/// The commands of an application. Each keeps its tracker alive: the completion that it replaces
/// may hold the last reference.
#include <array>

#include "KVFobLink/KVCommandInter.h"
#include "KVFobLink/KVTracker.h"
#include "tracker/wire.h"

namespace {

constexpr std::uint64_t kMostLossDelay = 7000;

/// What is sent for far, middle and near, as signed numbers.
constexpr std::array<std::int8_t, 3> kDistanceOffsets{0, -8, -20};

/// Switches are inverted on the wire.
KVData switchPayload(bool on) { return {static_cast<std::uint8_t>(on ? 0x00 : 0x01)}; }

}  // namespace

void KVTracker::switchBellStatus(bool status, KVResultCallback completion) {
  const auto self = weak_from_this().lock();
  ringBlock_.set(std::move(completion));
  sendCommand(kv::kBellCommand, switchPayload(status));
}

void KVTracker::writeLossAlert(bool on, KVResultCallback completion) {
  const auto self = weak_from_this().lock();
  writelossAlertBlock_.set(std::move(completion));
  sendCommand(kv::kLossAlertCommand, switchPayload(on));
}

void KVTracker::writeLossDelay(std::int64_t delay, KVResultCallback completion) {
  // As an unsigned number a negative delay is far too large.
  const auto value = static_cast<std::uint64_t>(delay);
  if (value > kMostLossDelay) {
    log("the given delay value is incorrect.");
    return;
  }
  const auto self = weak_from_this().lock();
  writelossDelayBlock_.set(std::move(completion));
  sendCommand(kv::kLossDelayCommand,
              {static_cast<std::uint8_t>(value & 0xFFU), static_cast<std::uint8_t>(value >> 8U)});
}

void KVTracker::writeLossDistance(std::uint64_t level, KVResultCallback completion) {
  if (level < KVDistanceFar || level > KVDistanceNear) {
    log("the given distance level is incorrect.");
    return;
  }
  const auto offset = static_cast<std::uint8_t>(kDistanceOffsets[level - KVDistanceFar]);
  const auto self = weak_from_this().lock();
  writelossDistanceBlock_.set(std::move(completion));
  if (const auto peripheral = this->peripheral()) {
    peripheral->writeValue(KVData{offset}, txChar_, KVWriteType::withResponse);
  }
}

void KVTracker::removeBindPassword(KVResultCallback completion) {
  const auto self = weak_from_this().lock();
  passwordRemoveBlock_.set(std::move(completion));
  sendCommand(kv::kRemovePasswordCommand, {0x00});
}

void KVTracker::sendCommand(std::uint64_t command, const KVData& payload) {
  const auto frame = KVCommandInter::getCommandData(command, payload);
  writeCommandCharacteristic(encryptConnectionData(frame ? KVBytes(*frame) : KVBytes()));
}

void KVTracker::writeCommandCharacteristic(const std::optional<KVData>& value) {
  if (const auto peripheral = this->peripheral()) {
    peripheral->writeValue(value, korvaChar_, KVWriteType::withResponse);
  }
}
