// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "simulator/air/properties.h"

#include <functional>
#include <utility>

namespace kvsim {
namespace {

// `append` returns what sd-bus does, which is negative for an error.
kv::BusInterface::Property constant(const std::string& name, const char* signature,
                                    std::function<int(sd_bus_message*)> append) {
  return {name, signature,
          [append = std::move(append)](sd_bus_message* message) { return append(message) >= 0; }};
}

}  // namespace

kv::BusInterface::Property textProperty(const std::string& name, const std::string& value) {
  return constant(name, "s", [value](sd_bus_message* message) {
    return sd_bus_message_append_basic(message, 's', value.c_str());
  });
}

kv::BusInterface::Property pathProperty(const std::string& name, const std::string& path) {
  return constant(name, "o", [path](sd_bus_message* message) {
    return sd_bus_message_append_basic(message, 'o', path.c_str());
  });
}

kv::BusInterface::Property listProperty(const std::string& name, std::vector<std::string> texts) {
  return constant(name, "as", [texts = std::move(texts)](sd_bus_message* message) {
    sd_bus_message_open_container(message, 'a', "s");
    for (const auto& each : texts) sd_bus_message_append_basic(message, 's', each.c_str());
    return sd_bus_message_close_container(message);
  });
}

kv::BusInterface::Property numberProperty(const std::string& name, std::uint32_t value) {
  return constant(name, "u", [value](sd_bus_message* message) {
    return sd_bus_message_append(message, "u", value);
  });
}

kv::BusInterface::Property setProperty(const std::string& name) {
  return constant(name, "b",
                  [](sd_bus_message* message) { return sd_bus_message_append(message, "b", 1); });
}

}  // namespace kvsim
