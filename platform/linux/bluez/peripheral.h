// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// The handles that the BlueZ central gives out.
#ifndef PLATFORM_LINUX_BLUEZ_PERIPHERAL_H
#define PLATFORM_LINUX_BLUEZ_PERIPHERAL_H

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "KVFobLink/KVBluetooth.h"
#include "platform/linux/bus/weak_queue.h"

namespace kv {

class CentralCore;
class GattSession;

class BlueZService : public KVService {
 public:
  BlueZService(KVUUID uuid, std::string path) : KVService(uuid), path_(std::move(path)) {}
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

class BlueZCharacteristic : public KVCharacteristic {
 public:
  BlueZCharacteristic(KVUUID uuid, std::weak_ptr<KVService> service, std::string path)
      : KVCharacteristic(uuid, std::move(service)), path_(std::move(path)) {}
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

/// A device, by its address. It holds nothing of the connection, so it may be dropped anywhere; its
/// requests reach the link of its address, if there is one.
class BlueZPeripheral : public KVPeripheral, public std::enable_shared_from_this<BlueZPeripheral> {
 public:
  BlueZPeripheral(std::string address, std::weak_ptr<CentralCore> core, WeakLinuxQueue queue)
      : address_(std::move(address)), core_(std::move(core)), queue_(std::move(queue)) {}

  const std::string& identifier() const override { return address_; }
  std::int64_t state() const override { return state_; }
  void setDelegate(std::weak_ptr<KVPeripheralDelegate> delegate) override {
    delegate_ = std::move(delegate);
  }
  const std::vector<std::shared_ptr<KVService>>& services() const override { return services_; }
  void discoverServices() override;
  void discoverCharacteristics(const std::shared_ptr<KVService>& service) override;
  void setNotifyValue(bool enabled,
                      const std::shared_ptr<KVCharacteristic>& characteristic) override;
  void readValue(const std::shared_ptr<KVCharacteristic>& characteristic) override;
  void writeValue(const std::optional<KVData>& value,
                  const std::shared_ptr<KVCharacteristic>& characteristic,
                  KVWriteType type) override;
  void readRSSI() override;

  void setState(KVPeripheralState state) { state_ = state; }
  void setServices(std::vector<std::shared_ptr<KVService>> services) {
    services_ = std::move(services);
  }
  std::shared_ptr<KVPeripheralDelegate> delegate() const { return delegate_.lock(); }

 private:
  /// Calls `request(session)` if the link is up.
  template <typename Request>
  void withSession(const Request& request);

  const std::string address_;
  const std::weak_ptr<CentralCore> core_;
  const WeakLinuxQueue queue_;
  std::atomic<std::int64_t> state_{KVPeripheralStateDisconnected};
  std::weak_ptr<KVPeripheralDelegate> delegate_;
  std::vector<std::shared_ptr<KVService>> services_;
};

}  // namespace kv

#endif  // PLATFORM_LINUX_BLUEZ_PERIPHERAL_H
