// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// The public face of a tracker but for its commands and callbacks: each operation is a line that
// calls the part that does it.
#include "KVFobLink/KVTracker.h"

#include <utility>

#include "tracker/core.h"

namespace {

using Hold = KVTracker::Core::Hold;

KVTracker::Core& of(const KVTracker* tracker) { return KVTracker::Core::of(*tracker); }

}  // namespace

KVTracker::KVTracker() : KVTracker(*KVPlatform::shared()) {}

KVTracker::KVTracker(const KVPlatform& platform)
    : core_(std::make_shared<Core>(std::make_shared<const kv::Services>(platform))) {}

KVTracker::KVTracker(std::shared_ptr<Core> core) : core_(std::move(core)) {}

std::shared_ptr<KVTracker> KVTracker::Core::makeTracker(
    std::shared_ptr<const kv::Services> services) {
  return std::shared_ptr<KVTracker>(new KVTracker(std::make_shared<Core>(std::move(services))));
}

KVTracker::~KVTracker() = default;

// ---- What the tag advertised

const std::optional<std::string>& KVTracker::name() const { return of(this).record.name; }
const std::optional<std::string>& KVTracker::mac() const { return of(this).record.mac; }
std::int64_t KVTracker::rssi() const { return of(this).record.rssi; }
void KVTracker::setRssi(std::int64_t rssi) { core_->record.setRssi(rssi); }
std::int64_t KVTracker::battery() const { return of(this).record.battery; }
std::int64_t KVTracker::radioTx() const { return of(this).record.radioTx; }
std::uint64_t KVTracker::distance() const { return of(this).record.distance; }
const std::optional<KVTracker::Date>& KVTracker::advUpdate() const {
  return of(this).record.advUpdate;
}
std::int64_t KVTracker::model() const { return of(this).record.model; }

void KVTracker::updateData(std::int64_t key, KVTrackerValue value) {
  if (!kv::fits(key, value)) return;
  if (key == KVTrackerDataMac) {
    Core::setMac(*this, kv::take<std::string>(value));
  } else {
    core_->record.update(key, std::move(value));
  }
}

// ---- Binding and link

bool KVTracker::binding() const { return of(this).link.binding; }
void KVTracker::setBinding(bool binding) { core_->setBinding(binding, weak_from_this().lock()); }
bool KVTracker::bound() const { return of(this).link.bound; }
void KVTracker::setBound(bool bound) { core_->link.bound = bound; }
const std::optional<std::string>& KVTracker::password() const {
  return of(this).session.password();
}
void KVTracker::setPassword(std::optional<std::string> password) {
  core_->session.setPassword(std::move(password));
}
const std::shared_ptr<KVPeripheral>& KVTracker::peripheral() const {
  return of(this).link.peripheral();
}
void KVTracker::setPeripheral(std::shared_ptr<KVPeripheral> peripheral) {
  const Hold held(*this);
  Core::setPeripheral(*this, std::move(peripheral));
}
std::int64_t KVTracker::state() const { return of(this).link.state; }
void KVTracker::setState(std::int64_t state) { Hold(*this)->setState(state); }
std::uint64_t KVTracker::connection() const { return of(this).link.connection; }
void KVTracker::updateConnection(std::uint64_t connection) {
  Hold(*this)->link.updateConnection(connection);
}

// ---- The session

std::uint64_t KVTracker::auth() const { return of(this).session.stage; }
void KVTracker::setAuth(std::uint64_t auth) { core_->session.stage = auth; }
const std::shared_ptr<KVCharacteristic>& KVTracker::korvaChar() const {
  return of(this).session.commandCharacteristic;
}
void KVTracker::setKorvaChar(std::shared_ptr<KVCharacteristic> characteristic) {
  core_->session.commandCharacteristic = std::move(characteristic);
}
const std::shared_ptr<KVCharacteristic>& KVTracker::txChar() const {
  return of(this).session.distanceCharacteristic;
}
void KVTracker::setTxChar(std::shared_ptr<KVCharacteristic> characteristic) {
  core_->session.distanceCharacteristic = std::move(characteristic);
}
const std::optional<KVData>& KVTracker::comToken() const { return of(this).session.key(); }
void KVTracker::setComToken(std::optional<KVData> token) {
  core_->session.setKey(std::move(token));
}
const std::optional<KVData>& KVTracker::staticKey() const { return of(this).session.staticKey; }
void KVTracker::setStaticKey(std::optional<KVData> key) {
  core_->session.staticKey = std::move(key);
}
void KVTracker::discover() { Hold(*this)->session.discover(); }
void KVTracker::outputUpdate() { Hold(*this)->link.valueUpdated(); }
void KVTracker::validateDevice(KVBytes token) { Hold(*this)->session.takeTagToken(token); }
void KVTracker::writeChecksumData() { Hold(*this)->session.writeVerificationToken(); }
void KVTracker::writeBindData() { Hold(*this)->session.writeBindRequest(); }
std::optional<KVData> KVTracker::encryptConnectionData(KVBytes data) const {
  return of(this).session.encrypt(data);
}
std::optional<KVData> KVTracker::decryptConnectionData(KVBytes data) const {
  return of(this).session.decrypt(data);
}

// ---- Signal strength of the live link

void KVTracker::initRSSITimerThread() { core_->startPolling(); }
void KVTracker::readRSSI() { core_->link.poller->tick(); }
void KVTracker::stopRSSITimer() { core_->link.poller->stop(); }
std::shared_ptr<KVTimerThread> KVTracker::timer() const { return of(this).link.poller->timer(); }
std::shared_ptr<KVTimerThread> KVTracker::timerThread() const { return timer(); }
void KVTracker::updateDistanceViaRssi(std::int64_t rssi) { core_->record.updateDistance(rssi); }

// ---- Events of the peripheral

void KVTracker::didDiscoverServices(KVPeripheral& peripheral, const std::optional<KVError>& error) {
  Hold(*this)->didDiscoverServices(peripheral, error);
}
void KVTracker::didDiscoverCharacteristicsForService(KVPeripheral& peripheral, KVService& service,
                                                     const std::optional<KVError>& error) {
  Hold(*this)->didDiscoverCharacteristicsForService(peripheral, service, error);
}
void KVTracker::didUpdateValueForCharacteristic(
    KVPeripheral& peripheral, const std::shared_ptr<KVCharacteristic>& characteristic,
    const std::optional<KVError>& error) {
  Hold(*this)->didUpdateValueForCharacteristic(peripheral, characteristic, error);
}
void KVTracker::didWriteValueForCharacteristic(
    KVPeripheral& peripheral, const std::shared_ptr<KVCharacteristic>& characteristic,
    const std::optional<KVError>& error) {
  Hold(*this)->didWriteValueForCharacteristic(peripheral, characteristic, error);
}
void KVTracker::didReadRSSI(KVPeripheral& peripheral, std::optional<std::int64_t> rssi,
                            const std::optional<KVError>& error) {
  Hold(*this)->didReadRSSI(peripheral, rssi, error);
}
