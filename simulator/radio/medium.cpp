// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "simulator/radio/medium.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "simulator/radio/central.h"

namespace kvsim {
namespace {

// What a radio can report (Bluetooth Core Specification, Vol 4, Part E, 7.5.4).
constexpr std::int64_t kWeakest = -127;
constexpr std::int64_t kStrongest = 20;
constexpr double kDefaultLoss = 50;

}  // namespace

Medium::Medium(SimulatedRadioOptions options, const std::shared_ptr<KVEventQueue>& queue,
               const std::shared_ptr<VirtualEventQueue>& clock)
    : options_(std::move(options)),
      queue_(queue),
      clock_(clock),
      start_(queue->now()),
      rng_(options_.seed),
      adapterState_(options_.adapterState),
      advertiser_(*this) {}

Medium::Duration Medium::now() const {
  const auto queue = queue_.lock();
  return queue ? queue->now() : start_;
}

void Medium::post(Duration delay, KVEventQueue::Task task) {
  if (const auto queue = queue_.lock()) queue->postAfter(delay, std::move(task));
}

KVEventQueue::TaskId Medium::postBackground(Duration delay, KVEventQueue::Task task) {
  if (const auto clock = clock_.lock()) return clock->postBackground(delay, std::move(task));
  const auto queue = queue_.lock();
  return queue ? queue->postAfter(delay, std::move(task)) : 0;
}

void Medium::cancel(KVEventQueue::TaskId task) {
  if (const auto queue = queue_.lock()) queue->cancel(task);
}

void Medium::addDevice(std::shared_ptr<VirtualTag> tag) {
  removeDevice(tag);
  auto device = std::make_shared<RadioDevice>();
  device->serial = ++lastSerial_;
  device->identifier = "sim-" + std::to_string(device->serial) + "-" + tag->address();
  device->loss = [](Duration) { return kDefaultLoss; };
  devices_[tag.get()] = device;
  device->tag = std::move(tag);
  advertiser_.add(device);
}

void Medium::removeDevice(const std::shared_ptr<VirtualTag>& tag) {
  const std::shared_ptr<RadioDevice> device = find(tag);
  if (!device) return;
  devices_.erase(tag.get());
  device->onAir = false;
  advertiser_.remove(*device);
  postFor(shared_from_this(), Duration(0), [device](Medium& self) { self.endDevice(*device); });
}

// The device will not come back, so nobody needs to know it any more once its link has ended.
void Medium::endDevice(const RadioDevice& device) {
  if (const auto link = device.link.lock()) link->lose();
  for (std::size_t i = 0; i < centrals_.size(); ++i) {
    if (const auto central = centrals_[i].lock()) central->forget(device);
  }
}

std::shared_ptr<RadioDevice> Medium::find(const std::shared_ptr<VirtualTag>& tag) const {
  const auto found = devices_.find(tag.get());
  return found == devices_.end() ? nullptr : found->second;
}

std::vector<std::shared_ptr<RadioDevice>> Medium::devices() const {
  std::vector<std::shared_ptr<RadioDevice>> all;
  all.reserve(devices_.size());
  for (const auto& [tag, device] : devices_) all.push_back(device);
  std::ranges::sort(all, {}, [](const auto& device) { return device->serial; });
  return all;
}

double Medium::signalOf(const RadioDevice& device) const {
  return device.tag->spec().transmitPower - device.loss(now() - start_);
}

bool Medium::reachable(const RadioDevice& device) const {
  return device.onAir && device.inRange &&
         signalOf(device) >= static_cast<double>(options_.sensitivity);
}

std::int64_t Medium::rssiOf(const RadioDevice& device) {
  const double signal = std::clamp(signalOf(device), double{kWeakest}, double{kStrongest});
  const std::int64_t jitter = options_.air.rssiJitter;
  const auto spread = static_cast<std::int64_t>(
      rng_.below(2 * static_cast<std::uint64_t>(options_.air.rssiJitter) + 1));
  const std::int64_t exact = std::llround(signal);
  return std::clamp(exact - jitter + spread, kWeakest, kStrongest);
}

void Medium::advertised(const std::shared_ptr<RadioDevice>& device) {
  const VirtualTag& tag = *device->tag;
  const bool silent = tag.state().connected && !tag.behaviour().advertisesWhileConnected;
  if (silent || !reachable(*device)) return;
  if (rng_.unit() < options_.air.lost) return;
  const std::int64_t rssi = rssiOf(*device);
  const bool twice = rng_.unit() < options_.air.duplicated;
  deliverOwn(device, rssi);
  if (twice) deliverOwn(device, rssi);
}

void Medium::deliverOwn(const std::shared_ptr<RadioDevice>& device, std::int64_t rssi) {
  const KVAdvertisement::ServiceData data{VirtualTag::serviceDataUuid(),
                                          device->tag->advertisement()};
  deliver(device, {&data, 1}, rssi);
}

void Medium::deliver(const std::shared_ptr<RadioDevice>& device,
                     std::span<const KVAdvertisement::ServiceData> data,
                     std::optional<std::int64_t> rssi) {
  const KVAdvertisement advertisement{data};
  for (std::size_t i = 0; i < centrals_.size(); ++i) {
    if (const auto central = centrals_[i].lock()) central->report(device, advertisement, rssi);
  }
}

void Medium::setAdapterState(KVCentralState state) {
  if (std::exchange(adapterState_, state) == state) return;
  for (std::size_t i = 0; i < centrals_.size(); ++i) {
    if (const auto central = centrals_[i].lock()) central->adapterChanged();
  }
  scansChanged();
}

void Medium::addCentral(std::weak_ptr<CentralCore> central) {
  std::erase_if(centrals_, [](const auto& weak) { return weak.expired(); });
  centrals_.push_back(std::move(central));
}

void Medium::scansChanged() {
  const bool wanted = std::ranges::any_of(centrals_, [](const auto& weak) {
    const auto central = weak.lock();
    return central && central->scanning();
  });
  if (wanted == advertiser_.running()) return;
  if (wanted) {
    advertiser_.start();
  } else {
    advertiser_.stop();
  }
}

}  // namespace kvsim
