// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "platform/linux/bluez/link.h"

#include <algorithm>
#include <random>
#include <utility>

#include "platform/linux/bluez/daemon.h"
#include "platform/linux/bus/names.h"

namespace kv {
namespace {

const char* text(GattSession::Broken why) {
  switch (why) {
    case GattSession::Broken::Silent:
      return "does not answer a request";
    case GattSession::Broken::Changed:
      return "has other attributes than before";
    case GattSession::Broken::Stale:
      return "has other attributes than bluetoothd remembers";
  }
  return "";
}

}  // namespace

Link::Link(Context& context, LinkHost& host, std::shared_ptr<BlueZPeripheral> peripheral)
    : context_(context), host_(host), peripheral_(std::move(peripheral)), timer_(context.queue) {}

DeviceObject* Link::device() const {
  return context_.daemon->tree().device(host_.adapterPath(), address());
}

bool Link::deviceConnected() const {
  const DeviceObject* known = device();
  return known != nullptr && known->connected;
}

BusMessage Link::deviceCall(const char* member) const {
  return context_.daemon->methodCall(devicePath_, bluez::kDevice, member);
}

void Link::enter(Phase phase) {
  const bool waited = waitsForAdvertisement();
  phase_ = phase;
  timer_.cancel();
  if (waited != waitsForAdvertisement()) host_.advertisementsWantedChanged();
}

void Link::request(std::shared_ptr<BlueZPeripheral> peripheral) {
  if (phase_ == Phase::Up) {
    // Before its report has been delivered the earlier request is still pending; this one joins it.
    if (peripheral_->state() == KVPeripheralStateConnected) host_.reportConnected(*this);
    return;
  }
  peripheral_ = std::move(peripheral);
  wanted_ = true;
  if (phase_ == Phase::Idle) {
    peripheral_->setState(KVPeripheralStateConnecting);
    retryAfterFailure();
  }
}

void Link::begin() {
  // Without an object there is nothing to call Connect of; a tag that did not answer the last
  // attempt would keep the radio from everything else until it is near again.
  if (host_.adapterPath().empty()) {
    enter(Phase::WaitingAdapter);
  } else if (device() == nullptr || (silent_ && !deviceConnected())) {
    waitForAdvertisement();
  } else {
    enter(Phase::WaitingToInitiate);
    host_.requestInitiating(*this);
  }
}

void Link::waitForAdvertisement() {
  enter(Phase::WaitingAdvertisement);
  timer_.set(context_.timing.unheardRetry, [this] {
    if (device() != nullptr) {
      silent_ = false;
      begin();
    } else {
      waitForAdvertisement();
    }
  });
}

void Link::deviceHeard() {
  if (phase_ == Phase::WaitingAdvertisement) {
    silent_ = false;
    heard_ = true;
    begin();
  }
}

void Link::deviceChanged(const DeviceObject& device) {
  if (device.connected) {
    if (phase_ == Phase::WaitingAdvertisement) {
      begin();  // by another program; it serves as well
    } else if (phase_ == Phase::Connecting || phase_ == Phase::Resolving) {
      resolve(device);
    }
  } else if (phase_ == Phase::Resolving) {
    attemptFailed({});
  } else if (phase_ == Phase::Up) {
    downError_ = KVError{"The link was lost", KVBluetoothErrorLinkLost, std::nullopt};
    // When the adapter is powered off its links end first, but its state is to be reported first.
    leave(Phase::Dropping, context_.timing.dropHold);
  } else if (phase_ == Phase::Ending && !connectCall_) {
    ended();  // while Connect is pending the daemon would refuse the next one
  }
}

// For the log alone. It comes before or after the change of the state; of a link that we end
// ourselves it would tell nothing new.
void Link::deviceDisconnected(const std::string& why) {
  if (phase_ == Phase::Up || phase_ == Phase::Dropping) {
    context_.log("the link to " + address() + " has ended: " + why);
  }
}

void Link::giveUpLink(GattSession::Broken why) {
  if (phase_ != Phase::Up) return;
  if (why == GattSession::Broken::Stale) {
    removeDevice(text(why));
  } else {
    context_.log(address() + " " + text(why) + "; the link is dropped");
  }
  downError_ =
      KVError{std::string("The tag ") + text(why), KVBluetoothErrorLinkGivenUp, std::nullopt};
  disconnect(context_.options.disconnectTimeout);
}

void Link::leave(Phase phase, std::chrono::milliseconds limit) {
  if (phase_ == Phase::Up) {
    const bool brief = context_.queue.now() - upSince_ < context_.timing.shortLink;
    shortLinks_ = brief ? shortLinks_ + 1 : 0;
    failures_ = shortLinks_;
    // After a link that has lasted, what the daemon stores may have gone wrong anew.
    removedOnce_ = removedOnce_ && brief;
    session_.reset();
  } else {
    ++failures_;
  }
  enter(phase);
  timer_.set(limit, [this] { ended(); });
}

void Link::disconnect(std::chrono::milliseconds limit) {
  leave(Phase::Ending, limit);
  disconnectCall_ = context_.daemon->call(deviceCall(bluez::kDisconnect), limit,
                                          [this](const BusMessage&, const BusFault&) {
                                            if (!connectCall_ && !deviceConnected()) ended();
                                          });
}

void Link::ended() {
  dropCalls();
  host_.releaseInitiating(*this);
  enter(Phase::Idle);
  if (std::exchange(reportDown_, false)) {
    host_.reportDisconnected(*this, std::exchange(downError_, std::nullopt));
  }
  if (wanted_) retryAfterFailure();
}

// Their answers concern an attempt or a link that is over.
void Link::dropCalls() {
  connectCall_.reset();
  disconnectCall_.reset();
  refreshCall_.reset();
}

void Link::retryAfterFailure() {
  if (failures_ == 0) {
    begin();
    return;
  }
  enter(Phase::Pausing);
  timer_.set(backoff(), [this] { begin(); });
}

std::chrono::milliseconds Link::backoff() const {
  const int doublings = std::clamp(failures_ - 1, 0, 20);
  const std::chrono::milliseconds pause =
      std::min(context_.options.retryFirst * (1 << doublings), context_.options.retryMost);
  // Pauses differ, so that links that fail together do not stay together.
  std::uniform_real_distribution<double> jitter(0.8, 1.2);
  return std::chrono::duration_cast<std::chrono::milliseconds>(pause * jitter(context_.random));
}

void Link::cancel() {
  if (phase_ == Phase::Idle) return;
  if (phase_ == Phase::Up) {
    peripheral_->setState(KVPeripheralStateDisconnecting);
    disconnect(context_.options.disconnectTimeout);
    failures_ = 0;
  } else if (reportDown_) {
    wanted_ = false;  // the end that is about to be reported answers both
  } else {
    if (std::exchange(wanted_, false)) host_.reportDisconnected(*this, std::nullopt);
    failures_ = 0;
    silent_ = false;
    // The report does not wait, but the next attempt waits for the end of this one.
    if (phase_ == Phase::Connecting || phase_ == Phase::Resolving) {
      disconnect(context_.options.disconnectTimeout);
    } else if (phase_ != Phase::Ending) {
      host_.releaseInitiating(*this);
      enter(Phase::Idle);
    }
  }
}

void Link::adapterOn() {
  if (phase_ == Phase::WaitingAdapter) {
    silent_ = false;
    begin();
  }
}

void Link::adapterLost() {
  session_.reset();
  dropCalls();
  host_.releaseInitiating(*this);
  failures_ = 0;
  if (std::exchange(reportDown_, false)) {
    // A link that was being ended has its own reason.
    const KVError lost{"The adapter went away", KVBluetoothErrorAdapterLost, std::nullopt};
    host_.reportDisconnected(*this, phase_ == Phase::Ending ? downError_ : lost);
  }
  downError_.reset();
  enter(wanted_ ? Phase::WaitingAdapter : Phase::Idle);
}

// It comes without a link, and without the answer to a pending Connect.
void Link::deviceRemoved(const DeviceObject& device) {
  if (phase_ == Phase::Connecting) {
    attemptFailed({});
  } else {
    deviceChanged(device);
  }
}

// The daemon would keep a link, and would go on connecting, after this process has left the bus.
void Link::close() {
  if (phase_ == Phase::Connecting || phase_ == Phase::Resolving || phase_ == Phase::Up) {
    session_.reset();
    context_.daemon->send(deviceCall(bluez::kDisconnect));
  }
}

}  // namespace kv
