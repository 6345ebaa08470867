// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "simulator/radio/central.h"

#include <algorithm>
#include <utility>

namespace kvsim {

void CentralCore::open(KVCentral& handle) {
  handle_ = &handle;
  medium_->postFor(shared_from_this(), Medium::Duration(0), [](CentralCore& self) {
    if (self.handle_ == nullptr) return;
    self.medium_->addCentral(self.weak_from_this());
    self.medium_->scansChanged();  // it may have been asked for a scan already
    self.delegate_.centralManagerDidUpdateState(*self.handle_);
  });
}

void CentralCore::close() {
  handle_ = nullptr;
  const bool wasScanning = std::exchange(scanning_, false);
  for (const auto& [serial, peripheral] : std::exchange(peripherals_, {})) peripheral->abandon();
  if (wasScanning) medium_->scansChanged();
}

void CentralCore::scan(std::span<const KVUUID> services, bool allowDuplicates) {
  if (handle_ == nullptr || !medium_->adapterOn()) return;
  scanning_ = true;
  ++scan_;
  allowDuplicates_ = allowDuplicates;
  filter_.assign(services.begin(), services.end());
  const bool named =
      std::find(filter_.begin(), filter_.end(), VirtualTag::serviceDataUuid()) != filter_.end();
  filterTakesTags_ = filter_.empty() || named;
  medium_->scansChanged();
}

void CentralCore::stopScan() {
  if (!std::exchange(scanning_, false)) return;
  medium_->scansChanged();
}

// Every device on this radio is a tag, and a tag names its service among its UUIDs.
bool CentralCore::wants(const KVAdvertisement& advertisement) const {
  if (filterTakesTags_) return true;
  return std::ranges::any_of(advertisement.serviceData, [this](const auto& entry) {
    return std::find(filter_.begin(), filter_.end(), entry.uuid) != filter_.end();
  });
}

void CentralCore::report(const std::shared_ptr<RadioDevice>& device,
                         const KVAdvertisement& advertisement, std::optional<std::int64_t> rssi) {
  if (!scanning_ || handle_ == nullptr || !wants(advertisement)) return;
  const std::shared_ptr<SimulatedPeripheral> peripheral = peripheralFor(device);
  const bool repeated = peripheral->markReported(scan_);
  if (repeated && !allowDuplicates_) return;
  delegate_.didDiscoverPeripheral(*handle_, peripheral, advertisement, rssi);
}

std::shared_ptr<SimulatedPeripheral> CentralCore::peripheralFor(
    const std::shared_ptr<RadioDevice>& device) {
  auto& slot = peripherals_[device->serial];
  if (!slot) slot = std::make_shared<SimulatedPeripheral>(weak_from_this(), medium_, device);
  return slot;
}

void CentralCore::adapterChanged() {
  if (handle_ == nullptr) return;
  const bool on = medium_->adapterOn();
  const auto peripherals = peripherals_;  // the delegate may end any of them
  if (!on) {
    scanning_ = false;
    for (const auto& [serial, peripheral] : peripherals) peripheral->adapterOff();
  }
  delegate_.centralManagerDidUpdateState(*handle_);
  for (const auto& [serial, peripheral] : peripherals) {
    if (handle_ == nullptr) return;
    if (on) {
      peripheral->adapterOn();
    } else {
      peripheral->endAfterAdapterOff();
    }
  }
}

SimulatedCentral::SimulatedCentral(std::shared_ptr<CentralCore> core) : core_(std::move(core)) {
  core_->open(*this);
}

SimulatedCentral::~SimulatedCentral() { core_->close(); }

std::int64_t SimulatedCentral::state() const { return core_->medium()->adapterState(); }

void SimulatedCentral::scanForPeripherals(std::span<const KVUUID> services, bool allowDuplicates) {
  core_->scan(services, allowDuplicates);
}

void SimulatedCentral::stopScan() { core_->stopScan(); }

std::shared_ptr<SimulatedPeripheral> SimulatedCentral::own(
    const std::shared_ptr<KVPeripheral>& peripheral) const {
  auto simulated = std::dynamic_pointer_cast<SimulatedPeripheral>(peripheral);
  return simulated && simulated->belongsTo(*core_) ? simulated : nullptr;
}

void SimulatedCentral::connectPeripheral(const std::shared_ptr<KVPeripheral>& peripheral) {
  if (const auto simulated = own(peripheral)) simulated->connect();
}

void SimulatedCentral::cancelPeripheralConnection(const std::shared_ptr<KVPeripheral>& peripheral) {
  if (const auto simulated = own(peripheral)) simulated->cancel();
}

}  // namespace kvsim
