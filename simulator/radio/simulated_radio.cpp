// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "KVFobSimulator/SimulatedRadio.h"

#include <cstdio>
#include <cstdlib>
#include <mutex>

#include "KVFobLink/KVLinuxPlatform.h"
#include "simulator/radio/central.h"
#include "simulator/radio/medium.h"

namespace kvsim {
namespace {

constexpr std::uint64_t kPlatformStream = 1;
constexpr double kNoLoss = 0;

class SeededRandom final : public KVRandom {
 public:
  explicit SeededRandom(std::uint64_t seed) : rng_(seed, kPlatformStream) {}

  void fill(std::span<std::uint8_t> bytes) override {
    const std::lock_guard lock(mutex_);
    rng_.fill(bytes);
  }

 private:
  std::mutex mutex_;
  Rng rng_;
};

class Radio final : public KVRadio {
 public:
  Radio(std::shared_ptr<Medium> medium, std::shared_ptr<KVLog> log)
      : medium_(std::move(medium)), log_(std::move(log)) {}

  std::shared_ptr<KVCentral> makeCentral(KVCentralDelegate& delegate,
                                         const std::shared_ptr<KVEventQueue>& queue) override {
    if (!medium_->runsOn(queue)) {
      log_->write("simulated radio: the events of a central arrive on the radio's own queue");
    }
    return std::make_shared<SimulatedCentral>(std::make_shared<CentralCore>(medium_, delegate));
  }

 private:
  const std::shared_ptr<Medium> medium_;
  const std::shared_ptr<KVLog> log_;
};

}  // namespace

class SimulatedRadio::World {
 public:
  explicit World(const SimulatedRadioOptions& options)
      : platform_(std::make_shared<KVPlatform>(*KVLinuxPlatform::make())) {
    if (options.clock == ClockKind::Virtual) {
      clock_ = std::make_shared<VirtualEventQueue>();
      platform_->eventQueue = clock_;
      platform_->timers = clock_->timers();
      platform_->clock = clock_->clock();
    }
    if (options.log) platform_->log = options.log;
    platform_->random = std::make_shared<SeededRandom>(options.seed);
    medium_ = std::make_shared<Medium>(options, platform_->eventQueue, clock_);
    platform_->radio = std::make_shared<Radio>(medium_, platform_->log);
  }

  const std::shared_ptr<KVPlatform>& platform() const { return platform_; }
  Medium& medium() const { return *medium_; }
  VirtualEventQueue* clock() const { return clock_.get(); }

  // Posts work on a tag's device; nothing if the tag is not on the air.
  template <typename Function>
  void postFor(const std::shared_ptr<VirtualTag>& tag, Function function) const {
    medium_->postFor(medium_, Medium::Duration(0),
                     [device = medium_->find(tag), function = std::move(function)](Medium& medium) {
                       if (device) function(medium, device);
                     });
  }

 private:
  std::shared_ptr<VirtualEventQueue> clock_;
  std::shared_ptr<KVPlatform> platform_;
  std::shared_ptr<Medium> medium_;
};

SimulatedRadio::SimulatedRadio(const SimulatedRadioOptions& options)
    : world_(std::make_unique<World>(options)) {}

SimulatedRadio::~SimulatedRadio() = default;

std::shared_ptr<KVPlatform> SimulatedRadio::platform() const { return world_->platform(); }

KVEventQueue& SimulatedRadio::queue() const { return *world_->platform()->eventQueue; }

VirtualEventQueue& SimulatedRadio::clock() const {
  if (world_->clock() == nullptr) {
    std::fputs("KVFobSimulator: a radio with a real clock has no virtual one\n", stderr);
    std::abort();
  }
  return *world_->clock();
}

std::shared_ptr<VirtualTag> SimulatedRadio::addTag(TagSpec spec, TagBehaviour behaviour) {
  auto rng = std::make_shared<Rng>(world_->medium().tagSeed());
  auto tag =
      std::make_shared<VirtualTag>(std::move(spec), std::move(behaviour),
                                   [rng](std::span<std::uint8_t> bytes) { rng->fill(bytes); });
  placeTag(tag);
  return tag;
}

void SimulatedRadio::placeTag(const std::shared_ptr<VirtualTag>& tag) {
  if (tag) world_->medium().addDevice(tag);
}

void SimulatedRadio::removeTag(const std::shared_ptr<VirtualTag>& tag) {
  world_->medium().removeDevice(tag);
}

std::size_t SimulatedRadio::tagCount() const { return world_->medium().deviceCount(); }

void SimulatedRadio::setPathLoss(const std::shared_ptr<VirtualTag>& tag, PathLoss loss) {
  const auto device = world_->medium().find(tag);
  if (!loss) loss = [](std::chrono::nanoseconds) { return kNoLoss; };
  if (device) device->loss = std::move(loss);
}

void SimulatedRadio::setRssi(const std::shared_ptr<VirtualTag>& tag, std::int64_t rssi) {
  if (!tag) return;
  const double loss = static_cast<double>(tag->spec().transmitPower - rssi);
  setPathLoss(tag, [loss](std::chrono::nanoseconds) { return loss; });
}

void SimulatedRadio::setInRange(const std::shared_ptr<VirtualTag>& tag, bool inRange) {
  if (const auto device = world_->medium().find(tag)) device->inRange = inRange;
}

void SimulatedRadio::setAir(const Air& air) { world_->medium().setAir(air); }

void SimulatedRadio::advertise(const std::shared_ptr<VirtualTag>& tag) {
  world_->postFor(tag, [](Medium& medium, const std::shared_ptr<RadioDevice>& device) {
    medium.deliverOwn(device, medium.rssiOf(*device));
  });
}

void SimulatedRadio::advertise(const std::shared_ptr<VirtualTag>& tag,
                               std::vector<RawServiceData> serviceData,
                               std::optional<std::int64_t> rssi) {
  world_->postFor(tag, [serviceData = std::move(serviceData), rssi](
                           Medium& medium, const std::shared_ptr<RadioDevice>& device) {
    std::vector<KVAdvertisement::ServiceData> entries;
    for (const RawServiceData& entry : serviceData) entries.push_back({entry.uuid, entry.value});
    medium.deliver(device, entries, rssi);
  });
}

void SimulatedRadio::dropLink(const std::shared_ptr<VirtualTag>& tag) {
  world_->postFor(tag, [](Medium&, const std::shared_ptr<RadioDevice>& device) {
    if (const auto link = device->link.lock()) link->lose();
  });
}

void SimulatedRadio::setAdapterState(KVCentralState state) {
  Medium& medium = world_->medium();
  medium.postFor(medium.shared_from_this(), Medium::Duration(0),
                 [state](Medium& self) { self.setAdapterState(state); });
}

}  // namespace kvsim
