/// The array behind the snapshots of a growing set.
#ifndef MANAGER_SNAPSHOT_STORE_H
#define MANAGER_SNAPSHOT_STORE_H

#include <cstddef>
#include <memory>

#include "KVFobLink/KVTrackerCollections.h"

namespace kv {

/// Keeps the elements of a set in one shared array, so that a snapshot costs the same for any
/// number of them. An element that is added goes behind those that older snapshots see, in the same
/// array while it has room; so a set that grows one by one is not copied each time.
class SnapshotStore {
 public:
  void append(KVTrackers::Element element);

  /// Forgets all elements; snapshots that were taken keep theirs.
  void reset();

  std::size_t size() const { return size_; }
  KVTrackers snapshot() const { return {elements_, size_}; }

 private:
  std::shared_ptr<KVTrackers::Element[]> elements_;
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;
};

}  // namespace kv

#endif  // MANAGER_SNAPSHOT_STORE_H
