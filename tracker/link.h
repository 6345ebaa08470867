// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// The link to a tag as the application sees it, the bind request that waits for it, and the poll
/// of its signal strength.
#ifndef TRACKER_LINK_H
#define TRACKER_LINK_H

#include <cstdint>
#include <memory>

#include "KVFobLink/KVCallbackSlot.h"
#include "KVFobLink/KVTracker.h"
#include "platform/services.h"
#include "tracker/rssi_poller.h"

namespace kv {

/// Whoever calls keeps the tracker alive: a callback may drop the last reference to it.
class TrackerLink {
 public:
  ~TrackerLink() { poller->stop(); }

  const std::shared_ptr<KVPeripheral>& peripheral() const { return poller->peripheral(); }

  /// Stores the value and, while the tracker is bound, reports it.
  void updateConnection(std::uint64_t value);

  /// Takes over a state that is no link: reports what it means, and ends the polling.
  void leave(std::int64_t newState);

  /// Stores the flag. When true, fails the request in 30 seconds unless it is over by then.
  ///
  /// @param self  Looks for this object then.
  /// @param kept  Is kept until then, as long as the queue lives.
  void setBinding(bool value, const Services& services, std::weak_ptr<TrackerLink> self,
                  std::shared_ptr<const void> kept);

  /// Ends the bind request, of which `bindingBlock` is then to be told. False when there is none.
  bool endBinding();

  std::int64_t state = KVTrackerStateDisconnected;
  std::uint64_t connection = KVConnectionDisconnect;
  bool binding = false;
  bool bound = false;
  const std::shared_ptr<RssiPoller> poller = std::make_shared<RssiPoller>();  // and the peripheral
  KVCallbackSlot<KVResultCallback> bindingBlock;
  KVCallbackSlot<KVTracker::ConnectionCallback> connectionBlock;
  KVCallbackSlot<KVTracker::UpdateCallback> valueUpdated;

 private:
  void bindTimedOut();
};

}  // namespace kv

#endif  // TRACKER_LINK_H
