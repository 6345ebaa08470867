// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// A virtual tag's services as a GATT application of BlueZ.
#ifndef SIMULATOR_AIR_GATT_APPLICATION_H
#define SIMULATOR_AIR_GATT_APPLICATION_H

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "KVFobLink/KVLinuxPlatform.h"
#include "KVFobSimulator/VirtualTag.h"
#include "platform/linux/bus/connection.h"
#include "platform/linux/bus/object.h"

namespace kvsim {

/// Exports the services, and takes what centrals ask for to the tag.
class GattApplication {
 public:
  /// Whether the central that is this device may use the tag now.
  using Admit = std::function<bool(const std::string& device)>;

  /// Where the application is on the bus.
  static constexpr const char* kPath = "/kvfob/tag";

  GattApplication(const std::shared_ptr<KVLinuxEventQueue>& queue,
                  std::shared_ptr<kv::BusConnection> bus, std::shared_ptr<VirtualTag> tag,
                  Admit admit);
  GattApplication(const GattApplication&) = delete;
  GattApplication& operator=(const GattApplication&) = delete;

  /// Puts the objects on the bus.
  void start();

  void notify(GattHandle characteristic, KVData value);

 private:
  struct Exported {
    std::string path;
    KVData value;  // of the last notification
  };

  void exportService(const GattService& service, const std::string& path);
  void exportCharacteristic(const GattCharacteristic& characteristic, const std::string& service,
                            const std::string& path);
  void read(GattHandle handle, const kv::BusCall& call);
  void write(GattHandle handle, const kv::BusCall& call);
  void subscribe(GattHandle handle, bool enabled, const kv::BusCall& call);
  bool admitted(const kv::BusCall& call) const;
  void answer(const std::optional<GattAnswer>& answer, bool withValue, const kv::BusCall& call);

  const std::weak_ptr<KVLinuxEventQueue> queue_;
  const std::shared_ptr<kv::BusConnection> bus_;
  const std::shared_ptr<VirtualTag> tag_;
  const Admit admit_;
  std::vector<kv::BusSlot> slots_;
  std::map<GattHandle, Exported> characteristics_;
};

}  // namespace kvsim

#endif  // SIMULATOR_AIR_GATT_APPLICATION_H
