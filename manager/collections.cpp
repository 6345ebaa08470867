#include <algorithm>
#include <iterator>
#include <utility>

#include "KVFobLink/KVTrackerCollections.h"
#include "manager/snapshot_store.h"
#include "tracker/tracker_index.h"

// Whatever drops a tracker does so last, with the collection in order: a tracker's callbacks may
// call back when they are destroyed.

KVTrackerList::KVTrackerList()
    : index_(std::make_unique<kv::TrackerIndex>(kv::TrackerIndex::Keys::kMacAndPeripheral)) {}

KVTrackerList::~KVTrackerList() { clear(); }

void KVTrackerList::append(std::shared_ptr<KVTracker> tracker) {
  if (!tracker) return;
  index_->add(*tracker);
  trackers_.push_back(std::move(tracker));
}

void KVTrackerList::insert(std::size_t index, std::shared_ptr<KVTracker> tracker) {
  if (!tracker) return;
  const auto at = std::min(index, trackers_.size());
  trackers_.insert(trackers_.begin() + static_cast<std::ptrdiff_t>(at), std::move(tracker));
  // The order of those behind it has changed.
  for (const auto& each : trackers_) index_->remove(*each);
  for (const auto& each : trackers_) index_->add(*each);
}

void KVTrackerList::remove(const std::shared_ptr<KVTracker>& tracker) {
  if (!tracker) return;
  const auto removed = tracker->shared_from_this();  // the argument may be an element
  index_->remove(*removed);
  std::erase(trackers_, removed);
}

void KVTrackerList::clear() {
  const auto dropped = std::exchange(trackers_, {});
  for (const auto& tracker : dropped) index_->remove(*tracker);
}

std::shared_ptr<KVTracker> KVTrackerList::firstWithMac(std::string_view mac) const {
  KVTracker* const tracker = index_->firstWithMac(mac);
  return tracker != nullptr ? tracker->shared_from_this() : nullptr;
}

std::shared_ptr<KVTracker> KVTrackerList::firstWithPeripheral(std::string_view identifier) const {
  KVTracker* const tracker =
      index_->firstWithPeripheral(identifier, [](const KVTracker&) { return true; });
  return tracker != nullptr ? tracker->shared_from_this() : nullptr;
}

namespace kv {

class TrackerTable {
 public:
  std::unordered_map<std::string, std::shared_ptr<KVTracker>, TextHash, std::equal_to<>> trackers;
  TrackerIndex index{TrackerIndex::Keys::kPeripheral};
  SnapshotStore snapshots;  // empty, or in step with `trackers`
};

}  // namespace kv

KVTrackerMap::KVTrackerMap() : table_(std::make_unique<kv::TrackerTable>()) {}

KVTrackerMap::~KVTrackerMap() { clear(); }

std::size_t KVTrackerMap::size() const { return table_->trackers.size(); }

std::shared_ptr<KVTracker> KVTrackerMap::find(std::string_view key) const {
  const auto it = table_->trackers.find(key);
  return it != table_->trackers.end() ? it->second : nullptr;
}

void KVTrackerMap::set(std::string_view key, std::shared_ptr<KVTracker> tracker) {
  if (!tracker) return;
  erase(key);
  const bool inStep = table_->snapshots.size() == table_->trackers.size();
  table_->index.add(*tracker);
  if (inStep) table_->snapshots.append(tracker);
  table_->trackers.emplace(key, std::move(tracker));
}

void KVTrackerMap::erase(std::string_view key) {
  const auto it = table_->trackers.find(key);
  if (it == table_->trackers.end()) return;
  const auto removed = std::move(it->second);
  table_->trackers.erase(it);
  table_->index.removeOne(*removed);
  table_->snapshots.reset();
}

void KVTrackerMap::clear() {
  const auto dropped = std::exchange(table_->trackers, {});
  for (const auto& [key, tracker] : dropped) table_->index.removeOne(*tracker);
  table_->snapshots.reset();
}

KVTrackers KVTrackerMap::values() const {
  if (table_->snapshots.size() != table_->trackers.size()) {
    table_->snapshots.reset();
    for (const auto& [key, tracker] : table_->trackers) table_->snapshots.append(tracker);
  }
  return table_->snapshots.snapshot();
}

std::shared_ptr<KVTracker> KVTrackerMap::bindingWithPeripheral(std::string_view identifier) const {
  KVTracker* const tracker = table_->index.firstWithPeripheral(
      identifier, [](const KVTracker& candidate) { return candidate.binding(); });
  return tracker != nullptr ? tracker->shared_from_this() : nullptr;
}
