// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include <gmock/gmock.h>

#include "tests/bluez/link_fixture.h"

namespace kvtest {
namespace {

using ::testing::ElementsAre;

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

}  // namespace
}  // namespace kvtest
