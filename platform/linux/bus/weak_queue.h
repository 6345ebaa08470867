// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// A Linux event queue that is used but not kept alive.
#ifndef PLATFORM_LINUX_BUS_WEAK_QUEUE_H
#define PLATFORM_LINUX_BUS_WEAK_QUEUE_H

#include <chrono>
#include <functional>
#include <memory>
#include <utility>

#include "KVFobLink/KVLinuxPlatform.h"
#include "platform/weak_queue.h"

namespace kv {

/// Also watches descriptors.
class WeakLinuxQueue : public WeakQueue {
 public:
  WeakLinuxQueue(const std::shared_ptr<KVLinuxEventQueue>& queue) : WeakQueue(queue) {}

  /// Absent once the queue is gone.
  std::unique_ptr<KVLinuxEventQueue::Watch> watch(int fd, short events,
                                                  std::function<void(short)> ready) const {
    const auto queue = std::static_pointer_cast<KVLinuxEventQueue>(lock());
    return queue ? queue->watch(fd, events, std::move(ready)) : nullptr;
  }
};

/// One deadline: setting it anew replaces the earlier one, and dropping it cancels it.
class Timer {
 public:
  explicit Timer(WeakLinuxQueue queue) : queue_(std::move(queue)) {}
  ~Timer() { cancel(); }
  Timer(const Timer&) = delete;
  Timer& operator=(const Timer&) = delete;

  void set(std::chrono::nanoseconds delay, std::function<void()> due) {
    cancel();
    id_ = queue_.postAfter(delay, [this, due = std::move(due)] {
      id_ = 0;
      due();
    });
  }
  void cancel() {
    if (id_ != 0) queue_.cancel(std::exchange(id_, 0));
  }
  bool pending() const { return id_ != 0; }

 private:
  const WeakLinuxQueue queue_;
  KVEventQueue::TaskId id_ = 0;
};

}  // namespace kv

#endif  // PLATFORM_LINUX_BUS_WEAK_QUEUE_H
