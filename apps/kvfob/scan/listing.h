// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// What is known of a tag that a scan has found.
#ifndef APPS_KVFOB_SCAN_LISTING_H
#define APPS_KVFOB_SCAN_LISTING_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "KVFobLink/KVTracker.h"
#include "apps/kvfob/base/json.h"
#include "apps/kvfob/cli/options.h"

namespace kvfob {

/// What is shown of one tag.
struct TagRow {
  std::string name = {};  ///< The user's; empty for none.
  std::string address = {};
  std::optional<std::int64_t> rssi = {};
  std::optional<std::uint64_t> level = {};
  std::int64_t battery = 0;
  std::optional<std::int64_t> tx = {};
  std::optional<std::int64_t> model = {};
  bool bound = false;  ///< From here: it is in the book.
  std::optional<std::chrono::system_clock::time_point> lastAdvertised = {};
};

/// Takes over what the library knows of a tag. The name and `bound` stay.
void update(TagRow& row, const KVTracker& tracker);

/// Whether `a` comes before `b`: the strongest, the fullest and the last to advertise first, and
/// names and addresses as in an alphabet. Those of which it is not known come last.
bool comesBefore(const TagRow& a, const TagRow& b, SortBy order);

/// "rssi" and so on, and the order that comes after it.
std::string_view orderName(SortBy order);
SortBy nextOrder(SortBy order);

/// Whether part of the tag's name or address is `text`, in either letter case of ASCII. Colons in
/// `text` do not count, as in any address.
bool matches(const TagRow& row, std::string_view text);

/// The line of the event that the tag was heard, or is known in another way.
Json tagEvent(const TagRow& row, std::chrono::system_clock::time_point now);

}  // namespace kvfob

#endif  // APPS_KVFOB_SCAN_LISTING_H
