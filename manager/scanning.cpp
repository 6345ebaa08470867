// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// Scanning, and what is done with each advertisement.
#include <array>
#include <utility>

#include "manager/core.h"
#include "tracker/core.h"

void KVTrackerManager::Core::startScan(ScanCallback callback) {
  scanBlock.set(std::move(callback));
  scanning = true;
  scanForTrackers();
}

void KVTrackerManager::Core::scanForTrackers() {
  scannedDict->clear();
  const std::array services{kv::advertisedServiceUuid()};
  if (central) central->scanForPeripherals(services, /*allowDuplicates=*/true);
}

void KVTrackerManager::Core::stopScan() {
  scanning = false;
  if (central) central->stopScan();
}

void KVTrackerManager::Core::advertised(const Peripheral& peripheral,
                                        const KVAdvertisement& advertisement,
                                        std::optional<std::int64_t> rssi) {
  if (advertisement.serviceData.empty()) return;
  // Which service the data belongs to is not examined: the frame tells for itself.
  const auto frame = kv::AdvertisedFrame::accept(advertisement.serviceData.front().value);
  if (!frame) return;
  const auto mac = frame->mac();
  if (const auto tracker = bindArray->firstWithMac(*mac)) {
    takeInBound(tracker, *frame, peripheral, rssi);
  } else {
    takeInScanned(*mac, *frame, peripheral, rssi);
  }
}

void KVTrackerManager::Core::takeInBound(const Tracker& tracker, const kv::AdvertisedFrame& frame,
                                         const Peripheral& peripheral,
                                         std::optional<std::int64_t> rssi) {
  if (!tracker->peripheral()) tracker->setPeripheral(peripheral);
  kv::TrackerRecord& record = KVTracker::Core::of(*tracker).record;
  record.takeIn(frame, rssi, services_->clock->now());
  record.radioTx = frame.radioTx();
  forceConnect(tracker, peripheral);
}

void KVTrackerManager::Core::takeInScanned(const std::string& mac, const kv::AdvertisedFrame& frame,
                                           const Peripheral& peripheral,
                                           std::optional<std::int64_t> rssi) {
  auto tracker = scannedDict->find(mac);
  if (!tracker) {
    tracker = KVTracker::Core::makeTracker(services_);
    tracker->setPassword(password);
    tracker->setPeripheral(peripheral);
    scannedDict->set(mac, tracker);
  }
  KVTracker::Core::setMac(*tracker, mac);
  KVTracker::Core::of(*tracker).record.takeIn(frame, rssi, services_->clock->now());
  if (scanning && scanBlock) scanBlock(scannedDict->values());
}
