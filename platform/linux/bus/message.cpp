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

bool enter(sd_bus_message* message, char type, const char* contents) {
  return sd_bus_message_enter_container(message, type, contents) > 0;
}

const char* readText(sd_bus_message* message, char type) {
  const char* text = "";
  sd_bus_message_read_basic(message, type, static_cast<void*>(&text));
  return text;
}

bool readBool(sd_bus_message* message) {
  int value{};
  sd_bus_message_read_basic(message, 'b', &value);
  return value != 0;
}

void forEachProperty(
    sd_bus_message* message,
    const std::function<bool(std::string_view key, std::string_view type)>& visit) {
  if (!enter(message, 'a', "{sv}")) return;
  while (enter(message, 'e', "sv")) {
    const std::string_view key = readText(message);
    const char* type = nullptr;
    sd_bus_message_peek_type(message, nullptr, &type);
    if (!enter(message, 'v', type)) return;
    if (!visit(key, type)) sd_bus_message_skip(message, type);
    sd_bus_message_exit_container(message);
    sd_bus_message_exit_container(message);
  }
  sd_bus_message_exit_container(message);
}

void forEachBytes(sd_bus_message* message,
                  const std::function<void(std::string_view key, KVBytes value)>& visit) {
  forEachProperty(message, [&](std::string_view key, std::string_view type) {
    const auto bytes = type == "ay" ? readBytes(message) : std::nullopt;
    if (bytes) visit(key, *bytes);
    return bytes.has_value();
  });
}

std::optional<KVBytes> readBytes(sd_bus_message* message) {
  const void* data = nullptr;
  std::size_t size{};
  if (sd_bus_message_read_array(message, 'y', &data, &size) <= 0) return std::nullopt;
  return KVBytes(static_cast<const std::uint8_t*>(data), size);
}

std::vector<std::string> readStrings(sd_bus_message* message) {
  std::vector<std::string> strings;
  if (!enter(message, 'a', "s")) return strings;
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
