// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// The registry of bound tags, and the collections that hold the trackers.
#include "tests/support/core_manager_test.h"

namespace kvtest {
namespace {

class RegistryTest : public ManagerTest {
 protected:
  const std::string kNoMac = "log: Error: the given tracker doesn't have a mac address.";
};

TEST_F(RegistryTest, AddMakesABoundTrackerOnce) {
  manager->setPassword("secret");
  const auto live = manager->bindTrackers();
  const auto tracker = manager->addTracker(kMac);
  EXPECT_EQ(tracker->mac(), kMac);
  EXPECT_TRUE(tracker->bound());
  EXPECT_EQ(tracker->password(), "secret");
  EXPECT_EQ(tracker->peripheral(), nullptr);
  manager->setPassword(std::nullopt);
  EXPECT_EQ(manager->addTracker(kMac), tracker);
  EXPECT_EQ(tracker->password(), "secret");
  EXPECT_EQ(live->size(), 1u);
  EXPECT_EQ((*live)[0], tracker);
  const auto upper = manager->addTracker("A1B2C3D4E5F6");
  EXPECT_NE(upper, tracker);
  EXPECT_EQ(upper->password(), std::nullopt);
  EXPECT_EQ(std::vector(live->begin(), live->end()), (std::vector{tracker, upper}));
}

TEST_F(RegistryTest, AddMovesAScannedTrackerAsItIs) {
  const auto tracker = scanned();
  manager->setPassword("secret");
  EXPECT_EQ(manager->addTracker(kMac), tracker);
  EXPECT_EQ(manager->existTracker(kMac, /*bind=*/true), tracker);
  EXPECT_EQ(manager->existTracker(kMac, /*bind=*/false), nullptr);
  EXPECT_FALSE(tracker->bound());
  EXPECT_EQ(tracker->password(), std::nullopt);
}

TEST_F(RegistryTest, AbsentAddress) {
  EXPECT_EQ(manager->addTracker(std::nullopt), nullptr);
  EXPECT_EQ(took(), Lines{kNoMac});
  manager->removeTracker(std::nullopt);
  EXPECT_EQ(took(), Lines{kNoMac});
  const auto nameless = std::make_shared<KVTracker>();
  manager->bindArray()->append(nameless);
  EXPECT_EQ(manager->existTracker(std::nullopt, /*bind=*/true), nullptr);
  EXPECT_EQ(manager->existTracker(std::nullopt, /*bind=*/false), nullptr);
  EXPECT_EQ(manager->existTracker("", /*bind=*/true), nullptr);
}

TEST_F(RegistryTest, RemoveDropsTheTagAndItsLink) {
  const auto tracker = bound(kMac, p);
  const auto other = bound(kOther, q);
  manager->bindArray()->append(tracker);
  watch(*tracker, "tag");
  tracker->initRSSITimerThread();
  took();
  manager->removeTracker("unknown");
  EXPECT_EQ(took(), Lines{});
  manager->removeTracker(kMac);
  EXPECT_EQ(took(), (Lines{"cancel P", "timer stop"}));
  EXPECT_FALSE(tracker->bound());
  EXPECT_TRUE(other->bound());
  EXPECT_EQ(std::vector(manager->bindTrackers()->begin(), manager->bindTrackers()->end()),
            std::vector{other});
  EXPECT_TRUE(manager->scannedTrackers().empty());

  other->setPeripheral(nullptr);
  manager->removeTracker(kOther);
  EXPECT_EQ(took(), Lines{"log: Error: the given tracker didn't have a peripheral."});
  EXPECT_TRUE(manager->bindTrackers()->empty());
  manager->removeTracker(kOther);
}

TEST_F(RegistryTest, RemoveTakesTheFirstOfEqualAddresses) {
  const auto first = bound(kMac, p);
  const auto second = std::make_shared<KVTracker>();
  second->updateData(KVTrackerDataMac, std::string(kMac));
  second->setPeripheral(q);
  manager->bindArray()->append(second);
  manager->removeTracker(kMac);
  EXPECT_EQ(took(), Lines{"cancel P"});
  EXPECT_EQ(manager->existTracker(kMac, /*bind=*/true), second);
}

TEST_F(RegistryTest, RemoveAllLeavesTheIntentToScan) {
  manager->startScan(scans());
  const auto live = manager->bindTrackers();
  const auto first = bound(kMac, p);
  const auto second = bound(kOther, nullptr);
  hear(q, {"a10b64 060504030201 f4"});
  first->initRSSITimerThread();
  took();
  manager->removeAllTrackers();
  EXPECT_EQ(took(), (Lines{"cancel P", "log: Error: the given tracker didn't have a peripheral.",
                           "stop scan"}));
  EXPECT_FALSE(first->bound() || second->bound());
  EXPECT_TRUE(live->empty() && manager->scannedTrackers().empty());
  EXPECT_EQ(live, manager->bindTrackers());
  EXPECT_TRUE(manager->scanning() && manager->scanBlock());
  EXPECT_TRUE(first->timerThread());
  EXPECT_EQ(timers->tick(), 1);  // the link is gone by then
  EXPECT_EQ(took(), Lines{"timer stop"});
}

TEST_F(RegistryTest, LookUpsFollowAChangedAddress) {
  const auto first = manager->addTracker("one");
  const auto second = manager->addTracker("two");
  manager->bindArray()->append(first);
  first->updateData(KVTrackerDataMac, std::string("new"));
  EXPECT_EQ(manager->existTracker("one", /*bind=*/true), nullptr);
  EXPECT_EQ(manager->existTracker("new", /*bind=*/true), first);
  second->updateData(KVTrackerDataMac, std::string("new"));
  EXPECT_EQ(manager->existTracker("new", /*bind=*/true), first);
  manager->bindArray()->remove(first);
  EXPECT_EQ(manager->existTracker("new", /*bind=*/true), second);
  EXPECT_EQ(manager->bindTrackers()->size(), 1u);
  first->updateData(KVTrackerDataMac, std::string("stray"));
  EXPECT_EQ(manager->existTracker("stray", /*bind=*/true), nullptr);
  second->updateData(KVTrackerDataMac, KVTrackerValue());
  EXPECT_EQ(manager->existTracker("new", /*bind=*/true), nullptr);
}

TEST_F(RegistryTest, LookUpsFollowReplacedCollections) {
  const auto old = manager->addTracker("one");
  const auto tracker = std::make_shared<KVTracker>();
  tracker->updateData(KVTrackerDataMac, std::string("one"));
  const auto list = std::make_shared<KVTrackerList>();
  list->append(tracker);
  manager->setBindArray(list);
  EXPECT_EQ(manager->bindTrackers(), list);
  EXPECT_EQ(manager->existTracker("one", /*bind=*/true), tracker);
  manager->setBindArray(nullptr);
  EXPECT_EQ(manager->existTracker("one", /*bind=*/true), nullptr);
  EXPECT_NE(manager->addTracker("one"), old);

  const auto map = std::make_shared<KVTrackerMap>();
  map->set("key", tracker);
  manager->setScannedDict(map);
  EXPECT_EQ(manager->existTracker("key", /*bind=*/false), tracker);
  EXPECT_EQ(manager->scannedTrackers().size(), 1u);
  manager->setScannedDict(nullptr);
  EXPECT_EQ(manager->existTracker("key", /*bind=*/false), nullptr);
  EXPECT_EQ(scanned()->mac(), kMac);
}

TEST_F(RegistryTest, ListKeepsOrderThroughEveryChange) {
  const auto make = [this](const std::string& mac, const std::string& device) {
    auto tracker = std::make_shared<KVTracker>();
    tracker->updateData(KVTrackerDataMac, mac);
    tracker->setPeripheral(peripheral(device));
    return tracker;
  };
  const auto a = make("m", "d"), b = make("m", "d"), c = make("m", "d");
  KVTrackerList list;
  EXPECT_EQ(list.firstWithMac("m"), nullptr);
  list.append(nullptr);
  list.insert(0, nullptr);
  EXPECT_TRUE(list.empty());
  list.append(b);
  list.insert(7, c);
  EXPECT_EQ(list.firstWithMac("m"), b);
  list.insert(0, a);
  EXPECT_EQ(list.firstWithMac("m"), a);
  EXPECT_EQ(list.firstWithPeripheral("d"), a);
  EXPECT_EQ(std::vector(list.begin(), list.end()), (std::vector{a, b, c}));
  list.insert(1, c);
  list.remove(nullptr);
  list.remove(a);
  EXPECT_EQ(list.firstWithMac("m"), c);
  EXPECT_EQ(list.firstWithPeripheral("d"), c);
  list.remove(c);
  EXPECT_EQ(list.firstWithMac("m"), b);
  EXPECT_EQ(list.size(), 1u);
  list.clear();
  EXPECT_EQ(list.firstWithPeripheral("d"), nullptr);
  b->updateData(KVTrackerDataMac, std::string("x"));
  b->setPeripheral(nullptr);
  EXPECT_EQ(list.firstWithMac("x"), nullptr);
}

TEST_F(RegistryTest, ListOfATrackerThatItsOwnerKeepsOtherwise) {
  KVTracker own;
  own.updateData(KVTrackerDataMac, std::string("m"));
  KVTrackerList list;
  list.append(std::shared_ptr<KVTracker>(std::shared_ptr<void>(), &own));
  EXPECT_TRUE(list.contains(own));
  EXPECT_EQ(list.firstWithMac("m").get(), &own);
  list.remove(list.firstWithMac("m"));
  EXPECT_FALSE(list.contains(own));
}

TEST_F(RegistryTest, MapFindsByKeyAndByPendingRequest) {
  KVTrackerMap map;
  const auto a = std::make_shared<KVTracker>(), b = std::make_shared<KVTracker>();
  map.set("a", nullptr);
  EXPECT_TRUE(map.empty());
  map.set("a", a);
  map.set("b", b);
  map.set("b", a);
  EXPECT_EQ(map.size(), 2u);
  EXPECT_EQ(map.find("b"), a);
  EXPECT_EQ(map.find("c"), nullptr);
  map.set("b", b);
  a->setPeripheral(p);
  b->setPeripheral(p);
  EXPECT_EQ(map.bindingWithPeripheral("P"), nullptr);
  b->setBinding(true);
  EXPECT_EQ(map.bindingWithPeripheral("P"), b);
  EXPECT_EQ(map.bindingWithPeripheral("Q"), nullptr);
  a->setBinding(true);  // it was under two keys, and still is under one
  EXPECT_EQ(map.bindingWithPeripheral("P"), a);
  a->setBinding(false);
  const KVTrackers before = map.values();
  map.erase("c");
  EXPECT_EQ(&map.values()[0], &before[0]);
  map.erase("b");
  EXPECT_EQ(map.bindingWithPeripheral("P"), nullptr);
  EXPECT_EQ(map.values().size(), 1u);
  EXPECT_EQ(before.size(), 2u);
  map.clear();
  EXPECT_EQ(map.find("a"), nullptr);
  EXPECT_TRUE(map.values().empty());
}

}  // namespace
}  // namespace kvtest
