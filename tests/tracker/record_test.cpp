// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// The record's fields, the effects of its state, and the discovery of the tag's characteristics.
#include <gmock/gmock.h>

#include "tests/support/core_tracker_test.h"

namespace kvtest {
namespace {

class RecordTest : public TrackerTest {
 protected:
  // What the tag advertised, in one line.
  static std::string fields(const KVTracker& t) {
    const auto date = t.advUpdate();
    return t.mac().value_or("-") + "," + t.name().value_or("-") + "," + std::to_string(t.rssi()) +
           "," + std::to_string(t.battery()) + "," + std::to_string(t.radioTx()) + "," +
           (date ? std::to_string(date->time_since_epoch() / std::chrono::hours(1)) : "-") + "," +
           std::to_string(t.model()) + " distance " + std::to_string(t.distance());
  }
};

TEST_F(RecordTest, FreshOneKnowsNothing) {
  KVTracker t;
  EXPECT_EQ(fields(t), "-,-,0,0,0,-,0 distance 2");
  EXPECT_EQ(t.connection(), 0u);
  EXPECT_EQ(t.state(), 0);
  EXPECT_EQ(t.auth(), 0u);
  EXPECT_FALSE(t.bound() || t.binding());
  EXPECT_FALSE(t.password() || t.comToken() || t.peripheral() || t.korvaChar() || t.txChar());
  EXPECT_FALSE(t.timer() || t.timerThread());
  EXPECT_FALSE(t.commandSendBlock() || t.bindingBlock() || t.ringBlock() ||
               t.writelossAlertBlock() || t.writelossDistanceBlock() || t.writelossDelayBlock() ||
               t.passwordRemoveBlock() || t.receiveBlock() || t.connectionBlock() ||
               t.valueUpdated());
  EXPECT_TRUE(t.conBlockArray().empty());
  EXPECT_EQ(t.staticKey(), kStaticKey);
}

TEST_F(RecordTest, UpdateDataWritesOneField) {
  using std::string_literals::operator""s;
  const KVTrackerValue absent;
  const KVTrackerValue date = KVTracker::Date(std::chrono::hours(9));
  const struct {
    std::int64_t key;
    KVTrackerValue value;
    const char* fields;
  } steps[] = {
      {1, "ab"s, "ab,-,0,0,0,-,0 distance 2"},
      {2, "tag"s, "ab,tag,0,0,0,-,0 distance 2"},
      {3, std::int64_t{-60}, "ab,tag,-60,0,0,-,0 distance 4"},
      {4, std::int64_t{90}, "ab,tag,-60,90,0,-,0 distance 4"},
      {5, std::int64_t{-12}, "ab,tag,-60,90,-12,-,0 distance 4"},
      {6, date, "ab,tag,-60,90,-12,9,0 distance 4"},
      {7, std::int64_t{-1}, "ab,tag,-60,90,-12,9,-1 distance 4"},
      {0, std::int64_t{5}, "ab,tag,-60,90,-12,9,-1 distance 4"},
      {8, std::int64_t{5}, "ab,tag,-60,90,-12,9,-1 distance 4"},
      {-1, "x"s, "ab,tag,-60,90,-12,9,-1 distance 4"},
      // The wrong kind of value.
      {1, std::int64_t{5}, "ab,tag,-60,90,-12,9,-1 distance 4"},
      {2, date, "ab,tag,-60,90,-12,9,-1 distance 4"},
      {3, "x"s, "ab,tag,-60,90,-12,9,-1 distance 4"},
      {4, date, "ab,tag,-60,90,-12,9,-1 distance 4"},
      {5, "x"s, "ab,tag,-60,90,-12,9,-1 distance 4"},
      {6, std::int64_t{5}, "ab,tag,-60,90,-12,9,-1 distance 4"},
      {7, "x"s, "ab,tag,-60,90,-12,9,-1 distance 4"},
      // No value.
      {3, std::int64_t{-70}, "ab,tag,-70,90,-12,9,-1 distance 2"},
      {3, absent, "ab,tag,0,90,-12,9,-1 distance 4"},
      {4, absent, "ab,tag,0,0,-12,9,-1 distance 4"},
      {5, absent, "ab,tag,0,0,0,9,-1 distance 4"},
      {7, absent, "ab,tag,0,0,0,9,0 distance 4"},
      {6, absent, "ab,tag,0,0,0,-,0 distance 4"},
      {2, absent, "ab,-,0,0,0,-,0 distance 4"},
      {1, absent, "-,-,0,0,0,-,0 distance 4"},
  };
  const auto t = std::make_shared<KVTracker>();
  t->didValueUpdate([this] { journal->add("updated"); });
  for (const auto& step : steps) {
    t->updateData(step.key, step.value);
    EXPECT_EQ(fields(*t), step.fields) << step.key;
  }
}

TEST_F(RecordTest, DistanceFollowsEverySignalStrength) {
  using Limits = std::numeric_limits<std::int64_t>;
  const std::pair<std::int64_t, std::uint64_t> cases[] = {
      {-70, 2}, {-69, 3},           {-65, 3}, {-64, 4},          {-71, 2},
      {0, 4},   {Limits::min(), 2}, {-66, 3}, {Limits::max(), 4}};
  for (const auto& [rssi, distance] : cases) {
    KVTracker t;
    t.updateDistanceViaRssi(rssi);
    EXPECT_EQ(t.distance(), distance) << rssi;
    EXPECT_EQ(t.rssi(), 0);
    tracker->setRssi(rssi);
    EXPECT_EQ(tracker->rssi(), rssi);
    EXPECT_EQ(tracker->distance(), distance) << rssi;
  }
}

TEST_F(RecordTest, StateActsEachTimeItIsSet) {
  const struct {
    std::int64_t state;
    std::uint64_t connection;
    Lines bound, unbound;
  } cases[] = {
      {1, 1, {"connection 1 state 1", "updated"}, {"updated"}},
      {2, 1, {"P discover services", "updated"}, {"P discover services", "updated"}},
      {3, 1, {"updated"}, {"updated"}},
      {-1, 1, {"updated"}, {"updated"}},
      {4, 1, {"updated"}, {"updated"}},
      {0, 0, {"connection 0 state 0", "timer stop", "updated"}, {"updated"}},
  };
  tracker->initRSSITimerThread();
  EXPECT_EQ(took(), Lines{"timer start 3000 ms"});
  for (const auto& c : cases) {
    tracker->setBound(true);
    tracker->setAuth(KVAuthTokenChecked);
    tracker->setState(c.state);
    EXPECT_EQ(took(), c.bound) << c.state;
    EXPECT_EQ(tracker->state(), c.state);
    EXPECT_EQ(tracker->connection(), c.connection);
    EXPECT_EQ(tracker->auth(), c.state == 2 ? KVAuthNone : KVAuthTokenChecked);
    tracker->setBound(false);
    tracker->setState(c.state);
    EXPECT_EQ(took(), c.unbound) << c.state;
    EXPECT_EQ(tracker->connection(), c.connection);
  }
}

TEST_F(RecordTest, ConnectionIsReportedWheneverItIsSetOnABoundTracker) {
  tracker->updateConnection(2);
  EXPECT_EQ(tracker->connection(), 2u);
  tracker->setBound(true);
  tracker->updateConnection(2);
  tracker->updateConnection(2);
  EXPECT_EQ(took(), (Lines{"connection 2 state 0", "connection 2 state 0"}));
  removeCallbacks();
  tracker->updateConnection(KVConnectionVerifyFailed);
  EXPECT_EQ(tracker->connection(), std::numeric_limits<std::uint64_t>::max());
  tracker->setState(KVTrackerStateDisconnected);
}

TEST_F(RecordTest, WithoutAPeripheralThereIsNothingToAsk) {
  tracker->setPeripheral(nullptr);
  tracker->setAuth(KVAuthTokenChecked);
  tracker->setState(KVTrackerStateConnected);
  EXPECT_EQ(tracker->auth(), KVAuthNone);
  EXPECT_EQ(took(), Lines{"updated"});
  tracker->switchBellStatus(/*status=*/true, nullptr);
  EXPECT_EQ(took(), Lines{"log: Cipher Key Error!"});
  tracker->writeLossDistance(KVDistanceFar, nullptr);
  tracker->didDiscoverServices(*p, std::nullopt);
  EXPECT_EQ(took(), Lines{"log: Error When discover services:(null)"});
}

TEST_F(RecordTest, OneThatNoSharedPointerOwnsHearsItsPeripheral) {
  KVTracker own;
  own.setPeripheral(p);
  p->reportRSSI(-67);
  EXPECT_EQ(own.rssi(), -67);
}

TEST_F(RecordTest, AbsentCharacteristics) {
  tracker->didUpdateValueForCharacteristic(*p, nullptr, std::nullopt);
  EXPECT_EQ(took(), Lines{});
  tracker->didWriteValueForCharacteristic(*p, nullptr, std::nullopt);
  EXPECT_EQ(took(), Lines{"log: ==a new instruction sent"});
}

TEST_F(RecordTest, DiscoveryAsksTheOwnPeripheralAndSubscribesOnTheReportingOne) {
  const auto old = peripheral("Q");
  tracker->setPeripheral(old);
  tracker->setPeripheral(p);
  old->reportServices();
  EXPECT_EQ(took(), (Lines{"log: Error When discover services:(null)", "P discover 7F280001",
                           "P discover A3C87500", "P discover 180A"}));
  for (std::size_t i = 0; i < 3; ++i) old->reportCharacteristics(i, KVError{"ignored", 1, {}});
  EXPECT_EQ(took(),
            (Lines{"Q subscribe 7F280002", "Q read 7F280002", "Q read 2A29", "Q read 2A26"}));
  EXPECT_EQ(tracker->korvaChar(), old->services()[0]->characteristics()[0]);
  EXPECT_EQ(tracker->txChar(), old->services()[1]->characteristics()[0]);

  for (std::size_t i = 0; i < 2; ++i) p->reportCharacteristics(i);
  EXPECT_EQ(took(), (Lines{"P subscribe 7F280002", "P read 7F280002"}));
  tracker->setState(KVTrackerStateDisconnected);
  EXPECT_EQ(took(), Lines{"updated"});
  EXPECT_EQ(tracker->korvaChar(), p->services()[0]->characteristics()[0]);
  EXPECT_EQ(tracker->txChar(), p->services()[1]->characteristics()[0]);
}

TEST_F(RecordTest, FailedDiscoveryIsLogged) {
  FakePeripheral bare("B", journal);
  bare.setDelegate(tracker);
  bare.reportServices(KVError{"no route", 7, {}});
  const Lines lines = took();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_THAT(lines[0], ::testing::StartsWith("log: Error When discover services:"));
  EXPECT_THAT(lines[0], ::testing::HasSubstr("no route"));
}

TEST_F(RecordTest, DuplicateAndForeignCharacteristics) {
  FakePeripheral odd("B", journal);
  odd.setDelegate(tracker);
  const auto command =
      odd.add(kCommandService, {kDistanceChar, kCommandChar, "2A29", kCommandChar});
  const auto vendor = odd.add(kVendorService, {kDistanceChar, kCommandChar, kDistanceChar});
  odd.add("180A", {kCommandChar, kDistanceChar});
  odd.add("180F", {kCommandChar, kDistanceChar, "2A19"});
  const Lines expected[] = {
      {"B subscribe 7F280002", "B read 7F280002", "B subscribe 7F280002", "B read 7F280002"},
      {},
      {"B read 7F280002", "B read A3C87504"},
      {}};
  for (std::size_t i = 0; i < 4; ++i) {
    odd.reportCharacteristics(i);
    EXPECT_EQ(took(), expected[i]) << i;
    EXPECT_EQ(tracker->korvaChar(), command->characteristics()[3]);
    EXPECT_EQ(tracker->txChar(), i == 0 ? nullptr : vendor->characteristics()[2]);
  }
}

}  // namespace
}  // namespace kvtest
