// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// How notifications reach a session: as signals of the daemon. It also offers a socket for them
// (AcquireNotify), which is not used: in releases before 2026 a link that is lost meanwhile, or a
// program that dies, leaves a pointer to freed memory behind, and later subscriptions refused.
#include <utility>

#include "platform/linux/bluez/daemon.h"
#include "platform/linux/bluez/errors.h"
#include "platform/linux/bluez/gatt_session.h"
#include "platform/linux/bus/names.h"

namespace kv {

void GattSession::subscribe() {
  if (subscriptions_.contains(requests_.front().characteristic->path())) {
    finish();
    return;
  }
  send(characteristicCall(bluez::kStartNotify),
       [this](const BusMessage&, const BusFault& error) { subscribed(error); });
}

// Here InProgress means that this program has a subscription already which is not in force yet; it
// is sent again like the others, since what follows relies on the subscription.
void GattSession::subscribed(const BusFault& error) {
  if (!settles(error)) return;
  if (error) {
    context_.log("no notifications: " + error->name + ": " + error->text);
  } else {
    const auto& characteristic = requests_.front().characteristic;
    subscriptions_.emplace(characteristic->path(), characteristic);
  }
  finish();
}

void GattSession::unsubscribe() {
  const std::string path = requests_.front().characteristic->path();
  if (subscriptions_.erase(path) != 0) stopNotify(path);
  finish();
}

// Also for a link that has ended: else the daemon subscribes by itself once the next one is up.
void GattSession::stopNotify(const std::string& path) {
  context_.daemon->send(
      context_.daemon->methodCall(path, bluez::kGattCharacteristic, bluez::kStopNotify));
}

void GattSession::characteristicValue(std::string_view path, KVBytes value) {
  const auto found = subscriptions_.find(path);
  if (found == subscriptions_.end()) {
    return;  // the answer of a read of ours, or of another client's
  }
  KVData bytes(value.begin(), value.end());
  if (valuesDuringRead_ && requests_.front().characteristic->path() == path) {
    valuesDuringRead_->push_back(std::move(bytes));
  } else {
    postValue(found->second, std::move(bytes), std::nullopt);
  }
}

}  // namespace kv
