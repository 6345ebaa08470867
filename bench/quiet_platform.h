// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// A platform whose radio does nothing, so that what is measured is the library alone.
#ifndef BENCH_QUIET_PLATFORM_H
#define BENCH_QUIET_PLATFORM_H

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "KVFobLink/KVLinuxPlatform.h"
#include "KVFobLink/KVTrackerManager.h"

namespace kvbench {

class QuietLog final : public KVLog {
 public:
  void write(std::string_view /*line*/) override {}
};

class QuietPeripheral final : public KVPeripheral {
 public:
  explicit QuietPeripheral(std::string identifier) : identifier_(std::move(identifier)) {}

  const std::string& identifier() const override { return identifier_; }
  std::int64_t state() const override { return KVPeripheralStateDisconnected; }
  void setDelegate(std::weak_ptr<KVPeripheralDelegate> delegate) override {
    delegate_ = std::move(delegate);
  }
  const std::vector<std::shared_ptr<KVService>>& services() const override { return services_; }
  void discoverServices() override {}
  void discoverCharacteristics(const std::shared_ptr<KVService>& /*service*/) override {}
  void setNotifyValue(bool /*enabled*/,
                      const std::shared_ptr<KVCharacteristic>& /*characteristic*/) override {}
  void readValue(const std::shared_ptr<KVCharacteristic>& /*characteristic*/) override {}
  void writeValue(const std::optional<KVData>& /*value*/,
                  const std::shared_ptr<KVCharacteristic>& /*characteristic*/,
                  KVWriteType /*type*/) override {}
  void readRSSI() override {}

 private:
  std::string identifier_;
  std::weak_ptr<KVPeripheralDelegate> delegate_;
  std::vector<std::shared_ptr<KVService>> services_;
};

class QuietCentral final : public KVCentral {
 public:
  std::int64_t state() const override { return KVCentralStatePoweredOn; }
  void scanForPeripherals(std::span<const KVUUID> /*services*/, bool /*duplicates*/) override {}
  void stopScan() override {}
  void connectPeripheral(const std::shared_ptr<KVPeripheral>& /*peripheral*/) override {}
  void cancelPeripheralConnection(const std::shared_ptr<KVPeripheral>& /*peripheral*/) override {}
};

class QuietRadio final : public KVRadio {
 public:
  std::shared_ptr<KVCentral> makeCentral(KVCentralDelegate& /*delegate*/,
                                         const std::shared_ptr<KVEventQueue>& /*queue*/) override {
    return std::make_shared<QuietCentral>();
  }
};

inline std::shared_ptr<KVPlatform> quietPlatform() {
  auto platform = KVLinuxPlatform::make();
  platform->radio = std::make_shared<QuietRadio>();
  platform->log = std::make_shared<QuietLog>();
  return platform;
}

}  // namespace kvbench

#endif  // BENCH_QUIET_PLATFORM_H
