// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// Advertisements: their decoding, and what scanning makes of them.
#include <set>

#include "tests/support/core_manager_test.h"

namespace kvtest {
namespace {

TEST(AdvertisedFrameTest, DecodedOrRejected) {
  const std::string rejected = "0 -1 absent -1 -100 -1";
  const std::pair<const char*, std::string> cases[] = {
      {"a10b64 112233445566 f4", "1 100 665544332211 -12 -42 -1"},
      {"a10b64 112233445566 f4 03", "1 100 665544332211 -12 -42 3"},
      {"a10c00 0a0b0c0d0e0f 7f", "1 0 0f0e0d0c0b0a 127 -42 -1"},
      {"a10cff abcdef000102 80 ff", "1 255 020100efcdab -128 -42 255"},
      {"a10d64 112233445566 f4", rejected},
      {"a10a64 112233445566 f4", rejected},
      {"a1ff64 112233445566 f4", rejected},
      {"a10064 112233445566 f4", rejected},
      {"a00b64 112233445566 f4", rejected},
      {"a20b64 112233445566 f4 03", rejected},
      {"a10b64 112233445566", rejected},
      {"a10b64 112233445566 f4 03 00", rejected},
      {"", rejected},
  };
  const auto decode = [](const KVData& frame, std::optional<std::int64_t> given) {
    Lines reports;
    KVUtils::validateAdv(
        frame, given,
        [&](bool valid, std::int64_t battery, const std::optional<std::string>& mac,
            std::int64_t tx, std::optional<std::int64_t> rssi, std::int64_t model) {
          reports.push_back(std::to_string(valid) + " " + std::to_string(battery) + " " +
                            (mac ? mac->c_str() : "absent") + " " + std::to_string(tx) + " " +
                            (rssi ? std::to_string(*rssi) : "absent") + " " +
                            std::to_string(model));
        });
    return reports;
  };
  for (const auto& [frame, report] : cases) EXPECT_EQ(decode(bytes(frame), -42), Lines{report});
  EXPECT_EQ(decode(bytes(cases[0].first), {}), Lines{"1 100 665544332211 -12 absent -1"});
  KVUtils::validateAdv(bytes(cases[0].first), {}, nullptr);
}

class ManagerScanTest : public ManagerTest {
 protected:
  void start() {
    manager->startScan(scans());
    EXPECT_EQ(took(), Lines{"scan FFE1 with duplicates"});
    EXPECT_TRUE(manager->scanning());
  }
};

TEST_F(ManagerScanTest, UnknownTagIsFiledAndReported) {
  manager->setPassword("secret");
  KVTrackers heard;
  manager->startScan([&](const KVTrackers& trackers) { heard = trackers; });
  hear(p, {kFrame}, -66);
  EXPECT_EQ(took(), Lines{"scan FFE1 with duplicates"});
  ASSERT_EQ(heard.size(), 1u);
  const auto tracker = heard[0];
  EXPECT_EQ(manager->scannedDict()->find(kMac), tracker);
  EXPECT_EQ(tracker->mac(), kMac);
  EXPECT_EQ(tracker->rssi(), -66);
  EXPECT_EQ(tracker->distance(), KVDistanceMiddle);
  EXPECT_EQ(tracker->battery(), 100);
  EXPECT_EQ(tracker->radioTx(), 0);
  EXPECT_EQ(tracker->model(), 3);
  EXPECT_EQ(tracker->advUpdate(), clock->time);
  EXPECT_EQ(tracker->name(), std::nullopt);
  EXPECT_EQ(tracker->peripheral(), p);
  EXPECT_EQ(tracker->password(), "secret");
  EXPECT_FALSE(tracker->bound() || tracker->binding());
  EXPECT_EQ(p->delegate(), tracker);
}

TEST_F(ManagerScanTest, RepeatRefreshesTheSameTracker) {
  std::vector<KVTrackers> heard;
  manager->startScan([&](const KVTrackers& trackers) { heard.push_back(trackers); });
  took();
  hear(p, {kFrame});
  const auto tracker = heard[0][0];
  watch(*tracker, "tag");
  manager->setPassword("later");
  clock->time += std::chrono::seconds(1);
  hear(q, {"a10c07 f6e5d4c3b2a1 10"}, -90);
  EXPECT_EQ(tracker->rssi(), -90);
  EXPECT_EQ(tracker->battery(), 7);
  EXPECT_EQ(tracker->model(), -1);
  EXPECT_EQ(tracker->radioTx(), 0);
  EXPECT_EQ(tracker->advUpdate(), clock->time);
  EXPECT_EQ(tracker->peripheral(), p);
  EXPECT_EQ(tracker->password(), std::nullopt);
  ASSERT_EQ(heard.size(), 2u);
  EXPECT_EQ(&heard[0][0], &heard[1][0]);  // the set has not changed: the very same list

  hear(q, {kOtherFrame}, std::nullopt);
  ASSERT_EQ(heard.size(), 3u);
  EXPECT_EQ(heard[1].size(), 1u);
  ASSERT_EQ(heard[2].size(), 2u);
  EXPECT_EQ(manager->existTracker(kOther, /*bind=*/false)->rssi(), 0);
  EXPECT_EQ(&manager->scannedTrackers()[0], &heard[2][0]);
  manager->scannedDict()->clear();
  EXPECT_EQ(std::vector(heard[1].begin(), heard[1].end()), std::vector{tracker});
  EXPECT_NE(heard[2][0], heard[2][1]);
  EXPECT_TRUE(manager->scannedTrackers().empty());
}

TEST_F(ManagerScanTest, SnapshotsOfAGrowingSet) {
  std::vector<KVTrackers> heard;
  manager->startScan([&](const KVTrackers& trackers) { heard.push_back(trackers); });
  took();
  std::set<std::shared_ptr<KVTracker>> all;
  for (int i = 0; i < 40; ++i) {
    hear(p, {"a10b64 f6e5d4c3b2" + hex({{static_cast<std::uint8_t>(i)}}) + " f4"});
    ASSERT_EQ(heard.back().size(), static_cast<std::size_t>(i + 1));
    all.insert(heard.back().begin(), heard.back().end());
    EXPECT_EQ(all.size(), static_cast<std::size_t>(i + 1));
  }
  const auto& last = heard.back();
  for (std::size_t i = 0; i < heard.size(); ++i) {  // what was handed out has not changed
    ASSERT_EQ(heard[i].size(), i + 1);
    EXPECT_TRUE(std::equal(heard[i].begin(), heard[i].end(), last.begin()));
  }
  manager->scannedDict()->erase(*last[3]->mac());
  hear(p, {kFrame});
  EXPECT_EQ(std::set(heard.back().begin(), heard.back().end()).count(last[3]), 0u);
  EXPECT_EQ(heard.back().size(), 40u);
}

TEST_F(ManagerScanTest, BoundTagIsRefreshedAndConnected) {
  start();
  const auto tracker = manager->addTracker(kMac);
  watch(*tracker, "tag");
  hear(p, {kFrame}, -66);
  EXPECT_EQ(took(), (Lines{"tag connection 1", "tag updated", "connect P"}));
  EXPECT_EQ(tracker->peripheral(), p);
  EXPECT_EQ(tracker->rssi(), -66);
  EXPECT_EQ(tracker->distance(), KVDistanceMiddle);
  EXPECT_EQ(tracker->battery(), 100);
  EXPECT_EQ(tracker->radioTx(), -12);
  EXPECT_EQ(tracker->model(), 3);
  EXPECT_EQ(tracker->advUpdate(), clock->time);
  EXPECT_EQ(manager->scannedDict()->size(), 0u);

  hear(p, {kFrame});
  EXPECT_EQ(took(), Lines{"log: The tracker is in connecting progress."});
  hear(q, {kFrame});
  EXPECT_EQ(took(), (Lines{"cancel P", "tag connection 1", "tag updated", "connect Q"}));
  EXPECT_EQ(tracker->peripheral(), q);
}

TEST_F(ManagerScanTest, StopKeepsTheSetAndTheCallback) {
  start();
  hear(p, {kFrame});
  EXPECT_EQ(took(), Lines{"scanned 1"});
  manager->stopScan();
  EXPECT_EQ(took(), Lines{"stop scan"});
  EXPECT_FALSE(manager->scanning());
  hear(p, {kFrame}, -90);
  hear(q, {kOtherFrame});
  EXPECT_EQ(took(), Lines{});
  EXPECT_EQ(manager->scannedTrackers().size(), 2u);
  EXPECT_EQ(manager->existTracker(kMac, /*bind=*/false)->rssi(), -90);
  manager->setScanning(true);
  hear(q, {kOtherFrame});
  EXPECT_EQ(took(), Lines{"scanned 2"});
  manager->setScanBlock(nullptr);
  hear(q, {kOtherFrame});
}

TEST_F(ManagerScanTest, RestartForgetsTheSetAndReplacesTheCallback) {
  start();
  hear(p, {kFrame});
  took();
  manager->startScan([this](const KVTrackers& trackers) {
    journal->add("other " + std::to_string(trackers.size()));
  });
  EXPECT_EQ(took(), Lines{"scan FFE1 with duplicates"});
  EXPECT_TRUE(manager->scannedTrackers().empty());
  hear(q, {kOtherFrame});
  EXPECT_EQ(took(), Lines{"other 1"});
}

TEST_F(ManagerScanTest, OnlyTheFirstServiceDataCounts) {
  start();
  hear(p, {});
  hear(p, {"00", kFrame});
  hear(p, {"a10d64 f6e5d4c3b2a1 f4"});
  EXPECT_EQ(took(), Lines{});
  EXPECT_TRUE(manager->scannedTrackers().empty());
  hear(p, {kFrame, "00"});
  EXPECT_EQ(took(), Lines{"scanned 1"});
}

TEST_F(ManagerScanTest, UpperCaseAddressIsAnotherTag) {
  start();
  const auto upper = manager->addTracker("A1B2C3D4E5F6");
  hear(p, {kFrame});
  EXPECT_EQ(took(), Lines{"scanned 1"});
  EXPECT_NE(manager->existTracker(kMac, /*bind=*/false), upper);
  EXPECT_EQ(upper->peripheral(), nullptr);
}

TEST_F(ManagerScanTest, TargetOfAPeripheral) {
  EXPECT_EQ(manager->existTargetTracker(p), nullptr);
  const auto tracker = scanned();
  EXPECT_EQ(manager->existTargetTracker(p), nullptr);
  tracker->setBinding(true);
  EXPECT_EQ(manager->existTargetTracker(p), tracker);
  EXPECT_EQ(manager->existTargetTracker(peripheral("P")), tracker);  // another handle of the same
  EXPECT_EQ(manager->existTargetTracker(q), nullptr);
  tracker->setPeripheral(q);
  EXPECT_EQ(manager->existTargetTracker(p), nullptr);
  EXPECT_EQ(manager->existTargetTracker(q), tracker);
  tracker->setPeripheral(p);

  const auto empty = manager->addTracker("none");
  const auto first = bound("one", p);
  const auto second = bound("two", p);
  EXPECT_EQ(manager->existTargetTracker(p), first);  // a bound one is preferred
  first->setPeripheral(q);
  EXPECT_EQ(manager->existTargetTracker(p), second);
  EXPECT_EQ(manager->existTargetTracker(q), first);
  second->setPeripheral(nullptr);
  EXPECT_EQ(manager->existTargetTracker(p), tracker);
  tracker->setBinding(false);
  EXPECT_EQ(manager->existTargetTracker(p), nullptr);
  EXPECT_EQ(manager->existTargetTracker(nullptr), nullptr);
}

TEST_F(ManagerScanTest, CallbackEmptiesTheRegistry) {
  manager->startScan([this](const KVTrackers& trackers) {
    manager->removeAllTrackers();
    manager->setScanBlock(scans());
    journal->add("still " + std::to_string(trackers.size()) + " " + *trackers[0]->mac());
  });
  took();
  hear(p, {kFrame});
  EXPECT_EQ(took(), (Lines{"stop scan", std::string("still 1 ") + kMac}));
  EXPECT_TRUE(manager->scannedTrackers().empty());
  hear(p, {kFrame});
  EXPECT_EQ(took(), Lines{"scanned 1"});
}

TEST_F(ManagerScanTest, CallbackDropsTheManager) {
  const std::weak_ptr<KVTrackerManager> watched = manager;
  manager->startScan([this, kept = std::string(100, 'x')](const KVTrackers& trackers) {
    manager.reset();
    journal->add(std::to_string(kept.size() + trackers.size()));
  });
  took();
  hear(p, {kFrame});
  EXPECT_EQ(took(), Lines{"101"});
  EXPECT_TRUE(watched.expired());
}

}  // namespace
}  // namespace kvtest
