// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// The public face of a tracker's commands and callbacks.
#include <utility>

#include "KVFobLink/KVTracker.h"
#include "tracker/core.h"

namespace {

using Hold = KVTracker::Core::Hold;

}  // namespace

// ---- Commands

void KVTracker::switchBellStatus(bool status, KVResultCallback completion) {
  Hold(*this)->commands.send(kv::kBell, kv::switchPayload(status), std::move(completion));
}

void KVTracker::writeLossAlert(bool on, KVResultCallback completion) {
  Hold(*this)->commands.send(kv::kLossAlert, kv::switchPayload(on), std::move(completion));
}

void KVTracker::writeLossDelay(std::int64_t delay, KVResultCallback completion) {
  if (const auto payload = kv::lossDelayPayload(delay)) {
    Hold(*this)->commands.send(kv::kLossDelay, *payload, std::move(completion));
  } else {
    Hold(*this)->log("the given delay value is incorrect.");
  }
}

void KVTracker::writeLossDistance(std::uint64_t level, KVResultCallback completion) {
  if (const auto byte = kv::distanceByte(level)) {
    Hold(*this)->commands.sendDistance(*byte, std::move(completion));
  } else {
    Hold(*this)->log("the given distance level is incorrect.");
  }
}

void KVTracker::removeBindPassword(KVResultCallback completion) {
  Hold(*this)->commands.send(kv::kRemovePassword, kv::removePasswordPayload(),
                             std::move(completion));
}

// ---- Callbacks

void KVTracker::didConnectionChange(ConnectionCallback callback) {
  setConnectionBlock(std::move(callback));
}
void KVTracker::didReceive(ReceiveCallback callback) { setReceiveBlock(std::move(callback)); }
void KVTracker::didValueUpdate(UpdateCallback callback) { setValueUpdated(std::move(callback)); }

const KVResultCallback& KVTracker::bindingBlock() const { return core_->link.bindingBlock.get(); }
void KVTracker::setBindingBlock(KVResultCallback callback) {
  Hold(*this)->link.bindingBlock.set(std::move(callback));
}
const KVResultCallback& KVTracker::ringBlock() const {
  return core_->commands.slot(kv::kBell).get();
}
void KVTracker::setRingBlock(KVResultCallback callback) {
  Hold(*this)->commands.slot(kv::kBell).set(std::move(callback));
}
const KVResultCallback& KVTracker::writelossAlertBlock() const {
  return core_->commands.slot(kv::kLossAlert).get();
}
void KVTracker::setWritelossAlertBlock(KVResultCallback callback) {
  Hold(*this)->commands.slot(kv::kLossAlert).set(std::move(callback));
}
const KVResultCallback& KVTracker::writelossDistanceBlock() const {
  return core_->commands.distanceSlot().get();
}
void KVTracker::setWritelossDistanceBlock(KVResultCallback callback) {
  Hold(*this)->commands.distanceSlot().set(std::move(callback));
}
const KVResultCallback& KVTracker::writelossDelayBlock() const {
  return core_->commands.slot(kv::kLossDelay).get();
}
void KVTracker::setWritelossDelayBlock(KVResultCallback callback) {
  Hold(*this)->commands.slot(kv::kLossDelay).set(std::move(callback));
}
const KVResultCallback& KVTracker::passwordRemoveBlock() const {
  return core_->commands.slot(kv::kRemovePassword).get();
}
void KVTracker::setPasswordRemoveBlock(KVResultCallback callback) {
  Hold(*this)->commands.slot(kv::kRemovePassword).set(std::move(callback));
}
const KVTracker::ReceiveCallback& KVTracker::receiveBlock() const {
  return core_->receiveBlock.get();
}
void KVTracker::setReceiveBlock(ReceiveCallback callback) {
  Hold(*this)->receiveBlock.set(std::move(callback));
}
const KVTracker::ConnectionCallback& KVTracker::connectionBlock() const {
  return core_->link.connectionBlock.get();
}
void KVTracker::setConnectionBlock(ConnectionCallback callback) {
  Hold(*this)->link.connectionBlock.set(std::move(callback));
}
const KVTracker::UpdateCallback& KVTracker::valueUpdated() const {
  return core_->link.valueUpdated.get();
}
void KVTracker::setValueUpdated(UpdateCallback callback) {
  Hold(*this)->link.valueUpdated.set(std::move(callback));
}

const KVResultCallback& KVTracker::commandSendBlock() const {
  return core_->commandSendBlock.get();
}
void KVTracker::setCommandSendBlock(KVResultCallback callback) {
  Hold(*this)->commandSendBlock.set(std::move(callback));
}
std::vector<KVTracker::ConnectionCallback>& KVTracker::conBlockArray() {
  return core_->conBlockArray;
}
void KVTracker::setConBlockArray(std::vector<ConnectionCallback> callbacks) {
  core_->conBlockArray.swap(callbacks);
}
