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

Medium::Medium(SimulatedRadioOptions options, std::shared_ptr<KVEventQueue> queue,
               std::shared_ptr<VirtualEventQueue> clock)
    : options_(std::move(options)),
      queue_(std::move(queue)),
      clock_(std::move(clock)),
      start_(queue_->now()),
      rng_(options_.seed),
      adapterState_(options_.adapterState),
      advertiser_(*this) {}

KVEventQueue::TaskId Medium::postBackground(Duration delay, KVEventQueue::Task task) {
  if (clock_) return clock_->postBackground(delay, std::move(task));
  return queue_->postAfter(delay, std::move(task));
}

std::shared_ptr<Station> Medium::addStation(std::shared_ptr<VirtualTag> tag) {
  removeStation(tag);
  auto station = std::make_shared<Station>();
  station->serial = stations_.size();
  station->identifier = "sim-" + std::to_string(station->serial) + "-" + tag->address();
  station->loss = [](Duration) { return kDefaultLoss; };
  byTag_[tag.get()] = station;
  station->tag = std::move(tag);
  stations_.push_back(station);
  advertiser_.add(station->serial);
  return station;
}

void Medium::removeStation(const std::shared_ptr<VirtualTag>& tag) {
  const std::shared_ptr<Station> station = find(tag);
  if (!station) return;
  byTag_.erase(tag.get());
  station->onAir = false;
  if (const auto link = station->link.lock()) link->drop(Duration(0));
}

std::shared_ptr<Station> Medium::find(const std::shared_ptr<VirtualTag>& tag) const {
  const auto found = byTag_.find(tag.get());
  return found == byTag_.end() ? nullptr : found->second;
}

double Medium::signalOf(const Station& station) const {
  return station.tag->spec().transmitPower - station.loss(queue_->now() - start_);
}

bool Medium::audible(const Station& station) const {
  return station.onAir && station.inRange &&
         signalOf(station) >= static_cast<double>(options_.sensitivity);
}

std::int64_t Medium::rssiOf(const Station& station) {
  const double signal = std::clamp(signalOf(station), double{kWeakest}, double{kStrongest});
  std::int64_t rssi = std::llround(signal);
  if (const std::uint64_t jitter = options_.air.rssiJitter; jitter > 0) {
    rssi +=
        static_cast<std::int64_t>(rng_.below(2 * jitter + 1)) - static_cast<std::int64_t>(jitter);
  }
  return std::clamp(rssi, kWeakest, kStrongest);
}

void Medium::advertised(const std::shared_ptr<Station>& station) {
  const VirtualTag& tag = *station->tag;
  const bool silent = tag.state().connected && !tag.behaviour().advertisesWhileConnected;
  if (silent || !audible(*station)) return;
  if (options_.air.lost > 0 && rng_.unit() < options_.air.lost) return;
  const std::int64_t rssi = rssiOf(*station);
  const bool twice = options_.air.duplicated > 0 && rng_.unit() < options_.air.duplicated;
  deliverOwn(station, rssi);
  if (twice) deliverOwn(station, rssi);
}

void Medium::deliverOwn(const std::shared_ptr<Station>& station, std::int64_t rssi) {
  const KVAdvertisement::ServiceData data{VirtualTag::serviceDataUuid(),
                                          station->tag->advertisement()};
  deliver(station, {&data, 1}, rssi);
}

void Medium::deliver(const std::shared_ptr<Station>& station,
                     std::span<const KVAdvertisement::ServiceData> data,
                     std::optional<std::int64_t> rssi) {
  const KVAdvertisement advertisement{data};
  for (std::size_t i = 0; i < centrals_.size() && adapterOn(); ++i) {
    if (const auto central = centrals_[i].lock()) central->hear(station, advertisement, rssi);
  }
}

void Medium::setAdapterState(KVCentralState state) {
  if (std::exchange(adapterState_, state) == state) return;
  const std::vector<std::weak_ptr<CentralCore>> centrals = centrals_;
  for (const auto& weak : centrals) {
    if (const auto central = weak.lock()) central->adapterChanged();
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
