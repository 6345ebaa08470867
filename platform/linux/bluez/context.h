// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// What the parts of the BlueZ central share.
#ifndef PLATFORM_LINUX_BLUEZ_CONTEXT_H
#define PLATFORM_LINUX_BLUEZ_CONTEXT_H

#include <chrono>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <utility>

#include "KVFobLink/KVLinuxPlatform.h"
#include "KVFobLink/KVPlatform.h"
#include "platform/linux/bluez/timing.h"
#include "platform/linux/bus/weak_queue.h"

namespace kv {

class Daemon;

/// One for each central; it outlives all the parts that refer to it.
struct Context {
  WeakLinuxQueue queue;
  std::shared_ptr<KVLog> logSink;
  KVBlueZOptions options;
  BlueZTiming timing;
  Daemon* daemon = nullptr;
  /// False once the central is gone: events that are still queued are then dropped.
  std::shared_ptr<bool> open = std::make_shared<bool>(true);

  std::minstd_rand random{std::random_device{}()};

  void log(const std::string& line) const {
    if (logSink) logSink->write("bluez: " + line);
  }
};

/// One deadline: setting it anew replaces the earlier one, and dropping it cancels it.
class Timer {
 public:
  explicit Timer(Context& context) : queue_(context.queue) {}
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

#endif  // PLATFORM_LINUX_BLUEZ_CONTEXT_H
