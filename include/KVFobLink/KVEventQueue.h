// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// The queue on which all events of the library arrive.
#ifndef KVFOBLINK_KVEVENTQUEUE_H
#define KVFOBLINK_KVEVENTQUEUE_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>

#include "KVFobLink/KVExport.h"

/// A serial queue of tasks and timers that embeds in any event loop.
///
/// The thread that calls `dispatch`, `run` or `runFor` is the event thread while it does so; use
/// one. Callbacks run only inside those three, never inside another call. With a loop of your own,
/// watch `fd()` for reading and call `dispatch()` when it is readable; without one, call `run()`.
///
///     auto& queue = *KVPlatform::current().eventQueue;
///     queue.postAfter(std::chrono::seconds(5), [&] { queue.stop(); });
///     queue.run();  // returns after five seconds
///
/// Tasks that are due at the same time run in the order in which they were posted. A task that
/// throws ends the process: callbacks must not throw. What is still queued when the queue is
/// destroyed is dropped.
class KVFOB_EXPORT KVEventQueue {
 public:
  using Task = std::function<void()>;
  using Duration = std::chrono::nanoseconds;
  /// Names one posted task; never 0.
  using TaskId = std::uint64_t;

  virtual ~KVEventQueue() = default;

  /// A file descriptor that is readable exactly while `dispatch` has work: level-triggered, timers
  /// included. The same for the queue's whole life; owned by the queue.
  virtual int fd() const = 0;

  /// Runs what is due, without waiting, and returns how many tasks and events that was. Bounded:
  /// tasks that are posted meanwhile are left for the next call. From inside a callback it does
  /// nothing and returns 0.
  virtual std::size_t dispatch() = 0;

  /// Runs tasks as they fall due, until `stop`, or until a task has dropped the last reference to
  /// the queue. From inside a callback it returns at once.
  virtual void run() = 0;

  /// As `run`, but returns after `duration` at the latest. With a virtual clock the clock has then
  /// advanced by exactly `duration`, unless `stop` came first.
  virtual void runFor(Duration duration) = 0;

  /// Ends the `run` or `runFor` in progress after the current task, or else the next one as soon as
  /// it starts. Any thread.
  virtual void stop() = 0;

  /// Queues a task. Any thread.
  void post(Task task) { postAfter(Duration::zero(), std::move(task)); }

  /// Queues a task to run once `delay` has passed; a negative delay counts as zero. Any thread.
  virtual TaskId postAfter(Duration delay, Task task) = 0;

  /// Drops a task that has not begun to run; anything else is ignored. The task's callable is
  /// destroyed before the call returns. Any thread.
  virtual void cancel(TaskId task) = 0;

  /// The queue's own clock, which never goes back; its origin is unspecified. Any thread.
  virtual Duration now() const = 0;
};

#endif  // KVFOBLINK_KVEVENTQUEUE_H
