#include "simulator/radio/advertiser.h"

#include <algorithm>
#include <tuple>

#include "simulator/radio/medium.h"

namespace kvsim {
namespace {

/// Advertisements start on this grid (Bluetooth Core Specification, Vol 6, Part B, 4.4.2), so that
/// in a crowd one task of the queue serves many.
constexpr std::chrono::nanoseconds kGrid = std::chrono::microseconds(625);

}  // namespace

bool Advertiser::later(const Turn& a, const Turn& b) {
  return std::tie(a.due, a.serial) > std::tie(b.due, b.serial);
}

std::chrono::nanoseconds Advertiser::now() const { return medium_.queue()->now(); }

void Advertiser::push(std::chrono::nanoseconds due, std::size_t serial) {
  turns_.push_back({(due + kGrid - std::chrono::nanoseconds(1)) / kGrid * kGrid, serial});
  std::push_heap(turns_.begin(), turns_.end(), later);
}

void Advertiser::start() {
  stop();
  if (medium_.options().advertisingInterval <= std::chrono::nanoseconds(0)) return;
  running_ = true;
  for (const auto& station : medium_.stations()) {
    if (station->onAir) place(station->serial);
  }
  schedule();
}

void Advertiser::stop() {
  ++run_;
  running_ = false;
  turns_.clear();
  cancelAlarm();
}

void Advertiser::add(std::size_t serial) {
  if (!running_) return;
  place(serial);
  schedule();
}

void Advertiser::place(std::size_t serial) {
  const auto interval = static_cast<std::uint64_t>(medium_.options().advertisingInterval.count());
  const auto phase = static_cast<std::int64_t>(medium_.rng().below(interval));
  push(now() + std::chrono::nanoseconds(phase), serial);
}

void Advertiser::cancelAlarm() {
  if (alarmAt_) medium_.queue()->cancel(alarm_);
  alarmAt_.reset();
}

void Advertiser::schedule() {
  if (turns_.empty() || (alarmAt_ && *alarmAt_ <= turns_.front().due)) return;
  cancelAlarm();
  alarmAt_ = turns_.front().due;
  alarm_ = medium_.postBackground(*alarmAt_ - now(), [weak = medium_.weak_from_this(), this] {
    if (const auto medium = weak.lock()) turn();
  });
}

void Advertiser::turn() {
  alarmAt_.reset();
  const std::uint64_t run = run_;
  const std::chrono::nanoseconds until = now();
  while (run == run_ && !turns_.empty() && turns_.front().due <= until) {
    std::pop_heap(turns_.begin(), turns_.end(), later);
    const Turn turn = turns_.back();
    turns_.pop_back();
    const std::shared_ptr<Station> station = medium_.stations()[turn.serial];
    if (!station->onAir) continue;
    const SimulatedRadioOptions& options = medium_.options();
    const auto spread = static_cast<std::uint64_t>(options.advertisingDelay.count()) + 1;
    const auto delay = static_cast<std::int64_t>(medium_.rng().below(spread));
    push(turn.due + options.advertisingInterval + std::chrono::nanoseconds(delay), turn.serial);
    medium_.advertised(station);
  }
  if (run == run_) schedule();
}

}  // namespace kvsim
