// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "simulator/air/gatt_application.h"

#include <array>
#include <cstdio>
#include <utility>

#include "simulator/air/properties.h"

namespace kvsim {
namespace {

constexpr const char* kService = "org.bluez.GattService1";
constexpr const char* kCharacteristic = "org.bluez.GattCharacteristic1";

std::vector<std::string> flagsOf(const GattCharacteristic& characteristic) {
  std::vector<std::string> flags;
  if (characteristic.readable) flags.emplace_back("read");
  if (characteristic.writable) flags.emplace_back("write");
  if (characteristic.notifies) flags.emplace_back("notify");
  return flags;
}

}  // namespace

GattApplication::GattApplication(const std::shared_ptr<KVLinuxEventQueue>& queue,
                                 std::shared_ptr<kv::BusConnection> bus,
                                 std::shared_ptr<VirtualTag> tag, Admit admit)
    : queue_(queue), bus_(std::move(bus)), tag_(std::move(tag)), admit_(std::move(admit)) {}

void GattApplication::start() {
  slots_.push_back(kv::exportObjectManager(bus_, kPath));
  unsigned number = 0;
  for (const auto& service : tag_->services()) {
    exportService(service, std::string(kPath) + "/service" + std::to_string(number++));
  }
}

void GattApplication::exportService(const GattService& service, const std::string& path) {
  kv::BusInterface interface { .name = kService };
  interface.properties.push_back(textProperty("UUID", service.uuid.string()));
  interface.properties.push_back(setProperty("Primary"));
  slots_.push_back(kv::exportInterface(bus_, path, std::move(interface)));
  unsigned number = 0;
  for (const auto& characteristic : service.characteristics) {
    exportCharacteristic(characteristic, path, path + "/char" + std::to_string(number++));
  }
}

void GattApplication::exportCharacteristic(const GattCharacteristic& characteristic,
                                           const std::string& service, const std::string& path) {
  const auto handle = characteristic.handle;
  characteristics_[handle].path = path;
  kv::BusInterface interface { .name = kCharacteristic };
  interface.properties.push_back(textProperty("UUID", characteristic.uuid.string()));
  interface.properties.push_back(pathProperty("Service", service));
  interface.properties.push_back(listProperty("Flags", flagsOf(characteristic)));
  interface.properties.push_back({"Value", "ay", [this, handle](sd_bus_message* message) {
                                    return kv::appendBytes(message, characteristics_[handle].value);
                                  }});
  interface.methods = {
      {"ReadValue", "a{sv}", "ay", [this, handle](const auto& call) { read(handle, call); }},
      {"WriteValue", "aya{sv}", "", [this, handle](const auto& call) { write(handle, call); }},
      {"StartNotify", "", "",
       [this, handle](const auto& call) { subscribe(handle, /*enabled=*/true, call); }},
      {"StopNotify", "", "",
       [this, handle](const auto& call) { subscribe(handle, /*enabled=*/false, call); }},
  };
  slots_.push_back(kv::exportInterface(bus_, path, std::move(interface)));
}

void GattApplication::read(GattHandle handle, const kv::BusCall& call) {
  if (admitted(call)) answer(tag_->read(handle), /*withValue=*/true, call);
}

void GattApplication::write(GattHandle handle, const kv::BusCall& call) {
  const auto bytes = kv::readBytes(call.message());
  if (!bytes) return call.fail("org.bluez.Error.Failed", "malformed");
  if (admitted(call)) answer(tag_->write(handle, *bytes), /*withValue=*/false, call);
}

void GattApplication::subscribe(GattHandle handle, bool enabled, const kv::BusCall& call) {
  // BlueZ does not say for whom. It ends a subscription itself when the link drops.
  answer(tag_->subscribe(handle, enabled), /*withValue=*/false, call);
}

bool GattApplication::admitted(const kv::BusCall& call) const {
  std::string device;
  kv::forEachProperty(call.message(), [&](std::string_view key, std::string_view type) {
    if (key != "device" || type != "o") return false;
    device = kv::readText(call.message(), 'o');
    return true;
  });
  if (admit_(device)) return true;
  call.fail("org.bluez.Error.NotPermitted", "in use by another device");
  return false;
}

void GattApplication::answer(const std::optional<GattAnswer>& answer, bool withValue,
                             const kv::BusCall& call) {
  if (!answer) return;  // the link's own time-out sees to it
  const auto send = [call, withValue, answer = *answer] {
    if (answer.attError != 0) {
      std::array<char, 8> code{};
      std::snprintf(code.data(), code.size(), "0x%02x", answer.attError);
      call.fail("org.bluez.Error.Failed", code.data());
    } else if (withValue) {
      call.reply([&](sd_bus_message* reply) { kv::appendBytes(reply, answer.value); });
    } else {
      call.reply();
    }
  };
  if (answer->delay.count() <= 0) return send();
  if (const auto queue = queue_.lock()) queue->postAfter(answer->delay, send);
}

void GattApplication::notify(GattHandle characteristic, KVData value) {
  const auto found = characteristics_.find(characteristic);
  if (found == characteristics_.end()) return;
  found->second.value = std::move(value);
  kv::emitPropertiesChanged(*bus_, found->second.path, kCharacteristic, {"Value"});
}

}  // namespace kvsim
