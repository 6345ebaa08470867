// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// A platform for the tests of the core: everything that the core does to it, and every callback
/// that the tests install, is one line in a journal, in order. Time stands still until a test moves
/// it, and randomness counts upwards from 0x50.
#ifndef TESTS_SUPPORT_FAKE_PLATFORM_H
#define TESTS_SUPPORT_FAKE_PLATFORM_H

#include <algorithm>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "KVFobLink/KVPlatform.h"

namespace kvtest {

using Lines = std::vector<std::string>;

inline std::string hex(KVBytes bytes) {
  std::string text;
  for (const auto byte : bytes) {
    text += "0123456789abcdef"[byte >> 4];
    text += "0123456789abcdef"[byte & 15];
  }
  return text;
}

/// The bytes of a text of lower-case digits, in which spaces may stand.
inline KVData bytes(std::string_view text) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string digits(text);
  std::erase(digits, ' ');
  KVData data;
  for (std::size_t i = 0; i + 1 < digits.size(); i += 2) {
    data.push_back(
        static_cast<std::uint8_t>(kDigits.find(digits[i]) * 16 + kDigits.find(digits[i + 1])));
  }
  return data;
}

class Journal {
 public:
  void add(std::string line) { lines_.push_back(std::move(line)); }
  Lines take() { return std::exchange(lines_, {}); }

 private:
  Lines lines_;
};

class FakeQueue final : public KVEventQueue {
 public:
  int fd() const override { return -1; }
  std::size_t dispatch() override { return advanceTo(now_); }
  void run() override {}
  void runFor(Duration duration) override { advanceTo(now_ + duration); }
  void stop() override {}
  TaskId postAfter(Duration delay, Task task) override {
    tasks_.emplace(std::pair(now_ + delay, ++last_), std::move(task));
    return last_;
  }
  void cancel(TaskId task) override {
    std::erase_if(tasks_, [&](const auto& entry) { return entry.first.second == task; });
  }
  Duration now() const override { return now_; }
  std::size_t pending() const { return tasks_.size(); }

 private:
  std::size_t advanceTo(Duration end) {
    std::size_t count = 0;
    for (; !tasks_.empty() && tasks_.begin()->first.first <= end; ++count) {
      auto next = tasks_.extract(tasks_.begin());
      now_ = next.key().first;
      next.mapped()();
    }
    now_ = end;
    return count;
  }

  std::map<std::pair<Duration, TaskId>, Task> tasks_;
  TaskId last_ = 0;
  Duration now_{};
};

class FakeLog final : public KVLog {
 public:
  explicit FakeLog(std::shared_ptr<Journal> journal) : journal_(std::move(journal)) {}
  void write(std::string_view line) override { journal_->add("log: " + std::string(line)); }

 private:
  std::shared_ptr<Journal> journal_;
};

class FakeRandom final : public KVRandom {
 public:
  void fill(std::span<std::uint8_t> bytes) override {
    for (auto& byte : bytes) byte = next++;
  }
  std::uint8_t next = 0x50;
};

class FakeClock final : public KVClock {
 public:
  std::chrono::system_clock::time_point now() const override { return time; }
  std::chrono::system_clock::time_point time{std::chrono::hours(1)};
};

/// The real cipher, until it is told to fail.
class FakeCipher final : public KVCipher {
 public:
  explicit FakeCipher(std::shared_ptr<KVCipher> real) : real_(std::move(real)) {}
  bool aes128Block(std::span<const std::uint8_t, 16> key, std::span<const std::uint8_t, 16> in,
                   std::span<std::uint8_t, 16> out, bool encrypt) const override {
    return real_->aes128Block(key, in, out, encrypt) && !(encrypt ? failEncrypt : failDecrypt);
  }
  void md5(KVBytes data, std::span<std::uint8_t, 16> digest) const override {
    real_->md5(data, digest);
  }
  bool failEncrypt = false;
  bool failDecrypt = false;

 private:
  std::shared_ptr<KVCipher> real_;
};

/// Timers that tick when a test says so.
class FakeTimers final : public KVTimerThreads {
 public:
  explicit FakeTimers(std::shared_ptr<Journal> journal) : journal_(std::move(journal)) {}
  std::shared_ptr<KVTimerThread> start(std::chrono::nanoseconds interval,
                                       std::function<void()> tick) override {
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(interval).count();
    journal_->add("timer start " + std::to_string(ms) + " ms");
    auto timer = std::make_shared<Timer>(journal_, std::move(tick));
    timers_.push_back(timer);
    return timer;
  }

  /// Ticks every timer that runs, and returns how many those were.
  int tick() {
    int count = 0;
    const auto timers = timers_;
    for (const auto& weak : timers) {
      const auto timer = weak.lock();
      if (timer == nullptr || !timer->running()) continue;
      timer->tick();
      ++count;
    }
    return count;
  }

 private:
  class Timer final : public KVTimerThread {
   public:
    Timer(std::shared_ptr<Journal> journal, std::function<void()> tick)
        : journal_(std::move(journal)), tick_(std::move(tick)) {}
    ~Timer() override { cancel(); }
    void cancel() override {
      if (running_) journal_->add("timer stop");
      running_ = false;
    }
    bool running() const { return running_; }
    void tick() {
      const auto tick = tick_;
      tick();
    }

   private:
    std::shared_ptr<Journal> journal_;
    std::function<void()> tick_;
    bool running_ = true;
  };

  std::shared_ptr<Journal> journal_;
  std::vector<std::weak_ptr<Timer>> timers_;
};

}  // namespace kvtest

#endif  // TESTS_SUPPORT_FAKE_PLATFORM_H
