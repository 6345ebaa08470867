// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// Connecting, and staying connected.
#include <gmock/gmock.h>

#include "tests/support/core_manager_test.h"

namespace kvtest {
namespace {

class ManagerLinkTest : public ManagerTest {
 protected:
  const std::string kNoPeripheral = "log: Error: the given tracker didn't have a peripheral.";
  const std::string kConnecting = "log: The tracker is in connecting progress.";
};

TEST_F(ManagerLinkTest, ConnectIsRefusedOnlyWhileConnecting) {
  const auto tracker = bound(kMac, p);
  watch(*tracker, "tag");
  for (const std::int64_t state : {0, 2, 3, -1}) {
    tracker->setState(state);
    took();
    manager->connect(tracker);
    EXPECT_EQ(took(), (Lines{"tag connection 1", "tag updated", "connect P"})) << state;
    EXPECT_EQ(tracker->state(), KVTrackerStateConnecting);
    manager->connect(tracker);
    EXPECT_EQ(took(), Lines{kConnecting});
  }
  tracker->setPeripheral(nullptr);
  manager->connect(tracker);
  EXPECT_EQ(took(), Lines{kNoPeripheral});
}

TEST_F(ManagerLinkTest, ForceConnectReplacesAnotherDevice) {
  const auto tracker = bound(kMac, p);
  watch(*tracker, "tag");
  for (const std::int64_t state : {0, 2, 3, -1}) {
    tracker->setState(state);
    took();
    manager->forceConnect(tracker, peripheral("P"));
    EXPECT_EQ(took(), (Lines{"tag connection 1", "tag updated", "connect P"})) << state;
    EXPECT_EQ(tracker->peripheral(), p);
  }
  manager->forceConnect(tracker, p);
  EXPECT_EQ(took(), Lines{kConnecting});
  manager->forceConnect(tracker, q);
  EXPECT_EQ(took(), (Lines{"cancel P", "tag connection 1", "tag updated", "connect Q"}));
  EXPECT_EQ(tracker->peripheral(), q);
  manager->forceConnect(tracker, nullptr);
  EXPECT_EQ(took(), (Lines{"cancel Q", "tag connection 1", "tag updated"}));
  EXPECT_EQ(tracker->peripheral(), nullptr);
  manager->forceConnect(tracker, p);
  EXPECT_EQ(took(), Lines{kNoPeripheral});
  EXPECT_EQ(tracker->peripheral(), nullptr);
}

TEST_F(ManagerLinkTest, DisconnectOnlyCancels) {
  const auto tracker = bound(kMac, p);
  tracker->setState(KVTrackerStateDisconnecting);
  manager->disconnect(tracker);
  EXPECT_EQ(took(), Lines{"cancel P"});
  EXPECT_EQ(tracker->state(), KVTrackerStateDisconnecting);
  EXPECT_TRUE(tracker->bound());
  tracker->setPeripheral(nullptr);
  manager->disconnect(tracker);
  EXPECT_EQ(took(), Lines{kNoPeripheral});
}

TEST_F(ManagerLinkTest, AbsentHandles) {
  manager->connect(nullptr);
  manager->forceConnect(nullptr, p);
  manager->disconnect(nullptr);
  EXPECT_EQ(took(), (Lines{kNoPeripheral, kNoPeripheral, kNoPeripheral}));
  manager->bindingVerify(nullptr, result("bound"));
  EXPECT_EQ(took(), Lines{"log: the given tracker doesn't have a peripheral."});
  manager->didConnectPeripheral(*central, nullptr);
  EXPECT_EQ(took(), Lines{});

  const auto tracker = bound(kMac, p);
  manager->setCentral(nullptr);
  EXPECT_EQ(manager->bleState(), 0u);
  manager->startScan(nullptr);
  manager->stopScan();
  manager->connect(tracker);
  EXPECT_EQ(tracker->state(), KVTrackerStateConnecting);
  manager->forceConnect(tracker, q);
  manager->removeAllTrackers();
  EXPECT_EQ(took(), Lines{});
  EXPECT_EQ(tracker->peripheral(), q);
}

TEST_F(ManagerLinkTest, EventsOfAnUnknownPeripheralAreLogged) {
  const auto scan = scanned();
  watch(*scan, "tag");
  p->linkState = KVPeripheralStateConnected;
  manager->didConnectPeripheral(*central, p);
  manager->didDisconnectPeripheral(*central, p, KVError{"lost", 1, {}});
  manager->didFailToConnectPeripheral(*central, p, std::nullopt);
  const Lines lines = took();
  ASSERT_EQ(lines.size(), 3u);
  for (const auto& line : lines) {
    EXPECT_EQ(line, "log: Not a bound tracker has Peripheral: P");
  }
  EXPECT_EQ(scan->state(), 0);
}

TEST_F(ManagerLinkTest, BoundTrackerTakesTheStateAndIsConnectedAgain) {
  const auto tracker = bound(kMac, p);
  watch(*tracker, "tag");
  const std::string mac = std::string("log: Tracker:") + kMac;
  const struct {
    std::int64_t state;
    Lines lines;
  } cases[] = {
      {2, {"P discover services", "tag updated", mac + " Connected"}},
      {1, {"tag connection 1", "tag updated", mac + " Connecting"}},
      {3, {"tag updated", mac + " Disconnecting"}},
      {4, {"tag updated", mac + " (null)"}},
      {-1, {"tag updated", mac + " (null)"}},
      {0,
       {"tag connection 0", "tag updated", mac + " Disconnect", "tag connection 1", "tag updated",
        "connect P"}},
  };
  for (const auto& c : cases) {
    p->linkState = c.state;
    for (int event = 0; event < 3; ++event) {
      tracker->setState(KVTrackerStateDisconnecting);
      took();
      if (event == 0) manager->didConnectPeripheral(*central, p);
      if (event == 1) manager->didDisconnectPeripheral(*central, p, KVError{"lost", 1, {}});
      if (event == 2) manager->didFailToConnectPeripheral(*central, p, std::nullopt);
      EXPECT_EQ(took(), c.lines) << c.state << " " << event;
      EXPECT_EQ(tracker->state(), c.state == 0 ? 1 : c.state);
    }
  }

  tracker->setBinding(true);
  link(p, KVPeripheralStateDisconnected);
  EXPECT_EQ(took(), (Lines{"tag connection 0", "tag updated", mac + " Disconnect"}));
  tracker->setBinding(false);
  tracker->setBound(false);  // as after an unbind that the tag refused
  link(p, KVPeripheralStateDisconnected);
  const Lines lines = took();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0], "tag updated");
  EXPECT_THAT(lines[1], ::testing::StartsWith("log: Not a bound tracker has Peripheral: "));
}

TEST_F(ManagerLinkTest, RemovedWhenToldThatItConnects) {
  const auto tracker = bound(kMac, p);
  tracker->didValueUpdate([this] { manager->removeTracker(kMac); });
  manager->connect(tracker);
  EXPECT_EQ(took(), Lines{"cancel P"});
  EXPECT_TRUE(manager->bindTrackers()->empty());
}

TEST_F(ManagerLinkTest, RemovedInsideTheReportOfItsDisconnection) {
  const auto tracker = bound(kMac, p);
  tracker->didConnectionChange([this](std::uint64_t) { manager->removeTracker(kMac); });
  link(p, KVPeripheralStateDisconnected);
  const Lines lines = took();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0], "cancel P");
  EXPECT_THAT(lines[1], ::testing::StartsWith("log: Not a bound tracker has Peripheral: "));
}

TEST_F(ManagerLinkTest, ManagerDroppedInsideATrackersReport) {
  const std::weak_ptr<KVTrackerManager> watched = manager;
  const auto tracker = bound(kMac, p);
  tracker->didConnectionChange([this](std::uint64_t) { manager.reset(); });
  p->linkState = KVPeripheralStateDisconnected;
  manager->didDisconnectPeripheral(*central, p, std::nullopt);
  EXPECT_EQ(took(), (Lines{std::string("log: Tracker:") + kMac + " Disconnect", "connect P"}));
  EXPECT_TRUE(watched.expired());
}

TEST_F(ManagerLinkTest, AsksNothingMoreOnceItIsGoneInsideAReport) {
  auto own = std::make_unique<KVTrackerManager>();  // no shared pointer keeps it for the call
  const auto medium = own->central();
  const auto tracker = own->addTracker(kMac);
  tracker->setPeripheral(p);
  tracker->didConnectionChange([&own](std::uint64_t) { own.reset(); });
  own->didDisconnectPeripheral(*medium, p, std::nullopt);
  EXPECT_EQ(took(), Lines{std::string("log: Tracker:") + kMac + " Disconnect"});
}

}  // namespace
}  // namespace kvtest
