// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// One attempt to connect, until the services are there.
#include <algorithm>
#include <utility>

#include "platform/linux/bluez/daemon.h"
#include "platform/linux/bluez/link.h"
#include "platform/linux/bus/names.h"

namespace kv {

void Link::initiatingGranted() {
  const DeviceObject* known = device();
  if (known == nullptr) {
    host_.releaseInitiating(*this);
    waitForAdvertisement();
    return;
  }
  devicePath_ = known->path;
  refreshed_ = false;
  if (known->connected) {
    // A link that an earlier process has left, or another one holds: it serves as well.
    resolve(*known);
  } else {
    attemptConnect();
  }
}

void Link::attemptConnect() {
  enter(Phase::Connecting);
  const bool cut = !std::exchange(heard_, false) && host_.radioContended();
  const auto limit =
      cut ? std::min(context_.options.connectTimeout, context_.timing.contendedConnect)
          : context_.options.connectTimeout;
  timer_.set(limit, [this] {
    silent_ = true;
    disconnect(context_.options.disconnectTimeout);
  });
  // The daemon goes on connecting when a call has timed out, so this call is given more time than
  // we give the attempt; the attempt is ended by Disconnect.
  connectCall_ = context_.daemon->call(
      deviceCall(bluez::kConnect), 2 * context_.options.connectTimeout + context_.timing.daemonCall,
      [this](const BusMessage&, const BusFault& error) { connectAnswered(error); });
}

// What counts is the state of the device; the answer only tells when to stop waiting for it. A link
// that is known of has ended the phase of connecting.
void Link::connectAnswered(const BusFault& error) {
  connectCall_.reset();
  const Fault fault = classify(error);
  if (phase_ == Phase::Ending && !deviceConnected()) ended();
  if (phase_ != Phase::Connecting) return;
  if (error) explain(fault, *error);
  if (fault == Fault::WrongBearer) preferLowEnergy();
  switch (fault) {
    case Fault::None:
    case Fault::AlreadyConnected:
      awaitConnected();
      break;
    case Fault::InProgress:
      break;  // another program's attempt: its outcome is ours, until the limit of this one
    case Fault::UnknownObject:
      host_.releaseInitiating(*this);
      ++failures_;
      waitForAdvertisement();
      break;
    case Fault::ConnectionLimit:
      attemptFailed(context_.timing.connectionLimitPause);
      break;
    default:
      attemptFailed({});
  }
}

// The daemon does not signal Connected when it learns of the link from the socket first and from
// the kernel later, so it is asked. Success can also come without a link; then the link comes soon
// or not at all.
void Link::awaitConnected() {
  timer_.set(context_.timing.settle, [this] { disconnect(context_.options.disconnectTimeout); });
  refreshCall_ = context_.daemon->refresh([] {});
}

void Link::explain(Fault fault, const BusError& error) {
  std::string line = "no link to " + address() + " yet: " + error.text;
  if (fault == Fault::WrongBearer) {
    line +=
        "; bluetoothd takes the tag for a classic Bluetooth device: ControllerMode = le in its "
        "main.conf, or PreferredBearer, makes it use low energy";
  } else if (fault == Fault::ConnectionLimit) {
    line +=
        "; the adapter holds as many links as it can: disconnect a device, or use another adapter";
  }
  // A tag out of range would repeat the same line for ever.
  if (line != lastExplained_) {
    lastExplained_ = line;
    context_.log(line);
  }
}

// A daemon that offers the choice needs no other setting.
void Link::preferLowEnergy() {
  const DeviceObject* known = device();
  if (known == nullptr || known->preferredBearer.empty()) return;
  if (known->preferredBearer == bluez::kLowEnergy) return;
  context_.log("bluetoothd shall prefer low energy for " + address());
  BusMessage setting = context_.daemon->methodCall(devicePath_, dbus::kProperties, dbus::kSet);
  if (setting) {
    sd_bus_message_append(setting.get(), "ssv", bluez::kDevice, bluez::kPreferredBearer, "s",
                          bluez::kLowEnergy);
  }
  context_.daemon->send(setting);
}

void Link::resolve(const DeviceObject& device) {
  if (phase_ != Phase::Resolving) {
    enter(Phase::Resolving);
    timer_.set(context_.options.servicesTimeout, [this] {
      context_.log("the services of " + address() + " were not discovered in time");
      disconnect(context_.options.disconnectTimeout);
    });
  }
  if (!device.servicesResolved) return;
  if (context_.daemon->tree().hasServices(device.path)) {
    becomeUp();
  } else if (!std::exchange(refreshed_, true)) {
    // The flag can be ahead of the objects.
    refreshCall_ = context_.daemon->refresh([this] {
      // A device that has gone meanwhile has ended the attempt.
      if (phase_ == Phase::Resolving) {
        timer_.set(context_.timing.servicesGrace, [this] { servicesMissing(); });
        resolve(*this->device());
      }
    });
  }
}

// The flag is also set when the discovery has failed.
void Link::servicesMissing() {
  if (context_.daemon->tree().hasServices(devicePath_)) {
    becomeUp();
    return;
  }
  removeDevice("was connected without any service");
  disconnect(context_.options.disconnectTimeout);
}

// The daemon does not discover again what it has stored, so that stays wrong until it is removed.
void Link::removeDevice(const std::string& why) {
  const bool again = std::exchange(removedOnce_, true);
  context_.log(address() + " " + why +
               (again
                    ? "; if that goes on, Cache = no in the section GATT of bluetoothd's main.conf "
                      "may help"
                    : ""));
  if (again) return;
  BusMessage removal =
      context_.daemon->methodCall(host_.adapterPath(), bluez::kAdapter, bluez::kRemoveDevice);
  if (removal) sd_bus_message_append(removal.get(), "o", devicePath_.c_str());
  context_.daemon->send(removal);
}

void Link::becomeUp() {
  enter(Phase::Up);
  dropCalls();
  host_.releaseInitiating(*this);
  wanted_ = false;
  silent_ = false;
  lastExplained_.clear();
  upSince_ = context_.queue.now();
  session_ = std::make_shared<GattSession>(context_, peripheral_, devicePath_,
                                           [this](GattSession::Broken why) { giveUpLink(why); });
  reportDown_ = true;
  host_.reportConnected(*this);
}

void Link::attemptFailed(std::chrono::milliseconds pause) {
  ++failures_;
  dropCalls();
  host_.releaseInitiating(*this);
  enter(Phase::Pausing);
  timer_.set(std::max(pause, backoff()), [this] { begin(); });
}

}  // namespace kv
