#include "tracker/tracker_index.h"

#include <algorithm>

namespace kv {
namespace {

auto membershipOf(auto& memberships, const TrackerIndex* index) {
  return std::ranges::find(memberships, index, &IndexMembership::index);
}

}  // namespace

void TrackerIndex::add(KVTracker& tracker) {
  auto& memberships = tracker.memberships_;
  const std::uint64_t order = nextOrder_++;
  if (const auto it = membershipOf(memberships, this); it != memberships.end()) {
    ++it->count;
    return;
  }
  memberships.push_back({this, order, 1});
  file(tracker);
}

void TrackerIndex::removeOne(KVTracker& tracker) {
  const auto it = membershipOf(tracker.memberships_, this);
  if (it == tracker.memberships_.end() || --it->count > 0) return;
  remove(tracker);
}

void TrackerIndex::remove(KVTracker& tracker) {
  const auto it = membershipOf(tracker.memberships_, this);
  if (it == tracker.memberships_.end()) return;
  unfile(tracker);
  tracker.memberships_.erase(it);
}

KVTracker* TrackerIndex::firstWithMac(std::string_view mac) const {
  return first(byMac_, mac, [](const KVTracker&) { return true; });
}

void TrackerIndex::unfileEverywhere(KVTracker& tracker) {
  for (const IndexMembership& membership : tracker.memberships_) membership.index->unfile(tracker);
}

void TrackerIndex::fileEverywhere(KVTracker& tracker) {
  for (const IndexMembership& membership : tracker.memberships_) membership.index->file(tracker);
}

std::uint64_t TrackerIndex::orderOf(const KVTracker& tracker) const {
  return membershipOf(tracker.memberships_, this)->order;
}

void TrackerIndex::file(KVTracker& tracker) {
  if (keys_ == Keys::kMacAndPeripheral && tracker.mac()) byMac_.emplace(*tracker.mac(), &tracker);
  if (tracker.peripheral()) byPeripheral_.emplace(tracker.peripheral()->identifier(), &tracker);
}

void TrackerIndex::unfile(KVTracker& tracker) {
  if (keys_ == Keys::kMacAndPeripheral && tracker.mac()) eraseFrom(byMac_, *tracker.mac(), tracker);
  if (tracker.peripheral()) eraseFrom(byPeripheral_, tracker.peripheral()->identifier(), tracker);
}

void TrackerIndex::eraseFrom(Table& table, std::string_view key, const KVTracker& tracker) {
  const auto [begin, end] = table.equal_range(key);
  const auto it =
      std::find_if(begin, end, [&](const auto& entry) { return entry.second == &tracker; });
  if (it != end) table.erase(it);
}

}  // namespace kv
