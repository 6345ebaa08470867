// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// A manager behind its public face: the adapter, the scan, the registry, connections, binding; a
/// file each.
#ifndef MANAGER_CORE_H
#define MANAGER_CORE_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "KVFobLink/KVCallbackSlot.h"
#include "KVFobLink/KVTrackerManager.h"
#include "platform/services.h"
#include "protocol/advertisement.h"

/// Whoever calls keeps it alive, by a `Hold`: any callback may drop the last reference to the
/// manager. Trackers that are passed on are copied first: an argument may be an element of what a
/// callback changes.
class KVTrackerManager::Core final : public std::enable_shared_from_this<Core> {
 public:
  using Tracker = std::shared_ptr<KVTracker>;
  using Peripheral = std::shared_ptr<KVPeripheral>;

  /// Keeps a manager alive for the time of one call, whoever owns it.
  class Hold {
   public:
    explicit Hold(KVTrackerManager& manager)
        : manager_(manager.weak_from_this().lock()), core_(manager.core_) {}
    Core* operator->() const { return core_.get(); }

   private:
    std::shared_ptr<KVTrackerManager> manager_;
    std::shared_ptr<Core> core_;
  };

  explicit Core(const KVPlatform& platform);
  ~Core();
  Core(const Core&) = delete;
  Core& operator=(const Core&) = delete;

  /// Makes the central, whose events go to `delegate`.
  void open(const KVPlatform& platform, KVCentralDelegate& delegate);
  /// Ends the events of the central that was made here.
  void close();

  void setPassword(std::optional<std::string> value);
  void stateChanged(const KVCentral& from);  // manager.cpp

  // scanning.cpp
  void startScan(ScanCallback callback);
  void scanForTrackers();
  void stopScan();
  void advertised(const Peripheral& peripheral, const KVAdvertisement& advertisement,
                  std::optional<std::int64_t> rssi);

  // registry.cpp
  Tracker exist(const std::string& mac, bool bind) const;
  Tracker targetOf(const Peripheral& peripheral) const;
  Tracker add(const std::string& mac);
  void remove(const std::string& mac);
  void removeAll();

  // connection.cpp
  void connect(const Tracker& tracker);
  void forceConnect(const Tracker& tracker, const Peripheral& newPeripheral);
  void disconnect(const Tracker& tracker);
  void linkChanged(const Peripheral& peripheral);

  // binding.cpp
  void bind(const Tracker& tracker, KVResultCallback completion,
            std::shared_ptr<KVTrackerManager> manager);
  void unbind(const std::string& mac, KVResultCallback completion,
              std::shared_ptr<KVTrackerManager> manager);

  void log(std::string_view line) const { services_->log->write(line); }

  bool scanning = false;
  bool switchOff = false;
  std::optional<std::string> password;
  KVCallbackSlot<ScanCallback> scanBlock;
  std::shared_ptr<KVTrackerMap> scannedDict = std::make_shared<KVTrackerMap>();
  std::shared_ptr<KVTrackerList> bindArray = std::make_shared<KVTrackerList>();
  KVCallbackSlot<StateCallback> stateChangeBlock;
  KVCallbackSlot<ConnectionCallback> connectionBlock;
  std::shared_ptr<KVCentral> central;

 private:
  void takeInBound(const Tracker& tracker, const kv::AdvertisedFrame& frame,
                   const Peripheral& peripheral, std::optional<std::int64_t> rssi);
  void takeInScanned(const std::string& mac, const kv::AdvertisedFrame& frame,
                     const Peripheral& peripheral, std::optional<std::int64_t> rssi);
  void requestLink(const Tracker& tracker);
  void finishBinding(const Tracker& tracker, bool success);
  void finishUnbinding(const Tracker& tracker, bool success);

  const std::shared_ptr<const kv::Services> services_;
  std::weak_ptr<KVCentral> ownCentral_;
};

#endif  // MANAGER_CORE_H
