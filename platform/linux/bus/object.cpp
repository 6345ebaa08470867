// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "platform/linux/bus/object.h"

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <utility>

namespace kv {
namespace {

// An interface in force. The table points into the strings of `interface`, which do not move.
struct Exported {
  std::weak_ptr<BusConnection> bus;
  BusInterface interface;
  std::vector<sd_bus_vtable> table;
  sd_bus_slot* slot = nullptr;

  Exported() = default;
  ~Exported() { sd_bus_slot_unref(slot); }
  Exported(const Exported&) = delete;
  Exported& operator=(const Exported&) = delete;
};

int onCall(sd_bus_message* message, void* userdata, sd_bus_error* /*error*/) {
  auto* exported = static_cast<Exported*>(userdata);
  const std::string_view member = sd_bus_message_get_member(message);
  const auto& methods = exported->interface.methods;
  // The table has nothing but these, so sd-bus asks for no other; the same goes for properties.
  const auto called = std::find_if(methods.begin(), methods.end(), [&](const auto& each) {
                        return each.name == member;
                      })->called;
  called(BusCall(exported->bus, message));
  return 1;
}

const BusInterface::Property& propertyNamed(std::string_view name, void* userdata) {
  const auto& properties = static_cast<Exported*>(userdata)->interface.properties;
  return *std::find_if(properties.begin(), properties.end(),
                       [&](const auto& each) { return each.name == name; });
}

int onGet(sd_bus* /*bus*/, const char* /*path*/, const char* /*interface*/, const char* name,
          sd_bus_message* value, void* userdata, sd_bus_error* /*error*/) {
  return propertyNamed(name, userdata).get(value) ? 0 : -EINVAL;
}

int onSet(sd_bus* /*bus*/, const char* /*path*/, const char* /*interface*/, const char* name,
          sd_bus_message* value, void* userdata, sd_bus_error* /*error*/) {
  return propertyNamed(name, userdata).set(value) ? 0 : -EINVAL;
}

void buildTable(Exported& exported) {
  exported.table.push_back(SD_BUS_VTABLE_START(0));
  for (const auto& method : exported.interface.methods) {
    exported.table.push_back(SD_BUS_METHOD(method.name.c_str(), method.arguments.c_str(),
                                           method.results.c_str(), onCall,
                                           SD_BUS_VTABLE_UNPRIVILEGED));
  }
  for (const auto& property : exported.interface.properties) {
    if (property.set) {
      exported.table.push_back(SD_BUS_WRITABLE_PROPERTY(
          property.name.c_str(), property.signature.c_str(), onGet, onSet, 0,
          SD_BUS_VTABLE_UNPRIVILEGED | SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE));
    } else {
      exported.table.push_back(SD_BUS_PROPERTY(property.name.c_str(), property.signature.c_str(),
                                               onGet, 0, SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE));
    }
  }
  exported.table.push_back(SD_BUS_VTABLE_END);
}

// A null-terminated list of C strings, as sd-bus takes them.
std::vector<char*> stringList(const std::vector<std::string>& strings) {
  std::vector<char*> list;
  list.reserve(strings.size() + 1);
  for (const auto& text : strings) list.push_back(const_cast<char*>(text.c_str()));
  list.push_back(nullptr);
  return list;
}

}  // namespace

void BusCall::reply(const std::function<void(sd_bus_message* reply)>& fill) const {
  sd_bus_message* reply = nullptr;
  sd_bus_message_new_method_return(message(), &reply);
  const BusMessage hold = BusMessage::adopt(reply);
  if (fill && hold) fill(reply);
  send(hold);
}

void BusCall::fail(const std::string& name, const std::string& text) const {
  sd_bus_message* reply = nullptr;
  sd_bus_message_new_method_errorf(message(), &reply, name.c_str(), "%s", text.c_str());
  send(BusMessage::adopt(reply));
}

void BusCall::send(const BusMessage& reply) const {
  if (const auto bus = bus_.lock()) bus->send(reply);
}

BusSlot exportInterface(const std::shared_ptr<BusConnection>& bus, const std::string& path,
                        BusInterface interface) {
  auto exported = std::make_shared<Exported>();
  exported->bus = bus;
  exported->interface = std::move(interface);
  buildTable(*exported);
  bus->use([&](sd_bus* raw) {
    return sd_bus_add_object_vtable(raw, &exported->slot, path.c_str(),
                                    exported->interface.name.c_str(), exported->table.data(),
                                    exported.get());
  });
  return BusSlot(std::move(exported));
}

BusSlot exportObjectManager(const std::shared_ptr<BusConnection>& bus, const std::string& path) {
  sd_bus_slot* slot = nullptr;
  bus->use([&](sd_bus* raw) { return sd_bus_add_object_manager(raw, &slot, path.c_str()); });
  return BusSlot(std::shared_ptr<sd_bus_slot>(slot, sd_bus_slot_unref));
}

void emitPropertiesChanged(BusConnection& bus, const std::string& path,
                           const std::string& interface, const std::vector<std::string>& names) {
  bus.use([&](sd_bus* raw) {
    return sd_bus_emit_properties_changed_strv(raw, path.c_str(), interface.c_str(),
                                               stringList(names).data());
  });
}

void emitInterfacesAdded(BusConnection& bus, const std::string& path,
                         const std::vector<std::string>& interfaces) {
  bus.use([&](sd_bus* raw) {
    return sd_bus_emit_interfaces_added_strv(raw, path.c_str(), stringList(interfaces).data());
  });
}

void emitInterfacesRemoved(BusConnection& bus, const std::string& path,
                           const std::vector<std::string>& interfaces) {
  bus.use([&](sd_bus* raw) {
    return sd_bus_emit_interfaces_removed_strv(raw, path.c_str(), stringList(interfaces).data());
  });
}

void emitSignal(BusConnection& bus, const std::string& path, const std::string& interface,
                const std::string& member,
                const std::function<void(sd_bus_message* signal)>& fill) {
  bus.use([&](sd_bus* raw) {
    sd_bus_message* signal = nullptr;
    sd_bus_message_new_signal(raw, &signal, path.c_str(), interface.c_str(), member.c_str());
    const BusMessage hold = BusMessage::adopt(signal);
    if (fill && hold) fill(signal);
    return sd_bus_send(raw, signal, nullptr);
  });
}

}  // namespace kv
