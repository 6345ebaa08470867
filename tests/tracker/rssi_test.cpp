// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// The polling of the live link's signal strength.
#include <atomic>
#include <thread>

#include "tests/support/core_tracker_test.h"

namespace kvtest {
namespace {

class PollingTest : public TrackerTest {
 protected:
  void start() {
    tracker->initRSSITimerThread();
    EXPECT_EQ(took(), Lines{"timer start 3000 ms"});
    EXPECT_TRUE(tracker->timer() && tracker->timerThread());
  }
};

TEST_F(PollingTest, TickReadsWhileTheLinkIsUp) {
  start();
  p->linkState = KVPeripheralStateConnected;
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(timers->tick(), 1);
    EXPECT_EQ(took(), Lines{"P read rssi"});
  }
  tracker->readRSSI();  // the tick, by name
  EXPECT_EQ(took(), Lines{"P read rssi"});
}

TEST_F(PollingTest, TickEndsItWhenTheLinkIsNotUp) {
  for (const std::int64_t state : {0, 1, 3}) {
    start();
    p->linkState = state;
    EXPECT_EQ(timers->tick(), 1);
    EXPECT_EQ(took(), Lines{"timer stop"}) << state;
    EXPECT_FALSE(tracker->timer() || tracker->timerThread());
    EXPECT_EQ(timers->tick(), 0);
  }
  start();
  tracker->setPeripheral(nullptr);
  EXPECT_EQ(timers->tick(), 1);
  EXPECT_EQ(took(), Lines{"timer stop"});
}

TEST_F(PollingTest, TickFollowsAReplacedPeripheral) {
  start();
  p->linkState = KVPeripheralStateConnected;
  const auto other = peripheral("Q");
  other->linkState = KVPeripheralStateConnected;
  tracker->setPeripheral(other);
  EXPECT_EQ(timers->tick(), 1);
  EXPECT_EQ(took(), Lines{"Q read rssi"});
}

TEST_F(PollingTest, RestartLeavesOneTimerAndStopNone) {
  tracker->stopRSSITimer();
  EXPECT_EQ(took(), Lines{});
  start();
  tracker->initRSSITimerThread();
  EXPECT_EQ(took(), (Lines{"timer stop", "timer start 3000 ms"}));
  p->linkState = KVPeripheralStateConnected;
  EXPECT_EQ(timers->tick(), 1);
  EXPECT_EQ(took(), Lines{"P read rssi"});
  tracker->stopRSSITimer();
  EXPECT_EQ(took(), Lines{"timer stop"});
  EXPECT_FALSE(tracker->timer() || tracker->timerThread());
  tracker->stopRSSITimer();
  EXPECT_EQ(timers->tick(), 0);
}

TEST_F(PollingTest, EndsWithTheTracker) {
  start();
  tracker.reset();
  EXPECT_EQ(took(), Lines{"timer stop"});
}

TEST_F(PollingTest, EveryReadIsTakenOverBeforeItIsReported) {
  tracker->didValueUpdate([this] {
    journal->add("rssi " + std::to_string(tracker->rssi()) + " distance " +
                 std::to_string(tracker->distance()));
  });
  p->reportRSSI(-67);
  p->reportRSSI(-67);
  p->reportRSSI(-90, KVError{"read failed", 5, {}});
  p->reportRSSI(std::nullopt);
  EXPECT_EQ(took(), (Lines{"rssi -67 distance 3", "rssi -67 distance 3", "rssi -90 distance 2",
                           "rssi 0 distance 4"}));
}

// Timers that tick without a pause on threads of their own.
class BusyTimers final : public KVTimerThreads {
 public:
  std::shared_ptr<KVTimerThread> start(std::chrono::nanoseconds,
                                       std::function<void()> tick) override {
    return std::make_shared<Timer>(std::move(tick), ticks);
  }
  std::atomic<int> ticks = 0;

 private:
  class Timer final : public KVTimerThread {
   public:
    Timer(std::function<void()> tick, std::atomic<int>& ticks)
        : state_(std::make_shared<State>()),
          thread_([state = state_, run = std::move(tick), &ticks] {
            while (!state->stop) {
              run();
              ++ticks;
            }
          }) {}
    ~Timer() override {
      cancel();
      if (thread_.joinable()) thread_.detach();  // dropped by its own tick
    }
    void cancel() override {
      state_->stop = true;
      if (thread_.joinable() && thread_.get_id() != std::this_thread::get_id()) thread_.join();
    }

   private:
    struct State {
      std::atomic<bool> stop = false;
    };
    std::shared_ptr<State> state_;
    std::thread thread_;
  };
};

// Only counts, so that two threads may ask it.
class CountingPeripheral final : public KVPeripheral {
 public:
  const std::string& identifier() const override { return identifier_; }
  std::int64_t state() const override { return linkState; }
  void setDelegate(std::weak_ptr<KVPeripheralDelegate>) override {}
  const std::vector<std::shared_ptr<KVService>>& services() const override { return services_; }
  void discoverServices() override {}
  void discoverCharacteristics(const std::shared_ptr<KVService>&) override {}
  void setNotifyValue(bool, const std::shared_ptr<KVCharacteristic>&) override {}
  void readValue(const std::shared_ptr<KVCharacteristic>&) override {}
  void writeValue(const std::optional<KVData>&, const std::shared_ptr<KVCharacteristic>&,
                  KVWriteType) override {}
  void readRSSI() override { ++reads; }
  std::atomic<std::int64_t> linkState = KVPeripheralStateConnected;
  std::atomic<int> reads = 0;

 private:
  std::string identifier_ = "C";
  std::vector<std::shared_ptr<KVService>> services_;
};

TEST_F(PollingTest, StopAndRestartRaceWithTheTick) {
  const auto busy = std::make_shared<BusyTimers>();
  const auto set = std::make_shared<KVPlatform>(KVPlatform::current());
  set->timers = busy;
  KVPlatform::setCurrent(set);
  const auto counting = std::make_shared<CountingPeripheral>();
  auto polled = std::make_shared<KVTracker>();
  polled->setPeripheral(counting);
  for (int round = 0; round < 50; ++round) {
    polled->initRSSITimerThread();
    for (const int before = counting->reads; counting->reads == before;) std::this_thread::yield();
    if (round % 2 != 0) continue;
    polled->stopRSSITimer();
    const int after = counting->reads;
    std::this_thread::yield();
    EXPECT_EQ(counting->reads, after);
  }
  counting->linkState = KVPeripheralStateDisconnected;  // the tick now stops itself
  while (polled->timerThread() != nullptr) std::this_thread::yield();
  counting->linkState = KVPeripheralStateConnected;
  polled->initRSSITimerThread();
  polled.reset();
  const int after = counting->reads;
  std::this_thread::yield();
  EXPECT_EQ(counting->reads, after);
}

}  // namespace
}  // namespace kvtest
