// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#ifndef PLATFORM_LINUX_TIMER_THREADS_H
#define PLATFORM_LINUX_TIMER_THREADS_H

#include <memory>
#include <mutex>
#include <thread>

#include "KVFobLink/KVPlatform.h"

namespace kv {

/// All timers on one thread, which is started with the first one.
class TimerThreads : public KVTimerThreads {
 public:
  TimerThreads();
  /// Ends all ticking and the thread; on that thread itself, as soon as the tick has ended.
  ~TimerThreads() override;

  std::shared_ptr<KVTimerThread> start(std::chrono::nanoseconds interval,
                                       std::function<void()> tick) override;

 private:
  class Wheel;

  const std::shared_ptr<Wheel> wheel_;  ///< Shared with the thread and the timers.
  std::mutex threadMutex_;
  std::thread thread_;
};

}  // namespace kv

#endif  // PLATFORM_LINUX_TIMER_THREADS_H
