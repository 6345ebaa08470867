// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include <gmock/gmock.h>

#include "tests/bluez/bluez_fixture.h"

namespace kvtest {
namespace {

using ::testing::ElementsAre;

class ScanTest : public BlueZTest {
 protected:
  void startScan(bool allowDuplicates = true) {
    const KVUUID service(0xFFE1);
    central->scanForPeripherals(std::span(&service, 1), allowDuplicates);
  }
};

TEST_F(ScanTest, EachSignalOfAWantedDeviceIsOneReport) {
  startDaemon();
  bluez->addAdapter();
  bluez->advertise(kTag, {0x01});  // remembered by the daemon from earlier: not a sighting
  startCentral();
  ASSERT_TRUE(waitForEvent("state 5"));
  startScan();
  ASSERT_TRUE(waitForCall("StartDiscovery"));
  takeEvents();
  const std::string path = FakeBlueZ::devicePath(kTag);
  bluez->set(path, kDevice, "RSSI", std::int16_t{-70});          // a mere heartbeat
  bluez->advertise(kTag, kFrame, -60);                           // data and strength at once
  bluez->set(path, kDevice, FakeBlueZ::Properties{}, {"RSSI"});  // not an advertisement
  bluez->set(path, kDevice, "ServiceData",
             FakeBlueZ::ServiceData{{"0000ffe1-0000-1000-8000-00805f9b34fb", {0x03}}});
  bluez->add(FakeBlueZ::devicePath(kOtherTag), kDevice,
             {{"Address", std::string(kOtherTag)}, {"RSSI", std::int16_t{-50}}});  // offers nothing
  bluez->set(FakeBlueZ::devicePath(kOtherTag), kDevice,
             {{"UUIDs", std::vector<std::string>{"0000ffe1-0000-1000-8000-00805f9b34fb"}},
              {"RSSI", std::int16_t{-51}}});
  EXPECT_TRUE(waitForEvent(std::string("found ") + kOtherTag));
  EXPECT_THAT(
      takeEvents(),
      ElementsAre("found AA:00:00:00:00:01 FFE1=01 -70", "found AA:00:00:00:00:01 FFE1=a10b01 -60",
                  "found AA:00:00:00:00:01 FFE1=03 ?", "found AA:00:00:00:00:02 -51"));
}

TEST_F(ScanTest, TagThatADeadProcessHasLeftLinkedIsShownOnce) {
  startDaemon();
  bluez->addAdapter();
  bluez->advertise(kTag, kFrame);
  bluez->setConnected(kTag, true);
  bluez->advertise(kOtherTag, kFrame);  // not linked: it will advertise
  startCentral();
  ASSERT_TRUE(waitForEvent("state 5"));
  startScan();
  central->stopScan();
  queue->runFor(5ms);
  central->scanForPeripherals({}, /*allowDuplicates=*/true);  // which asks for no tag
  queue->runFor(5ms);
  startScan();
  EXPECT_TRUE(waitForCall("StartDiscovery"));
  queue->runFor(5ms);
  EXPECT_THAT(takeEvents(), ElementsAre("state 5", "found AA:00:00:00:00:01 FFE1=a10b01 ?"));
  bluez->addServices(kTag);
  bluez->setResolved(kTag, true);
  central->connectPeripheral(recorder->found);
  EXPECT_TRUE(waitForEvent("connected"));
  startScan();  // now it is our own
  bluez->advertise(kOtherTag, kFrame);
  EXPECT_TRUE(waitForEvent("found"));
  EXPECT_THAT(takeEvents(), ElementsAre("connected AA:00:00:00:00:01",
                                        "found AA:00:00:00:00:02 FFE1=a10b01 -60"));
}

TEST_F(ScanTest, FilterAsksForEveryReportOfLowEnergyAndLeavesTheRestToUs) {
  startAll();
  std::string filter;
  bluez->on("SetDiscoveryFilter", [&](const kv::BusCall& call) {
    kv::forEachProperty(call.message(), [&](std::string_view key, std::string_view type) {
      const std::string value = type == "b" ? std::to_string(int{kv::readBool(call.message())})
                                            : kv::readText(call.message());
      filter.append(key).append("=").append(value).append(";");
      return true;
    });
    call.reply();
  });
  startScan();
  EXPECT_TRUE(waitFor([&] { return !filter.empty(); }));
  EXPECT_EQ(filter, "Transport=le;DuplicateData=1;Pattern=;");
}

TEST_F(ScanTest, StopThatFailsCountsAsStopped) {
  startAll();
  bluez->on("StopDiscovery",
            [](const kv::BusCall& call) { call.fail(kFailed, "No discovery started"); });
  for (int start = 1; start <= 2; ++start) {
    scanUntilFound();
    takeEvents();
    central->stopScan();
    central->stopScan();
    EXPECT_TRUE(waitForCall("StopDiscovery", start));
    queue->runFor(5ms);
    EXPECT_EQ(bluez->calls("StopDiscovery"), start);
  }
}

TEST_F(ScanTest, BusyAdapterIsTriedAgain) {
  timing.scanRetryFirst = 5ms;
  startAll();
  int refusals = 0;
  bool powerOff = false;
  bluez->on("StartDiscovery", [&](const kv::BusCall& call) {
    if (refusals-- <= 0) {
      bluez->answer(call);
      return;
    }
    call.fail("org.bluez.Error.InProgress", "Operation already in progress");
    if (refusals == 0 && powerOff) bluez->set(kHci, kAdapter, "Powered", false);
  });
  int calls = 0;
  for (const bool off : {false, true, false}) {  // two in a row are not worth a word
    powerOff = off;
    refusals = 2;
    startScan();
    calls += off ? 2 : 3;
    EXPECT_TRUE(waitForCall("StartDiscovery", calls));
    if (off) {
      EXPECT_TRUE(waitForEvent("state 4"));
      takeEvents();
      bluez->set(kHci, kAdapter, "Powered", true);
      EXPECT_TRUE(waitForEvent("state 5"));
    } else {
      bluez->advertise(kTag, kFrame);
      EXPECT_TRUE(waitForEvent("found"));
      const int stops = bluez->calls("StopDiscovery");
      central->stopScan();
      EXPECT_TRUE(waitForCall("StopDiscovery", stops + 1));
    }
    takeEvents();
  }
  EXPECT_EQ(log->text.find("busy or failing"), std::string::npos);
  refusals = 3;
  startScan();
  EXPECT_TRUE(waitForCall("StartDiscovery", calls + 4));
  bluez->advertise(kTag, kFrame);
  EXPECT_TRUE(waitForEvent("found"));
  EXPECT_NE(log->text.find("busy or failing"), std::string::npos);
}

TEST_F(ScanTest, RefusalDoesNotHoldUpALaterScan) {
  timing.scanRetryFirst = timing.scanRetryMost = 1h;
  startAll();
  const std::function<void()> interruptions[] = {
      [&] { central->stopScan(); },
      [&] {
        bluez->set(kHci, kAdapter, "Powered", false);
        EXPECT_TRUE(waitForEvent("state 4"));
        takeEvents();
        bluez->set(kHci, kAdapter, "Powered", true);
        EXPECT_TRUE(waitForEvent("state 5"));
      },
  };
  int starts = 0;
  for (const auto& interrupt : interruptions) {
    bluez->on("StartDiscovery", [&](const kv::BusCall& call) {
      call.fail("org.bluez.Error.InProgress", "Operation already in progress");
    });
    const int stops = bluez->calls("StopDiscovery");
    startScan();
    EXPECT_TRUE(waitForCall("StartDiscovery", ++starts));
    EXPECT_TRUE(waitForCall("StopDiscovery", stops + 1));  // what an earlier scan may have left
    interrupt();
    bluez->restore("StartDiscovery");
    startScan();
    EXPECT_TRUE(waitForCall("StartDiscovery", ++starts));
    central->stopScan();
    EXPECT_TRUE(waitForCall("StopDiscovery", stops + 2));
  }
}

// The time between two scans grows, up to a limit.
TEST_F(ScanTest, RefusalsAreFurtherAndFurtherApart) {
  timing.scanRetryFirst = 100ms;
  timing.scanRetryMost = 250ms;
  startAll();
  bluez->on("StartDiscovery", [&](const kv::BusCall& call) {
    call.fail("org.bluez.Error.NotReady", "Resource Not Ready");
  });
  const auto begun = queue->now();
  startScan();
  EXPECT_TRUE(waitForCall("StartDiscovery", 2));
  EXPECT_GE(queue->now() - begun, 100ms);
  EXPECT_LT(queue->now() - begun, 200ms);
  EXPECT_TRUE(waitForCall("StartDiscovery", 4));
  EXPECT_GE(queue->now() - begun, 550ms);  // 100 + 200 + 250
  EXPECT_LT(queue->now() - begun, 700ms);  // what doubling without the limit takes
}

TEST_F(ScanTest, PowerOffEndsTheScanForGood) {
  startAll();
  startScan();
  EXPECT_TRUE(waitForCall("StartDiscovery"));
  bluez->powerOff();
  EXPECT_TRUE(waitForEvent("state 4"));
  startScan();  // dropped: the adapter is not on
  takeEvents();
  bluez->set(kHci, kAdapter, "Powered", true);
  EXPECT_TRUE(waitForEvent("state 5"));
  bluez->set(kHci, kAdapter, "Powered", false);
  EXPECT_TRUE(waitForEvent("state 4"));  // whatever was to happen in between has happened
  EXPECT_EQ(bluez->calls("StartDiscovery"), 1);
  bluez->set(kHci, kAdapter, "Powered", true);
  takeEvents();
  EXPECT_TRUE(waitForEvent("state 5"));
  startScan();
  EXPECT_TRUE(waitForCall("StartDiscovery", 2));
}

TEST_F(ScanTest, StartThatThePowerEndsIsForgotten) {
  timing.scanRetryFirst = timing.scanRetryMost = 1h;
  startAll();
  std::optional<kv::BusCall> pending;
  bluez->on("StartDiscovery", [&](const kv::BusCall& call) { pending = call; });
  startScan();
  EXPECT_TRUE(waitFor([&] { return pending.has_value(); }));
  bluez->powerOff();
  EXPECT_TRUE(waitForEvent("state 4"));
  bluez->restore("StartDiscovery");
  bluez->set(kHci, kAdapter, "Powered", true);
  takeEvents();
  EXPECT_TRUE(waitForEvent("state 5"));
  pending->fail("org.bluez.Error.NotReady", "Resource Not Ready");
  queue->runFor(5ms);
  startScan();
  EXPECT_TRUE(waitForCall("StartDiscovery", 2));
}

TEST_F(ScanTest, StalledScanIsStartedAnew) {
  options.scanWatchdog = 40ms;
  startAll();
  startScan();
  EXPECT_TRUE(waitForCall("StartDiscovery"));
  bluez->advertise(kTag, kFrame);  // and nothing more
  EXPECT_TRUE(waitForCall("StartDiscovery", 3));
  EXPECT_THAT(
      takeCalls({"SetDiscoveryFilter", "StartDiscovery", "StopDiscovery"}),
      ElementsAre("SetDiscoveryFilter", "StartDiscovery", "StopDiscovery", "SetDiscoveryFilter",
                  "StartDiscovery", "StopDiscovery", "SetDiscoveryFilter", "StartDiscovery"));
}

TEST_F(ScanTest, ScanThatHearsDevicesIsLeftAlone) {
  options.scanWatchdog = 250ms;
  timing.scanGap = 250ms;
  startAll();
  startScan();
  EXPECT_TRUE(waitForCall("StartDiscovery"));
  const auto begun = queue->now();
  while (queue->now() - begun < 600ms) {
    if (queue->now() - begun < 200ms) {
      bluez->set(kHci, kAdapter, "Discovering", false);  // the pause between two of its windows
      queue->runFor(5ms);
      bluez->set(kHci, kAdapter, "Discovering", true);
    }
    bluez->advertise(kTag, kFrame);
    queue->runFor(5ms);
  }
  EXPECT_EQ(bluez->calls("StartDiscovery"), 1);
}

TEST_F(ScanTest, ScanInterruptedByAnotherClientIsMended) {
  timing.scanGap = 40ms;
  startAll();
  bluez->on("StartDiscovery", [&](const kv::BusCall& call) {
    bluez->restore("StartDiscovery");
    bluez->answer(call);
    bluez->set(kHci, kAdapter, "Discovering", false);
  });
  startScan();
  EXPECT_TRUE(waitForCall("StartDiscovery", 2));
}

}  // namespace
}  // namespace kvtest
