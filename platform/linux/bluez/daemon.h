// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// bluetoothd, as seen over the bus: whether it is there, and our copy of its objects.
#ifndef PLATFORM_LINUX_BLUEZ_DAEMON_H
#define PLATFORM_LINUX_BLUEZ_DAEMON_H

#include <array>
#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "platform/linux/bluez/context.h"
#include "platform/linux/bluez/object_tree.h"
#include "platform/linux/bus/connection.h"

namespace kv {

class Daemon {
 public:
  enum class State {
    Unknown,  ///< Not asked yet.
    Absent,   ///< No bus, or org.bluez has no owner.
    Denied,   ///< The bus does not let us talk to it.
    Ready,    ///< The tree is complete.
  };

  /// `changed` is called after each change of the state. `keeper` is whatever owns this object: it
  /// is kept alive while a signal is handled, so a signal's observer may drop it.
  Daemon(Context& context, ObjectTreeObserver& observer, std::function<void()> changed);

  void start(std::weak_ptr<void> keeper);

  State state() const { return state_; }
  ObjectTree& tree() { return tree_; }
  const ObjectTree& tree() const { return tree_; }

  /// A call of org.bluez, to fill in. Empty while there is no bus.
  BusMessage methodCall(const std::string& path, const char* interface, const char* member) const;
  [[nodiscard]] BusSlot call(BusMessage message, std::chrono::milliseconds timeout,
                             BusConnection::Answer answered);
  /// A call whose outcome does not matter.
  void send(const BusMessage& message);

  /// Reads all objects anew. The signals that were sent before have been handled when `done` is
  /// called. `done` is not called if the daemon goes away meanwhile.
  [[nodiscard]] BusSlot refresh(std::function<void()> done);

 private:
  void open();
  void lost(int error);
  void ownerKnown(const BusMessage& reply, const BusFault& error);
  void ownerChanged(sd_bus_message* signal);
  void setOwner(const std::string& owner);
  void load();
  void loaded(const BusMessage& reply, const BusFault& error);
  void onSignal(const BusMessage& signal, void (ObjectTree::*handle)(sd_bus_message*));
  void setState(State state);
  BusSlot match(const std::string& rule, void (ObjectTree::*handle)(sd_bus_message*));

  Context& context_;
  ObjectTree tree_;
  std::function<void()> changed_;
  std::weak_ptr<void> keeper_;
  State state_ = State::Unknown;
  std::string owner_;  ///< The daemon's unique name; signals of any other sender are stale.
  std::chrono::milliseconds retry_{0};
  Timer timer_;
  std::shared_ptr<BusConnection> bus_;
  std::array<BusSlot, 5> matches_;
  BusSlot ownerCall_;
  BusSlot loadCall_;
};

}  // namespace kv

#endif  // PLATFORM_LINUX_BLUEZ_DAEMON_H
