// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// What every central promises. Implement `CentralHarness`, include this in one file and write
///
///     INSTANTIATE_TEST_SUITE_P(Mine, CentralConformance,
///                              testing::Values([] { return std::make_unique<MyHarness>(); }));
#ifndef TESTS_SUPPORT_CENTRAL_CONFORMANCE_H
#define TESTS_SUPPORT_CENTRAL_CONFORMANCE_H

#include "tests/support/central_harness.h"

namespace kvtest {

using testing::ElementsAre;
using testing::IsEmpty;

TEST_P(CentralConformance, AdapterStateIsTheFirstEventAndFollowsChanges) {
  makeCentral();
  passQuiet();
  EXPECT_THAT(recorder->events, ElementsAre("state 5"));
  EXPECT_EQ(central->state(), KVCentralStatePoweredOn);
  world->setPower(false);
  EXPECT_TRUE(settleUntil("state 4"));
  world->setPower(true);
  EXPECT_THAT(eventsInTheEnd(), ElementsAre("state 5", "state 4", "state 5"));
}

TEST_P(CentralConformance, ScanReportsWhatIsHeardWhileItRuns) {
  hearTag();
  const KVUUID foreign(0x1234);
  const KVUUID offered = world->advertisedService();
  struct Case {
    std::vector<KVUUID> services;
    bool allowDuplicates;
    Texts reports;
  };
  const std::vector<Case> cases = {
      {{}, true, {"found", "found", "found"}},
      {{foreign, offered}, true, {"found", "found", "found"}},
      {{offered}, false, {"found"}},
      {{offered}, false, {"found"}},  // each scan begins anew
      {{foreign}, true, {}},
  };
  for (const Case& c : cases) {
    recorder->events.clear();
    ask([&] { central->scanForPeripherals(c.services, c.allowDuplicates); });
    for (int i = 0; i < 3; ++i) {
      passQuiet();
      world->advertise(tag);
    }
    EXPECT_EQ(eventsInTheEnd(), c.reports);
  }
  ask([&] { central->stopScan(); });
  ask([&] { central->stopScan(); });
  passQuiet();
  recorder->events.clear();
  world->advertise(tag);
  EXPECT_THAT(eventsInTheEnd(), IsEmpty());
  for (const auto& found : recorder->found) EXPECT_TRUE(found->isEqual(*peripheral));
}

TEST_P(CentralConformance, TagsAreToldApart) {
  hearTag();
  ask([&] { central->scanForPeripherals({}, /*allowDuplicates=*/true); });
  passQuiet();
  recorder->found.clear();
  world->advertise(world->addTag());
  ASSERT_TRUE(settle([&] { return !recorder->found.empty(); }));
  EXPECT_FALSE(recorder->found.front()->isEqual(*peripheral));
}

TEST_P(CentralConformance, ScanDoesNotSurviveAnAdapterThatIsOff) {
  hearTag();
  ask([&] { central->scanForPeripherals({}, /*allowDuplicates=*/true); });
  passQuiet();
  world->setPower(false);
  ASSERT_TRUE(settleUntil("state 4"));
  ask([&] { central->scanForPeripherals({}, /*allowDuplicates=*/true); });
  passQuiet();
  world->setPower(true);
  ASSERT_TRUE(settleUntil("state 5"));
  passQuiet();
  recorder->events.clear();
  world->advertise(tag);
  EXPECT_THAT(eventsInTheEnd(), IsEmpty());
}

TEST_P(CentralConformance, RequestsToConnectAreJoinedAndAnsweredOnce) {
  hearTag();
  EXPECT_EQ(peripheral->state(), KVPeripheralStateDisconnected);
  ask([&] {
    central->connectPeripheral(peripheral);
    EXPECT_EQ(peripheral->state(), KVPeripheralStateConnecting);
    central->connectPeripheral(peripheral);
  });
  ASSERT_TRUE(settleUntil("connected"));
  EXPECT_THAT(eventsInTheEnd(), ElementsAre("connected"));
  ask([&] { central->connectPeripheral(peripheral); });  // it is up: answered all the same
  EXPECT_THAT(eventsInTheEnd(), ElementsAre("connected", "connected"));
}

TEST_P(CentralConformance, FailedAttemptsAreNotReported) {
  hearTag();
  world->failConnects(tag, 2);
  connect();
  EXPECT_GE(world->connectAttempts(tag), 3U);
  EXPECT_THAT(eventsInTheEnd(), IsEmpty());
}

TEST_P(CentralConformance, InstantFailuresAreSpacedAndEndWithTheRequest) {
  hearTag();
  world->failConnects(tag, CentralHarness::kEndless);
  ask([&] { central->connectPeripheral(peripheral); });
  world->queue()->runFor(8 * world->attemptPause());
  EXPECT_GE(world->connectAttempts(tag), 2U);
  EXPECT_LE(world->connectAttempts(tag), 12U);
  EXPECT_THAT(recorder->events, IsEmpty());

  ask([&] { central->cancelPeripheralConnection(peripheral); });
  ASSERT_TRUE(settleUntil("disconnected"));
  EXPECT_THAT(eventsInTheEnd(), ElementsAre("disconnected"));
  const unsigned attempts = world->connectAttempts(tag);
  passQuiet();
  EXPECT_EQ(world->connectAttempts(tag), attempts);
}

TEST_P(CentralConformance, CancelEndsALinkOnce) {
  hearTag();
  ask([&] { central->cancelPeripheralConnection(peripheral); });
  EXPECT_THAT(eventsInTheEnd(), IsEmpty());
  connect();
  ask([&] {
    central->cancelPeripheralConnection(peripheral);
    central->cancelPeripheralConnection(peripheral);
  });
  ASSERT_TRUE(settleUntil("disconnected"));
  EXPECT_THAT(eventsInTheEnd(), ElementsAre("disconnected"));
  connect();  // and the tag can be had again
}

TEST_P(CentralConformance, ReconnectInsideTheEventOfTheLoss) {
  hearTag();
  connect();
  recorder->hook = [&](const std::string& event) {
    if (event == kLinkLost) ask([&] { central->connectPeripheral(peripheral); });
  };
  for (int i = 0; i < 2; ++i) {
    recorder->events.clear();
    world->dropLink(tag);
    ASSERT_TRUE(settleUntil("connected"));
    EXPECT_THAT(recorder->events, ElementsAre(kLinkLost, "connected"));
  }
}

TEST_P(CentralConformance, PowerCycleKeepsThePendingRequest) {
  hearTag();
  world->failConnects(tag, CentralHarness::kEndless);
  ask([&] { central->connectPeripheral(peripheral); });
  passQuiet();
  world->setPower(false);
  ASSERT_TRUE(settleUntil("state 4"));
  passQuiet();
  world->failConnects(tag, 0);
  world->setPower(true);
  ASSERT_TRUE(settleUntil("connected"));
  EXPECT_THAT(eventsInTheEnd(), ElementsAre("state 4", "state 5", "connected"));
}

TEST_P(CentralConformance, PowerOffIsReportedBeforeTheLinksItEnds) {
  hearTag();
  connect();
  world->setPower(false);
  ASSERT_TRUE(settleUntil(kAdapterLost));
  EXPECT_THAT(eventsInTheEnd(), ElementsAre("state 4", kAdapterLost));
  ask([&] { central->connectPeripheral(peripheral); });
  EXPECT_EQ(eventsInTheEnd().size(), 2U);
  world->setPower(true);
  ASSERT_TRUE(settleUntil("connected"));
  EXPECT_THAT(eventsInTheEnd(), ElementsAre("state 4", kAdapterLost, "state 5", "connected"));
}

TEST_P(CentralConformance, AbsentHandlesAndValuesAreIgnored) {
  connectAndDiscover();
  ask([&] {
    central->connectPeripheral(nullptr);
    central->cancelPeripheralConnection(nullptr);
    peripheral->discoverCharacteristics(nullptr);
    peripheral->setNotifyValue(true, nullptr);
    peripheral->readValue(nullptr);
    peripheral->writeValue(KVData{1}, nullptr, KVWriteType::WithResponse);
    peripheral->writeValue(std::nullopt, characteristic, KVWriteType::WithResponse);
    peripheral->readValue(characteristic);
  });
  EXPECT_THAT(eventsInTheEnd(), ElementsAre("value"));
}

TEST_P(CentralConformance, RequestsAreCarriedOutInOrder) {
  connectAndDiscover();
  ask([&] {
    peripheral->setNotifyValue(true, characteristic);
    peripheral->readValue(characteristic);
    peripheral->writeValue(world->acceptedValue(), characteristic, KVWriteType::WithResponse);
    peripheral->writeValue(world->acceptedValue(), characteristic, KVWriteType::WithResponse);
  });
  ASSERT_TRUE(settle([&] { return count("write") == 2; }));
  EXPECT_TRUE(world->wasSubscribedWhenRead(tag));
  EXPECT_THAT(recorder->events, ElementsAre("value", "write", "write"));
  EXPECT_TRUE(recorder->values.front().has_value());
}

TEST_P(CentralConformance, EachNotificationArrivesOnceAndInOrder) {
  connectAndDiscover();
  ask([&] {
    peripheral->setNotifyValue(true, characteristic);
    peripheral->readValue(characteristic);
  });
  ASSERT_TRUE(settleUntil("value"));
  passQuiet();
  recorder->values.clear();
  const std::vector<KVData> sent = {{1}, {2}, {2}, KVData(20, 3)};
  for (const KVData& value : sent) world->notify(tag, value);
  ASSERT_TRUE(settle([&] { return recorder->values.size() >= sent.size(); }));
  passQuiet();
  EXPECT_EQ(recorder->values, std::vector<std::optional<KVData>>(sent.begin(), sent.end()));

  ask([&] {
    peripheral->setNotifyValue(false, characteristic);
    peripheral->readValue(characteristic);
  });
  passQuiet();
  recorder->events.clear();
  world->notify(tag, KVData{4});
  EXPECT_THAT(eventsInTheEnd(), IsEmpty());
}

TEST_P(CentralConformance, LostLinkTakesUnansweredRequestsAndLaterOnesDoNothing) {
  connectAndDiscover();
  world->setMute(tag, true);
  const auto requestAll = [&] {
    peripheral->readValue(characteristic);
    peripheral->writeValue(world->acceptedValue(), characteristic, KVWriteType::WithResponse);
    peripheral->setNotifyValue(true, characteristic);
    peripheral->discoverServices();
    peripheral->discoverCharacteristics(characteristic->service());
    peripheral->readRSSI();
  };
  ask([&] {
    peripheral->readValue(characteristic);
    peripheral->writeValue(world->acceptedValue(), characteristic, KVWriteType::WithResponse);
  });
  world->queue()->runFor(1ms);
  world->dropLink(tag);
  ASSERT_TRUE(settleUntil(kLinkLost));
  world->setMute(tag, false);
  ask(requestAll);
  EXPECT_THAT(eventsInTheEnd(), ElementsAre(kLinkLost));
  connect();
  EXPECT_THAT(eventsInTheEnd(), IsEmpty());
}

TEST_P(CentralConformance, RefusalsOfTheTagAreReportedWithItsError) {
  connectAndDiscover();
  const auto request = [&] {
    peripheral->readValue(characteristic);
    peripheral->writeValue(world->acceptedValue(), characteristic, KVWriteType::WithResponse);
  };
  constexpr std::uint8_t kReadNotPermitted = 0x02;
  constexpr std::uint8_t kUnlikelyError = 0x0E;
  constexpr std::uint8_t kOutOfRange = 0xFF;
  for (const std::uint8_t attError : {kReadNotPermitted, kUnlikelyError, kOutOfRange}) {
    recorder->events.clear();
    world->refuse(tag, attError);
    ask(request);
    ASSERT_TRUE(settle([&] { return recorder->events.size() >= 2; }));
    const std::int64_t code = KVBluetoothErrorAtt + attError;
    EXPECT_THAT(eventsInTheEnd(), ElementsAre(withCode("value", code), withCode("write", code)));
    EXPECT_EQ(recorder->values.back(), std::nullopt);
  }
  recorder->events.clear();
  world->refuse(tag, 0);
  ask(request);
  ASSERT_TRUE(settleUntil("write"));
  EXPECT_THAT(eventsInTheEnd(), ElementsAre("value", "write"));
}

TEST_P(CentralConformance, LinkThatIsOfNoUseIsGivenUp) {
  constexpr std::uint8_t kInvalidHandle = 0x01;  // the attributes are not where they were found
  connectAndDiscover();
  world->refuse(tag, kInvalidHandle);
  ask([&] { peripheral->readValue(characteristic); });
  ASSERT_TRUE(settleUntil(kLinkGivenUp));
  EXPECT_THAT(eventsInTheEnd(), ElementsAre(kLinkGivenUp));
  world->refuse(tag, 0);
  world->setMute(tag, true);
  world->advertise(tag);  // in case it has been forgotten meanwhile
  connect();
  ask([&] { peripheral->discoverServices(); });
  ASSERT_TRUE(settleUntil("services"));
  recorder->events.clear();
  ask([&] { peripheral->readValue(characteristic); });
  ASSERT_TRUE(settleUntil(kLinkGivenUp));
  EXPECT_THAT(eventsInTheEnd(), ElementsAre(kLinkGivenUp));
}

TEST_P(CentralConformance, OtherThreadsReadTheStateAndTheSignalStrength) {
  hearTag();
  connect();
  std::int64_t state = -1;
  std::thread([&] {
    state = peripheral->state();
    peripheral->readRSSI();
  }).join();
  EXPECT_EQ(state, KVPeripheralStateConnected);
  EXPECT_THAT(eventsInTheEnd(), world->readsRssi() ? Texts{"rssi"} : Texts{});
}

TEST_P(CentralConformance, ExpiredDelegateGetsNothing) {
  connectAndDiscover();
  auto brief = std::make_shared<EventRecorder>();
  peripheral->setDelegate(brief);
  brief->hook = [&](const std::string&) { brief.reset(); };  // kept alive for the event's time
  ask([&] {
    peripheral->readValue(characteristic);
    peripheral->readValue(characteristic);
  });
  EXPECT_TRUE(settle([&] { return brief == nullptr; }));
  EXPECT_THAT(eventsInTheEnd(), IsEmpty());
}

TEST_P(CentralConformance, CentralDroppedInsideItsEventEndsAllEvents) {
  connectAndDiscover();
  ask([&] { peripheral->setNotifyValue(true, characteristic); });
  recorder->hook = [&](const std::string&) { central.reset(); };
  ask([&] {
    peripheral->readValue(characteristic);
    peripheral->readValue(characteristic);
    central->connectPeripheral(peripheral);
  });
  ASSERT_TRUE(settle([&] { return central == nullptr; }));
  world->notify(tag, KVData{1});
  world->setPower(false);
  EXPECT_EQ(eventsInTheEnd().size(), 1U);
  ask([&] {  // the handles live on
    peripheral->readValue(characteristic);
    peripheral->readRSSI();
  });
  std::thread([dropped = std::move(peripheral), other = std::move(characteristic)]() mutable {
    dropped.reset();
    other.reset();
  }).join();
  EXPECT_EQ(eventsInTheEnd().size(), 1U);
}

}  // namespace kvtest

#endif  // TESTS_SUPPORT_CENTRAL_CONFORMANCE_H
