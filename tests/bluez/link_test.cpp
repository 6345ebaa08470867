#include <gmock/gmock.h>

#include <ctime>

#include "tests/bluez/bluez_fixture.h"

namespace kvtest {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class LinkTest : public BlueZTest {
 protected:
  std::shared_ptr<KVPeripheral> connectTo(const std::string& address = kTag) {
    auto tag = find(address);
    central->connectPeripheral(tag);
    return tag;
  }
  /// Makes the next `count` calls of Connect fail.
  void failConnect(int count, const std::string& name, const std::string& text) {
    bluez->on("Connect", [this, count, name, text](const kv::BusCall& call) mutable {
      if (count-- > 0) {
        call.fail(name, text);
      } else {
        bluez->answer(call);
      }
    });
  }
};

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
}

// The daemon would forget it as soon as the scan ends.
TEST_F(LinkTest, ScanGoesOnWhileAPrivateAddressConnects) {
  startAll();
  const std::string address = "4A:00:00:00:00:01";
  bluez->add(FakeBlueZ::devicePath(address), kDevice,
             {{"Address", address}, {"AddressType", std::string("random")}});
  const auto tag = find(address);
  central->scanForPeripherals({}, /*allowDuplicates=*/true);
  EXPECT_TRUE(waitForCall("StartDiscovery", 2));
  bluez->takeCalls();
  central->connectPeripheral(tag);
  EXPECT_TRUE(waitForEvent("connected"));
  EXPECT_THAT(takeCalls({"StartDiscovery", "StopDiscovery", "Connect"}), ElementsAre("Connect"));
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

TEST_F(LinkTest, FullAdapterIsGivenTime) {
  timing.noRoomPause = 80ms;
  startAll();
  failConnect(1, kFailed, "le-connection-concurrent-connection-limit");
  const auto begun = queue->now();
  connectTo();
  EXPECT_TRUE(waitForEvent("connected"));
  EXPECT_GE(queue->now() - begun, timing.noRoomPause);
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
  timing.settle = 30ms;
  startAll();
  bluez->on("Connect", [&](const kv::BusCall& call) {
    bluez->restore("Connect");
    call.reply();
  });
  connectTo();
  EXPECT_TRUE(waitForEvent("connected"));
  EXPECT_THAT(takeCalls({"Connect", "Disconnect"}),
              ElementsAre("Connect", "Disconnect", "Connect"));
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

TEST_F(LinkTest, AbsentTagIsTriedAgainWhenItIsHeard) {
  options.connectTimeout = 40ms;
  startAll();
  std::optional<kv::BusCall> pending;
  bluez->on("Connect", [&](const kv::BusCall& call) { pending = call; });
  bluez->on("Disconnect", [&](const kv::BusCall& call) {
    pending->fail(kFailed, "br-connection-canceled");
    bluez->answer(call);
  });
  connectTo();
  EXPECT_TRUE(waitForCall("Disconnect"));
  EXPECT_TRUE(waitForCall("StartDiscovery", 2));
  EXPECT_EQ(bluez->calls("Connect"), 1);
  bluez->restore("Connect");
  bluez->advertise(kTag, kFrame);
  EXPECT_TRUE(waitForEvent("connected"));
}

TEST_F(LinkTest, ServicesThatAreExportedLateAreReadAnew) {
  startAll();
  bluez->on("Connect", [&](const kv::BusCall& call) {
    bluez->set(FakeBlueZ::devicePath(kTag), kDevice,
               {{"Connected", true}, {"ServicesResolved", true}});
    call.reply();
  });
  bluez->on("GetManagedObjects", [&](const kv::BusCall& call) {
    bluez->addServices(kTag);
    bluez->answer(call);
  });
  connectTo();
  EXPECT_TRUE(waitForEvent("connected"));
  EXPECT_EQ(bluez->calls("Connect"), 1);
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

TEST_F(LinkTest, DropDuringDiscoveryOfServices) {
  startAll();
  bluez->on("Connect", [&](const kv::BusCall& call) {
    bluez->restore("Connect");
    bluez->setConnected(kTag, true);
    call.reply();
    bluez->setConnected(kTag, false);
  });
  connectTo();
  EXPECT_TRUE(waitForEvent("connected"));
  EXPECT_THAT(takeEvents(), ElementsAre("connected AA:00:00:00:00:01"));
}

TEST_F(LinkTest, LinkOfAnEarlierProcessIsAdopted) {
  startAll();
  const auto tag = find();
  bluez->setConnected(kTag, true);
  bluez->addServices(kTag);
  bluez->setResolved(kTag, true);
  central->connectPeripheral(tag);
  EXPECT_TRUE(waitForEvent("connected"));
  EXPECT_EQ(bluez->calls("Connect"), 0);
}

TEST_F(LinkTest, CancelWhileConnecting) {
  startAll();
  std::optional<kv::BusCall> pending;
  bluez->on("Connect", [&](const kv::BusCall& call) { pending = call; });
  const auto tag = connectTo();
  EXPECT_TRUE(waitFor([&] { return pending.has_value(); }));
  central->cancelPeripheralConnection(tag);
  EXPECT_THAT(takeEvents(), IsEmpty());  // never from inside a request
  EXPECT_TRUE(waitForEvent("disconnected"));
  EXPECT_EQ(tag->state(), KVPeripheralStateDisconnected);
  central->connectPeripheral(tag);  // waits for the cancelled attempt
  EXPECT_TRUE(waitForCall("Disconnect"));
  EXPECT_EQ(bluez->calls("Connect"), 1);
  bluez->restore("Connect");
  pending->fail(kFailed, "br-connection-canceled");
  EXPECT_TRUE(waitForEvent("connected"));
  EXPECT_THAT(takeEvents(),
              ElementsAre("disconnected AA:00:00:00:00:01", "connected AA:00:00:00:00:01"));
}

TEST_F(LinkTest, SlowDisconnectIsBounded) {
  options.disconnectTimeout = 40ms;
  startAll();
  const auto tag = link();
  bluez->on("Disconnect", [](const kv::BusCall&) {});
  central->cancelPeripheralConnection(tag);
  EXPECT_EQ(tag->state(), KVPeripheralStateDisconnecting);
  EXPECT_TRUE(waitForEvent("disconnected"));
  EXPECT_THAT(takeEvents(), ElementsAre("disconnected AA:00:00:00:00:01"));
}

TEST_F(LinkTest, ConnectDuringASlowDisconnectWaitsForItsEnd) {
  startAll();
  const auto tag = link();
  std::optional<kv::BusCall> pending;
  bluez->on("Disconnect", [&](const kv::BusCall& call) { pending = call; });
  central->cancelPeripheralConnection(tag);
  central->connectPeripheral(tag);
  EXPECT_TRUE(waitFor([&] { return pending.has_value(); }));
  EXPECT_EQ(bluez->calls("Connect"), 1);  // the one of the first link
  bluez->answer(*pending);
  EXPECT_TRUE(waitForEvent("connected"));
  EXPECT_THAT(takeEvents(),
              ElementsAre("disconnected AA:00:00:00:00:01", "connected AA:00:00:00:00:01"));
}

TEST_F(LinkTest, OneAttemptAtATime) {
  startAll();
  const auto first = find(kTag);
  const auto second = find(kOtherTag);
  std::vector<kv::BusCall> pending;
  bluez->on("Connect", [&](const kv::BusCall& call) { pending.push_back(call); });
  central->connectPeripheral(first);
  central->connectPeripheral(second);
  central->connectPeripheral(second);  // joins
  EXPECT_TRUE(waitFor([&] { return pending.size() == 1; }));
  EXPECT_EQ(FakeBlueZ::addressOf(pending[0]), kTag);
  bluez->answer(pending[0]);
  EXPECT_TRUE(waitFor([&] { return pending.size() == 2; }));
  bluez->answer(pending[1]);
  EXPECT_TRUE(waitForEvent(std::string("connected ") + kOtherTag));
  EXPECT_THAT(takeEvents(),
              ElementsAre("connected AA:00:00:00:00:01", "connected AA:00:00:00:00:02"));
}

TEST_F(LinkTest, DropIsReportedAndAskedAgain) {
  startAll();
  const auto tag = link();
  recorder->onEvent = [&](const std::string& event) {
    if (event.starts_with("disconnected")) {
      EXPECT_EQ(tag->state(), KVPeripheralStateDisconnected);
      central->connectPeripheral(tag);
    }
  };
  bluez->set(FakeBlueZ::devicePath(kTag), kDevice,
             {{"Connected", false}, {"ServicesResolved", false}});
  EXPECT_TRUE(waitForEvent("connected"));
  EXPECT_THAT(takeEvents(),
              ElementsAre("disconnected AA:00:00:00:00:01 !1001", "connected AA:00:00:00:00:01"));
}

}  // namespace
}  // namespace kvtest
