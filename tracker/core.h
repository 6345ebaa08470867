// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// A tracker behind its public face: its parts, and what goes from one to the other.
#ifndef TRACKER_CORE_H
#define TRACKER_CORE_H

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "KVFobLink/KVTracker.h"
#include "platform/services.h"
#include "tracker/commands.h"
#include "tracker/index_membership.h"
#include "tracker/link.h"
#include "tracker/record.h"
#include "tracker/session.h"

/// Whoever calls keeps it alive, by a `Hold`: any callback may drop the last reference to the
/// tracker.
class KVTracker::Core final : public KVPeripheralDelegate,
                              public std::enable_shared_from_this<Core> {
 public:
  /// Keeps a tracker alive for the time of one call, whoever owns it.
  class Hold {
   public:
    explicit Hold(KVTracker& tracker)
        : tracker_(tracker.weak_from_this().lock()), core_(tracker.core_) {}
    Core* operator->() const { return core_.get(); }

   private:
    std::shared_ptr<KVTracker> tracker_;
    std::shared_ptr<Core> core_;
  };

  explicit Core(std::shared_ptr<const kv::Services> services);

  static Core& of(const KVTracker& tracker) { return *tracker.core_; }
  static std::shared_ptr<KVTracker> makeTracker(std::shared_ptr<const kv::Services> services);

  /// Changes what a tracker is filed under, and files it anew wherever it is.
  static void setMac(KVTracker& tracker, std::optional<std::string> mac);
  static void setPeripheral(KVTracker& tracker, std::shared_ptr<KVPeripheral> peripheral);

  /// See `KVTracker::setBinding`; `kept` is kept until the check.
  void setBinding(bool binding, std::shared_ptr<const void> kept);
  void setState(std::int64_t state);
  void startPolling() { link.poller->start(*services_->timers); }

  void didDiscoverServices(KVPeripheral& peripheral, const std::optional<KVError>& error) override;
  void didDiscoverCharacteristicsForService(KVPeripheral& peripheral, KVService& service,
                                            const std::optional<KVError>& error) override;
  void didUpdateValueForCharacteristic(KVPeripheral& peripheral,
                                       const std::shared_ptr<KVCharacteristic>& characteristic,
                                       const std::optional<KVError>& error) override;
  void didWriteValueForCharacteristic(KVPeripheral& peripheral,
                                      const std::shared_ptr<KVCharacteristic>& characteristic,
                                      const std::optional<KVError>& error) override;
  void didReadRSSI(KVPeripheral& peripheral, std::optional<std::int64_t> rssi,
                   const std::optional<KVError>& error) override;

  void log(std::string_view line) const { services_->log->write(line); }

 private:
  void answered(const kv::Frame& answer);
  void bindAnswered(bool accepted);

  const std::shared_ptr<const kv::Services> services_;

 public:
  kv::TrackerRecord record;
  kv::TrackerLink link;
  kv::TrackerSession session{*services_, record, link};
  kv::TrackerCommands commands{session};
  KVCallbackSlot<ReceiveCallback> receiveBlock;
  std::vector<kv::IndexMembership> memberships;  // the collections that look this tracker up

  // Public properties that nothing uses.
  kv::ResultSlot commandSendBlock;
  std::vector<ConnectionCallback> conBlockArray;
};

#endif  // TRACKER_CORE_H
