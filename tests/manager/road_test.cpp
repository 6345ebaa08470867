// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// The whole road against a simulated tag, which reads the wire with code of its own.
#include <gtest/gtest.h>

#include "KVFobLink/KVFobLink.h"
#include "KVFobSimulator/KVFobSimulator.h"
#include "tests/support/no_log.h"

namespace kvtest {
namespace {

using std::chrono::seconds;

class RoadTest : public ::testing::Test {
 protected:
  RoadTest() {
    KVPlatform::setCurrent(radio.platform());
    manager = std::make_shared<KVTrackerManager>();
    manager->setPassword("secret");
  }
  ~RoadTest() override { KVPlatform::setCurrent(nullptr); }

  // Scans until the tag is heard, and asks to bind it.
  std::string bind() {
    bindOutcome.reset();
    manager->startScan([&](const KVTrackers& trackers) {
      manager->stopScan();
      tracker = trackers[0];
      manager->bindingVerify(tracker, store(bindOutcome));
    });
    return await(bindOutcome, seconds(40));
  }

  static KVResultCallback store(std::optional<std::string>& outcome) {
    return [&outcome](bool success, const std::optional<KVError>& error) {
      outcome = success ? "done" : error->domain;
    };
  }

  std::string await(const std::optional<std::string>& outcome, seconds most = seconds(5)) {
    radio.clock().runUntil([&] { return outcome.has_value(); }, most);
    return outcome.value_or("no answer");
  }

  std::string ring(bool on) {
    std::optional<std::string> outcome;
    tracker->switchBellStatus(on, store(outcome));
    auto result = await(outcome);
    tracker->setRingBlock(nullptr);
    return result;
  }

  kvsim::SimulatedRadio radio{{.seed = 7, .log = std::make_shared<NoLog>()}};
  std::shared_ptr<KVTrackerManager> manager;
  std::shared_ptr<KVTracker> tracker;
  std::optional<std::string> bindOutcome;
};

TEST_F(RoadTest, FromTheFirstAdvertisementToUnbinding) {
  const auto tag = radio.addTag({.address = "a1b2c3d4e5f6"});
  radio.setRssi(tag, -60);
  ASSERT_EQ(bind(), "done");
  EXPECT_EQ(manager->existTracker("a1b2c3d4e5f6", /*bind=*/true), tracker);
  EXPECT_TRUE(tag->state().passwordSet && tag->state().bound);
  EXPECT_EQ(ring(true), "done");
  EXPECT_TRUE(tag->state().bellRinging);
  EXPECT_EQ(ring(false), "done");
  EXPECT_FALSE(tag->state().bellRinging);

  std::optional<std::string> alert, delay, distance, unbound;
  tracker->writeLossAlert(/*on=*/true, store(alert));
  EXPECT_EQ(await(alert), "done");
  tracker->writeLossDelay(7000, store(delay));
  EXPECT_EQ(await(delay), "done");
  tracker->writeLossDistance(KVDistanceNear, store(distance));
  EXPECT_EQ(await(distance), "done");
  EXPECT_TRUE(tag->state().alertOn);
  EXPECT_EQ(tag->state().lossDelay, 7000);
  EXPECT_EQ(tag->state().distance, -20);

  std::int64_t pressed = 0;
  tracker->didReceive([&](std::int64_t event) { pressed += event; });
  tag->pressButton();
  radio.setRssi(tag, -80);
  radio.clock().runFor(seconds(5));
  EXPECT_EQ(pressed, 1);
  EXPECT_EQ(tracker->rssi(), -80);
  EXPECT_EQ(tracker->distance(), KVDistanceFar);

  radio.dropLink(tag);
  radio.clock().runFor(std::chrono::milliseconds(1));
  EXPECT_NE(tracker->connection(), KVConnectionConnected);
  EXPECT_TRUE(radio.clock().runUntil([&] { return tracker->connection() == KVConnectionConnected; },
                                     seconds(10)));
  EXPECT_EQ(tag->state().sessions, 2u);
  EXPECT_EQ(ring(true), "done");

  manager->unbindTracker("a1b2c3d4e5f6", store(unbound));
  EXPECT_EQ(await(unbound), "done");
  radio.clock().runFor(seconds(60));
  EXPECT_FALSE(tag->state().passwordSet || tag->state().connected);
  EXPECT_EQ(tag->state().rejected, 0u);
}

TEST_F(RoadTest, RefusedPassword) {
  const auto tag = radio.addTag({.password = "other"});
  EXPECT_EQ(bind(), "error password.");
  EXPECT_TRUE(manager->bindTrackers()->empty());
  EXPECT_TRUE(tag->state().connected);  // the link is left as it is
  manager->disconnect(tracker);
  radio.clock().runFor(seconds(1));
  manager->setPassword("other");
  EXPECT_EQ(bind(), "done");
  EXPECT_TRUE(tag->state().bound);
}

}  // namespace
}  // namespace kvtest
