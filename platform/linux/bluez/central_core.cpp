// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "platform/linux/bluez/central_core.h"

#include <algorithm>
#include <utility>

namespace kv {

CentralCore::CentralCore(KVCentral& central, KVCentralDelegate& delegate, WeakLinuxQueue queue,
                         const KVBlueZOptions& options, const BlueZTiming& timing,
                         std::shared_ptr<KVLog> log, std::shared_ptr<HciSockets> sockets)
    : central_(&central),
      delegate_(&delegate),
      context_{std::move(queue), std::move(log), options, timing},
      daemon_(context_, *this, [this] { updateAdapter(); }),
      scan_(context_),
      rssi_(context_, std::move(sockets)),
      noAdapter_(context_.queue) {
  context_.daemon = &daemon_;
}

void CentralCore::start() {
  if (*context_.open) daemon_.start(weak_from_this());
}

void CentralCore::close() {
  *context_.open = false;
  // No answer is waited for; the daemon carries these out after we have left the bus.
  scan_.close();
  for (const auto& [address, link] : links_) link->close();
}

void CentralCore::post(std::function<void(CentralCore&)> task) {
  context_.queue.post([weak = weak_from_this(), task = std::move(task)] {
    const auto self = weak.lock();
    if (self && *self->context_.open) task(*self);
  });
}

// ---- The adapter

const AdapterObject* CentralCore::chooseAdapter() const {
  const std::string& wanted = context_.options.adapter;
  const AdapterObject* best = nullptr;
  for (const auto& [path, adapter] : daemon_.tree().adapters()) {
    if (!wanted.empty()) {
      if (adapter.isNamed(wanted)) return &adapter;
    } else if (path == adapterPath_) {
      return &adapter;
    } else if (best == nullptr || (adapter.powered && !best->powered)) {
      best = &adapter;
    }
  }
  return best;
}

void CentralCore::adaptersChanged() {
  // While the list is being loaded the adapters are not complete.
  if (daemon_.state() == Daemon::State::Ready) updateAdapter();
}

void CentralCore::updateAdapter() {
  const AdapterObject* adapter =
      daemon_.state() == Daemon::State::Ready ? chooseAdapter() : nullptr;
  if (adapter != nullptr) {
    noAdapter_.cancel();
    everReady_ = true;
    adapterPath_ = adapter->path;
    if (adapterOn_ != adapterPath_ && !adapterOn_.empty()) announce(KVCentralStateResetting);
    announce(adapter->powered ? KVCentralStatePoweredOn : KVCentralStatePoweredOff);
    setAdapter(adapter->powered ? adapterPath_ : "");
    scan_.setDiscovering(adapter->discovering);
    return;
  }
  if (daemon_.state() == Daemon::State::Ready) {
    // A daemon that has just started, or an adapter that is reset, has none for a moment.
    if (everReady_ && announced_ != KVCentralStateUnsupported) announce(KVCentralStateResetting);
    if (!noAdapter_.pending()) {
      noAdapter_.set(context_.timing.noAdapterGrace, [this] {
        context_.log("there is no adapter");
        announce(KVCentralStateUnsupported);
      });
    }
  } else if (daemon_.state() == Daemon::State::Denied) {
    announce(KVCentralStateUnauthorized);
  } else {
    noAdapter_.cancel();
    announce(everReady_ ? KVCentralStateResetting : KVCentralStateUnknown);
  }
  setAdapter("");
}

// Called after the state has been announced, so that the disconnections follow it.
void CentralCore::setAdapter(const std::string& pathWhenOn) {
  if (pathWhenOn == adapterOn_) return;
  const bool wasOn = !adapterOn_.empty();
  adapterOn_ = pathWhenOn;
  if (wasOn) {
    userScan_ = false;
    rssi_.reset();
    for (const auto& [address, link] : links_) link->adapterLost();
  }
  scan_.setAdapter(adapterOn_);
  updateScan();
  if (!adapterOn_.empty()) {
    for (const auto& [address, link] : links_) link->adapterOn();
  }
}

void CentralCore::announce(std::int64_t state) {
  if (announced_ == state) return;
  announced_ = state;
  post([state](CentralCore& self) {
    self.state_ = state;
    self.delegate_->centralManagerDidUpdateState(*self.central_);
  });
}

// ---- The scan

void CentralCore::scan(std::span<const KVUUID> services, bool allowDuplicates) {
  if (adapterOn_.empty()) return;
  userScan_ = true;
  scanServices_.assign(services.begin(), services.end());
  scanDuplicates_ = allowDuplicates;
  scanReported_.clear();
  updateScan();
  post([](CentralCore& self) { self.reportConnectedDevices(); });
}

// A link outlives the process that made it, and a tag that is connected does not advertise: it
// could never be found again. So a scan for its service begins with what it last advertised.
void CentralCore::reportConnectedDevices() {
  if (!userScan_ || scanServices_.empty()) return;
  for (DeviceObject* device : daemon_.tree().connectedDevices(adapterOn_)) {
    if (*context_.open && userScan_ && !device->serviceData.empty() &&
        findLink(device->address) == nullptr && wantedByScan(*device)) {
      deliverAdvertisement(*device, std::nullopt);
    }
  }
}

void CentralCore::stopScan() {
  userScan_ = false;
  updateScan();
}

void CentralCore::updateScan() {
  const bool linkWaits = std::any_of(links_.begin(), links_.end(), [](const auto& each) {
    return each.second->waitsForAdvertisement();
  });
  scan_.setWanted(userScan_ || linkWaits);
}

void CentralCore::advertisementsWantedChanged() { updateScan(); }

void CentralCore::deviceHeard(DeviceObject& device) {
  scan_.heard();
  if (device.adapter != adapterOn_) return;
  if (!links_.empty()) {
    if (Link* link = findLink(device.address)) link->deviceHeard();
  }
  if (userScan_ && state_ == KVCentralStatePoweredOn && wantedByScan(device)) {
    deliverAdvertisement(device, device.rssi);
  }
}

bool CentralCore::wantedByScan(const DeviceObject& device) {
  const auto offered = [&](const KVUUID& wanted) {
    return std::any_of(device.serviceData.begin(), device.serviceData.end(),
                       [&](const auto& entry) { return entry.uuid == wanted; }) ||
           std::find(device.uuids.begin(), device.uuids.end(), wanted) != device.uuids.end();
  };
  return (scanServices_.empty() ||
          std::any_of(scanServices_.begin(), scanServices_.end(), offered)) &&
         (scanDuplicates_ || scanReported_.insert(device.address).second);
}

void CentralCore::deliverAdvertisement(DeviceObject& device, std::optional<std::int64_t> rssi) {
  advertisement_.clear();
  for (const auto& [uuid, value] : device.serviceData) advertisement_.push_back({uuid, value});
  const auto handle = handleOf(device);
  // The last thing that is done with the signal: the delegate may drop everything.
  delegate_->didDiscoverPeripheral(*central_, handle, {advertisement_}, rssi);
}

const std::shared_ptr<BlueZPeripheral>& CentralCore::handleOf(DeviceObject& device) {
  if (!device.handle) {
    auto& known = handles_[device.address];
    device.handle = known.lock();
    if (!device.handle) {
      device.handle =
          std::make_shared<BlueZPeripheral>(device.address, weak_from_this(), context_.queue);
      known = device.handle;
    }
  }
  return device.handle;
}

void CentralCore::deviceRemoved(DeviceObject& device) {
  if (Link* link = device.adapter == adapterOn_ ? findLink(device.address) : nullptr) {
    link->deviceRemoved(device);
  }
  // A handle costs little, so those that are held no more are dropped from time to time only.
  if (handles_.size() > handlesToSweep_) {
    std::erase_if(handles_, [](const auto& each) { return each.second.expired(); });
    handlesToSweep_ = 2 * handles_.size() + 64;
  }
}

}  // namespace kv
