// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// The order of an event queue's tasks, apart from how the queue waits and what clock it has.
#ifndef PLATFORM_TASK_QUEUE_H
#define PLATFORM_TASK_QUEUE_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <limits>
#include <optional>
#include <unordered_map>
#include <utility>
#include <vector>

#include "KVFobLink/KVEventQueue.h"

namespace kv {

/// A delay that stands for "never": the task only owns something, until it is cancelled or its
/// queue goes. A hundred years, so that no clock that starts at boot overflows.
inline constexpr KVEventQueue::Duration kForever = std::chrono::years(100);

/// Tasks ordered by due time, then by when they were posted.
///
/// Not locked: the owner does that, and passes the time, which must never go back from one call to
/// the next. So what is added after `lastId` was read sorts behind all that was due by then, and
/// `takeDue(now, lastId)` in a loop is one bounded round. Callables are handed out rather than
/// destroyed in here, so that the owner can destroy them outside its lock.
class TaskQueue {
 public:
  using Task = KVEventQueue::Task;
  using TaskId = KVEventQueue::TaskId;
  using Duration = KVEventQueue::Duration;

  TaskId add(Duration now, Duration delay, Task task) {
    const TaskId id = ++lastId_;
    if (delay <= Duration::zero()) {
      ready_.push_back({now, id, std::move(task), /*cancelled=*/false});
    } else {
      const bool overflows = delay > Duration::max() - now;
      heap_.push_back({overflows ? Duration::max() : now + delay, id});
      std::push_heap(heap_.begin(), heap_.end(), later);
      delayed_.emplace(id, std::move(task));
    }
    return id;
  }

  /// The callable of the task that was dropped; null if there was none.
  Task cancel(TaskId id) {
    if (auto found = delayed_.extract(id)) {
      dropStale();
      return std::move(found.mapped());
    }
    const auto at =
        std::lower_bound(ready_.begin(), ready_.end(), id,
                         [](const Ready& entry, TaskId wanted) { return entry.id < wanted; });
    if (at == ready_.end() || at->id != id || at->cancelled) return nullptr;
    at->cancelled = true;
    Task task = std::exchange(at->task, nullptr);
    while (!ready_.empty() && ready_.front().cancelled) ready_.pop_front();
    while (!ready_.empty() && ready_.back().cancelled) ready_.pop_back();
    return task;
  }

  /// The id of the task that was added last.
  TaskId lastId() const { return lastId_; }

  /// Takes the first task that is due at `now`, unless it was added after `limit`.
  std::optional<Task> takeDue(Duration now, TaskId limit) {
    if (!ready_.empty() && (heap_.empty() || readyIsFirst())) {
      if (ready_.front().id > limit) return std::nullopt;
      Task task = std::move(ready_.front().task);
      do {
        ready_.pop_front();
      } while (!ready_.empty() && ready_.front().cancelled);
      return task;
    }
    if (heap_.empty() || heap_.front().due > now || heap_.front().id > limit) return std::nullopt;
    auto found = delayed_.extract(heap_.front().id);
    dropStale();
    return std::move(found.mapped());
  }

  /// Whether there is a task that was posted without a delay.
  bool hasReady() const { return !ready_.empty(); }

  /// When the first delayed task is due.
  std::optional<Duration> nextDelayed() const {
    return heap_.empty() ? std::nullopt : std::optional(heap_.front().due);
  }

  /// When the first task is due, delayed or not.
  std::optional<Duration> nextDue() const {
    if (ready_.empty()) return nextDelayed();
    return heap_.empty() ? ready_.front().due : std::min(ready_.front().due, heap_.front().due);
  }

  bool empty() const { return ready_.empty() && heap_.empty(); }

  /// Takes everything, for the owner's destructor: destroying a task may well call the owner.
  std::vector<Task> takeAll() {
    std::vector<Task> all;
    for (Ready& entry : ready_) all.push_back(std::move(entry.task));
    for (auto& [id, task] : delayed_) all.push_back(std::move(task));
    ready_.clear();
    delayed_.clear();
    heap_.clear();
    return all;
  }

 private:
  struct Ready {
    Duration due;
    TaskId id;
    Task task;
    bool cancelled;
  };
  struct Delayed {
    Duration due;
    TaskId id;
  };

  static bool later(const Delayed& a, const Delayed& b) {
    return std::pair(a.due, a.id) > std::pair(b.due, b.id);
  }

  bool readyIsFirst() const {
    return std::pair(ready_.front().due, ready_.front().id) <
           std::pair(heap_.front().due, heap_.front().id);
  }

  /// Cancelled delays stay in the heap until they reach its top or outnumber the live ones.
  void dropStale() {
    while (!heap_.empty() && !delayed_.contains(heap_.front().id)) {
      std::pop_heap(heap_.begin(), heap_.end(), later);
      heap_.pop_back();
    }
    if (heap_.size() <= 2 * delayed_.size() + kSlack) return;
    std::erase_if(heap_, [this](const Delayed& entry) { return !delayed_.contains(entry.id); });
    std::make_heap(heap_.begin(), heap_.end(), later);
  }

  static constexpr std::size_t kSlack = 16;

  TaskId lastId_ = 0;
  std::deque<Ready> ready_;  ///< Ids and due times ascend.
  std::vector<Delayed> heap_;
  std::unordered_map<TaskId, Task> delayed_;
};

}  // namespace kv

#endif  // PLATFORM_TASK_QUEUE_H
