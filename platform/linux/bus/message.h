// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// Owning handles of sd-bus messages, and reading helpers.
#ifndef PLATFORM_LINUX_BUS_MESSAGE_H
#define PLATFORM_LINUX_BUS_MESSAGE_H

#include <systemd/sd-bus.h>

#include <functional>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "KVFobLink/KVTypes.h"

namespace kv {

/// What an error reply says.
struct BusError {
  std::string name;  ///< As "org.bluez.Error.Failed".
  std::string text;
};

/// Absent means success.
using BusFault = std::optional<BusError>;

/// A reference to one message. Reading and appending go through `get()` and sd-bus's own functions.
class BusMessage {
 public:
  BusMessage() = default;

  /// Takes over the caller's reference.
  static BusMessage adopt(sd_bus_message* message) { return BusMessage(message); }
  /// Adds a reference.
  static BusMessage share(sd_bus_message* message) {
    return BusMessage(sd_bus_message_ref(message));
  }

  explicit operator bool() const { return message_ != nullptr; }
  sd_bus_message* get() const { return message_.get(); }

  /// The error that this reply carries; absent for an ordinary message.
  BusFault error() const;

 private:
  struct Unref {
    void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
  };
  explicit BusMessage(sd_bus_message* message) : message_(message) {}

  std::unique_ptr<sd_bus_message, Unref> message_;
};

/// What sd-bus's functions return tells a failure by its sign.
inline bool failed(int result) { return result < 0; }

// Reading: a message that has something else where a function looks makes that function and all
// that follow find nothing, so a loop over it ends.

/// Enters a container. False when there is none, as at the end of an array of them.
bool enter(sd_bus_message* message, char type, const char* contents);

/// Reads a text: an `s`, or what else is one. It stays the message's. Empty if there is none.
const char* readText(sd_bus_message* message, char type = 's');

/// Reads a `b`; false if there is none.
bool readBool(sd_bus_message* message);

/// Walks an `a{sv}` at the message's position. `visit` is called with each key, the message
/// standing inside the variant whose content has the signature `type`; it returns true once it has
/// read that content whole, false to have it skipped.
void forEachProperty(sd_bus_message* message,
                     const std::function<bool(std::string_view key, std::string_view type)>& visit);

/// Walks an `a{sv}`, and calls `visit` with each value that is an `ay`, as in BlueZ's ServiceData.
void forEachBytes(sd_bus_message* message,
                  const std::function<void(std::string_view key, KVBytes value)>& visit);

/// Reads an `ay`; the bytes stay the message's. Absent for a malformed message.
std::optional<KVBytes> readBytes(sd_bus_message* message);

/// Reads an `as`.
std::vector<std::string> readStrings(sd_bus_message* message);

/// Appends an `ay`.
bool appendBytes(sd_bus_message* message, KVBytes value);

/// Appends an `a{sv}` of strings, such as BlueZ's option dictionaries. A message that could not be
/// completed fails when it is sent.
void appendOptions(sd_bus_message* message,
                   std::initializer_list<std::pair<const char*, const char*>> options);

}  // namespace kv

#endif  // PLATFORM_LINUX_BUS_MESSAGE_H
