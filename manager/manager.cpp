// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// The public face of the manager: each operation is a line that calls what does it.
#include "KVFobLink/KVTrackerManager.h"

#include <utility>

#include "manager/core.h"
#include "manager/messages.h"

std::shared_ptr<KVTrackerManager> KVTrackerManager::sharedInstance() {
  // Never destroyed: callbacks may reach it while the process ends.
  static const auto& instance =
      *new std::shared_ptr<KVTrackerManager>(std::make_shared<KVTrackerManager>());
  return instance;
}

KVTrackerManager::KVTrackerManager() : KVTrackerManager(*KVPlatform::shared()) {}

KVTrackerManager::KVTrackerManager(const KVPlatform& platform)
    : core_(std::make_shared<Core>(platform)) {
  core_->open(platform, *this);
}

KVTrackerManager::~KVTrackerManager() { core_->close(); }

std::uint64_t KVTrackerManager::bleState() const {
  const auto& central = core_->central;
  return central ? static_cast<std::uint64_t>(central->state())
                 : std::uint64_t{KVCentralStateUnknown};
}

// ---- Scanning

void KVTrackerManager::startScan(ScanCallback callback) {
  Core::Hold(*this)->startScan(std::move(callback));
}
void KVTrackerManager::stopScan() { Core::Hold(*this)->stopScan(); }
void KVTrackerManager::scanForTrackers() { Core::Hold(*this)->scanForTrackers(); }
KVTrackers KVTrackerManager::scannedTrackers() const { return core_->scannedDict->values(); }

// ---- Registry

std::shared_ptr<KVTracker> KVTrackerManager::addTracker(const Mac& mac) {
  if (mac) return Core::Hold(*this)->add(*mac);
  core_->log(kv::kNoMacAddress);
  return nullptr;
}
void KVTrackerManager::removeTracker(const Mac& mac) {
  if (mac) return Core::Hold(*this)->remove(*mac);
  core_->log(kv::kNoMacAddress);
}
void KVTrackerManager::removeAllTrackers() { Core::Hold(*this)->removeAll(); }
std::shared_ptr<KVTracker> KVTrackerManager::existTracker(const Mac& mac, bool bind) const {
  return mac ? core_->exist(*mac, bind) : nullptr;
}
std::shared_ptr<const KVTrackerList> KVTrackerManager::bindTrackers() const {
  return core_->bindArray;
}
const std::optional<std::string>& KVTrackerManager::password() const { return core_->password; }
void KVTrackerManager::setPassword(std::optional<std::string> password) {
  core_->setPassword(std::move(password));
}

// ---- Connecting and binding

void KVTrackerManager::connect(const std::shared_ptr<KVTracker>& tracker) {
  Core::Hold(*this)->connect(tracker);
}
void KVTrackerManager::forceConnect(const std::shared_ptr<KVTracker>& tracker,
                                    const std::shared_ptr<KVPeripheral>& newPeripheral) {
  Core::Hold(*this)->forceConnect(tracker, newPeripheral);
}
void KVTrackerManager::disconnect(const std::shared_ptr<KVTracker>& tracker) {
  Core::Hold(*this)->disconnect(tracker);
}
void KVTrackerManager::bindingVerify(const std::shared_ptr<KVTracker>& tracker,
                                     KVResultCallback completion) {
  Core::Hold(*this)->bind(tracker, std::move(completion), weak_from_this().lock());
}
void KVTrackerManager::unbindTracker(const Mac& mac, KVResultCallback completion) {
  if (mac) return Core::Hold(*this)->unbind(*mac, std::move(completion), weak_from_this().lock());
  core_->log(kv::kNoMacAddress);
}
std::shared_ptr<KVTracker> KVTrackerManager::existTargetTracker(
    const std::shared_ptr<KVPeripheral>& peripheral) const {
  return core_->targetOf(peripheral);
}
void KVTrackerManager::pushPeripheral(const std::shared_ptr<KVPeripheral>& peripheral) {
  Core::Hold(*this)->linkChanged(peripheral);
}

// ---- Events of the central

void KVTrackerManager::centralManagerDidUpdateState(KVCentral& central) {
  Core::Hold(*this)->stateChanged(central);
}
void KVTrackerManager::didDiscoverPeripheral(KVCentral& /*central*/,
                                             const std::shared_ptr<KVPeripheral>& peripheral,
                                             const KVAdvertisement& advertisement,
                                             std::optional<std::int64_t> rssi) {
  Core::Hold(*this)->advertised(peripheral, advertisement, rssi);
}
void KVTrackerManager::didConnectPeripheral(KVCentral& /*central*/,
                                            const std::shared_ptr<KVPeripheral>& peripheral) {
  pushPeripheral(peripheral);
}
void KVTrackerManager::didFailToConnectPeripheral(KVCentral& /*central*/,
                                                  const std::shared_ptr<KVPeripheral>& peripheral,
                                                  const std::optional<KVError>& /*error*/) {
  pushPeripheral(peripheral);
}
void KVTrackerManager::didDisconnectPeripheral(KVCentral& /*central*/,
                                               const std::shared_ptr<KVPeripheral>& peripheral,
                                               const std::optional<KVError>& /*error*/) {
  pushPeripheral(peripheral);
}
