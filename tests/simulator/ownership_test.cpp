// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// Who keeps whom alive, and that nothing is left behind.
#include <fcntl.h>
#include <malloc.h>

#include <thread>

#include "tests/simulator/radio_world.h"

namespace kvsim {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class Ownership : public ::testing::TestWithParam<ClockKind> {};

INSTANTIATE_TEST_SUITE_P(Clocks, Ownership, ::testing::Values(ClockKind::Virtual, ClockKind::Real),
                         [](const auto& clock) {
                           return clock.param == ClockKind::Virtual ? "Virtual" : "Real";
                         });

TEST_P(Ownership, TaskThatIsNeverRunMayOwnTheCentralAndThePeripheral) {
  auto radio = std::make_unique<SimulatedRadio>(
      SimulatedRadioOptions{.clock = GetParam(), .advertisingInterval = 0ns});
  auto tag = radio->addTag();
  auto witness = std::make_shared<Witness>();
  auto central = radio->platform()->radio->makeCentral(*witness, radio->platform()->eventQueue);
  radio->queue().dispatch();
  central->scanForPeripherals({}, /*allowDuplicates=*/false);
  radio->advertise(tag);
  radio->queue().dispatch();
  ASSERT_TRUE(witness->found);
  central->connectPeripheral(witness->found);

  const std::weak_ptr<KVEventQueue> queue = radio->platform()->eventQueue;
  const std::weak_ptr<VirtualTag> weakTag = tag;
  const std::weak_ptr<KVCentral> weakCentral = central;
  const std::weak_ptr<KVPeripheral> weakPeripheral = witness->found;
  radio->queue().post([central = std::move(central), peripheral = std::move(witness->found)] {});
  tag.reset();
  radio.reset();
  EXPECT_TRUE(queue.expired());
  EXPECT_TRUE(weakTag.expired());
  EXPECT_TRUE(weakCentral.expired());
  EXPECT_TRUE(weakPeripheral.expired());
}

TEST_P(Ownership, CentralsAndPeripheralsThatOutliveTheQueueDoNothing) {
  auto radio = std::make_unique<SimulatedRadio>(
      SimulatedRadioOptions{.clock = GetParam(), .advertisingInterval = 0ns});
  const auto tag = radio->addTag();
  Witness witness;
  const auto central =
      radio->platform()->radio->makeCentral(witness, radio->platform()->eventQueue);
  radio->queue().dispatch();
  central->scanForPeripherals({}, /*allowDuplicates=*/false);
  radio->advertise(tag);
  radio->queue().dispatch();
  ASSERT_TRUE(witness.found);
  witness.took();
  radio.reset();
  central->connectPeripheral(witness.found);
  central->cancelPeripheralConnection(witness.found);
  witness.found->discoverServices();
  witness.found->readRSSI();
  central->stopScan();
  EXPECT_THAT(witness.took(), IsEmpty());
}

TEST(OwnershipTest, RadioMayGoBeforeItsPlatform) {
  auto radio = std::make_unique<SimulatedRadio>();
  radio->addTag();
  const auto platform = radio->platform();
  radio.reset();
  Witness witness;
  const auto central = platform->radio->makeCentral(witness, platform->eventQueue);
  platform->eventQueue->runFor(1s);
  central->scanForPeripherals({}, /*allowDuplicates=*/true);
  platform->eventQueue->runFor(10s);
  EXPECT_GE(witness.adverts, 9U);
}

TEST(OwnershipTest, CallbackDropsTheLastReferenceToItsWorld) {
  using Operation = void (*)(VirtualEventQueue&);
  constexpr Operation kRuns[] = {
      [](VirtualEventQueue& queue) { queue.run(); },
      [](VirtualEventQueue& queue) { queue.runFor(1h); },
      [](VirtualEventQueue& queue) { EXPECT_FALSE(queue.runUntilIdle()); },
      [](VirtualEventQueue& queue) { EXPECT_FALSE(queue.runUntil([] { return false; })); },
      [](VirtualEventQueue& queue) { EXPECT_EQ(queue.dispatch(), 1U); },
  };
  for (const Operation run : kRuns) {
    auto radio = std::make_unique<SimulatedRadio>();
    radio->addTag();
    std::weak_ptr<KVEventQueue> queue = radio->platform()->eventQueue;
    VirtualEventQueue& clock = radio->clock();
    bool later = false;
    clock.postAfter(1ns, [&] { later = true; });
    clock.post([&] {
      radio.reset();
      EXPECT_FALSE(queue.expired()) << "it is still running";
    });
    run(clock);
    EXPECT_TRUE(queue.expired());
    EXPECT_FALSE(later);
  }
}

TEST(OwnershipTest, CalendarAndTimersThatOutliveTheQueueKeepNoTask) {
  auto queue = std::make_shared<VirtualEventQueue>();
  const auto calendar = queue->clock();
  const auto timers = queue->timers();
  const auto start = calendar->now();
  queue->runFor(5s);
  auto token = std::make_shared<int>();
  queue->post([token, calendar] {});
  queue->postBackground(1h, [token] {});
  const auto timer = timers->start(1s, [token] {});
  queue.reset();
  EXPECT_EQ(token.use_count(), 2) << "the handle of the timer keeps its tick";
  EXPECT_EQ(calendar->now() - start, 5s);
  const auto late = timers->start(1s, [token] {});
  late->cancel();
  timer->cancel();
  EXPECT_EQ(token.use_count(), 1);
}

TEST(OwnershipTest, QueueClosesItsDescriptor) {
  auto queue = std::make_shared<VirtualEventQueue>();
  const int fd = queue->fd();
  queue.reset();
  EXPECT_EQ(fcntl(fd, F_GETFD), -1);
}

TEST(OwnershipTest, RemovedTagsLeaveNothingBehind) {
  World world;
  world.runFor(0s);
  world.central->scanForPeripherals({}, /*allowDuplicates=*/true);
  std::size_t heap = 0;
  std::weak_ptr<VirtualTag> last;
  for (int i = 0; i < 100'000; ++i) {
    if (i == 1000) heap = mallinfo2().uordblks;
    const auto tag = world.radio.addTag();
    last = tag;
    if (i % 10 == 0) world.radio.advertise(tag);  // so that the central knows it
    world.radio.removeTag(tag);
    if (i % 10 == 0) world.radio.clock().runFor(0s);
  }
  EXPECT_LT(mallinfo2().uordblks, heap + 64 * 1024);
  EXPECT_EQ(world.radio.tagCount(), 0U);
  EXPECT_EQ(world.witness->adverts, 10'000U);
  world.runFor(0s);
  EXPECT_TRUE(last.expired());
  const std::weak_ptr<KVPeripheral> peripheral = std::exchange(world.witness->found, nullptr);
  EXPECT_TRUE(peripheral.expired());
}

TEST(OwnershipTest, DroppedCentralsLeaveNothingBehind) {
  World world;
  const auto platform = world.radio.platform();
  std::size_t heap = 0;
  for (int i = 0; i < 10'000; ++i) {
    if (i == 100) heap = mallinfo2().uordblks;
    Witness witness;
    const auto central = platform->radio->makeCentral(witness, platform->eventQueue);
    world.radio.clock().runFor(0s);
    EXPECT_THAT(witness.took(), ElementsAre("state 5"));
  }
  EXPECT_LT(mallinfo2().uordblks, heap + 64 * 1024);
}

TEST(OwnershipTest, RemovedTagComesBackAsAnotherDevice) {
  World world;
  const auto tag = world.radio.addTag();
  world.link();
  const auto before = world.witness->found;
  world.radio.removeTag(tag);
  EXPECT_THAT(world.runFor(0s), ElementsAre("disconnect 0 1001"));
  EXPECT_FALSE(tag->state().connected);
  world.central->connectPeripheral(before);
  world.radio.placeTag(tag);
  EXPECT_THAT(world.runFor(1min), IsEmpty()) << "the former device does not come back";
  world.witness->found.reset();
  world.link();
  EXPECT_FALSE(before->isEqual(*world.witness->found));
  // The former request still stands, and is cancelled as any other.
  world.central->cancelPeripheralConnection(before);
  EXPECT_THAT(world.runFor(0s), ElementsAre("disconnect 0"));
}

TEST(OwnershipTest, ReportsAreOwedForADeviceThatNobodyHolds) {
  struct Case {
    const char* name;
    bool linked;  // else a request is pending
    void (*end)(World&);
    const char* report;
  };
  const Case cases[] = {
      {"removed", true, [](World&) {}, "disconnect 0 1001"},
      {"cancelled", true,
       [](World& world) { world.central->cancelPeripheralConnection(world.witness->found); },
       "disconnect 0"},
      {"request cancelled", false,
       [](World& world) { world.central->cancelPeripheralConnection(world.witness->found); },
       "disconnect 0"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    World world;
    const auto tag = world.radio.addTag();
    if (c.linked) {
      world.link();
    } else {
      world.find();
      world.central->connectPeripheral(world.witness->found);
    }
    c.end(world);
    const std::weak_ptr<KVPeripheral> peripheral = std::exchange(world.witness->found, nullptr);
    world.radio.removeTag(tag);
    EXPECT_THAT(world.runFor(1s), ElementsAre(c.report));
    EXPECT_TRUE(peripheral.expired());
  }
}

}  // namespace
}  // namespace kvsim
