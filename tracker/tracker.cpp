#include "KVFobLink/KVTracker.h"

#include <string_view>

#include "platform/wipe.h"
#include "tracker/rssi_poller.h"
#include "tracker/tracker_index.h"

namespace {

constexpr std::string_view kStaticKey = "QPRTVX-Harbonics";

std::int64_t numberOf(const KVTrackerValue& value) {
  const auto* number = std::get_if<std::int64_t>(&value);
  return number != nullptr ? *number : 0;
}

/// The value as a `Kind`, absent when there is none.
template <typename Kind>
std::optional<Kind> take(KVTrackerValue& value) {
  auto* held = std::get_if<Kind>(&value);
  return held != nullptr ? std::optional<Kind>(std::move(*held)) : std::nullopt;
}

/// Whether the value is of the kind that goes with the key.
bool fits(std::int64_t key, const KVTrackerValue& value) {
  if (std::holds_alternative<std::monostate>(value)) return true;
  if (key == KVTrackerDataMac || key == KVTrackerDataName) {
    return std::holds_alternative<std::string>(value);
  }
  if (key == KVTrackerDataAdvUpdate) return std::holds_alternative<KVTracker::Date>(value);
  return std::holds_alternative<std::int64_t>(value);
}

}  // namespace

KVTracker::KVTracker()
    : poller_(std::make_shared<kv::RssiPoller>()),
      platform_(KVPlatform::shared()),
      staticKey_(KVData(kStaticKey.begin(), kStaticKey.end())) {}

KVTracker::~KVTracker() {
  poller_->stop();
  kv::wipe(comToken_);
  kv::wipe(password_);
}

void KVTracker::log(std::string_view line) const { platform_->log->write(line); }

void KVTracker::setRssi(std::int64_t rssi) {
  rssi_ = rssi;
  updateDistanceViaRssi(rssi);
}

void KVTracker::updateData(std::int64_t key, KVTrackerValue value) {
  if (!fits(key, value)) return;
  switch (key) {
    case KVTrackerDataMac:
      setMac(take<std::string>(value));
      break;
    case KVTrackerDataName:
      name_ = take<std::string>(value);
      break;
    case KVTrackerDataRssi:
      setRssi(numberOf(value));
      break;
    case KVTrackerDataBattery:
      battery_ = numberOf(value);
      break;
    case KVTrackerDataRadioTx:
      radioTx_ = numberOf(value);
      break;
    case KVTrackerDataAdvUpdate:
      advUpdate_ = take<Date>(value);
      break;
    case KVTrackerDataModel:
      model_ = numberOf(value);
      break;
    default:
      break;
  }
}

void KVTracker::setMac(std::optional<std::string> mac) {
  if (mac == mac_) return;
  kv::TrackerIndex::unfileEverywhere(*this);
  mac_ = std::move(mac);
  kv::TrackerIndex::fileEverywhere(*this);
}

void KVTracker::setPassword(std::optional<std::string> password) {
  kv::wipe(password_);
  password_ =
      password;  // copied, so that the argument can be wiped: a move may leave the bytes behind
  kv::wipe(password);
}

const std::shared_ptr<KVPeripheral>& KVTracker::peripheral() const { return poller_->peripheral(); }

void KVTracker::setPeripheral(std::shared_ptr<KVPeripheral> peripheral) {
  kv::TrackerIndex::unfileEverywhere(*this);
  poller_->setPeripheral(std::move(peripheral));
  kv::TrackerIndex::fileEverywhere(*this);
  if (const auto& attached = this->peripheral()) attached->setDelegate(weak_from_this());
}

void KVTracker::setState(std::int64_t state) {
  const auto self = weak_from_this().lock();
  state_ = state;
  if (state == KVTrackerStateDisconnected) {
    updateConnection(KVConnectionDisconnect);
    stopRSSITimer();
  } else if (state == KVTrackerStateConnecting) {
    updateConnection(KVConnectionConnecting);
  } else if (state == KVTrackerStateConnected) {
    discover();
  }
  outputUpdate();
}

void KVTracker::updateConnection(std::uint64_t connection) {
  connection_ = connection;
  if (bound_) connectionBlock_(connection);
}

void KVTracker::outputUpdate() { valueUpdated_(); }
