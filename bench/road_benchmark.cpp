// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// A whole road on the simulated radio in virtual time, by one tag and by many at once: advertised,
// connected, discovered, bound, five commands, lost.
#include <benchmark/benchmark.h>

#include <cstdio>

#include "KVFobSimulator/KVFobSimulator.h"
#include "bench/quiet_platform.h"

namespace {

// Every tag of a crowd goes down the road at its own pace.
class Crowd {
 public:
  explicit Crowd(std::size_t count) : count_(count) {
    KVPlatform::setCurrent(radio_.platform());
    manager_ = std::make_shared<KVTrackerManager>();
    manager_->setPassword("secret");
    for (std::size_t i = 0; i < count; ++i) {
      char address[21];
      std::snprintf(address, sizeof address, "c0de%08zx", i);
      tags_.push_back(radio_.addTag({.address = address}));
    }
  }
  ~Crowd() {
    manager_->removeAllTrackers();
    radio_.clock().runFor(std::chrono::seconds(31));  // the limits of the bind requests run out
    KVPlatform::setCurrent(nullptr);
  }
  Crowd(const Crowd&) = delete;
  Crowd& operator=(const Crowd&) = delete;

  // Whether every tag came to the end of it.
  [[gnu::noinline]] bool run() {  // the report counts the instructions inside
    manager_->startScan([this](const KVTrackers& trackers) {
      if (trackers.size() < count_ || !begun_.empty()) return;
      begun_ = trackers;
      manager_->stopScan();
      for (const auto& tracker : begun_) bind(tracker);
    });
    return radio_.clock().runUntil([&] { return done_ == count_; }, std::chrono::minutes(30));
  }

 private:
  void bind(const std::shared_ptr<KVTracker>& tracker) {
    manager_->bindingVerify(tracker, [this, held = std::weak_ptr(tracker)](bool bound, auto&) {
      if (const auto tag = held.lock(); tag && bound) command(tag, 0);
    });
  }

  void command(const std::shared_ptr<KVTracker>& tag, int step) {
    const auto next = [this, held = std::weak_ptr(tag), step](bool, auto&) {
      if (const auto still = held.lock()) command(still, step + 1);
    };
    switch (step) {
      case 0:
      case 1:
        return tag->switchBellStatus(step == 0, next);
      case 2:
        return tag->writeLossAlert(true, next);
      case 3:
        return tag->writeLossDelay(30, next);
      case 4:
        return tag->writeLossDistance(KVDistanceNear, next);
      default:
        manager_->removeTracker(tag->mac());
        ++done_;
    }
  }

  const std::size_t count_;
  std::size_t done_ = 0;
  kvsim::SimulatedRadio radio_{{.seed = 1, .log = std::make_shared<kvbench::QuietLog>()}};
  std::vector<std::shared_ptr<kvsim::VirtualTag>> tags_;
  std::shared_ptr<KVTrackerManager> manager_;
  KVTrackers begun_;
};

void WholeRoad(benchmark::State& state) {
  const auto count = static_cast<std::size_t>(state.range(0));
  for (auto _ : state) {
    bool arrived = false;
    state.PauseTiming();
    {
      Crowd crowd(count);
      state.ResumeTiming();
      arrived = crowd.run();
      state.PauseTiming();
    }
    state.ResumeTiming();
    if (!arrived) {
      state.SkipWithError("not every tag came through");
      break;
    }
  }
  state.counters["perTag"] =
      benchmark::Counter(static_cast<double>(count), benchmark::Counter::kIsIterationInvariantRate |
                                                         benchmark::Counter::kInvert);
}

BENCHMARK(WholeRoad)->Arg(1)->Arg(10)->Arg(100)->Arg(1'000)->Unit(benchmark::kMillisecond);

}  // namespace
