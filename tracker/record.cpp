// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "tracker/record.h"

namespace kv {
namespace {

constexpr std::int64_t kNearAbove = -65;    // dBm
constexpr std::int64_t kMiddleAbove = -70;  // dBm

}  // namespace

bool fits(std::int64_t key, const KVTrackerValue& value) {
  if (std::holds_alternative<std::monostate>(value)) return true;
  if (key == KVTrackerDataMac || key == KVTrackerDataName) {
    return std::holds_alternative<std::string>(value);
  }
  if (key == KVTrackerDataAdvUpdate) return std::holds_alternative<TrackerRecord::Date>(value);
  return std::holds_alternative<std::int64_t>(value);
}

void TrackerRecord::update(std::int64_t key, KVTrackerValue value) {
  if (key == KVTrackerDataName) name = take<std::string>(value);
  if (key == KVTrackerDataAdvUpdate) advUpdate = take<Date>(value);
  const std::int64_t number = take<std::int64_t>(value).value_or(0);
  if (key == KVTrackerDataRssi) setRssi(number);
  if (key == KVTrackerDataBattery) battery = number;
  if (key == KVTrackerDataRadioTx) radioTx = number;
  if (key == KVTrackerDataModel) model = number;
}

void TrackerRecord::takeIn(const AdvertisedFrame& frame, std::optional<std::int64_t> heardRssi,
                           Date now) {
  setRssi(heardRssi.value_or(0));
  battery = frame.battery();
  model = frame.model();
  advUpdate = now;
}

void TrackerRecord::setRssi(std::int64_t value) {
  rssi = value;
  updateDistance(value);
}

void TrackerRecord::updateDistance(std::int64_t fromRssi) {
  if (fromRssi > kNearAbove) {
    distance = KVDistanceNear;
  } else if (fromRssi > kMiddleAbove) {
    distance = KVDistanceMiddle;
  } else {
    distance = KVDistanceFar;
  }
}

}  // namespace kv
