// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include <gmock/gmock.h>

#include "tests/bluez/bluez_fixture.h"

namespace kvtest {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr auto kConfirmed = KVWriteType::WithResponse;

class GattTest : public BlueZTest {
 protected:
  void startLinked() {
    startAll();
    tag = link();
    command = discover(tag);
  }

  std::shared_ptr<KVPeripheral> tag;
  std::shared_ptr<KVCharacteristic> command;
};

TEST_F(GattTest, ServicesAndCharacteristicsComeInHandleOrder) {
  startAll();
  tag = link();
  tag->discoverServices();
  EXPECT_TRUE(waitForEvent("services"));
  ASSERT_EQ(tag->services().size(), 2U);
  tag->discoverCharacteristics(tag->services()[0]);
  tag->discoverCharacteristics(tag->services()[1]);
  tag->discoverCharacteristics(nullptr);
  EXPECT_TRUE(waitFor([&] { return recorder->events.size() == 3; }));
  EXPECT_THAT(takeEvents(),
              ElementsAre("services 7F280001 180A", "characteristics 7F280002", "characteristics"));
}

TEST_F(GattTest, ReadsAndNotificationsComeOnceAndInOrder) {
  startLinked();
  bluez->takeCalls();
  bluez->on("ReadValue", [&](const kv::BusCall& call) {
    bluez->notify(kTag, {0x01});  // while the read is under way
    bluez->answer(call);
  });
  for (int once = 0; once < 2; ++once) tag->setNotifyValue(true, command);
  tag->readValue(command);
  EXPECT_TRUE(waitForEvent("value 0a0b"));
  bluez->notify(kTag, {0x02});
  bluez->set(FakeBlueZ::characteristicPath(kTag), kCharacteristic,
             {{"Handle", KVData{0x08}}, {"MTU", std::int16_t{23}}});  // which is no value
  bluez->set(FakeBlueZ::characteristicPath(kTag), kCharacteristic, "Value", std::string("text"));
  bluez->notify(kTag, {0x02});
  tag->writeValue(KVData{0x77}, command, kConfirmed);
  EXPECT_TRUE(waitForEvent("written"));
  bluez->notify(kTag, {0x03});
  EXPECT_TRUE(waitForEvent("value 03"));
  EXPECT_THAT(takeEvents(),
              ElementsAre("value 01", "value 0a0b", "value 02", "value 02", "written", "value 03"));
  EXPECT_EQ(bluez->lastWriteType, "request");
  EXPECT_THAT(bluez->written, ElementsAre(KVData{0x77}));
  EXPECT_THAT(takeCalls({"StartNotify", "ReadValue", "WriteValue"}),
              ElementsAre("StartNotify", "ReadValue", "WriteValue"));

  for (int once = 0; once < 2; ++once) tag->setNotifyValue(false, command);
  tag->writeValue(KVData{0x78}, command, kConfirmed);
  EXPECT_TRUE(waitForEvent("written"));
  bluez->notify(kTag, {0x04});
  tag->writeValue(KVData{0x79}, command, kConfirmed);
  EXPECT_TRUE(waitFor([&] { return recorder->events.size() == 2; }));
  EXPECT_THAT(takeEvents(), ElementsAre("written", "written"));
  EXPECT_THAT(takeCalls({"StartNotify", "StopNotify", "WriteValue"}),
              ElementsAre("StopNotify", "WriteValue", "WriteValue"));
}

TEST_F(GattTest, RefusalsAreReportedAndTheNextRequestGoesOn) {
  startLinked();
  bluez->on("ReadValue", [](const kv::BusCall& call) {
    call.fail("org.bluez.Error.NotPermitted", "Read not permitted");
  });
  bluez->on("WriteValue", [&](const kv::BusCall& call) {
    bluez->restore("WriteValue");
    call.fail(kFailed, "Operation failed with ATT error: 0x0e");
  });
  tag->readValue(command);
  tag->writeValue(KVData{1}, command, kConfirmed);
  tag->writeValue(std::nullopt, command, kConfirmed);  // nothing to write, nothing to report
  tag->writeValue(KVData{2}, command, kConfirmed);
  EXPECT_TRUE(waitFor([&] { return recorder->events.size() == 3; }));
  EXPECT_THAT(takeEvents(), ElementsAre("value absent !1004", "written !1114", "written"));
}

// The daemon carries out one request to a characteristic at a time, whichever program asks.
TEST_F(GattTest, RequestsThatFindTheDaemonBusyAreSentAgainInOrder) {
  timing.requestRetryFirst = 1ms;
  startLinked();
  bluez->takeCalls();
  for (const char* member : {"StartNotify", "ReadValue", "WriteValue"}) {
    bluez->on(member, [this, refusals = 2](const kv::BusCall& call) mutable {
      if (refusals-- == 0) {
        bluez->answer(call);
        return;
      }
      bluez->notify(kTag, {0x01});  // what is received meanwhile keeps its place
      call.fail("org.bluez.Error.InProgress", "In Progress");
    });
  }
  tag->setNotifyValue(true, command);
  tag->readValue(command);
  tag->writeValue(KVData{0x77}, command, kConfirmed);
  EXPECT_TRUE(waitForEvent("written"));
  EXPECT_THAT(takeEvents(),
              ElementsAre("value 01", "value 01", "value 0a0b", "value 01", "value 01", "written"));
  EXPECT_THAT(takeCalls({"StartNotify", "ReadValue", "WriteValue"}),
              ElementsAre("StartNotify", "StartNotify", "StartNotify", "ReadValue", "ReadValue",
                          "ReadValue", "WriteValue", "WriteValue", "WriteValue"));
  EXPECT_THAT(bluez->written, ElementsAre(KVData{0x77}));
}

TEST_F(GattTest, DaemonThatStaysBusyEndsTheLinkInTime) {
  options.requestTimeout = 200ms;
  timing.requestRetryFirst = 4ms;
  timing.requestRetryMost = 32ms;
  startLinked();
  bluez->on("WriteValue", [](const kv::BusCall& call) {
    call.fail("org.bluez.Error.InProgress", "In Progress");
  });
  tag->writeValue(KVData{1}, command, kConfirmed);
  EXPECT_TRUE(waitForEvent("disconnected"));
  EXPECT_THAT(takeEvents(), ElementsAre("disconnected AA:00:00:00:00:01 !1003"));
  EXPECT_GT(bluez->calls("WriteValue"), 3);
  EXPECT_LT(bluez->calls("WriteValue"), 14);  // 4, 8, 16, then 32 ms apart
}

TEST_F(GattTest, LimitsEndWithWhatTheyLimit) {
  options.connectTimeout = options.servicesTimeout = options.requestTimeout = 300ms;
  startLinked();
  tag->writeValue(KVData{1}, command, kConfirmed);
  EXPECT_TRUE(waitForEvent("written"));
  queue->runFor(400ms);
  EXPECT_THAT(takeEvents(), ElementsAre("written"));
  EXPECT_EQ(bluez->calls("Disconnect"), 0);
}

TEST_F(GattTest, UnansweredRequestEndsTheLink) {
  options.requestTimeout = 40ms;
  startLinked();
  bluez->on("WriteValue", [](const kv::BusCall&) {});
  tag->writeValue(KVData{1}, command, kConfirmed);
  tag->readValue(command);
  EXPECT_TRUE(waitForEvent("disconnected"));
  EXPECT_THAT(takeEvents(), ElementsAre("disconnected AA:00:00:00:00:01 !1003"));
  EXPECT_EQ(bluez->calls("ReadValue"), 0);
}

// Its reason is not that of the next one.
TEST_F(GattTest, LinkThatIsGivenUpKeepsItsReasonThoughThePowerGoes) {
  options.requestTimeout = options.disconnectTimeout = 1h;
  startLinked();
  bluez->on("WriteValue", [](const kv::BusCall& call) {
    call.fail("org.freedesktop.DBus.Error.NoReply", "Message recipient disconnected");
  });
  bluez->on("Disconnect", [](const kv::BusCall&) {});
  recorder->onEvent = [&](const std::string& event) {
    if (event.starts_with("disconnected") && central->state() != KVCentralStatePoweredOn) {
      central->connectPeripheral(tag);
    }
  };
  tag->writeValue(KVData{1}, command, kConfirmed);
  EXPECT_TRUE(waitForCall("Disconnect"));
  bluez->set(kHci, kAdapter, "Powered", false);
  EXPECT_TRUE(waitForEvent("disconnected"));
  bluez->setConnected(kTag, false);
  bluez->set(kHci, kAdapter, "Powered", true);
  EXPECT_TRUE(waitForEvent("connected"));
  bluez->restore("Disconnect");
  central->cancelPeripheralConnection(tag);
  EXPECT_TRUE(waitFor([&] { return recorder->events.size() == 5; }));
  EXPECT_THAT(takeEvents(),
              ElementsAre("state 4", "disconnected AA:00:00:00:00:01 !1003", "state 5",
                          "connected AA:00:00:00:00:01", "disconnected AA:00:00:00:00:01"));
}

TEST_F(GattTest, DropTakesUnansweredRequestsWithIt) {
  options.retryFirst = 1ms;
  startLinked();
  const auto drop = [&] { bluez->setConnected(kTag, false); };
  const std::function<void(const kv::BusCall& call)> ends[] = {
      [&](const kv::BusCall& call) {
        call.fail(kFailed, "Not connected");
        drop();
      },
      [&](const kv::BusCall& call) {
        drop();
        call.reply();
      },
      [&](const kv::BusCall& call) {
        bluez->set(kHci, kAdapter, "Powered", false);
        call.reply();
      },
  };
  const auto takeEventsOfTheTag = [&] {
    std::erase_if(recorder->events, [](const auto& event) { return event.starts_with("state"); });
    return takeEvents();
  };
  int links = 0;
  for (const auto& end : ends) {
    tag->setNotifyValue(true, command);
    bluez->on("WriteValue", [&](const kv::BusCall& call) {
      bluez->notify(kTag, {0x05});  // received before the drop, so delivered before it
      end(call);
    });
    tag->writeValue(KVData{1}, command, kConfirmed);
    tag->writeValue(KVData{2}, command, kConfirmed);
    EXPECT_TRUE(waitForEvent("disconnected"));
    EXPECT_THAT(
        takeEventsOfTheTag(),
        ElementsAre("value 05", testing::StartsWith("disconnected AA:00:00:00:00:01 !100")));
    EXPECT_TRUE(waitForCall("StopNotify", ++links));  // else the daemon subscribes by itself
    EXPECT_EQ(bluez->calls("WriteValue"), links);

    tag->writeValue(KVData{1}, command, kConfirmed);  // without a link nothing happens
    tag->discoverServices();
    drop();
    bluez->set(kHci, kAdapter, "Powered", true);
    central->connectPeripheral(tag);
    EXPECT_TRUE(waitForEvent("connected"));
    EXPECT_THAT(takeEventsOfTheTag(), ElementsAre("connected AA:00:00:00:00:01"));
    command = discover(tag);
  }
}

TEST_F(GattTest, DeviceWithOtherAttributesThanRememberedIsForgottenOnce) {
  options.retryFirst = 1ms;
  startLinked();
  bluez->on("StartNotify", [](const kv::BusCall& call) {
    call.fail(kFailed, "Operation failed with ATT error: 0x01");
  });
  recorder->onEvent = [&](const std::string& event) {
    if (event.starts_with("disconnected")) central->connectPeripheral(tag);
  };
  for (int links = 0; links < 3; ++links) {
    tag->setNotifyValue(true, command);
    tag->readValue(command);  // never goes out
    EXPECT_TRUE(waitForEvent("connected"));
    EXPECT_THAT(takeEvents(),
                ElementsAre("disconnected AA:00:00:00:00:01 !1003", "connected AA:00:00:00:00:01"));
    command = discover(tag);
  }
  EXPECT_EQ(bluez->calls("RemoveDevice"), 1);
  EXPECT_EQ(bluez->calls("ReadValue"), 0);
}

TEST_F(GattTest, DeviceIsForgottenAnewAfterALinkThatHasLasted) {
  timing.shortLink = 0ms;
  startLinked();
  bluez->on("StartNotify", [](const kv::BusCall& call) {
    call.fail(kFailed, "Operation failed with ATT error: 0x01");
  });
  recorder->onEvent = [&](const std::string& event) {
    if (event.starts_with("disconnected")) central->connectPeripheral(tag);
  };
  for (int links = 1; links < 3; ++links) {
    tag->setNotifyValue(true, command);
    EXPECT_TRUE(waitForEvent("connected"));
    takeEvents();
    EXPECT_EQ(bluez->calls("RemoveDevice"), links);
    command = discover(tag);
  }
}

TEST_F(GattTest, ServicesThatChangeUnderALinkEndIt) {
  options.requestTimeout = 1h;
  startLinked();
  bluez->advertise(kOtherTag, kFrame);
  bluez->addServices(kOtherTag);
  bluez->remove(FakeBlueZ::devicePath(kOtherTag) + "/service0010");  // which is no concern of ours
  const std::string nameless = FakeBlueZ::devicePath(kTag) + "/service0030";
  bluez->add(nameless, kService, {});  // nor is what could not be told apart
  bluez->add(nameless + "/char0031", kCharacteristic, {});
  bluez->remove(nameless);
  queue->runFor(3 * timing.dropHold);
  EXPECT_THAT(takeEvents(), IsEmpty());
  bluez->on("WriteValue", [](const kv::BusCall&) {});  // the old object never answers
  for (const std::string& removed :
       {FakeBlueZ::characteristicPath(kTag), FakeBlueZ::devicePath(kTag) + "/service0010"}) {
    tag->writeValue(KVData{1}, command, kConfirmed);
    EXPECT_TRUE(waitForCall("WriteValue"));
    bluez->remove(removed);
    EXPECT_TRUE(waitForEvent("disconnected")) << removed;
    central->connectPeripheral(tag);
    EXPECT_TRUE(waitForEvent("connected"));
    command = discover(tag);
  }
}

}  // namespace
}  // namespace kvtest
