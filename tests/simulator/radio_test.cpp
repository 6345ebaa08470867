// The simulated radio against what the port promises, seen by a central that writes down its
// events.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

#include "KVFobSimulator/KVFobSimulator.h"

namespace kvsim {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Lines = std::vector<std::string>;

std::string outcome(const std::optional<KVError>& error) { return error ? " failed" : ""; }

/// Writes its events down; `after`, if set, is called at the end of each.
class Witness final : public KVCentralDelegate, public KVPeripheralDelegate {
 public:
  void centralManagerDidUpdateState(KVCentral& central) override {
    note("state " + std::to_string(central.state()));
  }
  void didDiscoverPeripheral(KVCentral&, const std::shared_ptr<KVPeripheral>& peripheral,
                             const KVAdvertisement& advertisement,
                             std::optional<std::int64_t> rssi) override {
    found = peripheral;
    ++adverts;
    lastRssi = rssi;
    const KVBytes frame = advertisement.serviceData[0].value;
    heard.emplace_back(frame[8]);
    if (noteAdverts) note("advert " + std::to_string(rssi.value_or(0)));
  }
  void didConnectPeripheral(KVCentral&, const std::shared_ptr<KVPeripheral>& p) override {
    note("connect " + std::to_string(p->state()));
  }
  void didFailToConnectPeripheral(KVCentral&, const std::shared_ptr<KVPeripheral>& p,
                                  const std::optional<KVError>&) override {
    note("refused " + std::to_string(p->state()));
  }
  void didDisconnectPeripheral(KVCentral&, const std::shared_ptr<KVPeripheral>& p,
                               const std::optional<KVError>& error) override {
    note("disconnect " + std::to_string(p->state()) + outcome(error));
  }
  void didDiscoverServices(KVPeripheral& p, const std::optional<KVError>& error) override {
    note("services " + std::to_string(p.services().size()) + outcome(error));
  }
  void didDiscoverCharacteristicsForService(KVPeripheral&, KVService& service,
                                            const std::optional<KVError>& error) override {
    note("characteristics " + std::to_string(service.characteristics().size()) + outcome(error));
  }
  void didUpdateValueForCharacteristic(KVPeripheral&,
                                       const std::shared_ptr<KVCharacteristic>& characteristic,
                                       const std::optional<KVError>& error) override {
    const auto& value = characteristic->value();
    note("value " + (value ? std::to_string(value->size()) : "absent") + outcome(error));
  }
  void didWriteValueForCharacteristic(KVPeripheral&, const std::shared_ptr<KVCharacteristic>&,
                                      const std::optional<KVError>& error) override {
    note("written" + outcome(error));
  }
  void didReadRSSI(KVPeripheral&, std::optional<std::int64_t> rssi,
                   const std::optional<KVError>& error) override {
    note("rssi " + (rssi ? std::to_string(*rssi) : "absent") + outcome(error));
  }

  Lines took() { return std::exchange(lines, {}); }

  bool noteAdverts = false;
  unsigned adverts = 0;
  std::optional<std::int64_t> lastRssi;
  std::vector<std::uint8_t> heard;
  std::shared_ptr<KVPeripheral> found;
  std::function<void(const std::string&)> after;

 private:
  void note(std::string line) {
    lines.push_back(line);
    const auto then = after;
    if (then) then(line);
  }
  Lines lines;
};

struct World {
  explicit World(SimulatedRadioOptions options = {}) : radio(std::move(options)) {
    central = radio.platform()->radio->makeCentral(*witness, radio.platform()->eventQueue);
  }

  /// Hears the tag and has its peripheral.
  KVPeripheral& find() {
    radio.clock().runUntilIdle();
    central->scanForPeripherals({}, /*allowDuplicates=*/false);
    EXPECT_TRUE(radio.clock().runUntil([&] { return witness->found != nullptr; }));
    central->stopScan();
    witness->found->setDelegate(std::shared_ptr<KVPeripheralDelegate>(witness));
    witness->took();
    return *witness->found;
  }

  KVPeripheral& link() {
    KVPeripheral& peripheral = find();
    central->connectPeripheral(witness->found);
    EXPECT_TRUE(radio.clock().runUntilIdle());
    EXPECT_THAT(witness->took(), ElementsAre("connect 2"));
    return peripheral;
  }

  Lines runFor(std::chrono::nanoseconds time) {
    radio.clock().runFor(time);
    return witness->took();
  }

  std::shared_ptr<KVCharacteristic> commandCharacteristic() {
    KVPeripheral& p = *witness->found;
    p.discoverServices();
    radio.clock().runUntilIdle();
    p.discoverCharacteristics(p.services()[0]);
    radio.clock().runUntilIdle();
    witness->took();
    return p.services()[0]->characteristics().at(0);
  }

  SimulatedRadio radio;
  std::shared_ptr<Witness> witness = std::make_shared<Witness>();
  std::shared_ptr<KVCentral> central;
};

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
  p.writeValue(KVData{1}, distance, KVWriteType::withResponse);
  p.writeValue(KVData{1, 2}, distance, KVWriteType::withResponse);
  EXPECT_THAT(world.runFor(1s), ElementsAre("value 16", "value 11", "written", "written failed"));
}

TEST(SimulatedRadioTest, AttemptsThatFailAreSpaced) {
  World world;
  const auto tag = world.radio.addTag();
  world.find();
  tag->behaviour().steps[RoadStep::Connecting] = {StepFault::Fail, 1000};
  const unsigned& left = tag->behaviour().steps[RoadStep::Connecting].times;
  world.central->connectPeripheral(world.witness->found);
  world.runFor(700ms);
  EXPECT_GE(left, 997U);
  EXPECT_LE(left, 998U);
  world.runFor(10min);
  EXPECT_GE(1000 - left, 600U / 6);
  EXPECT_LE(1000 - left, 600U / 3);
  // Whoever asks again at once when a request fails for good is slowed down all the same.
  tag->behaviour().steps[RoadStep::Connecting] = {StepFault::Refuse, 1000};
  world.witness->after = [&](const std::string&) {
    world.central->connectPeripheral(world.witness->found);
  };
  EXPECT_LE(world.runFor(10min).size(), 200U);
  EXPECT_LE(1000 - tag->behaviour().steps[RoadStep::Connecting].times, 200U);
}

TEST(SimulatedRadioTest, MuteTagLosesItsLinkAfterThirtySeconds) {
  World world;
  const auto tag = world.radio.addTag();
  KVPeripheral& p = world.link();
  tag->behaviour().steps[RoadStep::ServiceDiscovery] = {StepFault::Mute};
  p.discoverServices();
  EXPECT_THAT(world.runFor(30s), IsEmpty());
  EXPECT_THAT(world.runFor(1s), ElementsAre("disconnect 0 failed"));
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
  EXPECT_THAT(world.runFor(1s), ElementsAre("disconnect 0 failed"));
  world.central->connectPeripheral(world.witness->found);
  EXPECT_THAT(world.runFor(1h), IsEmpty());
  world.radio.setRssi(tag, -100);
  EXPECT_THAT(world.runFor(7s), ElementsAre("connect 2"));
  world.radio.removeTag(tag);
  EXPECT_THAT(world.runFor(1s), ElementsAre("disconnect 0 failed"));
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
  tag->behaviour().steps[RoadStep::RssiRead] = {StepFault::Fail, 1};
  EXPECT_THAT(readAt(31s), ElementsAre("rssi absent failed"));
  EXPECT_THAT(readAt(32s), ElementsAre("rssi -80"));
}

TEST(SimulatedRadioTest, ScansFilterAndRepeat) {
  World world({.advertisingDelay = 0ns});
  const auto tag = world.radio.addTag();
  world.runFor(0s);
  const auto heardWith = [&](std::vector<KVUUID> services, bool duplicates) {
    world.witness->adverts = 0;
    world.central->scanForPeripherals(services, duplicates);
    world.runFor(10s);
    return world.witness->adverts;
  };
  EXPECT_EQ(heardWith({}, true), 10U);
  EXPECT_EQ(heardWith({KVUUID(0xFFE1)}, true), 10U);
  EXPECT_EQ(heardWith({KVUUID(0x180F)}, true), 0U);
  EXPECT_EQ(heardWith({}, false), 1U);
  world.radio.setAir({.lost = 1});
  EXPECT_EQ(heardWith({}, true), 0U);
  world.radio.advertise(tag);
  world.radio.advertise(tag, {{KVUUID(0x180F), KVData(9, 0x55)}}, std::nullopt);
  world.runFor(0s);
  EXPECT_EQ(world.witness->adverts, 2U);
  EXPECT_EQ(world.witness->heard.back(), 0x55);
  EXPECT_FALSE(world.witness->lastRssi);
  world.radio.setAir({.duplicated = 1});
  EXPECT_EQ(heardWith({}, true), 20U);
  // The same tag under another radio address.
  const auto before = world.witness->found;
  world.radio.placeTag(tag);
  EXPECT_EQ(heardWith({}, true), 20U);
  EXPECT_FALSE(before->isEqual(*world.witness->found));
}

TEST(SimulatedRadioTest, TwoCentralsAndOneTag) {
  World world;
  world.radio.addTag();
  world.link();
  Witness other;
  const auto platform = world.radio.platform();
  const auto second = platform->radio->makeCentral(other, platform->eventQueue);
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
}

Lines history(std::uint64_t seed) {
  World world({.seed = seed, .air = {.lost = 0.3, .duplicated = 0.2, .rssiJitter = 6}});
  world.witness->noteAdverts = true;
  for (int i = 0; i < 5; ++i) world.radio.addTag();
  const auto flaky = world.radio.addTag();
  flaky->behaviour().steps[RoadStep::Connecting] = {StepFault::Fail, 6};
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
