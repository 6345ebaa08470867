// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include <gmock/gmock.h>

#include "tests/bluez/link_fixture.h"

namespace kvtest {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST_F(LinkTest, CancelWhileWaiting) {
  options.connectTimeout = 20ms;
  options.retryFirst = options.retryMost = 200ms;
  startAll();
  const auto tag = find();
  struct Case {
    const char* name;
    std::function<void()> arrange;
  };
  const Case cases[] = {
      {"for the next attempt",
       [&] {
         failConnect(1'000'000, kFailed, "le-connection-abort-by-local");
         central->connectPeripheral(tag);
         EXPECT_TRUE(waitFor([&] { return log->text.find("abort") != std::string::npos; }));
       }},
      {"for the next attempt, as the last one took too long",
       [&] {
         leaveConnectPending();
         const int ends = bluez->calls("Disconnect");
         central->connectPeripheral(tag);
         EXPECT_TRUE(waitForCall("Disconnect", ends + 1));
         queue->runFor(5ms);
       }},
      {"for an advertisement",
       [&] {
         const int scans = bluez->calls("StartDiscovery");
         leaveConnectPending();
         central->connectPeripheral(tag);
         EXPECT_TRUE(waitForCall("StartDiscovery", scans + 1));
       }},
      {"for the adapter",
       [&] {
         bluez->set(kHci, kAdapter, "Powered", false);
         EXPECT_TRUE(waitForEvent("state 4"));
         central->connectPeripheral(tag);
         takeEvents();
       }},
  };
  for (const auto& each : cases) {
    each.arrange();
    EXPECT_EQ(tag->state(), KVPeripheralStateConnecting) << each.name;
    central->cancelPeripheralConnection(tag);
    EXPECT_TRUE(waitForEvent("disconnected")) << each.name;
    EXPECT_THAT(takeEvents(), ElementsAre("disconnected AA:00:00:00:00:01")) << each.name;
    EXPECT_EQ(tag->state(), KVPeripheralStateDisconnected) << each.name;
  }
  bluez->restore("Connect");
  bluez->set(kHci, kAdapter, "Powered", true);
  const int attempts = bluez->calls("Connect");
  EXPECT_TRUE(waitForEvent("state 5"));
  bluez->advertise(kTag, kFrame);
  queue->runFor(30ms);
  EXPECT_EQ(bluez->calls("Connect"), attempts);
}

// Whatever kept the cancelled one from being carried out, and however it failed.
TEST_F(LinkTest, RequestAfterACancelOrAPowerCycleStartsAfresh) {
  options.connectTimeout = 20ms;
  startAll();
  const auto tag = find();

  const auto again = [&] {
    central->cancelPeripheralConnection(tag);
    central->connectPeripheral(tag);
  };
  const auto cyclePower = [&] {
    bluez->set(kHci, kAdapter, "Powered", false);
    EXPECT_TRUE(waitForEvent("state 4"));
    takeEvents();
    bluez->set(kHci, kAdapter, "Powered", true);
  };
  const std::function<void()> interruptions[] = {again, cyclePower};
  leaveConnectPending();
  central->connectPeripheral(tag);
  for (const auto& interrupt : interruptions) {
    const int scans = bluez->calls("StartDiscovery");
    EXPECT_TRUE(waitForCall("StartDiscovery", scans + 1));  // it is waited for
    const int connects = bluez->calls("Connect");
    interrupt();
    EXPECT_TRUE(waitForCall("Connect", connects + 1));  // though it has not been heard
  }
}

TEST_F(LinkTest, PausesBeginAnewAfterACancelOrAPowerCycle) {
  options.retryFirst = 20ms;
  options.retryMost = 1h;
  startAll();
  const auto tag = find();
  failConnect(1'000'000, kFailed, "le-connection-abort-by-local");
  central->connectPeripheral(tag);
  const std::function<void()> interruptions[] = {
      [&] {
        central->cancelPeripheralConnection(tag);
        central->connectPeripheral(tag);
      },
      [&] {
        bluez->set(kHci, kAdapter, "Powered", false);
        EXPECT_TRUE(waitForEvent("state 4"));
        bluez->set(kHci, kAdapter, "Powered", true);
      },
  };
  int attempts = 4;
  for (const auto& interrupt : interruptions) {
    EXPECT_TRUE(waitForCall("Connect", attempts));
    queue->runFor(2ms);
    const auto begun = queue->now();
    interrupt();
    EXPECT_TRUE(waitForCall("Connect", attempts + 2));
    EXPECT_LT(queue->now() - begun, 125ms);  // 20 ms, not 160 or 320
    attempts += 4;
  }
}

// The next attempt waits until both the call is answered and the device is disconnected.
TEST_F(LinkTest, CancelWhileConnecting) {
  options.retryFirst = options.retryMost = 1ms;
  options.disconnectTimeout = 1h;
  startAll();
  const auto tag = find();
  std::optional<kv::BusCall> connect;
  std::optional<kv::BusCall> disconnect;
  const std::map<char, std::function<void()>> steps{
      {'a', [&] { connect->fail(kFailed, "br-connection-canceled"); }},  // answer of the attempt
      {'l', [&] { bluez->setConnected(kTag, false); }},                  // loss of what it has made
      {'r', [&] { disconnect->reply(); }},                               // reply to Disconnect
      {'p',                                                              // power cycle
       [&] {
         bluez->powerOff();
         EXPECT_TRUE(waitForEvent("state 4"));
         bluez->set(kHci, kAdapter, "Powered", true);
       }},
  };
  for (const std::string order : {"al", "la", "arl", "ral", "lra", "rla", "p"}) {
    connect.reset();
    disconnect.reset();
    bluez->on("Connect", [&](const kv::BusCall& call) { connect = call; });
    bluez->on("Disconnect", [&](const kv::BusCall& call) { disconnect = call; });
    central->connectPeripheral(tag);
    EXPECT_TRUE(waitFor([&] { return connect.has_value(); }));
    central->cancelPeripheralConnection(tag);
    EXPECT_THAT(takeEvents(), IsEmpty());  // never from inside a request
    EXPECT_TRUE(waitForEvent("disconnected"));
    EXPECT_EQ(tag->state(), KVPeripheralStateDisconnected);
    central->connectPeripheral(tag);
    EXPECT_TRUE(waitFor([&] { return disconnect.has_value(); }));
    bluez->setConnected(kTag, true);
    bluez->restore("Connect");
    bluez->restore("Disconnect");
    const int attempts = bluez->calls("Connect");
    for (const char step : order) {
      queue->runFor(12ms);
      EXPECT_EQ(bluez->calls("Connect"), attempts) << order << " before " << step;
      steps.at(step)();
    }
    EXPECT_TRUE(waitForEvent("connected"));
    std::erase_if(recorder->events, [](const auto& event) { return event.starts_with("state"); });
    EXPECT_THAT(takeEvents(),
                ElementsAre("disconnected AA:00:00:00:00:01", "connected AA:00:00:00:00:01"));
    if (order.size() < 3) {  // the reply is late, and must not end what is reported later
      bluez->setConnected(kTag, false);
      disconnect->reply();
      queue->runFor(5ms);
      bluez->set(kHci, kAdapter, "Powered", false);
      EXPECT_TRUE(waitForEvent("disconnected"));
      EXPECT_THAT(takeEvents(), ElementsAre("state 4", "disconnected AA:00:00:00:00:01 !1002"));
      bluez->set(kHci, kAdapter, "Powered", true);
      EXPECT_TRUE(waitForEvent("state 5"));
    } else {
      central->cancelPeripheralConnection(tag);
      EXPECT_TRUE(waitForEvent("disconnected"));
    }
    takeEvents();
  }
}

// The daemon would keep what a central has begun, and nobody would end it.
TEST_F(LinkTest, CentralThatIsClosedEndsWhatItHasBegun) {
  options.connectTimeout = 30ms;
  options.retryFirst = options.retryMost = 1h;
  timing.dropHold = 1h;
  std::shared_ptr<KVPeripheral> tag;
  std::shared_ptr<KVCharacteristic> command;
  const auto connect = [&] {
    const int before = bluez->calls("Connect");
    central->connectPeripheral(tag);
    EXPECT_TRUE(waitForCall("Connect", before + 1));
  };
  const struct {
    const char* name;
    std::function<void()> arrange;
    std::vector<std::string> calls;
  } cases[] = {
      {"about to scan",
       [&] {
         bluez->on("StartDiscovery", [](const kv::BusCall&) {});
         central->scanForPeripherals({}, /*allowDuplicates=*/true);
       },
       {"StopDiscovery"}},
      {"scanning", [&] { scanUntilFound(); }, {"StopDiscovery"}},
      {"connecting",
       [&] {
         options.connectTimeout = 1h;
         bluez->on("Connect", [](const kv::BusCall&) {});
         connect();
       },
       {"Disconnect"}},
      {"resolving",
       [&] {
         bluez->on("Connect", [&](const kv::BusCall&) { bluez->setConnected(kTag, true); });
         connect();
       },
       {"Disconnect"}},
      {"pausing",
       [&] {
         failConnect(1, kFailed, "le-connection-abort-by-local");
         connect();
       },
       {}},
      {"up",
       [&] {
         connect();
         EXPECT_TRUE(waitForEvent("connected"));
         command = discover(tag);
         tag->setNotifyValue(true, command);
         tag->readValue(command);
         EXPECT_TRUE(waitForEvent("value"));
       },
       {"StopNotify", "Disconnect"}},
      {"dropping",
       [&] {
         connect();
         EXPECT_TRUE(waitForEvent("connected"));
         bluez->setConnected(kTag, false);
       },
       {}},
      {"ending",
       [&] {
         connect();
         bluez->on("Disconnect", [](const kv::BusCall&) {});
         EXPECT_TRUE(waitForEvent("connected"));
         central->cancelPeripheralConnection(tag);
       },
       {}},
  };
  startDaemon();
  bluez->addAdapter();
  for (const auto& each : cases) {
    startCentral();
    EXPECT_TRUE(waitForEvent("state 5")) << each.name;
    tag = find();
    each.arrange();
    queue->runFor(5ms);
    bluez->takeCalls();
    central->close();
    if (command) tag->readValue(command);  // is not sent any more
    queue->runFor(10ms);
    EXPECT_EQ(takeCalls({"StopDiscovery", "StopNotify", "Disconnect", "ReadValue"}), each.calls)
        << each.name;
    central.reset();
    for (const char* member : {"StartDiscovery", "Connect"}) bluez->restore(member);
    bluez->setConnected(kTag, false);
    takeEvents();
  }
}

TEST_F(LinkTest, SlowDisconnectIsBounded) {
  options.disconnectTimeout = 40ms;
  startAll();
  const auto tag = link();
  bluez->on("Disconnect", [](const kv::BusCall&) {});
  central->connectPeripheral(tag);  // whose answer is overtaken
  central->cancelPeripheralConnection(tag);
  EXPECT_EQ(tag->state(), KVPeripheralStateDisconnecting);
  EXPECT_TRUE(waitForEvent("disconnected"));
  EXPECT_THAT(takeEvents(), ElementsAre("disconnected AA:00:00:00:00:01"));
}

TEST_F(LinkTest, ConnectDuringASlowDisconnectWaitsForItsEnd) {
  options.retryFirst = options.retryMost = 1h;  // it is no failure
  startAll();
  const auto tag = link();
  bluez->on("Disconnect", [&](const kv::BusCall& call) { pending = call; });
  central->cancelPeripheralConnection(tag);
  central->connectPeripheral(tag);
  EXPECT_TRUE(waitFor([&] { return pending.has_value(); }));
  EXPECT_EQ(bluez->calls("Connect"), 1);  // the one of the first link
  std::optional<kv::BusCall> connect;
  bluez->on("Connect", [&](const kv::BusCall& call) { connect = call; });
  bluez->answer(*pending);
  EXPECT_TRUE(waitFor([&] { return connect && !recorder->events.empty(); }));
  EXPECT_EQ(tag->state(), KVPeripheralStateConnecting);  // though its end was reported
  bluez->answer(*connect);
  EXPECT_TRUE(waitForEvent("connected"));
  EXPECT_THAT(takeEvents(),
              ElementsAre("disconnected AA:00:00:00:00:01", "connected AA:00:00:00:00:01"));
}

}  // namespace
}  // namespace kvtest
