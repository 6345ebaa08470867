// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include <gmock/gmock.h>

#include "tests/bluez/link_fixture.h"

namespace kvtest {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST_F(LinkTest, LinksThatDropAtOnceAreFurtherAndFurtherApart) {
  options.retryFirst = 10ms;
  options.retryMost = 1h;
  timing.dropHold = 0ms;
  startAll();
  const auto tag = find();
  int links = 0;
  recorder->onEvent = [&](const std::string& event) {
    if (event.starts_with("connected")) {
      ++links;
      bluez->setConnected(kTag, false);
    } else if (event.starts_with("disconnected")) {
      central->connectPeripheral(tag);
    }
  };
  const auto begun = queue->now();
  central->connectPeripheral(tag);
  EXPECT_TRUE(waitFor([&] { return links == 5; }));
  EXPECT_GE(queue->now() - begun, 120ms);  // 10 + 20 + 40 + 80, less the jitter of a fifth
  EXPECT_LT(queue->now() - begun, 1s);     // what doubling twice each time takes
}

TEST_F(LinkTest, WhyALinkHasEndedIsInTheLog) {
  options.retryFirst = 1ms;
  startAll();
  const struct {
    const char* name;
    std::function<void(const std::function<void()>& tell)> end;
    const char* event;
    bool logged;
  } cases[] = {
      {"told before",
       [&](const auto& tell) {
         tell();
         bluez->setConnected(kTag, false);
       },
       "disconnected AA:00:00:00:00:01 !1001", true},
      {"told after",
       [&](const auto& tell) {
         bluez->setConnected(kTag, false);
         tell();
       },
       "disconnected AA:00:00:00:00:01 !1001", true},
      {"by ourselves",
       [&](const auto& tell) {
         bluez->on("Disconnect", [this, tell](const kv::BusCall& call) {
           tell();
           bluez->answer(call);
         });
         central->cancelPeripheralConnection(recorder->found);
       },
       "disconnected AA:00:00:00:00:01", false},
  };
  for (const auto& each : cases) {
    log->text.clear();
    const auto tag = link();
    takeEvents();
    each.end([this] {
      bluez->tellWhyDisconnected(kTag, "org.bluez.Reason.Timeout", "Connection timeout");
      bluez->tellWhyDisconnected(kOtherTag, "org.bluez.Reason.Remote", "Of no concern");
    });
    EXPECT_TRUE(waitForEvent("disconnected")) << each.name;
    EXPECT_THAT(takeEvents(), ElementsAre(each.event)) << each.name;
    EXPECT_EQ(log->text.find("AA:00:00:00:00:01 has ended: Connection timeout "
                             "(org.bluez.Reason.Timeout)") != std::string::npos,
              each.logged)
        << each.name;
    EXPECT_EQ(log->text.find("Of no concern"), std::string::npos) << each.name;
  }
}

TEST_F(LinkTest, LinkThatHasLastedIsMadeAgainAtOnce) {
  options.retryFirst = options.retryMost = 1h;
  timing.shortLink = 0ms;
  startAll();
  const auto tag = link();
  recorder->onEvent = [&](const std::string& event) {
    if (event.starts_with("disconnected")) central->connectPeripheral(tag);
  };
  bluez->setConnected(kTag, false);
  EXPECT_TRUE(waitForEvent("connected"));
  takeEvents();
  bluez->powerOff();
  EXPECT_TRUE(waitForEvent("disconnected"));
  bluez->set(kHci, kAdapter, "Powered", true);
  EXPECT_TRUE(waitForEvent("connected"));
}

TEST_F(LinkTest, RequestAfterTheEndOfAShortLinkIsANewOne) {
  options.retryFirst = options.retryMost = 1h;
  startAll();
  const auto tag = link();
  bluez->setConnected(kTag, false);
  EXPECT_TRUE(waitForEvent("disconnected"));
  central->connectPeripheral(tag);
  EXPECT_TRUE(waitForEvent("connected"));
}

TEST_F(LinkTest, DeviceThatIsRemovedTakesItsLinkOrAttemptWithIt) {
  startAll();
  const auto tag = link();
  bluez->remove(FakeBlueZ::devicePath(kTag));
  EXPECT_TRUE(waitForEvent("disconnected"));
  EXPECT_THAT(takeEvents(), ElementsAre("disconnected AA:00:00:00:00:01 !1001"));

  EXPECT_EQ(find(), tag);
  bluez->on("Connect", [&](const kv::BusCall&) {
    bluez->restore("Connect");
    bluez->remove(FakeBlueZ::devicePath(kTag));  // and never answers
  });
  const int scans = bluez->calls("StartDiscovery");
  central->connectPeripheral(tag);
  EXPECT_TRUE(waitForCall("StartDiscovery", scans + 1));  // it must be heard first
  bluez->advertise(kTag, kFrame);
  EXPECT_TRUE(waitForEvent("connected"));
  EXPECT_THAT(takeEvents(), ElementsAre("connected AA:00:00:00:00:01"));
}

TEST_F(LinkTest, ConnectThatIsNeverAnsweredDoesNotHoldUpTheEnd) {
  options.disconnectTimeout = 1h;
  startAll();
  bluez->on("Connect", [&](const kv::BusCall&) {
    bluez->setConnected(kTag, true);
    bluez->addServices(kTag);
    bluez->setResolved(kTag, true);
  });
  const auto tag = connectTo();
  EXPECT_TRUE(waitForEvent("connected"));
  central->cancelPeripheralConnection(tag);
  EXPECT_TRUE(waitForEvent("disconnected"));
}

TEST_F(LinkTest, AttemptThatThePowerEndsHoldsUpNoOther) {
  startAll();
  const auto tag = find();
  bluez->on("Connect", [&](const kv::BusCall& call) { pending = call; });
  central->connectPeripheral(tag);
  EXPECT_TRUE(waitFor([&] { return pending.has_value(); }));
  bluez->powerOff();
  EXPECT_TRUE(waitForEvent("state 4"));
  bluez->restore("Connect");
  bluez->set(kHci, kAdapter, "Powered", true);
  EXPECT_TRUE(waitForEvent("connected"));
}

TEST_F(LinkTest, DeviceThatIsForgottenWhileTheScanStopsIsWaitedFor) {
  startAll();
  const auto tag = find();
  scanUntilFound();
  bluez->on("StopDiscovery", [&](const kv::BusCall& call) {
    bluez->restore("StopDiscovery");
    bluez->remove(FakeBlueZ::devicePath(kTag));
    bluez->answer(call);
  });
  central->connectPeripheral(tag);
  EXPECT_TRUE(waitForCall("StartDiscovery", 3));
  EXPECT_EQ(bluez->calls("Connect"), 0);
  bluez->advertise(kTag, kFrame);
  EXPECT_TRUE(waitForEvent("connected"));
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

TEST_F(LinkTest, OneAttemptAtATime) {
  startAll();
  const auto first = find(kTag);
  const auto second = find(kOtherTag);
  EXPECT_TRUE(waitForCall("StopDiscovery", 2));
  const auto third = find("AA:00:00:00:00:03");
  std::vector<kv::BusCall> attempts;
  bluez->on("Connect", [&](const kv::BusCall& call) { attempts.push_back(call); });
  central->connectPeripheral(first);
  central->connectPeripheral(third);
  central->connectPeripheral(second);
  central->connectPeripheral(second);  // joins
  EXPECT_TRUE(waitFor([&] { return attempts.size() == 1; }));
  EXPECT_EQ(FakeBlueZ::addressOf(attempts[0]), kTag);
  central->cancelPeripheralConnection(third);  // which has not had its turn
  EXPECT_TRUE(waitForEvent("disconnected"));
  takeEvents();
  bluez->answer(attempts[0]);
  EXPECT_TRUE(waitFor([&] { return attempts.size() == 2; }));
  bluez->answer(attempts[1]);
  EXPECT_TRUE(waitForEvent(std::string("connected ") + kOtherTag));
  EXPECT_THAT(takeEvents(),
              ElementsAre("connected AA:00:00:00:00:01", "connected AA:00:00:00:00:02"));
}

// An attempt after it that fails is explained anew.
TEST_F(LinkTest, DropIsReportedAndAskedAgain) {
  timing.settle = 5ms;
  startAll();
  failConnect(1, kFailed, "le-connection-abort-by-local");
  const auto tag = link();
  log->text.clear();
  bluez->on("Connect", [&, attempt = 0](const kv::BusCall& call) mutable {
    if (++attempt == 1) call.fail(kFailed, "le-connection-abort-by-local");
    if (attempt == 2) call.reply();  // without a link, which is no end of one
    if (attempt == 3) bluez->answer(call);
  });
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
  EXPECT_NE(log->text.find("le-connection-abort-by-local"), std::string::npos);
}

}  // namespace
}  // namespace kvtest
