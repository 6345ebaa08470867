// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

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

/// A tag on the air, under one radio address.
struct RadioDevice {
  std::shared_ptr<VirtualTag> tag;
  std::size_t serial = 0;  // counts all that ever came
  std::string identifier;
  PathLoss loss;
  bool onAir = true;
  bool inRange = true;
  std::chrono::nanoseconds nextEvent{0};    // the advertiser's
  std::weak_ptr<SimulatedPeripheral> link;  // whoever is connected to it
};

/// What everyone on one radio shares: the time, the tags, the adapter, chance. Event thread, but
/// for `post` and the constants.
///
/// It does not own the event queue: a task may own a central or a peripheral, and they own this.
/// Once the queue is gone nothing happens here any more.
class Medium : public std::enable_shared_from_this<Medium> {
 public:
  using Duration = std::chrono::nanoseconds;

  /// @param clock  The queue again if it is a virtual one, else null.
  Medium(SimulatedRadioOptions options, const std::shared_ptr<KVEventQueue>& queue,
         const std::shared_ptr<VirtualEventQueue>& clock);

  const SimulatedRadioOptions& options() const { return options_; }
  Rng& rng() { return rng_; }

  // Time.
  bool runsOn(const std::shared_ptr<KVEventQueue>& queue) const { return queue == queue_.lock(); }
  Duration now() const;
  void post(Duration delay, KVEventQueue::Task task);
  /// Posts work that keeps nothing waiting; see `VirtualEventQueue::postBackground`. 0 without a
  /// queue.
  KVEventQueue::TaskId postBackground(Duration delay, KVEventQueue::Task task);
  void cancel(KVEventQueue::TaskId task);
  /// Posts a task that is dropped if `object` is gone by then, and else keeps it alive while it
  /// runs.
  template <typename Object, typename Function>
  void postFor(const std::shared_ptr<Object>& object, Duration delay, Function function) {
    post(delay, [weak = std::weak_ptr<Object>(object), function = std::move(function)] {
      if (const std::shared_ptr<Object> alive = weak.lock()) function(*alive);
    });
  }

  // Tags.
  void addDevice(std::shared_ptr<VirtualTag> tag);
  void removeDevice(const std::shared_ptr<VirtualTag>& tag);
  std::shared_ptr<RadioDevice> find(const std::shared_ptr<VirtualTag>& tag) const;
  /// All that are on the air, in the order in which they came.
  std::vector<std::shared_ptr<RadioDevice>> devices() const;
  std::size_t deviceCount() const { return devices_.size(); }
  std::uint64_t tagSeed() { return rng_.next(); }

  // The air.
  void setAir(const Air& air) { options_.air = air; }
  std::int64_t rssiOf(const RadioDevice& device);
  /// Whether what the device sends is received, and the other way round.
  bool reachable(const RadioDevice& device) const;
  /// One advertisement as it falls due: lost, received, or received twice.
  void advertised(const std::shared_ptr<RadioDevice>& device);
  void deliver(const std::shared_ptr<RadioDevice>& device,
               std::span<const KVAdvertisement::ServiceData> data,
               std::optional<std::int64_t> rssi);
  void deliverOwn(const std::shared_ptr<RadioDevice>& device, std::int64_t rssi);

  // The adapter and its centrals.
  KVCentralState adapterState() const { return adapterState_; }
  bool adapterOn() const { return adapterState_ == KVCentralStatePoweredOn; }
  void setAdapterState(KVCentralState state);
  void addCentral(std::weak_ptr<CentralCore> central);
  /// Whether anybody scans may have changed.
  void scansChanged();

 private:
  double signalOf(const RadioDevice& device) const;
  void endDevice(const RadioDevice& device);

  SimulatedRadioOptions options_;
  const std::weak_ptr<KVEventQueue> queue_;
  const std::weak_ptr<VirtualEventQueue> clock_;
  const Duration start_;
  Rng rng_;
  KVCentralState adapterState_;
  std::unordered_map<const VirtualTag*, std::shared_ptr<RadioDevice>> devices_;
  std::size_t lastSerial_ = 0;
  std::vector<std::weak_ptr<CentralCore>> centrals_;
  Advertiser advertiser_;
};

}  // namespace kvsim

#endif  // SIMULATOR_RADIO_MEDIUM_H
