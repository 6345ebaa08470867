// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// The fixture of the manager's tests: one manager on a fake radio.
#ifndef TESTS_SUPPORT_CORE_MANAGER_TEST_H
#define TESTS_SUPPORT_CORE_MANAGER_TEST_H

#include <memory>
#include <string>
#include <vector>

#include "tests/support/core_test.h"

namespace kvtest {

/// What the tags in these tests advertise: the frames of kMac and of kOther.
inline constexpr auto kFrame = "a10b64 f6e5d4c3b2a1 f4 03";
inline constexpr auto kOther = "0a0b0c0d0e0f";
inline constexpr auto kOtherFrame = "a10c32 0f0e0d0c0b0a 04";

class ManagerTest : public CoreTest {
 protected:
  /// Delivers one advertisement; each value is the service data of one more service.
  void hear(const std::shared_ptr<KVPeripheral>& from, const std::vector<std::string>& values,
            std::optional<std::int64_t> rssi = -60) {
    std::vector<KVData> data;
    for (const auto& value : values) data.push_back(bytes(value));
    std::vector<KVAdvertisement::ServiceData> entries;
    for (const auto& value : data) entries.push_back({KVUUID(0xFFE1), value});
    manager->didDiscoverPeripheral(*central, from, KVAdvertisement{entries}, rssi);
  }

  void adapter(std::int64_t state) {
    central->adapterState = state;
    manager->centralManagerDidUpdateState(*central);
  }

  /// Reports a peripheral's new state through a connection event.
  void link(const std::shared_ptr<FakePeripheral>& of, std::int64_t state) {
    of->linkState = state;
    if (state == KVPeripheralStateConnected) {
      manager->didConnectPeripheral(*central, of);
    } else {
      manager->didDisconnectPeripheral(*central, of, std::nullopt);
    }
  }

  /// Writes down what a tracker reports, under a name.
  void watch(KVTracker& tracker, const std::string& name) {
    tracker.didValueUpdate([name, to = journal] { to->add(name + " updated"); });
    tracker.didConnectionChange([name, to = journal](std::uint64_t connection) {
      to->add(name + " connection " + std::to_string(connection));
    });
  }

  /// A bound tracker with a peripheral.
  std::shared_ptr<KVTracker> bound(const std::string& mac,
                                   const std::shared_ptr<KVPeripheral>& at) {
    auto tracker = manager->addTracker(mac);
    tracker->setPeripheral(at);
    return tracker;
  }

  /// A scanned tracker, heard from P or Q.
  std::shared_ptr<KVTracker> scanned() {
    hear(p, {kFrame});
    return manager->existTracker(kMac, /*bind=*/false);
  }

  KVTrackerManager::ScanCallback scans() {
    return [to = journal](const KVTrackers& trackers) {
      to->add("scanned " + std::to_string(trackers.size()));
    };
  }

  const std::shared_ptr<FakePeripheral> p = peripheral("P");
  const std::shared_ptr<FakePeripheral> q = peripheral("Q");
  std::shared_ptr<KVTrackerManager> manager = std::make_shared<KVTrackerManager>();
  const std::shared_ptr<FakeCentral> central =
      std::static_pointer_cast<FakeCentral>(manager->central());
};

}  // namespace kvtest

#endif  // TESTS_SUPPORT_CORE_MANAGER_TEST_H
