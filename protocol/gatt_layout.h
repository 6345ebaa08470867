// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// The GATT layout of a tag.
#ifndef PROTOCOL_GATT_LAYOUT_H
#define PROTOCOL_GATT_LAYOUT_H

#include "KVFobLink/KVUUID.h"

namespace kv {

/// The service of the handshake, the commands and their answers, and its one characteristic: read,
/// written with response, notified.
const KVUUID& commandServiceUuid();
const KVUUID& commandCharacteristicUuid();

/// The service that takes the loss distance, and its one characteristic: written with response.
const KVUUID& distanceServiceUuid();
const KVUUID& distanceCharacteristicUuid();

/// The Bluetooth SIG's Device Information service.
const KVUUID& deviceInformationServiceUuid();

}  // namespace kv

#endif  // PROTOCOL_GATT_LAYOUT_H
