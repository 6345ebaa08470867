// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// Reading what the daemon says of one object.
#include <functional>
#include <optional>
#include <utility>

#include "platform/linux/bluez/object_tree.h"
#include "platform/linux/bus/message.h"
#include "platform/linux/bus/names.h"

namespace kv {
namespace {

std::optional<KVUUID> readUuid(sd_bus_message* properties) {
  std::optional<KVUUID> uuid;
  forEachProperty(properties, [&](std::string_view key, std::string_view type) {
    if (key != "UUID" || type != "s") return false;
    uuid = KVUUID::fromString(readText(properties));
    return true;
  });
  return uuid;
}

}  // namespace

void ObjectTree::readDeviceInvalidated(sd_bus_message* message, DeviceObject& device) {
  for (const std::string& name : readStrings(message)) {
    if (name == "RSSI") device.rssi.reset();
  }
}

void ObjectTree::readAdapter(sd_bus_message* message, AdapterObject& adapter) {
  forEachProperty(message, [&](std::string_view key, std::string_view type) {
    if (key == "Address" && type == "s") {
      adapter.address = readText(message);
    } else if (key == "Alias" && type == "s") {
      adapter.name = readText(message);
    } else if (key == "Modalias" && type == "s") {
      adapter.modalias = readText(message);
    } else if (key == "Powered" && type == "b") {
      adapter.powered = readBool(message);
    } else if (key == "Discovering" && type == "b") {
      adapter.discovering = readBool(message);
    } else {
      return false;
    }
    return true;
  });
}

ObjectTree::DeviceUpdate ObjectTree::readDevice(sd_bus_message* message, DeviceObject& device) {
  DeviceUpdate update;
  const auto read = [&](std::string_view key, std::string_view type) {
    if (key == "RSSI" && type == "n") {
      std::int16_t rssi{};
      sd_bus_message_read_basic(message, 'n', &rssi);
      device.rssi = rssi;
      update.advertised = true;
    } else if (key == "ServiceData" && type == "a{sv}") {
      readServiceData(message, device);
      update.advertised = true;
    } else if (key == "Connected" && type == "b") {
      device.connected = readBool(message);
      update.connection = true;
    } else if (key == "ServicesResolved" && type == "b") {
      device.servicesResolved = readBool(message);
      update.connection = true;
    } else {
      return readIdentity(message, key, type, device);
    }
    return true;
  };
  forEachProperty(message, std::ref(read));  // a reference costs no allocation
  return update;
}

// What does not change while the device is known, or hardly. False for anything else.
bool ObjectTree::readIdentity(sd_bus_message* message, std::string_view key, std::string_view type,
                              DeviceObject& device) {
  if (key == "Address" && type == "s") {
    device.address = readText(message);
  } else if (key == "AddressType" && type == "s") {
    device.randomAddress = std::string_view(readText(message)) == "random";
  } else if (key == bluez::kPreferredBearer && type == "s") {
    device.preferredBearer = readText(message);
  } else if (key == "UUIDs" && type == "as") {
    device.uuids.clear();
    for (const std::string& text : readStrings(message)) {
      if (const auto uuid = KVUUID::fromString(text)) device.uuids.push_back(*uuid);
    }
  } else {
    return false;
  }
  return true;
}

void ObjectTree::readServiceData(sd_bus_message* message, DeviceObject& device) {
  // Entries are overwritten in place: a tag that keeps advertising costs no allocation.
  std::size_t count = 0;
  forEachBytes(message, [&](std::string_view key, KVBytes value) {
    const auto uuid = KVUUID::fromString(key);
    if (!uuid) return;
    if (count == device.serviceData.size()) device.serviceData.push_back({*uuid, {}});
    DeviceObject::ServiceData& entry = device.serviceData[count++];
    entry.uuid = *uuid;
    entry.value.assign(value.begin(), value.end());
  });
  device.serviceData.erase(device.serviceData.begin() + static_cast<std::ptrdiff_t>(count),
                           device.serviceData.end());
}

void ObjectTree::readService(sd_bus_message* message, const std::string& path) {
  if (const auto uuid = readUuid(message)) services_.insert_or_assign(path, ServiceObject{*uuid});
}

void ObjectTree::readCharacteristic(sd_bus_message* message, const std::string& path) {
  if (const auto uuid = readUuid(message)) {
    const std::string service = path.substr(0, path.rfind('/'));
    characteristics_.insert_or_assign(path, CharacteristicObject{service, *uuid});
  }
}

}  // namespace kv
