// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// What a tag advertised, as last heard.
#ifndef TRACKER_RECORD_H
#define TRACKER_RECORD_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "KVFobLink/KVTrackerTypes.h"
#include "protocol/advertisement.h"

namespace kv {

/// The advertised fields of a tracker; `distance` follows the signal strength.
struct TrackerRecord {
  using Date = std::chrono::system_clock::time_point;

  /// One field by its key, all but the address, under which the tracker is filed; see
  /// `KVTracker::updateData`.
  void update(std::int64_t key, KVTrackerValue value);

  /// All that one advertisement tells of any tag. An absent signal strength counts as 0.
  void takeIn(const AdvertisedFrame& frame, std::optional<std::int64_t> heardRssi, Date now);

  void setRssi(std::int64_t value);
  void updateDistance(std::int64_t fromRssi);

  // What each advertisement touches stands together, so that hearing one of many tags costs few
  // cache misses.
  std::int64_t rssi = 0;
  std::int64_t battery = 0;
  std::int64_t radioTx = 0;
  std::uint64_t distance = KVDistanceFar;
  std::int64_t model = 0;
  std::optional<Date> advUpdate;
  std::optional<std::string> mac;
  std::optional<std::string> name;
};

/// Whether a value is of the kind that goes with a key.
bool fits(std::int64_t key, const KVTrackerValue& value);

/// The value as a `Kind`, absent when there is none.
template <typename Kind>
std::optional<Kind> take(KVTrackerValue& value) {
  auto* held = std::get_if<Kind>(&value);
  return held != nullptr ? std::optional<Kind>(std::move(*held)) : std::nullopt;
}

}  // namespace kv

#endif  // TRACKER_RECORD_H
