// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// What every event queue promises. Instantiate with a type that has
/// `static std::shared_ptr<KVEventQueue> make()`.
#ifndef TESTS_SUPPORT_EVENT_QUEUE_CONFORMANCE_H
#define TESTS_SUPPORT_EVENT_QUEUE_CONFORMANCE_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "KVFobLink/KVEventQueue.h"

namespace kvtest {

using namespace std::chrono_literals;

template <typename Maker>
class EventQueueConformance : public testing::Test {
 protected:
  KVEventQueue::Task note(std::string text) {
    return [this, text] { log.push_back(text); };
  }
  bool readable(std::chrono::milliseconds wait = 0ms) const {
    pollfd self{held->fd(), POLLIN, 0};
    return poll(&self, 1, static_cast<int>(wait.count())) == 1;
  }

  std::vector<std::string> log;
  std::shared_ptr<KVEventQueue> held = Maker::make();
};

TYPED_TEST_SUITE_P(EventQueueConformance);

TYPED_TEST_P(EventQueueConformance, TasksRunInOrderOfDueTimeThenOfPosting) {
  auto& queue = *this->held;
  queue.postAfter(60ms, this->note("3a"));  // far apart, should this thread be held up in between
  queue.postAfter(20ms, this->note("1"));
  queue.post(this->note("0a"));
  queue.postAfter(-5ms, this->note("0b"));
  queue.postAfter(40ms, this->note("2"));
  queue.post(this->note("0c"));
  queue.runFor(80ms);
  EXPECT_THAT(this->log, testing::ElementsAre("0a", "0b", "0c", "1", "2", "3a"));
}

TYPED_TEST_P(EventQueueConformance, TaskNeverRunsBeforeItsTime) {
  auto& queue = *this->held;
  const auto due = queue.now() + 5ms;
  KVEventQueue::Duration ranAt{};
  queue.postAfter(5ms, [&] {
    ranAt = queue.now();
    queue.stop();
  });
  queue.postAfter(KVEventQueue::Duration::max(), this->note("never"));
  EXPECT_EQ(queue.dispatch(), 0U);
  queue.run();
  EXPECT_GE(ranAt, due);
  EXPECT_TRUE(this->log.empty());
}

TYPED_TEST_P(EventQueueConformance, DispatchLeavesWhatIsPostedMeanwhile) {
  auto& queue = *this->held;
  std::function<void()> again = [&] {
    this->log.push_back("again");
    queue.post(again);
  };
  queue.post(again);
  queue.post(this->note("other"));
  EXPECT_EQ(queue.dispatch(), 2U);
  EXPECT_TRUE(this->readable());
  EXPECT_EQ(queue.dispatch(), 1U);
  queue.runFor(2ms);  // returns although there is always work
  EXPECT_GT(this->log.size(), 3U);
}

TYPED_TEST_P(EventQueueConformance, DescriptorIsReadableExactlyWhileThereIsWork) {
  auto& queue = *this->held;
  EXPECT_FALSE(this->readable());
  const auto first = queue.postAfter(0ms, this->note("first"));
  const auto second = queue.postAfter(0ms, this->note("second"));
  EXPECT_TRUE(this->readable());
  queue.cancel(first);
  EXPECT_TRUE(this->readable());
  queue.cancel(second);
  EXPECT_FALSE(this->readable());
  queue.postAfter(1h, this->note("later"));
  EXPECT_FALSE(this->readable());
  queue.post(this->note("now"));
  EXPECT_TRUE(this->readable());
  EXPECT_EQ(queue.dispatch(), 1U);
  EXPECT_FALSE(this->readable());
  queue.stop();
  EXPECT_FALSE(this->readable());
}

TYPED_TEST_P(EventQueueConformance, CancelledTaskIsDestroyedAtOnceAndNeverRuns) {
  auto& queue = *this->held;
  for (const auto delay : {0ms, 1ms}) {
    auto token = std::make_shared<int>(0);
    // A task may own something that itself uses the queue when it goes.
    std::shared_ptr<int> owner(new int(0), [&queue](int* value) {
      queue.cancel(queue.postAfter(0ms, [] {}));
      delete value;
    });
    const auto id =
        queue.postAfter(delay, [this, token, owner] { this->log.push_back("cancelled"); });
    EXPECT_NE(id, 0U);
    owner.reset();
    queue.cancel(id);
    EXPECT_EQ(token.use_count(), 1);
    queue.cancel(id);
    queue.cancel(id + 1000);
  }
  queue.runFor(3ms);
  EXPECT_TRUE(this->log.empty());
}

TYPED_TEST_P(EventQueueConformance, TaskCancelsOthersOfTheSameRound) {
  auto& queue = *this->held;
  KVEventQueue::TaskId self = 0;
  KVEventQueue::TaskId next = 0;
  KVEventQueue::TaskId later = 0;
  self = queue.postAfter(0ms, [&] {
    queue.cancel(self);  // it has begun: ignored
    queue.cancel(next);
    queue.cancel(later);
    this->log.push_back("first");
  });
  next = queue.postAfter(0ms, this->note("next"));
  queue.post(this->note("last"));
  later = queue.postAfter(1ms, this->note("later"));
  queue.runFor(3ms);
  EXPECT_THAT(this->log, testing::ElementsAre("first", "last"));
}

TYPED_TEST_P(EventQueueConformance, ManyCancelledDelaysLeaveTheOthersInOrder) {
  auto& queue = *this->held;
  std::vector<KVEventQueue::TaskId> dropped;
  for (int i = 0; i < 500; ++i) {
    dropped.push_back(queue.postAfter(1ms, this->note("dropped")));
    if (i % 100 == 0) queue.postAfter(1ms, this->note(std::to_string(i)));
  }
  for (const auto id : dropped) queue.cancel(id);
  queue.runFor(5ms);
  EXPECT_THAT(this->log, testing::ElementsAre("0", "100", "200", "300", "400"));
}

TYPED_TEST_P(EventQueueConformance, NestedDispatchAndRunDoNothing) {
  auto& queue = *this->held;
  queue.post([&] {
    EXPECT_EQ(queue.dispatch(), 0U);
    queue.run();
    queue.runFor(1h);
    this->log.push_back("outer");
  });
  queue.post(this->note("inner"));
  EXPECT_EQ(queue.dispatch(), 2U);
  EXPECT_THAT(this->log, testing::ElementsAre("outer", "inner"));
}

TYPED_TEST_P(EventQueueConformance, StopEndsTheRunAfterTheCurrentTask) {
  auto& queue = *this->held;
  queue.post([&] {
    queue.stop();
    this->log.push_back("stopping");
  });
  queue.post(this->note("left"));
  queue.run();
  EXPECT_THAT(this->log, testing::ElementsAre("stopping"));
  EXPECT_TRUE(this->readable());
  queue.stop();  // remembered for the next run only
  queue.run();
  EXPECT_EQ(this->log.size(), 1U);
  queue.runFor(1ms);
  EXPECT_THAT(this->log, testing::ElementsAre("stopping", "left"));
  queue.stop();  // of no run
  EXPECT_FALSE(this->readable());
}

TYPED_TEST_P(EventQueueConformance, OtherThreadsPostCancelAndStop) {
  auto& queue = *this->held;
  constexpr int kPosts = 2000;
  std::atomic<int> dropped = 0;
  int ran = 0;
  const auto eventThread = std::this_thread::get_id();
  const auto produce = [&] {
    for (int i = 0; i < kPosts; ++i) {
      queue.post([&] {
        EXPECT_EQ(std::this_thread::get_id(), eventThread);
        ++ran;
      });
      const std::shared_ptr<void> token(nullptr, [&](void*) { ++dropped; });
      queue.cancel(queue.postAfter(KVEventQueue::Duration::max(), [token] { FAIL(); }));
    }
  };
  std::thread one(produce);
  std::thread two([&] {
    produce();
    one.join();
    while (this->readable()) std::this_thread::yield();
    queue.stop();  // of a run that waits by now
  });
  queue.run();
  two.join();
  queue.dispatch();
  EXPECT_EQ(ran, 2 * kPosts);
  EXPECT_EQ(dropped, 2 * kPosts);
}

TYPED_TEST_P(EventQueueConformance, WhatIsQueuedIsDroppedWithTheQueue) {
  auto token = std::make_shared<int>(0);
  KVEventQueue* raw = this->held.get();
  // One of the dropped tasks owns something that cancels another when it goes.
  const auto other = raw->postAfter(1h, [token] {});
  std::shared_ptr<void> owner(nullptr, [raw, other](void*) { raw->cancel(other); });
  raw->post([token, this, owner] { this->log.push_back("ran"); });
  owner.reset();
  this->held.reset();
  EXPECT_EQ(token.use_count(), 1);
  EXPECT_TRUE(this->log.empty());
}

TYPED_TEST_P(EventQueueConformance, LastReferenceDroppedInsideATask) {
  using Use = void (*)(KVEventQueue&);
  for (const Use use : {Use([](KVEventQueue& queue) { queue.dispatch(); }),
                        Use([](KVEventQueue& queue) { queue.run(); }),
                        Use([](KVEventQueue& queue) { queue.runFor(1h); })}) {
    auto queue = TypeParam::make();
    KVEventQueue* raw = queue.get();
    const std::weak_ptr<KVEventQueue> weak = queue;
    raw->post([&] {
      queue.reset();
      this->log.push_back("dropped");
    });
    use(*raw);  // returns: nobody is left who could stop it
    EXPECT_TRUE(weak.expired());
  }
  EXPECT_EQ(this->log.size(), 3U);
}

REGISTER_TYPED_TEST_SUITE_P(EventQueueConformance, TasksRunInOrderOfDueTimeThenOfPosting,
                            TaskNeverRunsBeforeItsTime, DispatchLeavesWhatIsPostedMeanwhile,
                            DescriptorIsReadableExactlyWhileThereIsWork,
                            CancelledTaskIsDestroyedAtOnceAndNeverRuns,
                            TaskCancelsOthersOfTheSameRound,
                            ManyCancelledDelaysLeaveTheOthersInOrder, NestedDispatchAndRunDoNothing,
                            StopEndsTheRunAfterTheCurrentTask, OtherThreadsPostCancelAndStop,
                            WhatIsQueuedIsDroppedWithTheQueue, LastReferenceDroppedInsideATask);

}  // namespace kvtest

#endif  // TESTS_SUPPORT_EVENT_QUEUE_CONFORMANCE_H
