#include "simulator/air/gatt_application.h"

#include <array>
#include <cstdio>
#include <utility>

namespace kvsim {
namespace {

constexpr const char* kService = "org.bluez.GattService1";
constexpr const char* kCharacteristic = "org.bluez.GattCharacteristic1";

kv::BusInterface::Property textProperty(const std::string& name, const char* type,
                                        const std::string& value) {
  return {name, type, [type = *type, value](sd_bus_message* message) {
            return sd_bus_message_append_basic(message, type, value.c_str()) >= 0;
          }};
}

kv::BusInterface::Property flagsProperty(const GattCharacteristic& characteristic) {
  return {"Flags", "as", [characteristic](sd_bus_message* message) {
            bool ok = sd_bus_message_open_container(message, 'a', "s") >= 0;
            const auto add = [&](bool has, const char* flag) {
              if (has) ok = ok && sd_bus_message_append_basic(message, 's', flag) >= 0;
            };
            add(characteristic.readable, "read");
            add(characteristic.writable, "write");
            add(characteristic.notifies, "notify");
            return ok && sd_bus_message_close_container(message) >= 0;
          }};
}

}  // namespace

GattApplication::GattApplication(std::shared_ptr<KVLinuxEventQueue> queue,
                                 std::shared_ptr<kv::BusConnection> bus,
                                 std::shared_ptr<VirtualTag> tag, Admit admit)
    : queue_(std::move(queue)),
      bus_(std::move(bus)),
      tag_(std::move(tag)),
      admit_(std::move(admit)) {}

void GattApplication::start() {
  slots_.push_back(kv::exportObjectManager(bus_, kPath));
  unsigned number = 0;
  for (const auto& service : tag_->services()) {
    exportService(service, std::string(kPath) + "/service" + std::to_string(number++));
  }
}

void GattApplication::exportService(const GattService& service, const std::string& path) {
  kv::BusInterface interface { .name = kService };
  interface.properties.push_back(textProperty("UUID", "s", service.uuid.string()));
  interface.properties.push_back({"Primary", "b", [](sd_bus_message* message) {
                                    return sd_bus_message_append(message, "b", 1) >= 0;
                                  }});
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
  interface.properties.push_back(textProperty("UUID", "s", characteristic.uuid.string()));
  interface.properties.push_back(textProperty("Service", "o", service));
  interface.properties.push_back(flagsProperty(characteristic));
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
    const char* path = nullptr;
    if (key != "device" || type != "o") return false;
    if (sd_bus_message_read_basic(call.message(), 'o', &path) > 0) device = path;
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
  if (answer->delay.count() > 0) {
    queue_->postAfter(answer->delay, send);
  } else {
    send();
  }
}

void GattApplication::notify(GattHandle characteristic, KVData value) {
  const auto found = characteristics_.find(characteristic);
  if (found == characteristics_.end()) return;
  found->second.value = std::move(value);
  kv::emitPropertiesChanged(*bus_, found->second.path, kCharacteristic, {"Value"});
}

}  // namespace kvsim
