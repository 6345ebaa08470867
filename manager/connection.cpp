/// Connecting and reconnecting.
#include <array>
#include <string>

#include "KVFobLink/KVTrackerManager.h"
#include "manager/messages.h"
#include "platform/describe.h"

namespace {

constexpr std::array<std::string_view, 4> kLinkNames{"Disconnect", "Connecting", "Connected",
                                                     "Disconnecting"};

std::string_view linkName(std::int64_t state) {
  const auto index = static_cast<std::uint64_t>(state);
  return index < kLinkNames.size() ? kLinkNames[index] : "(null)";
}

std::shared_ptr<KVPeripheral> peripheralOf(const std::shared_ptr<KVTracker>& tracker) {
  return tracker ? tracker->peripheral() : nullptr;
}

}  // namespace

void KVTrackerManager::connect(const std::shared_ptr<KVTracker>& tracker) {
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

void KVTrackerManager::forceConnect(const std::shared_ptr<KVTracker>& tracker,
                                    const std::shared_ptr<KVPeripheral>& newPeripheral) {
  const auto peripheral = peripheralOf(tracker);
  if (!peripheral) {
    log(kv::kNoPeripheral);
    return;
  }
  if (!newPeripheral || !peripheral->isEqual(*newPeripheral)) {
    if (central_) central_->cancelPeripheralConnection(peripheral);
    tracker->setPeripheral(newPeripheral);
  } else if (tracker->state() == KVTrackerStateConnecting) {
    log(kv::kConnectionInProgress);
    return;
  }
  requestLink(tracker);
}

void KVTrackerManager::requestLink(const std::shared_ptr<KVTracker>& tracker) {
  const auto self = weak_from_this().lock();
  // Kept: the argument may be an element of what a callback changes.
  const auto held = tracker->shared_from_this();
  held->setState(KVTrackerStateConnecting);
  if (central_) central_->connectPeripheral(held->peripheral());
}

void KVTrackerManager::disconnect(const std::shared_ptr<KVTracker>& tracker) {
  const auto peripheral = peripheralOf(tracker);
  if (!peripheral) {
    log(kv::kNoPeripheral);
    return;
  }
  if (central_) central_->cancelPeripheralConnection(peripheral);
}

void KVTrackerManager::pushPeripheral(const std::shared_ptr<KVPeripheral>& peripheral) {
  if (!peripheral) return;
  const auto self = weak_from_this().lock();
  const auto tracker = existTargetTracker(peripheral);
  if (tracker) tracker->setState(peripheral->state());
  if (!tracker || !tracker->bound()) {
    log("Not a bound tracker has Peripheral: " + peripheral->identifier());
    return;
  }
  log("Tracker:" + kv::describe(tracker->mac()) + " " + std::string(linkName(peripheral->state())));
  // The attempts are spaced by the platform, which holds the request until the tag is there.
  if (!tracker->binding() && tracker->state() == KVTrackerStateDisconnected) connect(tracker);
}

void KVTrackerManager::didConnectPeripheral(KVCentral& /*central*/,
                                            const std::shared_ptr<KVPeripheral>& peripheral) {
  pushPeripheral(peripheral);
}

void KVTrackerManager::didFailToConnectPeripheral(KVCentral& /*central*/,
                                                  const std::shared_ptr<KVPeripheral>& peripheral,
                                                  const std::optional<KVError>& /*error*/) {
  pushPeripheral(peripheral);
}

void KVTrackerManager::didDisconnectPeripheral(KVCentral& /*central*/,
                                               const std::shared_ptr<KVPeripheral>& peripheral,
                                               const std::optional<KVError>& /*error*/) {
  pushPeripheral(peripheral);
}
