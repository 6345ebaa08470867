// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// The one place of the library that other threads reach.
#ifndef TRACKER_RSSI_POLLER_H
#define TRACKER_RSSI_POLLER_H

#include <memory>
#include <mutex>

#include "KVFobLink/KVPlatform.h"

namespace kv {

/// Asks a peripheral for its signal strength every 3 seconds, on a timer thread, while its link is
/// up.
///
/// The ticks see this object alone, never the tracker: so the tracker, and the application's
/// callbacks in it, are destroyed on the event thread whatever a tick is doing.
class RssiPoller : public std::enable_shared_from_this<RssiPoller> {
 public:
  /// The peripheral to ask. Event thread.
  const std::shared_ptr<KVPeripheral>& peripheral() const { return peripheral_; }
  void setPeripheral(std::shared_ptr<KVPeripheral> peripheral);

  /// Starts to poll; a poll that runs is ended first. Event thread.
  void start(KVTimerThreads& timers);

  /// Ends the polling. On any thread but the ticking one, no tick runs once it has returned. Any
  /// thread.
  void stop();

  /// Asks once, or ends the polling when the link is not up. Any thread.
  void tick();

  /// The running timer, or null. Any thread.
  std::shared_ptr<KVTimerThread> timer() const;

 private:
  mutable std::mutex mutex_;  // guards both; only the event thread writes the peripheral
  std::shared_ptr<KVPeripheral> peripheral_;
  std::shared_ptr<KVTimerThread> timer_;
};

}  // namespace kv

#endif  // TRACKER_RSSI_POLLER_H
