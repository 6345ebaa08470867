// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// The library's entry object.
#ifndef KVFOBLINK_KVTRACKERMANAGER_H
#define KVFOBLINK_KVTRACKERMANAGER_H

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "KVFobLink/KVBluetooth.h"
#include "KVFobLink/KVExport.h"
#include "KVFobLink/KVPlatform.h"
#include "KVFobLink/KVTracker.h"
#include "KVFobLink/KVTrackerCollections.h"
#include "KVFobLink/KVTypes.h"

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
/// call the completion; each operation says which. An address may also be given as a text that ends
/// with a zero, and a null one counts as absent. docs/pitfalls.md tells what surprises at first.
///
/// A manager and its trackers use the platform that it was made with for everything, and keep all
/// of its parts but the event queue, which belongs to whoever runs it. Once that queue is gone
/// nothing happens any more. A handle on the central outlives the manager, but then is silent.
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
  /// The same on a given platform, of which every part must be present.
  explicit KVTrackerManager(const KVPlatform& platform);
  ~KVTrackerManager() override;
  KVTrackerManager(const KVTrackerManager&) = delete;
  KVTrackerManager& operator=(const KVTrackerManager&) = delete;

  // ---- Adapter ----------------------------------------------------------------------------------

  /// The adapter's state now, one of `KVCentralState`.
  std::uint64_t bleState() const;

  /// Reports the adapter's state on each change from now on, not at once. Unknown and Resetting
  /// pass by themselves; ask `bleState` after some seconds. Replaces the earlier callback.
  void didChangeBluetooth(StateCallback callback);

  // ---- Scanning ---------------------------------------------------------------------------------

  /// Starts a scan with an empty set of tags. The callback gets the whole set of unbound tags at
  /// every advertisement of any of them; bound tags are not reported. The scan does not need the
  /// adapter to be on: it runs whenever it is, until `stopScan`. Replaces the callback of a scan
  /// that runs.
  ///
  /// Forgets the tags heard before: a bind request in flight times out, and its link stays up, as
  /// it does after a power-on while scanning. Stop the scan before `bindingVerify`.
  void startScan(ScanCallback callback);

  /// Ends the scan. The set is kept, for `scannedTrackers`.
  void stopScan();

  /// The unbound tags heard in the current scan, or the last one. They stay until the next scan
  /// starts.
  KVTrackers scannedTrackers() const;

  // ---- Registry ---------------------------------------------------------------------------------
  // Addresses are compared exactly: 12 lower-case hexadecimal digits, as scanning reports them;
  // upper case and colons match nothing.

  /// Registers a tag by its address and returns its tracker: the bound one if there is one; else
  /// the scanned one, which is moved as it is, its `bound` and `password` untouched; else a new one
  /// that is bound, with the manager's password, and that is linked to a radio when it is heard. An
  /// absent address logs "Error: the given tracker doesn't have a mac address." and gives null.
  ///
  /// Nothing is heard without a scan: scan until the tag has connected once. After the second case
  /// call `setBound` and `setPassword`, or the tag is neither reported nor connected again.
  std::shared_ptr<KVTracker> addTracker(const Mac& mac);
  std::shared_ptr<KVTracker> addTracker(const char* mac) { return addTracker(textOf(mac)); }

  /// Drops a bound tag and its link, without telling the tag. An unknown address is ignored; an
  /// absent one is logged. The tracker's `state` and `connection` keep their last values: let go of
  /// it.
  void removeTracker(const Mac& mac);
  void removeTracker(const char* mac) { removeTracker(textOf(mac)); }

  /// Drops all tags, bound and scanned, as `removeTracker` does, and ends the scan at the adapter;
  /// the scan resumes at its next power-on.
  void removeAllTrackers();

  /// Looks an address up among the bound tags, or else among the scanned ones. Null when there is
  /// none.
  std::shared_ptr<KVTracker> existTracker(const Mac& mac, bool bind) const;
  std::shared_ptr<KVTracker> existTracker(const char* mac, bool bind) const {
    return existTracker(textOf(mac), bind);
  }

  /// The bound tags: the live list itself, not a copy.
  std::shared_ptr<const KVTrackerList> bindTrackers() const;

  /// The password for binding: UTF-8, 1 to 13 bytes. Copied into trackers as they are made and
  /// bound.
  const std::optional<std::string>& password() const;
  void setPassword(std::optional<std::string> password);
  void setPassword(const char* password) { setPassword(textOf(password)); }

  // ---- Connecting and binding -------------------------------------------------------------------

  /// Asks for a link. A bound tag whose link drops is asked again by itself. Logs and does nothing
  /// for a tracker without a peripheral, or one that is connecting.
  void connect(const std::shared_ptr<KVTracker>& tracker);

  /// As `connect`, but first replaces a peripheral that is another device's. Called for every
  /// advertisement of a bound tag.
  void forceConnect(const std::shared_ptr<KVTracker>& tracker,
                    const std::shared_ptr<KVPeripheral>& newPeripheral);

  /// Drops the link or the request for one. A tracker that is still bound is connected again at
  /// once; use `removeTracker` to be rid of it. One that is neither bound nor being bound is not
  /// told: its `state` may stay connecting, and then it can be bound no more. Scan anew and bind
  /// the tracker of that scan.
  void disconnect(const std::shared_ptr<KVTracker>& tracker);

  /// Binds a scanned tag with the manager's password: connects, and lets the tag accept it. After a
  /// failure `disconnect`, or the tag stays linked and is not heard; after a time-out scan anew
  /// before you bind again.
  ///
  /// @param tracker     One of the latest scan; an earlier one only times out.
  /// @param completion  Required. Called once: (true, absent), and the tag has moved to the bound
  ///                    ones; or (false, error) with "error password." (100) when the tag refused,
  ///                    or "Error! Binding Timeout." (400) after 30 seconds, and nothing has moved
  ///                    and the link is left as it is. Not called when the tracker has no
  ///                    peripheral, which is logged.
  void bindingVerify(const std::shared_ptr<KVTracker>& tracker, KVResultCallback completion);

  /// Unbinds a bound tag. When it is connected the tag is told to remove its password, and leaves
  /// the bound ones once it confirms; otherwise it leaves at once and is not told, so it keeps its
  /// password. `state` and `connection` keep their last values.
  ///
  /// @param completion  Required. (true, absent), or (false, error) with "password removed." (500)
  ///                    when the tag refused: it is then marked not bound, but stays in the list.
  ///                    Not called for an absent or unknown address, nor by a tag that never
  ///                    answers.
  void unbindTracker(const Mac& mac, KVResultCallback completion);
  void unbindTracker(const char* mac, KVResultCallback completion) {
    unbindTracker(textOf(mac), std::move(completion));
  }

  /// Stores a callback that nothing calls; use `KVTracker::didConnectionChange`.
  void didChangeConnection(ConnectionCallback callback);

  // ---- For the library, and for tests of applications -------------------------------------------

  bool scanning() const;
  void setScanning(bool scanning);

  /// A flag that nothing reads.
  bool switchOff() const;
  void setSwitchOff(bool switchOff);
  void setSwtchOff(bool switchOff);

  // The callbacks that the operations above install. A reference holds until the slot is set again.
  const ScanCallback& scanBlock() const;
  void setScanBlock(ScanCallback callback);
  const StateCallback& stateChangeBlock() const;
  void setStateChangeBlock(StateCallback callback);
  const ConnectionCallback& connectionBlock() const;
  void setConnectionBlock(ConnectionCallback callback);

  const std::shared_ptr<KVCentral>& central() const;
  void setCentral(std::shared_ptr<KVCentral> central);

  /// The live collections. Setting one to null installs an empty one.
  const std::shared_ptr<KVTrackerMap>& scannedDict() const;
  void setScannedDict(std::shared_ptr<KVTrackerMap> trackers);
  const std::shared_ptr<KVTrackerList>& bindArray() const;
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
  class KVFOB_LOCAL Core;

  static Mac textOf(const char* text) { return text != nullptr ? Mac(text) : std::nullopt; }

  std::shared_ptr<Core> core_;
};

#endif  // KVFOBLINK_KVTRACKERMANAGER_H
