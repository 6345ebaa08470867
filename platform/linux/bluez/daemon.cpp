#include "platform/linux/bluez/daemon.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "platform/linux/bluez/errors.h"

namespace kv {
namespace {

constexpr const char* kName = "org.bluez";
constexpr const char* kBus = "org.freedesktop.DBus";
constexpr const char* kObjectManager = "org.freedesktop.DBus.ObjectManager";

}  // namespace

Daemon::Daemon(Context& context, ObjectTreeObserver& observer, std::function<void()> changed)
    : context_(context), tree_(observer), changed_(std::move(changed)), timer_(context) {}

void Daemon::start(std::weak_ptr<void> keeper) {
  keeper_ = std::move(keeper);
  open();
}

void Daemon::open() {
  bus_ = BusConnection::open(context_.queue, context_.options.busAddress,
                             [this](int error) { lost(error); });
  // All rules are sent before the first question, so nothing can happen between an answer and the
  // signals that continue it. One rule serves all devices: the bus limits their number.
  matches_.clear();
  matches_.push_back(
      bus_->match("type='signal',sender='org.freedesktop.DBus',interface='org.freedesktop.DBus',"
                  "member='NameOwnerChanged',arg0='org.bluez'",
                  [this](const BusMessage& signal) { ownerChanged(signal.get()); }));
  matches_.push_back(
      match("type='signal',sender='org.bluez',interface='org.freedesktop.DBus."
            "ObjectManager',member='InterfacesAdded',path='/'",
            &ObjectTree::interfacesAdded));
  matches_.push_back(
      match("type='signal',sender='org.bluez',interface='org.freedesktop.DBus."
            "ObjectManager',member='InterfacesRemoved',path='/'",
            &ObjectTree::interfacesRemoved));
  matches_.push_back(
      match("type='signal',sender='org.bluez',interface='org.freedesktop.DBus."
            "Properties',member='PropertiesChanged',path_namespace='/org/bluez'",
            &ObjectTree::propertiesChanged));
  BusMessage question = bus_->methodCall(kBus, "/org/freedesktop/DBus", kBus, "GetNameOwner");
  if (question) {
    sd_bus_message_append(question.get(), "s", kName);
  }
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
  if (keep && state_ == State::ready && owner_ == sd_bus_message_get_sender(signal.get())) {
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
  setState(error == EACCES || error == EPERM ? State::denied : State::absent);
}

void Daemon::ownerKnown(const BusMessage& reply, const BusFault& error) {
  const char* owner = nullptr;
  if (!error && sd_bus_message_read_basic(reply.get(), 's', static_cast<void*>(&owner)) >= 0) {
    retry_ = {};
    setOwner(owner);
    return;
  }
  const Fault fault = classify(error);
  if (fault == Fault::noBus) {
    return;  // `lost` is about to tell more
  }
  if (fault == Fault::noDaemon) {
    retry_ = {};
    context_.log("bluetoothd is not running");
  } else if (error) {
    context_.log("cannot ask for bluetoothd: " + error->name + ": " + error->text);
  }
  setState(fault == Fault::accessDenied ? State::denied : State::absent);
}

void Daemon::ownerChanged(sd_bus_message* signal) {
  const char* name = nullptr;
  const char* before = nullptr;
  const char* now = nullptr;
  if (sd_bus_message_read(signal, "sss", &name, &before, &now) >= 0) {
    ownerCall_.reset();
    context_.log(*now == '\0' ? "bluetoothd has gone" : "bluetoothd has started");
    setOwner(now);
  }
}

void Daemon::setOwner(const std::string& owner) {
  if (owner == owner_) {
    return;
  }
  owner_ = owner;
  loadCall_.reset();
  timer_.cancel();
  // A daemon that was replaced at once is still a new one: all that was known is void.
  if (state_ == State::ready || owner.empty()) {
    setState(State::absent);
  }
  if (!owner_.empty()) {
    load();
  }
}

void Daemon::load() {
  loadCall_ =
      call(methodCall("/", kObjectManager, "GetManagedObjects"), context_.timing.daemonCall,
           [this](const BusMessage& reply, const BusFault& error) { loaded(reply, error); });
}

void Daemon::loaded(const BusMessage& reply, const BusFault& error) {
  if (!error) {
    tree_.clear();
    tree_.load(reply.get());
    setState(State::ready);
    return;
  }
  context_.log("bluetoothd does not list its objects: " + error->name + ": " + error->text);
  setState(classify(error) == Fault::accessDenied ? State::denied : State::absent);
  timer_.set(context_.timing.busRetryMost, [this] { load(); });
}

void Daemon::setState(State state) {
  const auto keep = keeper_.lock();
  state_ = state;
  if (state != State::ready) {
    tree_.clear();
  }
  if (keep) {
    changed_();
  }
}

BusMessage Daemon::methodCall(const std::string& path, const char* interface,
                              const char* member) const {
  return bus_ ? bus_->methodCall(kName, path, interface, member) : BusMessage();
}

BusSlot Daemon::call(BusMessage message, std::chrono::milliseconds timeout,
                     BusConnection::Answer answered) {
  if (message) {
    // A call must not start a daemon that its system has stopped.
    sd_bus_message_set_auto_start(message.get(), 0);
  }
  return bus_->call(std::move(message), timeout,
                    [keeper = keeper_, answered = std::move(answered)](const BusMessage& reply,
                                                                       const BusFault& error) {
                      if (const auto keep = keeper.lock()) {
                        answered(reply, error);
                      }
                    });
}

void Daemon::send(const BusMessage& message) {
  if (bus_ && message) {
    sd_bus_message_set_auto_start(message.get(), 0);
    bus_->send(message);
  }
}

BusSlot Daemon::refresh(std::function<void()> done) {
  return call(methodCall("/", kObjectManager, "GetManagedObjects"), context_.timing.daemonCall,
              [this, done = std::move(done)](const BusMessage& reply, const BusFault& error) {
                if (!error) {
                  tree_.load(reply.get());
                }
                done();
              });
}

}  // namespace kv
