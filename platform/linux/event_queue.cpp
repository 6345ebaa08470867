// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "platform/linux/event_queue.h"

#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <limits>

namespace kv {
namespace {

// Without its descriptors an event queue cannot exist, and there is no one to report that to.
int required(int fd) {
  if (fd >= 0) return fd;
  std::perror("KVFobLink: event queue");
  std::abort();
}

timespec toTimespec(KVEventQueue::Duration duration) {
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(duration);
  // Where time_t has 32 bits a later time is cut: to wake too early is only to look again.
  constexpr std::int64_t kLatest = std::numeric_limits<std::time_t>::max();
  timespec time{};
  time.tv_sec = static_cast<std::time_t>(std::min<std::int64_t>(seconds.count(), kLatest));
  time.tv_nsec = static_cast<long>((duration - seconds).count());
  return time;
}

// A task that throws has nowhere to throw to.
void call(const KVEventQueue::Task& task) noexcept { task(); }

}  // namespace

EventQueue::EventQueue()
    : epoll_(std::make_shared<const OwnedFd>(required(epoll_create1(EPOLL_CLOEXEC)))),
      signal_(required(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))),
      alarm_(required(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK))),
      watches_(std::make_shared<WatchSet>(epoll_)) {
  for (const int own : {signal_.get(), alarm_.get()}) {
    epoll_event event{};  // its data stays 0, which is no watch
    event.events = EPOLLIN;
    required(epoll_ctl(epoll_->get(), EPOLL_CTL_ADD, own, &event));
  }
}

EventQueue::~EventQueue() {
  for (;;) {
    std::vector<Task> dropped;
    {
      const std::lock_guard lock(mutex_);
      dropped = tasks_.takeAll();
    }
    if (dropped.empty()) return;
  }
}

EventQueue::Duration EventQueue::now() const {
  return std::chrono::steady_clock::now().time_since_epoch();
}

EventQueue::TaskId EventQueue::postAfter(Duration delay, Task task) {
  const std::lock_guard lock(mutex_);
  const TaskId id = tasks_.add(now(), delay, std::move(task));
  updateFds();
  return id;
}

void EventQueue::cancel(TaskId task) {
  Task dropped;  // destroyed after the lock has been released
  const std::lock_guard lock(mutex_);
  dropped = tasks_.cancel(task);
  updateFds();
}

void EventQueue::stop() {
  const std::lock_guard lock(mutex_);
  stop_ = true;
  updateFds();
}

std::unique_ptr<KVLinuxEventQueue::Watch> EventQueue::watch(int fd, short events,
                                                            std::function<void(short)> ready) {
  return watches_->add(fd, events, std::move(ready));
}

std::size_t EventQueue::dispatch() {
  const auto self = weak_from_this().lock();
  return dispatching_ ? 0 : dispatchRound(/*stoppable=*/false, /*wait=*/false);
}

void EventQueue::runFor(Duration duration) {
  const Duration start = now();
  const bool overflows = duration > Duration::max() - start;
  runUntil(overflows ? std::nullopt : std::optional(start + duration));
}

void EventQueue::runUntil(std::optional<Duration> deadline) {
  if (dispatching_) return;
  const auto self = weak_from_this().lock();
  {
    const std::lock_guard lock(mutex_);
    running_ = true;
  }
  while (!stopRequested()) {
    dispatchRound(/*stoppable=*/true, /*wait=*/!deadline);
    if (self.use_count() == 1) break;  // a task dropped all others: nobody is left to stop it
    if (!deadline) continue;
    if (now() >= *deadline) break;
    waitUntil(*deadline);
  }
  const std::lock_guard lock(mutex_);
  running_ = false;
  stop_ = false;
  updateFds();
}

std::size_t EventQueue::dispatchRound(bool stoppable, bool wait) {
  const std::vector<WatchSet::Event> ready = watches_->poll(wait);
  Duration start;
  TaskId limit = 0;
  {
    const std::lock_guard lock(mutex_);
    dispatching_ = true;
    start = now();
    limit = tasks_.lastId();  // what a task posts is left for the next round
  }
  std::size_t count = dispatchWatches(ready, stoppable);
  for (;;) {
    std::optional<Task> task;
    {
      const std::lock_guard lock(mutex_);
      if (!(stoppable && stop_)) task = tasks_.takeDue(start, limit);
      if (!task) {
        dispatching_ = false;
        updateFds();
        return count;
      }
    }
    if (*task) call(*task);
    ++count;
  }
}

std::size_t EventQueue::dispatchWatches(const std::vector<WatchSet::Event>& ready, bool stoppable) {
  std::size_t count = 0;
  for (const WatchSet::Event& event : ready) {
    if (stoppable && stopRequested()) break;
    if (watches_->deliver(event)) ++count;
  }
  return count;
}

bool EventQueue::stopRequested() const {
  const std::lock_guard lock(mutex_);
  return stop_;
}

void EventQueue::waitUntil(Duration deadline) const {
  pollfd self{fd(), POLLIN, 0};
  const timespec left = toTimespec(std::max(Duration::zero(), deadline - now()));
  ppoll(&self, 1, &left, nullptr);
}

// Makes the descriptor readable exactly if there is work. While a round is in progress nobody
// waits for it, so that is left to the end of the round.
void EventQueue::updateFds() {
  if (dispatching_) return;
  setSignal(tasks_.hasReady() || (running_ && stop_));
  setAlarm(tasks_.nextDelayed());
}

void EventQueue::setSignal(bool on) {
  if (signalled_ == on) return;
  signalled_ = on;
  eventfd_t ignored{};
  if (on) {
    eventfd_write(signal_.get(), 1);
  } else {
    eventfd_read(signal_.get(), &ignored);
  }
}

void EventQueue::setAlarm(std::optional<Duration> due) {
  if (alarmAt_ == due) return;
  alarmAt_ = due;
  itimerspec spec{};  // all zero disarms, and either way an expiry that was pending is forgotten
  if (due) spec.it_value = toTimespec(*due);
  timerfd_settime(alarm_.get(), TFD_TIMER_ABSTIME, &spec, nullptr);
}

}  // namespace kv
