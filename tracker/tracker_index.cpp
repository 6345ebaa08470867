// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "tracker/tracker_index.h"

#include <algorithm>

#include "tracker/core.h"

namespace kv {
namespace {

std::vector<IndexMembership>& membershipsOf(const KVTracker& tracker) {
  return KVTracker::Core::of(tracker).memberships;
}

auto membershipOf(auto& memberships, const TrackerIndex* index) {
  return std::ranges::find(memberships, index, &IndexMembership::index);
}

}  // namespace

void TrackerIndex::add(KVTracker& tracker) {
  auto& memberships = membershipsOf(tracker);
  const std::uint64_t order = nextOrder_++;
  if (const auto it = membershipOf(memberships, this); it != memberships.end()) {
    ++it->count;
    return;
  }
  memberships.push_back({this, order, 1});
  file(tracker);
}

void TrackerIndex::removeOne(KVTracker& tracker) {
  auto& memberships = membershipsOf(tracker);
  const auto it = membershipOf(memberships, this);
  if (it == memberships.end() || --it->count > 0) return;
  remove(tracker);
}

void TrackerIndex::remove(KVTracker& tracker) {
  auto& memberships = membershipsOf(tracker);
  const auto it = membershipOf(memberships, this);
  if (it == memberships.end()) return;
  unfile(tracker);
  memberships.erase(it);
}

bool TrackerIndex::contains(const KVTracker& tracker) const {
  const auto& memberships = membershipsOf(tracker);
  return membershipOf(memberships, this) != memberships.end();
}

KVTracker* TrackerIndex::firstWithMac(std::string_view mac) const {
  return first(byMac_, mac, [](const KVTracker&) { return true; });
}

void TrackerIndex::unfileEverywhere(KVTracker& tracker) {
  for (const IndexMembership& each : membershipsOf(tracker)) each.index->unfile(tracker);
}

void TrackerIndex::fileEverywhere(KVTracker& tracker) {
  for (const IndexMembership& each : membershipsOf(tracker)) each.index->file(tracker);
}

std::uint64_t TrackerIndex::orderOf(const KVTracker& tracker) const {
  return membershipOf(membershipsOf(tracker), this)->order;
}

void TrackerIndex::file(KVTracker& tracker) {
  if (keys_ == Keys::MacAndPeripheral && tracker.mac()) byMac_.emplace(*tracker.mac(), &tracker);
  if (tracker.peripheral()) byPeripheral_.emplace(tracker.peripheral()->identifier(), &tracker);
}

void TrackerIndex::unfile(KVTracker& tracker) {
  if (tracker.mac()) eraseFrom(byMac_, *tracker.mac(), tracker);
  if (tracker.peripheral()) eraseFrom(byPeripheral_, tracker.peripheral()->identifier(), tracker);
}

void TrackerIndex::eraseFrom(Table& table, std::string_view key, const KVTracker& tracker) {
  const auto [begin, end] = table.equal_range(key);
  const auto it =
      std::find_if(begin, end, [&](const auto& entry) { return entry.second == &tracker; });
  if (it != end) table.erase(it);
}

}  // namespace kv
