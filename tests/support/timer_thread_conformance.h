// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// What every implementation of timer threads promises. Instantiate with a type that has
/// `KVTimerThreads& timers()`, `std::chrono::nanoseconds now()` on the clock of the timers (any
/// thread) and `void pass(std::chrono::nanoseconds)`, which lets so much of that time pass.
#ifndef TESTS_SUPPORT_TIMER_THREAD_CONFORMANCE_H
#define TESTS_SUPPORT_TIMER_THREAD_CONFORMANCE_H

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

#include "KVFobLink/KVPlatform.h"

namespace kvtest {

using namespace std::chrono_literals;

template <typename Rig>
class TimerThreadConformance : public testing::Test {
 protected:
  static constexpr std::chrono::milliseconds kInterval{4};

  void await(const std::function<bool()>& condition) {
    for (int i = 0; i < 5000 && !condition(); ++i) held.pass(1ms);
    ASSERT_TRUE(condition());
  }
  /// Long enough for several further ticks, were there any.
  void passSeveralIntervals() { held.pass(3 * kInterval); }

  Rig held;
  std::atomic<int> ticks = 0;
};

TYPED_TEST_SUITE_P(TimerThreadConformance);

TYPED_TEST_P(TimerThreadConformance, FirstTickAfterOneIntervalOffTheEventThread) {
  auto& rig = this->held;
  const auto start = rig.now();
  std::atomic<std::chrono::nanoseconds::rep> first = 0;
  std::atomic<bool> onEventThread = false;
  const auto eventThread = std::this_thread::get_id();
  const auto timer = rig.timers().start(this->kInterval, [&] {
    if (this->ticks == 0) first = (rig.now() - start).count();
    if (std::this_thread::get_id() == eventThread) onEventThread = true;
    ++this->ticks;
  });
  EXPECT_EQ(this->ticks, 0);
  this->await([&] { return this->ticks >= 3; });
  EXPECT_GE(first, std::chrono::nanoseconds(this->kInterval).count());
  EXPECT_GE(rig.now() - start, 3 * this->kInterval);
  EXPECT_FALSE(onEventThread);
}

TYPED_TEST_P(TimerThreadConformance, CancelInsideTheTickIsTheLastTick) {
  std::shared_ptr<KVTimerThread> timer;
  std::atomic<bool> assigned = false;
  timer = this->held.timers().start(this->kInterval, [&] {
    if (!assigned) return;
    timer->cancel();
    ++this->ticks;
  });
  assigned = true;
  this->await([&] { return this->ticks > 0; });
  this->passSeveralIntervals();
  EXPECT_EQ(this->ticks, 1);
}

TYPED_TEST_P(TimerThreadConformance, NoTickAfterCancelOrDropOnAnotherThread) {
  for (const bool drop : {false, true}) {
    std::atomic<bool> gone = false;
    std::atomic<int> late = 0;
    // What the tick owns goes with it, and may use the timers then.
    const auto other = this->held.timers().start(1h, [] {});
    std::shared_ptr<void> owned(nullptr, [&](void*) {
      other->cancel();
      if (gone) ++late;
    });
    auto timer = this->held.timers().start(this->kInterval, [&, token = std::move(owned)] {
      ++this->ticks;
      std::this_thread::sleep_for(2ms);  // for long enough to be cancelled meanwhile
      if (gone) ++late;
    });
    const int before = this->ticks;
    this->await([&] { return this->ticks > before; });
    if (drop) {
      timer.reset();
    } else {
      timer->cancel();
    }
    gone = true;
    const int atCancel = this->ticks;
    this->passSeveralIntervals();
    EXPECT_EQ(this->ticks, atCancel);
    EXPECT_EQ(late, 0);
  }
}

TYPED_TEST_P(TimerThreadConformance, DropOfTheLastHandleInsideTheTick) {
  auto slot = std::make_shared<std::shared_ptr<KVTimerThread>>();
  const auto mutex = std::make_shared<std::mutex>();
  {
    const std::lock_guard lock(*mutex);
    *slot = this->held.timers().start(this->kInterval, [this, slot, mutex] {
      std::shared_ptr<KVTimerThread> dropped;
      const std::lock_guard inner(*mutex);
      dropped.swap(*slot);
      ++this->ticks;
    });
  }
  this->await([&] { return this->ticks > 0; });
  this->passSeveralIntervals();
  EXPECT_EQ(this->ticks, 1);
}

TYPED_TEST_P(TimerThreadConformance, CancelReleasesWhatTheTickOwns) {
  const auto owned = std::make_shared<int>(0);
  const auto timer = this->held.timers().start(1h, [owned] {});
  EXPECT_EQ(owned.use_count(), 2);
  timer->cancel();
  timer->cancel();
  EXPECT_EQ(owned.use_count(), 1);
}

TYPED_TEST_P(TimerThreadConformance, TimersAreIndependentAndCanBeStartedAgain) {
  std::atomic<int> others = 0;
  const auto slow = this->held.timers().start(1h, [&] { others = -1000; });
  const auto other = this->held.timers().start(this->kInterval, [&] { ++others; });
  for (int round = 0; round < 3; ++round) {
    const int before = this->ticks;
    const auto timer = this->held.timers().start(this->kInterval, [&] { ++this->ticks; });
    this->await([&] { return this->ticks > before; });
  }
  this->await([&] { return others >= 3; });
}

REGISTER_TYPED_TEST_SUITE_P(TimerThreadConformance, FirstTickAfterOneIntervalOffTheEventThread,
                            CancelInsideTheTickIsTheLastTick,
                            NoTickAfterCancelOrDropOnAnotherThread,
                            DropOfTheLastHandleInsideTheTick, CancelReleasesWhatTheTickOwns,
                            TimersAreIndependentAndCanBeStartedAgain);

}  // namespace kvtest

#endif  // TESTS_SUPPORT_TIMER_THREAD_CONFORMANCE_H
