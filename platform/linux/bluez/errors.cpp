#include "platform/linux/bluez/errors.h"

#include <array>
#include <charconv>
#include <optional>
#include <string_view>

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
    Rule{"org.bluez.Error.InProgress", "br-connection", Fault::wrongBearer},
    Rule{"org.bluez.Error.InProgress", "", Fault::inProgress},
    Rule{"org.bluez.Error.Failed", "already in progress", Fault::inProgress},
    Rule{"org.bluez.Error.AlreadyConnected", "", Fault::alreadyConnected},
    Rule{"org.bluez.Error.Failed", "already connected", Fault::alreadyConnected},
    Rule{"org.bluez.Error.NotConnected", "", Fault::notConnected},
    Rule{"org.bluez.Error.Failed", "Not connected", Fault::notConnected},
    Rule{"", "br-connection-canceled", Fault::canceled},
    Rule{"", "le-connection-canceled", Fault::canceled},
    Rule{"", "concurrent-connection-limit", Fault::noRoom},
    Rule{"", "br-connection-", Fault::wrongBearer},
    Rule{"org.bluez.Error.BREDR", "", Fault::wrongBearer},
    Rule{"org.freedesktop.DBus.Error.UnknownObject", "", Fault::unknownObject},
    Rule{"org.freedesktop.DBus.Error.UnknownMethod", "", Fault::unknownObject},
    Rule{"org.freedesktop.DBus.Error.UnknownInterface", "", Fault::unknownObject},
    Rule{"org.bluez.Error.DoesNotExist", "", Fault::unknownObject},
    Rule{"org.freedesktop.DBus.Error.ServiceUnknown", "", Fault::noDaemon},
    Rule{"org.freedesktop.DBus.Error.NameHasNoOwner", "", Fault::noDaemon},
    Rule{"org.freedesktop.DBus.Error.Spawn", "", Fault::noDaemon},
    Rule{"org.freedesktop.DBus.Error.Disconnected", "", Fault::noBus},
    Rule{"org.freedesktop.DBus.Error.AccessDenied", "", Fault::accessDenied},
    Rule{"org.freedesktop.DBus.Error.NoReply", "", Fault::noReply},
    Rule{"org.freedesktop.DBus.Error.Timeout", "", Fault::noReply},
    Rule{"org.bluez.Error.Failed", "ATT error: 0x01", Fault::invalidHandle},
};

std::optional<std::int64_t> attCode(std::string_view text) {
  constexpr std::string_view kMark = "ATT error: 0x";
  const auto at = text.find(kMark);
  if (at == std::string_view::npos) {
    return std::nullopt;
  }
  std::int64_t code = 0;
  const std::string_view digits = text.substr(at + kMark.size());
  const auto parsed = std::from_chars(digits.data(), digits.data() + digits.size(), code, 16);
  return parsed.ec == std::errc() ? std::optional(code) : std::nullopt;
}

}  // namespace

Fault classify(const BusFault& error) {
  if (!error) {
    return Fault::none;
  }
  for (const Rule& rule : kRules) {
    if (std::string_view(error->name).starts_with(rule.name) &&
        error->text.find(rule.text) != std::string::npos) {
      return rule.fault;
    }
  }
  return Fault::failed;
}

KVError requestError(const BusError& error) {
  const auto att = attCode(error.text);
  return {error.text.empty() ? error.name : error.text,
          att ? kErrorAtt + *att : static_cast<std::int64_t>(kErrorRequestFailed), std::nullopt};
}

}  // namespace kv
