// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// The manager's own life and the adapter's states.
#include "tests/support/core_manager_test.h"

namespace kvtest {
namespace {

class ManagerAdapterTest : public ManagerTest {
 protected:
  ManagerAdapterTest() {
    manager->didChangeBluetooth(
        [to = journal](std::int64_t state) { to->add("state " + std::to_string(state)); });
  }
};

TEST_F(ManagerAdapterTest, FreshManager) {
  const auto fresh = std::make_shared<KVTrackerManager>();
  EXPECT_EQ(radio->delegates, (std::vector<KVCentralDelegate*>{manager.get(), fresh.get()}));
  EXPECT_EQ(radio->queues.back(), queue);
  EXPECT_TRUE(fresh->scannedTrackers().empty() && fresh->bindTrackers()->empty());
  EXPECT_EQ(fresh->scannedDict()->size(), 0u);
  EXPECT_FALSE(fresh->scanning() || fresh->switchOff() || fresh->password());
  EXPECT_FALSE(fresh->scanBlock() || fresh->stateChangeBlock() || fresh->connectionBlock());
  EXPECT_NE(fresh->central(), central);
  EXPECT_EQ(queue->pending(), 0u);
}

TEST_F(ManagerAdapterTest, EachStateIsReportedThenLogged) {
  const char* names[] = {"Unknown",     "Resetting", "Unsupported",
                         "Unautorized", "Poweroff",  "Poweron"};
  for (int round = 0; round < 2; ++round) {
    for (std::int64_t state = 0; state < 6; ++state) {
      central->adapterState = state;
      EXPECT_EQ(manager->bleState(), static_cast<std::uint64_t>(state));
      EXPECT_EQ(took(), Lines{});
      adapter(state);
      EXPECT_EQ(took(), (Lines{"state " + std::to_string(state),
                               std::string("log: The bluetooth state:") + names[state]}));
    }
  }
  for (const std::int64_t state : {6, -1}) {
    adapter(state);
    EXPECT_EQ(took(),
              (Lines{"state " + std::to_string(state), "log: The bluetooth state:Unknown"}));
  }
  manager->didChangeBluetooth(nullptr);
  adapter(4);
  EXPECT_EQ(took(), Lines{"log: The bluetooth state:Poweroff"});
}

TEST_F(ManagerAdapterTest, LeavingPowerOnMarksConnectedTrackers) {
  const std::pair<std::int64_t, std::int64_t> cases[] = {{2, 0}, {1, 1}, {3, 3}, {2, 0}, {-1, -1}};
  std::vector<std::shared_ptr<KVTracker>> trackers;
  for (const auto& [before, after] : cases) {
    trackers.push_back(bound("tag" + std::to_string(trackers.size()), p));
    trackers.back()->setState(before);
    watch(*trackers.back(), "tag" + std::to_string(trackers.size() - 1));
  }
  took();
  adapter(KVCentralStatePoweredOff);
  EXPECT_EQ(took(), (Lines{"tag0 connection 0", "tag0 updated", "tag3 connection 0", "tag3 updated",
                           "state 4", "log: The bluetooth state:Poweroff"}));
  for (std::size_t i = 0; i < trackers.size(); ++i)
    EXPECT_EQ(trackers[i]->state(), cases[i].second);
}

TEST_F(ManagerAdapterTest, PowerOnWithoutAScanMarksToo) {
  const auto tracker = bound(kMac, p);
  tracker->setState(2);
  watch(*tracker, "tag");
  took();
  adapter(KVCentralStatePoweredOn);
  EXPECT_EQ(took(), (Lines{"tag connection 0", "tag updated", "state 5",
                           "log: The bluetooth state:Poweron"}));
}

TEST_F(ManagerAdapterTest, PowerOnRestartsTheScan) {
  manager->startScan(scans());
  hear(q, {kOtherFrame});
  for (const auto* mac : {"one", "two"}) {
    const auto tracker = bound(mac, p);
    tracker->setState(2);
    tracker->updateConnection(KVConnectionConnected);
    watch(*tracker, mac);
  }
  took();
  adapter(KVCentralStatePoweredOn);
  EXPECT_EQ(took(), (Lines{"scan FFE1 with duplicates", "one updated", "two updated", "state 5",
                           "log: The bluetooth state:Poweron"}));
  EXPECT_TRUE(manager->scannedTrackers().empty());
  for (const auto& tracker : *manager->bindTrackers()) {
    EXPECT_EQ(tracker->state(), -1);
    EXPECT_EQ(tracker->connection(), KVConnectionConnected);
  }
  adapter(KVCentralStatePoweredOff);
  EXPECT_EQ(took(), (Lines{"state 4", "log: The bluetooth state:Poweroff"}));
  EXPECT_TRUE(manager->scanning());
  adapter(KVCentralStateResetting);
  EXPECT_EQ(took(), (Lines{"state 1", "log: The bluetooth state:Resetting"}));
}

TEST_F(ManagerAdapterTest, WalkGoesOnByIndexWhenACallbackShortensTheList) {
  // Either branch: -1 for all at power-on during a scan, else 0 for the connected ones.
  const std::pair<std::int64_t, Lines> cases[] = {
      {KVCentralStatePoweredOn,
       {"scan FFE1 with duplicates", "all gone", "state 5", "log: The bluetooth state:Poweron"}},
      {KVCentralStatePoweredOff,
       {"one connection 0", "three connection 0", "all gone", "state 4",
        "log: The bluetooth state:Poweroff"}},
  };
  manager->setScanning(true);
  for (const auto& [state, lines] : cases) {
    for (const auto* mac : {"one", "two", "three"}) {
      const auto tracker = bound(mac, p);
      tracker->setState(2);
      watch(*tracker, mac);
    }
    const auto one = manager->existTracker("one", /*bind=*/true);
    one->didValueUpdate([this] { manager->bindArray()->remove((*manager->bindArray())[0]); });
    manager->existTracker("three", /*bind=*/true)->didValueUpdate([this] {
      journal->add("all gone");
      manager->bindArray()->clear();
    });
    took();
    adapter(state);
    EXPECT_EQ(took(), lines);  // "two" had moved to the place already passed
  }
}

TEST_F(ManagerAdapterTest, InertSlotsOnlyStore) {
  manager->setSwtchOff(true);
  EXPECT_TRUE(manager->switchOff());
  manager->setSwitchOff(false);
  EXPECT_FALSE(manager->switchOff());
  manager->didChangeConnection([to = journal](std::int64_t, const std::shared_ptr<KVTracker>&) {
    to->add("manager's connection callback");
  });
  EXPECT_TRUE(manager->connectionBlock());
  const auto tracker = bound(kMac, p);
  link(p, KVPeripheralStateConnected);
  tracker->updateConnection(KVConnectionConnected);
  EXPECT_EQ(took(),
            (Lines{"P discover services", std::string("log: Tracker:") + kMac + " Connected"}));
  manager->setCentral(nullptr);
  EXPECT_EQ(manager->central(), nullptr);
}

TEST_F(ManagerAdapterTest, EndsTheCentralThatItMadeAndNoOther) {
  const auto other = std::make_shared<FakeCentral>(journal);
  manager->setCentral(other);
  EXPECT_FALSE(central->closed);
  manager.reset();
  EXPECT_TRUE(central->closed);
  EXPECT_FALSE(other->closed);
}

TEST_F(ManagerAdapterTest, CallbackReplacesItselfAndDropsTheManager) {
  const std::weak_ptr<KVTrackerManager> watched = manager;
  manager->didChangeBluetooth([this, kept = std::string(100, 'x')](std::int64_t) {
    manager->didChangeBluetooth(nullptr);
    manager.reset();
    journal->add(std::to_string(kept.size()));
  });
  central->adapterState = 4;
  manager->centralManagerDidUpdateState(*central);
  EXPECT_EQ(took(), (Lines{"100", "log: The bluetooth state:Poweroff"}));
  EXPECT_TRUE(watched.expired());
}

}  // namespace
}  // namespace kvtest
