// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// A Linux event queue that is used but not kept alive.
#ifndef PLATFORM_LINUX_BUS_WEAK_QUEUE_H
#define PLATFORM_LINUX_BUS_WEAK_QUEUE_H

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

}  // namespace kv

#endif  // PLATFORM_LINUX_BUS_WEAK_QUEUE_H
