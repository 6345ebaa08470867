#include "manager/snapshot_store.h"

#include <algorithm>
#include <utility>

namespace kv {

void SnapshotStore::append(KVTrackers::Element element) {
  if (size_ == capacity_) {
    capacity_ = std::max<std::size_t>(2 * capacity_, 8);
    auto grown = std::make_shared<KVTrackers::Element[]>(capacity_);
    std::copy_n(elements_.get(), size_, grown.get());
    elements_ = std::move(grown);
  }
  elements_[static_cast<std::ptrdiff_t>(size_++)] = std::move(element);
}

void SnapshotStore::reset() {
  // The store is empty before the elements go: what they hold may call back into the collection.
  const auto dropped = std::exchange(elements_, nullptr);
  size_ = capacity_ = 0;
}

}  // namespace kv
