// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// Our copy of the daemon's objects, kept by its signals.
#ifndef PLATFORM_LINUX_BLUEZ_OBJECT_TREE_H
#define PLATFORM_LINUX_BLUEZ_OBJECT_TREE_H

#include <systemd/sd-bus.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "KVFobLink/KVTypes.h"
#include "KVFobLink/KVUUID.h"

namespace kv {

class BlueZPeripheral;

struct AdapterObject {
  std::string path;
  std::string address;
  std::string name;
  std::string modalias;  ///< Names the daemon and its version, as "usb:v1D6Bp0246d0542".
  bool powered = false;
  bool discovering = false;

  /// Whether it is meant by "hci0" or by an address, which still names the adapter when it has come
  /// back under another number.
  bool isNamed(const std::string& wanted) const;
};

struct DeviceObject {
  struct ServiceData {
    KVUUID uuid;
    KVData value;
  };
  std::string path;
  std::string adapter;  ///< The adapter's path.
  std::string address;
  bool randomAddress = false;
  bool connected = false;
  bool servicesResolved = false;
  std::string preferredBearer;  ///< Empty where the daemon offers no choice.
  /// Of the latest advertisement, absent when it is not known any more.
  std::optional<std::int64_t> rssi;
  std::vector<KVUUID> uuids;
  /// In the daemon's order. It keeps what it heard in earlier runs, so this alone does not show
  /// that the device is near.
  std::vector<ServiceData> serviceData;
  /// The handle that stands for this device, once it was needed.
  std::shared_ptr<BlueZPeripheral> handle;
};

struct ServiceObject {
  KVUUID uuid;
};

struct CharacteristicObject {
  std::string service;  ///< The service's path.
  KVUUID uuid;
};

/// Learns of what changes. The tree is whole when it calls, and is not changed during the call.
class ObjectTreeObserver {
 public:
  virtual ~ObjectTreeObserver() = default;
  virtual void adaptersChanged() = 0;
  /// An advertisement of the device was heard.
  virtual void deviceHeard(DeviceObject& device) = 0;
  /// Its connected or resolved state has changed.
  virtual void deviceChanged(DeviceObject& device) = 0;
  /// Its link has ended, and why, as the daemon puts it.
  virtual void deviceDisconnected(DeviceObject& device, const std::string& why) = 0;
  virtual void deviceRemoved(DeviceObject& device) = 0;
  virtual void characteristicValue(std::string_view path, KVBytes value) = 0;
  /// A service or characteristic is gone.
  virtual void attributeRemoved(std::string_view path) = 0;
};

class ObjectTree {
 public:
  explicit ObjectTree(ObjectTreeObserver& observer) : observer_(observer) {}

  /// Takes the reply of GetManagedObjects: what it does not list is removed.
  void load(sd_bus_message* objects);
  /// Takes an InterfacesAdded, InterfacesRemoved or PropertiesChanged signal.
  void interfacesAdded(sd_bus_message* signal);
  void interfacesRemoved(sd_bus_message* signal);
  void propertiesChanged(sd_bus_message* signal);
  /// Takes a Disconnected signal.
  void disconnected(sd_bus_message* signal);
  /// Forgets everything, without telling.
  void clear();

  const std::map<std::string, AdapterObject, std::less<>>& adapters() const { return adapters_; }
  DeviceObject* device(std::string_view adapter, std::string_view address);
  /// The devices of an adapter that are connected, by whichever program.
  std::vector<DeviceObject*> connectedDevices(std::string_view adapter);

  /// Calls `visit(path, object)` for each service below `path` in the order of the paths, which is
  /// the order of the attribute handles.
  void forEachService(
      std::string_view path,
      const std::function<void(const std::string&, const ServiceObject&)>& visit) const;
  void forEachCharacteristic(
      std::string_view service,
      const std::function<void(const std::string&, const CharacteristicObject&)>& visit) const;
  bool hasServices(std::string_view device) const;

 private:
  struct PathHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view path) const {
      return std::hash<std::string_view>()(path);
    }
  };

  /// What one signal says about a device.
  struct DeviceUpdate {
    bool advertised = false;  ///< It was heard.
    bool connection = false;  ///< Its connected or resolved state was signalled.
  };

  void readInterfaces(sd_bus_message* message, const std::string& path, bool isSignal);
  static void readAdapter(sd_bus_message* message, AdapterObject& adapter);
  static DeviceUpdate readDevice(sd_bus_message* message, DeviceObject& device);
  static bool readIdentity(sd_bus_message* message, std::string_view key, std::string_view type,
                           DeviceObject& device);
  static void readServiceData(sd_bus_message* message, DeviceObject& device);
  void readService(sd_bus_message* message, const std::string& path);
  void readCharacteristic(sd_bus_message* message, const std::string& path);
  void reportDevice(DeviceObject& device, DeviceUpdate update);
  static void readDeviceInvalidated(sd_bus_message* message, DeviceObject& device);
  void remove(const std::string& path, std::string_view interface);

  ObjectTreeObserver& observer_;
  std::map<std::string, AdapterObject, std::less<>> adapters_;
  std::unordered_map<std::string, DeviceObject, PathHash, std::equal_to<>> devices_;
  std::map<std::string, ServiceObject, std::less<>> services_;
  std::map<std::string, CharacteristicObject, std::less<>> characteristics_;
  std::set<std::string> listed_;  ///< While a list is being loaded: "path interface".
};

}  // namespace kv

#endif  // PLATFORM_LINUX_BLUEZ_OBJECT_TREE_H
