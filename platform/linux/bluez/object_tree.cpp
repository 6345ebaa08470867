#include "platform/linux/bluez/object_tree.h"

#include <utility>

#include "platform/linux/bus/message.h"

namespace kv {
namespace {

constexpr std::string_view kAdapter = "org.bluez.Adapter1";
constexpr std::string_view kDevice = "org.bluez.Device1";
constexpr std::string_view kService = "org.bluez.GattService1";
constexpr std::string_view kCharacteristic = "org.bluez.GattCharacteristic1";

bool readBool(sd_bus_message* message, bool& value) {
  int read = 0;
  if (sd_bus_message_read_basic(message, 'b', &read) < 0) {
    return false;
  }
  value = read != 0;
  return true;
}

bool readText(sd_bus_message* message, char type, std::string& value) {
  const char* text = nullptr;
  if (sd_bus_message_read_basic(message, type, static_cast<void*>(&text)) < 0) {
    return false;
  }
  value = text;
  return true;
}

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

void ObjectTree::clear() {
  adapters_.clear();
  devices_.clear();
  services_.clear();
  characteristics_.clear();
}

void ObjectTree::load(sd_bus_message* objects) {
  listed_.clear();
  if (sd_bus_message_enter_container(objects, 'a', "{oa{sa{sv}}}") < 0) {
    return;
  }
  while (sd_bus_message_enter_container(objects, 'e', "oa{sa{sv}}") > 0) {
    std::string path;
    if (!readText(objects, 'o', path)) {
      return;
    }
    readInterfaces(objects, path, /*isSignal=*/false);
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
  collect(characteristics_, kCharacteristic);
  collect(services_, kService);
  collect(devices_, kDevice);
  collect(adapters_, kAdapter);
  listed_.clear();
  for (const auto& [path, interface] : gone) {
    remove(path, interface);
  }
}

void ObjectTree::interfacesAdded(sd_bus_message* signal) {
  std::string path;
  if (readText(signal, 'o', path)) {
    readInterfaces(signal, path, /*isSignal=*/true);
  }
}

void ObjectTree::readInterfaces(sd_bus_message* message, const std::string& path, bool isSignal) {
  if (sd_bus_message_enter_container(message, 'a', "{sa{sv}}") < 0) {
    return;
  }
  while (sd_bus_message_enter_container(message, 'e', "sa{sv}") > 0) {
    const char* name = nullptr;
    if (sd_bus_message_read_basic(message, 's', static_cast<void*>(&name)) < 0) {
      return;
    }
    const std::string_view interface = name;
    if (!isSignal) {
      listed_.insert(path + ' ' + name);
    }
    if (interface == kAdapter) {
      AdapterObject& adapter = adapters_.try_emplace(path).first->second;
      adapter.path = path;
      readAdapter(message, adapter);
      observer_.adaptersChanged();
    } else if (interface == kDevice) {
      DeviceObject& device = devices_.try_emplace(path).first->second;
      device.path = path;
      device.adapter = parentOf(path);
      DeviceNews news = readDevice(message, device);
      news.sighted = news.sighted && isSignal && device.rssi.has_value();
      tellDevice(device, news);
    } else if (interface == kService) {
      readService(message, path);
    } else if (interface == kCharacteristic) {
      readCharacteristic(message, path);
    } else {
      sd_bus_message_skip(message, "a{sv}");
    }
    sd_bus_message_exit_container(message);
  }
  sd_bus_message_exit_container(message);
}

void ObjectTree::propertiesChanged(sd_bus_message* signal) {
  const char* name = nullptr;
  if (sd_bus_message_read_basic(signal, 's', static_cast<void*>(&name)) < 0) {
    return;
  }
  const std::string_view interface = name;
  const std::string_view path = sd_bus_message_get_path(signal);
  if (interface == kDevice) {
    const auto device = devices_.find(path);
    if (device != devices_.end()) {
      const DeviceNews news = readDevice(signal, device->second);
      readDeviceInvalidated(signal, device->second);
      tellDevice(device->second, news);
    }
  } else if (interface == kAdapter) {
    const auto adapter = adapters_.find(path);
    if (adapter != adapters_.end() && readAdapter(signal, adapter->second)) {
      observer_.adaptersChanged();
    }
  } else if (interface == kCharacteristic && characteristics_.contains(path)) {
    std::optional<KVBytes> value;
    forEachProperty(signal, [&](std::string_view key, std::string_view type) {
      if (key != "Value" || type != "ay") {
        return false;
      }
      value = readBytes(signal);
      return value.has_value();
    });
    if (value) {
      observer_.characteristicValue(path, *value);
    }
  }
}

void ObjectTree::readDeviceInvalidated(sd_bus_message* message, DeviceObject& device) {
  for (const std::string& name : readStrings(message)) {
    if (name == "RSSI") {
      device.rssi.reset();
    }
  }
}

void ObjectTree::tellDevice(DeviceObject& device, DeviceNews news) {
  if (news.state) {
    observer_.deviceChanged(device);
  }
  if (news.sighted) {
    observer_.deviceSeen(device);
  }
}

bool ObjectTree::readAdapter(sd_bus_message* message, AdapterObject& adapter) {
  bool changed = false;
  forEachProperty(message, [&](std::string_view key, std::string_view type) {
    if (key == "Address" && type == "s") {
      changed = true;
      return readText(message, 's', adapter.address);
    }
    if (key == "Powered" && type == "b") {
      changed = true;
      return readBool(message, adapter.powered);
    }
    if (key == "Discovering" && type == "b") {
      changed = true;
      return readBool(message, adapter.discovering);
    }
    return false;
  });
  return changed;
}

ObjectTree::DeviceNews ObjectTree::readDevice(sd_bus_message* message, DeviceObject& device) {
  DeviceNews news;
  forEachProperty(message, [&](std::string_view key, std::string_view type) {
    if (key == "RSSI" && type == "n") {
      std::int16_t rssi = 0;
      if (sd_bus_message_read_basic(message, 'n', &rssi) < 0) {
        return false;
      }
      device.rssi = rssi;
      news.sighted = true;
    } else if (key == "ServiceData" && type == "a{sv}") {
      readServiceData(message, device);
      news.sighted = true;
    } else if (key == "Connected" && type == "b") {
      news.state = true;
      return readBool(message, device.connected);
    } else if (key == "ServicesResolved" && type == "b") {
      news.state = true;
      return readBool(message, device.servicesResolved);
    } else if (key == "Address" && type == "s") {
      return readText(message, 's', device.address);
    } else if (key == "AddressType" && type == "s") {
      std::string kind;
      const bool read = readText(message, 's', kind);
      device.randomAddress = kind == "random";
      return read;
    } else if (key == "UUIDs" && type == "as") {
      device.uuids.clear();
      for (const std::string& text : readStrings(message)) {
        if (const auto uuid = KVUUID::fromString(text)) {
          device.uuids.push_back(*uuid);
        }
      }
    } else {
      return false;
    }
    return true;
  });
  return news;
}

void ObjectTree::readServiceData(sd_bus_message* message, DeviceObject& device) {
  // Entries are overwritten in place: a tag that keeps advertising costs no allocation.
  std::size_t count = 0;
  forEachBytes(message, [&](std::string_view key, KVBytes value) {
    const auto uuid = KVUUID::fromString(key);
    if (!uuid) {
      return;
    }
    if (count == device.serviceData.size()) {
      device.serviceData.push_back({*uuid, {}});
    }
    DeviceObject::ServiceData& entry = device.serviceData[count++];
    entry.uuid = *uuid;
    entry.value.assign(value.begin(), value.end());
  });
  device.serviceData.erase(device.serviceData.begin() + static_cast<std::ptrdiff_t>(count),
                           device.serviceData.end());
}

void ObjectTree::readService(sd_bus_message* message, const std::string& path) {
  std::optional<KVUUID> uuid;
  forEachProperty(message, [&](std::string_view key, std::string_view type) {
    std::string text;
    if (key != "UUID" || type != "s" || !readText(message, 's', text)) {
      return false;
    }
    uuid = KVUUID::fromString(text);
    return true;
  });
  if (uuid) {
    services_.insert_or_assign(path, ServiceObject{*uuid});
  }
}

void ObjectTree::readCharacteristic(sd_bus_message* message, const std::string& path) {
  std::optional<KVUUID> uuid;
  forEachProperty(message, [&](std::string_view key, std::string_view type) {
    std::string text;
    if (key != "UUID" || type != "s" || !readText(message, 's', text)) {
      return false;
    }
    uuid = KVUUID::fromString(text);
    return true;
  });
  if (uuid) {
    characteristics_.insert_or_assign(path, CharacteristicObject{parentOf(path), *uuid});
  }
}

void ObjectTree::interfacesRemoved(sd_bus_message* signal) {
  std::string path;
  if (readText(signal, 'o', path)) {
    for (const std::string& interface : readStrings(signal)) {
      remove(path, interface);
    }
  }
}

void ObjectTree::remove(const std::string& path, std::string_view interface) {
  if (interface == kDevice) {
    if (auto node = devices_.extract(path)) {
      node.mapped().connected = false;
      node.mapped().servicesResolved = false;
      observer_.deviceRemoved(node.mapped());
    }
  } else if (interface == kAdapter) {
    if (adapters_.erase(path) > 0) {
      observer_.adaptersChanged();
    }
  } else if ((interface == kService && services_.erase(path) > 0) ||
             (interface == kCharacteristic && characteristics_.erase(path) > 0)) {
    observer_.attributeRemoved(path);
  }
}

DeviceObject* ObjectTree::device(std::string_view adapter, std::string_view address) {
  std::string path = std::string(adapter) + "/dev_" + std::string(address);
  for (char& letter : path) {
    letter = letter == ':' ? '_' : letter;
  }
  const auto found = devices_.find(path);
  return found == devices_.end() ? nullptr : &found->second;
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
