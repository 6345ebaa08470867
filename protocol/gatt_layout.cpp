// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "protocol/gatt_layout.h"

namespace kv {

const KVUUID& commandServiceUuid() {
  static const KVUUID kUuid = *KVUUID::fromString("7F280001-8204-F393-E0A9-E50E24DCCA9E");
  return kUuid;
}

const KVUUID& commandCharacteristicUuid() {
  static const KVUUID kUuid = *KVUUID::fromString("7F280002-8204-F393-E0A9-E50E24DCCA9E");
  return kUuid;
}

const KVUUID& distanceServiceUuid() {
  static const KVUUID kUuid = *KVUUID::fromString("A3C87500-8ED3-4BDF-8A39-A01BEBEDE295");
  return kUuid;
}

const KVUUID& distanceCharacteristicUuid() {
  static const KVUUID kUuid = *KVUUID::fromString("A3C87504-8ED3-4BDF-8A39-A01BEBEDE295");
  return kUuid;
}

const KVUUID& deviceInformationServiceUuid() {
  static const KVUUID kUuid(0x180A);
  return kUuid;
}

}  // namespace kv
