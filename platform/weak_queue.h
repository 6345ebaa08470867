// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// The event queue as everything that a queued task can reach holds it.
#ifndef PLATFORM_WEAK_QUEUE_H
#define PLATFORM_WEAK_QUEUE_H

#include <memory>
#include <utility>

#include "KVFobLink/KVEventQueue.h"

namespace kv {

/// An event queue that is used but not kept alive, so that what is queued may own whoever uses the
/// queue: otherwise both would live on once nobody runs it. When it is gone, tasks are dropped
/// where they would have been posted. Thread rules are those of the queue's own operations.
class WeakQueue {
 public:
  using Task = KVEventQueue::Task;
  using TaskId = KVEventQueue::TaskId;
  using Duration = KVEventQueue::Duration;

  /// Implicit, as that of a weak pointer is.
  WeakQueue(const std::shared_ptr<KVEventQueue>& queue) : queue_(queue) {}

  void post(Task task) const { postAfter(Duration::zero(), std::move(task)); }
  /// 0 once the queue is gone.
  TaskId postAfter(Duration delay, Task task) const {
    const auto queue = queue_.lock();
    return queue ? queue->postAfter(delay, std::move(task)) : 0;
  }
  void cancel(TaskId task) const {
    if (const auto queue = queue_.lock()) queue->cancel(task);
  }
  /// Zero once the queue is gone.
  Duration now() const {
    const auto queue = queue_.lock();
    return queue ? queue->now() : Duration::zero();
  }

 protected:
  std::shared_ptr<KVEventQueue> lock() const { return queue_.lock(); }

 private:
  std::weak_ptr<KVEventQueue> queue_;
};

}  // namespace kv

#endif  // PLATFORM_WEAK_QUEUE_H
