// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "tests/support/event_queue_conformance.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <ctime>

#include "KVFobLink/KVLinuxPlatform.h"
#include "platform/linux/owned_fd.h"
#include "platform/linux/timer_threads.h"
#include "tests/support/timer_thread_conformance.h"

namespace kvtest {
namespace {

struct Epoll {
  static std::shared_ptr<KVEventQueue> make() { return KVLinuxPlatform::makeEventQueue(); }
};
INSTANTIATE_TYPED_TEST_SUITE_P(Linux, EventQueueConformance, Epoll);

struct SharedThread {
  KVTimerThreads& timers() { return threads; }
  static std::chrono::nanoseconds now() {
    return std::chrono::steady_clock::now().time_since_epoch();
  }
  static void pass(std::chrono::nanoseconds time) { std::this_thread::sleep_for(time); }
  kv::TimerThreads threads;
};
INSTANTIATE_TYPED_TEST_SUITE_P(Linux, TimerThreadConformance, SharedThread);

TEST(TimerThreadsTest, MakerDroppedInsideATickOrBeforeItsTimers) {
  auto threads = std::make_unique<kv::TimerThreads>();
  std::atomic<bool> done = false;
  std::atomic<bool> ready = false;
  const auto timer = threads->start(1ms, [&] {
    if (!ready || done) return;
    threads.reset();
    done = true;
    done.notify_one();
  });
  ready = true;
  done.wait(false);
  timer->cancel();
}

TEST(TimerThreadsTest, TicksThatWereMissedAreSkipped) {
  constexpr auto kInterval = 80ms;
  kv::TimerThreads threads;
  const auto begun = std::chrono::steady_clock::now();
  std::atomic<int> ticks = 0;
  const auto timer = threads.start(kInterval, [&] {
    if (ticks == 0) std::this_thread::sleep_until(begun + 5 * kInterval / 2);
    ++ticks;
    ticks.notify_one();
  });
  ticks.wait(0);
  ticks.wait(1);
  EXPECT_GE(std::chrono::steady_clock::now() - begun, 3 * kInterval);
  EXPECT_LT(std::chrono::steady_clock::now() - begun, 4 * kInterval);
}

TEST(TimerThreadsTest, IntervalsBeyondUseAreBounded) {
  kv::TimerThreads threads;
  std::atomic<int> ticks = 0;
  const auto never = threads.start(std::chrono::nanoseconds::max(), [&] { ticks = 1000; });
  const auto begun = std::chrono::steady_clock::now();
  const auto always = threads.start(0ns, [&] {
    ++ticks;
    ticks.notify_one();
  });
  for (int seen = 0; seen < 5; seen = ticks) ticks.wait(seen);
  EXPECT_GE(std::chrono::steady_clock::now() - begun, 5ms);
  EXPECT_LT(ticks, 1000);
}

// The application's threads take its signals, as if there were no timer.
TEST(TimerThreadsTest, SignalsAreNotForTheTimersThread) {
  const auto blocked = [] {
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    return sigismember(&mask, SIGUSR1) == 1 && sigismember(&mask, SIGTERM) == 1;
  };
  kv::TimerThreads threads;
  std::atomic<int> seen = -1;
  const auto timer = threads.start(1ms, [&] {
    seen = blocked() ? 1 : 0;
    seen.notify_one();
  });
  EXPECT_FALSE(blocked());
  seen.wait(-1);
  EXPECT_EQ(seen, 1);
}

class WatchTest : public testing::Test {
 protected:
  void SetUp() override {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    mine = kv::OwnedFd(ends[0]);
    other = kv::OwnedFd(ends[1]);
  }
  void send() const { ASSERT_EQ(write(other.get(), "x", 1), 1); }
  void receive() const {
    char c = 0;
    ASSERT_EQ(read(mine.get(), &c, 1), 1);
  }
  bool readable() const {
    pollfd self{queue->fd(), POLLIN, 0};
    return poll(&self, 1, 0) == 1;
  }

  std::shared_ptr<KVLinuxEventQueue> queue = KVLinuxPlatform::makeEventQueue();
  kv::OwnedFd mine;
  kv::OwnedFd other;
  std::vector<short> seen;
};

TEST_F(WatchTest, ReportsForAsLongAsItHolds) {
  const auto watch =
      queue->watch(mine.get(), POLLIN, [&](short events) { seen.push_back(events); });
  EXPECT_FALSE(readable());
  send();
  EXPECT_TRUE(readable());
  EXPECT_EQ(queue->dispatch(), 1U);
  EXPECT_EQ(queue->dispatch(), 1U);
  receive();
  EXPECT_FALSE(readable());
  watch->setEvents(POLLOUT);
  EXPECT_EQ(queue->dispatch(), 1U);
  watch->setEvents(0);
  EXPECT_FALSE(readable());
  other = kv::OwnedFd();
  EXPECT_EQ(queue->dispatch(), 1U);
  EXPECT_THAT(seen, testing::ElementsAre(POLLIN, POLLIN, POLLOUT, POLLHUP));
}

TEST_F(WatchTest, DroppedInItsOwnCallbackAndInAnother) {
  std::unique_ptr<KVLinuxEventQueue::Watch> one;
  std::unique_ptr<KVLinuxEventQueue::Watch> two;
  const auto dropBoth = [&, token = std::make_shared<int>(7)](short events) {
    one.reset();
    two.reset();
    seen.push_back(static_cast<short>(events + *token - 7));
  };
  // Two watches of one descriptor, both ready in the same round: the first drops the second.
  one = queue->watch(mine.get(), POLLIN, dropBoth);
  two = queue->watch(mine.get(), POLLIN, dropBoth);
  send();
  EXPECT_EQ(queue->dispatch(), 1U);
  EXPECT_EQ(seen.size(), 1U);
  EXPECT_FALSE(readable());
}

TEST_F(WatchTest, EventsChangedInAnotherCallbackOfTheRound) {
  std::unique_ptr<KVLinuxEventQueue::Watch> one;
  std::unique_ptr<KVLinuxEventQueue::Watch> two;
  int calls = 0;
  const auto muteBoth = [&](short) {
    one->setEvents(0);
    two->setEvents(0);
    ++calls;
  };
  one = queue->watch(mine.get(), POLLIN, muteBoth);
  two = queue->watch(mine.get(), POLLIN, muteBoth);
  send();
  EXPECT_EQ(queue->dispatch(), 1U);
  EXPECT_EQ(calls, 1);
}

TEST_F(WatchTest, OutlivesTheQueue) {
  auto watch = queue->watch(mine.get(), POLLIN, [&](short events) { seen.push_back(events); });
  send();
  queue.reset();
  watch->setEvents(POLLOUT);
  watch.reset();
  EXPECT_TRUE(seen.empty());
}

TEST_F(WatchTest, FilesAndTheNullDeviceAreAlwaysReady) {
  const kv::OwnedFd null(open("/dev/null", O_RDWR | O_CLOEXEC));
  auto watch = queue->watch(null.get(), POLLIN, [&](short events) { seen.push_back(events); });
  EXPECT_TRUE(readable());
  EXPECT_EQ(queue->dispatch(), 1U);
  watch->setEvents(0);
  EXPECT_FALSE(readable());
  watch->setEvents(POLLOUT);
  EXPECT_EQ(queue->dispatch(), 1U);
  EXPECT_THAT(seen, testing::ElementsAre(POLLIN, POLLOUT));
  watch.reset();
  EXPECT_FALSE(readable());
}

TEST_F(WatchTest, StopInACallbackLeavesTheRest) {
  int calls = 0;
  const auto stop = [&](short) {
    ++calls;
    queue->stop();
  };
  const auto one = queue->watch(mine.get(), POLLIN, stop);
  const auto two = queue->watch(mine.get(), POLLIN, stop);
  send();
  queue->run();
  EXPECT_EQ(calls, 1);
}

TEST(EventQueueTest, DelayedTaskMakesTheDescriptorReadableInTime) {
  const auto queue = KVLinuxPlatform::makeEventQueue();
  const auto far = queue->postAfter(1h, [] {});
  const auto near = queue->postAfter(2ms, [] {});
  pollfd self{queue->fd(), POLLIN, 0};
  EXPECT_EQ(poll(&self, 1, 10'000), 1);
  EXPECT_EQ(poll(&self, 1, 0), 1);  // level-triggered
  queue->cancel(near);
  EXPECT_EQ(poll(&self, 1, 0), 0);
  queue->cancel(far);
  const auto only = queue->postAfter(1ms, [] {});
  EXPECT_EQ(poll(&self, 1, 10'000), 1);
  queue->cancel(only);
  EXPECT_EQ(poll(&self, 1, 0), 0);
}

TEST(EventQueueTest, RunWithoutWorkCostsNothing) {
  const auto queue = KVLinuxPlatform::makeEventQueue();
  const auto busy = std::clock();
  queue->runFor(100ms);
  EXPECT_LT(std::clock() - busy, CLOCKS_PER_SEC / 20);
}

TEST(EventQueueDeathTest, TaskThatThrowsEndsTheProcess) {
  const auto queue = KVLinuxPlatform::makeEventQueue();
  queue->post([] { throw 1; });
  EXPECT_DEATH(queue->dispatch(), "terminate");
}

}  // namespace
}  // namespace kvtest
