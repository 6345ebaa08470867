/// The GATT layout of a tag.
#ifndef TRACKER_GATT_LAYOUT_H
#define TRACKER_GATT_LAYOUT_H

#include "KVFobLink/KVUUID.h"

namespace kv {

/// Whether a service is the one of the handshake, the commands and their answers.
bool isCommandService(const KVUUID& uuid);
/// Its one characteristic: read, written with response, notified.
bool isCommandCharacteristic(const KVUUID& uuid);

/// Whether a service is the one that takes the loss distance, and its one characteristic: written
/// with response.
bool isDistanceService(const KVUUID& uuid);
bool isDistanceCharacteristic(const KVUUID& uuid);

/// Whether a service is the Bluetooth SIG's Device Information.
bool isDeviceInformationService(const KVUUID& uuid);

}  // namespace kv

#endif  // TRACKER_GATT_LAYOUT_H
