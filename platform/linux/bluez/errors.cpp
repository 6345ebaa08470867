// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "platform/linux/bluez/errors.h"

#include <array>
#include <charconv>
#include <optional>
#include <string_view>

#include "KVFobLink/KVBluetoothError.h"
#include "platform/linux/bus/names.h"

namespace kv {
namespace {

struct Rule {
  std::string_view name;  // the error's name; empty fits any
  std::string_view text;  // what its text contains; empty fits any
  Fault fault;
};

// The first rule that fits decides. Names are not enough: BlueZ reports most failures of a
// connection as Failed, with the meaning in the text.
constexpr std::array kRules{
    Rule{bluez::kInProgress, "br-connection", Fault::WrongBearer},
    Rule{bluez::kInProgress, "", Fault::InProgress},
    Rule{bluez::kFailed, "already in progress", Fault::InProgress},
    Rule{bluez::kAlreadyConnected, "", Fault::AlreadyConnected},
    Rule{bluez::kFailed, "already connected", Fault::AlreadyConnected},
    Rule{bluez::kNotConnected, "", Fault::NotConnected},
    Rule{bluez::kFailed, "Not connected", Fault::NotConnected},
    Rule{"", "br-connection-canceled", Fault::Canceled},
    Rule{"", "le-connection-canceled", Fault::Canceled},
    Rule{"", "concurrent-connection-limit", Fault::ConnectionLimit},
    Rule{"", "br-connection-", Fault::WrongBearer},
    Rule{bluez::kErrorOfClassic, "", Fault::WrongBearer},
    Rule{dbus::kUnknownObject, "", Fault::UnknownObject},
    Rule{dbus::kUnknownMethod, "", Fault::UnknownObject},
    Rule{dbus::kUnknownInterface, "", Fault::UnknownObject},
    Rule{bluez::kDoesNotExist, "", Fault::UnknownObject},
    Rule{dbus::kServiceUnknown, "", Fault::NoDaemon},
    Rule{dbus::kNameHasNoOwner, "", Fault::NoDaemon},
    Rule{dbus::kSpawn, "", Fault::NoDaemon},
    Rule{dbus::kDisconnected, "", Fault::NoBus},
    Rule{dbus::kAccessDenied, "", Fault::AccessDenied},
    Rule{dbus::kNoReply, "", Fault::NoReply},
    Rule{dbus::kTimeout, "", Fault::NoReply},
    Rule{bluez::kFailed, "ATT error: 0x01", Fault::InvalidHandle},
};

std::optional<std::int64_t> attCode(std::string_view text) {
  constexpr std::string_view kMark = "ATT error: 0x";
  const auto at = text.find(kMark);
  if (at == std::string_view::npos) return std::nullopt;
  std::int64_t code = 0;
  const std::string_view digits = text.substr(at + kMark.size());
  const auto parsed = std::from_chars(digits.data(), digits.data() + digits.size(), code, 16);
  return parsed.ec == std::errc() ? std::optional(code) : std::nullopt;
}

}  // namespace

Fault classify(const BusFault& error) {
  if (!error) return Fault::None;
  for (const Rule& rule : kRules) {
    if (std::string_view(error->name).starts_with(rule.name) &&
        error->text.find(rule.text) != std::string::npos) {
      return rule.fault;
    }
  }
  return Fault::Failed;
}

KVError requestError(const BusError& error) {
  const auto att = attCode(error.text);
  return {error.text.empty() ? error.name : error.text,
          att ? KVBluetoothErrorAtt + *att : std::int64_t{KVBluetoothErrorRefused}, std::nullopt};
}

}  // namespace kv
