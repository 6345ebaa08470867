// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// Follows one adapter of BlueZ, and the devices that are connected to it.
#ifndef SIMULATOR_AIR_ADAPTER_WATCH_H
#define SIMULATOR_AIR_ADAPTER_WATCH_H

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/linux/bus/connection.h"
#include "platform/linux/bus/message.h"

namespace kvsim {

inline constexpr const char* kBlueZ = "org.bluez";

/// What is known of an adapter.
struct AdapterInfo {
  std::string path;
  std::string address;
  bool powered = false;
  bool canAdvertise = false;
};

class AdapterWatch {
 public:
  struct Events {
    /// Something about the adapter or bluetoothd may have changed.
    std::function<void()> changed;
    /// A device of the adapter has connected or disconnected.
    std::function<void(const std::string& device, bool connected)> device;
  };

  /// `wanted` is as in `AirTagOptions::adapter`.
  AdapterWatch(std::shared_ptr<kv::BusConnection> bus, std::string wanted, Events events);
  AdapterWatch(const AdapterWatch&) = delete;
  AdapterWatch& operator=(const AdapterWatch&) = delete;

  /// The adapter that is wanted; absent while there is none.
  std::optional<AdapterInfo> adapter() const;

  bool servicePresent() const { return present_; }

 private:
  void watchSignals();
  void listObjects();
  void readList(sd_bus_message* reply);
  void ownerChanged(sd_bus_message* signal);
  void interfacesAdded(sd_bus_message* signal);
  void interfacesRemoved(sd_bus_message* signal);
  void propertiesChanged(sd_bus_message* signal);
  void readInterfaces(const std::string& path, sd_bus_message* message);
  void readProperties(const std::string& path, const std::string& interface,
                      sd_bus_message* message);
  void setConnected(const std::string& device, bool connected);
  void forgetAll();

  std::shared_ptr<kv::BusConnection> bus_;
  const std::string wanted_;
  const Events events_;
  std::vector<kv::BusSlot> matches_;
  kv::BusSlot listing_;
  bool present_ = false;
  std::map<std::string, AdapterInfo> adapters_;  // by path
  std::set<std::string> connected_;              // paths of devices, of all adapters
};

}  // namespace kvsim

#endif  // SIMULATOR_AIR_ADAPTER_WATCH_H
