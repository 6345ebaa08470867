// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// The manager's live collections of trackers, and the snapshot that a scan reports.
#ifndef KVFOBLINK_KVTRACKERCOLLECTIONS_H
#define KVFOBLINK_KVTRACKERCOLLECTIONS_H

#include <cstddef>
#include <memory>
#include <string_view>

#include "KVFobLink/KVExport.h"
#include "KVFobLink/KVTracker.h"

/// A list of trackers that never changes. Copying it costs the same for any number of trackers.
class KVFOB_EXPORT KVTrackers {
 public:
  using Element = std::shared_ptr<KVTracker>;

  KVTrackers();
  ~KVTrackers();
  KVTrackers(const KVTrackers&);
  KVTrackers(KVTrackers&&) noexcept;
  KVTrackers& operator=(const KVTrackers&);
  KVTrackers& operator=(KVTrackers&&) noexcept;

  std::size_t size() const { return static_cast<std::size_t>(end() - begin()); }
  bool empty() const { return begin() == end(); }
  const Element& operator[](std::size_t index) const { return begin()[index]; }
  const Element* begin() const;
  const Element* end() const;

 private:
  friend class KVTrackerMap;
  struct KVFOB_LOCAL Data;

  KVFOB_LOCAL explicit KVTrackers(std::shared_ptr<const Data> data);

  std::shared_ptr<const Data> data_;
};

/// The bound trackers, in order; the same tracker may stand in it more than once.
///
/// The list is live: it changes under whoever holds it, from inside any callback. Walk it by index,
/// read `size()` again at every step and copy the element; iterators do not survive a change. Event
/// thread.
class KVFOB_EXPORT KVTrackerList {
 public:
  KVTrackerList();
  ~KVTrackerList();
  KVTrackerList(const KVTrackerList&) = delete;
  KVTrackerList& operator=(const KVTrackerList&) = delete;

  std::size_t size() const { return static_cast<std::size_t>(end() - begin()); }
  bool empty() const { return begin() == end(); }
  const std::shared_ptr<KVTracker>& operator[](std::size_t index) const { return begin()[index]; }
  const std::shared_ptr<KVTracker>* begin() const;
  const std::shared_ptr<KVTracker>* end() const;

  /// Adds a tracker at the end. An absent one is ignored.
  void append(std::shared_ptr<KVTracker> tracker);

  /// Adds a tracker before position `index`; an index past the end appends.
  void insert(std::size_t index, std::shared_ptr<KVTracker> tracker);

  /// Removes every entry that is this very tracker.
  void remove(const std::shared_ptr<KVTracker>& tracker);

  void clear();

  /// Whether this very tracker stands in the list. Its cost does not grow with the list.
  bool contains(const KVTracker& tracker) const;

  /// The first tracker in order with exactly this address text, or null. Its cost does not grow
  /// with the list.
  std::shared_ptr<KVTracker> firstWithMac(std::string_view mac) const;

  /// The first tracker in order whose peripheral has this identifier, or null. Its cost does not
  /// grow with the list.
  std::shared_ptr<KVTracker> firstWithPeripheral(std::string_view identifier) const;

 private:
  struct KVFOB_LOCAL Data;

  std::unique_ptr<Data> data_;
};

/// The unbound trackers of a scan by address text. Live, as `KVTrackerList`. Event thread.
class KVFOB_EXPORT KVTrackerMap {
 public:
  KVTrackerMap();
  ~KVTrackerMap();
  KVTrackerMap(const KVTrackerMap&) = delete;
  KVTrackerMap& operator=(const KVTrackerMap&) = delete;

  std::size_t size() const;
  bool empty() const { return size() == 0; }

  /// The tracker stored under `key`, or null.
  std::shared_ptr<KVTracker> find(std::string_view key) const;

  /// Stores a tracker under `key` in place of an earlier one. An absent tracker is ignored.
  void set(std::string_view key, std::shared_ptr<KVTracker> tracker);

  void erase(std::string_view key);
  void clear();

  /// All trackers, in no particular order. Costs the same for any number of them while the map does
  /// not change.
  KVTrackers values() const;

  /// A tracker whose peripheral has this identifier and whose `binding` is true, or null.
  std::shared_ptr<KVTracker> bindingWithPeripheral(std::string_view identifier) const;

 private:
  struct KVFOB_LOCAL Data;

  std::unique_ptr<Data> data_;
};

#endif  // KVFOBLINK_KVTRACKERCOLLECTIONS_H
