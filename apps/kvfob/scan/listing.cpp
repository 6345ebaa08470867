// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/scan/listing.h"

#include <algorithm>
#include <utility>

#include "apps/kvfob/base/text.h"

namespace kvfob {
namespace {

TagRow rowOf(const KVTracker& tracker, const NameOf& nameOf) {
  TagRow row;
  row.address = tracker.mac().value_or("");
  row.name = nameOf(row.address);
  // The library holds 0 for a signal that the radio did not measure, and for the transmit power of
  // a tag that is not bound.
  if (tracker.rssi() != 0) {
    row.rssi = tracker.rssi();
    row.level = tracker.distance();
  }
  row.battery = tracker.battery();
  if (tracker.bound()) row.tx = tracker.radioTx();
  if (tracker.model() >= 0) row.model = tracker.model();
  row.lastAdvertised = tracker.advUpdate();
  return row;
}

// Whether `a` comes before `b`; absent when this order does not tell them apart.
template <typename Value>
std::optional<bool> larger(const std::optional<Value>& a, const std::optional<Value>& b) {
  if (a == b) return std::nullopt;
  return a > b;  // absent is less than any value
}

std::optional<bool> before(const TagRow& a, const TagRow& b, SortBy order) {
  switch (order) {
    case SortBy::Rssi:
      return larger(a.rssi, b.rssi);
    case SortBy::Battery:
      return larger(std::optional(a.battery), std::optional(b.battery));
    case SortBy::Heard:
      return larger(a.lastAdvertised, b.lastAdvertised);
    case SortBy::Name:
      if (a.name == b.name) return std::nullopt;
      if (a.name.empty() || b.name.empty()) return b.name.empty();
      return a.name < b.name;
    case SortBy::Address:
      break;
  }
  return std::nullopt;
}

std::string number(const std::optional<std::int64_t>& value) {
  return value ? std::to_string(*value) : "null";
}

}  // namespace

std::vector<TagRow> rowsOf(const KVTrackers& trackers, const NameOf& nameOf, SortBy order) {
  std::vector<TagRow> rows;
  for (const auto& tracker : trackers) rows.push_back(rowOf(*tracker, nameOf));
  std::sort(rows.begin(), rows.end(), [order](const TagRow& a, const TagRow& b) {
    return before(a, b, order).value_or(a.address < b.address);
  });
  return rows;
}

std::string_view orderName(SortBy order) {
  switch (order) {
    case SortBy::Rssi:
      return "rssi";
    case SortBy::Battery:
      return "battery";
    case SortBy::Name:
      return "name";
    case SortBy::Heard:
      return "heard";
    case SortBy::Address:
      break;
  }
  return "address";
}

SortBy nextOrder(SortBy order) {
  return order == SortBy::Heard ? SortBy::Address
                                : static_cast<SortBy>(static_cast<int>(order) + 1);
}

std::string toJson(const TagRow& row) {
  std::string json = "{\"address\":" + jsonText(row.address);
  json += ",\"name\":" + (row.name.empty() ? "null" : jsonText(row.name));
  json += ",\"rssi\":" + number(row.rssi);
  json += ",\"battery\":" + std::to_string(row.battery);
  json += ",\"tx\":" + number(row.tx);
  json += ",\"model\":" + number(row.model);
  json += ",\"distance\":" + (row.level ? jsonText(levelName(*row.level)) : "null");
  json +=
      ",\"last_heard\":" + (row.lastAdvertised ? jsonText(isoTime(*row.lastAdvertised)) : "null");
  return json + "}";
}

}  // namespace kvfob
