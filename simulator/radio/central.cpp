#include "simulator/radio/central.h"

#include <algorithm>
#include <utility>

namespace kvsim {

void CentralCore::open(KVCentral& face) {
  face_ = &face;
  postFor(*medium_->queue(), shared_from_this(), Medium::Duration(0), [](CentralCore& self) {
    if (self.face_ == nullptr) return;
    self.medium_->addCentral(self.weak_from_this());
    self.medium_->scansChanged();  // it may have been asked for a scan already
    self.delegate_.centralManagerDidUpdateState(*self.face_);
  });
}

void CentralCore::close() {
  face_ = nullptr;
  const bool wasScanning = std::exchange(scanning_, false);
  for (const auto& peripheral : peripherals_) {
    if (peripheral) peripheral->abandon();
  }
  if (wasScanning) medium_->scansChanged();
}

void CentralCore::scan(std::span<const KVUUID> services, bool allowDuplicates) {
  if (!medium_->adapterOn()) return;
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

/// Every device on this radio is a tag, and a tag names its service among its UUIDs.
bool CentralCore::wants(const KVAdvertisement& advertisement) const {
  if (filterTakesTags_) return true;
  return std::ranges::any_of(advertisement.serviceData, [this](const auto& entry) {
    return std::find(filter_.begin(), filter_.end(), entry.uuid) != filter_.end();
  });
}

void CentralCore::hear(const std::shared_ptr<Station>& station,
                       const KVAdvertisement& advertisement, std::optional<std::int64_t> rssi) {
  if (!scanning_ || face_ == nullptr || !wants(advertisement)) return;
  const std::shared_ptr<SimulatedPeripheral> peripheral = peripheralFor(station);
  const bool repeated = peripheral->markHeard(scan_);
  if (repeated && !allowDuplicates_) return;
  delegate_.didDiscoverPeripheral(*face_, peripheral, advertisement, rssi);
}

std::shared_ptr<SimulatedPeripheral> CentralCore::peripheralFor(
    const std::shared_ptr<Station>& station) {
  if (peripherals_.size() <= station->serial) peripherals_.resize(medium_->stations().size());
  auto& slot = peripherals_[station->serial];
  if (!slot) slot = std::make_shared<SimulatedPeripheral>(weak_from_this(), medium_, station);
  return slot;
}

void CentralCore::adapterChanged() {
  if (face_ == nullptr) return;
  const bool on = medium_->adapterOn();
  if (!on) {
    scanning_ = false;
    for (const auto& peripheral : peripherals_) {
      if (peripheral) peripheral->adapterOff();
    }
  }
  delegate_.centralManagerDidUpdateState(*face_);
  for (std::size_t i = 0; i < peripherals_.size() && face_ != nullptr; ++i) {
    const std::shared_ptr<SimulatedPeripheral> peripheral = peripherals_[i];
    if (!peripheral) continue;
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
