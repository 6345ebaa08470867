// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include <poll.h>

#include <future>
#include <thread>

#include "KVFobLink/KVLinuxPlatform.h"
#include "KVFobSimulator/KVFobSimulator.h"
#include "tests/support/event_queue_conformance.h"
#include "tests/support/timer_thread_conformance.h"

namespace kvsim {
namespace {

using namespace std::chrono_literals;

struct VirtualQueueMaker {
  static std::shared_ptr<KVEventQueue> make() { return std::make_shared<VirtualEventQueue>(); }
};

class VirtualTimerRig {
 public:
  KVTimerThreads& timers() { return *timers_; }
  std::chrono::nanoseconds now() const { return queue_.now(); }
  void pass(std::chrono::nanoseconds time) { queue_.runFor(time); }

 private:
  VirtualEventQueue queue_;
  const std::shared_ptr<KVTimerThreads> timers_ = queue_.timers();
};

}  // namespace
}  // namespace kvsim

namespace kvtest {
INSTANTIATE_TYPED_TEST_SUITE_P(Virtual, EventQueueConformance, kvsim::VirtualQueueMaker);
INSTANTIATE_TYPED_TEST_SUITE_P(Virtual, TimerThreadConformance, kvsim::VirtualTimerRig);
}  // namespace kvtest

namespace kvsim {
namespace {

TEST(VirtualEventQueueTest, TimeIsExact) {
  VirtualEventQueue queue;
  const auto calendar = queue.clock();
  const auto start = calendar->now();
  std::vector<std::chrono::nanoseconds> ran;
  queue.postAfter(30s, [&] {
    ran.push_back(queue.now());
    queue.postAfter(1ns, [&] { ran.push_back(queue.now()); });
  });
  queue.runFor(30s - 1ns);
  EXPECT_TRUE(ran.empty());
  queue.runFor(1h);
  EXPECT_THAT(ran, testing::ElementsAre(30s, 30s + 1ns));
  EXPECT_EQ(queue.now(), 1h + 30s - 1ns);
  EXPECT_EQ(start, std::chrono::sys_days(std::chrono::year(2024) / 1 / 1));
  EXPECT_EQ(calendar->now() - start, queue.now());
}

TEST(VirtualEventQueueTest, TicksComeAtTheirTimeBetweenTheTasks) {
  VirtualEventQueue queue;
  std::vector<std::string> log;  // the queue waits for each tick, so no lock is needed
  const auto timer = queue.timers()->start(3s, [&] { log.push_back("tick"); });
  for (const auto at : {2s, 4s, 7s}) {
    queue.postAfter(at, [&log, at] { log.push_back(std::to_string(at.count())); });
  }
  queue.runFor(9s);
  EXPECT_THAT(log, testing::ElementsAre("2", "tick", "4", "tick", "7", "tick"));
}

TEST(VirtualEventQueueTest, IdleMeansThatOnlyBackgroundWorkIsLeft) {
  VirtualEventQueue queue;
  int ticks = 0;
  const auto timer = queue.timers()->start(1s, [&] { ++ticks; });
  const auto background = queue.postBackground(1h, [] {});
  queue.postAfter(std::chrono::years(100), [] {});  // stands for "never"
  EXPECT_TRUE(queue.runUntilIdle());
  EXPECT_EQ(queue.now(), 0s);
  queue.postAfter(10s, [] {});
  queue.cancel(background);
  EXPECT_FALSE(queue.runUntilIdle(4s));
  EXPECT_EQ(queue.now(), 4s);
  EXPECT_TRUE(queue.runUntilIdle());
  EXPECT_EQ(queue.now(), 10s);
  EXPECT_GE(ticks, 9);
  EXPECT_TRUE(queue.runUntil([&] { return ticks == 20; }));
  EXPECT_EQ(queue.now(), 20s);
  EXPECT_FALSE(queue.runUntil([] { return false; }, 5s));
  EXPECT_EQ(queue.now(), 25s);
}

TEST(VirtualEventQueueTest, EndlessChainsLetTimePass) {
  VirtualEventQueue queue;
  std::vector<std::chrono::nanoseconds> rounds;
  std::function<void()> next = [&] {
    rounds.push_back(queue.now());
    queue.post(next);
  };
  queue.post(next);
  bool ran = false;
  queue.postAfter(15us, [&] { ran = true; });
  queue.runFor(14us);
  // A thousand rounds at the beginning, as many 10 us later, and none beyond the end.
  EXPECT_EQ(std::ranges::count(rounds, 0us), 1000);
  EXPECT_EQ(std::ranges::count(rounds, 10us), 1001);
  EXPECT_EQ(std::ranges::count(rounds, 14us), 1001);
  EXPECT_EQ(rounds.size(), 3002U);
  EXPECT_EQ(queue.now(), 14us);
  EXPECT_FALSE(ran);
  rounds.clear();
  queue.runFor(2us);
  EXPECT_EQ(std::ranges::count(rounds, 15us), 1001) << "no delayed task is jumped over";
  EXPECT_TRUE(ran);
}

TEST(VirtualEventQueueTest, AnyNumberOfRunsAtOneInstant) {
  VirtualEventQueue queue;
  int ran = 0;
  for (int i = 0; i < 5000; ++i) {
    queue.post([&] { ++ran; });
    queue.runFor(0s);
  }
  EXPECT_EQ(ran, 5000);
  EXPECT_EQ(queue.now(), 0s);
}

TEST(VirtualEventQueueTest, LimitsOfTime) {
  VirtualEventQueue queue;
  bool ran = false;
  queue.postAfter(KVEventQueue::Duration::max(), [&] { ran = true; });
  queue.postAfter(1h, [&] { queue.stop(); });
  queue.runFor(KVEventQueue::Duration::max());
  EXPECT_EQ(queue.now(), 1h);
  queue.runFor(-5s);
  EXPECT_EQ(queue.now(), 1h);
  queue.post({});  // as good as an empty task
  EXPECT_EQ(queue.dispatch(), 1U);
  EXPECT_FALSE(ran);
}

TEST(VirtualEventQueueTest, OperationsInsideATaskDoNothing) {
  VirtualEventQueue queue;
  int ran = 0;
  queue.post([&] {
    ++ran;
    queue.post([&] { ++ran; });
    EXPECT_FALSE(queue.runUntilIdle());
    EXPECT_FALSE(queue.runUntil([] { return false; }));
    EXPECT_TRUE(queue.runUntil([] { return true; })) << "it holds already";
    queue.runFor(1h);
    EXPECT_EQ(ran, 1);
    EXPECT_EQ(queue.now(), 0s);
  });
  EXPECT_TRUE(queue.runUntilIdle());
  EXPECT_EQ(ran, 2);
}

TEST(VirtualEventQueueTest, BackgroundTasksRunButAreNotWaitedFor) {
  VirtualEventQueue queue;
  int ran = 0;
  queue.postBackground(1s, [&] { ++ran; });
  queue.postBackground(2s, [&] {
    ++ran;
    queue.postAfter(1s, [&] { ++ran; });
  });
  EXPECT_TRUE(queue.runUntilIdle());
  EXPECT_EQ(ran, 0);
  queue.runFor(2s);
  EXPECT_EQ(ran, 2);
  EXPECT_TRUE(queue.runUntilIdle()) << "what a background task posts is waited for";
  EXPECT_EQ(ran, 3);
  EXPECT_EQ(queue.now(), 3s);
  // A background task that is cancelled or has run counts no more, nor does one count twice.
  queue.cancel(queue.postBackground(1s, [] {}));
  queue.postAfter(1s, [&] { ++ran; });
  EXPECT_TRUE(queue.runUntilIdle());
  EXPECT_EQ(ran, 4);
}

TEST(VirtualEventQueueTest, CancelOnAThirdThreadWaitsForTheTick) {
  VirtualEventQueue queue;
  std::shared_ptr<KVTimerThread> timer;
  std::promise<void> ticking;
  std::promise<void> cancelled;
  timer = queue.timers()->start(1s, [&, first = true]() mutable {
    if (!std::exchange(first, false)) return;  // the third thread may be late
    ticking.set_value();
    EXPECT_EQ(cancelled.get_future().wait_for(20ms), std::future_status::timeout);
  });
  std::thread third([&] {
    ticking.get_future().wait();
    timer->cancel();
    cancelled.set_value();
  });
  queue.runFor(5s);
  third.join();
}

TEST(VirtualEventQueueTest, TaskOfAnotherThreadWakesARunThatWaits) {
  VirtualEventQueue queue;
  for (int i = 0; i < 20; ++i) {
    std::promise<void> running;
    std::thread other([&] {
      running.get_future().wait();
      queue.post([&] { queue.stop(); });
    });
    queue.post([&] { running.set_value(); });
    queue.run();
    other.join();
  }
}

TEST(VirtualEventQueueTest, TimersHaveAShortestInterval) {
  VirtualEventQueue queue;
  int ticks = 0;
  const auto timer = queue.timers()->start(0ns, [&] { ++ticks; });
  queue.runFor(10us);
  EXPECT_EQ(ticks, 10);
}

TEST(VirtualEventQueueTest, DescriptorTellsWhetherADueTaskIsLeftAfterARun) {
  VirtualEventQueue queue;
  const auto readable = [&] {
    pollfd descriptor{queue.fd(), POLLIN, 0};
    return poll(&descriptor, 1, 0) == 1;
  };
  queue.post([&] {
    queue.stop();
    queue.post([] {});
  });
  queue.run();
  EXPECT_TRUE(readable());
  queue.runFor(0s);
  EXPECT_FALSE(readable());
  queue.postAfter(1s, [] {});
  EXPECT_FALSE(readable()) << "time does not pass by itself";
  const auto task = queue.postAfter(0s, [] {});
  EXPECT_TRUE(readable());
  queue.cancel(task);
  EXPECT_FALSE(readable());
}

}  // namespace
}  // namespace kvsim
