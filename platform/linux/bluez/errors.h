/// What the errors of BlueZ and of the bus mean to us; the only place that looks at their texts.
#ifndef PLATFORM_LINUX_BLUEZ_ERRORS_H
#define PLATFORM_LINUX_BLUEZ_ERRORS_H

#include <cstdint>
#include <string>

#include "KVFobLink/KVTypes.h"
#include "platform/linux/bus/message.h"

namespace kv {

enum class Fault {
  none,
  inProgress,        ///< The same thing is under way already, or the kernel refused.
  alreadyConnected,  ///< The link is up.
  notConnected,      ///< The link is down.
  canceled,          ///< A Disconnect ended the attempt.
  unknownObject,     ///< The daemon has forgotten the device.
  noRoom,            ///< The adapter has no room for another link.
  wrongBearer,       ///< The daemon took the tag for a classic Bluetooth device.
  noDaemon,          ///< Nobody answers for org.bluez.
  noBus,             ///< The connection to the bus has ended.
  accessDenied,      ///< The bus's policy forbids it.
  noReply,           ///< The time given to the call is over.
  invalidHandle,     ///< The tag has no such attribute: the daemon's cache is wrong.
  failed,            ///< Anything else, most of it worth another try.
};

Fault classify(const BusFault& error);

/// Codes of the errors that this central reports.
enum KVBlueZErrorCode : std::int64_t {
  kErrorLinkLost = 1001,       ///< The link ended by itself.
  kErrorAdapterLost = 1002,    ///< The adapter or the Bluetooth service went away.
  kErrorLinkGivenUp = 1003,    ///< The link was given up: no answer in time, or other attributes.
  kErrorRequestFailed = 1004,  ///< BlueZ refused a request.
  kErrorAtt = 1100,            ///< Plus the ATT error code that the tag answered.
};

/// The error event of a failed read or write: the text of BlueZ, and its ATT code if it has one.
KVError requestError(const BusError& error);

}  // namespace kv

#endif  // PLATFORM_LINUX_BLUEZ_ERRORS_H
