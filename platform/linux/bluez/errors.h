// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// What the errors of BlueZ and of the bus mean to us; the only place that looks at their texts.
#ifndef PLATFORM_LINUX_BLUEZ_ERRORS_H
#define PLATFORM_LINUX_BLUEZ_ERRORS_H

#include "KVFobLink/KVTypes.h"
#include "platform/linux/bus/message.h"

namespace kv {

enum class Fault {
  None,
  InProgress,        ///< The same thing is under way already, or the kernel refused.
  AlreadyConnected,  ///< The link is up.
  NotConnected,      ///< The link is down.
  Canceled,          ///< A Disconnect ended the attempt.
  UnknownObject,     ///< The daemon has forgotten the device.
  ConnectionLimit,   ///< The adapter has no room for another link.
  WrongBearer,       ///< The daemon took the tag for a classic Bluetooth device.
  NoDaemon,          ///< org.bluez has no owner.
  NoBus,             ///< The connection to the bus has ended.
  AccessDenied,      ///< The bus's policy forbids it.
  NoReply,           ///< The time given to the call is over.
  InvalidHandle,     ///< The tag has no such attribute: the daemon's cache is wrong.
  Failed,            ///< Anything else, most of it worth another try.
};

Fault classify(const BusFault& error);

/// The error event of a failed read or write: the text of BlueZ, and its ATT code if it has one.
KVError requestError(const BusError& error);

}  // namespace kv

#endif  // PLATFORM_LINUX_BLUEZ_ERRORS_H
