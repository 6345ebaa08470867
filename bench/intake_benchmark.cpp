// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// What it costs to take in one advertisement, with more and more tags known.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <array>

#include "KVFobLink/KVTrackerManager.h"
#include "KVFobLink/KVUtils.h"
#include "bench/allocations.h"
#include "bench/quiet_platform.h"

namespace {

using Frame = std::array<std::uint8_t, 11>;

// The service data of tag number `n`.
Frame frameOf(std::uint32_t n) {
  Frame frame{0xA1, 0x0B, 100, 0, 0, 0, 0, 0xC0, 0xDE, 0xF4, 3};
  for (std::size_t i = 0; i < 4; ++i) frame[3 + i] = static_cast<std::uint8_t>(n >> (8 * i));
  return frame;
}

// A manager, and tags around it.
class Crowd {
 public:
  explicit Crowd(std::uint32_t count)
      : manager_((KVPlatform::setCurrent(kvbench::quietPlatform()),
                  std::make_shared<KVTrackerManager>())) {
    manager_->startScan([this](const KVTrackers& trackers) { heard_ += trackers.size(); });
    for (std::uint32_t n = 0; n < count; ++n) {
      peripherals_.push_back(
          std::make_shared<kvbench::QuietPeripheral>("tag-" + std::to_string(n)));
      frames_.push_back(frameOf(n));
    }
  }

  // Has the manager know them all, each heard once.
  void meet(bool bound) {
    for (std::size_t n = 0; n < size(); ++n) {
      if (bound) {
        KVUtils::validateAdv(
            frames_[n], std::nullopt,
            [&](auto, auto, const auto& mac, auto, auto, auto) { manager_->addTracker(mac); });
      }
      hear(n);
    }
  }

  void hear(std::size_t n) {
    const KVAdvertisement::ServiceData entry{service_, frames_[n]};
    manager_->didDiscoverPeripheral(*manager_->central(), peripherals_[n], {{&entry, 1}}, -60);
  }

  std::size_t size() const { return frames_.size(); }

 private:
  const KVUUID service_{0xFFE1};
  std::size_t heard_ = 0;
  std::vector<std::shared_ptr<KVPeripheral>> peripherals_;
  std::vector<Frame> frames_;
  std::shared_ptr<KVTrackerManager> manager_;
};

// What the heap has handed out and not got back, with its own overhead.
std::size_t heapInUse() { return mallinfo2().uordblks + mallinfo2().hblkhd; }

// @param onAir  How many of the known tags are heard, in turn. With few, what is measured is the
//               look-up; with all of them, also the misses in a cache that cannot hold them.
void intake(benchmark::State& state, bool bound, std::size_t onAir) {
  Crowd crowd(static_cast<std::uint32_t>(state.range(0)));
  const std::size_t before = heapInUse();
  crowd.meet(bound);
  const std::size_t after = heapInUse();
  const std::size_t stride = crowd.size() / onAir;
  const std::size_t allocations = kvbench::allocations();
  std::size_t next = 0;
  for (auto _ : state) {
    crowd.hear(next * stride);
    next = (next + 1) % onAir;
  }
  state.counters["allocations"] =
      benchmark::Counter(static_cast<double>(kvbench::allocations() - allocations),
                         benchmark::Counter::kAvgIterations);
  state.counters["bytesPerTag"] =
      static_cast<double>(after - before) / static_cast<double>(crowd.size());
}

std::size_t known(const benchmark::State& state) {
  return static_cast<std::size_t>(state.range(0));
}

void HearUnboundTag(benchmark::State& state) { intake(state, /*bound=*/false, /*onAir=*/10); }
void HearBoundTag(benchmark::State& state) { intake(state, /*bound=*/true, /*onAir=*/10); }
void HearEveryUnboundTag(benchmark::State& state) { intake(state, /*bound=*/false, known(state)); }
void HearEveryBoundTag(benchmark::State& state) { intake(state, /*bound=*/true, known(state)); }

BENCHMARK(HearUnboundTag)->Arg(10)->Arg(1'000)->Arg(10'000)->Arg(100'000);
BENCHMARK(HearBoundTag)->Arg(10)->Arg(1'000)->Arg(10'000)->Arg(100'000);
BENCHMARK(HearEveryUnboundTag)->Arg(10)->Arg(1'000)->Arg(10'000)->Arg(100'000);
BENCHMARK(HearEveryBoundTag)->Arg(10)->Arg(1'000)->Arg(10'000)->Arg(100'000);

}  // namespace
