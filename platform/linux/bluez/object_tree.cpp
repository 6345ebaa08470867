// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "platform/linux/bluez/object_tree.h"

#include <strings.h>

#include <utility>

#include "platform/linux/bus/message.h"
#include "platform/linux/bus/names.h"

namespace kv {
namespace {

std::string parentOf(std::string_view path) { return std::string(path.substr(0, path.rfind('/'))); }

// The objects below `path`, in order.
template <typename Map, typename Visit>
void forEachBelow(const Map& map, std::string_view path, const Visit& visit) {
  const std::string prefix = std::string(path) + '/';
  for (auto each = map.lower_bound(prefix); each != map.end() && each->first.starts_with(prefix);
       ++each) {
    visit(each->first, each->second);
  }
}

}  // namespace

// The daemon writes addresses in capitals, people do not.
bool AdapterObject::isNamed(const std::string& wanted) const {
  return path == std::string(bluez::kRootPath) + '/' + wanted ||
         strcasecmp(address.c_str(), wanted.c_str()) == 0;
}

void ObjectTree::clear() {
  adapters_.clear();
  devices_.clear();
  services_.clear();
  characteristics_.clear();
}

void ObjectTree::load(sd_bus_message* objects) {
  if (!enter(objects, 'a', "{oa{sa{sv}}}")) return;
  while (enter(objects, 'e', "oa{sa{sv}}")) {
    readInterfaces(objects, readText(objects, 'o'), /*isSignal=*/false);
    sd_bus_message_exit_container(objects);
  }
  std::vector<std::pair<std::string, std::string_view>> gone;
  const auto collect = [&](const auto& map, std::string_view interface) {
    for (const auto& [path, object] : map) {
      if (!listed_.contains(path + ' ' + std::string(interface))) {
        gone.emplace_back(path, interface);
      }
    }
  };
  // What lies below goes first, as when the daemon itself removes a device.
  collect(characteristics_, bluez::kGattCharacteristic);
  collect(services_, bluez::kGattService);
  collect(devices_, bluez::kDevice);
  collect(adapters_, bluez::kAdapter);
  listed_.clear();
  for (const auto& [path, interface] : gone) remove(path, interface);
}

void ObjectTree::interfacesAdded(sd_bus_message* signal) {
  readInterfaces(signal, readText(signal, 'o'), /*isSignal=*/true);
}

void ObjectTree::readInterfaces(sd_bus_message* message, const std::string& path, bool isSignal) {
  if (!enter(message, 'a', "{sa{sv}}")) return;
  while (enter(message, 'e', "sa{sv}")) {
    const std::string interface = readText(message);
    if (!isSignal) listed_.insert(std::string(path).append(" ").append(interface));
    if (interface == bluez::kAdapter) {
      AdapterObject& adapter = adapters_.try_emplace(path).first->second;
      adapter.path = path;
      readAdapter(message, adapter);
      observer_.adaptersChanged();
    } else if (interface == bluez::kDevice) {
      DeviceObject& device = devices_.try_emplace(path).first->second;
      device.path = path;
      device.adapter = parentOf(path);
      DeviceUpdate update = readDevice(message, device);
      // One that the daemon remembers comes with what it last advertised, but without RSSI.
      update.advertised = update.advertised && isSignal && device.rssi.has_value();
      reportDevice(device, update);
    } else if (interface == bluez::kGattService) {
      readService(message, path);
    } else if (interface == bluez::kGattCharacteristic) {
      readCharacteristic(message, path);
    } else {
      sd_bus_message_skip(message, "a{sv}");
    }
    sd_bus_message_exit_container(message);
  }
  sd_bus_message_exit_container(message);
}

void ObjectTree::propertiesChanged(sd_bus_message* signal) {
  const std::string_view interface = readText(signal);
  const std::string_view path = sd_bus_message_get_path(signal);
  if (interface == bluez::kDevice) {
    const auto device = devices_.find(path);
    if (device != devices_.end()) {
      const DeviceUpdate update = readDevice(signal, device->second);
      readDeviceInvalidated(signal, device->second);
      reportDevice(device->second, update);
    }
  } else if (interface == bluez::kAdapter) {
    const auto adapter = adapters_.find(path);
    if (adapter != adapters_.end()) {
      readAdapter(signal, adapter->second);
      observer_.adaptersChanged();
    }
  } else if (interface == bluez::kGattCharacteristic && characteristics_.contains(path)) {
    std::optional<KVBytes> value;
    forEachProperty(signal, [&](std::string_view key, std::string_view type) {
      if (key != "Value" || type != "ay") return false;
      value = readBytes(signal);
      return value.has_value();
    });
    if (value) observer_.characteristicValue(path, *value);
  }
}

void ObjectTree::disconnected(sd_bus_message* signal) {
  const auto device = devices_.find(std::string_view(sd_bus_message_get_path(signal)));
  const char* reason = nullptr;
  const char* text = nullptr;
  if (device != devices_.end() && sd_bus_message_read(signal, "ss", &reason, &text) >= 0) {
    observer_.deviceDisconnected(device->second, std::string(text) + " (" + reason + ')');
  }
}

void ObjectTree::reportDevice(DeviceObject& device, DeviceUpdate update) {
  if (update.connection) observer_.deviceChanged(device);
  if (update.advertised) observer_.deviceHeard(device);
}

void ObjectTree::interfacesRemoved(sd_bus_message* signal) {
  const std::string path = readText(signal, 'o');
  for (const std::string& interface : readStrings(signal)) remove(path, interface);
}

void ObjectTree::remove(const std::string& path, std::string_view interface) {
  if (interface == bluez::kDevice) {
    if (auto node = devices_.extract(path)) {
      node.mapped().connected = false;
      node.mapped().servicesResolved = false;
      observer_.deviceRemoved(node.mapped());
    }
  } else if (interface == bluez::kAdapter) {
    if (adapters_.erase(path) > 0) observer_.adaptersChanged();
  } else if ((interface == bluez::kGattService && services_.erase(path) > 0) ||
             (interface == bluez::kGattCharacteristic && characteristics_.erase(path) > 0)) {
    observer_.attributeRemoved(path);
  }
}

DeviceObject* ObjectTree::device(std::string_view adapter, std::string_view address) {
  std::string path = std::string(adapter) + "/dev_" + std::string(address);
  for (char& letter : path) letter = letter == ':' ? '_' : letter;
  const auto found = devices_.find(path);
  return found == devices_.end() ? nullptr : &found->second;
}

std::vector<DeviceObject*> ObjectTree::connectedDevices(std::string_view adapter) {
  std::vector<DeviceObject*> connected;
  for (auto& [path, device] : devices_) {
    if (device.connected && device.adapter == adapter) connected.push_back(&device);
  }
  return connected;
}

void ObjectTree::forEachService(
    std::string_view path,
    const std::function<void(const std::string&, const ServiceObject&)>& visit) const {
  forEachBelow(services_, path, visit);
}

void ObjectTree::forEachCharacteristic(
    std::string_view service,
    const std::function<void(const std::string&, const CharacteristicObject&)>& visit) const {
  forEachBelow(characteristics_, service, visit);
}

bool ObjectTree::hasServices(std::string_view device) const {
  bool any = false;
  forEachBelow(services_, device, [&](const auto&, const auto&) { any = true; });
  return any;
}

}  // namespace kv
