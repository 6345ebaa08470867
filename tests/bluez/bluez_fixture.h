// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// A BlueZ central on a private bus, with a scripted bluetoothd and a record of all events.
#ifndef TESTS_BLUEZ_BLUEZ_FIXTURE_H
#define TESTS_BLUEZ_BLUEZ_FIXTURE_H

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "KVFobLink/KVLinuxPlatform.h"
#include "platform/linux/bluez/radio.h"
#include "tests/bluez/fake_bluez.h"
#include "tests/bluez/private_bus.h"

namespace kvtest {

using namespace std::chrono_literals;

inline constexpr const char* kTag = "AA:00:00:00:00:01";
inline constexpr const char* kOtherTag = "AA:00:00:00:00:02";
inline const KVData kFrame{0xa1, 0x0b, 0x01};

/// Writes each event down as a text, such as "connected AA:00:00:00:00:01".
class Recorder : public KVCentralDelegate, public KVPeripheralDelegate {
 public:
  void centralManagerDidUpdateState(KVCentral& central) override;
  void didDiscoverPeripheral(KVCentral& central, const std::shared_ptr<KVPeripheral>& peripheral,
                             const KVAdvertisement& advertisement,
                             std::optional<std::int64_t> rssi) override;
  void didConnectPeripheral(KVCentral& central,
                            const std::shared_ptr<KVPeripheral>& peripheral) override;
  void didFailToConnectPeripheral(KVCentral& central,
                                  const std::shared_ptr<KVPeripheral>& peripheral,
                                  const std::optional<KVError>& error) override;
  void didDisconnectPeripheral(KVCentral& central, const std::shared_ptr<KVPeripheral>& peripheral,
                               const std::optional<KVError>& error) override;
  void didDiscoverServices(KVPeripheral& peripheral, const std::optional<KVError>& error) override;
  void didDiscoverCharacteristicsForService(KVPeripheral& peripheral, KVService& service,
                                            const std::optional<KVError>& error) override;
  void didUpdateValueForCharacteristic(KVPeripheral& peripheral,
                                       const std::shared_ptr<KVCharacteristic>& characteristic,
                                       const std::optional<KVError>& error) override;
  void didWriteValueForCharacteristic(KVPeripheral& peripheral,
                                      const std::shared_ptr<KVCharacteristic>& characteristic,
                                      const std::optional<KVError>& error) override;
  void didReadRSSI(KVPeripheral& peripheral, std::optional<std::int64_t> rssi,
                   const std::optional<KVError>& error) override;

  std::vector<std::string> events;
  std::shared_ptr<KVPeripheral> found;
  std::function<void(const std::string& event)> onEvent;

 private:
  void add(std::string event, const std::optional<KVError>& error = std::nullopt);
};

class Log : public KVLog {
 public:
  void write(std::string_view line) override { text += std::string(line) + '\n'; }
  std::string text;
};

class BlueZTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  void startDaemon() { bluez = std::make_unique<FakeBlueZ>(queue, bus.address()); }
  void startCentral();
  /// A daemon with an adapter that is on, and a central that knows it.
  void startAll();

  /// Runs the queue until `condition` holds. False when that takes too long.
  [[nodiscard]] bool waitFor(const std::function<bool()>& condition);
  [[nodiscard]] bool waitForEvent(const std::string& event);
  [[nodiscard]] bool waitForCall(const std::string& member, int times = 1);
  /// The events since the last time this was asked.
  std::vector<std::string> takeEvents() { return std::exchange(recorder->events, {}); }
  /// The calls since the last time this was asked, of these names only.
  std::vector<std::string> takeCalls(const std::vector<std::string>& members);

  /// Scans, and has the tag heard once the scan is under way.
  void scanUntilFound(const std::string& address = kTag);
  /// Has the tag heard in a scan, and returns its handle.
  std::shared_ptr<KVPeripheral> find(const std::string& address = kTag);
  /// Connects it and waits for that.
  std::shared_ptr<KVPeripheral> link(const std::string& address = kTag);
  /// The command characteristic of a tag that is linked.
  std::shared_ptr<KVCharacteristic> discover(const std::shared_ptr<KVPeripheral>& tag);

  PrivateBus bus;
  std::shared_ptr<KVLinuxEventQueue> queue = KVLinuxPlatform::makeEventQueue();
  KVBlueZOptions options;
  kv::BlueZTiming timing;
  std::shared_ptr<Log> log = std::make_shared<Log>();
  std::shared_ptr<Recorder> recorder = std::make_shared<Recorder>();
  std::unique_ptr<FakeBlueZ> bluez;
  std::shared_ptr<KVCentral> central;
};

}  // namespace kvtest

#endif  // TESTS_BLUEZ_BLUEZ_FIXTURE_H
