// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// The simulated radio against what the port promises, seen by a central that writes down its
// events.
#include <array>
#include <thread>

#include "tests/simulator/radio_world.h"

namespace kvsim {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(SimulatedRadioTest, WhatATagOffersAndHowLongItTakes) {
  World world;
  world.radio.addTag();
  KVPeripheral& p = world.link();
  p.discoverServices();
  EXPECT_THAT(world.runFor(8ms), ElementsAre("services 3"));
  for (const auto& service : p.services()) p.discoverCharacteristics(service);
  EXPECT_THAT(world.runFor(24ms),
              ElementsAre("characteristics 1", "characteristics 1", "characteristics 3"));
  const auto distance = p.services()[1]->characteristics()[0];
  p.readValue(p.services()[0]->characteristics()[0]);
  p.readValue(p.services()[2]->characteristics()[0]);
  p.writeValue(KVData{1}, distance, KVWriteType::WithResponse);
  p.writeValue(KVData{1, 2}, distance, KVWriteType::WithResponse);
  EXPECT_THAT(world.runFor(1s), ElementsAre("value 16", "value 11", "written", "written 1113"));
}

TEST(SimulatedRadioTest, AttemptsThatFailAreSpaced) {
  World world;
  const auto tag = world.radio.addTag();
  world.find();
  tag->behaviour().steps[Procedure::Connecting] = {StepFault::Fail, 1000};
  const unsigned& left = tag->behaviour().steps[Procedure::Connecting].times;
  world.central->connectPeripheral(world.witness->found);
  world.runFor(700ms);
  EXPECT_GE(left, 997U);
  EXPECT_LE(left, 998U);
  world.runFor(10min);
  EXPECT_GE(1000 - left, 600U / 6);
  EXPECT_LE(1000 - left, 600U / 3);
  // Whoever asks again at once when a request fails for good is slowed down all the same.
  tag->behaviour().steps[Procedure::Connecting] = {StepFault::Refuse, 1000};
  world.witness->after = [&](const std::string&) {
    world.central->connectPeripheral(world.witness->found);
  };
  EXPECT_LE(world.runFor(10min).size(), 200U);
  EXPECT_LE(1000 - tag->behaviour().steps[Procedure::Connecting].times, 200U);
}

TEST(SimulatedRadioTest, LinkThatIsNotAnsweredIsGivenUpAfterThirtySeconds) {
  World world;
  const auto tag = world.radio.addTag();
  KVPeripheral& p = world.link();
  tag->behaviour().steps[Procedure::ServiceDiscovery] = {StepFault::Mute};
  p.discoverServices();
  EXPECT_THAT(world.runFor(30s), IsEmpty());
  EXPECT_THAT(world.runFor(8ms), ElementsAre("disconnect 0 1003"));
}

struct Cause {
  const char* name;
  void (*strike)(SimulatedRadio& radio, const std::shared_ptr<VirtualTag>& tag);
  const char* event;  // what becomes of a read that is under way
};

const Cause kCauses[] = {
    {"LinkDropped", [](auto& radio, const auto& tag) { radio.dropLink(tag); }, "disconnect 0 1001"},
    {"TagRemoved", [](auto& radio, const auto& tag) { radio.removeTag(tag); }, "disconnect 0 1001"},
    {"TagDropsTheLink",
     [](auto&, const auto& tag) {
       tag->behaviour().steps[Procedure::OpeningRead] = {StepFault::Drop, 1, 1s};
     },
     "disconnect 0 1001"},
    {"TagOutOfRange", [](auto& radio, const auto& tag) { radio.setInRange(tag, false); },
     "disconnect 0 1001"},
    {"AdapterOff",
     [](auto& radio, const auto&) { radio.setAdapterState(KVCentralStatePoweredOff); },
     "disconnect 0 1002"},
    {"TagMute",
     [](auto&, const auto& tag) {
       tag->behaviour().steps[Procedure::OpeningRead] = {StepFault::Mute};
     },
     "disconnect 0 1003"},
    {"AttributesChanged", [](auto&, const auto& tag) { tag->behaviour().commandService = false; },
     "disconnect 0 1003"},
    {"ReadFails",
     [](auto&, const auto& tag) {
       tag->behaviour().steps[Procedure::OpeningRead] = {StepFault::Fail};
     },
     "value absent 1114"},
    {"ReadFailsWithTheGreatestError",
     [](auto&, const auto& tag) {
       tag->behaviour().steps[Procedure::OpeningRead] = {.fault = StepFault::Fail,
                                                         .attError = 0xFF};
     },
     "value absent 1355"},
};

class Causes : public ::testing::TestWithParam<Cause> {};

TEST_P(Causes, HaveTheCodesThatEveryRadioReports) {
  World world;
  const auto tag = world.radio.addTag();
  KVPeripheral& p = world.link();
  p.readValue(world.commandCharacteristic());
  GetParam().strike(world.radio, tag);
  Lines lines = world.runFor(1min);
  std::erase(lines, "state 4");
  EXPECT_THAT(lines, ElementsAre(GetParam().event));
}

INSTANTIATE_TEST_SUITE_P(All, Causes, ::testing::ValuesIn(kCauses),
                         [](const auto& cause) { return std::string(cause.param.name); });

TEST(SimulatedRadioTest, RefusedConnectionFailsForGood) {
  World world;
  const auto tag = world.radio.addTag();
  world.find();
  tag->behaviour().steps[Procedure::Connecting] = {StepFault::Refuse, 1, 2s};
  world.central->connectPeripheral(world.witness->found);
  EXPECT_THAT(world.runFor(2s), IsEmpty());
  EXPECT_THAT(world.runFor(1min), ElementsAre("refused 0 1005"));
  world.central->connectPeripheral(world.witness->found);
  EXPECT_THAT(world.runFor(1min), ElementsAre("connect 2"));
}

TEST(SimulatedRadioTest, OutOfRangeAndBack) {
  World world;
  const auto tag = world.radio.addTag();
  world.link();
  const auto command = world.commandCharacteristic();
  world.radio.setInRange(tag, false);
  world.witness->found->readValue(command);
  EXPECT_THAT(world.runFor(2s), IsEmpty());
  world.radio.setInRange(tag, true);
  EXPECT_THAT(world.runFor(1s), ElementsAre("value 16")) << "the radio sends it again";
  world.radio.setRssi(tag, -101);
  EXPECT_THAT(world.runFor(4s), IsEmpty());
  EXPECT_THAT(world.runFor(1s), ElementsAre("disconnect 0 1001"));
  world.central->connectPeripheral(world.witness->found);
  EXPECT_THAT(world.runFor(1h), IsEmpty());
  world.radio.setRssi(tag, -100);
  EXPECT_THAT(world.runFor(7s), ElementsAre("connect 2"));
  world.radio.removeTag(tag);
  EXPECT_THAT(world.runFor(1s), ElementsAre("disconnect 0 1001"));
  EXPECT_EQ(world.radio.tagCount(), 0U);
}

TEST(SimulatedRadioTest, SignalFollowsThePath) {
  World world;
  const auto tag = world.radio.addTag({.transmitPower = 0});
  world.radio.setPathLoss(tag, pathThrough({{10s, 40}, {20s, 80}}));
  KVPeripheral& p = world.link();
  const auto readAt = [&](std::chrono::seconds at) {
    world.radio.clock().runFor(at - world.radio.clock().now() - 8ms);
    world.witness->took();
    std::thread([&] { p.readRSSI(); }).join();
    return world.runFor(8ms);
  };
  EXPECT_THAT(readAt(9s), ElementsAre("rssi -40"));
  EXPECT_THAT(readAt(15s), ElementsAre("rssi -60"));
  EXPECT_THAT(readAt(30s), ElementsAre("rssi -80"));
  tag->behaviour().steps[Procedure::RssiRead] = {StepFault::Fail, 1};
  EXPECT_THAT(readAt(31s), ElementsAre("rssi absent 1004"));
  EXPECT_THAT(readAt(32s), ElementsAre("rssi -80"));
}

TEST(SimulatedRadioTest, ScansFilterAndRepeat) {
  World world({.advertisingDelay = 0ns});
  const auto tag = world.radio.addTag();
  world.runFor(0s);
  const auto reportsOf = [&](std::vector<KVUUID> services, bool duplicates) {
    world.witness->adverts = 0;
    world.central->scanForPeripherals(services, duplicates);
    world.runFor(10s);
    return world.witness->adverts;
  };
  EXPECT_EQ(reportsOf({}, true), 10U);
  EXPECT_EQ(reportsOf({KVUUID(0xFFE1)}, true), 10U);
  EXPECT_EQ(reportsOf({KVUUID(0x180F)}, true), 0U);
  EXPECT_EQ(reportsOf({}, false), 1U);
  EXPECT_EQ(reportsOf({}, false), 1U) << "once in each scan";
  world.radio.setAir({.lost = 1});
  EXPECT_EQ(reportsOf({}, true), 0U);
  world.radio.advertise(tag);
  world.radio.advertise(tag, {{KVUUID(0x180F), KVData(9, 0x55)}}, std::nullopt);
  world.runFor(0s);
  EXPECT_EQ(world.witness->adverts, 2U);
  const KVUUID battery(0x180F);
  world.central->scanForPeripherals({&battery, 1}, /*allowDuplicates=*/true);
  world.radio.advertise(tag, {{KVUUID(0x180A), {}}, {battery, {}}}, std::nullopt);
  world.radio.advertise(tag);
  world.runFor(0s);
  EXPECT_EQ(world.witness->adverts, 3U) << "only what has such service data";
  world.radio.advertise(tag, {{battery, KVData(9, 0x55)}}, std::nullopt);
  world.runFor(0s);
  EXPECT_EQ(world.witness->lastData, KVData(9, 0x55));
  EXPECT_FALSE(world.witness->lastRssi);
  world.radio.setAir({.duplicated = 1});
  EXPECT_EQ(reportsOf({}, true), 20U);
  // The same tag under another radio address.
  const auto before = world.witness->found;
  world.radio.placeTag(tag);
  EXPECT_EQ(reportsOf({}, true), 20U);
  EXPECT_FALSE(before->isEqual(*world.witness->found));
}

TEST(SimulatedRadioTest, TwoCentralsAndOneTag) {
  World world;
  world.radio.addTag();
  world.link();
  Witness other;
  const auto platform = world.radio.platform();
  auto second = platform->radio->makeCentral(other, platform->eventQueue);
  second->scanForPeripherals({}, /*allowDuplicates=*/true);
  world.runFor(5s);
  EXPECT_EQ(other.adverts, 0U) << "a tag is silent while it is connected";
  world.central->cancelPeripheralConnection(world.witness->found);
  world.runFor(5s);
  ASSERT_TRUE(other.found);
  EXPECT_TRUE(other.found->isEqual(*world.witness->found));
  second->connectPeripheral(other.found);
  world.central->connectPeripheral(world.witness->found);
  world.runFor(1s);
  EXPECT_EQ(other.found->state() + world.witness->found->state(),
            KVPeripheralStateConnected + KVPeripheralStateConnecting);

  world.central->cancelPeripheralConnection(world.witness->found);
  world.runFor(1min);
  ASSERT_EQ(other.found->state(), KVPeripheralStateConnected);
  world.central->connectPeripheral(world.witness->found);
  second.reset();
  world.runFor(1min);
  EXPECT_EQ(world.witness->found->state(), KVPeripheralStateConnected)
      << "a link ends with its central";
}

TEST(SimulatedRadioTest, TagsCostNothingWhileNobodyScans) {
  World world;
  world.radio.addTag();
  const auto platform = world.radio.platform();
  Witness other;
  auto second = platform->radio->makeCentral(other, platform->eventQueue);
  world.runFor(0s);
  const auto tasks = [&] {  // how many run in a minute, plus two
    unsigned looks = 0;
    EXPECT_FALSE(world.radio.clock().runUntil([&] { return ++looks == 0; }, 1min));
    return looks;
  };
  EXPECT_EQ(tasks(), 2U);
  const std::function<void()> kEnds[] = {
      [&] { world.central->stopScan(); },
      [&] { world.radio.setAdapterState(KVCentralStatePoweredOff), world.runFor(0s); },
      [&] { world.central.reset(); },
  };
  for (const auto& end : kEnds) {
    world.radio.setAdapterState(KVCentralStatePoweredOn);
    world.runFor(0s);
    world.central->scanForPeripherals({}, /*allowDuplicates=*/true);
    second->scanForPeripherals({}, /*allowDuplicates=*/true);
    EXPECT_GT(tasks(), 50U);
    second->stopScan();
    EXPECT_GT(tasks(), 50U) << "one scan is left";
    end();
    EXPECT_EQ(tasks(), 2U);
  }
}

TEST(SimulatedRadioTest, ScanCannotStartWhileTheAdapterIsNotOn) {
  World world({.adapterState = KVCentralStatePoweredOff});
  world.radio.addTag();
  EXPECT_THAT(world.runFor(0s), ElementsAre("state 4"));
  world.central->scanForPeripherals({}, /*allowDuplicates=*/true);
  world.radio.setAdapterState(KVCentralStateUnauthorized);
  world.radio.setAdapterState(KVCentralStateUnauthorized);
  world.radio.setAdapterState(KVCentralStatePoweredOn);
  EXPECT_THAT(world.runFor(1min), ElementsAre("state 3", "state 5"));
  EXPECT_EQ(world.witness->adverts, 0U);
  world.central->scanForPeripherals({}, /*allowDuplicates=*/true);
  world.runFor(10s);
  EXPECT_GE(world.witness->adverts, 9U);
}

TEST(SimulatedRadioTest, CentralSaysSoOnAForeignQueue) {
  struct Log final : KVLog {
    void write(std::string_view line) override { lines.emplace_back(line); }
    Lines lines;
  };
  const auto log = std::make_shared<Log>();
  SimulatedRadio radio({.log = log});
  Witness witness;
  const auto own = radio.platform()->radio->makeCentral(witness, radio.platform()->eventQueue);
  EXPECT_THAT(log->lines, IsEmpty());
  const auto foreign =
      radio.platform()->radio->makeCentral(witness, std::make_shared<VirtualEventQueue>());
  EXPECT_EQ(log->lines.size(), 1U);
}

TEST(SimulatedRadioTest, TagsThatAreNotOnTheAirAreIgnored) {
  World world;
  const auto tag = std::make_shared<VirtualTag>(TagSpec{});
  for (const auto& absent : {tag, std::shared_ptr<VirtualTag>()}) {
    world.radio.removeTag(absent);
    world.radio.setPathLoss(absent, {});
    world.radio.setRssi(absent, -60);
    world.radio.setInRange(absent, false);
    world.radio.advertise(absent);
    world.radio.advertise(absent, {}, -60);
    world.radio.dropLink(absent);
  }
  world.radio.placeTag(nullptr);
  world.runFor(0s);
  EXPECT_EQ(world.radio.tagCount(), 0U);
  world.radio.placeTag(tag);
  EXPECT_EQ(world.radio.tagCount(), 1U);
  KVPeripheral& p = world.link();
  world.radio.setPathLoss(tag, {});  // no loss at all
  p.readRSSI();
  EXPECT_THAT(world.runFor(8ms), ElementsAre("rssi -12"));
}

TEST(SimulatedRadioTest, RealClockIsNoVirtualOne) {
  SimulatedRadio radio({.clock = ClockKind::Real});
  EXPECT_DEATH(radio.clock(), "a radio with a real clock has no virtual one");
}

TEST(SimulatedRadioTest, ChanceIsTheSeedsAndEachTagsOwn) {
  const auto draw = [](std::uint64_t seed) {
    SimulatedRadio radio({.seed = seed});
    std::array<std::uint8_t, 8> bytes{};
    radio.platform()->random->fill(bytes);
    std::vector<KVData> drawn{KVData(bytes.begin(), bytes.end())};
    class NoLink final : public TagLink {
      void notify(GattHandle, KVData, std::chrono::nanoseconds) override {}
      void drop(std::chrono::nanoseconds) override {}
    } link;
    for (int i = 0; i < 2; ++i) {
      const auto tag = radio.addTag();
      tag->connect(link);
      drawn.push_back(tag->read(0x0010)->value);  // the opening value
      tag->disconnect();
    }
    return drawn;
  };
  const auto first = draw(1);
  EXPECT_EQ(first, draw(1));
  EXPECT_NE(first[1], first[2]);
  for (std::size_t i = 0; i < first.size(); ++i) EXPECT_NE(first[i], draw(2)[i]);
}

Lines history(std::uint64_t seed) {
  World world({.seed = seed, .air = {.lost = 0.3, .duplicated = 0.2, .rssiJitter = 6}});
  world.witness->noteAdverts = true;
  for (int i = 0; i < 5; ++i) world.radio.addTag();
  const auto flaky = world.radio.addTag();
  flaky->behaviour().steps[Procedure::Connecting] = {StepFault::Fail, 6};
  world.runFor(0s);
  world.central->scanForPeripherals({}, /*allowDuplicates=*/true);
  world.radio.clock().runUntil([&] { return world.witness->found != nullptr; });
  world.central->connectPeripheral(world.witness->found);
  return world.runFor(60s);
}

TEST(SimulatedRadioTest, TheSeedDecidesEverything) {
  const Lines first = history(7);
  EXPECT_GT(first.size(), 200U);
  EXPECT_EQ(first, history(7));
  EXPECT_NE(first, history(8));
}

TEST(SimulatedRadioTest, TenThousandTags) {
  World world({.advertisingDelay = 0ns});
  for (unsigned i = 0; i < 10'000; ++i) world.radio.addTag();
  world.runFor(0s);
  world.central->scanForPeripherals({}, /*allowDuplicates=*/true);
  world.runFor(10s);
  EXPECT_EQ(world.witness->adverts, 100'000U);
}

}  // namespace
}  // namespace kvsim
