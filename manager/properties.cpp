// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// The public face of the manager's properties.
#include <utility>

#include "KVFobLink/KVTrackerManager.h"
#include "manager/core.h"

bool KVTrackerManager::scanning() const { return core_->scanning; }
void KVTrackerManager::setScanning(bool scanning) { core_->scanning = scanning; }
bool KVTrackerManager::switchOff() const { return core_->switchOff; }
void KVTrackerManager::setSwitchOff(bool switchOff) { core_->switchOff = switchOff; }
void KVTrackerManager::setSwtchOff(bool switchOff) { setSwitchOff(switchOff); }

void KVTrackerManager::didChangeBluetooth(StateCallback callback) {
  setStateChangeBlock(std::move(callback));
}
void KVTrackerManager::didChangeConnection(ConnectionCallback callback) {
  setConnectionBlock(std::move(callback));
}

const KVTrackerManager::ScanCallback& KVTrackerManager::scanBlock() const {
  return core_->scanBlock.get();
}
void KVTrackerManager::setScanBlock(ScanCallback callback) {
  Core::Hold(*this)->scanBlock.set(std::move(callback));
}
const KVTrackerManager::StateCallback& KVTrackerManager::stateChangeBlock() const {
  return core_->stateChangeBlock.get();
}
void KVTrackerManager::setStateChangeBlock(StateCallback callback) {
  Core::Hold(*this)->stateChangeBlock.set(std::move(callback));
}
const KVTrackerManager::ConnectionCallback& KVTrackerManager::connectionBlock() const {
  return core_->connectionBlock.get();
}
void KVTrackerManager::setConnectionBlock(ConnectionCallback callback) {
  Core::Hold(*this)->connectionBlock.set(std::move(callback));
}

const std::shared_ptr<KVCentral>& KVTrackerManager::central() const { return core_->central; }
void KVTrackerManager::setCentral(std::shared_ptr<KVCentral> central) {
  // The argument takes the old value with it, once the new one is in place.
  core_->central.swap(central);
}
const std::shared_ptr<KVTrackerMap>& KVTrackerManager::scannedDict() const {
  return core_->scannedDict;
}
void KVTrackerManager::setScannedDict(std::shared_ptr<KVTrackerMap> trackers) {
  const Core::Hold held(*this);
  if (!trackers) trackers = std::make_shared<KVTrackerMap>();
  held->scannedDict.swap(trackers);
}
const std::shared_ptr<KVTrackerList>& KVTrackerManager::bindArray() const {
  return core_->bindArray;
}
void KVTrackerManager::setBindArray(std::shared_ptr<KVTrackerList> trackers) {
  const Core::Hold held(*this);
  if (!trackers) trackers = std::make_shared<KVTrackerList>();
  held->bindArray.swap(trackers);
}
