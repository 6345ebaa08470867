// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// Who keeps whom: platforms apart, everything freed when it is dropped, nothing used after it.
#include <dirent.h>

#include <type_traits>

#include "KVFobSimulator/KVFobSimulator.h"
#include "tests/support/core_manager_test.h"

namespace kvtest {
namespace {

using namespace std::chrono_literals;

static_assert(!std::is_copy_constructible_v<KVTrackerManager>);
static_assert(!std::is_copy_assignable_v<KVTrackerManager>);
static_assert(!std::is_copy_constructible_v<KVTracker>);
static_assert(!std::is_copy_assignable_v<KVTracker>);

class ManagerOwnershipTest : public ManagerTest {
 protected:
  // Bound over a link that is up, with the session key `session`.
  std::shared_ptr<KVTracker> connected() {
    const auto tracker = scanned();
    manager->setPassword("secret");
    manager->bindingVerify(tracker, result("bound"));
    link(p, KVPeripheralStateConnected);
    session = exchangeTokens(*tracker, *p);
    p->reportValue(tracker->korvaChar(), sealed(session, "01021300"));
    took();
    return tracker;
  }

  KVData session;
};

// ---- One platform for everything

TEST_F(ManagerOwnershipTest, NothingOfAManagerReachesThePlatformThatCameAfterIt) {
  const auto foreignJournal = std::make_shared<Journal>();
  const auto foreignQueue = std::make_shared<FakeQueue>();
  const auto foreignRandom = std::make_shared<FakeRandom>();
  const auto foreignCipher = std::make_shared<FakeCipher>(real()->cipher);
  foreignCipher->failEncrypt = foreignCipher->failDecrypt = true;
  auto foreign = std::make_shared<KVPlatform>(*real());
  foreign->eventQueue = foreignQueue;
  foreign->random = foreignRandom;
  foreign->cipher = foreignCipher;
  foreign->timers = std::make_shared<FakeTimers>(foreignJournal);
  foreign->log = std::make_shared<FakeLog>(foreignJournal);
  KVPlatform::setCurrent(foreign);

  manager->startScan(nullptr);
  const auto tracker = connected();  // exchangeTokens expects our randomness in the key
  tracker->switchBellStatus(/*status=*/true, result("ring"));
  tracker->setPassword(std::string());
  tracker->writeBindData();  // has something to log
  EXPECT_EQ(tracker->connection(), KVConnectionConnected);
  EXPECT_TRUE(tracker->timer());
  manager->addTracker("one")->setBinding(true);
  EXPECT_EQ(queue->pending(), 2u);  // the checks of both bind requests
  EXPECT_FALSE(took().empty());

  EXPECT_EQ(foreignJournal->take(), Lines{});
  EXPECT_EQ(foreignQueue->pending(), 0u);
  EXPECT_EQ(foreignRandom->next, FakeRandom().next);
}

TEST(OwnPlatformTest, TwoSimulatedWorldsDoNotMix) {
  kvsim::SimulatedRadio a;
  kvsim::SimulatedRadio b;
  const auto tag = a.addTag({.address = "a1b2c3d4e5f6", .password = {}});
  const auto manager = std::make_shared<KVTrackerManager>(*a.platform());
  manager->setPassword("secret");
  bool bound = false;
  manager->startScan([&](const KVTrackers& trackers) {
    manager->stopScan();
    manager->bindingVerify(trackers[0], [&](bool success, const auto&) { bound = success; });
  });
  a.clock().runFor(10s);
  EXPECT_TRUE(bound);
  EXPECT_TRUE(b.clock().runUntilIdle());
  EXPECT_EQ(b.queue().now(), 0s);  // nothing was ever due there
}

// ---- Dropping everything frees everything

std::size_t entries(const char* directory) {
  DIR* const open = opendir(directory);
  std::size_t count = 0;
  while (readdir(open) != nullptr) ++count;
  closedir(open);
  return count;
}

TEST(DroppedPlatformTest, LeavesNoDescriptorAndNoThread) {
  const auto make = [] {
    const auto platform = KVLinuxPlatform::make();
    const auto tracker = std::make_shared<KVTracker>(*platform);
    tracker->setBinding(true);
    tracker->initRSSITimerThread();
  };
  make();  // what a first use leaves behind for good is not counted
  const auto descriptors = entries("/proc/self/fd");
  const auto threads = entries("/proc/self/task");
  for (int i = 0; i < 20; ++i) make();
  EXPECT_EQ(entries("/proc/self/fd"), descriptors);
  EXPECT_EQ(entries("/proc/self/task"), threads);
}

// A world of its own, which dies with the queue.
struct Doomed {
  Doomed() {
    auto platform = std::make_shared<KVPlatform>(*KVPlatform::shared());
    platform->eventQueue = queue;
    platform->radio = std::make_shared<FakeRadio>(std::make_shared<Journal>());
    manager = std::make_shared<KVTrackerManager>(*platform);
  }

  std::shared_ptr<FakeQueue> queue = std::make_shared<FakeQueue>();
  std::shared_ptr<KVTrackerManager> manager;
};

TEST_F(ManagerOwnershipTest, RequestsInFlightDieWithTheQueue) {
  for (const bool unbinding : {false, true}) {
    Doomed world;
    const auto ours = std::exchange(manager, world.manager);
    auto tracker = unbinding ? connected() : scanned();
    const std::weak_ptr<KVTrackerManager> owner = manager;
    const std::weak_ptr<KVTracker> watched = tracker;
    if (unbinding) {
      manager->unbindTracker(kMac, result("unbound"));
    } else {
      manager->bindingVerify(tracker, result("bound"));
    }
    manager = ours;
    world.manager.reset();
    tracker.reset();
    EXPECT_FALSE(owner.expired() || watched.expired()) << "in flight, the queue keeps them";
    world.queue.reset();
    EXPECT_TRUE(owner.expired() && watched.expired()) << "unbinding: " << unbinding;
    took();
  }
}

TEST_F(ManagerOwnershipTest, RequestThatIsReplacedKeepsNobody) {
  const auto tracker = connected();
  for (int i = 0; i < 3; ++i) manager->unbindTracker(kMac, result("unbound"));
  EXPECT_EQ(queue->pending(), 2u);  // the bind check, and the last request
  tracker->setPasswordRemoveBlock(nullptr);
  EXPECT_EQ(queue->pending(), 1u);
  manager->bindingVerify(tracker, result("bound"));
  tracker->setBindingBlock(nullptr);
  const std::weak_ptr<KVTrackerManager> owner = manager;
  manager.reset();
  EXPECT_TRUE(owner.expired());
  took();
}

TEST_F(ManagerOwnershipTest, QueueThatIsGoneTakesNothing) {
  Doomed world;
  world.queue.reset();
  const auto ours = std::exchange(manager, world.manager);
  const auto tracker = scanned();
  manager->bindingVerify(tracker, result("bound"));
  EXPECT_TRUE(tracker->binding());
  manager = ours;
  took();
}

// ---- A central that outlives its manager

TEST(DroppedManagerTest, ItsCentralIsSilent) {
  kvsim::SimulatedRadio radio;
  const auto tag = radio.addTag({.address = "a1b2c3d4e5f6", .password = {}});
  auto manager = std::make_shared<KVTrackerManager>(*radio.platform());
  int scans = 0;
  manager->startScan([&](const KVTrackers&) { ++scans; });
  radio.clock().runFor(3s);
  const auto central = manager->central();
  EXPECT_GT(std::exchange(scans, 0), 0);
  manager.reset();
  radio.advertise(tag);
  radio.setAdapterState(KVCentralStatePoweredOff);
  radio.clock().runFor(3s);
  EXPECT_EQ(scans, 0);
  EXPECT_EQ(central->state(), KVCentralStatePoweredOff);
}

// ---- Arguments that live in what changes

TEST_F(ManagerOwnershipTest, KeyLivesInTheTrackerThatIsReplaced) {
  auto tracker = std::make_shared<KVTracker>();
  const std::string longMac(100, 'a');
  tracker->updateData(KVTrackerDataMac, longMac);
  KVTrackerMap map;
  map.set(longMac, tracker);
  const std::string& key = *tracker->mac();
  tracker.reset();
  const auto other = std::make_shared<KVTracker>();
  map.set(key, other);
  EXPECT_EQ(map.find(longMac), other);
  EXPECT_EQ(map.size(), 1u);
}

TEST_F(ManagerOwnershipTest, SnapshotKeepsOnlyWhatItShows) {
  KVTrackerMap map;
  map.set("1", std::make_shared<KVTracker>());
  const KVTrackers old = map.values();
  auto later = std::make_shared<KVTracker>();
  map.set("2", later);
  KVTrackers both = map.values();
  EXPECT_EQ(old.size(), 1u);
  EXPECT_EQ(both.size(), 2u);
  EXPECT_EQ(both[1], later);
  const std::weak_ptr<KVTracker> watched = std::exchange(later, nullptr);
  map.clear();
  EXPECT_FALSE(watched.expired());
  both = KVTrackers();
  EXPECT_TRUE(watched.expired());
  EXPECT_EQ(old.size(), 1u);
}

// ---- Removed inside its own callback

TEST_F(ManagerOwnershipTest, TrackerRemovedWhenToldThatItConnectsIsNotConnected) {
  using Remove = void (*)(KVTrackerManager&);
  const std::vector<std::pair<Remove, Lines>> ways{
      {[](KVTrackerManager& m) { m.removeTracker("one"); }, {"cancel P"}},
      {[](KVTrackerManager& m) { m.removeAllTrackers(); }, {"cancel P", "stop scan"}},
      {[](KVTrackerManager& m) { m.unbindTracker("one", nullptr); }, {"cancel P"}},
  };
  for (const auto& [remove, lines] : ways) {
    const auto tracker = bound("one", p);
    tracker->didConnectionChange([&, remove = remove](std::uint64_t connection) {
      if (connection == KVConnectionConnecting) remove(*manager);
    });
    took();
    manager->connect(tracker);
    EXPECT_EQ(took(), lines);
    EXPECT_TRUE(manager->bindTrackers()->empty());
  }
}

// ---- Nothing throws

TEST_F(ManagerOwnershipTest, NullTextIsAnAbsentOne) {
  const char* const none = nullptr;
  const Lines logged{"log: Error: the given tracker doesn't have a mac address."};
  EXPECT_EQ(manager->addTracker(none), nullptr);
  EXPECT_EQ(took(), logged);
  manager->removeTracker(none);
  EXPECT_EQ(took(), logged);
  manager->unbindTracker(none, result("unbound"));
  EXPECT_EQ(took(), logged);
  EXPECT_EQ(manager->existTracker(none, /*bind=*/true), nullptr);
  manager->setPassword("secret");
  manager->setPassword(none);
  EXPECT_EQ(manager->password(), std::nullopt);
  EXPECT_TRUE(manager->addTracker("one"));  // a text that is there is taken as ever
}

TEST_F(ManagerOwnershipTest, ManagerThatNobodySharesWorks) {
  KVTrackerManager own;
  own.setPassword("secret");
  const auto shared =
      std::exchange(manager, std::shared_ptr<KVTrackerManager>(std::shared_ptr<void>(), &own));
  connected();
  EXPECT_EQ(own.bindTrackers()->size(), 1u);
  own.unbindTracker(kMac, result("unbound"));
  took();
  p->reportValue((*own.bindTrackers())[0]->korvaChar(), sealed(session, "01021400"));
  EXPECT_EQ(took(), (Lines{"cancel P", "unbound true"}));
  EXPECT_TRUE(own.bindTrackers()->empty());
  manager = shared;
}

}  // namespace
}  // namespace kvtest
