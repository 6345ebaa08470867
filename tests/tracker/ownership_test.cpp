// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// A tracker and what may go while it works.
#include "tests/support/core_tracker_test.h"

namespace kvtest {
namespace {

using TrackerOwnershipTest = TrackerTest;

TEST_F(TrackerOwnershipTest, TokenMayBeTheSessionKeyItself) {
  tracker->setComToken(token());
  tracker->setAuth(KVAuthTokenReceived);
  tracker->validateDevice(*tracker->comToken());
  const KVData tagHalf = bytes("c0c1c2c3c4c5c6c7");
  const KVData key = tracker->comToken().value_or(KVData());
  ASSERT_EQ(key.size(), 16u);
  EXPECT_TRUE(std::equal(tagHalf.begin(), tagHalf.end(), key.begin()));
  EXPECT_EQ(took().front(), "log: device token validated.");
}

TEST_F(TrackerOwnershipTest, CallbackDropsTheLastReferenceOfAnyOwner) {
  auto own = std::make_unique<KVTracker>();  // no shared pointer owns it
  own->setBound(true);
  own->didConnectionChange([&](std::uint64_t) { own.reset(); });
  own->didValueUpdate([&] { journal->add("updated"); });
  own->setState(KVTrackerStateDisconnected);
  EXPECT_EQ(own, nullptr);
  EXPECT_EQ(took(), Lines{"updated"});  // what had begun is carried through
}

TEST_F(TrackerOwnershipTest, BindCheckOfATrackerThatIsGoneDoesNothing) {
  {
    KVTracker own;
    own.setBindingBlock(result("bind"));
    own.setBinding(true);
  }
  queue->runFor(std::chrono::seconds(30));
}

TEST_F(TrackerOwnershipTest, TrackerThatNobodySharesWorks) {
  KVTracker own;
  own.updateData(KVTrackerDataMac, std::string(kMac));
  own.setPassword("secret");
  own.setPeripheral(p);
  own.setBindingBlock(result("bind"));
  own.setBinding(true);
  const KVData key = reachBindRequest(own, *p);
  p->reportValue(own.korvaChar(), sealed(key, "01021300"));
  EXPECT_EQ(took(), (Lines{"timer start 3000 ms", "bind true"}));
  own.setBinding(true);
  queue->runFor(std::chrono::seconds(30));
  EXPECT_EQ(took(), Lines{"bind false Error! Binding Timeout. 400"});
  own.stopRSSITimer();
  took();
}

TEST_F(TrackerOwnershipTest, NullTextIsAnAbsentOne) {
  const char* const none = nullptr;
  tracker->updateData(KVTrackerDataName, "keys");
  EXPECT_EQ(tracker->name(), "keys");
  tracker->updateData(KVTrackerDataName, none);
  tracker->setPassword(none);
  EXPECT_EQ(tracker->name(), std::nullopt);
  EXPECT_EQ(tracker->password(), std::nullopt);
  tracker->updateData(KVTrackerDataBattery, 7);
  tracker->updateData(KVTrackerDataBattery, 0);  // a number, no null pointer
  tracker->updateData(KVTrackerDataMac, 0);
  EXPECT_EQ(tracker->battery(), 0);
  EXPECT_EQ(tracker->mac(), kMac);
}

}  // namespace
}  // namespace kvtest
