// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "platform/linux/bus/connection.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <ctime>
#include <utility>

#include "platform/linux/bus/names.h"

namespace kv {
namespace {

std::uint64_t monotonicMicroseconds() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<std::uint64_t>(now.tv_sec) * 1'000'000 +
         static_cast<std::uint64_t>(now.tv_nsec) / 1'000;
}

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

int onReply(sd_bus_message* message, void* userdata, sd_bus_error* /*error*/) {
  const auto answered = std::exchange(static_cast<PendingCall*>(userdata)->answered, nullptr);
  const BusMessage reply = BusMessage::share(message);
  answered(reply, reply.error());
  return 1;
}

int onMatch(sd_bus_message* message, void* userdata, sd_bus_error* /*error*/) {
  const auto matched = static_cast<Match*>(userdata)->matched;
  (*matched)(BusMessage::share(message));
  return 0;
}

int onMatchInstalled(sd_bus_message* message, void* userdata, sd_bus_error* /*error*/) {
  const auto refused = static_cast<Match*>(userdata)->refused;
  const BusFault error = BusMessage::share(message).error();
  if (error && refused) refused(*error);
  return 1;
}

}  // namespace

std::shared_ptr<BusConnection> BusConnection::open(WeakLinuxQueue queue, const std::string& address,
                                                   std::function<void(int error)> lost) {
  std::shared_ptr<BusConnection> connection(new BusConnection(std::move(queue), std::move(lost)));
  connection->start(address);
  return connection;
}

BusConnection::BusConnection(WeakLinuxQueue queue, std::function<void(int error)> lost)
    : queue_(std::move(queue)), lost_(std::move(lost)) {}

BusConnection::~BusConnection() {
  watch_.reset();  // before its descriptor is closed
  queue_.cancel(timer_);
  sd_bus_close_unref(bus_);
}

void BusConnection::start(const std::string& address) {
  int result = 0;
  if (address.empty()) {
    result = sd_bus_open_system(&bus_);
  } else {
    result = sd_bus_new(&bus_);
    result = result < 0 ? result : sd_bus_set_address(bus_, address.c_str());
    result = result < 0 ? result : sd_bus_set_bus_client(bus_, 1);
    result = result < 0 ? result : sd_bus_start(bus_);
  }
  const int fd = result < 0 ? result : sd_bus_get_fd(bus_);
  if (fd < 0) {
    failLater(-fd);
    return;
  }
  events_ = POLLIN;
  watch_ = queue_.watch(fd, events_, [self = weak_from_this()](short) {
    if (const auto connection = self.lock()) connection->process();
  });
  update();
}

BusMessage BusConnection::methodCall(const std::string& destination, const std::string& path,
                                     const char* interface, const char* member) const {
  sd_bus_message* message = nullptr;
  if (!watch_ || sd_bus_message_new_method_call(bus_, &message, destination.c_str(), path.c_str(),
                                                interface, member) < 0) {
    return {};
  }
  // A service that its system has stopped must stay so.
  sd_bus_message_set_auto_start(message, 0);
  return BusMessage::adopt(message);
}

BusSlot BusConnection::call(BusMessage message, std::chrono::milliseconds timeout,
                            Answer answered) {
  auto pending = std::make_shared<PendingCall>();
  pending->answered = std::move(answered);
  const auto limit = static_cast<std::uint64_t>(
      std::max<std::int64_t>(1, std::chrono::microseconds(timeout).count()));
  if (!message ||
      sd_bus_call_async(bus_, &pending->slot, message.get(), onReply, pending.get(), limit) < 0) {
    queue_.post([weak = std::weak_ptr<PendingCall>(pending)] {
      if (const auto call = weak.lock()) {
        const auto failed = std::exchange(call->answered, nullptr);
        failed({}, BusError{dbus::kDisconnected, "No connection to the bus"});
      }
    });
  }
  update();
  return BusSlot(std::move(pending));
}

void BusConnection::send(const BusMessage& message) {
  if (message && watch_) {
    sd_bus_message_set_expect_reply(message.get(), 0);
    sd_bus_send(bus_, message.get(), nullptr);
    update();
  }
}

BusSlot BusConnection::match(const std::string& rule, Handler matched,
                             std::function<void(const BusError&)> refused) {
  auto match = std::make_shared<Match>();
  match->matched = std::make_shared<const Handler>(std::move(matched));
  match->refused = std::move(refused);
  if (watch_) {
    sd_bus_add_match_async(bus_, &match->slot, rule.c_str(), onMatch, onMatchInstalled,
                           match.get());
    update();
  }
  return BusSlot(std::move(match));
}

BusSlot BusConnection::requestName(const std::string& name, Answer done) {
  BusMessage request = methodCall(dbus::kService, dbus::kPath, dbus::kBus, dbus::kRequestName);
  if (request) sd_bus_message_append(request.get(), "su", name.c_str(), 0U);
  return call(std::move(request), std::chrono::seconds(25), std::move(done));
}

std::string BusConnection::uniqueName() const {
  const char* name = nullptr;
  return bus_ != nullptr && sd_bus_is_ready(bus_) > 0 && sd_bus_get_unique_name(bus_, &name) >= 0
             ? name
             : "";
}

void BusConnection::update() {
  if (!watch_) return;
  // Every use of the connection may change what it waits for: to connect and to authenticate it
  // writes, and each call brings a time-out.
  const int wanted = sd_bus_get_events(bus_);
  if (wanted < 0) {
    failLater(-wanted);
    return;
  }
  if (static_cast<short>(wanted) != events_) {
    events_ = static_cast<short>(wanted);
    watch_->setEvents(events_);
  }
  armTimer();
}

void BusConnection::armTimer() {
  std::uint64_t due = UINT64_MAX;
  if (sd_bus_get_timeout(bus_, &due) < 0) due = UINT64_MAX;
  // A timer that fires early only looks again; most calls are answered before theirs is due, so an
  // armed timer is not moved to a later time.
  if (due >= timerDue_) return;
  queue_.cancel(timer_);
  timerDue_ = due;
  const std::uint64_t now = monotonicMicroseconds();
  const std::chrono::microseconds delay(
      due > now ? static_cast<std::int64_t>(std::min<std::uint64_t>(due - now, 3'600'000'000)) : 0);
  timer_ = queue_.postAfter(delay, [self = weak_from_this()] {
    if (const auto connection = self.lock()) {
      connection->timerDue_ = UINT64_MAX;
      connection->process();
    }
  });
}

// Handles one message: to look for another at once costs a system call, mostly in vain. One that
// waits in the socket makes the watch ready again, one that was read already makes the timer due.
void BusConnection::process() {
  const auto self = shared_from_this();
  const int result = sd_bus_process(bus_, nullptr);
  if (result < 0) {
    fail(-result);
  } else if (sd_bus_is_open(bus_) <= 0) {
    fail(ECONNRESET);
  } else {
    update();
  }
}

void BusConnection::fail(int error) {
  watch_.reset();
  queue_.cancel(std::exchange(timer_, 0));
  sd_bus_close(bus_);
  if (const auto lost = std::exchange(lost_, nullptr)) lost(error);
}

void BusConnection::failLater(int error) {
  queue_.post([self = weak_from_this(), error] {
    if (const auto connection = self.lock()) connection->fail(error);
  });
}

}  // namespace kv
