#include "platform/linux/bluez/link.h"

#include <algorithm>
#include <random>
#include <utility>

#include "platform/linux/bluez/daemon.h"

namespace kv {
namespace {

constexpr const char* kDevice = "org.bluez.Device1";

const char* text(GattSession::Broken why) {
  switch (why) {
    case GattSession::Broken::silent:
      return "does not answer a request";
    case GattSession::Broken::changed:
      return "has other attributes than before";
    case GattSession::Broken::stale:
      return "has other attributes than bluetoothd remembers";
  }
  return "";
}

}  // namespace

Link::Link(Context& context, LinkHost& host, std::shared_ptr<BlueZPeripheral> peripheral)
    : context_(context), host_(host), peripheral_(std::move(peripheral)), timer_(context) {}

DeviceObject* Link::device() const {
  return context_.daemon->tree().device(host_.adapterPath(), address());
}

BusMessage Link::deviceCall(const char* member) const {
  return context_.daemon->methodCall(devicePath_, kDevice, member);
}

void Link::enter(Phase phase) {
  const bool waited = waitsForSighting();
  phase_ = phase;
  if (phase != Phase::pausing) {
    timer_.cancel();
  }
  if (waited != waitsForSighting()) {
    host_.sightingsWantedChanged();
  }
}

void Link::request(std::shared_ptr<BlueZPeripheral> peripheral) {
  if (phase_ == Phase::up) {
    // Before its report has been delivered the earlier request is still pending; this one joins it.
    if (peripheral_->state() == KVPeripheralStateConnected) {
      host_.reportConnected(*this);
    }
    return;
  }
  peripheral_ = std::move(peripheral);
  wanted_ = true;
  if (phase_ == Phase::idle) {
    peripheral_->setState(KVPeripheralStateConnecting);
    begin();
  }
}

void Link::begin() {
  DeviceObject* known = device();
  if (host_.adapterPath().empty()) {
    enter(Phase::waitingAdapter);
  } else if (known == nullptr || (silent_ && !known->connected)) {
    waitForSighting();
  } else {
    enter(Phase::waitingTurn);
    host_.requestTurn(*this);
  }
}

void Link::waitForSighting() {
  enter(Phase::waitingSighting);
  timer_.set(context_.timing.blindRetry, [this] {
    if (device() != nullptr) {
      silent_ = false;
      begin();
    } else {
      waitForSighting();
    }
  });
}

void Link::deviceSeen() {
  if (phase_ == Phase::waitingSighting) {
    silent_ = false;
    heard_ = true;
    begin();
  }
}

void Link::deviceChanged(const DeviceObject& device) {
  switch (phase_) {
    case Phase::waitingSighting:
      if (device.connected) {
        begin();  // by somebody else; it serves as well
      }
      break;
    case Phase::connecting:
      if (device.connected) {
        resolve(device);
      }
      break;
    case Phase::resolving:
      if (device.connected) {
        resolve(device);
      } else {
        attemptFailed({});
      }
      break;
    case Phase::up:
      if (!device.connected) {
        dropped({"The link was lost", kErrorLinkLost, std::nullopt});
      }
      break;
    case Phase::ending:
      if (!device.connected && !connectCall_) {
        ended();
      }
      break;
    default:
      break;
  }
}

void Link::giveUpLink(GattSession::Broken why) {
  if (phase_ != Phase::up) {
    return;
  }
  if (why == GattSession::Broken::stale) {
    forgetDevice(text(why));
  } else {
    context_.log(address() + " " + text(why) + "; the link is dropped");
  }
  downError_ = KVError{std::string("The tag ") + text(why), kErrorLinkGivenUp, std::nullopt};
  disconnect(context_.options.disconnectTimeout);
}

void Link::dropped(const KVError& error) {
  if (phase_ == Phase::up) {
    downError_ = error;
    // When the adapter is powered off its links end first; the power state is to be told before.
    leave(Phase::dropping, context_.timing.dropHold);
  }
}

void Link::leave(Phase phase, std::chrono::milliseconds limit) {
  if (phase_ == Phase::up) {
    const bool brief = context_.queue->now() - upSince_ < context_.timing.flap;
    flaps_ = brief ? flaps_ + 1 : 0;
    failures_ = flaps_;
    removedOnce_ = removedOnce_ && brief;
    session_.reset();
  } else {
    ++failures_;
  }
  enter(phase);
  timer_.set(limit, [this] { ended(); });
}

void Link::disconnect(std::chrono::milliseconds limit) {
  leave(Phase::ending, limit);
  disconnectCall_ = context_.daemon->call(
      deviceCall("Disconnect"), limit, [this](const BusMessage&, const BusFault&) {
        const DeviceObject* known = device();
        if (phase_ == Phase::ending && !connectCall_ && (known == nullptr || !known->connected)) {
          ended();
        }
      });
}

void Link::ended() {
  connectCall_.reset();
  disconnectCall_.reset();
  refreshCall_.reset();
  host_.releaseTurn(*this);
  enter(Phase::idle);
  if (std::exchange(reportDown_, false)) {
    host_.reportDisconnected(*this, std::exchange(downError_, std::nullopt));
  }
  if (wanted_) {
    retryAfterFailure();
  }
}

void Link::retryAfterFailure() {
  if (failures_ == 0) {
    begin();
    return;
  }
  enter(Phase::pausing);
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
  switch (phase_) {
    case Phase::idle:
      break;
    case Phase::up:
      peripheral_->setState(KVPeripheralStateDisconnecting);
      disconnect(context_.options.disconnectTimeout);
      failures_ = 0;
      break;
    case Phase::dropping:
    case Phase::ending:
      if (reportDown_) {
        wanted_ = false;  // the end that is about to be reported answers both
        break;
      }
      [[fallthrough]];
    default:
      if (std::exchange(wanted_, false)) {
        host_.reportDisconnected(*this, std::nullopt);
      }
      failures_ = 0;
      silent_ = false;
      if (phase_ == Phase::connecting || phase_ == Phase::resolving) {
        disconnect(context_.options.disconnectTimeout);
      } else if (phase_ != Phase::ending) {
        host_.releaseTurn(*this);
        enter(Phase::idle);
      }
  }
}

void Link::adapterOn() {
  if (phase_ == Phase::waitingAdapter) {
    silent_ = false;
    begin();
  }
}

void Link::adapterLost() {
  if (phase_ == Phase::idle || phase_ == Phase::waitingAdapter) {
    return;
  }
  session_.reset();
  connectCall_.reset();
  disconnectCall_.reset();
  refreshCall_.reset();
  host_.releaseTurn(*this);
  failures_ = 0;
  if (std::exchange(reportDown_, false)) {
    const KVError lost{"The adapter went away", kErrorAdapterLost, std::nullopt};
    host_.reportDisconnected(*this, phase_ == Phase::ending ? downError_ : lost);
  }
  downError_.reset();
  enter(wanted_ ? Phase::waitingAdapter : Phase::idle);
}

void Link::deviceRemoved() {
  switch (phase_) {
    case Phase::connecting:
    case Phase::resolving:
      attemptFailed({});
      break;
    case Phase::up:
      dropped({"The link was lost", kErrorLinkLost, std::nullopt});
      break;
    case Phase::ending:
      if (!connectCall_) {
        ended();
      }
      break;
    default:
      break;
  }
}

void Link::close() {
  if (phase_ == Phase::connecting || phase_ == Phase::resolving || phase_ == Phase::up) {
    session_.reset();
    context_.daemon->send(deviceCall("Disconnect"));
  }
}

}  // namespace kv
