// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include <atomic>
#include <condition_variable>
#include <thread>

#include "simulator/clock/core.h"

namespace kvsim {

// A timer whose ticks are background tasks of the queue, each of which waits for the worker.
class VirtualEventQueue::Timer final : public Worker::Job,
                                       public std::enable_shared_from_this<Timer> {
 public:
  Timer(std::weak_ptr<Core> core, Duration interval, std::function<void()> tick)
      : core_(std::move(core)),
        interval_(interval),
        tick_(std::make_shared<const std::function<void()>>(std::move(tick))) {}

  void arm() {
    const std::shared_ptr<Core> core = core_.lock();
    const std::lock_guard lock(mutex_);
    if (cancelled_ || !core) return;
    task_ = core->add(
        interval_, [self = shared_from_this()] { self->fire(); },
        /*background=*/true);
  }

  void cancel() {
    std::shared_ptr<const std::function<void()>> dropped;  // destroyed outside the lock
    std::unique_lock lock(mutex_);
    cancelled_ = true;
    dropped.swap(tick_);
    const TaskId task = task_;
    if (ticking_ != std::thread::id() && ticking_ != std::this_thread::get_id()) {
      ended_.wait(lock, [this] { return ticking_ == std::thread::id(); });
    }
    lock.unlock();
    if (const std::shared_ptr<Core> core = core_.lock()) core->cancel(task);
  }

  void work() override {
    std::shared_ptr<const std::function<void()>> tick;
    {
      const std::lock_guard lock(mutex_);
      if (cancelled_) return;
      tick = tick_;
      ticking_ = std::this_thread::get_id();
    }
    call(*tick);
    tick.reset();  // what it owns is gone before a cancel that waits returns
    const std::lock_guard lock(mutex_);
    ticking_ = std::thread::id();
    ended_.notify_all();
  }

 private:
  void fire() {
    if (const std::shared_ptr<Core> core = core_.lock()) core->worker().run(*this);
    arm();
  }

  static void call(const std::function<void()>& tick) noexcept { tick(); }

  const std::weak_ptr<Core> core_;
  const Duration interval_;

  std::mutex mutex_;
  std::shared_ptr<const std::function<void()>> tick_;
  std::condition_variable ended_;
  bool cancelled_ = false;
  std::thread::id ticking_;  // the thread of the tick in progress
  TaskId task_ = 0;
};

class VirtualEventQueue::Timers final : public KVTimerThreads {
 public:
  explicit Timers(std::weak_ptr<Core> core) : core_(std::move(core)) {}

  std::shared_ptr<KVTimerThread> start(std::chrono::nanoseconds interval,
                                       std::function<void()> tick) override {
    // A timer that ticks at every instant would keep the clock from ever moving on.
    const Duration shortest = std::chrono::microseconds(1);
    auto timer = std::make_shared<Timer>(core_, std::max(interval, shortest), std::move(tick));
    timer->arm();
    return std::make_shared<Handle>(std::move(timer));
  }

 private:
  class Handle final : public KVTimerThread {
   public:
    explicit Handle(std::shared_ptr<Timer> timer) : timer_(std::move(timer)) {}
    ~Handle() override { timer_->cancel(); }
    void cancel() override { timer_->cancel(); }

   private:
    const std::shared_ptr<Timer> timer_;
  };

  const std::weak_ptr<Core> core_;
};

class VirtualEventQueue::Calendar final : public KVClock {
 public:
  explicit Calendar(std::shared_ptr<const Core> core) : core_(std::move(core)) {}

  std::chrono::system_clock::time_point now() const override {
    constexpr std::chrono::sys_days kStart = std::chrono::year(2024) / 1 / 1;
    return kStart + std::chrono::duration_cast<std::chrono::system_clock::duration>(core_->now());
  }

 private:
  const std::shared_ptr<const Core> core_;
};

std::shared_ptr<KVTimerThreads> VirtualEventQueue::timers() const {
  return std::make_shared<Timers>(core_);
}

std::shared_ptr<KVClock> VirtualEventQueue::clock() const {
  return std::make_shared<Calendar>(core_);
}

}  // namespace kvsim
