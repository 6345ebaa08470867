// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// What it costs to draw the program's live table once, which it does ten times a second.
#include <benchmark/benchmark.h>

#include "KVFobLink/KVTracker.h"
#include "KVFobLink/KVTrackerTypes.h"
#include "apps/kvfob/scan/scan_view.h"
#include "apps/kvfob/scan/tag_list.h"
#include "apps/kvfob/terminal/screen.h"
#include "bench/quiet_platform.h"

namespace {

using namespace std::chrono_literals;
using namespace kvfob;

// So many tags, of which a tenth is heard between two drawings.
class Crowd {
 public:
  explicit Crowd(std::size_t count) {
    KVPlatform::setCurrent(kvbench::quietPlatform());
    for (std::size_t i = 0; i < count; ++i) {
      const auto number = std::to_string(i);
      auto tracker = std::make_shared<KVTracker>();
      tracker->updateData(KVTrackerDataMac, std::string(12 - number.size(), 'c') + number);
      tracker->updateData(KVTrackerDataModel, std::int64_t{3});
      trackers_.push_back(std::move(tracker));
    }
    for (int i = 0; i < 10; ++i) hearSome();
  }

  void hearSome() {
    now_ += 100ms;
    for (std::size_t i = turn_++ % 10; i < trackers_.size(); i += 10) {
      const auto rssi = -40 - static_cast<std::int64_t>((i * 7 + turn_ * 3) % 60);
      trackers_[i]->updateData(KVTrackerDataRssi, rssi);
      trackers_[i]->updateData(KVTrackerDataAdvUpdate, now_);
    }
  }

  const auto& trackers() const { return trackers_; }
  std::chrono::system_clock::time_point now() const { return now_; }

 private:
  std::vector<std::shared_ptr<KVTracker>> trackers_;
  std::chrono::system_clock::time_point now_{1h};
  std::size_t turn_ = 0;
};

// Taking in all tags, sorting them, drawing them and finding out what to write: the worst of the
// ten times, as the others do not sort.
void DrawScan(benchmark::State& state) {
  Crowd crowd(static_cast<std::size_t>(state.range(0)));
  TagList list([](TagRow& row) { row.name = row.address.back() == '7' ? "keys" : ""; });
  const Look look{.width = 120, .height = 40, .color = true};
  std::vector<std::string> shown;
  std::size_t written = 0;
  for (auto _ : state) {
    state.PauseTiming();
    crowd.hearSome();
    state.ResumeTiming();
    for (const auto& tracker : crowd.trackers()) {
      list.take(*tracker, std::chrono::duration_cast<std::chrono::milliseconds>(
                              crowd.now().time_since_epoch()));
    }
    list.arrange(SortBy::Rssi, "");
    ScanView view;
    view.rows = {.tags = list.shown(), .now = crowd.now(), .selected = list.selected()};
    view.heard = list.size();
    auto lines = drawScan(view, look);
    written += difference(shown, lines).size();
    shown = std::move(lines);
  }
  state.counters["bytesWritten"] =
      benchmark::Counter(static_cast<double>(written), benchmark::Counter::kAvgIterations);
}

BENCHMARK(DrawScan)->Arg(10)->Arg(2'000)->Unit(benchmark::kMicrosecond);

}  // namespace
