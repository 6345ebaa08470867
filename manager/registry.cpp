// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// The registry of bound and scanned trackers.
#include "manager/core.h"
#include "tracker/core.h"

std::shared_ptr<KVTracker> KVTrackerManager::Core::exist(const std::string& mac, bool bind) const {
  return bind ? bindArray->firstWithMac(mac) : scannedDict->find(mac);
}

std::shared_ptr<KVTracker> KVTrackerManager::Core::targetOf(const Peripheral& peripheral) const {
  if (!peripheral) return nullptr;
  if (auto bound = bindArray->firstWithPeripheral(peripheral->identifier())) return bound;
  return scannedDict->bindingWithPeripheral(peripheral->identifier());
}

std::shared_ptr<KVTracker> KVTrackerManager::Core::add(const std::string& mac) {
  if (auto bound = exist(mac, /*bind=*/true)) return bound;
  if (auto scanned = exist(mac, /*bind=*/false)) {
    // Moved as it is: it keeps the `bound` and the `password` that it has.
    bindArray->append(scanned);
    scannedDict->erase(mac);
    return scanned;
  }
  auto tracker = KVTracker::Core::makeTracker(services_);
  tracker->updateData(KVTrackerDataMac, mac);
  tracker->setBound(true);
  tracker->setPassword(password);
  bindArray->append(tracker);
  return tracker;
}

void KVTrackerManager::Core::remove(const std::string& mac) {
  const auto tracker = bindArray->firstWithMac(mac);
  if (!tracker) return;
  tracker->setBound(false);
  disconnect(tracker);
  tracker->stopRSSITimer();
  bindArray->remove(tracker);
}

void KVTrackerManager::Core::removeAll() {
  for (std::size_t i = 0; i < bindArray->size(); ++i) {
    const auto tracker = (*bindArray)[i];
    tracker->setBound(false);
    disconnect(tracker);
  }
  // Past the manager's own `stopScan`: the wish to scan stays.
  if (central) central->stopScan();
  scannedDict->clear();
  bindArray->clear();
  // Polling is not stopped here: each poll ends by itself when it finds the link gone.
}
