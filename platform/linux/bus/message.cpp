// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "platform/linux/bus/message.h"

#include <cstdint>

namespace kv {

BusFault BusMessage::error() const {
  if (!message_ || sd_bus_message_is_method_error(get(), nullptr) <= 0) return std::nullopt;
  const sd_bus_error* error = sd_bus_message_get_error(get());
  return BusError{error->name != nullptr ? error->name : "",
                  error->message != nullptr ? error->message : ""};
}

bool forEachProperty(
    sd_bus_message* message,
    const std::function<bool(std::string_view key, std::string_view type)>& visit) {
  if (sd_bus_message_enter_container(message, 'a', "{sv}") < 0) return false;
  while (sd_bus_message_enter_container(message, 'e', "sv") > 0) {
    const char* key = nullptr;
    const char* type = nullptr;
    if (sd_bus_message_read_basic(message, 's', &key) < 0 ||
        sd_bus_message_peek_type(message, nullptr, &type) < 0 ||
        sd_bus_message_enter_container(message, 'v', type) < 0) {
      return false;
    }
    if (!visit(key, type) && sd_bus_message_skip(message, type) < 0) return false;
    const int leftVariant = sd_bus_message_exit_container(message);
    const int leftEntry = sd_bus_message_exit_container(message);
    if (leftVariant < 0 || leftEntry < 0) return false;
  }
  return sd_bus_message_exit_container(message) >= 0;
}

bool forEachBytes(sd_bus_message* message,
                  const std::function<void(std::string_view key, KVBytes value)>& visit) {
  return forEachProperty(message, [&](std::string_view key, std::string_view type) {
    if (type != "ay") return false;
    const auto bytes = readBytes(message);
    if (bytes) visit(key, *bytes);
    return bytes.has_value();
  });
}

std::optional<KVBytes> readBytes(sd_bus_message* message) {
  const void* data = nullptr;
  std::size_t size = 0;
  if (sd_bus_message_read_array(message, 'y', &data, &size) < 0) return std::nullopt;
  return KVBytes(static_cast<const std::uint8_t*>(data), size);
}

std::vector<std::string> readStrings(sd_bus_message* message) {
  std::vector<std::string> strings;
  if (sd_bus_message_enter_container(message, 'a', "s") < 0) return strings;
  const char* text = nullptr;
  while (sd_bus_message_read_basic(message, 's', &text) > 0) strings.emplace_back(text);
  sd_bus_message_exit_container(message);
  return strings;
}

bool appendBytes(sd_bus_message* message, KVBytes value) {
  return sd_bus_message_append_array(message, 'y', value.data(), value.size()) >= 0;
}

void appendOptions(sd_bus_message* message,
                   std::initializer_list<std::pair<const char*, const char*>> options) {
  sd_bus_message_open_container(message, 'a', "{sv}");
  for (const auto& [key, value] : options) {
    sd_bus_message_append(message, "{sv}", key, "s", value);
  }
  sd_bus_message_close_container(message);
}

}  // namespace kv
