// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/scan/listing.h"

#include <algorithm>

#include "apps/kvfob/base/text.h"

namespace kvfob {
namespace {

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

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool contains(std::string_view text, std::string_view part) {
  return std::search(text.begin(), text.end(), part.begin(), part.end(),
                     [](char a, char b) { return lower(a) == lower(b); }) != text.end();
}

}  // namespace

void update(TagRow& row, const KVTracker& tracker) {
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
}

bool comesBefore(const TagRow& a, const TagRow& b, SortBy order) {
  return before(a, b, order).value_or(a.address < b.address);
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

bool matches(const TagRow& row, std::string_view text) {
  std::string digits(text);
  std::erase(digits, ':');
  return contains(row.name, text) || contains(row.address, digits);
}

Json tagEvent(const TagRow& row, std::chrono::system_clock::time_point now) {
  const auto heard =
      row.lastAdvertised ? std::optional(isoTime(*row.lastAdvertised)) : std::nullopt;
  const auto distance =
      row.level ? std::optional(std::string(levelName(*row.level))) : std::nullopt;
  return {{"event", "tag"},
          {"time", isoTime(now)},
          {"address", row.address},
          {"name", row.name.empty() ? Json() : Json(row.name)},
          {"rssi", orNull(row.rssi)},
          {"battery", row.battery},
          {"tx", orNull(row.tx)},
          {"model", orNull(row.model)},
          {"distance", orNull(distance)},
          {"bound", row.bound},
          {"last_heard", orNull(heard)}};
}

}  // namespace kvfob
