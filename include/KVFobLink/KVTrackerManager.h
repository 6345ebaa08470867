/// The library's entry object.
#ifndef KVFOBLINK_KVTRACKERMANAGER_H
#define KVFOBLINK_KVTRACKERMANAGER_H

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "KVFobLink/KVBluetooth.h"
#include "KVFobLink/KVCallbackSlot.h"
#include "KVFobLink/KVExport.h"
#include "KVFobLink/KVPlatform.h"
#include "KVFobLink/KVTracker.h"
#include "KVFobLink/KVTrackerCollections.h"
#include "KVFobLink/KVTypes.h"

namespace kv {
class AdvertisedFrame;
}

/// Scans for tags, binds them with a password, and keeps bound tags connected.
///
/// All operations are for the event thread unless marked otherwise, and all callbacks run there; a
/// callback may call anything. Nothing is stored: an application that wants its tags back after a
/// restart keeps their addresses and registers them again with `addTracker`.
///
///     auto manager = KVTrackerManager::sharedInstance();
///     manager->setPassword("secret");
///     manager->startScan([](const KVTrackers& trackers) { ... });
///     KVPlatform::current().eventQueue->run();
///
/// A bad argument is reported by a line in the log and an early return, and some such returns never
/// call the completion; each operation says which.
class KVFOB_EXPORT KVTrackerManager final : public KVCentralDelegate,
                                            public std::enable_shared_from_this<KVTrackerManager> {
 public:
  using StateCallback = std::function<void(std::int64_t state)>;
  using ScanCallback = std::function<void(const KVTrackers& trackers)>;
  using ConnectionCallback =
      std::function<void(std::int64_t connection, const std::shared_ptr<KVTracker>& tracker)>;
  using Mac = std::optional<std::string>;

  /// The process-wide manager, made at the first call and never destroyed. Any thread, also two at
  /// once.
  static std::shared_ptr<KVTrackerManager> sharedInstance();

  /// A further, independent manager with a central of its own, on the platform in force now.
  /// Managers live in `std::shared_ptr`. Event thread.
  KVTrackerManager();
  ~KVTrackerManager() override;

  // ---- Adapter
  // --------------------------------------------------------------------------------------------------

  /// The adapter's state now, one of `KVCentralState`.
  std::uint64_t bleState() const;

  /// Reports the adapter's state on each change from now on, not at once. Replaces the earlier
  /// callback.
  void didChangeBluetooth(StateCallback callback) { setStateChangeBlock(std::move(callback)); }

  // ---- Scanning
  // -------------------------------------------------------------------------------------------------

  /// Starts a scan with an empty set of tags. The callback gets the whole set of unbound tags at
  /// every advertisement of any of them; bound tags are not reported. The scan does not need the
  /// adapter to be on: it runs whenever it is, until `stopScan`. Replaces the callback of a scan
  /// that runs.
  void startScan(ScanCallback callback);

  /// Ends the scan. The set is kept, for `scannedTrackers`.
  void stopScan();

  /// The unbound tags heard in the current scan, or the last one. They stay until the next scan
  /// starts.
  KVTrackers scannedTrackers() const;

  // ---- Registry
  // -------------------------------------------------------------------------------------------------
  // Addresses are compared exactly: 12 lower-case hexadecimal digits, as scanning reports them.

  /// Registers a tag by its address and returns its tracker: the bound one if there is one; else
  /// the scanned one, which is moved as it is, its `bound` and `password` untouched; else a new one
  /// that is bound, with the manager's password, and that is linked to a radio when it is heard. An
  /// absent address logs "Error: the given tracker doesn't have a mac address." and gives null.
  std::shared_ptr<KVTracker> addTracker(const Mac& mac);

  /// Drops a bound tag and its link, without telling the tag. An unknown address is ignored; an
  /// absent one is logged.
  void removeTracker(const Mac& mac);

  /// Drops all tags, bound and scanned, and ends the scan at the adapter; the scan resumes at its
  /// next power-on.
  void removeAllTrackers();

  /// Looks an address up among the bound tags, or else among the scanned ones. Null when there is
  /// none.
  std::shared_ptr<KVTracker> existTracker(const Mac& mac, bool bind) const;

  /// The bound tags: the live list itself, not a copy.
  std::shared_ptr<const KVTrackerList> bindTrackers() const { return bindArray_; }

  /// The password for binding: UTF-8, 1 to 13 bytes. Copied into trackers as they are made and
  /// bound.
  const std::optional<std::string>& password() const { return password_; }
  void setPassword(std::optional<std::string> password);

  // ---- Connecting and binding
  // -----------------------------------------------------------------------------------

  /// Asks for a link. A bound tag whose link drops is asked again by itself. Logs and does nothing
  /// for a tracker without a peripheral, or one that is connecting.
  void connect(const std::shared_ptr<KVTracker>& tracker);

  /// As `connect`, but first replaces a peripheral that is another device's. Called for every
  /// advertisement of a bound tag.
  void forceConnect(const std::shared_ptr<KVTracker>& tracker,
                    const std::shared_ptr<KVPeripheral>& newPeripheral);

  /// Drops the link or the request for one. A tracker that is still bound is connected again at
  /// once; use `removeTracker` to be rid of it.
  void disconnect(const std::shared_ptr<KVTracker>& tracker);

  /// Binds a scanned tag with the manager's password: connects, and lets the tag accept it.
  ///
  /// @param completion  Required. Called once: (true, absent), and the tag has moved to the bound
  /// ones; or (false,
  ///                    error) with "error password." (100) when the tag refused, or "Error!
  ///                    Binding Timeout." (400) after 30 seconds, and nothing has moved and the
  ///                    link is left as it is. Not called when the tracker has no peripheral, which
  ///                    is logged.
  void bindingVerify(const std::shared_ptr<KVTracker>& tracker, KVResultCallback completion);

  /// Unbinds a bound tag. When it is connected the tag is told to remove its password, and leaves
  /// the bound ones once it confirms; otherwise it leaves at once and is not told.
  ///
  /// @param completion  Required. (true, absent), or (false, error) with "password removed." (500)
  /// when the tag
  ///                    refused: it is then marked not bound, but stays in the list. Not called for
  ///                    an absent or unknown address, nor by a tag that never answers.
  void unbindTracker(const Mac& mac, KVResultCallback completion);

  /// Stores a callback that nothing calls; use `KVTracker::didConnectionChange`.
  void didChangeConnection(ConnectionCallback callback) { setConnectionBlock(std::move(callback)); }

  // ---- For the library, and for tests of applications
  // -----------------------------------------------------------

  bool scanning() const { return scanning_; }
  void setScanning(bool scanning) { scanning_ = scanning; }

  /// A flag that nothing reads.
  bool switchOff() const { return switchOff_; }
  void setSwitchOff(bool switchOff) { switchOff_ = switchOff; }
  void setSwtchOff(bool switchOff) { switchOff_ = switchOff; }

  const ScanCallback& scanBlock() const { return scanBlock_.get(); }
  void setScanBlock(ScanCallback callback) { scanBlock_.set(std::move(callback)); }
  const StateCallback& stateChangeBlock() const { return stateChangeBlock_.get(); }
  void setStateChangeBlock(StateCallback callback) { stateChangeBlock_.set(std::move(callback)); }
  const ConnectionCallback& connectionBlock() const { return connectionBlock_.get(); }
  void setConnectionBlock(ConnectionCallback callback) {
    connectionBlock_.set(std::move(callback));
  }

  const std::shared_ptr<KVCentral>& central() const { return central_; }
  void setCentral(std::shared_ptr<KVCentral> central) { central_ = std::move(central); }

  /// The live collections. Setting one to null installs an empty one.
  const std::shared_ptr<KVTrackerMap>& scannedDict() const { return scannedDict_; }
  void setScannedDict(std::shared_ptr<KVTrackerMap> trackers);
  const std::shared_ptr<KVTrackerList>& bindArray() const { return bindArray_; }
  void setBindArray(std::shared_ptr<KVTrackerList> trackers);

  /// Empties the scanned set and starts the adapter's scan.
  void scanForTrackers();

  /// The tracker of a peripheral: the first bound one, else a scanned one with a bind request in
  /// flight, else null.
  std::shared_ptr<KVTracker> existTargetTracker(
      const std::shared_ptr<KVPeripheral>& peripheral) const;

  /// Takes over a peripheral's state after a connection event, and connects a bound tag that has
  /// dropped.
  void pushPeripheral(const std::shared_ptr<KVPeripheral>& peripheral);

  // KVCentralDelegate
  void centralManagerDidUpdateState(KVCentral& central) override;
  void didDiscoverPeripheral(KVCentral& central, const std::shared_ptr<KVPeripheral>& peripheral,
                             const KVAdvertisement& advertisement,
                             std::optional<std::int64_t> rssi) override;
  void didConnectPeripheral(KVCentral& central,
                            const std::shared_ptr<KVPeripheral>& peripheral) override;
  void didFailToConnectPeripheral(KVCentral& central,
                                  const std::shared_ptr<KVPeripheral>& peripheral,
                                  const std::optional<KVError>& error) override;
  void didDisconnectPeripheral(KVCentral& central, const std::shared_ptr<KVPeripheral>& peripheral,
                               const std::optional<KVError>& error) override;

 private:
  void log(std::string_view line) const;
  void requestLink(const std::shared_ptr<KVTracker>& tracker);
  void finishBinding(const std::shared_ptr<KVTracker>& tracker, bool success);
  void finishUnbinding(const std::shared_ptr<KVTracker>& tracker, bool success);
  KVFOB_LOCAL void takeInBound(const std::shared_ptr<KVTracker>& tracker,
                               const kv::AdvertisedFrame& frame,
                               const std::shared_ptr<KVPeripheral>& peripheral,
                               std::optional<std::int64_t> rssi);
  KVFOB_LOCAL void takeInScanned(const std::string& mac, const kv::AdvertisedFrame& frame,
                                 const std::shared_ptr<KVPeripheral>& peripheral,
                                 std::optional<std::int64_t> rssi);

  std::shared_ptr<const KVPlatform> platform_;
  bool scanning_ = false;
  bool switchOff_ = false;
  std::optional<std::string> password_;
  KVCallbackSlot<ScanCallback> scanBlock_;
  std::shared_ptr<KVTrackerMap> scannedDict_;
  std::shared_ptr<KVTrackerList> bindArray_;
  KVCallbackSlot<StateCallback> stateChangeBlock_;
  KVCallbackSlot<ConnectionCallback> connectionBlock_;
  std::shared_ptr<KVCentral> central_;  // last, so that it goes first: it holds a reference to this
};

#endif  // KVFOBLINK_KVTRACKERMANAGER_H
