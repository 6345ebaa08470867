/// What a tracker and a manager keep of the platform that they were made with.
#ifndef PLATFORM_SERVICES_H
#define PLATFORM_SERVICES_H

#include <chrono>
#include <cstdint>
#include <memory>
#include <utility>

#include "KVFobLink/KVPlatform.h"

namespace kv {

/// The parts of a platform, but only a weak hold on its event queue: queued tasks hold trackers and
/// managers, so one of these that held the queue would keep itself alive once nobody runs it.
struct Services {
  explicit Services(const KVPlatform& platform)
      : queue(platform.eventQueue),
        cipher(platform.cipher),
        random(platform.random),
        timers(platform.timers),
        clock(platform.clock),
        log(platform.log) {}

  /// Posts a task, and tells its id; 0, and the task is dropped, when the queue is gone.
  KVEventQueue::TaskId postAfter(KVEventQueue::Duration delay, KVEventQueue::Task task) const {
    const auto held = queue.lock();
    return held ? held->postAfter(delay, std::move(task)) : 0;
  }

  void cancel(KVEventQueue::TaskId task) const {
    if (const auto held = queue.lock()) held->cancel(task);
  }

  std::weak_ptr<KVEventQueue> queue;
  std::shared_ptr<KVCipher> cipher;
  std::shared_ptr<KVRandom> random;
  std::shared_ptr<KVTimerThreads> timers;
  std::shared_ptr<KVClock> clock;
  std::shared_ptr<KVLog> log;
};

}  // namespace kv

#endif  // PLATFORM_SERVICES_H
