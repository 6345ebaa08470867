// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "platform/linux/bluez/daemon.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "platform/linux/bluez/errors.h"
#include "platform/linux/bus/names.h"

namespace kv {
namespace {

// `more` narrows the rule further.
std::string signalRule(const char* sender, const char* interface, const char* member,
                       const std::string& more) {
  return std::string("type='signal',sender='") + sender + "',interface='" + interface +
         "',member='" + member + "'," + more;
}

}  // namespace

Daemon::Daemon(Context& context, ObjectTreeObserver& observer, std::function<void()> changed)
    : context_(context), tree_(observer), changed_(std::move(changed)), timer_(context.queue) {}

void Daemon::start(std::weak_ptr<void> keeper) {
  keeper_ = std::move(keeper);
  open();
}

void Daemon::open() {
  bus_ = BusConnection::open(context_.queue, context_.options.busAddress,
                             [this](int error) { lost(error); });
  // All rules are sent before the first question, so nothing can happen between an answer and the
  // signals that continue it. One rule serves all devices: the bus limits their number.
  const std::string atManager = std::string("path='") + bluez::kManagerPath + '\'';
  const std::string below = std::string("path_namespace='") + bluez::kRootPath + '\'';
  matches_ = {
      bus_->match(signalRule(dbus::kService, dbus::kBus, dbus::kNameOwnerChanged,
                             std::string("arg0='") + bluez::kService + '\''),
                  [this](const BusMessage& signal) { ownerChanged(signal.get()); }),
      match(signalRule(bluez::kService, dbus::kObjectManager, dbus::kInterfacesAdded, atManager),
            &ObjectTree::interfacesAdded),
      match(signalRule(bluez::kService, dbus::kObjectManager, dbus::kInterfacesRemoved, atManager),
            &ObjectTree::interfacesRemoved),
      match(signalRule(bluez::kService, dbus::kProperties, dbus::kPropertiesChanged, below),
            &ObjectTree::propertiesChanged),
      match(signalRule(bluez::kService, bluez::kDevice, bluez::kDisconnected, below),
            &ObjectTree::disconnected)};
  BusMessage question =
      bus_->methodCall(dbus::kService, dbus::kPath, dbus::kBus, dbus::kGetNameOwner);
  if (question) sd_bus_message_append(question.get(), "s", bluez::kService);
  ownerCall_ = bus_->call(
      std::move(question), context_.timing.daemonCall,
      [this](const BusMessage& reply, const BusFault& error) { ownerKnown(reply, error); });
}

BusSlot Daemon::match(const std::string& rule, void (ObjectTree::*handle)(sd_bus_message*)) {
  return bus_->match(rule, [this, handle](const BusMessage& signal) { onSignal(signal, handle); });
}

void Daemon::onSignal(const BusMessage& signal, void (ObjectTree::*handle)(sd_bus_message*)) {
  const auto keep = keeper_.lock();
  // Until the list of objects has come, what a signal says is in that list.
  if (keep && state_ == State::Ready && owner_ == sd_bus_message_get_sender(signal.get())) {
    (tree_.*handle)(signal.get());
  }
}

void Daemon::lost(int error) {
  retry_ = std::clamp(retry_ * 2, context_.timing.busRetryFirst, context_.timing.busRetryMost);
  context_.log(std::string("no connection to the bus: ") + std::strerror(error) +
               "; it is tried again");
  owner_.clear();
  loadCall_.reset();
  ownerCall_.reset();
  timer_.set(retry_, [this] { open(); });
  setState(error == EACCES || error == EPERM ? State::Denied : State::Absent);
}

void Daemon::ownerKnown(const BusMessage& reply, const BusFault& error) {
  if (!error) {
    retry_ = {};
    setOwner(readText(reply.get()));
    return;
  }
  const Fault fault = classify(error);
  if (fault == Fault::NoBus) {
    return;  // `lost` is about to tell more
  }
  if (fault == Fault::NoDaemon) {
    retry_ = {};
    context_.log("bluetoothd is not running");
  } else {
    context_.log("cannot ask for bluetoothd: " + error->name + ": " + error->text);
  }
  setState(fault == Fault::AccessDenied ? State::Denied : State::Absent);
}

void Daemon::ownerChanged(sd_bus_message* signal) {
  readText(signal);  // the name, which is that of the rule
  readText(signal);  // its owner before
  const std::string now = readText(signal);
  ownerCall_.reset();
  context_.log(now.empty() ? "bluetoothd has gone" : "bluetoothd has started");
  setOwner(now);
}

void Daemon::setOwner(const std::string& owner) {
  if (owner == owner_) return;
  owner_ = owner;
  loadCall_.reset();
  timer_.cancel();
  // A daemon that was replaced at once is still a new one: all that was known is void.
  if (state_ == State::Ready || owner.empty()) setState(State::Absent);
  if (!owner_.empty()) load();
}

void Daemon::load() {
  loadCall_ =
      call(methodCall(bluez::kManagerPath, dbus::kObjectManager, dbus::kGetManagedObjects),
           context_.timing.daemonCall,
           [this](const BusMessage& reply, const BusFault& error) { loaded(reply, error); });
}

void Daemon::loaded(const BusMessage& reply, const BusFault& error) {
  if (!error) {
    tree_.load(reply.get());
    setState(State::Ready);
    return;
  }
  context_.log("bluetoothd does not list its objects: " + error->name + ": " + error->text);
  setState(classify(error) == Fault::AccessDenied ? State::Denied : State::Absent);
  // No signal says that it would answer now.
  timer_.set(context_.timing.busRetryMost, [this] { load(); });
}

void Daemon::setState(State state) {
  const auto keep = keeper_.lock();
  state_ = state;
  if (state != State::Ready) tree_.clear();
  if (keep) changed_();
}

BusMessage Daemon::methodCall(const std::string& path, const char* interface,
                              const char* member) const {
  return bus_ ? bus_->methodCall(bluez::kService, path, interface, member) : BusMessage();
}

BusSlot Daemon::call(BusMessage message, std::chrono::milliseconds timeout,
                     BusConnection::Answer answered) {
  return bus_->call(std::move(message), timeout,
                    [keeper = keeper_, answered = std::move(answered)](const BusMessage& reply,
                                                                       const BusFault& error) {
                      if (const auto keep = keeper.lock()) answered(reply, error);
                    });
}

void Daemon::send(const BusMessage& message) {
  if (bus_) bus_->send(message);
}

BusSlot Daemon::refresh(std::function<void()> done) {
  return call(
      methodCall(bluez::kManagerPath, dbus::kObjectManager, dbus::kGetManagedObjects),
      context_.timing.daemonCall,
      [this, done = std::move(done)](const BusMessage& reply, const BusFault& error) {
        if (!error) tree_.load(reply.get());
        done();  // an error leaves the objects as they were, which is for the caller to judge
      });
}

}  // namespace kv
