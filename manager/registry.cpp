/// The registry of bound and scanned trackers.
#include "KVFobLink/KVTrackerManager.h"
#include "manager/messages.h"

void KVTrackerManager::setScannedDict(std::shared_ptr<KVTrackerMap> trackers) {
  const auto dropped = std::exchange(
      scannedDict_, trackers ? std::move(trackers) : std::make_shared<KVTrackerMap>());
}

void KVTrackerManager::setBindArray(std::shared_ptr<KVTrackerList> trackers) {
  const auto dropped =
      std::exchange(bindArray_, trackers ? std::move(trackers) : std::make_shared<KVTrackerList>());
}

std::shared_ptr<KVTracker> KVTrackerManager::existTracker(const Mac& mac, bool bind) const {
  if (!mac) return nullptr;
  return bind ? bindArray_->firstWithMac(*mac) : scannedDict_->find(*mac);
}

std::shared_ptr<KVTracker> KVTrackerManager::addTracker(const Mac& mac) {
  if (!mac) {
    log(kv::kNoMacAddress);
    return nullptr;
  }
  if (auto bound = existTracker(mac, /*bind=*/true)) return bound;
  auto tracker = existTracker(mac, /*bind=*/false);
  if (tracker) {
    // Moved as it is: it keeps the `bound` and the `password` that it has.
    bindArray_->append(tracker);
    scannedDict_->erase(*mac);
    return tracker;
  }
  tracker = std::make_shared<KVTracker>();
  tracker->updateData(KVTrackerDataMac, *mac);
  tracker->setBound(true);
  tracker->setPassword(password_);
  bindArray_->append(tracker);
  return tracker;
}

void KVTrackerManager::removeTracker(const Mac& mac) {
  if (!mac) {
    log(kv::kNoMacAddress);
    return;
  }
  const auto self = weak_from_this().lock();
  const auto tracker = bindArray_->firstWithMac(*mac);
  if (!tracker) return;
  tracker->setBound(false);
  disconnect(tracker);
  tracker->stopRSSITimer();
  bindArray_->remove(tracker);
}

void KVTrackerManager::removeAllTrackers() {
  const auto self = weak_from_this().lock();
  for (std::size_t i = 0; i < bindArray_->size(); ++i) {
    const auto tracker = (*bindArray_)[i];
    tracker->setBound(false);
    disconnect(tracker);
  }
  // Past the manager's own `stopScan`: the wish to scan stays.
  if (central_) central_->stopScan();
  scannedDict_->clear();
  bindArray_->clear();
  // Polling is not stopped here: each poll ends by itself when it finds the link gone.
}
