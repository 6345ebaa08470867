// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "simulator/air/advertisement.h"

#include <cstdint>
#include <string>
#include <utility>

#include "simulator/air/properties.h"

namespace kvsim {
namespace {

constexpr const char* kInterface = "org.bluez.LEAdvertisement1";
// Often enough to be found at once; real tags are slower.
constexpr std::uint32_t kIntervalMs = 100;

bool appendServiceData(sd_bus_message* message, const VirtualTag& tag) {
  const auto uuid = VirtualTag::serviceDataUuid().string();
  sd_bus_message_open_container(message, 'a', "{sv}");
  sd_bus_message_open_container(message, 'e', "sv");
  sd_bus_message_append_basic(message, 's', uuid.c_str());
  sd_bus_message_open_container(message, 'v', "ay");
  kv::appendBytes(message, tag.advertisement());
  sd_bus_message_close_container(message);
  sd_bus_message_close_container(message);
  // A message that something was not appended to does not close.
  return sd_bus_message_close_container(message) >= 0;
}

}  // namespace

Advertisement::Advertisement(std::shared_ptr<kv::BusConnection> bus,
                             const std::shared_ptr<VirtualTag>& tag, std::function<void()> released)
    : bus_(std::move(bus)) {
  kv::BusInterface interface { .name = kInterface };
  interface.methods.push_back(
      {"Release", "", "", [released = std::move(released)](const kv::BusCall& call) {
         call.reply();
         released();
       }});
  interface.properties = {
      textProperty("Type", "peripheral"),
      listProperty("ServiceUUIDs", {VirtualTag::serviceDataUuid().string()}),
      {"ServiceData", "a{sv}",
       [tag](sd_bus_message* message) { return appendServiceData(message, *tag); }},
      setProperty("Discoverable"),
      numberProperty("MinInterval", kIntervalMs),
      numberProperty("MaxInterval", kIntervalMs),
  };
  slot_ = kv::exportInterface(bus_, kPath, std::move(interface));
}

void Advertisement::refresh() {
  kv::emitPropertiesChanged(*bus_, kPath, kInterface, {"ServiceData"});
}

}  // namespace kvsim
