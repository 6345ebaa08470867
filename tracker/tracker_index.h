// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// Look-up of trackers at a cost that does not grow with their number.
#ifndef TRACKER_TRACKER_INDEX_H
#define TRACKER_TRACKER_INDEX_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "KVFobLink/KVTracker.h"

namespace kv {

/// Hashes texts and views of texts alike, so that a look-up makes no copy of its key.
struct TextHash {
  using is_transparent = void;
  std::size_t operator()(std::string_view text) const {
    return std::hash<std::string_view>{}(text);
  }
};

/// Finds the first tracker of a collection by address text or by the identifier of its peripheral.
/// Trackers tell it when either changes, so it is never stale. It does not keep trackers alive: the
/// collection does, and removes each of them before it drops it.
class TrackerIndex {
 public:
  enum class Keys { MacAndPeripheral, Peripheral };

  explicit TrackerIndex(Keys keys) : keys_(keys) {}
  TrackerIndex(const TrackerIndex&) = delete;
  TrackerIndex& operator=(const TrackerIndex&) = delete;

  /// Adds a tracker behind all others; one that is there already keeps its first place.
  void add(KVTracker& tracker);

  /// Takes back one `add`, or all of them.
  void removeOne(KVTracker& tracker);
  void remove(KVTracker& tracker);

  bool contains(const KVTracker& tracker) const;

  KVTracker* firstWithMac(std::string_view mac) const;

  /// The first one that `accepts` too.
  template <typename Predicate>
  KVTracker* firstWithPeripheral(std::string_view identifier, Predicate accepts) const {
    return first(byPeripheral_, identifier, accepts);
  }

  /// For the tracker: files it anew around a change of its keys.
  static void unfileEverywhere(KVTracker& tracker);
  static void fileEverywhere(KVTracker& tracker);

 private:
  using Table = std::unordered_multimap<std::string, KVTracker*, TextHash, std::equal_to<>>;

  template <typename Predicate>
  KVTracker* first(const Table& table, std::string_view key, Predicate accepts) const {
    KVTracker* found = nullptr;
    const auto [begin, end] = table.equal_range(key);
    for (auto it = begin; it != end; ++it) {
      KVTracker* const candidate = it->second;
      if (!accepts(*candidate)) continue;
      if (found == nullptr || orderOf(*candidate) < orderOf(*found)) found = candidate;
    }
    return found;
  }

  std::uint64_t orderOf(const KVTracker& tracker) const;
  void file(KVTracker& tracker);
  void unfile(KVTracker& tracker);
  static void eraseFrom(Table& table, std::string_view key, const KVTracker& tracker);

  const Keys keys_;
  std::uint64_t nextOrder_ = 0;
  Table byMac_;
  Table byPeripheral_;
};

/// A reference of one's own, to what a look-up found or to an argument that may be an element of
/// what is about to change: the shared tracker, or one that its owner keeps otherwise.
inline std::shared_ptr<KVTracker> sharedOf(KVTracker* tracker) {
  if (tracker == nullptr) return nullptr;
  auto shared = tracker->weak_from_this().lock();
  return shared ? shared : std::shared_ptr<KVTracker>(std::shared_ptr<void>(), tracker);
}

}  // namespace kv

#endif  // TRACKER_TRACKER_INDEX_H
