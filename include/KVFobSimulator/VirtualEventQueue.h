// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// An event queue whose time passes only when it is told to.
#ifndef KVFOBSIMULATOR_VIRTUALEVENTQUEUE_H
#define KVFOBSIMULATOR_VIRTUALEVENTQUEUE_H

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>

#include "KVFobLink/KVEventQueue.h"
#include "KVFobLink/KVPlatform.h"

namespace kvsim {

/// An event queue with a virtual clock: it never waits, but jumps from one due task to the next, so
/// an hour passes in an instant and a 30-second time-out is met to the nanosecond.
///
/// `dispatch` runs what is due and leaves the clock alone; `runFor` and the other `run` operations
/// move it. Tasks take no time, but after a thousand rounds of tasks that post each other without a
/// delay some microseconds pass, so that such a chain does not stop the clock. While one of these
/// operations jumps ahead, a task that another thread posts is due at the virtual time at which it
/// arrives, so what is to be exact is posted from the event thread.
///
/// A queue that `std::make_shared` made lives until the operation in progress has returned,
/// whatever the tasks drop. Once nobody else owns it time passes no more: the operation ends after
/// what is due, and the tasks that are left are dropped.
class VirtualEventQueue final : public KVEventQueue,
                                public std::enable_shared_from_this<VirtualEventQueue> {
 public:
  VirtualEventQueue();
  ~VirtualEventQueue() override;

  int fd() const override;
  std::size_t dispatch() override;
  /// Jumps from task to task until `stop`; without tasks it sleeps until one is posted.
  void run() override;
  void runFor(Duration duration) override;
  void stop() override;
  TaskId postAfter(Duration delay, Task task) override;
  void cancel(TaskId task) override;
  Duration now() const override;

  /// As `postAfter`, for work that goes on for ever and so does not keep `runUntilIdle` running.
  TaskId postBackground(Duration delay, Task task);

  /// Runs until nothing is left to do but background work (advertising, the ticks of timer
  /// threads, attempts to connect to what does not answer), or until `most` has passed.
  ///
  /// @return whether nothing is left.
  bool runUntilIdle(Duration most = std::chrono::minutes(1));

  /// Runs until `condition` holds, which is looked at before the first task and after each one, or
  /// until `most` has passed.
  ///
  /// @return whether it holds.
  bool runUntil(const std::function<bool()>& condition, Duration most = std::chrono::minutes(1));

  /// Timer threads in step with this queue: each tick comes at its virtual time, on a thread other
  /// than the event thread, and the queue waits for it to end. They may outlive the queue, and then
  /// tick no more.
  std::shared_ptr<KVTimerThreads> timers() const;

  /// A calendar clock in step with this queue: 2024-01-01 00:00 UTC when the queue was made.
  std::shared_ptr<KVClock> clock() const;

 private:
  class Core;
  class Timers;
  class Timer;
  class Calendar;
  std::shared_ptr<Core> core_;
};

}  // namespace kvsim

#endif  // KVFOBSIMULATOR_VIRTUALEVENTQUEUE_H
