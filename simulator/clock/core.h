// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#ifndef SIMULATOR_CLOCK_CORE_H
#define SIMULATOR_CLOCK_CORE_H

#include <condition_variable>
#include <mutex>
#include <optional>
#include <unordered_set>

#include "KVFobSimulator/VirtualEventQueue.h"
#include "platform/task_queue.h"
#include "simulator/clock/worker.h"

namespace kvsim {

/// What a virtual queue shares with its timers and its calendar, which may outlive it.
class VirtualEventQueue::Core {
 public:
  /// When a loop ends, apart from `stop`.
  struct Until {
    std::optional<Duration> deadline{};
    bool idle = false;
    const std::function<bool()>* condition = nullptr;
  };
  /// The running queue itself; null if it is nobody's to share.
  using Self = std::shared_ptr<const VirtualEventQueue>;

  Core();
  ~Core();

  int fd() const { return fd_; }
  Duration now() const;
  TaskId add(Duration delay, Task task, bool background);
  void cancel(TaskId id);
  void stop();
  std::size_t dispatch();
  /// @return whether `until.idle` or `until.condition` was met.
  bool loop(const Self& self, const Until& until);
  /// Drops all tasks; those that their destruction posts, too.
  void clear();
  /// `now` plus a duration, absent when that is beyond what a duration can hold.
  std::optional<Duration> after(Duration duration) const;

  Worker& worker() { return worker_; }

 private:
  enum class Next { Run, Met, Over };

  bool enter();
  void leave();
  Next next(const Self& self, const Until& until, std::optional<Task>& task);
  bool take(std::optional<Task>& task, std::optional<Duration> deadline);
  bool letTimePass(Duration last);
  void forgetBackground(TaskId id);
  void updateFd();
  void setSignal(bool work);

  const int fd_;
  Worker worker_;

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  kv::TaskQueue tasks_;
  std::size_t pending_ = 0;  // how many tasks there are
  std::unordered_set<TaskId> background_;
  Duration now_{0};
  TaskId roundEnd_ = 0;  // the last task of the round in progress
  unsigned rounds_ = 0;  // how many there have been at this instant
  bool busy_ = false;    // inside a dispatch or a loop
  bool stop_ = false;
  bool signalled_ = false;
};

}  // namespace kvsim

#endif  // SIMULATOR_CLOCK_CORE_H
