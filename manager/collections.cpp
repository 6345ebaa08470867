// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "KVFobLink/KVTrackerCollections.h"

#include <algorithm>
#include <unordered_map>
#include <utility>
#include <vector>

#include "tracker/tracker_index.h"

// Whatever drops a tracker does so last, with the collection in order: a tracker's callbacks may
// call back when they are destroyed.

// ---- The snapshot

struct KVTrackers::Data {
  std::vector<Element> elements;
};

KVTrackers::KVTrackers() = default;
KVTrackers::~KVTrackers() = default;
KVTrackers::KVTrackers(const KVTrackers&) = default;
KVTrackers::KVTrackers(KVTrackers&&) noexcept = default;
KVTrackers& KVTrackers::operator=(const KVTrackers&) = default;
KVTrackers& KVTrackers::operator=(KVTrackers&&) noexcept = default;
KVTrackers::KVTrackers(std::shared_ptr<const Data> data) : data_(std::move(data)) {}

const KVTrackers::Element* KVTrackers::begin() const {
  return data_ ? data_->elements.data() : nullptr;
}
const KVTrackers::Element* KVTrackers::end() const {
  return data_ ? data_->elements.data() + data_->elements.size() : nullptr;
}

// ---- The list

struct KVTrackerList::Data {
  std::vector<std::shared_ptr<KVTracker>> trackers;
  kv::TrackerIndex index{kv::TrackerIndex::Keys::MacAndPeripheral};
};

KVTrackerList::KVTrackerList() : data_(std::make_unique<Data>()) {}

KVTrackerList::~KVTrackerList() { clear(); }

const std::shared_ptr<KVTracker>* KVTrackerList::begin() const { return data_->trackers.data(); }
const std::shared_ptr<KVTracker>* KVTrackerList::end() const {
  return begin() + data_->trackers.size();
}

void KVTrackerList::append(std::shared_ptr<KVTracker> tracker) {
  if (!tracker) return;
  data_->index.add(*tracker);
  data_->trackers.push_back(std::move(tracker));
}

void KVTrackerList::insert(std::size_t index, std::shared_ptr<KVTracker> tracker) {
  if (!tracker) return;
  auto& trackers = data_->trackers;
  const auto at = std::min(index, trackers.size());
  trackers.insert(trackers.begin() + static_cast<std::ptrdiff_t>(at), std::move(tracker));
  // The order of those behind it has changed.
  for (const auto& each : trackers) data_->index.remove(*each);
  for (const auto& each : trackers) data_->index.add(*each);
}

void KVTrackerList::remove(const std::shared_ptr<KVTracker>& tracker) {
  if (!tracker) return;
  const auto removed = kv::sharedOf(tracker.get());
  data_->index.remove(*removed);
  std::erase(data_->trackers, removed);
}

void KVTrackerList::clear() {
  const auto dropped = std::exchange(data_->trackers, {});
  for (const auto& tracker : dropped) data_->index.remove(*tracker);
}

bool KVTrackerList::contains(const KVTracker& tracker) const {
  return data_->index.contains(tracker);
}

std::shared_ptr<KVTracker> KVTrackerList::firstWithMac(std::string_view mac) const {
  return kv::sharedOf(data_->index.firstWithMac(mac));
}

std::shared_ptr<KVTracker> KVTrackerList::firstWithPeripheral(std::string_view identifier) const {
  return kv::sharedOf(
      data_->index.firstWithPeripheral(identifier, [](const KVTracker&) { return true; }));
}

// ---- The map

struct KVTrackerMap::Data {
  // Forgets the snapshot last, as its trackers may go with it.
  void reset() { const auto dropped = std::exchange(snapshot, nullptr); }

  std::unordered_map<std::string, std::shared_ptr<KVTracker>, kv::TextHash, std::equal_to<>>
      trackers;
  kv::TrackerIndex index{kv::TrackerIndex::Keys::Peripheral};
  // The trackers as `values` hands them out; absent until it is asked for. It is extended in place
  // while nobody else holds it, so that a set that grows one by one is not copied each time.
  std::shared_ptr<KVTrackers::Data> snapshot;
};

KVTrackerMap::KVTrackerMap() : data_(std::make_unique<Data>()) {}

KVTrackerMap::~KVTrackerMap() { clear(); }

std::size_t KVTrackerMap::size() const { return data_->trackers.size(); }

std::shared_ptr<KVTracker> KVTrackerMap::find(std::string_view key) const {
  const auto it = data_->trackers.find(key);
  return it != data_->trackers.end() ? it->second : nullptr;
}

void KVTrackerMap::set(std::string_view key, std::shared_ptr<KVTracker> tracker) {
  if (!tracker) return;
  std::string own(key);  // the key may live in the tracker that is replaced
  erase(own);
  data_->index.add(*tracker);
  if (data_->snapshot) {
    if (data_->snapshot.use_count() > 1) {
      data_->snapshot = std::make_shared<KVTrackers::Data>(*data_->snapshot);
    }
    data_->snapshot->elements.push_back(tracker);
  }
  data_->trackers.emplace(std::move(own), std::move(tracker));
}

void KVTrackerMap::erase(std::string_view key) {
  const auto it = data_->trackers.find(key);
  if (it == data_->trackers.end()) return;
  const auto removed = std::move(it->second);
  data_->trackers.erase(it);
  data_->index.removeOne(*removed);
  data_->reset();
}

void KVTrackerMap::clear() {
  const auto dropped = std::exchange(data_->trackers, {});
  for (const auto& [key, tracker] : dropped) data_->index.removeOne(*tracker);
  data_->reset();
}

KVTrackers KVTrackerMap::values() const {
  if (!data_->snapshot) {
    data_->snapshot = std::make_shared<KVTrackers::Data>();
    for (const auto& [key, tracker] : data_->trackers) {
      data_->snapshot->elements.push_back(tracker);
    }
  }
  return KVTrackers(data_->snapshot);
}

std::shared_ptr<KVTracker> KVTrackerMap::bindingWithPeripheral(std::string_view identifier) const {
  return kv::sharedOf(data_->index.firstWithPeripheral(
      identifier, [](const KVTracker& candidate) { return candidate.binding(); }));
}
