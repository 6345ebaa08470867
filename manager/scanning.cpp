/// Scanning, and what is done with each advertisement.
#include <array>

#include "KVFobLink/KVTrackerManager.h"
#include "manager/advertised_frame.h"

namespace {

/// The 16-bit UUID under which tags advertise their service data.
constexpr std::uint16_t kScanService = 0xFFE1;

KVTrackerValue valueOf(std::optional<std::int64_t> number) {
  return number ? KVTrackerValue(*number) : KVTrackerValue();
}

}  // namespace

void KVTrackerManager::startScan(ScanCallback callback) {
  setScanBlock(std::move(callback));
  scanning_ = true;
  scanForTrackers();
}

void KVTrackerManager::scanForTrackers() {
  const auto self = weak_from_this().lock();
  scannedDict_->clear();
  const std::array services{KVUUID(kScanService)};
  if (central_) central_->scanForPeripherals(services, /*allowDuplicates=*/true);
}

void KVTrackerManager::stopScan() {
  scanning_ = false;
  if (central_) central_->stopScan();
}

KVTrackers KVTrackerManager::scannedTrackers() const { return scannedDict_->values(); }

void KVTrackerManager::didDiscoverPeripheral(KVCentral& /*central*/,
                                             const std::shared_ptr<KVPeripheral>& peripheral,
                                             const KVAdvertisement& advertisement,
                                             std::optional<std::int64_t> rssi) {
  if (advertisement.serviceData.empty()) return;
  // Which service the data belongs to is not examined: the frame tells for itself.
  const auto frame = kv::AdvertisedFrame::accept(advertisement.serviceData.front().value);
  if (!frame) return;
  const auto self = weak_from_this().lock();
  const auto mac = frame->mac();
  if (const auto tracker = bindArray_->firstWithMac(*mac)) {
    takeInBound(tracker, *frame, peripheral, rssi);
  } else {
    takeInScanned(*mac, *frame, peripheral, rssi);
  }
}

void KVTrackerManager::takeInBound(const std::shared_ptr<KVTracker>& tracker,
                                   const kv::AdvertisedFrame& frame,
                                   const std::shared_ptr<KVPeripheral>& peripheral,
                                   std::optional<std::int64_t> rssi) {
  if (!tracker->peripheral()) tracker->setPeripheral(peripheral);
  tracker->updateData(KVTrackerDataAdvUpdate, platform_->clock->now());
  tracker->updateData(KVTrackerDataBattery, frame.battery());
  tracker->updateData(KVTrackerDataRadioTx, frame.radioTx());
  tracker->updateData(KVTrackerDataRssi, valueOf(rssi));
  tracker->updateData(KVTrackerDataModel, frame.model());
  forceConnect(tracker, peripheral);
}

void KVTrackerManager::takeInScanned(const std::string& mac, const kv::AdvertisedFrame& frame,
                                     const std::shared_ptr<KVPeripheral>& peripheral,
                                     std::optional<std::int64_t> rssi) {
  auto tracker = scannedDict_->find(mac);
  if (!tracker) {
    tracker = std::make_shared<KVTracker>();
    tracker->setPassword(password_);
    tracker->setPeripheral(peripheral);
    scannedDict_->set(mac, tracker);
  }
  tracker->updateData(KVTrackerDataMac, mac);
  tracker->updateData(KVTrackerDataRssi, valueOf(rssi));
  tracker->updateData(KVTrackerDataModel, frame.model());
  tracker->updateData(KVTrackerDataBattery, frame.battery());
  tracker->updateData(KVTrackerDataAdvUpdate, platform_->clock->now());
  if (scanning_ && scanBlock_) scanBlock_(scannedDict_->values());
}

std::shared_ptr<KVTracker> KVTrackerManager::existTargetTracker(
    const std::shared_ptr<KVPeripheral>& peripheral) const {
  if (!peripheral) return nullptr;
  if (auto bound = bindArray_->firstWithPeripheral(peripheral->identifier())) return bound;
  return scannedDict_->bindingWithPeripheral(peripheral->identifier());
}
