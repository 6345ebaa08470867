#include "KVFobLink/KVTracker.h"
#include "platform/describe.h"
#include "tracker/gatt_layout.h"

namespace kv {

bool isCommandService(const KVUUID& uuid) {
  static const auto kUuid = KVUUID::fromString("7F280001-8204-F393-E0A9-E50E24DCCA9E");
  return uuid == kUuid;
}

bool isCommandCharacteristic(const KVUUID& uuid) {
  static const auto kUuid = KVUUID::fromString("7F280002-8204-F393-E0A9-E50E24DCCA9E");
  return uuid == kUuid;
}

bool isDistanceService(const KVUUID& uuid) {
  static const auto kUuid = KVUUID::fromString("A3C87500-8ED3-4BDF-8A39-A01BEBEDE295");
  return uuid == kUuid;
}

bool isDistanceCharacteristic(const KVUUID& uuid) {
  static const auto kUuid = KVUUID::fromString("A3C87504-8ED3-4BDF-8A39-A01BEBEDE295");
  return uuid == kUuid;
}

bool isDeviceInformationService(const KVUUID& uuid) { return uuid == KVUUID(0x180A); }

}  // namespace kv

void KVTracker::discover() {
  auth_ = KVAuthNone;
  if (const auto peripheral = this->peripheral()) peripheral->discoverServices();
}

void KVTracker::didDiscoverServices(KVPeripheral& peripheral, const std::optional<KVError>& error) {
  // Written without an error too: the line marks the end of service discovery in the log.
  log("Error When discover services:" + kv::describe(error));
  const auto own = this->peripheral();
  if (!own) return;
  for (const auto& service : peripheral.services()) own->discoverCharacteristics(service);
}

void KVTracker::didDiscoverCharacteristicsForService(KVPeripheral& peripheral, KVService& service,
                                                     const std::optional<KVError>& /*error*/) {
  for (const auto& characteristic : service.characteristics()) {
    if (kv::isCommandService(service.uuid()) &&
        kv::isCommandCharacteristic(characteristic->uuid())) {
      korvaChar_ = characteristic;
      peripheral.setNotifyValue(/*enabled=*/true, characteristic);
      // The tag answers this read with the value that opens the handshake.
      peripheral.readValue(characteristic);
    } else if (kv::isDistanceService(service.uuid()) &&
               kv::isDistanceCharacteristic(characteristic->uuid())) {
      txChar_ = characteristic;
    } else if (kv::isDeviceInformationService(service.uuid())) {
      peripheral.readValue(characteristic);
    }
  }
}
