// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// A tracker's side of the indexes that look it up.
#ifndef TRACKER_INDEX_MEMBERSHIP_H
#define TRACKER_INDEX_MEMBERSHIP_H

#include <cstddef>
#include <cstdint>

namespace kv {

class TrackerIndex;

/// A tracker's place in one index: how often it was added, and its first place in order.
struct IndexMembership {
  TrackerIndex* index = nullptr;
  std::uint64_t order = 0;
  std::size_t count = 0;
};

}  // namespace kv

#endif  // TRACKER_INDEX_MEMBERSHIP_H
