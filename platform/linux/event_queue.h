// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#ifndef PLATFORM_LINUX_EVENT_QUEUE_H
#define PLATFORM_LINUX_EVENT_QUEUE_H

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "KVFobLink/KVLinuxPlatform.h"
#include "platform/linux/owned_fd.h"
#include "platform/linux/watch_set.h"
#include "platform/task_queue.h"

namespace kv {

/// The event queue on one epoll descriptor: an eventfd stands for the tasks without delay, a
/// timerfd for the first delayed one, and the watched descriptors stand for themselves. It keeps
/// itself alive while it runs tasks, as one of them may drop the last other reference.
class EventQueue : public KVLinuxEventQueue, public std::enable_shared_from_this<EventQueue> {
 public:
  EventQueue();
  ~EventQueue() override;

  int fd() const override { return epoll_->get(); }
  std::size_t dispatch() override;
  void run() override { runUntil(std::nullopt); }
  void runFor(Duration duration) override;
  void stop() override;
  TaskId postAfter(Duration delay, Task task) override;
  void cancel(TaskId task) override;
  Duration now() const override;
  std::unique_ptr<Watch> watch(int fd, short events, std::function<void(short)> ready) override;

 private:
  void runUntil(std::optional<Duration> deadline);
  /// If `wait`, not before there is work.
  std::size_t dispatchRound(bool stoppable, bool wait);
  std::size_t dispatchWatches(const std::vector<WatchSet::Event>& ready, bool stoppable);
  bool stopRequested() const;
  void waitUntil(Duration deadline) const;
  void updateFds();
  void setSignal(bool on);
  void setAlarm(std::optional<Duration> due);

  const std::shared_ptr<const OwnedFd> epoll_;
  const OwnedFd signal_;
  const OwnedFd alarm_;
  const std::shared_ptr<WatchSet> watches_;  ///< Event thread only.

  mutable std::mutex mutex_;
  TaskQueue tasks_;
  bool dispatching_ = false;  ///< Written by the event thread only.
  bool running_ = false;
  bool stop_ = false;
  bool signalled_ = false;
  std::optional<Duration> alarmAt_;
};

}  // namespace kv

#endif  // PLATFORM_LINUX_EVENT_QUEUE_H
