// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// When things happen on the simulated radio, to the nanosecond where the options say so.
#include <algorithm>
#include <cmath>

#include "tests/simulator/radio_world.h"

namespace kvsim {
namespace {

using namespace std::chrono_literals;
using ::testing::AllOf;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::Ge;
using ::testing::IsEmpty;
using ::testing::Le;
using Moments = std::vector<std::chrono::nanoseconds>;

// The moments of all advertisements for a minute.
Moments advertisements(SimulatedRadioOptions options, int tags = 1) {
  World world(std::move(options));
  for (int i = 0; i < tags; ++i) world.radio.addTag();
  world.runFor(0s);
  Moments moments;
  world.witness->noteAdverts = true;
  world.witness->after = [&](const std::string&) { moments.push_back(world.radio.clock().now()); };
  world.central->scanForPeripherals({}, /*allowDuplicates=*/true);
  world.runFor(1min);
  return moments;
}

TEST(TimingTest, AdvertisementsAreOneIntervalAndARandomDelayApart) {
  const Moments moments = advertisements({});
  ASSERT_GE(moments.size(), 59U);
  EXPECT_LT(moments[0], 1s);
  Moments gaps;
  for (std::size_t i = 1; i < moments.size(); ++i) {
    EXPECT_EQ(moments[i] % 625us, 0ns) << "the grid of the radio standard";
    gaps.push_back(moments[i] - moments[i - 1]);
  }
  EXPECT_THAT(gaps, Each(AllOf(Ge(1s), Le(1s + 10ms + 625us))));
  const auto [least, most] = std::ranges::minmax(gaps);
  EXPECT_LT(least, 1s + 2ms);
  EXPECT_GT(most, 1s + 8ms);
}

TEST(TimingTest, TagsAdvertiseAtTimesOfTheirOwn) {
  const Moments moments = advertisements({.advertisingInterval = 60s}, 50);
  ASSERT_EQ(moments.size(), 50U);
  EXPECT_LT(moments[12], 25s);
  EXPECT_GT(moments[37], 35s);
  EXPECT_THAT(advertisements({.advertisingInterval = 0s}), IsEmpty());
}

TEST(TimingTest, TagThatComesDuringAScanGetsItsTurn) {
  World world({.advertisingInterval = 10s, .advertisingDelay = 0s});
  world.runFor(0s);
  world.central->scanForPeripherals({}, /*allowDuplicates=*/true);
  world.runFor(10s);
  world.radio.addTag();
  world.runFor(10s);
  EXPECT_EQ(std::exchange(world.witness->adverts, 0), 1U);
  for (int i = 0; i < 20; ++i) world.radio.addTag();
  world.runFor(10s);
  EXPECT_EQ(std::exchange(world.witness->adverts, 0), 21U);
  world.central->stopScan();
  world.radio.addTag();
  world.runFor(20s);
  EXPECT_EQ(world.witness->adverts, 0U);
}

TEST(TimingTest, LatenciesAreThoseOfTheOptions) {
  World world({.connectLatency = 3s,
               .requestLatency = 5s,
               .disconnectLatency = 7s,
               .connectTimeout = 11s,
               .requestTimeout = 13s,
               .supervisionTimeout = 800s});
  const auto tag = world.radio.addTag();
  KVPeripheral& p = world.find();
  const auto takes = [&](std::chrono::nanoseconds time, const char* event) {
    EXPECT_THAT(world.runFor(time - 1ns), IsEmpty()) << event;
    EXPECT_THAT(world.runFor(1ns), ElementsAre(event));
  };
  const auto connect = [&] { world.central->connectPeripheral(world.witness->found); };
  const auto cancel = [&] { world.central->cancelPeripheralConnection(world.witness->found); };
  auto& steps = tag->behaviour().steps;

  connect();
  takes(3s, "connect 2");
  connect();
  EXPECT_THAT(world.runFor(0s), ElementsAre("connect 2"));
  p.discoverServices();
  takes(5s, "services 3");
  p.readRSSI();
  takes(5s, "rssi -62");
  steps[Procedure::RssiRead] = {StepFault::Delay, 1, 2s};
  p.readRSSI();
  takes(7s, "rssi -62");
  steps[Procedure::RssiRead] = {StepFault::Fail, 1, 2s};
  p.readRSSI();
  takes(7s, "rssi absent 1004");
  steps[Procedure::RssiRead] = {StepFault::Mute, 1};
  p.readRSSI();
  EXPECT_THAT(world.runFor(1min), IsEmpty());
  steps[Procedure::ServiceDiscovery] = {StepFault::Delay, 1, 2s};
  p.discoverServices();
  takes(7s, "services 3");
  steps[Procedure::ServiceDiscovery] = {StepFault::Fail, 1, 2s};
  p.discoverServices();
  takes(7s, "services 0 1114");
  cancel();
  EXPECT_EQ(p.state(), KVPeripheralStateDisconnecting);
  takes(7s, "disconnect 0");

  steps[Procedure::Connecting] = {StepFault::Delay, 1, 2s};
  connect();
  EXPECT_EQ(p.state(), KVPeripheralStateConnecting);
  takes(5s, "connect 2");
  steps[Procedure::ServiceDiscovery] = {StepFault::Drop, 1, 2s};
  p.discoverServices();
  takes(7s, "disconnect 0 1001");
  connect();
  takes(3s, "connect 2");
  steps[Procedure::RssiRead] = {StepFault::Drop, 1, 2s};
  p.readRSSI();
  takes(7s, "disconnect 0 1001");
  connect();
  takes(3s, "connect 2");
  steps[Procedure::ServiceDiscovery] = {StepFault::Mute, 1};
  p.discoverServices();
  takes(18s, "disconnect 0 1003");
  // An attempt that meets no answer, the pause after it, and the next one.
  steps[Procedure::Connecting] = {StepFault::Mute, 1};
  connect();
  EXPECT_THAT(world.runFor(3s + 11s + 187ms + 3s), IsEmpty());
  EXPECT_THAT(world.runFor(126ms), ElementsAre("connect 2"));
}

TEST(TimingTest, PausesGrowFromAttemptToAttempt) {
  World world;
  const auto tag = world.radio.addTag();
  world.find();
  auto& connecting = tag->behaviour().steps[Procedure::Connecting] = {StepFault::Fail, 100};
  const auto next = [&] {
    const unsigned left = connecting.times;
    const auto start = world.radio.clock().now();
    EXPECT_TRUE(world.radio.clock().runUntil([&] { return connecting.times < left; }));
    return world.radio.clock().now() - start;
  };
  const auto connect = [&] { world.central->connectPeripheral(world.witness->found); };
  connect();
  EXPECT_EQ(next(), 30ms);
  const auto isAbout = [](std::chrono::nanoseconds pause) {
    return AllOf(Ge(30ms + pause * 3 / 4), Le(30ms + pause * 5 / 4));
  };
  const Moments kPauses = {250ms, 500ms, 1s, 2s, 4s, 5s, 5s};
  for (const auto pause : kPauses) EXPECT_THAT(next(), isAbout(pause));
  Moments last;
  for (int i = 0; i < 60; ++i) last.push_back(next());
  EXPECT_THAT(last, Each(isAbout(5s)));
  EXPECT_LT(std::ranges::min(last), 30ms + 4s) << "varied by up to a quarter";
  EXPECT_GT(std::ranges::max(last), 30ms + 6s);
  // A cancelled request and an adapter that comes back start afresh.
  world.central->cancelPeripheralConnection(world.witness->found);
  EXPECT_THAT(world.runFor(1min), ElementsAre("disconnect 0"));
  connect();
  EXPECT_EQ(next(), 30ms);
  EXPECT_THAT(next(), isAbout(250ms));
  next();
  world.radio.setAdapterState(KVCentralStatePoweredOff);
  world.runFor(1min);
  const unsigned left = connecting.times;
  world.radio.setAdapterState(KVCentralStatePoweredOn);
  EXPECT_EQ(next(), 30ms);
  EXPECT_EQ(connecting.times, left - 1);
}

TEST(TimingTest, AttemptsTakeAtLeastAMillisecond) {
  World world({.connectLatency = 0s});
  world.radio.addTag();
  world.find();
  world.central->connectPeripheral(world.witness->found);
  EXPECT_THAT(world.runFor(1ms - 1ns), IsEmpty());
  EXPECT_THAT(world.runFor(1ns), ElementsAre("connect 2"));
}

TEST(TimingTest, SilentLinkIsSupervised) {
  World world;
  const auto tag = world.radio.addTag();
  world.link();
  // Short absences, however many, end nothing; a long one does after four seconds, counted from the
  // first of the looks, which are half a second apart.
  for (int i = 0; i < 10; ++i) {
    world.radio.setInRange(tag, false);
    EXPECT_THAT(world.runFor(3s), IsEmpty());
    world.radio.setInRange(tag, true);
    EXPECT_THAT(world.runFor(1s), IsEmpty());
  }
  world.radio.setInRange(tag, false);
  EXPECT_THAT(world.runFor(4500ms - 1ns), IsEmpty());
  EXPECT_THAT(world.runFor(1ns), ElementsAre("disconnect 0 1001"));
}

TEST(TimingTest, NotificationsWaitOutAnAbsenceAndKeepTheirOrder) {
  World world;
  const auto tag = world.radio.addTag();
  KVPeripheral& p = world.link();
  const auto command = world.commandCharacteristic();
  p.setNotifyValue(true, command);
  world.runFor(1s);
  world.radio.setInRange(tag, false);
  for (const std::size_t size : {1U, 2U, 3U}) tag->inject(KVData(size));
  p.discoverServices();
  EXPECT_THAT(world.runFor(1050ms), IsEmpty());
  world.radio.setInRange(tag, true);
  // It is sent again each tenth of a second; the request began 8 ms later.
  EXPECT_THAT(world.runFor(50ms - 1ns), IsEmpty());
  EXPECT_THAT(world.runFor(1ns), ElementsAre("value 1", "value 2", "value 3"));
  EXPECT_THAT(world.runFor(8ms - 1ns), IsEmpty());
  EXPECT_THAT(world.runFor(1ns), ElementsAre("services 3"));
  world.commandCharacteristic();
  for (const std::size_t size : {4U, 5U, 6U}) tag->inject(KVData(size));
  EXPECT_THAT(world.runFor(0s), ElementsAre("value 4", "value 5", "value 6"));
}

TEST(TimingTest, PathsAreStraightBetweenTheirPoints) {
  struct Case {
    std::vector<PathPoint> points;
    std::chrono::nanoseconds at;
    double loss;
  };
  const std::vector<PathPoint> path = {{10s, 40}, {20s, 80}, {20s, 60}, {30s, 50}};
  const Case kCases[] = {{{}, 5s, 0},     {path, 0s, 40},  {path, 10s, 40}, {path, 12s, 48},
                         {path, 20s, 60}, {path, 25s, 55}, {path, 30s, 50}, {path, 1h, 50}};
  for (const Case& c : kCases) EXPECT_DOUBLE_EQ(pathThrough(c.points)(c.at), c.loss);
}

// The signal strengths of a thousand advertisements.
std::vector<std::int64_t> strengths(const Air& air, double loss) {
  World world({.advertisingDelay = 0s, .air = air, .sensitivity = -1000});
  const auto tag = world.radio.addTag({.transmitPower = 0});
  world.radio.setPathLoss(tag, [loss](auto) { return loss; });
  world.runFor(0s);
  std::vector<std::int64_t> all;
  world.witness->noteAdverts = true;
  world.witness->after = [&](const std::string&) { all.push_back(*world.witness->lastRssi); };
  world.central->scanForPeripherals({}, /*allowDuplicates=*/true);
  world.runFor(1000s);
  return all;
}

TEST(TimingTest, AirLosesRepeatsAndVaries) {
  EXPECT_THAT(strengths({}, 50.4), AllOf(testing::SizeIs(1000), Each(-50)));
  EXPECT_THAT(strengths({}, 500), Each(-127)) << "the weakest that a radio reports";
  EXPECT_THAT(strengths({}, -500), Each(20)) << "the strongest";
  const auto varied = strengths({.rssiJitter = 3}, 50);
  for (std::int64_t rssi = -53; rssi <= -47; ++rssi) {
    EXPECT_GT(std::ranges::count(varied, rssi), 1000 / 7 / 2) << rssi;
  }
  EXPECT_THAT(varied, Each(AllOf(Ge(-53), Le(-47))));
  EXPECT_THAT(strengths({.rssiJitter = 3}, 127), Each(AllOf(Ge(-127), Le(-124))));
  const auto lost = strengths({.lost = 0.25}, 50).size();
  EXPECT_GT(lost, 700U);
  EXPECT_LT(lost, 800U);
  const auto repeated = strengths({.duplicated = 0.25}, 50).size();
  EXPECT_GT(repeated, 1200U);
  EXPECT_LT(repeated, 1300U);
}

}  // namespace
}  // namespace kvsim
