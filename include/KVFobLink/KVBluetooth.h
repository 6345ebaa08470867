// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// The Bluetooth roles that a platform provides: central, peripheral, service, characteristic.
///
/// Terms are those of the Bluetooth Core Specification (GAP and GATT). An application needs this
/// header only to look at handles, or to bring a platform of its own.
///
/// What every implementation promises:
/// - Events arrive on the event queue, one at a time, and never from inside a request.
/// - All operations are for the event thread, but for those marked "any thread".
/// - A handle may be dropped on any thread, and inside any event.
/// - Dropping the central ends all its events.
/// - Nothing here keeps the event queue alive. Once that is gone, requests do nothing.
#ifndef KVFOBLINK_KVBLUETOOTH_H
#define KVFOBLINK_KVBLUETOOTH_H

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "KVFobLink/KVBluetoothError.h"
#include "KVFobLink/KVExport.h"
#include "KVFobLink/KVTypes.h"
#include "KVFobLink/KVUUID.h"

class KVCentral;
class KVPeripheral;
class KVService;

/// The state of the Bluetooth adapter.
enum KVCentralState : std::int64_t {
  KVCentralStateUnknown = 0,       ///< Not known yet, or the Bluetooth service does not answer.
  KVCentralStateResetting = 1,     ///< The service or the adapter went away and may come back.
  KVCentralStateUnsupported = 2,   ///< There is no adapter.
  KVCentralStateUnauthorized = 3,  ///< This process may not use Bluetooth.
  KVCentralStatePoweredOff = 4,
  KVCentralStatePoweredOn = 5,
};

/// The state of a peripheral's link.
enum KVPeripheralState : std::int64_t {
  KVPeripheralStateDisconnected = 0,
  KVPeripheralStateConnecting = 1,
  KVPeripheralStateConnected = 2,
  KVPeripheralStateDisconnecting = 3,
};

/// How a characteristic is written.
enum class KVWriteType {
  WithResponse = 0,  ///< Confirmed by `didWriteValueForCharacteristic`.
  withResponse [[deprecated("use WithResponse")]] = WithResponse,
};

/// One characteristic of a discovered service.
class KVFOB_EXPORT KVCharacteristic {
 public:
  KVCharacteristic(KVUUID uuid, std::weak_ptr<KVService> service);
  virtual ~KVCharacteristic() = default;
  KVCharacteristic(const KVCharacteristic&) = delete;
  KVCharacteristic& operator=(const KVCharacteristic&) = delete;

  const KVUUID& uuid() const { return uuid_; }

  /// The service that holds it; absent once that service has been dropped.
  std::shared_ptr<KVService> service() const { return service_.lock(); }

  /// The value of the latest read or notification; absent before the first one, and after a read
  /// that failed.
  const std::optional<KVData>& value() const { return value_; }

  /// For implementations: sets the value, right before the event that reports it.
  void setValue(std::optional<KVData> value) { value_ = std::move(value); }

 private:
  KVUUID uuid_;
  std::weak_ptr<KVService> service_;
  std::optional<KVData> value_;
};

/// One discovered service of a peripheral.
class KVFOB_EXPORT KVService {
 public:
  explicit KVService(KVUUID uuid);
  virtual ~KVService() = default;
  KVService(const KVService&) = delete;
  KVService& operator=(const KVService&) = delete;

  const KVUUID& uuid() const { return uuid_; }

  /// The characteristics found so far, in a stable order; empty until they have been discovered.
  const std::vector<std::shared_ptr<KVCharacteristic>>& characteristics() const {
    return characteristics_;
  }

  /// For implementations: sets the characteristics, right before the event that reports them.
  void setCharacteristics(std::vector<std::shared_ptr<KVCharacteristic>> characteristics) {
    characteristics_ = std::move(characteristics);
  }

 private:
  KVUUID uuid_;
  std::vector<std::shared_ptr<KVCharacteristic>> characteristics_;
};

/// Receives the events of a peripheral, all on the event thread. No error means success.
class KVFOB_EXPORT KVPeripheralDelegate {
 public:
  virtual ~KVPeripheralDelegate() = default;

  /// Answers `discoverServices`: `peripheral.services()` is filled in (empty after an error).
  virtual void didDiscoverServices(KVPeripheral& peripheral,
                                   const std::optional<KVError>& error) = 0;

  /// Answers `discoverCharacteristics`: `service.characteristics()` is filled in (empty after
  /// an error).
  virtual void didDiscoverCharacteristicsForService(KVPeripheral& peripheral, KVService& service,
                                                    const std::optional<KVError>& error) = 0;

  /// A read's value or a notification, each exactly once and in the order in which the tag sent
  /// them; `characteristic->value()` holds it (absent after an error).
  virtual void didUpdateValueForCharacteristic(
      KVPeripheral& peripheral, const std::shared_ptr<KVCharacteristic>& characteristic,
      const std::optional<KVError>& error) = 0;

  /// Confirms one `writeValue`, exactly once for each write of a present value, as long as the
  /// link lasts.
  virtual void didWriteValueForCharacteristic(
      KVPeripheral& peripheral, const std::shared_ptr<KVCharacteristic>& characteristic,
      const std::optional<KVError>& error) = 0;

  /// Answers `readRSSI` with the signal strength of the live link in dBm; absent after an error.
  virtual void didReadRSSI(KVPeripheral& peripheral, std::optional<std::int64_t> rssi,
                           const std::optional<KVError>& error) = 0;
};

/// A remote device, as the central that found it sees it.
///
/// The requests of this class need a link that is up: without one they do nothing and report
/// nothing. A link that drops takes its unanswered requests with it; their answers never come.
class KVFOB_EXPORT KVPeripheral {
 public:
  KVPeripheral() = default;
  virtual ~KVPeripheral() = default;
  KVPeripheral(const KVPeripheral&) = delete;
  KVPeripheral& operator=(const KVPeripheral&) = delete;

  /// A text that names the same radio device for as long as the process lives. Any thread.
  virtual const std::string& identifier() const = 0;

  /// The link's state now, one of `KVPeripheralState`. Any thread.
  virtual std::int64_t state() const = 0;

  /// Whether both are the same radio device.
  bool isEqual(const KVPeripheral& other) const {
    return this == &other || identifier() == other.identifier();
  }

  /// Sends this peripheral's events to `delegate`, in place of an earlier one. An expired delegate
  /// gets nothing; a live one is kept alive while it handles an event.
  virtual void setDelegate(std::weak_ptr<KVPeripheralDelegate> delegate) = 0;

  /// The services of the latest discovery, in a stable order.
  virtual const std::vector<std::shared_ptr<KVService>>& services() const = 0;

  /// Asks for all services; `didDiscoverServices` answers.
  virtual void discoverServices() = 0;

  /// Asks for all characteristics of a service; `didDiscoverCharacteristicsForService` answers. An
  /// absent service is ignored, as is an absent characteristic below.
  virtual void discoverCharacteristics(const std::shared_ptr<KVService>& service) = 0;

  /// Subscribes to a characteristic's notifications, or ends that. Not confirmed. Requests to one
  /// peripheral are carried out in order: a read or write that follows finds the subscription made.
  virtual void setNotifyValue(bool enabled,
                              const std::shared_ptr<KVCharacteristic>& characteristic) = 0;

  /// Reads a characteristic once; `didUpdateValueForCharacteristic` answers.
  virtual void readValue(const std::shared_ptr<KVCharacteristic>& characteristic) = 0;

  /// Writes a characteristic; `didWriteValueForCharacteristic` confirms. An absent value is not
  /// written and nothing is reported.
  virtual void writeValue(const std::optional<KVData>& value,
                          const std::shared_ptr<KVCharacteristic>& characteristic,
                          KVWriteType type) = 0;

  /// Reads the signal strength of the live link; `didReadRSSI` answers. A platform that has no way
  /// to read it says so once in the log and reports nothing; it never passes off an advertisement's
  /// value. Any thread.
  virtual void readRSSI() = 0;
};

/// One advertisement. Valid only during the event that delivers it.
struct KVAdvertisement {
  struct ServiceData {
    KVUUID uuid;
    KVBytes value;
  };
  /// The service-data entries, in the platform's own order; empty when there are none.
  std::span<const ServiceData> serviceData;
};

/// Receives the events of a central, all on the event thread.
class KVFOB_EXPORT KVCentralDelegate {
 public:
  virtual ~KVCentralDelegate() = default;

  /// The adapter's state is known, or has changed; `central.state()` tells it. When the adapter
  /// leaves `KVCentralStatePoweredOn`, this comes before the disconnections that follow from it.
  virtual void centralManagerDidUpdateState(KVCentral& central) = 0;

  /// One advertisement was heard. `rssi` is in dBm, absent when the platform does not tell.
  virtual void didDiscoverPeripheral(KVCentral& central,
                                     const std::shared_ptr<KVPeripheral>& peripheral,
                                     const KVAdvertisement& advertisement,
                                     std::optional<std::int64_t> rssi) = 0;

  virtual void didConnectPeripheral(KVCentral& central,
                                    const std::shared_ptr<KVPeripheral>& peripheral) = 0;

  virtual void didFailToConnectPeripheral(KVCentral& central,
                                          const std::shared_ptr<KVPeripheral>& peripheral,
                                          const std::optional<KVError>& error) = 0;

  /// A link that was up has ended, or a pending request was cancelled. `error` is absent when this
  /// side asked for it.
  virtual void didDisconnectPeripheral(KVCentral& central,
                                       const std::shared_ptr<KVPeripheral>& peripheral,
                                       const std::optional<KVError>& error) = 0;
};

/// The central role of one Bluetooth adapter.
class KVFOB_EXPORT KVCentral {
 public:
  KVCentral() = default;
  virtual ~KVCentral() = default;
  KVCentral(const KVCentral&) = delete;
  KVCentral& operator=(const KVCentral&) = delete;

  /// The adapter's state now, one of `KVCentralState`.
  virtual std::int64_t state() const = 0;

  /// Starts to report every advertisement of devices that offer one of `services` (in their service
  /// data or their list of service UUIDs; an empty list means all devices), repeats included when
  /// `allowDuplicates` is true. Replaces a scan that runs. A scan that cannot start because the
  /// adapter is not on is dropped without a report, and one that runs ends when the adapter leaves
  /// `KVCentralStatePoweredOn`; any other interruption is the implementation's to mend.
  virtual void scanForPeripherals(std::span<const KVUUID> services, bool allowDuplicates) = 0;

  /// Ends the scan; without one it does nothing.
  virtual void stopScan() = 0;

  /// Asks for a link. This is a standing request: it stays pending, across attempts that fail and
  /// across power cycles of the adapter, until exactly one of three things happens:
  /// - the link is up (`didConnectPeripheral`);
  /// - the request fails for good (`didFailToConnectPeripheral`);
  /// - the request is cancelled (`didDisconnectPeripheral`).
  ///
  /// A repeated request joins the pending one. One for a link that is up is answered as if it
  /// had just come up.
  ///
  /// The library asks again at once and for ever when a link drops, so the implementation spaces
  /// the attempts: a radio that fails instantly must not turn into a busy loop. An absent
  /// peripheral is ignored.
  virtual void connectPeripheral(const std::shared_ptr<KVPeripheral>& peripheral) = 0;

  /// Drops a link or a pending request; `didDisconnectPeripheral` reports it. Without either it
  /// does nothing.
  virtual void cancelPeripheralConnection(const std::shared_ptr<KVPeripheral>& peripheral) = 0;

  /// Ends all events, the scan and the links without a report, as dropping the central does, and
  /// for good: later requests do nothing. Called by a delegate that is about to go, as others may
  /// still hold the central. One that does not override this must not outlive its delegate.
  virtual void close() {}
};

#endif  // KVFOBLINK_KVBLUETOOTH_H
