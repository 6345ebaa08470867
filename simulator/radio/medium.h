#ifndef SIMULATOR_RADIO_MEDIUM_H
#define SIMULATOR_RADIO_MEDIUM_H

#include <string>
#include <unordered_map>

#include "KVFobSimulator/SimulatedRadio.h"
#include "simulator/radio/advertiser.h"
#include "simulator/rng.h"

namespace kvsim {

class CentralCore;
class SimulatedPeripheral;

/// A tag on the air, under one radio identity.
struct Station {
  std::shared_ptr<VirtualTag> tag;
  std::size_t serial = 0;  // its index among the medium's stations
  std::string identifier;
  PathLoss loss;
  bool onAir = true;
  bool inRange = true;
  std::weak_ptr<SimulatedPeripheral> link;  // whoever is connected to it
};

/// What everyone on one radio shares: the time, the tags, the adapter, chance. Event thread, but
/// for `post` and the constants.
class Medium : public std::enable_shared_from_this<Medium> {
 public:
  using Duration = std::chrono::nanoseconds;
  using Stations = std::vector<std::shared_ptr<Station>>;

  /// @param clock  The queue again if it is a virtual one, else null.
  Medium(SimulatedRadioOptions options, std::shared_ptr<KVEventQueue> queue,
         std::shared_ptr<VirtualEventQueue> clock);

  const SimulatedRadioOptions& options() const { return options_; }
  const std::shared_ptr<KVEventQueue>& queue() const { return queue_; }
  Rng& rng() { return rng_; }

  /// Posts work that keeps nothing waiting; see `VirtualEventQueue::postBackground`.
  KVEventQueue::TaskId postBackground(Duration delay, KVEventQueue::Task task);

  // Tags.
  std::shared_ptr<Station> addStation(std::shared_ptr<VirtualTag> tag);
  void removeStation(const std::shared_ptr<VirtualTag>& tag);
  std::shared_ptr<Station> find(const std::shared_ptr<VirtualTag>& tag) const;
  const Stations& stations() const { return stations_; }
  std::size_t onAirCount() const { return byTag_.size(); }
  std::uint64_t tagSeed() { return rng_.next(); }

  // The air.
  void setAir(const Air& air) { options_.air = air; }
  std::int64_t rssiOf(const Station& station);
  bool audible(const Station& station) const;
  /// One advertisement as it falls due: lost, heard, or heard twice.
  void advertised(const std::shared_ptr<Station>& station);
  void deliver(const std::shared_ptr<Station>& station,
               std::span<const KVAdvertisement::ServiceData> data,
               std::optional<std::int64_t> rssi);
  void deliverOwn(const std::shared_ptr<Station>& station, std::int64_t rssi);

  // The adapter and its centrals.
  KVCentralState adapterState() const { return adapterState_; }
  bool adapterOn() const { return adapterState_ == KVCentralStatePoweredOn; }
  void setAdapterState(KVCentralState state);
  void addCentral(std::weak_ptr<CentralCore> central);
  /// Whether tags need to be heard has changed.
  void scansChanged();

 private:
  double signalOf(const Station& station) const;

  SimulatedRadioOptions options_;
  const std::shared_ptr<KVEventQueue> queue_;
  const std::shared_ptr<VirtualEventQueue> clock_;
  const Duration start_;
  Rng rng_;
  KVCentralState adapterState_;
  Stations stations_;
  std::unordered_map<const VirtualTag*, std::shared_ptr<Station>> byTag_;
  std::vector<std::weak_ptr<CentralCore>> centrals_;
  Advertiser advertiser_;
};

/// Posts a task that is dropped if `object` is gone by then, and else keeps it alive while it runs.
template <typename Object, typename Function>
void postFor(KVEventQueue& queue, const std::shared_ptr<Object>& object, Medium::Duration delay,
             Function function) {
  queue.postAfter(delay, [weak = std::weak_ptr<Object>(object), function = std::move(function)] {
    if (const std::shared_ptr<Object> alive = weak.lock()) function(*alive);
  });
}

}  // namespace kvsim

#endif  // SIMULATOR_RADIO_MEDIUM_H
