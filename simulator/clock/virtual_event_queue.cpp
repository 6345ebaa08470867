// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "KVFobSimulator/VirtualEventQueue.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <limits>
#include <utility>

#include "simulator/clock/core.h"

namespace kvsim {
namespace {

// Without its descriptor a queue cannot exist, and there is no one to report that to.
int required(int fd) {
  if (fd >= 0) return fd;
  std::perror("KVFobSimulator: event queue");
  std::abort();
}

// What is due then is never due.
constexpr KVEventQueue::Duration kNever = KVEventQueue::Duration::max();

// Tasks take no time, so two that post each other for ever would stop the clock. After so many
// rounds at one instant a little time does pass.
constexpr unsigned kMostRounds = 1000;
constexpr KVEventQueue::Duration kRoundsTake = std::chrono::microseconds(10);

// A task that throws has nowhere to throw to.
void call(const KVEventQueue::Task& task) noexcept { task(); }

}  // namespace

VirtualEventQueue::Core::Core() : fd_(required(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))) {}

VirtualEventQueue::Core::~Core() { close(fd_); }

KVEventQueue::Duration VirtualEventQueue::Core::now() const {
  const std::lock_guard lock(mutex_);
  return now_;
}

std::optional<KVEventQueue::Duration> VirtualEventQueue::Core::after(Duration duration) const {
  const Duration start = now();
  if (duration >= kNever - start) return std::nullopt;
  return start + std::max(duration, Duration::zero());
}

KVEventQueue::TaskId VirtualEventQueue::Core::add(Duration delay, Task task, bool background) {
  if (!task) task = [] {};
  const std::lock_guard lock(mutex_);
  if (background) {
    task = [this, id = tasks_.lastId() + 1, inner = std::move(task)] {
      forgetBackground(id);
      call(inner);
    };
  }
  const TaskId id = tasks_.add(now_, delay, std::move(task));
  ++pending_;
  if (background) background_.insert(id);
  updateFd();
  changed_.notify_all();
  return id;
}

void VirtualEventQueue::Core::forgetBackground(TaskId id) {
  const std::lock_guard lock(mutex_);
  background_.erase(id);
}

void VirtualEventQueue::Core::cancel(TaskId id) {
  Task dropped;  // destroyed after the lock has been released
  const std::lock_guard lock(mutex_);
  dropped = tasks_.cancel(id);
  if (dropped) --pending_;
  background_.erase(id);
  updateFd();
}

void VirtualEventQueue::Core::stop() {
  const std::lock_guard lock(mutex_);
  stop_ = true;
  changed_.notify_all();
}

void VirtualEventQueue::Core::clear() {
  for (;;) {
    std::vector<Task> dropped;
    const std::lock_guard lock(mutex_);
    dropped = tasks_.takeAll();
    if (dropped.empty()) return;
  }
}

bool VirtualEventQueue::Core::enter() {
  const std::lock_guard lock(mutex_);
  if (busy_) return false;
  busy_ = true;
  rounds_ = 0;
  return true;
}

void VirtualEventQueue::Core::leave() {
  const std::lock_guard lock(mutex_);
  busy_ = false;
  updateFd();
}

std::size_t VirtualEventQueue::Core::dispatch() {
  if (!enter()) return 0;
  TaskId limit = 0;
  std::size_t count = 0;
  for (;; ++count) {
    std::optional<Task> task;
    {
      const std::lock_guard lock(mutex_);
      if (count == 0) limit = tasks_.lastId();
      task = tasks_.takeDue(now_, limit);
      if (task) --pending_;
    }
    if (!task) break;
    call(*task);
  }
  leave();
  return count;
}

bool VirtualEventQueue::Core::loop(const Self& self, const Until& until) {
  if (!enter()) return false;
  for (;;) {
    std::optional<Task> task;
    const bool met = until.condition != nullptr && (*until.condition)();
    const Next step = met ? Next::Met : next(self, until, task);
    if (step == Next::Run) {
      call(*task);
      continue;
    }
    leave();
    return step == Next::Met;
  }
}

VirtualEventQueue::Core::Next VirtualEventQueue::Core::next(const Self& self, const Until& until,
                                                            std::optional<Task>& task) {
  std::unique_lock lock(mutex_);
  for (;;) {
    if (std::exchange(stop_, false)) return Next::Over;
    // Nobody is left who could stop it, nor anybody for whom time could pass.
    if (self.use_count() == 1 && tasks_.nextDue().value_or(kNever) > now_) return Next::Over;
    if (until.idle && pending_ == background_.size()) return Next::Met;
    if (take(task, until.deadline)) return Next::Run;
    if (until.deadline && now_ >= *until.deadline) return Next::Over;
    if (until.deadline) continue;
    setSignal(false);
    changed_.wait(lock);
  }
}

// Takes the next task, moving the clock to when it is due; without one, to the deadline.
bool VirtualEventQueue::Core::take(std::optional<Task>& task, std::optional<Duration> deadline) {
  const Duration last = deadline.value_or(kNever - Duration(1));
  const Duration due = tasks_.nextDue().value_or(kNever);
  if (due > last) {
    if (deadline) now_ = std::max(now_, last);
    return false;
  }
  if (due > now_) {
    now_ = due;
    rounds_ = 0;
  }
  task = tasks_.takeDue(now_, roundEnd_);
  if (!task) {
    if (++rounds_ > kMostRounds && !letTimePass(last)) return false;
    roundEnd_ = tasks_.lastId();
    task = tasks_.takeDue(now_, roundEnd_);
  }
  --pending_;
  return true;
}

bool VirtualEventQueue::Core::letTimePass(Duration last) {
  rounds_ = 0;
  if (now_ >= last) return false;
  const Duration next = std::min(tasks_.nextDelayed().value_or(last), last);
  now_ = std::max(now_, std::min(now_ + kRoundsTake, next));
  return true;
}

// Makes the descriptor readable exactly if there is something for `dispatch`. Inside a loop nobody
// waits for it, so that is left to the end, or to when the loop has nothing to do.
void VirtualEventQueue::Core::updateFd() {
  if (busy_) return;
  const std::optional<Duration> due = tasks_.nextDue();
  setSignal(due && *due <= now_);
}

void VirtualEventQueue::Core::setSignal(bool work) {
  if (work == signalled_) return;
  signalled_ = work;
  eventfd_t ignored = 0;
  if (work) {
    eventfd_write(fd_, 1);
  } else {
    eventfd_read(fd_, &ignored);
  }
}

VirtualEventQueue::VirtualEventQueue() : core_(std::make_shared<Core>()) {}
VirtualEventQueue::~VirtualEventQueue() { core_->clear(); }

int VirtualEventQueue::fd() const { return core_->fd(); }

// `self`, here and below: a task may drop the last reference to the queue that runs it.
std::size_t VirtualEventQueue::dispatch() {
  const Core::Self self = weak_from_this().lock();
  return core_->dispatch();
}

void VirtualEventQueue::run() { core_->loop(weak_from_this().lock(), {}); }

void VirtualEventQueue::runFor(Duration duration) {
  core_->loop(weak_from_this().lock(), {.deadline = core_->after(duration)});
}

void VirtualEventQueue::stop() { core_->stop(); }
KVEventQueue::Duration VirtualEventQueue::now() const { return core_->now(); }
void VirtualEventQueue::cancel(TaskId task) { core_->cancel(task); }

KVEventQueue::TaskId VirtualEventQueue::postAfter(Duration delay, Task task) {
  return core_->add(delay, std::move(task), /*background=*/delay >= kv::kForever);
}

KVEventQueue::TaskId VirtualEventQueue::postBackground(Duration delay, Task task) {
  return core_->add(delay, std::move(task), /*background=*/true);
}

bool VirtualEventQueue::runUntilIdle(Duration most) {
  return core_->loop(weak_from_this().lock(), {.deadline = core_->after(most), .idle = true});
}

bool VirtualEventQueue::runUntil(const std::function<bool()>& condition, Duration most) {
  const Core::Self self = weak_from_this().lock();
  return core_->loop(self, {.deadline = core_->after(most), .condition = &condition}) ||
         condition();
}

}  // namespace kvsim
