// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// Binding and unbinding.
#include <gmock/gmock.h>

#include "tests/support/core_manager_test.h"

namespace kvtest {
namespace {

class BindTest : public ManagerTest {
 protected:
  BindTest() {
    manager->setPassword("secret");
    tracker = scanned();
  }

  // Asks to bind, and goes on until the tag has the password.
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

TEST_F(BindTest, AcceptedTagMovesToTheBoundOnes) {
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

TEST_F(BindTest, RefusedTagStaysWhereItIs) {
  ask();
  answer("01021301");
  EXPECT_EQ(took(), (Lines{"log: bind Failed!", "bound false error password. 100"}));
  EXPECT_EQ(manager->existTracker(kMac, /*bind=*/false), tracker);
  EXPECT_TRUE(manager->bindTrackers()->empty());
  EXPECT_FALSE(tracker->bound());
  EXPECT_EQ(tracker->password(), "secret");
}

TEST_F(BindTest, SilentTagTimesOut) {
  ask();
  queue->runFor(std::chrono::seconds(30));
  EXPECT_EQ(took(), (Lines{"log: bind Failed!", "bound false Error! Binding Timeout. 400"}));
  EXPECT_EQ(manager->existTracker(kMac, /*bind=*/false), tracker);
}

TEST_F(BindTest, WithoutAPeripheralTheCompletionIsNeverCalled) {
  tracker->setPeripheral(nullptr);
  manager->bindingVerify(tracker, result("bound"));
  EXPECT_EQ(took(), Lines{"log: the given tracker doesn't have a peripheral."});
  EXPECT_FALSE(tracker->binding() || tracker->bindingBlock());
  EXPECT_EQ(queue->pending(), 0u);
}

TEST_F(BindTest, WhileConnectingNoSecondRequestIsMade) {
  tracker->setState(KVTrackerStateConnecting);
  manager->setPassword(std::nullopt);
  manager->bindingVerify(tracker, result("bound"));
  EXPECT_EQ(took(), Lines{"log: The tracker is in connecting progress."});
  EXPECT_TRUE(tracker->binding());
  EXPECT_EQ(tracker->password(), std::nullopt);
  queue->runFor(std::chrono::seconds(30));
  EXPECT_EQ(took(), (Lines{"log: bind Failed!", "bound false Error! Binding Timeout. 400"}));
}

TEST_F(BindTest, RequestIsArmedBeforeTheConnection) {
  manager->setPassword("fresh");
  tracker->didValueUpdate([this] {
    EXPECT_TRUE(tracker->binding() && tracker->bindingBlock());
    EXPECT_EQ(tracker->password(), "fresh");
    journal->add("connecting");
  });
  manager->bindingVerify(tracker, result("bound"));
  EXPECT_EQ(took(), (Lines{"connecting", "connect P"}));
}

TEST_F(BindTest, TwiceIsTwiceInTheList) {
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

TEST_F(BindTest, ResultDoesNotKeepTheTrackerButOutlivesIt) {
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

TEST_F(BindTest, AbsentCompletions) {
  manager->bindingVerify(tracker, nullptr);
  took();
  queue->runFor(std::chrono::seconds(30));
  EXPECT_EQ(took(), Lines{"log: bind Failed!"});
  bound("one", q);
  manager->unbindTracker("one", nullptr);
  EXPECT_EQ(took(), Lines{"cancel Q"});
  EXPECT_TRUE(manager->bindTrackers()->empty());
}

TEST_F(BindTest, CompletionDropsEverything) {
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

class UnbindTest : public BindTest {
 protected:
  UnbindTest() {
    ask();
    answer("01021300");
    took();
  }
};

TEST_F(UnbindTest, EarlyReturnsNeverCallTheCompletion) {
  manager->unbindTracker(std::nullopt, result("unbound"));
  EXPECT_EQ(took(), Lines{"log: Error: the given tracker doesn't have a mac address."});
  manager->unbindTracker("unknown", result("unbound"));
  EXPECT_EQ(manager->bindTrackers()->size(), 1u);
  manager->bindArray()->clear();
  manager->unbindTracker(kMac, result("unbound"));
  EXPECT_EQ(took(), Lines{});
}

TEST_F(UnbindTest, NotConnectedTagLeavesAtOnce) {
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

TEST_F(UnbindTest, ConnectedTagLeavesOnceItConfirms) {
  random->next = 0x60;
  const std::size_t tasks = queue->pending();
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
  EXPECT_EQ(queue->pending(), tasks);  // nothing is kept any more
  link(p, KVPeripheralStateDisconnected);
  const Lines lines = took();
  ASSERT_EQ(lines.size(), 1u);  // not connected again
  EXPECT_THAT(lines[0], ::testing::StartsWith("log: Not a bound tracker has Peripheral: "));
}

TEST_F(UnbindTest, RefusedTagStaysInTheListButNotBound) {
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
  queue->runFor(std::chrono::seconds(31));  // the check of the bind request keeps it until then
  tracker.reset();
  EXPECT_TRUE(watched.expired());
  EXPECT_EQ(took(), Lines{"timer stop"});
}

TEST_F(UnbindTest, CompletionDropsTheManager) {
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
