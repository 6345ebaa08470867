// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// The tags that a scan has found.
#ifndef APPS_KVFOB_SCAN_LISTING_H
#define APPS_KVFOB_SCAN_LISTING_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "KVFobLink/KVTracker.h"
#include "KVFobLink/KVTrackerCollections.h"
#include "apps/kvfob/cli/options.h"

namespace kvfob {

/// The user's name for the tag of an address; empty for none.
using NameOf = std::function<std::string(const std::string& address)>;

/// What is shown of one tag.
struct TagRow {
  std::string name;
  std::string address;
  std::optional<std::int64_t> rssi;
  std::optional<std::uint64_t> level;
  std::int64_t battery = 0;
  std::optional<std::int64_t> tx;
  std::optional<std::int64_t> model;
  std::optional<std::chrono::system_clock::time_point> lastAdvertised;
};

/// The tags in the order that is asked for: the strongest, the fullest and the last to advertise
/// first, and names and addresses as in an alphabet. Those of which it is not known come last.
std::vector<TagRow> rowsOf(const KVTrackers& trackers, const NameOf& nameOf, SortBy order);

/// "rssi" and so on, and the order that comes after it.
std::string_view orderName(SortBy order);
SortBy nextOrder(SortBy order);

/// One tag as a JSON object, without a line end. What is not known is null.
std::string toJson(const TagRow& row);

}  // namespace kvfob

#endif  // APPS_KVFOB_SCAN_LISTING_H
