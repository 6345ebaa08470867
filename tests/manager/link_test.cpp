// Connecting, binding and unbinding.
#include <gmock/gmock.h>

#include "tests/support/core_manager_test.h"

namespace kvtest {
namespace {

class Link : public ManagerTest {
 protected:
  const std::string kNoPeripheral = "log: Error: the given tracker didn't have a peripheral.";
  const std::string kConnecting = "log: The tracker is in connecting progress.";
};

TEST_F(Link, ConnectIsRefusedOnlyWhileConnecting) {
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

TEST_F(Link, ForceConnectReplacesAnotherDevice) {
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
  tracker->setPeripheral(nullptr);
  manager->forceConnect(tracker, p);
  EXPECT_EQ(took(), Lines{kNoPeripheral});
  EXPECT_EQ(tracker->peripheral(), nullptr);
}

TEST_F(Link, DisconnectOnlyCancels) {
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

TEST_F(Link, AbsentHandles) {
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

TEST_F(Link, EventsOfAnUnknownPeripheralAreLogged) {
  const auto scan = scanned();
  watch(*scan, "tag");
  p->linkState = KVPeripheralStateConnected;
  manager->didConnectPeripheral(*central, p);
  manager->didDisconnectPeripheral(*central, p, KVError{"lost", 1, {}});
  manager->didFailToConnectPeripheral(*central, p, std::nullopt);
  const Lines lines = took();
  ASSERT_EQ(lines.size(), 3u);
  for (const auto& line : lines) {
    EXPECT_THAT(line, ::testing::StartsWith("log: Not a bound tracker has Peripheral: "));
  }
  EXPECT_EQ(scan->state(), 0);
}

TEST_F(Link, BoundTrackerTakesTheStateAndIsConnectedAgain) {
  const auto tracker = bound(kMac, p);
  watch(*tracker, "tag");
  const std::string mac = std::string("log: Tracker:") + kMac;
  const struct {
    std::int64_t state;
    Lines lines;
  } cases[] = {
      {2, {"P discover services", "tag updated", mac + " Connected"}},
      {1, {"tag connection 1", "tag updated", mac + " Connecting"}},
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
  link(p, KVPeripheralStateDisconnecting);  // a state that has no label
  EXPECT_EQ(tracker->state(), KVTrackerStateDisconnecting);
  took();

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

TEST_F(Link, RemovedInsideTheReportOfItsDisconnection) {
  const auto tracker = bound(kMac, p);
  tracker->didConnectionChange([this](std::uint64_t) { manager->removeTracker(kMac); });
  link(p, KVPeripheralStateDisconnected);
  const Lines lines = took();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0], "cancel P");
  EXPECT_THAT(lines[1], ::testing::StartsWith("log: Not a bound tracker has Peripheral: "));
}

TEST_F(Link, ManagerDroppedInsideATrackersReport) {
  const std::weak_ptr<KVTrackerManager> watched = manager;
  const auto tracker = bound(kMac, p);
  tracker->didConnectionChange([this](std::uint64_t) { manager.reset(); });
  p->linkState = KVPeripheralStateDisconnected;
  manager->didDisconnectPeripheral(*central, p, std::nullopt);
  EXPECT_EQ(took(), (Lines{std::string("log: Tracker:") + kMac + " Disconnect", "connect P"}));
  EXPECT_TRUE(watched.expired());
}

class Bind : public Link {
 protected:
  Bind() {
    manager->setPassword("secret");
    tracker = scanned();
  }

  /// Asks to bind, and goes on until the tag has the password.
  void ask() {
    manager->bindingVerify(tracker, result("bound"));
    EXPECT_EQ(took(), Lines{"connect P"});
    link(p, KVPeripheralStateConnected);
    session = exchangeTokens(*tracker, *p);
  }
  void answer(std::string_view frame) {
    p->reportValue(tracker->korvaChar(), sealed(session, frame));
  }

  std::shared_ptr<KVTracker> tracker;
  KVData session;
};

TEST_F(Bind, AcceptedTagMovesToTheBoundOnes) {
  manager->bindingVerify(tracker, [this](bool success, const std::optional<KVError>& error) {
    EXPECT_TRUE(tracker->bound());
    EXPECT_FALSE(tracker->binding());
    EXPECT_EQ(manager->existTracker(kMac, /*bind=*/true), tracker);
    EXPECT_EQ(manager->existTracker(kMac, /*bind=*/false), nullptr);
    result("bound")(success, error);
  });
  EXPECT_EQ(took(), Lines{"connect P"});
  EXPECT_TRUE(tracker->binding() && tracker->bindingBlock());
  EXPECT_EQ(tracker->password(), "secret");
  link(p, KVPeripheralStateConnected);
  const Lines lines = took();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0], "P discover services");
  EXPECT_THAT(lines[1], ::testing::StartsWith("log: Not a bound tracker has Peripheral: "));
  session = exchangeTokens(*tracker, *p);
  answer("01021300");
  EXPECT_EQ(took(), (Lines{"timer start 3000 ms", "bound true"}));
  EXPECT_EQ(manager->bindTrackers()->size(), 1u);
  EXPECT_EQ(tracker->connection(), KVConnectionConnected);
}

TEST_F(Bind, RefusedTagStaysWhereItIs) {
  ask();
  answer("01021301");
  EXPECT_EQ(took(), (Lines{"log: bind Failed!", "bound false error password. 100"}));
  EXPECT_EQ(manager->existTracker(kMac, /*bind=*/false), tracker);
  EXPECT_TRUE(manager->bindTrackers()->empty());
  EXPECT_FALSE(tracker->bound());
  EXPECT_EQ(tracker->password(), "secret");
}

TEST_F(Bind, SilentTagTimesOut) {
  ask();
  queue->runFor(std::chrono::seconds(30));
  EXPECT_EQ(took(), (Lines{"log: bind Failed!", "bound false Error! Binding Timeout. 400"}));
  EXPECT_EQ(manager->existTracker(kMac, /*bind=*/false), tracker);
}

TEST_F(Bind, WithoutAPeripheralTheCompletionIsNeverCalled) {
  tracker->setPeripheral(nullptr);
  manager->bindingVerify(tracker, result("bound"));
  EXPECT_EQ(took(), Lines{"log: the given tracker doesn't have a peripheral."});
  EXPECT_FALSE(tracker->binding() || tracker->bindingBlock());
  EXPECT_EQ(queue->pending(), 0u);
}

TEST_F(Bind, WhileConnectingNoSecondRequestIsMade) {
  tracker->setState(KVTrackerStateConnecting);
  manager->setPassword(std::nullopt);
  manager->bindingVerify(tracker, result("bound"));
  EXPECT_EQ(took(), Lines{kConnecting});
  EXPECT_TRUE(tracker->binding());
  EXPECT_EQ(tracker->password(), std::nullopt);
  queue->runFor(std::chrono::seconds(30));
  EXPECT_EQ(took(), (Lines{"log: bind Failed!", "bound false Error! Binding Timeout. 400"}));
}

TEST_F(Bind, RequestIsArmedBeforeTheConnection) {
  manager->setPassword("fresh");
  tracker->didValueUpdate([this] {
    EXPECT_TRUE(tracker->binding() && tracker->bindingBlock());
    EXPECT_EQ(tracker->password(), "fresh");
    journal->add("connecting");
  });
  manager->bindingVerify(tracker, result("bound"));
  EXPECT_EQ(took(), (Lines{"connecting", "connect P"}));
}

TEST_F(Bind, TwiceIsTwiceInTheList) {
  for (std::size_t times = 1; times < 3; ++times) {
    ask();
    answer("01021300");
    EXPECT_EQ(took().back(), "bound true");
    EXPECT_EQ(manager->bindTrackers()->size(), times);
    link(p, KVPeripheralStateDisconnected);
    tracker->setState(KVTrackerStateDisconnected);
    took();
  }
  EXPECT_EQ((*manager->bindTrackers())[0], (*manager->bindTrackers())[1]);
}

TEST_F(Bind, ResultDoesNotKeepTheTrackerButOutlivesIt) {
  ask();
  const KVResultCallback kept = tracker->bindingBlock();
  const std::weak_ptr<KVTracker> watched = tracker;
  manager->scannedDict()->clear();
  tracker.reset();
  queue->runFor(std::chrono::seconds(30));
  EXPECT_EQ(took(), (Lines{"log: bind Failed!", "bound false Error! Binding Timeout. 400"}));
  EXPECT_TRUE(watched.expired());
  kept(true, std::nullopt);
  EXPECT_EQ(took(), Lines{"bound true"});
  EXPECT_TRUE(manager->bindTrackers()->empty());
}

TEST_F(Bind, AbsentCompletions) {
  manager->bindingVerify(tracker, nullptr);
  took();
  queue->runFor(std::chrono::seconds(30));
  EXPECT_EQ(took(), Lines{"log: bind Failed!"});
  bound("one", q);
  manager->unbindTracker("one", nullptr);
  EXPECT_EQ(took(), Lines{"cancel Q"});
  EXPECT_TRUE(manager->bindTrackers()->empty());
}

TEST_F(Bind, CompletionDropsEverything) {
  const std::weak_ptr<KVTrackerManager> watched = manager;
  const std::weak_ptr<KVTracker> dropped = tracker;
  manager->bindingVerify(tracker, [this](bool, const std::optional<KVError>&) {
    manager->removeAllTrackers();
    tracker->setBindingBlock(nullptr);
    tracker.reset();
    manager.reset();
    journal->add("dropped");
  });
  took();
  queue->runFor(std::chrono::seconds(30));
  EXPECT_EQ(took(), (Lines{"log: bind Failed!", "stop scan", "dropped"}));
  EXPECT_TRUE(watched.expired() && dropped.expired());
}

class Unbind : public Bind {
 protected:
  Unbind() {
    ask();
    answer("01021300");
    took();
  }
  ~Unbind() override {
    if (tracker)
      tracker->setPasswordRemoveBlock(nullptr);  // without an answer it holds the tracker
  }
};

TEST_F(Unbind, EarlyReturnsNeverCallTheCompletion) {
  manager->unbindTracker(std::nullopt, result("unbound"));
  EXPECT_EQ(took(), Lines{"log: Error: the given tracker doesn't have a mac address."});
  manager->unbindTracker("unknown", result("unbound"));
  EXPECT_EQ(manager->bindTrackers()->size(), 1u);
  manager->bindArray()->clear();
  manager->unbindTracker(kMac, result("unbound"));
  EXPECT_EQ(took(), Lines{});
}

TEST_F(Unbind, NotConnectedTagLeavesAtOnce) {
  for (const std::uint64_t connection : {KVConnectionConnecting, KVConnectionVerifyFailed}) {
    const auto one = bound("one", q);
    one->updateConnection(connection);
    manager->unbindTracker("one", [&](bool success, const std::optional<KVError>& error) {
      EXPECT_EQ(manager->existTracker("one", /*bind=*/true), nullptr);
      EXPECT_FALSE(one->bound());
      result("unbound")(success, error);
    });
    EXPECT_EQ(took(), (Lines{"cancel Q", "unbound true"}));
  }
  EXPECT_EQ(manager->bindTrackers()->size(), 1u);
}

TEST_F(Unbind, ConnectedTagLeavesOnceItConfirms) {
  random->next = 0x60;
  manager->unbindTracker(kMac, [this](bool success, const std::optional<KVError>& error) {
    EXPECT_TRUE(manager->bindTrackers()->empty());
    EXPECT_FALSE(tracker->bound());
    result("unbound")(success, error);
  });
  EXPECT_EQ(took(), Lines{wrote(*p, session, "00021400 606162636465666768696a6b")});
  EXPECT_TRUE(tracker->bound());
  EXPECT_EQ(manager->bindTrackers()->size(), 1u);
  answer("01021400");
  EXPECT_EQ(took(), (Lines{"cancel P", "unbound true"}));
  link(p, KVPeripheralStateDisconnected);
  const Lines lines = took();
  ASSERT_EQ(lines.size(), 1u);  // not connected again
  EXPECT_THAT(lines[0], ::testing::StartsWith("log: Not a bound tracker has Peripheral: "));
}

TEST_F(Unbind, RefusedTagStaysInTheListButNotBound) {
  manager->unbindTracker(kMac, result("unbound"));
  took();
  answer("01021401");
  EXPECT_EQ(took(), Lines{"unbound false password removed. 500"});
  EXPECT_FALSE(tracker->bound());
  EXPECT_EQ(manager->existTracker(kMac, /*bind=*/true), tracker);

  // The completion is still in its slot, but keeps nobody alive.
  const std::weak_ptr<KVTrackerManager> owner = manager;
  const std::weak_ptr<KVTracker> watched = tracker;
  manager.reset();
  EXPECT_TRUE(owner.expired());
  answer("01021400");  // a second answer
  EXPECT_EQ(took(), Lines{"unbound true"});
  queue->clear();  // the time-out of the bind request
  tracker.reset();
  EXPECT_TRUE(watched.expired());
  EXPECT_EQ(took(), Lines{"timer stop"});
}

TEST_F(Unbind, CompletionDropsTheManager) {
  const std::weak_ptr<KVTrackerManager> watched = manager;
  manager->unbindTracker(kMac, [this, kept = std::string(100, 'x')](bool, const auto&) {
    tracker->setPasswordRemoveBlock(nullptr);
    tracker->setBindingBlock(nullptr);
    manager.reset();
    journal->add(std::to_string(kept.size()));
  });
  took();
  answer("01021400");
  EXPECT_EQ(took(), (Lines{"cancel P", "100"}));
  EXPECT_TRUE(watched.expired());
}

}  // namespace
}  // namespace kvtest
