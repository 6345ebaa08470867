// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "tracker/core.h"

#include <utility>

#include "protocol/token.h"
#include "tracker/tracker_index.h"

namespace {

constexpr std::int64_t kButtonPressed = 1;

}  // namespace

KVTracker::Core::Core(std::shared_ptr<const kv::Services> services)
    : services_(std::move(services)) {
  const KVBytes key = kv::staticKey();
  session.staticKey.emplace(key.begin(), key.end());
}

void KVTracker::Core::setMac(KVTracker& tracker, std::optional<std::string> mac) {
  Core& core = of(tracker);
  if (mac == core.record.mac) return;
  kv::TrackerIndex::unfileEverywhere(tracker);
  core.record.mac = std::move(mac);
  kv::TrackerIndex::fileEverywhere(tracker);
}

void KVTracker::Core::setPeripheral(KVTracker& tracker, std::shared_ptr<KVPeripheral> peripheral) {
  const auto core = tracker.core_;
  kv::TrackerIndex::unfileEverywhere(tracker);
  core->link.poller->setPeripheral(std::move(peripheral));
  kv::TrackerIndex::fileEverywhere(tracker);
  const auto attached = core->link.peripheral();
  if (!attached) return;
  // A tracker that no shared pointer owns cannot be held weakly; what it is made of can.
  std::weak_ptr<KVPeripheralDelegate> delegate = tracker.weak_from_this();
  if (delegate.expired()) delegate = core;
  attached->setDelegate(std::move(delegate));
}

void KVTracker::Core::setBinding(bool binding, std::shared_ptr<const void> kept) {
  link.setBinding(binding, *services_, std::shared_ptr<kv::TrackerLink>(shared_from_this(), &link),
                  std::move(kept));
}

void KVTracker::Core::setState(std::int64_t state) {
  link.state = state;
  if (state == KVTrackerStateConnected) {
    session.discover();
  } else {
    link.leave(state);
  }
  link.valueUpdated();
}

void KVTracker::Core::didDiscoverServices(KVPeripheral& peripheral,
                                          const std::optional<KVError>& error) {
  session.servicesFound(peripheral, error);
}

void KVTracker::Core::didDiscoverCharacteristicsForService(
    KVPeripheral& peripheral, KVService& service, const std::optional<KVError>& /*error*/) {
  session.characteristicsFound(peripheral, service);
}

void KVTracker::Core::didUpdateValueForCharacteristic(
    KVPeripheral& /*peripheral*/, const std::shared_ptr<KVCharacteristic>& characteristic,
    const std::optional<KVError>& /*error*/) {
  if (!characteristic || !kv::isCommandCharacteristic(*characteristic)) return;
  const KVBytes value = characteristic->value() ? KVBytes(*characteristic->value()) : KVBytes();
  if (session.stage == KVAuthNone) {
    session.open(value);
    return;
  }
  const auto plain = session.decrypt(value);
  const auto frame = plain ? kv::Frame::read(*plain) : std::nullopt;
  if (frame && frame->is(kv::FrameType::Answer)) answered(*frame);
}

void KVTracker::Core::answered(const kv::Frame& answer) {
  if (answer.code == kv::kButtonEvent) {
    receiveBlock(kButtonPressed);
  } else if (answer.code == kv::kBind.code) {
    bindAnswered(kv::accepts(answer.payload));
  } else {
    commands.answered(answer.code, kv::accepts(answer.payload));
  }
}

void KVTracker::Core::bindAnswered(bool accepted) {
  if (accepted) {
    startPolling();
    link.updateConnection(KVConnectionConnected);
  }
  if (link.endBinding()) {
    kv::report(link.bindingBlock, kv::kBind, accepted);
    return;
  }
  // On a plain reconnect an accepted password is thus reported twice; applications have come to
  // expect it.
  link.updateConnection(accepted ? KVConnectionConnected : KVConnectionVerifyFailed);
}

void KVTracker::Core::didWriteValueForCharacteristic(
    KVPeripheral& /*peripheral*/, const std::shared_ptr<KVCharacteristic>& characteristic,
    const std::optional<KVError>& error) {
  if (session.tokenWritten(characteristic)) return;
  log("==a new instruction sent");
  commands.written(characteristic, error);
}

void KVTracker::Core::didReadRSSI(KVPeripheral& /*peripheral*/, std::optional<std::int64_t> rssi,
                                  const std::optional<KVError>& /*error*/) {
  record.setRssi(rssi.value_or(0));
  link.valueUpdated();
}
