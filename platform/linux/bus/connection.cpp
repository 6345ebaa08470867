// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "platform/linux/bus/connection.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <utility>

#include "platform/linux/bus/names.h"

namespace kv {
namespace {

// What sd-bus points to while a call or a match lives. A callback may drop its own slot: sd-bus
// holds the slot while it calls, and the handler is moved out or kept alive for that time.
struct PendingCall {
  BusConnection::Answer answered;
  sd_bus_slot* slot = nullptr;

  PendingCall() = default;
  ~PendingCall() { sd_bus_slot_unref(slot); }
  PendingCall(const PendingCall&) = delete;
  PendingCall& operator=(const PendingCall&) = delete;
};

struct Match {
  std::shared_ptr<const BusConnection::Handler> matched;
  std::function<void(const BusError&)> refused;
  sd_bus_slot* slot = nullptr;

  Match() = default;
  ~Match() { sd_bus_slot_unref(slot); }
  Match(const Match&) = delete;
  Match& operator=(const Match&) = delete;
};

void onReply(const BusMessage& reply, PendingCall& call) {
  const auto answered = std::exchange(call.answered, nullptr);
  answered(reply, reply.error());
}

void onMatch(const BusMessage& message, Match& match) {
  const auto matched = match.matched;
  (*matched)(message);
}

void onMatchInstalled(const BusMessage& reply, Match& match) {
  const auto refused = match.refused;
  const BusFault error = reply.error();
  if (error && refused) refused(*error);
}

// As sd-bus calls it. Others may see the message, too.
template <typename Target, void (*handle)(const BusMessage&, Target&)>
int callback(sd_bus_message* message, void* target, sd_bus_error* /*error*/) {
  handle(BusMessage::share(message), *static_cast<Target*>(target));
  return 0;
}

int openAt(sd_bus** bus, const std::string& address) {
  sd_bus_new(bus);
  sd_bus_set_address(*bus, address.c_str());
  sd_bus_set_bus_client(*bus, true);
  return sd_bus_start(*bus);  // fails if one of these has failed
}

}  // namespace

std::shared_ptr<BusConnection> BusConnection::open(WeakLinuxQueue queue, const std::string& address,
                                                   std::function<void(int error)> lost) {
  std::shared_ptr<BusConnection> connection(new BusConnection(std::move(queue), std::move(lost)));
  connection->start(address);
  return connection;
}

BusConnection::BusConnection(WeakLinuxQueue queue, std::function<void(int error)> lost)
    : queue_(std::move(queue)), lost_(std::move(lost)), timer_(queue_) {}

void BusConnection::start(const std::string& address) {
  sd_bus* bus = nullptr;
  const int opened = address.empty() ? sd_bus_open_system(&bus) : openAt(&bus, address);
  bus_.reset(bus);
  if (failed(opened)) {
    queue_.post([self = weak_from_this(), opened] {
      if (const auto connection = self.lock()) connection->fail(-opened);
    });
    return;
  }
  watch_ = queue_.watch(sd_bus_get_fd(bus), POLLIN, [this](short) { process(); });
  update();
}

BusMessage BusConnection::methodCall(const std::string& destination, const std::string& path,
                                     const char* interface, const char* member) const {
  sd_bus_message* message = nullptr;
  if (!watch_ || failed(sd_bus_message_new_method_call(bus_.get(), &message, destination.c_str(),
                                                       path.c_str(), interface, member))) {
    return {};
  }
  // A service that its system has stopped must stay so.
  sd_bus_message_set_auto_start(message, false);
  return BusMessage::adopt(message);
}

BusSlot BusConnection::call(BusMessage message, std::chrono::milliseconds timeout,
                            Answer answered) {
  auto pending = std::make_shared<PendingCall>();
  pending->answered = std::move(answered);
  const auto limit = static_cast<std::uint64_t>(std::chrono::microseconds(timeout).count());
  const auto sent = [&](sd_bus* bus) {
    return sd_bus_call_async(bus, &pending->slot, message.get(), callback<PendingCall, onReply>,
                             pending.get(), limit);
  };
  if (!message || failed(use(sent))) {
    queue_.post([weak = std::weak_ptr<PendingCall>(pending)] {
      if (const auto call = weak.lock()) {
        const auto failed = std::exchange(call->answered, nullptr);
        failed({}, BusError{dbus::kDisconnected, "No connection to the bus"});
      }
    });
  }
  return BusSlot(std::move(pending));
}

void BusConnection::send(const BusMessage& message) {
  // Without a place for its number sd-bus asks for no reply.
  if (message) use([&](sd_bus* bus) { return sd_bus_send(bus, message.get(), nullptr); });
}

BusSlot BusConnection::match(const std::string& rule, Handler matched,
                             std::function<void(const BusError&)> refused) {
  auto match = std::make_shared<Match>();
  match->matched = std::make_shared<const Handler>(std::move(matched));
  match->refused = std::move(refused);
  use([&](sd_bus* bus) {
    return sd_bus_add_match_async(bus, &match->slot, rule.c_str(), callback<Match, onMatch>,
                                  callback<Match, onMatchInstalled>, match.get());
  });
  return BusSlot(std::move(match));
}

BusSlot BusConnection::requestName(const std::string& name, Answer done) {
  BusMessage request = methodCall(dbus::kService, dbus::kPath, dbus::kBus, dbus::kRequestName);
  if (request) sd_bus_message_append(request.get(), "su", name.c_str(), 0U);
  return call(std::move(request), kDefaultTimeout, std::move(done));
}

std::string BusConnection::uniqueName() const {
  const char* name = "";
  // Before it is ready sd-bus would wait.
  if (sd_bus_is_ready(bus_.get()) > 0) sd_bus_get_unique_name(bus_.get(), &name);
  return name;
}

void BusConnection::update() {
  if (!watch_) return;
  // Every use of the connection may change what it waits for: to connect and to authenticate it
  // writes, and each call brings a time-out.
  watch_->setEvents(static_cast<short>(sd_bus_get_events(bus_.get())));
  armTimer();
}

void BusConnection::armTimer() {
  std::uint64_t due = UINT64_MAX;
  sd_bus_get_timeout(bus_.get(), &due);
  // A timer that fires early only looks again; most calls are answered before theirs is due, so an
  // armed timer is not moved to a later time.
  if (due >= std::exchange(timerDue_, std::min(due, timerDue_))) return;
  const std::chrono::microseconds at(static_cast<std::int64_t>(due));
  timer_.set(at - std::chrono::steady_clock::now().time_since_epoch(), [this] {
    timerDue_ = UINT64_MAX;
    process();
  });
}

// Handles one message: to look for another at once costs a system call, mostly in vain. One that
// waits in the socket makes the watch ready again, one that was read already makes the timer due.
void BusConnection::process() {
  const auto self = shared_from_this();
  const int result = sd_bus_process(bus_.get(), nullptr);
  if (failed(result)) {
    fail(-result);
  } else if (sd_bus_is_open(bus_.get()) <= 0) {
    fail(ECONNRESET);
  } else {
    update();
  }
}

void BusConnection::fail(int error) {
  watch_.reset();  // a timer that comes late fails again, which is told to nobody
  sd_bus_close(bus_.get());
  if (const auto lost = std::exchange(lost_, nullptr)) lost(error);
}

}  // namespace kv
