// One attempt to connect, from the turn that is granted to the services that are there.
#include <algorithm>
#include <utility>

#include "platform/linux/bluez/daemon.h"
#include "platform/linux/bluez/link.h"

namespace kv {

void Link::turnGranted() {
  const DeviceObject* known = device();
  if (known == nullptr) {
    host_.releaseTurn(*this);
    waitForSighting();
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
  enter(Phase::connecting);
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
      deviceCall("Connect"), 2 * context_.options.connectTimeout + context_.timing.daemonCall,
      [this](const BusMessage&, const BusFault& error) { connectAnswered(error); });
}

// What counts is the state of the device; the answer only tells when to stop waiting for it.
void Link::connectAnswered(const BusFault& error) {
  connectCall_.reset();
  const Fault fault = classify(error);
  if (phase_ == Phase::ending) {
    const DeviceObject* known = device();
    if (known == nullptr || !known->connected) {
      ended();
    }
    return;
  }
  if (phase_ != Phase::connecting) {
    return;
  }
  DeviceObject* known = device();
  if (error) {
    explain(fault, *error);
  }
  switch (fault) {
    case Fault::none:
    case Fault::alreadyConnected:
      if (known == nullptr || !known->connected) {
        unseenLink();
      }
      break;
    case Fault::inProgress:
      break;  // somebody else's attempt: its outcome is ours, until the limit of this one
    case Fault::unknownObject:
      host_.releaseTurn(*this);
      ++failures_;
      waitForSighting();
      break;
    case Fault::noRoom:
      attemptFailed(context_.timing.noRoomPause);
      break;
    default:
      if (known != nullptr && known->connected) {
        disconnect(context_.timing.settle);
      } else {
        attemptFailed({});
      }
  }
}

// The daemon does not signal Connected when it learns of the link from the socket first and from
// the kernel later, so it is asked. Success can also come without a link; then the link comes soon
// or not at all.
void Link::unseenLink() {
  timer_.set(context_.timing.settle, [this] { disconnect(context_.options.disconnectTimeout); });
  refreshCall_ = context_.daemon->refresh([] {});
}

void Link::explain(Fault fault, const BusError& error) {
  std::string line = "no link to " + address() + " yet: " + error.text;
  if (fault == Fault::wrongBearer) {
    line +=
        "; bluetoothd takes the tag for a classic Bluetooth device: ControllerMode = le in its "
        "main.conf, or PreferredBearer, makes it use low energy";
  } else if (fault == Fault::noRoom) {
    line +=
        "; the adapter holds as many links as it can: disconnect a device, or use another adapter";
  }
  // A tag out of range would repeat the same line for ever.
  if (line != lastExplained_) {
    lastExplained_ = line;
    context_.log(line);
  }
}

void Link::resolve(const DeviceObject& device) {
  if (phase_ != Phase::resolving) {
    enter(Phase::resolving);
    timer_.set(context_.options.servicesTimeout, [this] {
      context_.log("the services of " + address() + " were not discovered in time");
      disconnect(context_.options.disconnectTimeout);
    });
  }
  if (!device.servicesResolved) {
    return;
  }
  if (context_.daemon->tree().hasServices(device.path)) {
    becomeUp();
  } else if (!std::exchange(refreshed_, true)) {
    // The flag can be ahead of the objects.
    refreshCall_ = context_.daemon->refresh([this] {
      const DeviceObject* known = this->device();
      if (phase_ == Phase::resolving && known != nullptr && known->connected) {
        timer_.set(context_.timing.servicesGrace, [this] { servicesMissing(); });
        resolve(*known);
      }
    });
  }
}

// The flag is also set when the discovery has failed.
void Link::servicesMissing() {
  const DeviceObject* known = device();
  if (known != nullptr && context_.daemon->tree().hasServices(known->path)) {
    becomeUp();
    return;
  }
  forgetDevice("was connected without any service");
  disconnect(context_.options.disconnectTimeout);
}

// What the daemon has stored of the device can be wrong for good, as it spares it later
// discoveries.
void Link::forgetDevice(const std::string& why) {
  const bool again = std::exchange(removedOnce_, true);
  context_.log(address() + " " + why +
               (again
                    ? "; if that goes on, Cache = no in the section GATT of bluetoothd's main.conf "
                      "may help"
                    : ""));
  if (again) {
    return;
  }
  BusMessage removal =
      context_.daemon->methodCall(host_.adapterPath(), "org.bluez.Adapter1", "RemoveDevice");
  if (removal) {
    sd_bus_message_append(removal.get(), "o", devicePath_.c_str());
  }
  context_.daemon->send(removal);
}

void Link::becomeUp() {
  enter(Phase::up);
  connectCall_.reset();
  refreshCall_.reset();
  host_.releaseTurn(*this);
  wanted_ = false;
  silent_ = false;
  lastExplained_.clear();
  upSince_ = context_.queue->now();
  session_ = std::make_shared<GattSession>(context_, peripheral_, devicePath_,
                                           [this](GattSession::Broken why) { giveUpLink(why); });
  reportDown_ = true;
  downError_.reset();
  host_.reportConnected(*this);
}

void Link::attemptFailed(std::chrono::milliseconds pause) {
  ++failures_;
  connectCall_.reset();
  refreshCall_.reset();
  host_.releaseTurn(*this);
  enter(Phase::pausing);
  timer_.set(std::max(pause, backoff()), [this] { begin(); });
}

}  // namespace kv
