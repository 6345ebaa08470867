/// The event queue as everything that a queued task can reach holds it.
#ifndef PLATFORM_WEAK_QUEUE_H
#define PLATFORM_WEAK_QUEUE_H

#include <functional>
#include <memory>
#include <utility>

#include "KVFobLink/KVLinuxPlatform.h"

namespace kv {

/// An event queue that is used but not kept alive, so that what is queued may own whoever uses the
/// queue. Once it is gone, tasks are dropped where they would have been posted and watches are
/// absent. Thread rules are those of the queue's own operations.
class WeakQueue {
 public:
  using Task = KVEventQueue::Task;
  using TaskId = KVEventQueue::TaskId;
  using Duration = KVEventQueue::Duration;

  /// Implicit, as that of a weak pointer is.
  WeakQueue(const std::shared_ptr<KVLinuxEventQueue>& queue) : queue_(queue) {}

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
  std::unique_ptr<KVLinuxEventQueue::Watch> watch(int fd, short events,
                                                  std::function<void(short)> ready) const {
    const auto queue = queue_.lock();
    return queue ? queue->watch(fd, events, std::move(ready)) : nullptr;
  }

 private:
  std::weak_ptr<KVLinuxEventQueue> queue_;
};

}  // namespace kv

#endif  // PLATFORM_WEAK_QUEUE_H
