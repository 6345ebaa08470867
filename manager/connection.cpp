// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// Connecting and reconnecting.
#include <array>
#include <string>

#include "manager/core.h"
#include "manager/messages.h"
#include "platform/describe.h"
#include "tracker/tracker_index.h"

namespace {

constexpr std::array<std::string_view, 4> kLinkNames{"Disconnect", "Connecting", "Connected",
                                                     "Disconnecting"};

std::string_view linkName(std::int64_t state) {
  const auto index = static_cast<std::uint64_t>(state);
  return index < kLinkNames.size() ? kLinkNames[static_cast<std::size_t>(index)] : "(null)";
}

std::shared_ptr<KVPeripheral> peripheralOf(const std::shared_ptr<KVTracker>& tracker) {
  return tracker ? tracker->peripheral() : nullptr;
}

}  // namespace

void KVTrackerManager::Core::connect(const Tracker& tracker) {
  const auto peripheral = peripheralOf(tracker);
  if (!peripheral) {
    log(kv::kNoPeripheral);
    return;
  }
  if (tracker->state() == KVTrackerStateConnecting) {
    log(kv::kConnectionInProgress);
    return;
  }
  requestLink(tracker);
}

void KVTrackerManager::Core::forceConnect(const Tracker& tracker, const Peripheral& newPeripheral) {
  const auto peripheral = peripheralOf(tracker);
  if (!peripheral) {
    log(kv::kNoPeripheral);
    return;
  }
  if (!newPeripheral || !peripheral->isEqual(*newPeripheral)) {
    if (central) central->cancelPeripheralConnection(peripheral);
    tracker->setPeripheral(newPeripheral);
  } else if (tracker->state() == KVTrackerStateConnecting) {
    log(kv::kConnectionInProgress);
    return;
  }
  requestLink(tracker);
}

void KVTrackerManager::Core::requestLink(const Tracker& tracker) {
  const auto held = kv::sharedOf(tracker.get());
  const bool listed = bindArray->contains(*held);
  held->setState(KVTrackerStateConnecting);
  // Whoever removed it, when told that it is connecting, wants no link any more.
  if (listed && !bindArray->contains(*held)) return;
  if (central) central->connectPeripheral(held->peripheral());
}

void KVTrackerManager::Core::disconnect(const Tracker& tracker) {
  const auto peripheral = peripheralOf(tracker);
  if (!peripheral) {
    log(kv::kNoPeripheral);
    return;
  }
  if (central) central->cancelPeripheralConnection(peripheral);
}

void KVTrackerManager::Core::linkChanged(const Peripheral& peripheral) {
  if (!peripheral) return;
  const auto tracker = targetOf(peripheral);
  if (tracker) tracker->setState(peripheral->state());
  if (!tracker || !tracker->bound()) {
    log("Not a bound tracker has Peripheral: " + peripheral->identifier());
    return;
  }
  log("Tracker:" + kv::describe(tracker->mac()) + " " + std::string(linkName(peripheral->state())));
  // The attempts are spaced by the platform, which holds the request until the tag is there.
  if (!tracker->binding() && tracker->state() == KVTrackerStateDisconnected) connect(tracker);
}
