// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// The standing request and the link of the simulated radio, case by case.
#include "tests/simulator/radio_world.h"

namespace kvsim {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

struct LinkWorld {
  void connect() { world.central->connectPeripheral(world.witness->found); }
  void cancel() { world.central->cancelPeripheralConnection(world.witness->found); }
  StepBehaviour& connecting() { return tag->behaviour().steps[Procedure::Connecting]; }
  void setAdapter(bool on) {
    world.radio.setAdapterState(on ? KVCentralStatePoweredOn : KVCentralStatePoweredOff);
  }

  World world;
  std::shared_ptr<VirtualTag> tag = world.radio.addTag();
};

class SimulatedLinkTest : public ::testing::Test, protected LinkWorld {};

TEST_F(SimulatedLinkTest, RepeatedRequestJoinsThePendingOne) {
  world.find();
  connect();
  EXPECT_THAT(world.runFor(20ms), IsEmpty());
  connect();
  EXPECT_THAT(world.runFor(10ms), ElementsAre("connect 2")) << "30 ms after the first";
  EXPECT_THAT(world.runFor(1min), IsEmpty());
  EXPECT_EQ(tag->state().connects, 1U);
}

TEST_F(SimulatedLinkTest, RequestWhileTheLinkEndsWaitsForTheEnd) {
  KVPeripheral& p = world.link();
  cancel();
  connect();
  EXPECT_EQ(p.state(), KVPeripheralStateDisconnecting);
  EXPECT_THAT(world.runFor(8ms), ElementsAre("disconnect 0"));
  EXPECT_EQ(p.state(), KVPeripheralStateConnecting);
  EXPECT_THAT(world.runFor(30ms), ElementsAre("connect 2"));
  EXPECT_EQ(tag->state().connects, 2U);
}

TEST_F(SimulatedLinkTest, RequestCancelledWhileTheLinkEndsIsOver) {
  KVPeripheral& p = world.link();
  cancel();
  connect();
  cancel();
  EXPECT_THAT(world.runFor(1min), ElementsAre("disconnect 0"));
  EXPECT_EQ(p.state(), KVPeripheralStateDisconnected);
  EXPECT_FALSE(tag->state().connected);
}

TEST_F(SimulatedLinkTest, EndedLinkStaysEnded) {
  KVPeripheral& p = world.link();
  world.radio.dropLink(tag);
  EXPECT_THAT(world.runFor(1min), ElementsAre("disconnect 0 1001"));
  EXPECT_EQ(p.state(), KVPeripheralStateDisconnected);
  EXPECT_FALSE(tag->state().connected);
  cancel();
  EXPECT_THAT(world.runFor(1min), IsEmpty()) << "there is nothing to cancel";
}

TEST_F(SimulatedLinkTest, RequestInsideTheEventOfTheLossIsMadeOnce) {
  world.link();
  connecting() = {StepFault::Fail, 1000};
  world.witness->after = [&](const std::string& line) {
    if (line.starts_with("disconnect")) connect();
  };
  world.radio.dropLink(tag);
  EXPECT_THAT(world.runFor(30ms), ElementsAre("disconnect 0 1001"));
  EXPECT_EQ(connecting().times, 999U);
  world.runFor(187ms);  // the shortest pause
  EXPECT_EQ(connecting().times, 999U);
}

TEST_F(SimulatedLinkTest, CancelEndsAnAttemptThatIsUnderWay) {
  KVPeripheral& p = world.find();
  for (const StepFault fault :
       {StepFault::Delay, StepFault::Mute, StepFault::Refuse, StepFault::Fail}) {
    connecting() = {fault, 1, 1s};
    connect();
    EXPECT_THAT(world.runFor(100ms), IsEmpty());
    EXPECT_EQ(connecting().times, 0U);
    cancel();
    EXPECT_EQ(p.state(), KVPeripheralStateDisconnected);
    EXPECT_THAT(world.runFor(1min), ElementsAre("disconnect 0"));
  }
  EXPECT_EQ(tag->state().connects, 0U);
}

TEST_F(SimulatedLinkTest, AttemptThatIsLateFindsTheTagGone) {
  world.find();
  connecting() = {StepFault::Delay, 1, 1s};
  connect();
  world.runFor(100ms);
  world.radio.setInRange(tag, false);
  EXPECT_THAT(world.runFor(1min), IsEmpty());
  EXPECT_EQ(tag->state().connects, 0U);
  world.radio.setInRange(tag, true);
  EXPECT_THAT(world.runFor(7s), ElementsAre("connect 2"));
}

TEST_F(SimulatedLinkTest, OnlyOneCentralGetsATagThatIsLate) {
  world.find();
  Witness other;
  const auto platform = world.radio.platform();
  const auto second = platform->radio->makeCentral(other, platform->eventQueue);
  world.runFor(0s);
  second->scanForPeripherals({}, /*allowDuplicates=*/false);
  world.runFor(2s);
  ASSERT_TRUE(other.found);
  connecting() = {StepFault::Delay, 1, 1s};
  connect();
  world.runFor(100ms);
  second->connectPeripheral(other.found);
  world.runFor(2s);
  EXPECT_EQ(other.found->state(), KVPeripheralStateConnected);
  EXPECT_EQ(world.witness->found->state(), KVPeripheralStateConnecting);
  EXPECT_EQ(tag->state().connects, 1U);
  // A central is told nothing of a device of another one.
  world.central->cancelPeripheralConnection(other.found);
  world.central->connectPeripheral(nullptr);
  world.runFor(1s);
  EXPECT_EQ(other.found->state(), KVPeripheralStateConnected);
  second->cancelPeripheralConnection(other.found);
  world.runFor(7s);
  EXPECT_EQ(world.witness->found->state(), KVPeripheralStateConnected);
}

TEST_F(SimulatedLinkTest, AdapterOffInEachStateOfTheLink) {
  struct Case {
    const char* name;
    void (*prepare)(LinkWorld& test);
    Lines off;
    Lines on;
  };
  const Case kCases[] = {
      {"idle", [](LinkWorld& t) { t.world.find(); }, {"state 4"}, {"state 5"}},
      {"connecting",
       [](LinkWorld& t) { t.world.find(), t.connect(); },
       {"state 4"},
       {"state 5", "connect 2"}},
      {"connected",
       [](LinkWorld& t) { t.world.link(); },
       {"state 4", "disconnect 0 1002"},
       {"state 5"}},
      {"disconnecting",
       [](LinkWorld& t) { t.world.link(), t.cancel(); },
       {"state 4", "disconnect 0"},
       {"state 5"}},
      {"disconnecting, and asked for again",
       [](LinkWorld& t) { t.world.link(), t.cancel(), t.connect(); },
       {"state 4", "disconnect 0"},
       {"state 5", "connect 2"}},
      {"attempt answered while it is off",
       [](LinkWorld& t) {
         t.world.find();
         t.connecting() = {StepFault::Delay, 1, 10s};
         t.connect();
         t.world.runFor(1s);
       },
       {"state 4"},
       {"state 5", "connect 2"}},
      {"asked for while it is off",
       [](LinkWorld& t) { t.world.find(), t.setAdapter(false), t.connect(); },
       {"state 4"},
       {"state 5", "connect 2"}},
  };
  for (const Case& c : kCases) {
    SCOPED_TRACE(c.name);
    LinkWorld fresh;
    c.prepare(fresh);
    fresh.setAdapter(false);
    EXPECT_EQ(fresh.world.runFor(1min), c.off);
    EXPECT_FALSE(fresh.tag->state().connected);
    fresh.setAdapter(true);
    EXPECT_EQ(fresh.world.runFor(1min), c.on);
  }
}

TEST_F(SimulatedLinkTest, RequestsOfAnEndedLinkAreGone) {
  KVPeripheral& p = world.link();
  const auto command = world.commandCharacteristic();
  p.setNotifyValue(true, command);
  world.runFor(1s);
  world.radio.setInRange(tag, false);
  p.readValue(command);
  p.readValue(command);
  tag->inject(KVData{1});
  world.runFor(1s);
  world.radio.dropLink(tag);
  EXPECT_THAT(world.runFor(0s), ElementsAre("disconnect 0 1001"));
  p.readValue(command);
  p.readRSSI();
  p.discoverServices();
  tag->inject(KVData{1});
  EXPECT_THAT(world.runFor(1s), IsEmpty());
  world.radio.setInRange(tag, true);
  connect();
  EXPECT_THAT(world.runFor(1min), ElementsAre("connect 2"));
  p.readValue(command);
  EXPECT_THAT(world.runFor(8ms), ElementsAre("value 16")) << "nothing is in its way";
}

TEST_F(SimulatedLinkTest, ObserverEndsTheLinkInsideARequest) {
  KVPeripheral& p = world.link();
  const auto command = world.commandCharacteristic();
  tag->setObserver([&](const TagEvent& event) {
    if (event.kind == TagEventKind::OpeningSent) world.central.reset();
  });
  p.readValue(command);
  p.readValue(command);
  EXPECT_THAT(world.runFor(1min), IsEmpty());
  EXPECT_FALSE(tag->state().connected);
  EXPECT_EQ(p.state(), KVPeripheralStateDisconnected);
}

TEST_F(SimulatedLinkTest, DroppedCentralEndsItsRequestsAndLinks) {
  KVPeripheral& p = world.find();
  connect();
  world.central.reset();
  EXPECT_EQ(p.state(), KVPeripheralStateDisconnected);
  EXPECT_THAT(world.runFor(1min), IsEmpty());
  EXPECT_EQ(tag->state().connects, 0U);
}

TEST_F(SimulatedLinkTest, ClosedCentralIsSilent) {
  KVPeripheral& p = world.link();
  const auto command = world.commandCharacteristic();
  p.readValue(command);
  world.central->close();
  EXPECT_EQ(p.state(), KVPeripheralStateDisconnected);
  EXPECT_FALSE(tag->state().connected);
  connect();
  p.discoverServices();
  world.central->scanForPeripherals({}, /*allowDuplicates=*/true);
  setAdapter(false);
  EXPECT_THAT(world.runFor(1min), IsEmpty());
  setAdapter(true);
  EXPECT_THAT(world.runFor(1min), IsEmpty());
  EXPECT_EQ(tag->state().connects, 1U);
  EXPECT_EQ(world.witness->adverts, 1U);
}

TEST_F(SimulatedLinkTest, CentralThatIsNewMayBeAskedAtOnce) {
  Witness other;
  const auto platform = world.radio.platform();
  const auto closed = platform->radio->makeCentral(other, platform->eventQueue);
  closed->close();
  world.central->scanForPeripherals({}, /*allowDuplicates=*/false);
  EXPECT_THAT(world.runFor(2s), ElementsAre("state 5"));
  EXPECT_EQ(world.witness->adverts, 1U);
  EXPECT_THAT(other.took(), IsEmpty());
}

TEST_F(SimulatedLinkTest, ForeignHandlesAndServicesAreIgnored) {
  KVPeripheral& p = world.link();
  const auto command = world.commandCharacteristic();
  const auto foreign = std::make_shared<KVCharacteristic>(KVUUID(0x2A00), p.services()[0]);
  p.readValue(foreign);
  p.writeValue(KVData{1}, foreign, KVWriteType::WithResponse);
  p.setNotifyValue(true, nullptr);
  p.discoverCharacteristics(std::make_shared<KVService>(KVUUID(0x180A)));
  p.writeValue(std::nullopt, command, KVWriteType::WithResponse);
  p.readValue(command);
  EXPECT_THAT(world.runFor(8ms), ElementsAre("value 16"));
  EXPECT_THAT(world.runFor(1min), IsEmpty());
}

TEST_F(SimulatedLinkTest, FailedDiscoveriesLeaveNothing) {
  KVPeripheral& p = world.link();
  world.commandCharacteristic();
  const auto service = p.services()[0];
  tag->behaviour().steps[Procedure::CharacteristicDiscovery] = {StepFault::Fail, 1};
  p.discoverCharacteristics(service);
  EXPECT_THAT(world.runFor(1s), ElementsAre("characteristics 0 1114"));
  p.discoverCharacteristics(service);
  EXPECT_THAT(world.runFor(1s), ElementsAre("characteristics 1"));
  tag->behaviour().steps[Procedure::ServiceDiscovery] = {StepFault::Fail, 1};
  p.discoverServices();
  EXPECT_THAT(world.runFor(1s), ElementsAre("services 0 1114"));
  EXPECT_THAT(p.services(), IsEmpty());
}

TEST_F(SimulatedLinkTest, NotificationsGoToTheirCharacteristic) {
  tag->behaviour().commandCharacteristics = 2;
  KVPeripheral& p = world.link();
  world.commandCharacteristic();
  const auto first = p.services()[0]->characteristics()[0];
  const auto second = p.services()[0]->characteristics()[1];
  p.setNotifyValue(true, second);
  world.runFor(1s);
  tag->inject(KVData{7});
  EXPECT_THAT(world.runFor(0s), ElementsAre("value 1"));
  EXPECT_FALSE(first->value());
  EXPECT_EQ(second->value(), KVData{7});
  tag->behaviour().steps[Procedure::OpeningRead] = {StepFault::Fail, 1};
  p.readValue(second);
  EXPECT_THAT(world.runFor(1s), ElementsAre("value absent 1114"));
  EXPECT_FALSE(second->value());
}

}  // namespace
}  // namespace kvsim
