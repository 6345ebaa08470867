// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// A central on a simulated radio, and a record of its events.
#ifndef TESTS_SIMULATOR_RADIO_WORLD_H
#define TESTS_SIMULATOR_RADIO_WORLD_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "KVFobSimulator/KVFobSimulator.h"

namespace kvsim {

using Lines = std::vector<std::string>;

/// " 1103" for an error with that code.
inline std::string outcome(const std::optional<KVError>& error) {
  return error ? ' ' + std::to_string(error->code) : "";
}

/// Writes its events down, each error as its code; `after`, if set, is called at the end of each.
class Witness final : public KVCentralDelegate, public KVPeripheralDelegate {
 public:
  void centralManagerDidUpdateState(KVCentral& central) override {
    note("state " + std::to_string(central.state()));
  }
  void didDiscoverPeripheral(KVCentral&, const std::shared_ptr<KVPeripheral>& peripheral,
                             const KVAdvertisement& advertisement,
                             std::optional<std::int64_t> rssi) override {
    found = peripheral;
    ++adverts;
    lastRssi = rssi;
    const KVBytes value = advertisement.serviceData[0].value;
    lastData.assign(value.begin(), value.end());
    if (noteAdverts) note("advert " + std::to_string(rssi.value_or(0)));
  }
  void didConnectPeripheral(KVCentral&, const std::shared_ptr<KVPeripheral>& p) override {
    note("connect " + std::to_string(p->state()));
  }
  void didFailToConnectPeripheral(KVCentral&, const std::shared_ptr<KVPeripheral>& p,
                                  const std::optional<KVError>& error) override {
    note("refused " + std::to_string(p->state()) + outcome(error));
  }
  void didDisconnectPeripheral(KVCentral&, const std::shared_ptr<KVPeripheral>& p,
                               const std::optional<KVError>& error) override {
    note("disconnect " + std::to_string(p->state()) + outcome(error));
  }
  void didDiscoverServices(KVPeripheral& p, const std::optional<KVError>& error) override {
    note("services " + std::to_string(p.services().size()) + outcome(error));
  }
  void didDiscoverCharacteristicsForService(KVPeripheral&, KVService& service,
                                            const std::optional<KVError>& error) override {
    note("characteristics " + std::to_string(service.characteristics().size()) + outcome(error));
  }
  void didUpdateValueForCharacteristic(KVPeripheral&,
                                       const std::shared_ptr<KVCharacteristic>& characteristic,
                                       const std::optional<KVError>& error) override {
    const auto& value = characteristic->value();
    note("value " + (value ? std::to_string(value->size()) : "absent") + outcome(error));
  }
  void didWriteValueForCharacteristic(KVPeripheral&, const std::shared_ptr<KVCharacteristic>&,
                                      const std::optional<KVError>& error) override {
    note("written" + outcome(error));
  }
  void didReadRSSI(KVPeripheral&, std::optional<std::int64_t> rssi,
                   const std::optional<KVError>& error) override {
    note("rssi " + (rssi ? std::to_string(*rssi) : "absent") + outcome(error));
  }

  Lines took() { return std::exchange(lines, {}); }

  bool noteAdverts = false;
  unsigned adverts = 0;
  std::optional<std::int64_t> lastRssi;
  KVData lastData;  ///< The service data of the last report.
  std::shared_ptr<KVPeripheral> found;
  std::function<void(const std::string&)> after;

 private:
  void note(std::string line) {
    lines.push_back(line);
    const auto then = after;
    if (then) then(line);
  }
  Lines lines;
};

/// A simulated radio with one central on it.
struct World {
  explicit World(SimulatedRadioOptions options = {}) : radio(std::move(options)) {
    central = radio.platform()->radio->makeCentral(*witness, radio.platform()->eventQueue);
  }

  /// Scans until it has the tag's peripheral.
  KVPeripheral& find() {
    radio.clock().runUntilIdle();
    central->scanForPeripherals({}, /*allowDuplicates=*/false);
    EXPECT_TRUE(radio.clock().runUntil([&] { return witness->found != nullptr; }));
    central->stopScan();
    witness->found->setDelegate(std::shared_ptr<KVPeripheralDelegate>(witness));
    witness->took();
    return *witness->found;
  }

  KVPeripheral& link() {
    KVPeripheral& peripheral = find();
    central->connectPeripheral(witness->found);
    EXPECT_TRUE(radio.clock().runUntilIdle());
    EXPECT_THAT(witness->took(), ::testing::ElementsAre("connect 2"));
    return peripheral;
  }

  Lines runFor(std::chrono::nanoseconds time) {
    radio.clock().runFor(time);
    return witness->took();
  }

  std::shared_ptr<KVCharacteristic> commandCharacteristic() {
    KVPeripheral& p = *witness->found;
    p.discoverServices();
    radio.clock().runUntilIdle();
    p.discoverCharacteristics(p.services()[0]);
    radio.clock().runUntilIdle();
    witness->took();
    return p.services()[0]->characteristics().at(0);
  }

  SimulatedRadio radio;
  std::shared_ptr<Witness> witness = std::make_shared<Witness>();
  std::shared_ptr<KVCentral> central;
};

}  // namespace kvsim

#endif  // TESTS_SIMULATOR_RADIO_WORLD_H
