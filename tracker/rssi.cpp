/// Signal strength of the live link, and the proximity that follows from it.
#include "KVFobLink/KVTracker.h"
#include "tracker/rssi_poller.h"

namespace {

constexpr std::int64_t kNearAbove = -65;    // dBm
constexpr std::int64_t kMiddleAbove = -70;  // dBm

}  // namespace

void KVTracker::initRSSITimerThread() { poller_->start(*platform_->timers); }

void KVTracker::readRSSI() { poller_->tick(); }

void KVTracker::stopRSSITimer() { poller_->stop(); }

std::shared_ptr<KVTimerThread> KVTracker::timer() const { return poller_->timer(); }

std::shared_ptr<KVTimerThread> KVTracker::timerThread() const { return poller_->timer(); }

void KVTracker::didReadRSSI(KVPeripheral& /*peripheral*/, std::optional<std::int64_t> rssi,
                            const std::optional<KVError>& /*error*/) {
  setRssi(rssi.value_or(0));
  outputUpdate();
}

void KVTracker::updateDistanceViaRssi(std::int64_t rssi) {
  if (rssi > kNearAbove) {
    distance_ = KVDistanceNear;
  } else if (rssi > kMiddleAbove) {
    distance_ = KVDistanceMiddle;
  } else {
    distance_ = KVDistanceFar;
  }
}
