// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// One connection to a message bus, driven by an event queue.
///
///     auto bus = BusConnection::open(queue, /*address=*/"", [](int error) { ... });
///     BusMessage call = bus->methodCall("org.bluez", "/org/bluez/hci0", "org.bluez.Adapter1",
///                                       "StartDiscovery");
///     pending_ = bus->call(std::move(call), 10s,
///                          [](const BusMessage& reply, const BusFault& error) { ... });
///
/// Nothing here blocks: connecting, authentication and the installing of matches all happen while
/// the queue runs, and what is sent meanwhile waits. Everything is for the event thread. Callbacks
/// run only while the queue dispatches; one may drop its own slot, any other, or the connection.
#ifndef PLATFORM_LINUX_BUS_CONNECTION_H
#define PLATFORM_LINUX_BUS_CONNECTION_H

#include <systemd/sd-bus.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "KVFobLink/KVLinuxPlatform.h"
#include "platform/linux/bus/message.h"
#include "platform/linux/bus/weak_queue.h"

namespace kv {

/// Keeps a pending call, a match or an exported object in force. Dropping it ends that: its
/// callback is not called any more. May outlive its connection.
class BusSlot {
 public:
  BusSlot() = default;
  /// For the bus layer: whatever ends the thing when it is destroyed.
  explicit BusSlot(std::shared_ptr<void> hold) : hold_(std::move(hold)) {}

  BusSlot(BusSlot&&) noexcept = default;
  BusSlot& operator=(BusSlot&&) noexcept = default;

  explicit operator bool() const { return hold_ != nullptr; }
  void reset() { hold_.reset(); }

 private:
  std::shared_ptr<void> hold_;
};

class BusConnection : public std::enable_shared_from_this<BusConnection> {
 public:
  using Handler = std::function<void(const BusMessage& message)>;
  /// Takes the reply of a call, or the error with which it ended; `reply` is then the error's own
  /// message, or empty.
  using Answer = std::function<void(const BusMessage& reply, const BusFault& error)>;

  /// Connects to `address`, or to the system bus when it is empty. `lost` is called once, with an
  /// errno value, when the connection cannot be made or has ended; calls that are pending then are
  /// never answered. Nothing is called after the last reference is gone.
  static std::shared_ptr<BusConnection> open(WeakLinuxQueue queue, const std::string& address,
                                             std::function<void(int error)> lost);

  BusConnection(const BusConnection&) = delete;
  BusConnection& operator=(const BusConnection&) = delete;

  /// A method call to fill in and send, which starts no service. Empty when the connection is lost,
  /// which `call` and `send` take as a call that fails.
  BusMessage methodCall(const std::string& destination, const std::string& path,
                        const char* interface, const char* member) const;

  /// Sends `message` and hands the reply to `answered`, exactly once, unless the slot is dropped or
  /// the connection is lost before. What cannot be sent fails with
  /// "org.freedesktop.DBus.Error.Disconnected", what is not answered within `timeout` with
  /// "...NoReply".
  static constexpr std::chrono::milliseconds kDefaultTimeout{0};  ///< That of sd-bus.
  [[nodiscard]] BusSlot call(BusMessage message, std::chrono::milliseconds timeout,
                             Answer answered);

  /// Sends a message whose reply is of no interest.
  void send(const BusMessage& message);

  /// Calls `matched` for every message that fits the match rule, from the moment when the bus has
  /// accepted the rule; calls that are sent after this one see it in force. `refused` (optional)
  /// tells that the bus did not accept it.
  [[nodiscard]] BusSlot match(const std::string& rule, Handler matched,
                              std::function<void(const BusError&)> refused = {});

  /// Asks for a well-known name. `done` gets the reply of RequestName (a `u`), or an error.
  [[nodiscard]] BusSlot requestName(const std::string& name, Answer done);

  /// Our own name on the bus, as ":1.42"; empty until the connection is ready.
  std::string uniqueName() const;

  /// Calls `with(connection)`, for what this class does not offer, and returns what that returns.
  template <typename With>
  auto use(const With& with) {
    const auto result = with(bus_.get());
    update();
    return result;
  }

 private:
  struct Close {
    void operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }
  };

  BusConnection(WeakLinuxQueue queue, std::function<void(int error)> lost);

  void start(const std::string& address);
  /// Looks again at what the connection waits for.
  void update();
  void armTimer();
  void process();
  void fail(int error);

  const WeakLinuxQueue queue_;
  std::function<void(int error)> lost_;
  std::unique_ptr<sd_bus, Close> bus_;
  std::unique_ptr<KVLinuxEventQueue::Watch> watch_;  ///< Null before the start and after the loss.
  Timer timer_;
  std::uint64_t timerDue_ = UINT64_MAX;
};

}  // namespace kv

#endif  // PLATFORM_LINUX_BUS_CONNECTION_H
