// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// The BlueZ central: the adapter, the scan, the links, and the events of its delegate.
#ifndef PLATFORM_LINUX_BLUEZ_CENTRAL_CORE_H
#define PLATFORM_LINUX_BLUEZ_CENTRAL_CORE_H

#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "KVFobLink/KVBluetooth.h"
#include "platform/linux/bluez/context.h"
#include "platform/linux/bluez/daemon.h"
#include "platform/linux/bluez/link.h"
#include "platform/linux/bluez/live_rssi.h"
#include "platform/linux/bluez/object_tree.h"
#include "platform/linux/bluez/scan_session.h"

namespace kv {

/// All events but advertisements are posted, so they keep their order and never come from inside a
/// request. Event thread, but for the constructor.
class CentralCore : public std::enable_shared_from_this<CentralCore>,
                    private ObjectTreeObserver,
                    private LinkHost {
 public:
  CentralCore(KVCentral& central, KVCentralDelegate& delegate, WeakLinuxQueue queue,
              const KVBlueZOptions& options, const BlueZTiming& timing, std::shared_ptr<KVLog> log,
              std::shared_ptr<HciSockets> sockets);

  void start();
  /// Ends all events, links and scans. The central may be gone afterwards.
  void close();

  std::int64_t state() const { return state_; }
  void scan(std::span<const KVUUID> services, bool allowDuplicates);
  void stopScan();
  void connect(const std::shared_ptr<KVPeripheral>& peripheral);
  void cancel(const std::shared_ptr<KVPeripheral>& peripheral);

  /// The attributes of the link to `address`; null without a link.
  GattSession* session(const std::string& address);
  void readRssi(const std::shared_ptr<BlueZPeripheral>& peripheral);

 private:
  void adaptersChanged() override;
  void deviceHeard(DeviceObject& device) override;
  void deviceChanged(DeviceObject& device) override;
  void deviceDisconnected(DeviceObject& device, const std::string& why) override;
  void deviceRemoved(DeviceObject& device) override;
  void characteristicValue(std::string_view path, KVBytes value) override;
  void attributeRemoved(std::string_view path) override;

  const std::string& adapterPath() const override { return adapterOn_; }
  void requestInitiating(Link& link) override;
  void releaseInitiating(Link& link) override;
  bool radioContended() const override { return userScan_ || !waitingInitiators_.empty(); }
  void advertisementsWantedChanged() override;
  void reportConnected(Link& link) override;
  void reportDisconnected(Link& link, std::optional<KVError> error) override;

  LinkHost& host() { return *this; }
  const AdapterObject* chooseAdapter() const;
  void updateAdapter();
  void setAdapter(const std::string& pathWhenOn);
  void announce(std::int64_t state);
  void updateScan();
  bool wantedByScan(const DeviceObject& device);
  void deliverAdvertisement(DeviceObject& device, std::optional<std::int64_t> rssi);
  void reportConnectedDevices();
  const std::shared_ptr<BlueZPeripheral>& handleOf(DeviceObject& device);
  Link* findLink(const std::string& address);
  void grantInitiating();
  void forgetIdle(const std::string& address);
  void post(std::function<void(CentralCore&)> task);

  KVCentral* central_;
  KVCentralDelegate* delegate_;
  Context context_;
  Daemon daemon_;
  ScanSession scan_;
  LiveRssi rssi_;
  Timer noAdapter_;

  std::int64_t state_ = KVCentralStateUnknown;  ///< Of the latest event that was delivered,
  std::optional<std::int64_t> announced_;       ///< and of the latest that was posted.
  bool everReady_ = false;
  std::string adapterPath_;  ///< The chosen adapter, on or off.
  std::string adapterOn_;    ///< The same while it is on, else empty.

  bool userScan_ = false;
  std::vector<KVUUID> scanServices_;
  bool scanDuplicates_ = false;
  std::unordered_set<std::string> scanReported_;
  std::vector<KVAdvertisement::ServiceData> advertisement_;  ///< Kept for its memory.

  std::unordered_map<std::string, std::weak_ptr<BlueZPeripheral>> handles_;
  std::size_t handlesToSweep_ = 64;
  std::map<std::string, std::unique_ptr<Link>, std::less<>> links_;
  Link* initiator_ = nullptr;  ///< Whose attempt is under way.
  std::deque<Link*> waitingInitiators_;
};

}  // namespace kv

#endif  // PLATFORM_LINUX_BLUEZ_CENTRAL_CORE_H
