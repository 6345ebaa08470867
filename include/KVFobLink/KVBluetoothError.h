// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// The codes of the errors that a radio reports.
#ifndef KVFOBLINK_KVBLUETOOTHERROR_H
#define KVFOBLINK_KVBLUETOOTHERROR_H

#include <cstdint>

/// `KVError::code` of what went wrong below the tag's own commands: the same on every radio. None
/// lies within 100 to 500, which are a tag's refusals and the bind time-out. The texts that go with
/// them are each radio's own.
enum KVBluetoothErrorCode : std::int64_t {
  KVBluetoothErrorLinkLost = 1001,     ///< The link ended by itself: out of range, or by the tag.
  KVBluetoothErrorAdapterLost = 1002,  ///< The adapter was switched off, or it or its service went.
  KVBluetoothErrorLinkGivenUp = 1003,  ///< This side ended a link that was of no use any more: no
                                       ///< answer in time, or other attributes than before.
  KVBluetoothErrorRefused = 1004,      ///< The Bluetooth service refused a request.
  KVBluetoothErrorConnectFailed = 1005,  ///< A request to connect failed for good.
  KVBluetoothErrorTimedOut = 1006,       ///< A request was not answered in time; the link stays.

  /// Plus the error code of the Attribute Protocol (Bluetooth Core Specification, Vol 3, Part F,
  /// 3.4.1.1) with which the tag answered, 0x01 to 0xFF.
  KVBluetoothErrorAtt = 1100,
};

#endif  // KVFOBLINK_KVBLUETOOTHERROR_H
