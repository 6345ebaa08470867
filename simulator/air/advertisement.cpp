#include "simulator/air/advertisement.h"

#include <cstdint>
#include <string>
#include <utility>

namespace kvsim {
namespace {

constexpr const char* kInterface = "org.bluez.LEAdvertisement1";
// Often enough to be found at once; real tags are slower.
constexpr std::uint32_t kIntervalMs = 100;

bool appendServiceData(sd_bus_message* message, const VirtualTag& tag) {
  const auto uuid = VirtualTag::serviceDataUuid().string();
  return sd_bus_message_open_container(message, 'a', "{sv}") >= 0 &&
         sd_bus_message_open_container(message, 'e', "sv") >= 0 &&
         sd_bus_message_append_basic(message, 's', uuid.c_str()) >= 0 &&
         sd_bus_message_open_container(message, 'v', "ay") >= 0 &&
         kv::appendBytes(message, tag.advertisement()) &&
         sd_bus_message_close_container(message) >= 0 &&
         sd_bus_message_close_container(message) >= 0 &&
         sd_bus_message_close_container(message) >= 0;
}

kv::BusInterface::Property interval(const std::string& name) {
  return {name, "u", [](sd_bus_message* message) {
            return sd_bus_message_append(message, "u", kIntervalMs) >= 0;
          }};
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
      {"Type", "s",
       [](sd_bus_message* message) {
         return sd_bus_message_append(message, "s", "peripheral") >= 0;
       }},
      {"ServiceUUIDs", "as",
       [](sd_bus_message* message) {
         const auto uuid = VirtualTag::serviceDataUuid().string();
         return sd_bus_message_append(message, "as", 1, uuid.c_str()) >= 0;
       }},
      {"ServiceData", "a{sv}",
       [tag](sd_bus_message* message) { return appendServiceData(message, *tag); }},
      {"Discoverable", "b",
       [](sd_bus_message* message) { return sd_bus_message_append(message, "b", 1) >= 0; }},
      interval("MinInterval"),
      interval("MaxInterval"),
  };
  slot_ = kv::exportInterface(bus_, kPath, std::move(interface));
}

void Advertisement::refresh() {
  kv::emitPropertiesChanged(*bus_, kPath, kInterface, {"ServiceData"});
}

}  // namespace kvsim
