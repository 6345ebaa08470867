// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include <gmock/gmock.h>

#include "tests/bluez/bluez_fixture.h"

namespace kvtest {
namespace {

using ::testing::ElementsAre;

class AdapterTest : public BlueZTest {};

TEST_F(AdapterTest, StateFollowsDaemonAdapterAndPower) {
  startCentral();
  EXPECT_TRUE(waitForEvent("state 0"));  // no daemon
  startDaemon();
  EXPECT_TRUE(waitForEvent("state 2"));  // no adapter
  bluez->addAdapter(kHci, "00:00:00:00:00:01", /*powered=*/false);
  EXPECT_TRUE(waitForEvent("state 4"));
  bluez->set(kHci, kAdapter, "Powered", true);
  EXPECT_TRUE(waitForEvent("state 5"));
  EXPECT_THAT(takeEvents(), ElementsAre("state 0", "state 2", "state 4", "state 5"));
  bluez->remove(kHci);
  EXPECT_TRUE(waitForEvent("state 2"));
  EXPECT_THAT(takeEvents(), ElementsAre("state 1", "state 2"));
}

// A daemon that has just started has no adapter for a moment.
TEST_F(AdapterTest, AdapterThatComesOrDaemonThatGoesInTimeIsNotCalledUnsupported) {
  timing.noAdapterGrace = 100ms;
  startDaemon();
  startCentral();
  EXPECT_TRUE(waitForCall("GetManagedObjects"));
  queue->runFor(20ms);
  bluez.reset();
  queue->runFor(150ms);
  EXPECT_THAT(takeEvents(), ElementsAre("state 0"));
  startDaemon();
  EXPECT_TRUE(waitForCall("GetManagedObjects"));
  queue->runFor(20ms);
  bluez->addAdapter();
  queue->runFor(150ms);
  EXPECT_THAT(takeEvents(), ElementsAre("state 5"));
}

TEST_F(AdapterTest, PoweredAdapterIsChosenAndKept) {
  startDaemon();
  bluez->addAdapter("/org/bluez/hci1", "00:00:00:00:00:02", /*powered=*/false);
  bluez->addAdapter(kHci);
  bluez->addAdapter("/org/bluez/hci91", "00:00:00:00:00:03");
  startCentral();
  EXPECT_TRUE(waitForEvent("state 5"));
  link();  // whose daemon knows the tag on that adapter only
  // One that would be the first choice now changes nothing.
  bluez->addAdapter("/org/bluez/hci0", "00:00:00:00:00:04");
  bluez->set(kHci, kAdapter, "Powered", false);
  EXPECT_TRUE(waitForEvent("disconnected"));
  EXPECT_THAT(takeEvents(), ElementsAre("state 4", "disconnected AA:00:00:00:00:01 !1002"));
  // Nor does a device of another adapter.
  bluez->set(kHci, kAdapter, "Powered", true);
  EXPECT_TRUE(waitForEvent("state 5"));
  const int before = bluez->calls("StartDiscovery");
  central->scanForPeripherals({}, /*allowDuplicates=*/true);
  EXPECT_TRUE(waitForCall("StartDiscovery", before + 1));
  takeEvents();
  bluez->add(FakeBlueZ::devicePath(kOtherTag, "/org/bluez/hci91"), kDevice,
             {{"Address", std::string(kOtherTag)}, {"RSSI", std::int16_t{-50}}});
  bluez->advertise(kTag, kFrame);
  EXPECT_TRUE(waitForEvent("found"));
  EXPECT_THAT(takeEvents(), ElementsAre("found AA:00:00:00:00:01 FFE1=a10b01 -60"));
}

TEST_F(AdapterTest, DaemonThatDoesNotListItsObjectsIsAskedAgain) {
  timing.busRetryMost = 20ms;
  startDaemon();
  bluez->addAdapter();
  bluez->on("GetManagedObjects", [&](const kv::BusCall& call) {
    bluez->restore("GetManagedObjects");
    call.fail("org.freedesktop.DBus.Error.NoReply", "Message recipient disconnected");
  });
  startCentral();
  EXPECT_TRUE(waitForEvent("state 5"));
  EXPECT_THAT(takeEvents(), ElementsAre("state 0", "state 5"));
  EXPECT_NE(log->text.find("does not list its objects"), std::string::npos);
}

TEST_F(AdapterTest, BusThatForbidsTheDaemonIsUnauthorized) {
  startDaemon();
  bluez->on("GetManagedObjects", [](const kv::BusCall& call) {
    call.fail("org.freedesktop.DBus.Error.AccessDenied", "Rejected send message");
  });
  startCentral();
  EXPECT_TRUE(waitForEvent("state"));
  EXPECT_THAT(takeEvents(), ElementsAre("state 3"));
}

TEST_F(AdapterTest, BusThatRejectsThisProcessIsUnauthorized) {
  const RejectingBus closed(*queue);
  options.busAddress = closed.address();
  startCentral();
  EXPECT_TRUE(waitForEvent("state"));
  EXPECT_THAT(takeEvents(), ElementsAre("state 3"));
}

TEST_F(AdapterTest, DaemonKilledWhileConnected) {
  startAll();
  const auto tag = link();
  recorder->onEvent = [&](const std::string& event) {
    if (event.starts_with("disconnected")) {
      central->connectPeripheral(tag);  // as the library does, at once
    }
  };
  bluez.reset();
  EXPECT_TRUE(waitForEvent("disconnected"));
  EXPECT_THAT(takeEvents(), ElementsAre("state 1", "disconnected AA:00:00:00:00:01 !1002"));

  startDaemon();
  bluez->addAdapter();
  EXPECT_TRUE(waitForEvent("state 5"));
  EXPECT_EQ(bluez->calls("Connect"), 0);  // this daemon does not know the tag yet
  EXPECT_TRUE(waitForCall("StartDiscovery"));
  bluez->set(kHci, kAdapter, "Powered", false);
  EXPECT_TRUE(waitForEvent("state 4"));
  EXPECT_THAT(takeEvents(), ElementsAre("state 5", "state 4"));  // no link has ended
  bluez->set(kHci, kAdapter, "Powered", true);
  EXPECT_TRUE(waitForCall("StartDiscovery", 2));
  bluez->advertise(kTag, kFrame);
  EXPECT_TRUE(waitForEvent("connected"));
}

TEST_F(AdapterTest, AdapterComesBackUnderAnotherNumber) {
  options.adapter = "00:00:00:00:00:0a";
  startDaemon();
  bluez->addAdapter("/org/bluez/hci7", "00:00:00:00:00:07");
  bluez->addAdapter(kHci, "00:00:00:00:00:0A");
  startCentral();
  EXPECT_TRUE(waitForEvent("state 5"));
  link();
  bluez->remove(kHci);
  EXPECT_TRUE(waitForEvent("disconnected"));
  EXPECT_THAT(takeEvents(), ElementsAre("state 1", "disconnected AA:00:00:00:00:01 !1002"));
  bluez->addAdapter("/org/bluez/hci2", "00:00:00:00:00:0A");
  EXPECT_TRUE(waitForEvent("state 5"));
}

TEST_F(AdapterTest, BusIsRestarted) {
  timing.busRetryFirst = 20ms;
  timing.busRetryMost = 50ms;
  startAll();
  link();
  bus.stop();
  EXPECT_TRUE(waitForEvent("disconnected"));
  EXPECT_THAT(takeEvents(), ElementsAre("state 1", "disconnected AA:00:00:00:00:01 !1002"));
  bus.start();
  startDaemon();
  bluez->addAdapter();
  EXPECT_TRUE(waitForEvent("state 5"));
}

TEST_F(AdapterTest, BusThatStaysAwayIsTriedNowAndThen) {
  timing.busRetryFirst = 20ms;
  timing.busRetryMost = 40ms;
  startAll();
  bus.stop();
  EXPECT_TRUE(waitForEvent("state 1"));
  log->text.clear();
  queue->runFor(200ms);
  int attempts = 0;
  for (auto at = log->text.find("no connection"); at != std::string::npos;
       at = log->text.find("no connection", at + 1)) {
    ++attempts;
  }
  EXPECT_GE(attempts, 2);
  EXPECT_LE(attempts, 6);  // 20 + 40 + 40 + 40 + 40 ms
}

// The bus hands the name straight on to whoever waits for it.
TEST_F(AdapterTest, DaemonThatIsReplacedAtOnceIsANewOne) {
  startAll();
  link();
  FakeBlueZ next(queue, bus.address());
  ASSERT_TRUE(waitFor([&] { return next.ready(); }));
  next.addAdapter();
  bluez.reset();
  EXPECT_TRUE(waitForEvent("state 5"));
  EXPECT_THAT(takeEvents(),
              ElementsAre("state 1", "disconnected AA:00:00:00:00:01 !1002", "state 5"));
}

TEST_F(AdapterTest, CentralDroppedInsideAnEvent) {
  startAll();
  const auto tag = link();
  central->scanForPeripherals({}, /*allowDuplicates=*/true);
  EXPECT_TRUE(waitForCall("StartDiscovery", 2));
  recorder->onEvent = [&](const std::string& event) {
    if (event.starts_with("found")) central.reset();
  };
  bluez->takeCalls();
  bluez->advertise(kOtherTag, kFrame);
  // The radio is left as it was found, with nobody waiting for it.
  EXPECT_TRUE(waitForCall("Disconnect"));
  EXPECT_THAT(takeCalls({"StopDiscovery", "Disconnect"}),
              ElementsAre("StopDiscovery", "Disconnect"));
  takeEvents();
  bluez->advertise(kOtherTag, kFrame);
  tag->discoverServices();
  queue->runFor(20ms);
  EXPECT_THAT(takeEvents(), ElementsAre());
}

TEST_F(AdapterTest, QueueThatCannotWatchIsUnsupported) {
  class Plain : public KVEventQueue {
   public:
    int fd() const override { return -1; }
    std::size_t dispatch() override { return 0; }
    void run() override {}
    void runFor(Duration /*duration*/) override {}
    void stop() override {}
    TaskId postAfter(Duration /*delay*/, Task task) override {
      posted = std::move(task);
      return 1;
    }
    void cancel(TaskId /*task*/) override {}
    Duration now() const override { return {}; }
    Task posted;
  };
  const auto plain = std::make_shared<Plain>();
  central = kv::makeBlueZRadio(options, log)->makeCentral(*recorder, plain);
  ASSERT_TRUE(plain->posted);
  plain->posted();
  EXPECT_THAT(takeEvents(), ElementsAre("state 2"));
  EXPECT_NE(log->text.find("cannot watch"), std::string::npos);
}

}  // namespace
}  // namespace kvtest
