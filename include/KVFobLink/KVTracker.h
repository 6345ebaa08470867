// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// One key-finder tag.
#ifndef KVFOBLINK_KVTRACKER_H
#define KVFOBLINK_KVTRACKER_H

#include <chrono>
#include <concepts>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "KVFobLink/KVBluetooth.h"
#include "KVFobLink/KVExport.h"
#include "KVFobLink/KVPlatform.h"
#include "KVFobLink/KVTrackerTypes.h"
#include "KVFobLink/KVTypes.h"

/// What is known of one tag: what it last advertised, its link, and the commands that drive it.
///
/// Trackers live in `std::shared_ptr` and are shared: the one that the application holds is the one
/// in the manager's collections. All operations are for the event thread unless marked otherwise,
/// and all callbacks run there. A callback may call anything, replace or clear itself, and drop the
/// last reference to the tracker.
///
/// Commands work once `connection` is `KVConnectionConnected`. They are not queued, do not check
/// the link and have no time-out: a command whose answer never comes never calls its completion.
/// Each kind of command has one completion slot, which stays in place after it was called. A second
/// command of a kind before the first is answered takes the slot: the first completion is never
/// called, and the second once for each answer. A completion that captures its own tracker strongly
/// keeps it alive: capture a weak pointer. See docs/pitfalls.md for what all this leads to, and for
/// a completion with a time-out.
///
///     tracker->switchBellStatus(/*status=*/true, [](bool success, const auto& error) {
///       std::cout << (success ? "ringing" : error->domain) << '\n';
///     });
///
/// A tracker uses the platform that it was made with for everything, and keeps all of its parts
/// but the event queue, which belongs to whoever runs it; once that is gone nothing happens here.
class KVFOB_EXPORT KVTracker final : public KVPeripheralDelegate,
                                     public std::enable_shared_from_this<KVTracker> {
 public:
  using ConnectionCallback = std::function<void(std::uint64_t connection)>;
  using ReceiveCallback = std::function<void(std::int64_t event)>;
  using UpdateCallback = std::function<void()>;
  using Date = std::chrono::system_clock::time_point;

  /// A tracker of which nothing is known: `distance` is `KVDistanceFar`, everything else zero,
  /// false or absent. Uses the platform in force now.
  KVTracker();
  /// The same on a given platform, of which every part must be present.
  explicit KVTracker(const KVPlatform& platform);
  ~KVTracker() override;
  KVTracker(const KVTracker&) = delete;
  KVTracker& operator=(const KVTracker&) = delete;

  // ---- Commands ---------------------------------------------------------------------------------

  /// Rings or silences the tag's bell.
  ///
  /// The payload is inverted on the wire: true is sent as 0x00.
  ///
  /// @param status      true to ring, false to silence.
  /// @param completion  Called when the tag answers: (true, absent), or (false, error) with domain
  ///                    "ring device failed." and code 200. May be absent.
  void switchBellStatus(bool status, KVResultCallback completion);

  /// Switches the alert that the tag gives when it loses the link. Inverted on the wire, as the
  /// bell.
  ///
  /// @param completion  As above; the error has domain "write loss alert failed." and code 300.
  void writeLossAlert(bool on, KVResultCallback completion);

  /// Sets how long the tag waits after a loss before it gives the alert.
  ///
  /// @param delay       0 to 7000; the unit is the firmware's own. Any other value logs
  ///                    "the given delay value is incorrect." and does nothing:
  ///                    `completion` is never called, and an earlier one stays in place.
  /// @param completion  As above; the error has domain "write loss delay failed." and code 400.
  void writeLossDelay(std::int64_t delay, KVResultCallback completion);

  /// Sets how far the tag may be before it counts as lost.
  ///
  /// @param level       `KVDistanceFar`, `KVDistanceMiddle` or `KVDistanceNear`, sent as the signed
  ///                    byte 0, -8 or -20. Any other value logs "the given distance level is
  ///                    incorrect." and does nothing: `completion` is never called.
  /// @param completion  Called when the write is confirmed: (true, absent), or (false, the
  ///                    radio's error, see `KVBluetoothErrorCode`).
  void writeLossDistance(std::uint64_t level, KVResultCallback completion);

  /// Removes the bind password from the tag. Use `KVTrackerManager::unbindTracker` to unbind it
  /// altogether.
  ///
  /// @param completion  As above; the error has domain "password removed." (sic) and code 500.
  void removeBindPassword(KVResultCallback completion);

  // ---- Events -----------------------------------------------------------------------------------
  // Each installs a callback in place of the earlier one; an absent one removes it. Equal values
  // are reported again.

  /// Reports each `connection` value, while the tracker is bound.
  void didConnectionChange(ConnectionCallback callback);

  /// Reports what the tag sends on its own: 1 when its button is pressed.
  void didReceive(ReceiveCallback callback);

  /// Reports that the state was set or that the live link's signal strength was read.
  /// Advertisements do not report.
  void didValueUpdate(UpdateCallback callback);

  // ---- What the tag advertised ------------------------------------------------------------------

  /// The advertised name. Absent: no frame carries one; an application may set it with
  /// `updateData`.
  const std::optional<std::string>& name() const;

  /// The address as 12 lower-case hexadecimal digits, the tag's identity everywhere.
  const std::optional<std::string>& mac() const;

  /// The last signal strength, in dBm, of an advertisement or of the live link. One that the radio
  /// did not tell counts as 0, and so as near: take 0 for "not known".
  std::int64_t rssi() const;

  /// Stores a signal strength and recomputes `distance`; does not report an update.
  void setRssi(std::int64_t rssi);

  /// The battery value, 0 to 255, as advertised.
  std::int64_t battery() const;

  /// The advertised transmit power in dBm; stays 0 for a tag that is not bound.
  std::int64_t radioTx() const;

  /// The proximity, one of `KVDistance`. Means nothing while `rssi` is 0.
  std::uint64_t distance() const;

  /// When the last advertisement was taken in.
  const std::optional<Date>& advUpdate() const;

  /// The model number, 0 to 255, or -1 when the tag does not advertise one.
  std::int64_t model() const;

  /// Writes one of the fields above; see `KVTrackerDataKey`. An unknown key and a value of the
  /// wrong kind change nothing. Does not report an update.
  void updateData(std::int64_t key, KVTrackerValue value);
  /// The same for a zero-terminated text; a null one counts as absent.
  void updateData(std::int64_t key, std::same_as<const char*> auto text) {
    updateData(key, text != nullptr ? KVTrackerValue(std::string(text)) : KVTrackerValue());
  }

  // ---- Binding and link -------------------------------------------------------------------------

  /// Whether a bind request is in flight.
  bool binding() const;

  /// Stores the flag. When true, checks in 30 seconds whether it is still true and if so fails the
  /// request through `bindingBlock`: domain "Error! Binding Timeout.", code 400. The check keeps
  /// the tracker alive and is never cancelled: one that an earlier request left behind ends a later
  /// request early.
  void setBinding(bool binding);

  /// Whether the tag belongs to the application's bound set.
  bool bound() const;
  void setBound(bool bound);

  /// The bind password: UTF-8, 1 to 13 bytes. With any other the tag is never asked, and only the
  /// time-out reports it; a longer one is not even logged.
  const std::optional<std::string>& password() const;
  void setPassword(std::optional<std::string> password);
  /// The same for a zero-terminated text; a null one counts as absent.
  void setPassword(const char* password) {
    setPassword(password != nullptr ? std::optional<std::string>(password) : std::nullopt);
  }

  /// The link to the tag; absent until the tag has been heard.
  const std::shared_ptr<KVPeripheral>& peripheral() const;

  /// Stores the handle and becomes its delegate. The old handle keeps its delegate.
  void setPeripheral(std::shared_ptr<KVPeripheral> peripheral);

  /// The peripheral's state as last reported, one of `KVTrackerState` or -1. Not kept up for a
  /// tracker that is neither bound nor being bound, so it may be out of date.
  std::int64_t state() const;

  /// Stores the state and acts on it, also when it does not change: 0 reports
  /// `KVConnectionDisconnect` and stops polling, 1 reports `KVConnectionConnecting`, 2 starts
  /// discovery and so the handshake. Then reports an update.
  void setState(std::int64_t state);

  /// The application's view of the link, one of `KVConnection`. A reconnect whose handshake stalls
  /// stays connecting without a time-out; `KVTrackerManager::disconnect` starts anew.
  std::uint64_t connection() const;

  /// Stores the value and, while the tracker is bound, reports it.
  void updateConnection(std::uint64_t connection);

  // ---- For the library, and for those who bring a platform of their own -------------------------

  /// The stage of the handshake, one of `KVAuthStage`.
  std::uint64_t auth() const;
  void setAuth(std::uint64_t auth);

  /// The command characteristic, and the one that takes the loss distance; they outlast the link.
  const std::shared_ptr<KVCharacteristic>& korvaChar() const;
  void setKorvaChar(std::shared_ptr<KVCharacteristic> characteristic);
  const std::shared_ptr<KVCharacteristic>& txChar() const;
  void setTxChar(std::shared_ptr<KVCharacteristic> characteristic);

  /// The session key: the tag's 8 random bytes, then ours. Wiped when it is replaced or dropped.
  const std::optional<KVData>& comToken() const;
  void setComToken(std::optional<KVData> token);

  /// The key of the handshake's two tokens: the same 16 bytes for every tag.
  const std::optional<KVData>& staticKey() const;
  void setStaticKey(std::optional<KVData> key);

  /// Always empty: no operation of the library uses it.
  std::vector<ConnectionCallback>& conBlockArray();
  void setConBlockArray(std::vector<ConnectionCallback> callbacks);

  // The callbacks that the operations above install. A reference holds until the slot is set again.
  const KVResultCallback& commandSendBlock() const;
  void setCommandSendBlock(KVResultCallback callback);  ///< Never called.
  const KVResultCallback& bindingBlock() const;
  void setBindingBlock(KVResultCallback callback);
  const KVResultCallback& ringBlock() const;
  void setRingBlock(KVResultCallback callback);
  const KVResultCallback& writelossAlertBlock() const;
  void setWritelossAlertBlock(KVResultCallback callback);
  const KVResultCallback& writelossDistanceBlock() const;
  void setWritelossDistanceBlock(KVResultCallback callback);
  const KVResultCallback& writelossDelayBlock() const;
  void setWritelossDelayBlock(KVResultCallback callback);
  const KVResultCallback& passwordRemoveBlock() const;
  void setPasswordRemoveBlock(KVResultCallback callback);
  const ReceiveCallback& receiveBlock() const;
  void setReceiveBlock(ReceiveCallback callback);
  const ConnectionCallback& connectionBlock() const;
  void setConnectionBlock(ConnectionCallback callback);
  const UpdateCallback& valueUpdated() const;
  void setValueUpdated(UpdateCallback callback);

  /// Resets the handshake and asks the peripheral for all its services.
  void discover();
  /// Calls `valueUpdated`.
  void outputUpdate();

  /// Takes the tag's token; anything but 16 bytes stalls the handshake.
  void validateDevice(KVBytes token);
  /// Builds, encrypts and writes the verification token.
  void writeChecksumData();
  /// Builds, encrypts and writes the bind request.
  void writeBindData();
  /// One block under the session key; nothing without a session key of 16 bytes. Any other length
  /// is refused.
  std::optional<KVData> encryptConnectionData(KVBytes data) const;
  std::optional<KVData> decryptConnectionData(KVBytes data) const;

  /// Starts to read the live link's signal strength every 3 seconds, the first time after 3
  /// seconds; a poll that runs is replaced. The tick is on a thread of its own.
  void initRSSITimerThread();
  /// The tick: asks for the signal strength, or ends the polling when the link is not up. Any
  /// thread.
  void readRSSI();
  /// Ends the polling. Called off the polling thread, no tick runs once it has returned. Any
  /// thread.
  void stopRSSITimer();
  /// The timer and the thread that hosts it are one object; absent while nothing is polled.
  std::shared_ptr<KVTimerThread> timer() const;
  std::shared_ptr<KVTimerThread> timerThread() const;
  /// Sets `distance` from a signal strength in dBm.
  void updateDistanceViaRssi(std::int64_t rssi);

  // KVPeripheralDelegate
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

  /// All that it is made of; the library's own.
  class KVFOB_LOCAL Core;

 private:
  KVFOB_LOCAL explicit KVTracker(std::shared_ptr<Core> core);

  std::shared_ptr<Core> core_;
};

#endif  // KVFOBLINK_KVTRACKER_H
