// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "platform/linux/timer_threads.h"

#include <algorithm>
#include <condition_variable>
#include <csignal>
#include <set>
#include <utility>

namespace kv {
namespace {

using Clock = std::chrono::steady_clock;
using Interval = std::chrono::nanoseconds;

// Keeps an interval of nothing from becoming a busy loop.
constexpr Interval kShortestInterval = std::chrono::milliseconds(1);
// Far beyond any use, and safe to add to the clock.
constexpr Interval kLongestInterval = std::chrono::hours(24 * 365);

// Starts a thread that takes no signal from the application's threads.
template <typename Body>
std::thread startThread(Body body) {
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  std::thread thread(std::move(body));
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return thread;
}

// A tick that throws has nowhere to throw to.
void call(const std::function<void()>& tick) noexcept { tick(); }

}  // namespace

class TimerThreads::Wheel {
 public:
  struct Timer {
    Interval interval;
    std::function<void()> tick;
    Clock::time_point due;
    bool cancelled = false;
  };
  using TimerPtr = std::shared_ptr<Timer>;

  void add(const TimerPtr& timer) {
    const std::lock_guard lock(mutex_);
    waiting_.insert(timer);
    changed_.notify_one();
  }

  void cancel(const TimerPtr& timer) {
    std::function<void()> dropped;  // destroyed after the lock has been released
    std::unique_lock lock(mutex_);
    timer->cancelled = true;
    waiting_.erase(timer);
    if (ticking_ != timer) {
      dropped = std::exchange(timer->tick, nullptr);
    } else if (std::this_thread::get_id() != thread_) {
      tickEnded_.wait(lock, [&] { return ticking_ != timer; });
    }
  }

  void stop() {
    const std::lock_guard lock(mutex_);
    stopped_ = true;
    changed_.notify_one();
  }

  // The thread's body.
  void run() {
    std::unique_lock lock(mutex_);
    thread_ = std::this_thread::get_id();
    while (!stopped_) {
      if (waiting_.empty()) {
        changed_.wait(lock);
      } else if (const auto due = (*waiting_.begin())->due; Clock::now() < due) {
        changed_.wait_until(lock, due);
      } else {
        tickFirst(lock);
      }
    }
  }

 private:
  struct Earlier {
    bool operator()(const TimerPtr& a, const TimerPtr& b) const {
      return std::pair(a->due, a.get()) < std::pair(b->due, b.get());
    }
  };

  void tickFirst(std::unique_lock<std::mutex>& lock) {
    const TimerPtr timer = *waiting_.begin();
    waiting_.erase(waiting_.begin());
    ticking_ = timer;
    lock.unlock();
    call(timer->tick);
    lock.lock();
    if (timer->cancelled || stopped_) {
      // Whoever waits for the end of the tick also waits for the end of what the tick owns.
      std::function<void()> dropped = std::exchange(timer->tick, nullptr);
      lock.unlock();
      dropped = nullptr;
      lock.lock();
    } else {
      const auto missed = (Clock::now() - timer->due) / timer->interval;
      timer->due += timer->interval * (missed + 1);
      waiting_.insert(timer);
    }
    ticking_ = nullptr;
    tickEnded_.notify_all();
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  std::condition_variable tickEnded_;
  std::set<TimerPtr, Earlier> waiting_;
  TimerPtr ticking_;
  std::thread::id thread_;
  bool stopped_ = false;
};

TimerThreads::TimerThreads() : wheel_(std::make_shared<Wheel>()) {}

TimerThreads::~TimerThreads() {
  wheel_->stop();
  if (!thread_.joinable()) return;
  if (thread_.get_id() == std::this_thread::get_id()) {
    thread_.detach();  // it keeps the wheel until it has ended
  } else {
    thread_.join();
  }
}

std::shared_ptr<KVTimerThread> TimerThreads::start(Interval interval, std::function<void()> tick) {
  class Handle : public KVTimerThread {
   public:
    Handle(std::shared_ptr<Wheel> wheel, Wheel::TimerPtr timer)
        : wheel_(std::move(wheel)), timer_(std::move(timer)) {}
    ~Handle() override { wheel_->cancel(timer_); }
    void cancel() override { wheel_->cancel(timer_); }

   private:
    const std::shared_ptr<Wheel> wheel_;
    const Wheel::TimerPtr timer_;
  };

  interval = std::clamp(interval, kShortestInterval, kLongestInterval);
  const auto timer = std::make_shared<Wheel::Timer>(
      Wheel::Timer{interval, std::move(tick), Clock::now() + interval});
  {
    const std::lock_guard lock(threadMutex_);
    if (!thread_.joinable()) thread_ = startThread([wheel = wheel_] { wheel->run(); });
  }
  wheel_->add(timer);
  return std::make_shared<Handle>(wheel_, timer);
}

}  // namespace kv
