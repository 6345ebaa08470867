// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "fuzz/watch.h"

#include <atomic>

#include "fuzz/input.h"

namespace kvfuzz {
namespace {

// The password as it is, in hexadecimal, and as its digest: nobody may read them in a log.
class NoSecretLog final : public KVLog {
 public:
  void write(std::string_view line) override {
    for (const auto& secret : secrets_) {
      require(line.find(secret) == std::string_view::npos, "no secret in the log");
    }
  }

 private:
  std::vector<std::string> secrets_{kPassword, "6f70656e20736573616d65",
                                    KVCommonTool::md5Encrypt(kPassword)};
};

bool sameDevice(const std::shared_ptr<KVTracker>& tracker, const std::string& identifier) {
  return tracker->peripheral() != nullptr && tracker->peripheral()->identifier() == identifier;
}

}  // namespace

// The simulator's timers, counted while they run.
class Watch::Timers final : public KVTimerThreads {
 public:
  explicit Timers(std::shared_ptr<KVTimerThreads> real) : real_(std::move(real)) {}

  std::shared_ptr<KVTimerThread> start(std::chrono::nanoseconds interval,
                                       std::function<void()> tick) override {
    return std::make_shared<Counted>(real_->start(interval, std::move(tick)), running_);
  }
  int running() const { return *running_; }

 private:
  class Counted final : public KVTimerThread {
   public:
    Counted(std::shared_ptr<KVTimerThread> real, std::shared_ptr<std::atomic<int>> running)
        : real_(std::move(real)), running_(std::move(running)) {
      ++*running_;
    }
    ~Counted() override { Counted::cancel(); }
    void cancel() override {
      if (!cancelled_.exchange(true)) --*running_;
      real_->cancel();
    }

   private:
    std::shared_ptr<KVTimerThread> real_;
    std::shared_ptr<std::atomic<int>> running_;
    std::atomic<bool> cancelled_ = false;
  };

  std::shared_ptr<KVTimerThreads> real_;
  std::shared_ptr<std::atomic<int>> running_ = std::make_shared<std::atomic<int>>(0);
};

Watch::Watch(kvsim::SimulatedRadio& radio, std::shared_ptr<KVRadio> instead) {
  const auto platform = std::make_shared<KVPlatform>(*radio.platform());
  timers_ = std::make_shared<Timers>(platform->timers);
  platform->timers = timers_;
  platform->log = std::make_shared<NoSecretLog>();
  if (instead) platform->radio = std::move(instead);
  KVPlatform::setCurrent(platform);
}

Watch::~Watch() { KVPlatform::setCurrent(nullptr); }

void Watch::see(const std::shared_ptr<KVTracker>& tracker) { trackers_[tracker.get()] = tracker; }

void Watch::check(const KVTrackerManager& manager) {
  for (const auto& tracker : *manager.bindArray()) see(tracker);
  for (const auto& tracker : manager.scannedTrackers()) see(tracker);
  checkBound(manager);
  checkScanned(manager);
  checkTimers();
}

void Watch::checkBound(const KVTrackerManager& manager) const {
  const auto& list = *manager.bindArray();
  for (const auto& [at, weak] : trackers_) {
    const auto tracker = weak.lock();
    if (!tracker) continue;
    if (const auto& mac = tracker->mac()) {
      const auto first = std::find_if(list.begin(), list.end(),
                                      [&](const auto& each) { return each->mac() == mac; });
      require(list.firstWithMac(*mac) == (first == list.end() ? nullptr : *first),
              "the bound tag of an address is the first in the list");
    }
    if (tracker->peripheral()) {
      const std::string& identifier = tracker->peripheral()->identifier();
      const auto first = std::find_if(
          list.begin(), list.end(), [&](const auto& each) { return sameDevice(each, identifier); });
      require(list.firstWithPeripheral(identifier) == (first == list.end() ? nullptr : *first),
              "the bound tag of a peripheral is the first in the list");
    }
  }
}

void Watch::checkScanned(const KVTrackerManager& manager) const {
  const KVTrackers values = manager.scannedDict()->values();
  require(values.size() == manager.scannedDict()->size(), "all scanned tags are listed");
  for (const auto& each : values) {
    bool there = manager.scannedDict()->find(each->mac().value_or("")) == each;
    for (int i = 0; i < kAddresses; ++i) {
      there = there || manager.scannedDict()->find(address(i)) == each;
    }
    require(there, "what is listed is there");
  }
  for (const auto& [at, weak] : trackers_) {
    const auto tracker = weak.lock();
    if (!tracker || !tracker->peripheral()) continue;
    const std::string& identifier = tracker->peripheral()->identifier();
    const bool any = std::any_of(values.begin(), values.end(), [&](const auto& each) {
      return each->binding() && sameDevice(each, identifier);
    });
    const auto found = manager.scannedDict()->bindingWithPeripheral(identifier);
    require((found != nullptr) == any, "the tag being bound is found by its peripheral");
    require(!found || (found->binding() && sameDevice(found, identifier)), "and is that one");
  }
}

void Watch::checkTimers() const {
  int polled = 0;
  for (const auto& [at, weak] : trackers_) {
    const auto tracker = weak.lock();
    polled += tracker && tracker->timer() ? 1 : 0;
  }
  require(timers_->running() <= polled, "one polling thread for a tracker, none without");
}

void Watch::forgetUnbinds() {
  for (const auto& [at, weak] : trackers_) {
    if (const auto tracker = weak.lock()) tracker->setPasswordRemoveBlock(nullptr);
  }
}

void Watch::expectNothingLeft() const {
  require(timers_->running() == 0, "no thread outlives its tracker");
  for (const auto& [at, weak] : trackers_) require(weak.expired(), "no tracker is kept");
}

KVResultCallback Completions::replace(const KVTracker* tracker, int kind, unsigned most,
                                      KVResultCallback then) {
  const auto token = std::make_shared<Token>();
  if (const auto earlier = std::exchange(latest_[{tracker, kind}], token)) earlier->replaced = true;
  return [token, most, then = std::move(then)](bool success, const std::optional<KVError>& error) {
    require(!token->replaced, "a completion that was replaced is not called");
    require(++token->calls <= most, "a completion is called as often as promised");
    require(success != error.has_value(), "success or an error");
    if (then) then(success, error);
  };
}

unsigned Completions::calls(const KVTracker* tracker, int kind) const {
  const auto found = latest_.find({tracker, kind});
  return found == latest_.end() ? 0 : found->second->calls;
}

}  // namespace kvfuzz
