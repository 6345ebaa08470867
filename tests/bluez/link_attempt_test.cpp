// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include <gmock/gmock.h>

#include <ctime>

#include "tests/bluez/link_fixture.h"

namespace kvtest {
namespace {

using ::testing::ElementsAre;

TEST_F(LinkTest, ScanStandsStillWhileConnecting) {
  startAll();
  const auto tag = find();
  central->scanForPeripherals({}, /*allowDuplicates=*/true);
  EXPECT_TRUE(waitForCall("StartDiscovery", 2));
  central->connectPeripheral(tag);
  EXPECT_EQ(tag->state(), KVPeripheralStateConnecting);
  EXPECT_TRUE(waitForCall("StartDiscovery", 3));
  EXPECT_THAT(takeCalls({"StartDiscovery", "StopDiscovery", "Connect"}),
              ElementsAre("StartDiscovery", "StopDiscovery", "Connect", "StartDiscovery"));
  EXPECT_TRUE(waitForEvent("connected"));
  EXPECT_EQ(tag->state(), KVPeripheralStateConnected);
  central->connectPeripheral(tag);  // a link that is up answers again
  takeEvents();
  EXPECT_TRUE(waitForEvent("connected"));
  bluez->setConnected(kTag, false);  // and that was all that was asked
  EXPECT_TRUE(waitForEvent("disconnected"));
  queue->runFor(30ms);
  EXPECT_EQ(bluez->calls("Connect"), 1);
}

TEST_F(LinkTest, ScanThatDoesNotStopDelaysAnAttemptForALimitedTime) {
  timing.scanStop = 20ms;
  startAll();
  const auto tag = find();
  scanUntilFound();
  bluez->on("StopDiscovery", [](const kv::BusCall&) {});
  central->connectPeripheral(tag);
  central->cancelPeripheralConnection(tag);  // an attempt that is not waited for any more
  queue->runFor(2 * timing.scanStop);
  central->connectPeripheral(tag);
  EXPECT_TRUE(waitForEvent("connected"));
}

TEST_F(LinkTest, ScanThatDoesNotStartDelaysNoAttempt) {
  timing.scanStop = 1h;
  startAll();
  const auto tag = find();
  bluez->on("StartDiscovery", [&](const kv::BusCall& call) {
    central->connectPeripheral(tag);
    call.fail("org.bluez.Error.NotReady", "Resource Not Ready");
  });
  central->scanForPeripherals({}, /*allowDuplicates=*/true);
  EXPECT_TRUE(waitForEvent("connected"));
}

// The daemon would forget it as soon as the scan ends.
TEST_F(LinkTest, ScanGoesOnWhileAPrivateAddressConnects) {
  startAll();
  const struct {
    const char* address;
    const char* type;
    bool goesOn;
  } cases[] = {
      {"4A:00:00:00:00:01", "random", true},  {"7A:00:00:00:00:01", "random", true},
      {"8A:00:00:00:00:01", "random", false}, {"CA:00:00:00:00:01", "random", false},
      {"4A:00:00:00:00:02", "public", false},
  };
  for (const auto& [address, type, goesOn] : cases) {
    bluez->add(FakeBlueZ::devicePath(address), kDevice,
               {{"Address", std::string(address)}, {"AddressType", std::string(type)}});
    const auto tag = find(address);
    scanUntilFound(address);
    bluez->takeCalls();
    central->connectPeripheral(tag);
    EXPECT_TRUE(waitForEvent("connected"));
    const auto calls = takeCalls({"StopDiscovery", "Connect"});
    EXPECT_EQ(calls.front(), goesOn ? "Connect" : "StopDiscovery") << address;
    EXPECT_EQ(calls.size(), goesOn ? 1 : 2) << address;
    central->stopScan();
    EXPECT_TRUE(waitForCall("StopDiscovery"));
    bluez->remove(FakeBlueZ::devicePath(address));
    EXPECT_TRUE(waitForEvent("disconnected"));
    takeEvents();
  }
}

TEST_F(LinkTest, RefusedAttemptsAreRepeatedUntilOneHolds) {
  const std::vector<std::pair<const char*, const char*>> refusals{
      {kFailed, "le-connection-abort-by-local"},
      {kFailed, "Software caused connection abort"},
      {kFailed, "br-connection-page-timeout"},
      {"org.bluez.Error.NotReady", "Resource Not Ready"},
      {"org.freedesktop.DBus.Error.NoReply", "Did not receive a reply"},
  };
  startAll();
  for (const auto& [name, text] : refusals) {
    failConnect(3, name, text);
    const auto tag = connectTo();
    EXPECT_TRUE(waitForEvent("connected")) << text;
    EXPECT_THAT(takeEvents(), ElementsAre("connected AA:00:00:00:00:01")) << text;
    central->cancelPeripheralConnection(tag);
    EXPECT_TRUE(waitForEvent("disconnected"));
  }
  EXPECT_NE(log->text.find("ControllerMode"), std::string::npos);
}

TEST_F(LinkTest, DaemonThatOffersTheChoiceIsToldToPreferLowEnergy) {
  options.retryFirst = 1ms;
  startAll();
  const struct {
    const char* bearer;  // null: not offered
    const char* refusal;
    int settings;
  } cases[] = {
      {nullptr, "br-connection-page-timeout", 0},
      {"last-seen", "le-connection-abort-by-local", 0},
      {"last-seen", "br-connection-page-timeout", 1},
      {"bredr", "br-connection-unknown", 1},
      {"le", "br-connection-page-timeout", 0},
  };
  for (const auto& [bearer, refusal, settings] : cases) {
    const auto tag = find();
    const std::string path = FakeBlueZ::devicePath(kTag);
    if (bearer != nullptr) bluez->set(path, kDevice, "PreferredBearer", std::string(bearer));
    const int before = bluez->calls("Set", kTag);
    failConnect(2, kFailed, refusal);
    central->connectPeripheral(tag);
    EXPECT_TRUE(waitForEvent("connected")) << refusal;
    EXPECT_EQ(bluez->calls("Set", kTag) - before, settings) << refusal;
    if (settings > 0) {
      EXPECT_EQ(bluez->text(path, kDevice, "PreferredBearer"), "le");
    }
    bluez->remove(path);
    EXPECT_TRUE(waitForEvent("disconnected"));
  }
}

TEST_F(LinkTest, FullAdapterIsGivenTime) {
  timing.connectionLimitPause = 80ms;
  startAll();
  failConnect(1, kFailed, "le-connection-concurrent-connection-limit");
  const auto begun = queue->now();
  connectTo();
  EXPECT_TRUE(waitForEvent("connected"));
  EXPECT_GE(queue->now() - begun, timing.connectionLimitPause);
  EXPECT_NE(log->text.find("as many links as it can"), std::string::npos);
}

// Three minutes, at a 125th of the usual pauses: an hour may cost a thousand attempts.
TEST_F(LinkTest, RadioThatRefusesAtOnceIsLeftInPeace) {
  options.retryFirst = 2ms;
  options.retryMost = 40ms;
  startAll();
  failConnect(1'000'000, kFailed, "le-connection-abort-by-local");
  connectTo();
  const auto busy = std::clock();
  queue->runFor(1'440ms);
  EXPECT_GT(bluez->calls("Connect"), 5);
  EXPECT_LT(bluez->calls("Connect"), 50);
  EXPECT_LT(std::clock() - busy, CLOCKS_PER_SEC * 7 / 10);  // half of it, with the daemon's part
  EXPECT_EQ(log->text.find("le-connection-abort"), log->text.rfind("le-connection-abort"));
}

TEST_F(LinkTest, SuccessWithoutALinkIsAFailure) {
  timing.settle = 10ms;
  options.retryFirst = 400ms;
  options.retryMost = 1h;
  startAll();
  const auto begun = queue->now();
  bluez->on("Connect", [&](const kv::BusCall& call) {
    bluez->restore("Connect");
    call.reply();
  });
  connectTo();
  EXPECT_TRUE(waitForEvent("connected"));
  EXPECT_THAT(takeCalls({"Connect", "Disconnect"}),
              ElementsAre("Connect", "Disconnect", "Connect"));
  EXPECT_GE(queue->now() - begun, 330ms);  // the first pause follows, less the jitter of a fifth
  EXPECT_LT(queue->now() - begun, 640ms);  // what doubling it would take at least
}

TEST_F(LinkTest, LinkThatIsNotSignalledIsKept) {
  startAll();
  bluez->on("Connect", [&](const kv::BusCall& call) {
    bluez->setUnsignalled(FakeBlueZ::devicePath(kTag), kDevice, "Connected", true);
    call.reply();
    bluez->addServices(kTag);
    bluez->setResolved(kTag, true);
  });
  connectTo();
  EXPECT_TRUE(waitForEvent("connected"));
  EXPECT_THAT(takeCalls({"Connect", "Disconnect"}), ElementsAre("Connect"));
  bluez->setConnected(kTag, false);
  EXPECT_TRUE(waitForEvent("disconnected"));
}

// The list that an attempt asks for also shows what was not signalled of other objects.
TEST_F(LinkTest, WhatHasGoneWithoutASignalIsMissedInTheNextList) {
  options.retryFirst = 1ms;
  timing.settle = 1h;
  const std::string device = FakeBlueZ::devicePath(kTag);
  const std::pair<std::string, const char*> cases[] = {
      {FakeBlueZ::characteristicPath(kTag), "disconnected AA:00:00:00:00:01 !1003"},
      {device + "/service0020", "disconnected AA:00:00:00:00:01 !1003"},
      {device, "disconnected AA:00:00:00:00:01 !1001"},
      {kHci, "state 1"},
  };
  startAll();
  const auto other = find(kOtherTag);
  for (const auto& [path, event] : cases) {
    const auto tag = link();
    bluez->on("Connect", [](const kv::BusCall& call) { call.reply(); });
    bluez->removeUnsignalled(path);
    central->connectPeripheral(other);
    EXPECT_TRUE(waitForEvent(path == kHci ? "state" : "disconnected")) << path;
    EXPECT_EQ(takeEvents().front(), event) << path;
    bluez->restore("Connect");
    if (path == kHci) break;
    central->cancelPeripheralConnection(other);
    EXPECT_TRUE(waitForEvent("disconnected"));
    bluez->remove(device);
  }
}

TEST_F(LinkTest, AttemptOfAnotherClientIsJoined) {
  startAll();
  bluez->on("Connect", [&](const kv::BusCall& call) {
    call.fail(kFailed, "Operation already in progress");
    bluez->setConnected(kTag, true);
    bluez->addServices(kTag);
    bluez->setResolved(kTag, true);
  });
  connectTo();
  EXPECT_TRUE(waitForEvent("connected"));
  EXPECT_EQ(bluez->calls("Connect"), 1);
}

TEST_F(LinkTest, ForgottenDeviceIsWaitedFor) {
  startAll();
  bluez->on("Connect", [&](const kv::BusCall& call) {
    bluez->restore("Connect");
    call.fail("org.freedesktop.DBus.Error.UnknownObject", "Method \"Connect\" doesn't exist");
  });
  connectTo();
  EXPECT_TRUE(waitForCall("StartDiscovery", 2));  // nobody else has asked for a scan
  bluez->remove(FakeBlueZ::devicePath(kTag));
  bluez->advertise(kTag, kFrame);
  EXPECT_TRUE(waitForEvent("connected"));
  EXPECT_TRUE(waitForCall("StopDiscovery", 2));
  EXPECT_THAT(takeEvents(), ElementsAre("connected AA:00:00:00:00:01"));
}

// A link that another program makes meanwhile serves as well.
TEST_F(LinkTest, AbsentTagIsTriedAgainWhenItIsHeard) {
  options.connectTimeout = 40ms;
  startAll();
  const std::pair<int, std::function<void()>> cases[] = {
      {2, [&] { bluez->advertise(kTag, kFrame); }},
      {1,
       [&] {
         bluez->addServices(kTag);
         bluez->set(FakeBlueZ::devicePath(kTag), kDevice,
                    {{"Connected", true}, {"ServicesResolved", true}});
       }},
  };
  for (const auto& [attempts, wake] : cases) {
    leaveConnectPending();
    const auto tag = find();
    const int scans = bluez->calls("StartDiscovery");
    const int before = bluez->calls("Connect");
    central->connectPeripheral(tag);
    EXPECT_TRUE(waitForCall("StartDiscovery", scans + 1));
    EXPECT_EQ(bluez->calls("Connect"), before + 1);
    EXPECT_GT(bluez->calls("Disconnect"), 0);
    bluez->restore("Connect");
    wake();
    EXPECT_TRUE(waitForEvent("connected"));
    queue->runFor(5ms);
    EXPECT_THAT(takeEvents(), ElementsAre("connected AA:00:00:00:00:01"));
    EXPECT_EQ(bluez->calls("Connect"), before + attempts);
    recorder->onEvent = [&](const std::string& event) {
      if (event.starts_with("disconnected")) central->connectPeripheral(tag);
    };
    bluez->setConnected(kTag, false);
    EXPECT_TRUE(waitForEvent("connected"));  // it is not absent any more
    recorder->onEvent = nullptr;
    takeEvents();
    central->cancelPeripheralConnection(tag);
    EXPECT_TRUE(waitForEvent("disconnected"));
  }
}

TEST_F(LinkTest, AttemptAtAnUnheardTagIsCutWhileOthersWait) {
  options.connectTimeout = 1h;
  options.retryFirst = 1ms;
  timing.contendedConnect = 30ms;
  startAll();
  const auto tag = find();
  leaveConnectPending();
  central->connectPeripheral(tag);
  EXPECT_TRUE(waitForCall("Connect"));
  queue->runFor(60ms);
  EXPECT_EQ(bluez->calls("Disconnect"), 0);  // nobody waits
  central->cancelPeripheralConnection(tag);
  central->scanForPeripherals({}, /*allowDuplicates=*/true);
  central->connectPeripheral(tag);
  EXPECT_TRUE(waitForCall("Disconnect", 2));
  EXPECT_TRUE(waitFor([&] {
    bluez->advertise(kTag, kFrame);
    return bluez->calls("Connect") == 3;  // heard, so it is given its time
  }));
  queue->runFor(100ms);
  EXPECT_EQ(bluez->calls("Disconnect"), 2);
  pending->fail(kFailed, "le-connection-abort-by-local");
  EXPECT_TRUE(waitForCall("Disconnect", 3));  // the next one follows no advertisement
}

TEST_F(LinkTest, ServicesThatAreNotDiscoveredInTimeEndTheAttempt) {
  options.servicesTimeout = 30ms;
  startAll();
  bluez->on("Connect", [&](const kv::BusCall& call) {
    bluez->restore("Connect");
    bluez->setConnected(kTag, true);
    call.reply();
  });
  connectTo();
  EXPECT_TRUE(waitForEvent("connected"));
  EXPECT_THAT(takeCalls({"Connect", "Disconnect"}),
              ElementsAre("Connect", "Disconnect", "Connect"));
  EXPECT_NE(log->text.find("were not discovered in time"), std::string::npos);
}

TEST_F(LinkTest, ServicesThatAreExportedLateAreReadAnew) {
  options.retryFirst = 1ms;
  timing.servicesGrace = 300ms;
  startAll();
  bluez->on("Connect", [&](const kv::BusCall& call) {
    bluez->set(FakeBlueZ::devicePath(kTag), kDevice,
               {{"Connected", true}, {"ServicesResolved", true}});
    call.reply();
  });
  for (const bool afterTheList : {false, true}) {
    bluez->on("GetManagedObjects", [&](const kv::BusCall& call) {
      if (afterTheList) bluez->answer(call);
      bluez->addServices(kTag);
      if (!afterTheList) bluez->answer(call);
    });
    const auto begun = queue->now();
    const auto tag = connectTo();
    EXPECT_TRUE(waitForEvent("connected"));
    EXPECT_EQ(queue->now() - begun >= timing.servicesGrace, afterTheList);
    EXPECT_EQ(bluez->calls("Connect"), afterTheList ? 2 : 1);
    const auto command = discover(tag);
    EXPECT_EQ(command->service(), tag->services().front());
    EXPECT_EQ(tag->services().size(), 2U);
    bluez->remove(FakeBlueZ::devicePath(kTag));
    EXPECT_TRUE(waitForEvent("disconnected"));
  }
  EXPECT_EQ(bluez->calls("RemoveDevice"), 0);
}

TEST_F(LinkTest, DeviceWithoutServicesIsForgottenOnce) {
  timing.servicesGrace = 20ms;
  startAll();
  int empty = 2;
  bluez->on("Connect", [&](const kv::BusCall& call) {
    if (empty-- > 0) {
      bluez->set(FakeBlueZ::devicePath(kTag), kDevice,
                 {{"Connected", true}, {"ServicesResolved", true}});
      call.reply();
    } else {
      bluez->answer(call);
    }
  });
  connectTo();
  EXPECT_TRUE(waitForEvent("connected"));
  EXPECT_EQ(bluez->calls("RemoveDevice"), 1);
  EXPECT_EQ(bluez->calls("Connect"), 3);
  EXPECT_NE(log->text.find("Cache = no"), std::string::npos);
}

// What it has asked for is no concern of the next attempt.
TEST_F(LinkTest, DropDuringDiscoveryOfServices) {
  timing.servicesGrace = 10ms;
  startAll();
  bluez->on("GetManagedObjects", [&](const kv::BusCall& call) {
    pending = call;
    bluez->setConnected(kTag, false);
  });
  bluez->on("Connect", [&](const kv::BusCall& call) {
    bluez->set(FakeBlueZ::devicePath(kTag), kDevice,
               {{"Connected", true}, {"ServicesResolved", !pending.has_value()}});
    call.reply();
  });
  connectTo();
  EXPECT_TRUE(waitForCall("Connect", 2));
  queue->runFor(5ms);
  bluez->answer(*pending);
  queue->runFor(30ms);
  bluez->addServices(kTag);
  bluez->setResolved(kTag, true);
  EXPECT_TRUE(waitForEvent("connected"));
  EXPECT_THAT(takeEvents(), ElementsAre("connected AA:00:00:00:00:01"));
  EXPECT_EQ(bluez->calls("Connect"), 2);
}

TEST_F(LinkTest, TagThatIsWaitedForIsTriedUnheardNowAndThen) {
  options.connectTimeout = 20ms;
  timing.unheardRetry = 30ms;
  startAll();
  leaveConnectPending();
  connectTo();
  EXPECT_TRUE(waitForCall("Connect", 2));
  bluez->remove(FakeBlueZ::devicePath(kTag));  // forgotten, and known again though not heard
  queue->runFor(3 * timing.unheardRetry);
  bluez->restore("Connect");
  bluez->add(FakeBlueZ::devicePath(kTag), kDevice, {{"Address", std::string(kTag)}});
  EXPECT_TRUE(waitForEvent("connected"));
}

}  // namespace
}  // namespace kvtest
