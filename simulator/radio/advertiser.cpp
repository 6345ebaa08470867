// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "simulator/radio/advertiser.h"

#include "simulator/radio/medium.h"

namespace kvsim {
namespace {

// Advertisements start on this grid (Bluetooth Core Specification, Vol 6, Part B, 4.4.2), so that
// in a crowd one task of the queue serves many.
constexpr std::chrono::nanoseconds kGrid = std::chrono::microseconds(625);

std::chrono::nanoseconds onGrid(std::chrono::nanoseconds time) {
  return (time + kGrid - std::chrono::nanoseconds(1)) / kGrid * kGrid;
}

}  // namespace

void Advertiser::start() {
  stop();
  if (medium_.options().advertisingInterval <= std::chrono::nanoseconds(0)) return;
  running_ = true;
  for (const auto& device : medium_.devices()) place(device);
  schedule();
}

void Advertiser::stop() {
  running_ = false;
  events_.clear();
  cancelAlarm();
}

void Advertiser::add(const std::shared_ptr<RadioDevice>& device) {
  if (!running_) return;
  place(device);
  schedule();
}

void Advertiser::remove(const RadioDevice& device) {
  events_.erase({device.nextEvent, device.serial});
}

void Advertiser::place(const std::shared_ptr<RadioDevice>& device) {
  const auto interval = static_cast<std::uint64_t>(medium_.options().advertisingInterval.count());
  const auto phase = static_cast<std::int64_t>(medium_.rng().below(interval));
  device->nextEvent = onGrid(medium_.now() + std::chrono::nanoseconds(phase));
  events_.emplace(Event(device->nextEvent, device->serial), device);
}

void Advertiser::cancelAlarm() {
  if (alarmAt_) medium_.cancel(alarm_);
  alarmAt_.reset();
}

void Advertiser::schedule() {
  if (events_.empty()) return;
  const std::chrono::nanoseconds first = events_.begin()->first.first;
  if (alarmAt_ && *alarmAt_ <= first) return;
  cancelAlarm();
  alarmAt_ = first;
  alarm_ = medium_.postBackground(first - medium_.now(), [weak = medium_.weak_from_this(), this] {
    if (const auto medium = weak.lock()) advertiseDue();
  });
}

// A delegate that gets a report may end the scan, start another or take tags off the air, so the
// first event is looked up again each time.
void Advertiser::advertiseDue() {
  alarmAt_.reset();
  const SimulatedRadioOptions& options = medium_.options();
  const auto spread = static_cast<std::uint64_t>(options.advertisingDelay.count()) + 1;
  const std::chrono::nanoseconds until = medium_.now();
  while (!events_.empty() && events_.begin()->first.first <= until) {
    auto event = events_.extract(events_.begin());
    const std::shared_ptr<RadioDevice> device = event.mapped();
    const auto delay = static_cast<std::int64_t>(medium_.rng().below(spread));
    device->nextEvent =
        onGrid(device->nextEvent + options.advertisingInterval + std::chrono::nanoseconds(delay));
    event.key().first = device->nextEvent;
    events_.insert(std::move(event));
    medium_.advertised(device);
  }
  schedule();
}

}  // namespace kvsim
