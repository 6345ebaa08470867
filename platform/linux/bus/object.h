// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// Objects that this process offers on a bus.
///
///     BusInterface adapter{.name = "org.bluez.Adapter1"};
///     adapter.methods.push_back({"StartDiscovery", "", "", [](const BusCall& call) {
///       call.reply();
///     }});
///     adapter.properties.push_back({"Powered", "b", [](sd_bus_message* value) {
///       return sd_bus_message_append(value, "b", 1) >= 0;
///     }});
///     slots.push_back(exportInterface(*bus, "/org/bluez/hci0", std::move(adapter)));
///
/// org.freedesktop.DBus.Properties and .Introspectable come with every exported object.
#ifndef PLATFORM_LINUX_BUS_OBJECT_H
#define PLATFORM_LINUX_BUS_OBJECT_H

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/linux/bus/connection.h"
#include "platform/linux/bus/message.h"

namespace kv {

/// One method call to be answered, at once or later, once. Copies answer the same call.
class BusCall {
 public:
  BusCall(std::weak_ptr<BusConnection> bus, sd_bus_message* message)
      : bus_(std::move(bus)), message_(std::make_shared<BusMessage>(BusMessage::share(message))) {}

  /// The call, to read its arguments from.
  sd_bus_message* message() const { return message_->get(); }

  /// Answers with what `fill` appends, or with nothing.
  void reply(const std::function<void(sd_bus_message* reply)>& fill = {}) const;

  void fail(const std::string& name, const std::string& text) const;

 private:
  void send(const BusMessage& reply) const;

  std::weak_ptr<BusConnection> bus_;
  std::shared_ptr<BusMessage> message_;
};

struct BusInterface {
  struct Method {
    std::string name;
    std::string arguments;  ///< Their signature.
    std::string results;    ///< Their signature.
    std::function<void(const BusCall& call)> called;
  };
  struct Property {
    std::string name;
    std::string signature;
    /// Appends the value now. False fails the request.
    std::function<bool(sd_bus_message* value)> get;
    /// Takes a new value from the message; false refuses it. Absent for a read-only property.
    std::function<bool(sd_bus_message* value)> set = {};
  };

  std::string name;
  std::vector<Method> methods = {};
  std::vector<Property> properties = {};
};

/// Offers `interface` at `path` until the slot is dropped. An object has as many interfaces as
/// there are calls for its path.
[[nodiscard]] BusSlot exportInterface(const std::shared_ptr<BusConnection>& bus,
                                      const std::string& path, BusInterface interface);

/// Makes `path` an ObjectManager of all objects below it.
[[nodiscard]] BusSlot exportObjectManager(const std::shared_ptr<BusConnection>& bus,
                                          const std::string& path);

/// Announces the current values of properties.
void emitPropertiesChanged(BusConnection& bus, const std::string& path,
                           const std::string& interface, const std::vector<std::string>& names);

/// Announces that an object's interfaces have come (with all their properties) or gone. The object
/// must be exported while it is announced.
void emitInterfacesAdded(BusConnection& bus, const std::string& path,
                         const std::vector<std::string>& interfaces);
void emitInterfacesRemoved(BusConnection& bus, const std::string& path,
                           const std::vector<std::string>& interfaces);

/// Sends a signal with what `fill` appends.
void emitSignal(BusConnection& bus, const std::string& path, const std::string& interface,
                const std::string& member,
                const std::function<void(sd_bus_message* signal)>& fill = {});

}  // namespace kv

#endif  // PLATFORM_LINUX_BUS_OBJECT_H
