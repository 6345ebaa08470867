// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "platform/linux/bluez/peripheral.h"

#include "platform/linux/bluez/central_core.h"
#include "platform/linux/bluez/gatt_session.h"

namespace kv {

template <typename Request>
void BlueZPeripheral::withSession(const Request& request) {
  const auto core = core_.lock();
  if (core && state_ == KVPeripheralStateConnected) {
    if (GattSession* session = core->session(address_)) request(*session);
  }
}

void BlueZPeripheral::discoverServices() {
  withSession([](GattSession& session) { session.discoverServices(); });
}

void BlueZPeripheral::discoverCharacteristics(const std::shared_ptr<KVService>& service) {
  if (const auto known = std::dynamic_pointer_cast<BlueZService>(service)) {
    withSession([&](GattSession& session) { session.discoverCharacteristics(known); });
  }
}

void BlueZPeripheral::setNotifyValue(bool enabled,
                                     const std::shared_ptr<KVCharacteristic>& characteristic) {
  if (const auto known = std::dynamic_pointer_cast<BlueZCharacteristic>(characteristic)) {
    withSession([&](GattSession& session) { session.setNotify(enabled, known); });
  }
}

void BlueZPeripheral::readValue(const std::shared_ptr<KVCharacteristic>& characteristic) {
  if (const auto known = std::dynamic_pointer_cast<BlueZCharacteristic>(characteristic)) {
    withSession([&](GattSession& session) { session.read(known); });
  }
}

void BlueZPeripheral::writeValue(const std::optional<KVData>& value,
                                 const std::shared_ptr<KVCharacteristic>& characteristic,
                                 KVWriteType /*type*/) {
  const auto known = std::dynamic_pointer_cast<BlueZCharacteristic>(characteristic);
  if (known && value) withSession([&](GattSession& session) { session.write(known, *value); });
}

void BlueZPeripheral::readRSSI() {
  // Any thread may ask; only the event thread looks at the core.
  queue_.post([weak = weak_from_this()] {
    if (const auto self = weak.lock()) {
      if (const auto core = self->core_.lock()) core->readRssi(self);
    }
  });
}

}  // namespace kv
